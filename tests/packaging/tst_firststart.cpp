// A first start as the user meets it: the real application in the test
// process on the X display, with no "Glint Camera" device and its backend
// address pointing at a closed port.
// The virtual camera set-up: pkexec is replaced (GLINT_PKEXEC) by a
// stand-in script that records what it was asked to run and then does what
// the helper would: makes the labelled device appear, or refuses like a
// dismissed password dialog.
// Without the catalogue, the featured list offers the sample lenses that
// ship with the program, marked as bundled, and putting one on installs it
// from its signed archive into the lens cache, checked like a download.
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QQuickItem>
#include <QQuickWindow>
#include <QtTest>
#include <application.h>
#include <applicationhome.h>
#include <inprocessapplication.h>
#include <messagecapture.h>
#include <xwindowdriver.h>

namespace {

QTemporaryDir *g_dir = nullptr;

QString path(const QString &name)
{
    return g_dir->filePath(name);
}

void writeFile(const QString &name, const QByteArray &content, bool executable = false)
{
    QFile file(path(name));
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(content);
    if (executable)
        file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}

// Records its arguments, one per line, then answers as the file "answer"
// says: "device" makes the labelled device and succeeds, a number exits
// with it.
const char *const kStandIn = R"(#!/bin/sh
dir=$(dirname "$0")
printf '%s\n' "$#" "$@" >> "$dir/calls"
answer=$(cat "$dir/answer")
if [ "$answer" = device ]; then
    mkdir -p "$dir/sysfs/video7" && echo "Glint Camera" > "$dir/sysfs/video7/name"
    exit 0
fi
exit "$answer"
)";

void prepareEnvironment()
{
    // No first-start introduction: it would cover the page.
    g_dir = prepareApplicationHome(R"({"settings": {"show_onboarding": false}})");
    QDir().mkpath(path("sysfs"));
    writeFile("pkexec", kStandIn, true);
    writeFile("modules.dep", "");
    qputenv("GLINT_PKEXEC", path("pkexec").toUtf8());
    qputenv("GLINT_VIDEO4LINUX_SYSFS", path("sysfs").toUtf8());
    qputenv("GLINT_KERNEL_MODULES_DEP", path("modules.dep").toUtf8());
    qputenv("GLINT_CAMERA_SINK", GLINT_SINK_BINARY);
    qunsetenv("GLINT_BUNDLED_LENSES");
}

QStringList calls()
{
    QFile file(path("calls"));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts)
                                          : QStringList();
}

} // namespace

class TestFirstStart : public QObject
{
    Q_OBJECT
public:
    explicit TestFirstStart(VCam::Application *app) : m_app(app) {}

private:
    // By object name; delegates made by views are found in the visual tree.
    QQuickItem *item(const QString &name) const
    {
        const auto roots = m_app->engine()->rootObjects();
        auto *window = roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow *>(roots.first());
        QQuickItem *found = window ? window->findChild<QQuickItem *>(name) : nullptr;
        return found || !window ? found : findQuickItem(window->contentItem(), name);
    }
    bool shown(const QString &name) const
    {
        QQuickItem *found = item(name);
        return found && found->isVisible();
    }
    QString message() const
    {
        QQuickItem *text = item("virtualCameraMessage");
        return text ? text->property("text").toString() : QString();
    }
    void click(const QString &name)
    {
        QQuickItem *button = item(name);
        QVERIFY(button && button->isVisible());
        const QPointF centre = button->mapToScene(QPointF(button->width() / 2, button->height() / 2));
        QTest::mouseClick(button->window(), Qt::LeftButton, Qt::NoModifier, centre.toPoint());
    }

    VCam::Application *m_app;

private slots:
    void initTestCase()
    {
        if (QFile::exists("/sys/module/v4l2loopback"))
            QSKIP("v4l2loopback is loaded on this machine: the missing driver cannot be shown");
        // After QTest's own handler, which prints the messages. The
        // processing thread tries the output (and, with the driver there,
        // the set-up) once as processing starts; the steps below wait for it.
        MessageCapture log(nullptr, {});
        QVERIFY(XWindowDriver::waitFor([this] { return shown("virtualCameraNotice"); }, 20000));
        QVERIFY(XWindowDriver::waitFor([&] { return log.count("Camera is not installed") > 0; }, 20000));
    }

    void withoutTheDriverNamesThePackage()
    {
        QVERIFY(XWindowDriver::waitFor([this] { return message().contains("v4l2loopback-dkms"); }, 5000));
        QVERIFY(!shown("virtualCameraSetUp"));
        QVERIFY(calls().isEmpty());
    }

    // Installing the driver package while the program runs is noticed.
    void theDriverInstalledOffersTheSetUp()
    {
        writeFile("modules.dep",
                  "kernel/drivers/media/v4l2-core/videodev.ko:\n"
                  "updates/dkms/v4l2loopback.ko.xz: kernel/drivers/media/v4l2-core/videodev.ko\n");
        QVERIFY(XWindowDriver::waitFor([this] { return shown("virtualCameraSetUp"); }, 6000));
        QVERIFY(message().contains("Glint Camera"));
    }

    void aRefusedPasswordKeepsTheOffer()
    {
        writeFile("answer", "126\n");
        click("virtualCameraSetUp");
        QVERIFY(XWindowDriver::waitFor([this] { return calls().size() == 2; }, 5000));
        QVERIFY(XWindowDriver::waitFor(
            [this] {
                return item("virtualCameraError")->property("text").toString().contains("not authorised");
            },
            5000));
        QVERIFY(shown("virtualCameraSetUp"));
        QVERIFY(shown("virtualCameraNotice"));
    }

    // pkexec is asked to run the fixed helper, by its absolute path, with
    // no argument; once the device exists the notice goes away.
    void theSetUpRunsOnlyTheHelper()
    {
        writeFile("answer", "device\n");
        click("virtualCameraSetUp");
        QVERIFY(XWindowDriver::waitFor([this] { return calls().size() == 4; }, 5000));
        const QStringList recorded = calls();
        const QString helper = QFileInfo(GLINT_SETUP_BINARY).canonicalFilePath();
        QCOMPARE(recorded, (QStringList{"1", helper, "1", helper}));
        QVERIFY(XWindowDriver::waitFor([this] { return !shown("virtualCameraNotice"); }, 5000));
        QTest::qWait(2500);
        QCOMPARE(calls().size(), 4);
    }

    void bundledLensesAreOfferedAndOneIsPutOn()
    {
        QVERIFY(XWindowDriver::waitFor([this] { return shown("lensTile_sunglasses"); }, 20000));
        QVERIFY(shown("bundledBadge_sunglasses"));
        QVERIFY(shown("lensTile_party-hat"));
        click("lensTile_sunglasses");
        QObject *store = m_app->engine()->rootContext()->contextProperty("coreStore").value<QObject *>();
        QVERIFY(XWindowDriver::waitFor(
            [&] { return store->property("currentLensId").toString() == "sunglasses"; }, 20000));
        QVERIFY(QFile::exists(path("data/Glint/Glint Camera/lenses/sunglasses/lens/lens.json")));
    }
};

int main(int argc, char **argv)
{
    prepareEnvironment();
    const int result = runInApplication<TestFirstStart>(argc, argv);
    delete g_dir;
    return result;
}

#include "tst_firststart.moc"
