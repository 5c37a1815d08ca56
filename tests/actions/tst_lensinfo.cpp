#include <QtTest>
#include <lensinfo.h>

using namespace VCam;
using nlohmann::json;

class TestLensInfo : public QObject
{
    Q_OBJECT
private slots:
    void missingIdIsInvalidAndWrongTypesFailTheWholeRecord()
    {
        LensInfo info;
        // A null member counts as missing and keeps its default.
        QVERIFY(LensInfo::fromJson(json{{"lens_name", "Shades"}, {"icon_url", nullptr}}, info));
        QCOMPARE(info.lensId, QString("-1"));
        QVERIFY(!info.isValid());
        std::string error;
        QVERIFY(!LensInfo::fromJson(json{{"unlockable_id", "a"}, {"icon_url", 5}}, info, &error));
        QCOMPARE(info.lensName, QString("Shades")); // untouched
        QCOMPARE(error, std::string("member \"icon_url\" is not a string"));
        for (const json &bad :
             {json{{"image_sequence", {{"size", "three"}}}}, json{{"image_sequence", "none"}}, json::array()})
            QVERIFY(!LensInfo::fromJson(bad, info));
    }
};

QTEST_GUILESS_MAIN(TestLensInfo)
#include "tst_lensinfo.moc"
