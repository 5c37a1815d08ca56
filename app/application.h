#pragma once

#include <QApplication>
#include <QPointer>
#include <QQmlApplicationEngine>
#include <map>
#include <memory>
#include <vector>

namespace Bureau {
class Dispatcher;
class Middleware;
} // namespace Bureau

namespace VCam {

class ActionProvider;
class AnalyticsService;
class ApplicationStore;
class CoreStore;
class PreviewOutput;
class KeyHelper;
class KeychainComponent;
class KeyboardShortcutManager;
class LensInfoStorage;
class LensStore;
class NetworkManager;
class QmlNetworkAccessManagerFactory;
class ResizeHelper;
class Settings;
class Store;
class TerminationWatcher;
class TwitchStore;

// The program's spine: creates the dispatcher, the stores, the middlewares
// and the interface in a fixed order, loads the settings into the stores,
// and on the last window's closing saves them and stops everything in order.
class Application : public QApplication
{
    Q_OBJECT
public:
    Application(int &argc, char **argv);
    ~Application() override;

    void init();
    void saveSettings();
    // Tells the user once that the previous run closed unexpectedly.
    void showPreviousCrash(bool reportSent);

    QQmlApplicationEngine *engine() const { return m_engine; }
    std::shared_ptr<Bureau::Dispatcher> dispatcher() const { return m_dispatcher; }

public slots:
    void onPreviewOutputLoaded();

private slots:
    void onLastWindowClosed();
    void onEngineDestroyed();
    void onDispatcherStopped();
    void onObjectCreated(QObject *object, const QUrl &url);
    void onTerminationRequested();

private:
    void createServices();
    void createStores();
    void createMiddlewares();
    void registerWithDispatcher();
    void loadSettings();
    void setupQml();
    void registerQmlTypes();
    void setContextProperties();
    void createLensStore();
    void createTwitchStore();
    void connectUsageStatistics();
    void applyDeveloperLens();
    PreviewOutput *findPreview() const;

    QPointer<QQmlApplicationEngine> m_engine;
    std::shared_ptr<Bureau::Dispatcher> m_dispatcher;
    std::shared_ptr<ActionProvider> m_actionProvider;
    std::shared_ptr<KeyHelper> m_keyHelper;
    std::shared_ptr<KeyboardShortcutManager> m_shortcutManager;
    std::shared_ptr<LensInfoStorage> m_lensInfoStorage;
    std::shared_ptr<NetworkManager> m_network;
    std::shared_ptr<KeychainComponent> m_keychain;
    std::shared_ptr<AnalyticsService> m_analytics;
    std::shared_ptr<LensStore> m_lensStore;
    std::unique_ptr<QmlNetworkAccessManagerFactory> m_networkFactory;
    std::map<QByteArray, std::shared_ptr<Store>> m_stores;
    std::shared_ptr<ApplicationStore> m_applicationStore;
    std::shared_ptr<CoreStore> m_coreStore;
    std::shared_ptr<TwitchStore> m_twitchStore;
    std::shared_ptr<ResizeHelper> m_resizeHelper;
    std::vector<std::shared_ptr<Bureau::Middleware>> m_middlewares;
    std::unique_ptr<Settings> m_settings;
    TerminationWatcher *m_terminationWatcher = nullptr;
    bool m_closing = false;
    bool m_firstFrameShown = false;
    bool m_firstFrameConnected = false;
};

} // namespace VCam
