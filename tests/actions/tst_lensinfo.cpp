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

    void roundTripKeepsEveryField()
    {
        const json in = {{"unlockable_id", "42"},
                         {"glintcode_url", "http://h/c.png"},
                         {"user_display_name", "Ann"},
                         {"lens_name", "Hat"},
                         {"lens_status", "live"},
                         {"deeplink", "http://h/l/42"},
                         {"media_url", "m"},
                         {"icon_url", "i"},
                         {"thumbnail_media_url", "t"},
                         {"thumbnail_media_poster_url", "tp"},
                         {"standard_media_url", "s"},
                         {"standard_media_poster_url", "sp"},
                         {"obfuscated_user_slug", "ann-1"},
                         {"image_sequence",
                          {{"url_pattern", "http://h/p/%d.png"}, {"frame_interval_ms", 80}, {"size", 8}}}};
        LensInfo info;
        QVERIFY(LensInfo::fromJson(in, info));
        QCOMPARE(info.imageSequence.frameIntervalMs, 80);
        QCOMPARE(info.toJson(), in);
        LensInfo again;
        QVERIFY(LensInfo::fromJson(info.toJson(), again));
        QVERIFY(again == info);
    }
};

QTEST_GUILESS_MAIN(TestLensInfo)
#include "tst_lensinfo.moc"
