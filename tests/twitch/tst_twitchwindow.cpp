// The real program links a Twitch account end to end on the test run's X
// display: the Stream page's "Link Twitch" button opens the "browser" (our
// xdg-open, which hands the URL to this test), the test follows Twitch's
// authorize page like a browser, the lens server exchanges the code, and the
// page then shows the account. Screenshots of the page before and after are
// kept. The next start is linked from the credential store alone; a
// subscription arrives over EventSub and the picture shows the tier's lens
// until the timeout brings the lens before it back.
#include "lensserverprocess.h"
#include "liveeventsstandin.h"
#include "signinbrowser.h"
#include "twitchstandin.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>
#include <programundertest.h>

using namespace XWindowDriver;

namespace {

const QRgb kAccent = qRgb(0x7c, 0x5c, 0xff), kAccentBright = qRgb(0x9b, 0x82, 0xff);

// Where on the page a primary (accent-filled) button sits: the middle of
// the accent pixels right of the navigation bar, when there are enough of
// them to be a button rather than a letter drawn in the accent colour.
QPoint accentButton(const QImage &image)
{
    QRect box;
    int count = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 90; x < image.width(); ++x) {
            const QRgb pixel = image.pixel(x, y) | 0xff000000;
            if (pixel == kAccent || pixel == kAccentBright) {
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
    // Starts the program against the stand-ins; its window id, or empty.
    QString start(ProgramUnderTest &app);
    QImage screenshot(const QString &window, const QString &name)
    {
        QTest::qWait(600); // the page has settled
        return grab(window, GLINT_ARTIFACTS_DIR "/" + name + ".png");
    }
    ProgramUnderTest program()
    {
        return ProgramUnderTest(
            m_home.path(),
            QStringLiteral("glint-camera-twitch-test-%1").arg(QCoreApplication::applicationPid()),
            GLINT_APP_BINARY);
    }

    QTemporaryDir m_home;
    QString m_openedFile;
    TwitchStandIn m_twitch;
    LiveEventsStandIn m_live{&m_twitch};
    LensServerProcess m_lensServer;
};

void TwitchWindowTest::initTestCase()
{
    if (const QString missing = ProgramUnderTest::missingDisplay(); !missing.isEmpty())
        QSKIP(qPrintable(missing));
    QVERIFY(m_home.isValid() && QDir().mkpath(GLINT_ARTIFACTS_DIR) && QDir().mkpath(m_home.filePath("bin")));
    // Tier 1 subscriptions show the black-and-white lens for four seconds.
    QVERIFY(program().writeSettings(R"({"settings": {"show_onboarding": false},
                       "twitch": {"secondaryLensIdTier1": "film-noir", "secondaryLensTimeout": 4000}})"));

    // The desktop's way to open a URL: this xdg-open only writes it down.
    m_openedFile = m_home.filePath("opened.txt");
    QFile opener(m_home.filePath("bin/xdg-open"));
    QVERIFY(opener.open(QIODevice::WriteOnly));
    opener.write(QStringLiteral("#!/bin/sh\nprintf '%s\\n' \"$1\" >> '%1'\n").arg(m_openedFile).toUtf8());
    opener.close();
    opener.setPermissions(opener.permissions() | QFileDevice::ExeOwner);

    QVERIFY(m_twitch.start() && m_live.start() && m_lensServer.isReady());
    QVERIFY(m_lensServer.import({QStringLiteral(GLINT_SAMPLE_LENSES "/film-noir")}));
    QVERIFY(m_lensServer.start(m_twitch.lensServerArguments()));
}

QString TwitchWindowTest::start(ProgramUnderTest &app)
{
    app.setEnv("PATH", m_home.filePath("bin") + ":" + qEnvironmentVariable("PATH"));
    app.setEnv("GLINT_BACKEND_URL", m_lensServer.baseUrl());
    app.setEnv("GLINT_TWITCH_CLIENT_ID", TwitchStandIn::kClientId);
    app.setEnv("GLINT_TWITCH_OAUTH_URL", m_twitch.oauthUrl());
    app.setEnv("GLINT_TWITCH_HELIX_URL", m_twitch.helixUrl());
    app.setEnv("GLINT_TWITCH_EVENTSUB_URL", m_live.eventSubUrl());
    app.setEnv("GLINT_LENS_VERIFICATION_KEY", m_lensServer.publicKey());
    app.start();
    return app.waitForWindow();
}

void TwitchWindowTest::linksAccountFromTheStreamPage()
{
    ProgramUnderTest app = program();
    const QString window = start(app);
    QVERIFY2(!window.isEmpty(), qPrintable(app.whyNoWindow()));
    QVERIFY(app.logShows("glint.actions: Started"));
    inWindow(window, {"key", "--clearmodifiers", "ctrl+2"});
    QVERIFY(app.logShows("OpenTwitchPage"));

    const QPoint link = accentButton(screenshot(window, "twitch-page-before"));
    QVERIFY2(!link.isNull(), "no Link Twitch button on the Stream page");
    click(window, link.x(), link.y());
    QVERIFY(app.logShows("AuthorizeTwitch"));
    QVERIFY(waitFor([&] { return !readFile(m_openedFile).isEmpty(); }));
    screenshot(window, "twitch-page-waiting");

    // The browser: Twitch's authorize page, then the redirect in a tab.
    SignInBrowser browser;
    browser.open(QUrl(readFile(m_openedFile).trimmed()));
    QVERIFY(waitFor([&] { return browser.tab != nullptr; }));
    QVERIFY(browser.tab->waitClosed(15000) && browser.tab->body().contains("Authorization Succeeded"));
    QVERIFY(app.logShows("TwitchUserAuthorized"));
    QTest::qWait(1500); // the account name arrives from Helix
    const QImage linked = screenshot(window, "twitch-page-linked");
    QVERIFY((linked.pixel(link) | 0xff000000) != kAccent); // "Link Twitch" is gone
    QVERIFY(app.quit(window));
}

void TwitchWindowTest::subscriptionShowsTheTierLens()
{
    QFile::remove(m_openedFile);
    ProgramUnderTest app = program();
    const QString window = start(app);
    QVERIFY2(!window.isEmpty(), qPrintable(app.whyNoWindow()));
    // Linked from the credential store, without a browser; the EventSub
    // session subscribes.
    QVERIFY(app.logShows("TwitchUserAuthorized"));
    QVERIFY(!QFile::exists(m_openedFile));
    QVERIFY(waitFor(
        [&] { return m_twitch.subscriptionsOf(m_live.lastSessionId().toStdString()).size() == 3; }, 20000));
    QVERIFY(waitFor([&] { return saturation(screenshot(window, "subscription-before")) > 40; }, 30000));

    QVERIFY(m_live.subscribe(QStringLiteral("1000")));
    QVERIFY(app.logShows("Activate subscription Lens"));
    // The subscription lens: the picture turns black and white...
    QVERIFY(waitFor(
        [&] {
            const double value = saturation(screenshot(window, "subscription-lens"));
            return value >= 0 && value < 8;
        },
        30000));
    // ...until the timeout brings back the picture as it was.
    QVERIFY(app.logShows("Deactivate subscription Lens", 15000));
    QVERIFY(waitFor([&] { return saturation(screenshot(window, "subscription-after")) > 40; }, 15000));
    QVERIFY(app.quit(window));
}

QTEST_MAIN(TwitchWindowTest)
#include "tst_twitchwindow.moc"
