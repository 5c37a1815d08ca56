#include <QImage>
#include <QtTest>
#include <actiontypes.h>
#include <logmiddleware.h>
#include <metatypes.h>
#include <popupmessage.h>

using namespace VCam;

namespace {

QStringList g_messages;
void collect(QtMsgType, const QMessageLogContext &, const QString &message)
{
    g_messages << message;
}

} // namespace

class TestLogMiddleware : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { registerMetaTypes(); }

    void frameRateActionsAreSkippedOthersLogged()
    {
        LogMiddleware middleware({int(ActionType::UpdateFrame), int(ActionType::GestureEvent)});
        g_messages.clear();
        const auto previous = qInstallMessageHandler(collect);
        auto frame = std::make_shared<Bureau::Action>(int(ActionType::UpdateFrame),
                                                      QImage(4, 4, QImage::Format_RGB888));
        QCOMPARE(middleware.process(frame), frame);
        middleware.process(std::make_shared<Bureau::Action>(int(ActionType::SetMirrorPreview), true));
        middleware.process(std::make_shared<Bureau::Action>(int(ActionType::OpenMainPage)));
        middleware.process(
            std::make_shared<Bureau::Action>(int(ActionType::ShowPopupMessage),
                                             QVariant::fromValue(PopupMessage{"Saved", MessageType::Info})));
        qInstallMessageHandler(previous);
        QCOMPARE(g_messages.size(), 3);
        QVERIFY(g_messages[0].startsWith("SetMirrorPreview") && g_messages[0].contains("true"));
        QCOMPARE(g_messages[1], QString("OpenMainPage"));
        QVERIFY2(g_messages[2].contains("Saved"), qPrintable(g_messages[2]));
    }
};

QTEST_GUILESS_MAIN(TestLogMiddleware)
#include "tst_logmiddleware.moc"
