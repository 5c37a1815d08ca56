#include <QQuickItem>
#include <QQuickView>
#include <QSignalSpy>
#include <QtTest>
#include <previewoutput.h>
#include <qquicknonblockingpresscatcher.h>

using namespace VCam;

namespace {
class PressRecorder : public QQuickItem
{
public:
    using QQuickItem::QQuickItem;
    int presses = 0;

protected:
    void mousePressEvent(QMouseEvent *event) override
    {
        ++presses;
        event->accept();
    }
};
} // namespace

class TestPreviewItems : public QObject
{
    Q_OBJECT
private slots:
    void previewFollowsTheFrameShape()
    {
        PreviewOutput preview;
        QSignalSpy ratio(&preview, &PreviewOutput::whRatioChanged);
        preview.onFrameReady(QImage(1280, 720, QImage::Format_RGB888));
        QCOMPARE(ratio.count(), 0);
        preview.onFrameReady(QImage(640, 480, QImage::Format_RGB888));
        QCOMPARE(ratio.count(), 1);
        QCOMPARE(preview.whRatio(), 4.0f / 3.0f);
        preview.onFrameReady(QImage(1280, 960, QImage::Format_RGB888));
        QCOMPARE(ratio.count(), 1);
    }

    void pressCatcherLetsPressesThrough()
    {
        QQuickView view;
        view.resize(200, 200);
        PressRecorder below(view.contentItem());
        below.setSize({200, 200});
        below.setAcceptedMouseButtons(Qt::LeftButton);
        QQuickNonBlockingPressCatcher catcher(view.contentItem());
        catcher.setSize({200, 200});
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        QSignalSpy pressed(&catcher, &QQuickNonBlockingPressCatcher::pressed);
        QTest::mousePress(&view, Qt::LeftButton, {}, QPoint(50, 50));
        QCOMPARE(pressed.count(), 1);
        QCOMPARE(below.presses, 1); // the item underneath still got the press
        QTest::mouseRelease(&view, Qt::LeftButton, {}, QPoint(50, 50));
    }
};

int main(int argc, char **argv)
{
    // The window test needs no GPU: Qt Quick draws in software here.
    qputenv("QT_QUICK_BACKEND", "software");
    QGuiApplication app(argc, argv);
    TestPreviewItems test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_previewitems.moc"
