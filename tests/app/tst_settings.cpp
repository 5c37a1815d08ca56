#include <QTemporaryDir>
#include <QtTest>
#include <settings.h>

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

} // namespace

class TestSettings : public QObject
{
    Q_OBJECT
    QTemporaryDir dir;
    QString path() const { return dir.filePath("settings.json"); }

private slots:
    void init() { QFile::remove(path()), QFile::remove(path() + ".bak"); }

    void firstStartGivesTheDefaults()
    {
        Settings settings(path(), ":/defaults/settings.json");
        QVERIFY(settings.load());
        QCOMPARE(settings.section("settings")["mirror_preview"], json(true));
        QVERIFY(settings.section("core").is_object());
        QVERIFY(settings.section("nothing").empty());
    }

    void fileMembersOverrideDefaultsMemberByMember()
    {
        write(path(), R"({"settings": {"mirror_preview": false}, "lenses": {"favorites": ["a"]}})");
        Settings settings(path(), ":/defaults/settings.json");
        QVERIFY(settings.load());
        const json section = settings.section("settings");
        QCOMPARE(section["mirror_preview"], json(false));
        QCOMPARE(section["automatic_updates"], json(true)); // from the defaults
        QCOMPARE(settings.section("lenses")["favorites"][0], json("a"));
    }

    void savedSectionsComeBack()
    {
        Settings settings(path(), ":/defaults/settings.json");
        settings.load();
        settings.setSection("twitch", json{{"timeout", 30}});
        QVERIFY2(settings.save(), qPrintable(settings.errorString()));
        Settings again(path(), ":/defaults/settings.json");
        QVERIFY(again.load());
        QCOMPARE(again.section("twitch")["timeout"], json(30));
        QVERIFY(!QFile::exists(path() + ".bak"));
    }

    void corruptFileIsKeptAndDefaultsAreUsed()
    {
        const QByteArray broken = "{\"settings\": {\"mirror_preview\": fal";
        write(path(), broken);
        Settings settings(path(), ":/defaults/settings.json");
        QVERIFY(!settings.load());
        QVERIFY(settings.errorString().contains("settings.json"));
        QCOMPARE(settings.section("settings")["mirror_preview"], json(true));
        QCOMPARE(read(path() + ".bak"), broken);
        QVERIFY(settings.save());
        QCOMPARE(read(path() + ".bak"), broken); // saving never destroys the user's file
        QVERIFY(json::parse(read(path()).toStdString()).is_object());
    }

    void documentThatIsNotAnObjectCountsAsCorrupt()
    {
        write(path(), "[1, 2, 3]");
        Settings settings(path(), ":/defaults/settings.json");
        QVERIFY(!settings.load());
        QVERIFY(QFile::exists(path() + ".bak"));
    }

    void unwritableLocationReportsTheReason()
    {
        const QString blocker = dir.filePath("blocker");
        write(blocker, "a file where a directory should be");
        Settings settings(blocker + "/sub/settings.json", ":/defaults/settings.json");
        QVERIFY(settings.load());
        QVERIFY(!settings.save());
        QVERIFY(settings.errorString().startsWith("Can't write"));
    }

    void missingDefaultsResourceIsAnError()
    {
        Settings settings(path(), ":/defaults/missing.json");
        QVERIFY(!settings.load());
        QVERIFY(settings.errorString().contains("missing.json"));
    }
};

QTEST_GUILESS_MAIN(TestSettings)
#include "tst_settings.moc"
