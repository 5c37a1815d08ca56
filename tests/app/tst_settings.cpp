#include <QTemporaryDir>
#include <QtTest>
#include <actiontypes.h>
#include <applicationstore.h>
#include <csignal>
#include <dispatcher.h>
#include <settings.h>
#include <settingssavemiddleware.h>
#include <sys/resource.h>

using namespace VCam;
using nlohmann::json;

namespace {

void write(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

QByteArray read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray nested(int depth, const QByteArray &open, const QByteArray &close)
{
    return open.repeated(depth) + close.repeated(depth);
}

} // namespace

class TestSettings : public QObject
{
    Q_OBJECT
    QTemporaryDir dir;
    QString path() const { return dir.filePath("settings.json"); }

private slots:
    void init() { QFile::remove(path()), QFile::remove(path() + ".bak"); }

    // Defaults first, the file's members over them member by member, and
    // saved sections come back.
    void defaultsFileAndSavedSections()
    {
        write(
            path(),
            R"({"settings": {"mirror_preview": false, "x": {"a": [[1, {"k": 1}]]}}, "lenses": {"favorites": ["a"]}})");
        Settings settings(path(), ":/defaults/settings.json");
        QVERIFY(settings.load());
        QCOMPARE(settings.section("settings")["mirror_preview"], json(false));
        QCOMPARE(settings.section("settings")["automatic_updates"], json(true)); // from the defaults
        QCOMPARE(settings.section("settings")["x"]["a"][0][1]["k"], json(1));    // ordinary nesting is read
        settings.setSection("twitch", json{{"timeout", 30}});
        QVERIFY2(settings.save(), qPrintable(settings.errorString()));
        Settings again(path(), ":/defaults/settings.json");
        QVERIFY(again.load());
        QCOMPARE(again.section("twitch")["timeout"], json(30));
        QCOMPARE(again.section("lenses")["favorites"][0], json("a"));
        QVERIFY(!QFile::exists(path() + ".bak"));
    }

    // A broken file, one that is not an object, or nesting far beyond
    // anything the program writes (refused while parsing, without recursion)
    // is kept aside as .bak; the defaults apply, and saving never destroys
    // the user's file, also at the next start with the same file.
    void unreadableFileIsKeptAside_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("cut short") << QByteArray("{\"settings\": {\"mirror_preview\": fal");
        QTest::newRow("not an object") << QByteArray("[1, 2, 3]");
        QTest::newRow("100000 objects") << nested(100000, "{\"a\":", "}");
        QTest::newRow("20000 arrays in a section")
            << "{\"settings\": {\"mirror_preview\": false, \"x\": " + nested(20000, "[", "]") + "}}";
        QTest::newRow("unclosed 200000 arrays") << QByteArray(200000, '[');
    }
    void unreadableFileIsKeptAside()
    {
        QFETCH(QByteArray, content);
        for (int start = 0; start < 2; ++start) {
            write(path(), content);
            Settings settings(path(), ":/defaults/settings.json");
            QVERIFY(!settings.load());
            QVERIFY2(settings.errorString().contains("settings.json"), qPrintable(settings.errorString()));
            QCOMPARE(settings.section("settings")["mirror_preview"], json(true));
            QCOMPARE(read(path() + ".bak"), content);
            QVERIFY(settings.save());
            QCOMPARE(read(path() + ".bak"), content);
            QVERIFY(QFileInfo(path()).size() < 4096);
            QVERIFY(json::parse(read(path()).toStdString()).is_object());
        }
    }

    // A full disk (here: a file size limit) is reported with its reason,
    // and the file already on disk stays whole.
    void failedWriteReportsTheRealReason()
    {
        Settings settings(path(), ":/defaults/settings.json");
        QVERIFY(settings.load());
        QVERIFY(settings.save());
        const QByteArray before = read(path());
        settings.setSection("lenses", json{{"favorites", std::vector<std::string>(20000, "lens-id")}});
        rlimit previous, small;
        getrlimit(RLIMIT_FSIZE, &previous);
        const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
        small = {4096, previous.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
        const bool saved = settings.save();
        setrlimit(RLIMIT_FSIZE, &previous);
        std::signal(SIGXFSZ, oldHandler);
        QVERIFY(!saved);
        QVERIFY2(settings.errorString().contains("too large", Qt::CaseInsensitive),
                 qPrintable(settings.errorString()));
        QCOMPARE(read(path()), before);
    }

    // A preference changed through an action reaches the file within a few
    // seconds, without waiting for the program to end; frame traffic alone
    // never writes.
    void changesAreSavedShortlyAfterwards()
    {
        auto dispatcher = std::make_shared<Bureau::Dispatcher>();
        auto store = std::make_shared<ApplicationStore>(dispatcher, nullptr, nullptr);
        Settings settings(path(), ":/defaults/settings.json");
        QVERIFY(settings.load());
        store->loadSettings(settings.section("settings"));
        int saves = 0;
        dispatcher->addStore(store);
        dispatcher->addMiddleware(std::make_shared<SettingsSaveMiddleware>(
            std::set<qint32>{qint32(ActionType::UpdateFrame)},
            [&] {
                ++saves;
                settings.setSection("settings", store->saveSettings());
                QVERIFY(settings.save());
            },
            300));
        dispatcher->start();
        const auto send = [&](ActionType type, QVariant payload) {
            dispatcher->dispatch(new Bureau::Action(qint32(type), payload));
        };
        for (int i = 0; i < 5; ++i)
            send(ActionType::UpdateFrame, {});
        QTest::qWait(600);
        QVERIFY(saves == 0 && !QFile::exists(path()));
        send(ActionType::SetMirrorPreview, false);
        send(ActionType::SetAutomaticUpdatesEnabled, false);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(path()), 3000);
        QCOMPARE(saves, 1);
        const json saved = json::parse(read(path()).toStdString());
        QCOMPARE(saved["settings"]["mirror_preview"], json(false));
        QCOMPARE(saved["settings"]["automatic_updates"], json(false));
    }
};

QTEST_GUILESS_MAIN(TestSettings)
#include "tst_settings.moc"
