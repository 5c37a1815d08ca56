#pragma once

#include "action.h"
#include "basestore.h"
#include "middleware.h"

#include <QMutex>
#include <QObject>
#include <list>
#include <memory>
#include <vector>

namespace Bureau {

// Queues actions from any thread and hands them, on its own thread, first
// through every middleware and then to every store. Actions dispatched while
// one is being handled are appended to the queue, never nested.
class Dispatcher : public QObject
{
    Q_OBJECT
public:
    enum State { Stopped = 0, Starting = 1, Started = 2, Stopping = 3 };
    Q_ENUM(State)

    explicit Dispatcher(QObject *parent = nullptr);

    void addMiddleware(std::shared_ptr<Middleware> middleware);
    void addStore(std::shared_ptr<BaseStore> store);

    // Takes ownership of the action. Callable from any thread.
    void dispatch(Action *action);

    State state() const { return m_state; }

public slots:
    void start();
    void stop();

signals:
    void actionAdded();
    void started();
    void stopped();

private slots:
    void processQueue();
    void onComponentStarted();
    void onComponentStopped();

private:
    void connectComponent(QObject *component);
    void finishStarting();

    std::vector<std::shared_ptr<Middleware>> m_middlewares;
    std::vector<std::shared_ptr<BaseStore>> m_stores;
    std::list<std::shared_ptr<Action>> m_queue;
    QMutex m_mutex;
    qint32 m_pendingStarts = 0;
    qint32 m_pendingStops = 0;
    State m_state = Stopped;
};

} // namespace Bureau
