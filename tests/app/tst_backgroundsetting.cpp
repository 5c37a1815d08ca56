// The background choice on its way from the interface's action provider to
// the camera store, its processing thread and the settings file, and back
// at the next start; and background images from the settings file that are
// no usable image. Real stores, the real processing thread on the demo
// camera, the real settings file.
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>
#include <actionprovider.h>
#include <backgroundsetting.h>
#include <collectingstore.h>
#include <coreservice.h>
#include <corestore.h>
#include <dispatcher.h>
#include <metatypes.h>
#include <popupmessage.h>
#include <settings.h>

using namespace VCam;
using nlohmann::json;

namespace {

// One run of the camera part of the program: dispatcher, camera store with
// its processing thread (no virtual camera), and a store that records every
// action.
struct Run
{
    std::shared_ptr<Bureau::Dispatcher> dispatcher = std::make_shared<Bureau::Dispatcher>();
    std::shared_ptr<CoreStore> store =
        std::make_shared<CoreStore>(dispatcher, new CoreService([] { return nullptr; }));
    std::shared_ptr<CollectingStore> collector = std::make_shared<CollectingStore>();
    ActionProvider provider{dispatcher};
    // Every setting the processing thread was asked for, and its answers.
    QSignalSpy asked{store->service(), &CoreService::setBackgroundEffect};
    QSignalSpy answered{store->service(), &CoreService::backgroundEffectAnswered};

    bool start(const json &coreSection)
    {
        store->loadSettings(coreSection);
        dispatcher->addStore(store);
        dispatcher->addStore(collector);
        QSignalSpy started(dispatcher.get(), &Bureau::Dispatcher::started);
        dispatcher->start();
        if (!started.wait(10000) && dispatcher->state() != Bureau::Dispatcher::Started)
            return false;
        provider.notifyStarted();
        return true;
    }
    ~Run()
    {
        QSignalSpy stopped(dispatcher.get(), &Bureau::Dispatcher::stopped);
        dispatcher->stop();
        if (stopped.count() == 0)
            stopped.wait(5000);
    }
    QStringList warnings() const
    {
        QStringList texts;
        for (const auto &action : collector->ofType(ActionType::ShowPopupMessage)) {
            const auto message = action->payload.value<PopupMessage>();
            if (message.type == MessageType::Warning)
                texts << message.text;
        }
        return texts;
    }
    BackgroundSetting lastAsked() const
    {
        return asked.isEmpty() ? BackgroundSetting{} : asked.last().at(0).value<BackgroundSetting>();
    }
};

// The store's state answers the engine's answer: running, or off with the
// reason shown as a warning.
void checkAnswerShows(Run &run, BackgroundMode chosen)
{
    QVERIFY(run.answered.wait(20000) || !run.answered.isEmpty());
    const QString error = run.answered.last().at(1).toString();
    QCoreApplication::processEvents();
    if (error.isEmpty()) {
        QCOMPARE(run.store->backgroundMode(), chosen);
        QCOMPARE(run.store->backgroundError(), QString());
        QVERIFY(run.warnings().isEmpty());
    } else {
        QCOMPARE(run.store->backgroundMode(), BackgroundMode::Off);
        QCOMPARE(run.store->backgroundError(), error);
        QTRY_COMPARE(run.warnings().size(), 1);
        QVERIFY(run.warnings().first().contains(error));
    }
}

} // namespace

class TestBackgroundSetting : public QObject
{
    Q_OBJECT
    QTemporaryDir dir;
    QString settingsPath() const { return dir.filePath("settings.json"); }

private slots:
    void initTestCase()
    {
        registerMetaTypes();
        QVERIFY(dir.isValid());
    }

