#include <QMetaMethod>
#include <QtTest>
#include <actionprovider.h>
#include <collectingstore.h>
#include <dispatcher.h>
#include <gestureevent.h>
#include <globalshortcut.h>
#include <lenscommand.h>
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

class TestActionProvider : public QObject
{
    Q_OBJECT
    std::shared_ptr<Bureau::Dispatcher> dispatcher;
    std::shared_ptr<CollectingStore> store;
    std::unique_ptr<ActionProvider> provider;

    std::shared_ptr<Bureau::Action> last()
    {
        QCoreApplication::processEvents();
        return store->actions.isEmpty() ? nullptr : store->actions.takeLast();
    }

private slots:
    void initTestCase() { registerMetaTypes(); }

    void init()
    {
        dispatcher = std::make_shared<Bureau::Dispatcher>();
        store = std::make_shared<CollectingStore>();
        dispatcher->addStore(store);
        dispatcher->start();
        provider = std::make_unique<ActionProvider>(dispatcher);
    }

    void operationsAreOfferedInTheirFixedOrder()
    {
        const QStringList expected = {"notifyStarted",
                                      "updateFrame",
                                      "setCamera",
                                      "setActiveLens",
                                      "setLensFavorite",
                                      "setCoreProcessingLens",
                                      "setCoreProcessingOverlay",
                                      "setCoreProcessingOverlayMirrored",
                                      "setSearchFilter",
                                      "notifyActiveLensChanged",
                                      "notifyLensDownloaded",
                                      "toggleLens",
                                      "toggleGlintcode",
                                      "setTwitchSubscriptionReactionEnabled",
                                      "setTwitchSubscriptionReactionForResubscribeEnabled",
                                      "setTwitchSubscriptionReactionIndependentOnTier",
                                      "setSecondaryLens",
                                      "setTwitchSubsriberThankEnabled",
                                      "setTwitchSecondaryLensTimeout",
                                      "authorizeTwitch",
                                      "deauthorizeTwitch",
                                      "notifyTwitchUserAuthorized",
                                      "notifyTwitchUserDeauthorized",
                                      "openSettingsPage",
                                      "openTwitchPage",
                                      "openMainPage",
                                      "showPopupMessage",
                                      "notifySearchOpened",
                                      "notifyRecentsOpened",
                                      "notifyRecentsClosed",
                                      "saveGlintcode",
                                      "copyLensLink",
                                      "reportLens",
                                      "setCacheLimit",
                                      "setMirrorPreview",
                                      "setAlwaysShowGlintcode",
                                      "setAutomaticUpdatesEnabled",
                                      "setCacheDir",
                                      "setGlobalShortcut",
                                      "setLensShortcut",
                                      "clearCache",
                                      "clearFavorites",
                                      "clearRecents",
                                      "clearAppIntegrations",
                                      "tapEvent",
                                      "touchBegin",
                                      "touchChange",
                                      "touchEnd",
                                      "externalEvent",
                                      "emulateExternalEvent",
                                      "emulateSubscriptionEvent",
                                      "checkForUpdates",
                                      "skipUpdate",
                                      "setUsageStatisticsEnabled"};
        QStringList offered;
        const QMetaObject &meta = ActionProvider::staticMetaObject;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
            offered << QString::fromLatin1(meta.method(i).name());
        QCOMPARE(offered.size(), 54);
        QCOMPARE(offered, expected);
    }

    void enumerationKeysKeepTheirDeliberateSpelling()
    {
        const QMetaEnum types = QMetaEnum::fromType<ActionType>();
        QCOMPARE(types.keyCount(), 61);
        for (int i = 0; i < types.keyCount(); ++i)
            QCOMPARE(types.value(i), i);
        QCOMPARE(types.valueToKey(29), "setTwitchSubscriptionReactionEnabled");
        QCOMPARE(types.valueToKey(49), "GestureEvent");
        QCOMPARE(types.valueToKey(59), "NotifyStreamStateUpdated");
        QCOMPARE(QMetaEnum::fromType<LensActionContext>().valueToKey(7), "Shortcut");
        QCOMPARE(QMetaEnum::fromType<ShortcutRole>().keyToValue("EmulateSubscription"), 5);
    }

    void actionsQueuedBeforeStartArriveAfterIt()
    {
        auto late = std::make_shared<Bureau::Dispatcher>();
        auto lateStore = std::make_shared<CollectingStore>();
        late->addStore(lateStore);
        ActionProvider early(late);
        early.openSettingsPage();
        QCoreApplication::processEvents();
        QVERIFY(lateStore->actions.isEmpty());
        late->start();
        // Still queued; the next delivery after the start drains it first.
        early.openMainPage();
        QCoreApplication::processEvents();
        QCOMPARE(lateStore->actions.size(), 2);
        QCOMPARE(lateStore->actions[0]->type, int(ActionType::OpenSettingsPage));
        QCOMPARE(lateStore->actions[1]->type, int(ActionType::OpenMainPage));
    }

    void payloadsCarryTheArguments()
    {
        provider->setLensFavorite("abc", true, LensActionContext::Favorites);
        auto action = last();
        QCOMPARE(action->type, int(ActionType::SetLensFavorite));
        const auto favorite = action->payload.value<LensCommand>();
        QCOMPARE(favorite.lensId, QString("abc"));
        QVERIFY(favorite.enabled);
        QCOMPARE(favorite.context, LensActionContext::Favorites);
        QCOMPARE(action->flags, 0);

        provider->reportLens("x1", LensReportType::InappropriateLens, "rude", LensActionContext::Search);
        const auto report = last()->payload.value<LensCommand>();
        QCOMPARE(report.kind, int(LensReportType::InappropriateLens));
        QCOMPARE(report.text, QString("rude"));

        provider->touchChange(QPointF(3, 4));
        const auto gesture = last()->payload.value<GestureEvent>();
        QCOMPARE(gesture.type, GestureType::TouchChange);
        QCOMPARE(gesture.location, QPointF(3, 4));

        provider->setGlobalShortcut(ShortcutRole::TapEvent, QKeySequence("Ctrl+T"));
        const auto shortcut = last()->payload.value<GlobalShortcut>();
        QCOMPARE(shortcut.role, ShortcutRole::TapEvent);
        QCOMPARE(shortcut.sequence, QKeySequence("Ctrl+T"));

        provider->showPopupMessage("hi", MessageType::Success);
        QCOMPARE(last()->payload.value<PopupMessage>().type, MessageType::Success);

        provider->clearCache();
        QVERIFY(!last()->payload.isValid());
    }

    void gestureTypesPrintWithTheirPrefix()
    {
        QString text;
        QDebug(&text) << GestureType::TouchBegin;
        QCOMPARE(text.trimmed(), QString("GestureType::TouchBegin"));
    }

    void logMiddlewareSkipsFrameRateActions()
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

QTEST_GUILESS_MAIN(TestActionProvider)
#include "tst_actionprovider.moc"
