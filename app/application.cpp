#include "application.h"

#include "keyhelper.h"
#include "processuptime.h"
#include "resizehelper.h"
#include "settings.h"
#include "settingssavemiddleware.h"
#include "terminationwatcher.h"

#include <QCommandLineParser>
#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QQuickWindow>
#include <QStandardPaths>
#include <QSysInfo>
#include <actionprovider.h>
#include <actiontypes.h>
#include <analyticsmiddleware.h>
#include <analyticsservice.h>
#include <applicationstore.h>
#include <atomic>
#include <busyindicator.h>
#include <coreservice.h>
#include <corestore.h>
#include <dispatcher.h>
#include <externaleventsstore.h>
#include <favoriteslensmodel.h>
#include <glintdeployment.h>
#include <keyboardshortcutmanager.h>
#include <keychaincomponent.h>
#include <lenscommand.h>
#include <lensinfostorage.h>
#include <lensstore.h>
#include <logmiddleware.h>
#include <metatypes.h>
#include <networklensprovider.h>
#include <networkmanager.h>
#include <paintedratemeter.h>
#include <popupmessage.h>
#include <previewoutput.h>
#include <qmlnetworkaccessmanagerfactory.h>
#include <qquicknonblockingpresscatcher.h>
#include <recentslensproxymodel.h>
#include <scenegraphbackend.h>
#include <twitchservice.h>
#include <twitchstore.h>
#include <updateservice.h>

Q_LOGGING_CATEGORY(lcApp, "glint.app")

namespace VCam {

Application::Application(int &argc, char **argv) : QApplication(argc, argv)
{
    // Shutdown is ours: the last window's closing starts it, and the event
    // loop ends only when every store has stopped.
    setQuitOnLastWindowClosed(false);
}

Application::~Application()
{
    qCInfo(lcApp) << "Application destructed";
}

void Application::init()
{
    registerMetaTypes();
    SceneGraphBackend::choose(); // before any window exists
    m_engine = new QQmlApplicationEngine();
    createServices();
    createStores();
    m_resizeHelper = std::make_shared<ResizeHelper>();
    connect(this, &QGuiApplication::lastWindowClosed, this, &Application::onLastWindowClosed);
    m_terminationWatcher = new TerminationWatcher(this);
    connect(m_terminationWatcher, &TerminationWatcher::terminationRequested, this,
            &Application::onTerminationRequested);
    createMiddlewares();
    registerWithDispatcher();
    loadSettings();
    connectUsageStatistics();
    setupQml();
    connect(m_engine, &QQmlApplicationEngine::objectCreated, this, &Application::onObjectCreated);
    m_engine->load(QUrl(QStringLiteral("qrc:/qml/main.qml")));
    m_dispatcher->start();
    applyDeveloperLens();
}

// For lens authors: "--lens <folder>" applies a lens folder at start, without
// the catalogue. The folder name is the lens id.
void Application::applyDeveloperLens()
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Glint Camera"));
    parser.addHelpOption();
    const QCommandLineOption lens(QStringLiteral("lens"),
                                  QStringLiteral("Apply the lens in <folder> at start."),
                                  QStringLiteral("folder"));
    parser.addOption(lens);
    parser.process(arguments());
    if (!parser.isSet(lens))
        return;
    const QFileInfo folder(parser.value(lens));
    if (!folder.isDir()) {
        qCWarning(lcApp).noquote() << "No lens folder at" << folder.filePath();
        return;
    }
    LensCommand command;
    command.lensId = folder.fileName();
    command.text = folder.absoluteFilePath();
    qCInfo(lcApp).noquote() << "Applying the lens folder" << command.text;
    m_dispatcher->dispatch(
        new Bureau::Action(int(ActionType::SetCoreProcessingLens), QVariant::fromValue(command)));
}