    void choiceReachesTheEngineAndComesBackAtTheNextStart()
    {
        json savedCore;
        {
            Run first;
            QVERIFY(first.start(json::object()));
            QCOMPARE(first.store->backgroundMode(), BackgroundMode::Off);
            QVERIFY(first.asked.isEmpty()); // nothing to ask for while off
            // What the store says the moment it takes the action, before any answer.
            QList<BackgroundMode> modes;
            QObject listening; // ends the connection with this scope
            connect(first.store.get(), &CoreStore::backgroundChanged, &listening,
                    [&] { modes << first.store->backgroundMode(); });
            first.provider.setBackgroundEffect(BackgroundMode::Blur, BlurStrength::Strong,
                                               "/pictures/beach.jpg");
            first.provider.setBackgroundEffect(BackgroundMode::Blur, BlurStrength::Strong,
                                               "/pictures/beach.jpg"); // a second click
            QTRY_COMPARE(first.asked.size(), 1);
            QCOMPARE(modes.first(), BackgroundMode::Blur);
            QCOMPARE(first.lastAsked(),
                     (BackgroundSetting{BackgroundMode::Blur, BlurStrength::Strong, "/pictures/beach.jpg"}));
            savedCore = first.store->saveSettings();
            Settings settings(settingsPath(), ":/defaults/settings.json");
            QVERIFY(settings.load());
            settings.setSection("core", savedCore);
            QVERIFY2(settings.save(), qPrintable(settings.errorString()));
            checkAnswerShows(first, BackgroundMode::Blur);
        }
        QFile file(settingsPath());
        QVERIFY(file.open(QIODevice::ReadOnly));
        const json written = json::parse(file.readAll().toStdString());
        QCOMPARE(written["core"]["background"],
                 (json{{"mode", "blur"}, {"blurStrength", "strong"}, {"imagePath", "/pictures/beach.jpg"}}));

        Settings reread(settingsPath(), ":/defaults/settings.json");
        QVERIFY(reread.load());
        Run second;
        second.store->loadSettings(reread.section("core"));
        QCOMPARE(second.store->backgroundMode(), BackgroundMode::Blur);
        QCOMPARE(second.store->backgroundBlurStrength(), BlurStrength::Strong);
        QCOMPARE(second.store->backgroundImagePath(), QString("/pictures/beach.jpg"));
        QVERIFY(second.start(reread.section("core")));
        QTRY_COMPARE(second.asked.size(), 1); // handed to the engine once started
        QCOMPARE(second.lastAsked().mode, BackgroundMode::Blur);
        QCOMPARE(second.lastAsked().blurStrength, BlurStrength::Strong);
        checkAnswerShows(second, BackgroundMode::Blur);
        // Off always works, clears any reason, and is what is saved then.
        const int answersBefore = second.answered.size();
        second.provider.setBackgroundEffect(BackgroundMode::Off, BlurStrength::Strong, QString());
        QTRY_COMPARE(second.answered.size(), answersBefore + 1);
        QCOMPARE(second.answered.last().at(1).toString(), QString());
        QCOMPARE(second.store->backgroundMode(), BackgroundMode::Off);
        QCOMPARE(second.store->backgroundError(), QString());
        QCOMPARE(second.store->saveSettings()["background"]["mode"], json("off"));
    }

    // A section written by hand or by another version: anything unknown
    // reads as off, and nothing is handed to the engine for it.
    void malformedSectionReadsAsOff()
    {
        Run run;
        QVERIFY(run.start(json::parse(R"({"background": {"mode": 1, "blurStrength": [], "imagePath": 7}})")));
        QCOMPARE(run.store->backgroundMode(), BackgroundMode::Off);
        QSignalSpy frames(run.store.get(), &CoreStore::frameReady);
        QVERIFY(frames.wait(20000));
        QVERIFY(run.asked.isEmpty());
    }

    void hostileImageFromTheSettingsFile_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("expected");
        QTest::newRow("missing") << dir.filePath("deleted-since.png") << "does not exist";
        QTest::newRow("folder") << dir.path() << "is a folder";
    }

    // The user is told, the effect is off, the camera keeps delivering
    // frames, and the next save no longer asks for the broken image.
    void hostileImageFromTheSettingsFile()
    {
        QFETCH(QString, path);
        QFETCH(QString, expected);
        Run run;
        QVERIFY(run.start(json{{"background", {{"mode", "image"}, {"imagePath", path.toStdString()}}}}));
        checkAnswerShows(run, BackgroundMode::Image);
        QCOMPARE(run.store->backgroundMode(), BackgroundMode::Off);
        QVERIFY2(run.store->backgroundError().contains(expected), qPrintable(run.store->backgroundError()));
        QCOMPARE(run.store->saveSettings()["background"]["mode"], json("off"));
        QCOMPARE(run.store->saveSettings()["background"]["imagePath"], json(""));
        QSignalSpy frames(run.store.get(), &CoreStore::frameReady);
        QVERIFY(frames.wait(20000));
        QVERIFY(frames.wait(5000));
        QCOMPARE(frames.last().at(0).value<QImage>().size(), QSize(1280, 720));
    }

    // Only the answer to the latest choice counts: a slow failure of an
    // earlier one does not switch off the newer choice.
    void staleAnswerIsIgnored()
    {
        Run run;
        QVERIFY(run.start(json::object()));
        run.provider.setBackgroundEffect(BackgroundMode::Image, BlurStrength::Light,
                                         dir.filePath("gone.png"));
        run.provider.setBackgroundEffect(BackgroundMode::Off, BlurStrength::Light, QString());
        QTRY_COMPARE(run.answered.size(), 2);
        QCoreApplication::processEvents();
        QCOMPARE(run.store->backgroundMode(), BackgroundMode::Off);
        QCOMPARE(run.store->backgroundError(), QString());
        QVERIFY(run.warnings().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestBackgroundSetting)
#include "tst_backgroundsetting.moc"
