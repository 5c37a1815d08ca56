// The real program links a Twitch account end to end on the test run's X
// display: the Stream page's "Link Twitch" button opens the "browser" (our
// xdg-open, which hands the URL to this test), the test follows Twitch's
// authorize page like a browser, the lens server exchanges the code, and the
// page then shows the account. A second start is linked from the credential
// store alone. Screenshots of the page before and after are kept. Then a
// subscription arrives over EventSub and the picture shows the tier's lens
// until the timeout brings the lens before it back.
#include "eventsubstandin.h"
#include "lensserverprocess.h"
#include "signinbrowser.h"
#include "twitchstandin.h"

#include <QDir>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTemporaryDir>
#include <QtTest>
#include <xwindowdriver.h>

using namespace XWindowDriver;

namespace {

const QString kArtifacts = QStringLiteral(GLINT_ARTIFACTS_DIR);
const QRgb kAccent = qRgb(0x7c, 0x5c, 0xff);
const QRgb kAccentBright = qRgb(0x9b, 0x82, 0xff);

// Where on the page a primary (accent-filled) button sits: the middle of
// the accent pixels right of the navigation bar, when there are enough of
// them to be a button rather than a letter drawn in the accent colour.
QPoint accentButton(const QImage &image)
{
    QRect box;
    int count = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 90; x < image.width(); ++x) {
            const QRgb pixel = image.pixel(x, y) & 0xffffff;
            if (pixel == (kAccent & 0xffffff) || pixel == (kAccentBright & 0xffffff)) {
                box |= QRect(x, y, 1, 1);
                ++count;
            }
        }
    return count < 1000 || box.width() > 400 ? QPoint() : box.center();
}

} // namespace

class TwitchWindowTest : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void linksAccountFromTheStreamPage();
    void subscriptionShowsTheTierLens();

private:
    QString startProgram(QProcess &program);
    QImage screenshot(const QString &window, const QString &name);

    QTemporaryDir m_home;
    QString m_program;
    QString m_openedFile;
    TwitchStandIn m_twitch;
    EventSubStandIn m_eventSub{&m_twitch};
    LensServerProcess m_lensServer;
};

void TwitchWindowTest::initTestCase()
{
    if (qEnvironmentVariableIsEmpty("DISPLAY"))
        QSKIP("needs an X display (the test command runs the suite under xvfb-run)");
    QVERIFY(m_home.isValid());
    m_program = m_home.filePath(
        QStringLiteral("glint-camera-twitch-test-%1").arg(QCoreApplication::applicationPid()));
    QVERIFY(QFile::link(QStringLiteral(GLINT_APP_BINARY), m_program));
    QDir().mkpath(m_home.filePath("config/Glint/Glint Camera"));
    QFile settings(m_home.filePath("config/Glint/Glint Camera/settings.json"));
    QVERIFY(settings.open(QIODevice::WriteOnly));
    // Tier 1 subscriptions show the black-and-white lens for four seconds.
    settings.write(R"({"settings": {"show_onboarding": false},
                       "twitch": {"secondaryLensIdTier1": "film-noir", "secondaryLensTimeout": 4000}})");
    settings.close();

    // The desktop's way to open a URL: this xdg-open only writes it down.
    QDir().mkpath(m_home.filePath("bin"));
    m_openedFile = m_home.filePath("opened.txt");
    QFile opener(m_home.filePath("bin/xdg-open"));
    QVERIFY(opener.open(QIODevice::WriteOnly));
    opener.write(QStringLiteral("#!/bin/sh\nprintf '%s\\n' \"$1\" >> '%1'\n").arg(m_openedFile).toUtf8());
    opener.close();
    opener.setPermissions(opener.permissions() | QFileDevice::ExeOwner);

    QVERIFY(m_twitch.start());
    QVERIFY(m_eventSub.start());
    QVERIFY(m_lensServer.isReady());
    QVERIFY(m_lensServer.import({QStringLiteral(GLINT_SAMPLE_LENSES "/film-noir")}));
    QVERIFY(m_lensServer.start({QStringLiteral("--twitch-client-id"), TwitchStandIn::kClientId,
                                QStringLiteral("--twitch-client-secret"), TwitchStandIn::kClientSecret,
                                QStringLiteral("--twitch-token-url"), m_twitch.tokenUrl()}));
}

QString TwitchWindowTest::startProgram(QProcess &program)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_CONFIG_HOME", m_home.filePath("config"));
    env.insert("XDG_DATA_HOME", m_home.filePath("data"));
    env.insert("QT_QPA_PLATFORM", "xcb");
    env.insert("PATH", m_home.filePath("bin") + ":" + env.value("PATH"));
    env.insert("GLINT_BACKEND_URL", m_lensServer.baseUrl());
    env.insert("GLINT_TWITCH_CLIENT_ID", TwitchStandIn::kClientId);
    env.insert("GLINT_TWITCH_OAUTH_URL", m_twitch.oauthUrl());
    env.insert("GLINT_TWITCH_HELIX_URL", m_twitch.helixUrl());
    env.insert("GLINT_TWITCH_EVENTSUB_URL", m_eventSub.url());
    env.insert("GLINT_LENS_VERIFICATION_KEY", m_lensServer.publicKey());
    program.setProcessEnvironment(env);
    program.setProgram(m_program);
    program.start();
    QString window;
    waitFor(
        [&] {
            window =
                run("xdotool", {"search", "--onlyvisible", "--pid", QString::number(program.processId())})
                    .split('\n')
                    .first();
            return !window.isEmpty() || program.state() == QProcess::NotRunning;
        },
        30000);
    return window;
}