void Application::createServices()
{
    m_dispatcher = std::make_shared<Bureau::Dispatcher>();
    m_actionProvider = std::make_shared<ActionProvider>(m_dispatcher);
    m_keyHelper = std::make_shared<KeyHelper>();
    m_lensInfoStorage = std::make_shared<LensInfoStorage>();
    m_keychain = std::make_shared<KeychainComponent>(applicationName());
    // Until installations carry an identifier of their own, one derived from
    // the machine stands for it: stable across runs, nothing personal in it.
    const QString installationId =
        QString::fromLatin1(QCryptographicHash::hash(QSysInfo::machineUniqueId() + applicationName().toUtf8(),
                                                     QCryptographicHash::Sha256)
                                .toHex()
                                .left(32));
    m_network = std::make_shared<NetworkManager>(NetworkManager::defaultBaseUrl(),
                                                 [installationId] { return installationId; });
    m_analytics = std::make_shared<AnalyticsService>(
        m_network.get(), QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation), installationId);
}

void Application::createLensStore()
{
    const QString cacheRoot =
        QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + QStringLiteral("/lenses");
    auto *provider = new NetworkLensProvider(
        m_network.get(), cacheRoot, QString::fromStdString(glint::deployment(glint::kLensVerificationKey)));
    m_lensStore = std::make_shared<LensStore>(m_dispatcher, provider, &provider->cache(), m_network.get(),
                                              m_lensInfoStorage.get());
    m_stores["lenses"] = m_lensStore;
}

void Application::createStores()
{
    createLensStore();
    m_coreStore = std::make_shared<CoreStore>(m_dispatcher, new CoreService());
    m_coreStore->setGlintcodeFetcher(
        [network = m_network, storage = m_lensInfoStorage](const LensId &lensId, auto done) {
            const QUrl url(storage->info(lensId).glintcodeUrl);
            if (url.isEmpty()) {
                done(QImage(), QStringLiteral("no code image known for lens %1").arg(lensId));
                return;
            }
            network->download(url, [done](int, const QByteArray &body, const QString &error) {
                const QImage image = QImage::fromData(body);
                done(image, error.isEmpty() && image.isNull() ? QStringLiteral("not an image") : error);
            });
        });
    m_stores["core"] = m_coreStore;
    // The lens store shows a lens as applied only when the engine runs it.
    connect(m_coreStore.get(), &CoreStore::lensLoadAnswered, m_lensStore.get(),
            &LensStore::onLensLoadAnswered);
    m_shortcutManager = std::make_shared<KeyboardShortcutManager>();
    connect(m_keyHelper.get(), &KeyHelper::recordingChanged, m_shortcutManager.get(),
            [helper = m_keyHelper.get(), manager = m_shortcutManager.get()] {
                manager->setSuspended(helper->recording());
            });
    auto updates = std::make_shared<UpdateService>(m_network.get(), UpdateService::buildVersion(),
                                                   UpdateService::defaultFallbackUrl());
    m_applicationStore = std::make_shared<ApplicationStore>(m_dispatcher, m_shortcutManager, updates);
    m_stores["settings"] = m_applicationStore;
    m_stores["externalEvents"] = std::make_shared<ExternalEventsStore>(m_actionProvider);
    createTwitchStore();
}

void Application::createTwitchStore()
{
    auto service = std::make_shared<TwitchService>(m_network.get(), m_keychain.get());
    m_twitchStore = std::make_shared<TwitchStore>(m_dispatcher, service);
    m_stores["twitch"] = m_twitchStore;
}

void Application::createMiddlewares()
{
    const std::set<qint32> skip{static_cast<qint32>(ActionType::UpdateFrame),
                                static_cast<qint32>(ActionType::GestureEvent)};
    m_middlewares.push_back(std::make_shared<LogMiddleware>(skip));
    m_middlewares.push_back(std::make_shared<AnalyticsMiddleware>(m_analytics));
    m_middlewares.push_back(std::make_shared<SettingsSaveMiddleware>(skip, [this] {
        if (!m_closing)
            saveSettings();
    }));
}

// The settings switch decides whether usage events are queued and sent; it
// is read before the dispatcher starts the service.
void Application::connectUsageStatistics()
{
    m_analytics->setEnabled(m_applicationStore->usageStatisticsEnabled());
    connect(m_applicationStore.get(), &ApplicationStore::usageStatisticsEnabledChanged, m_analytics.get(),
            [analytics = m_analytics.get(), store = m_applicationStore.get()] {
                analytics->setEnabled(store->usageStatisticsEnabled());
            });
}

