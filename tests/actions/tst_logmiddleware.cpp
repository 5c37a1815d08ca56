#include <QImage>
#include <QtTest>
#include <actiontypes.h>
#include <logmiddleware.h>
#include <messagecapture.h>
#include <metatypes.h>
#include <popupmessage.h>

using namespace VCam;

class TestLogMiddleware : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { registerMetaTypes(); }

    void frameRateActionsAreSkippedOthersLogged()
    {
        LogMiddleware middleware({int(ActionType::UpdateFrame), int(ActionType::GestureEvent)});
        MessageCapture log(nullptr, {});
        auto frame = std::make_shared<Bureau::Action>(int(ActionType::UpdateFrame),
                                                      QImage(4, 4, QImage::Format_RGB888));
        QCOMPARE(middleware.process(frame), frame);
        middleware.process(std::make_shared<Bureau::Action>(int(ActionType::SetMirrorPreview), true));
        middleware.process(std::make_shared<Bureau::Action>(int(ActionType::OpenMainPage)));
        middleware.process(
            std::make_shared<Bureau::Action>(int(ActionType::ShowPopupMessage),
                                             QVariant::fromValue(PopupMessage{"Saved", MessageType::Info})));
        const QStringList messages = log.messages();
        QCOMPARE(messages.size(), 3);
        QVERIFY(messages[0].startsWith("SetMirrorPreview") && messages[0].contains("true"));
        QCOMPARE(messages[1], QString("OpenMainPage"));
        QVERIFY2(messages[2].contains("Saved"), qPrintable(messages[2]));
    }
};

QTEST_GUILESS_MAIN(TestLogMiddleware)
#include "tst_logmiddleware.moc"