QImage TwitchWindowTest::screenshot(const QString &window, const QString &name)
{
    QDir().mkpath(kArtifacts);
    QTest::qWait(600); // the page has settled
    return grab(window, kArtifacts + "/" + name + ".png");
}

void TwitchWindowTest::linksAccountFromTheStreamPage()
{
    const QString log = m_home.filePath("config/Glint/Glint Camera/Log.txt");
    QProcess program;
    const QString window = startProgram(program);
    QVERIFY(!window.isEmpty());
    QVERIFY(waitFor([&] { return readFile(log).contains("glint.actions: Started"); }, 20000));
    inWindow(window, {"key", "--clearmodifiers", "ctrl+2"});
    QVERIFY(waitFor([&] { return readFile(log).contains("OpenTwitchPage"); }));

    const QPoint link = accentButton(screenshot(window, "twitch-page-before"));
    QVERIFY2(!link.isNull(), "no Link Twitch button on the Stream page");
    click(window, link.x(), link.y());
    QVERIFY(waitFor([&] { return readFile(log).contains("AuthorizeTwitch"); }));
    QVERIFY(waitFor([&] { return !readFile(m_openedFile).isEmpty(); }));
    screenshot(window, "twitch-page-waiting");

    // The browser: Twitch's authorize page, then the redirect in a tab.
    SignInBrowser browser;
    browser.open(QUrl(readFile(m_openedFile).trimmed()));
    QVERIFY(waitFor([&] { return browser.tab != nullptr; }));
    QVERIFY(browser.tab->waitClosed(15000));
    QVERIFY(browser.tab->body().contains("Authorization Succeeded"));
    QVERIFY(waitFor([&] { return readFile(log).contains("TwitchUserAuthorized"); }));
    QTest::qWait(1500); // the account name arrives from Helix
    const QImage linked = screenshot(window, "twitch-page-linked");
    QVERIFY((linked.pixel(link) & 0xffffff) != (kAccent & 0xffffff)); // "Link Twitch" is gone

    inWindow(window, {"key", "--clearmodifiers", "ctrl+q"});
    QVERIFY(program.waitForFinished(20000));

    // The next start is linked from the credential store, without a browser.
    QFile::remove(m_openedFile);
    QProcess again;
    const QString secondWindow = startProgram(again);
    QVERIFY(!secondWindow.isEmpty());
    QVERIFY(waitFor([&] { return readFile(log).contains("TwitchUserAuthorized"); }, 20000));
    inWindow(secondWindow, {"key", "--clearmodifiers", "ctrl+2"});
    QVERIFY(waitFor([&] { return readFile(log).contains("OpenTwitchPage"); }));
    QTest::qWait(1000);
    QVERIFY((screenshot(secondWindow, "twitch-page-after-restart").pixel(link) & 0xffffff) !=
            (kAccent & 0xffffff));
    QVERIFY(!QFile::exists(m_openedFile));
    inWindow(secondWindow, {"key", "--clearmodifiers", "ctrl+q"});
    QVERIFY(again.waitForFinished(20000));
}

void TwitchWindowTest::subscriptionShowsTheTierLens()
{
    const QString log = m_home.filePath("config/Glint/Glint Camera/Log.txt");
    QProcess program;
    const QString window = startProgram(program);
    QVERIFY(!window.isEmpty());
    // Linked from the credential store; the EventSub session subscribes.
    QVERIFY(waitFor([&] { return readFile(log).contains("TwitchUserAuthorized"); }, 20000));
    QVERIFY(waitFor(
        [&] { return m_twitch.subscriptionsOf(m_eventSub.lastSessionId().toStdString()).size() == 3; },
        20000));
    QVERIFY(waitFor([&] { return saturation(screenshot(window, "subscription-before")) > 40; }, 30000));

    const QJsonObject event{{"user_id", "1337"},
                            {"user_login", "cool_user"},
                            {"user_name", "Cool_User"},
                            {"broadcaster_user_id", QString::fromStdString(m_twitch.user().id)},
                            {"broadcaster_user_login", QString::fromStdString(m_twitch.user().login)},
                            {"tier", "1000"},
                            {"is_gift", false}};
    QVERIFY(m_eventSub.notify(QStringLiteral("channel.subscribe"), event));
    QVERIFY(waitFor([&] { return readFile(log).contains("Activate subscription Lens"); }));
    // The subscription lens: the picture turns black and white...
    QVERIFY(waitFor(
        [&] {
            const double value = saturation(screenshot(window, "subscription-lens"));
            return value >= 0 && value < 8;
        },
        30000));
    // ...until the timeout brings back the picture as it was.
    QVERIFY(waitFor([&] { return readFile(log).contains("Deactivate subscription Lens"); }, 15000));
    QVERIFY(waitFor([&] { return saturation(screenshot(window, "subscription-after")) > 40; }, 15000));

    inWindow(window, {"key", "--clearmodifiers", "ctrl+q"});
    QVERIFY(program.waitForFinished(20000));
}

QTEST_MAIN(TwitchWindowTest)
#include "tst_twitchwindow.moc"