void Application::registerWithDispatcher()
{
    for (const auto &[name, store] : m_stores)
        m_dispatcher->addStore(store);
    for (const auto &middleware : m_middlewares)
        m_dispatcher->addMiddleware(middleware);
}

void Application::loadSettings()
{
    qCInfo(lcApp) << "Application::loadSettings";
    m_settings = std::make_unique<Settings>(QStringLiteral("settings.json"),
                                            QStringLiteral(":/defaults/settings.json"));
    if (!m_settings->load())
        qCWarning(lcApp).noquote() << "App settings couldn't be loaded. Reason: " + m_settings->errorString();
    for (const auto &[name, store] : m_stores)
        store->loadSettings(m_settings->section(name.toStdString()));
}

void Application::saveSettings()
{
    if (!m_settings)
        return;
    for (const auto &[name, store] : m_stores)
        m_settings->setSection(name.toStdString(), store->saveSettings());
    if (!m_settings->save())
        qCWarning(lcApp).noquote() << "App settings couldn't be saved. Reason: " + m_settings->errorString();
}

void Application::showPreviousCrash(bool reportSent)
{
    const QString text = reportSent
                             ? tr("%1 closed unexpectedly last time. A crash report was sent.")
                             : tr("%1 closed unexpectedly last time. The crash report could not be sent.");
    qCWarning(lcApp).noquote() << text.arg(applicationName());
    m_dispatcher->dispatch(new Bureau::Action(
        int(ActionType::ShowPopupMessage),
        QVariant::fromValue(PopupMessage{text.arg(applicationName()), MessageType::Warning})));
}

void Application::setupQml()
{
    registerQmlTypes();
    setContextProperties();
    connect(m_engine, &QQmlEngine::quit, this, &QCoreApplication::quit);
}

void Application::setContextProperties()
{
    QQmlContext *context = m_engine->rootContext();
    context->setContextProperty(QStringLiteral("actionProvider"), m_actionProvider.get());
    context->setContextProperty(QStringLiteral("applicationStore"), m_applicationStore.get());
    context->setContextProperty(QStringLiteral("coreStore"), m_coreStore.get());
    context->setContextProperty(QStringLiteral("lensStore"), m_lensStore.get());
    context->setContextProperty(QStringLiteral("twitchStore"), m_twitchStore.get());
    context->setContextProperty(QStringLiteral("keyHelper"), m_keyHelper.get());
    context->setContextProperty(QStringLiteral("resizeHelper"), m_resizeHelper.get());
}

void Application::registerQmlTypes()
{
    qmlRegisterUncreatableMetaObject(VCam::staticMetaObject, "VCam", 1, 0, "VCam",
                                     QStringLiteral("VCam holds enumerations only"));
    qmlRegisterUncreatableMetaObject(VCam::ActionContext::staticMetaObject, "VCam", 1, 0, "LensActionContext",
                                     QStringLiteral("LensActionContext holds enumerations only"));
    qmlRegisterSingletonType(QUrl(QStringLiteral("qrc:/qml/Style.qml")), "Style", 1, 0, "Style");
    qmlRegisterType<PreviewOutput>("Preview", 1, 0, "PreviewOutput");
    qmlRegisterType<BusyIndicator>("BusyIndicator", 1, 0, "BusyIndicator");
    qmlRegisterType<QQuickNonBlockingPressCatcher>("NonBlockingPressCatcher", 1, 0,
                                                   "NonBlockingPressCatcher");
    qmlRegisterUncreatableType<CoreStore>("VCam", 1, 0, "CoreStore",
                                          QStringLiteral("Use the coreStore property"));
    qmlRegisterUncreatableType<LensStore>("Mirage", 1, 0, "Lens",
                                          QStringLiteral("Use the lensStore property"));
    qmlRegisterUncreatableType<LensInfoStorage>("Mirage", 1, 0, "LensInfo",
                                                QStringLiteral("LensInfo holds the lens roles"));
    qmlRegisterUncreatableType<FavoritesLensModel>("Mirage", 1, 0, "FavoritesLensModel",
                                                   QStringLiteral("Use lensStore.favoriteLensesModel"));
    qmlRegisterUncreatableType<RecentsLensProxyModel>("Mirage", 1, 0, "RecentsLensProxyModel",
                                                      QStringLiteral("Use lensStore.recentsLensModel"));
    qRegisterMetaType<BaseLensModel *>("BaseLensModel*");
    qRegisterMetaType<FavoritesLensModel *>("FavoritesLensModel*");
    qRegisterMetaType<RecentsLensProxyModel *>("RecentsLensProxyModel*");
    m_networkFactory = std::make_unique<QmlNetworkAccessManagerFactory>();
    m_engine->setNetworkAccessManagerFactory(m_networkFactory.get());
}

