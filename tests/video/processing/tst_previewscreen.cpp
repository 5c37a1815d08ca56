// The preview window as the X server shows it, on the scene graph backend
// given by GLINT_QUICK_BACKEND ("software" or "opengl"; ctest runs both): each
// frame handed to the preview is what a screenshot of the window shows,
// mirrored and not. Needs an X display (the suite runs under xvfb-run).
#include <QPainter>
#include <QQuickView>
#include <QSGRendererInterface>
#include <QSignalSpy>
#include <QtTest>
#include <previewoutput.h>
#include <scenegraphbackend.h>
#include <xwindowdriver.h>

using namespace VCam;

namespace {
// A 1280x720 frame with a colour in each quarter, as processing sends it.
QImage quarters(const QList<QColor> &colours)
{
    QImage frame(1280, 720, QImage::Format_RGB888);
    QPainter painter(&frame);
    for (int i = 0; i < 4; ++i)
        painter.fillRect((i % 2) * 640, (i / 2) * 360, 640, 360, colours[i]);
    return frame;
}

bool near(QColor actual, QColor expected)
{
    return std::abs(actual.red() - expected.red()) < 24 && std::abs(actual.green() - expected.green()) < 24 &&
           std::abs(actual.blue() - expected.blue()) < 24;
}
} // namespace

class TestPreviewScreen : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("DISPLAY"))
            QSKIP("needs an X display (the test command runs the suite under xvfb-run)");
        if (QStandardPaths::findExecutable("import").isEmpty())
            QSKIP("needs ImageMagick's import");
    }

    // The preview takes the shape of the frames it is given.
    void ratioFollowsTheFrameShape()
    {
        PreviewOutput preview;
        QSignalSpy ratio(&preview, &PreviewOutput::whRatioChanged);
        for (const QSize size : {QSize(1280, 720), QSize(640, 480)})
            preview.onFrameReady(QImage(size, QImage::Format_RGB888));
        QCOMPARE(ratio.count(), 1); // only the change of shape
        QCOMPARE(preview.whRatio(), 4.0f / 3.0f);
    }

    void screenShowsTheFrameMirroredAndNot_data()
    {
        QTest::addColumn<bool>("mirrored");
        QTest::addColumn<QImage>("frame");
        QTest::addColumn<QList<QColor>>("seen"); // top left, top right, bottom left, bottom right
        const QColor a(220, 30, 30), b(30, 200, 40), c(40, 60, 220), d(240, 240, 240);
        QTest::newRow("as given") << false << quarters({a, b, c, d}) << QList<QColor>{a, b, c, d};
        QTest::newRow("mirrored") << true << quarters({a, b, c, d}) << QList<QColor>{b, a, d, c};
        QTest::newRow("next frame") << false << quarters({d, c, b, a}) << QList<QColor>{d, c, b, a};
    }

    void screenShowsTheFrameMirroredAndNot()
    {
        QFETCH(bool, mirrored);
        QFETCH(QImage, frame);
        QFETCH(QList<QColor>, seen);
        const QString expectedBackend = qEnvironmentVariable("GLINT_QUICK_BACKEND");
        QQuickView view;
        view.setFlags(Qt::FramelessWindowHint);
        view.resize(480, 270);
        PreviewOutput preview(view.contentItem());
        preview.setSize({480, 270});
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        const bool software = view.rendererInterface()->graphicsApi() == QSGRendererInterface::Software;
        QCOMPARE(software, expectedBackend == "software");

        QSignalSpy prepared(&preview, &PreviewOutput::framePrepared);
        QSignalSpy swapped(&view, &QQuickWindow::frameSwapped);
        preview.setFlip(mirrored);
        preview.onFrameReady(frame);
        QVERIFY(prepared.wait(5000) || prepared.count() > 0);
        QVERIFY(swapped.wait(5000) || swapped.count() > 0);
        QTest::qWait(200);

        const QString file =
            QStringLiteral(GLINT_ARTIFACTS_DIR "/preview-%1-%2.png")
                .arg(expectedBackend, QString::fromLatin1(QTest::currentDataTag()).replace(' ', '-'));
        QDir().mkpath(QStringLiteral(GLINT_ARTIFACTS_DIR));
        const QPoint probes[] = {{60, 40}, {420, 40}, {60, 230}, {420, 230}};
        // A swap counted above can be one that came before the frame was
        // drawn; a loaded machine shows the frame later, and each grab is slow.
        QImage shot;
        XWindowDriver::waitFor(
            [&] {
                shot = XWindowDriver::grab(QString::number(view.winId()), file);
                for (int i = 0; i < 4; ++i)
                    if (shot.isNull() || !near(shot.pixelColor(probes[i]), seen[i]))
                        return false;
                return true;
            },
            15000);
        QCOMPARE(shot.size(), QSize(480, 270));
        for (int i = 0; i < 4; ++i)
            QVERIFY2(
                near(shot.pixelColor(probes[i]), seen[i]),
                qPrintable(
                    QString("quarter %1: %2 (see %3)").arg(i).arg(shot.pixelColor(probes[i]).name(), file)));
    }
};

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    SceneGraphBackend::choose(); // as the application does, here forced
    TestPreviewScreen test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_previewscreen.moc"
