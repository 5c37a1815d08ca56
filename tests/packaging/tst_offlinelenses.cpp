// A first start without the catalogue: the real program in the test process
// on the X display, its backend address pointing at a closed port. The
// featured list offers the sample lenses that ship with the program, marked
// as bundled, and putting one on installs it from its signed archive into
// the lens cache, checked like a downloaded lens.
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTemporaryDir>
#include <QtTest>
#include <application.h>
#include <applicationhome.h>
#include <inprocessapplication.h>
#include <xwindowdriver.h>

namespace {
QTemporaryDir *g_dir = nullptr;
}

class TestOfflineLenses : public QObject
{
    Q_OBJECT
public:
    explicit TestOfflineLenses(VCam::Application *app) : m_app(app) {}

private:
    QQuickItem *item(const QString &name) const
    {
        const auto roots = m_app->engine()->rootObjects();
        auto *window = roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow *>(roots.first());
        return window ? findQuickItem(window->contentItem(), name) : nullptr;
    }
    bool shown(const QString &name) const
    {
        QQuickItem *found = item(name);
        return found && found->isVisible();
    }
    QString currentLens() const
    {
        QObject *store = m_app->engine()->rootContext()->contextProperty("coreStore").value<QObject *>();
        return store ? store->property("currentLensId").toString() : QString();
    }

    VCam::Application *m_app;

private slots:
    void bundledLensesAreOfferedAndOneIsPutOn()
    {
        QVERIFY(XWindowDriver::waitFor([this] { return shown("lensTile_sunglasses"); }, 20000));
        QVERIFY(shown("bundledBadge_sunglasses"));
        QVERIFY(shown("lensTile_party-hat"));

        QQuickItem *tile = item("lensTile_sunglasses");
        const QPointF centre = tile->mapToScene(QPointF(tile->width() / 2, tile->height() / 2));
        QTest::mouseClick(tile->window(), Qt::LeftButton, Qt::NoModifier, centre.toPoint());
        QVERIFY(XWindowDriver::waitFor([this] { return currentLens() == "sunglasses"; }, 20000));
        const QString cached = g_dir->filePath("data/Glint/Glint Camera/lenses/sunglasses/lens/lens.json");
        QVERIFY2(QFile::exists(cached), qPrintable(cached));
    }
};

int main(int argc, char **argv)
{
    g_dir = prepareApplicationHome(R"({"settings": {"show_onboarding": false}})");
    qunsetenv("GLINT_BUNDLED_LENSES");
    const int result = runInApplication<TestOfflineLenses>(argc, argv);
    delete g_dir;
    return result;
}

#include "tst_offlinelenses.moc"