void Application::onObjectCreated(QObject *object, const QUrl &)
{
    auto *window = qobject_cast<QQuickWindow *>(object);
    if (!window) {
        qCCritical(lcApp) << "The main window could not be created";
        return;
    }
    // The key recorder sees keys first (filters installed later run
    // earlier), then the in-window hotkeys.
    window->installEventFilter(m_shortcutManager.get());
    window->installEventFilter(m_keyHelper.get());
    if (PreviewOutput *preview = findPreview()) {
        connect(preview, &PreviewOutput::previewOutputLoaded, this, &Application::onPreviewOutputLoaded,
                Qt::UniqueConnection);
        onPreviewOutputLoaded(); // already complete by the time the window exists
    }
}

PreviewOutput *Application::findPreview() const
{
    if (!m_engine || m_engine->rootObjects().isEmpty())
        return nullptr;
    return m_engine->rootObjects().first()->findChild<PreviewOutput *>(QStringLiteral("PreviewOutput"));
}

void Application::onPreviewOutputLoaded()
{
    PreviewOutput *preview = findPreview();
    if (!preview) {
        qCWarning(lcApp) << "The preview item is not part of the window";
        return;
    }
    connect(m_coreStore.get(), &CoreStore::frameReady, preview, &PreviewOutput::onFrameReady,
            Qt::UniqueConnection);
    if (m_firstFrameConnected)
        return;
    m_firstFrameConnected = true;
    if (PaintedRateMeter::isRequested() && preview->window()) {
        auto *meter = new PaintedRateMeter(preview->window());
        connect(preview, &PreviewOutput::framePrepared, meter, &PaintedRateMeter::onContentChanged);
    }
    // The first frame counts as shown once the window has swapped in a
    // picture the preview painted, counted from the creation of the process.
    connect(preview, &PreviewOutput::framePrepared, this, [this, preview] {
        if (m_firstFrameShown || !preview->window())
            return;
        m_firstFrameShown = true;
        auto shown = std::make_shared<std::atomic_bool>(false);
        auto swapped = std::make_shared<QMetaObject::Connection>();
        // Swaps are signalled on the render thread, where there is one.
        *swapped = connect(
            preview->window(), &QQuickWindow::frameSwapped, this,
            [this, preview, shown, swapped] {
                if (!preview->hasPaintedFrame() || shown->exchange(true))
                    return;
                const qint64 ms = ProcessUptime::milliseconds();
                QMetaObject::invokeMethod(this, [ms, swapped] {
                    disconnect(*swapped);
                    qCInfo(lcApp).noquote() << QStringLiteral("First frame shown %1 ms after start").arg(ms);
                });
            },
            Qt::DirectConnection);
    });
}

void Application::onTerminationRequested()
{
    qCInfo(lcApp) << "Termination requested; shutting down";
    closeAllWindows();
    const auto windows = QGuiApplication::topLevelWindows();
    for (QWindow *window : windows)
        window->close();
    // No window was open (or none reported its closing): shut down anyway.
    onLastWindowClosed();
}

void Application::onLastWindowClosed()
{
    if (m_closing)
        return;
    m_closing = true;
    connect(m_engine, &QObject::destroyed, this, &Application::onEngineDestroyed);
    m_engine->deleteLater();
}

void Application::onEngineDestroyed()
{
    qCInfo(lcApp) << "QmlEngine destroyed";
    connect(m_dispatcher.get(), &Bureau::Dispatcher::stopped, this, &Application::onDispatcherStopped);
    saveSettings();
    m_dispatcher->stop();
}

void Application::onDispatcherStopped()
{
    qCInfo(lcApp) << "Dispatcher stopped";
    quit();
}

} // namespace VCam
