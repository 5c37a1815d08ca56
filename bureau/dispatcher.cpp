#include "dispatcher.h"

namespace Bureau {

Dispatcher::Dispatcher(QObject *parent) : QObject(parent)
{
    connect(this, &Dispatcher::actionAdded, this, &Dispatcher::processQueue, Qt::QueuedConnection);
}

void Dispatcher::addMiddleware(std::shared_ptr<Middleware> middleware)
{
    connectComponent(middleware.get());
    m_middlewares.push_back(std::move(middleware));
}

void Dispatcher::addStore(std::shared_ptr<BaseStore> store)
{
    connectComponent(store.get());
    m_stores.push_back(std::move(store));
}

void Dispatcher::connectComponent(QObject *component)
{
    ++m_pendingStarts;
    ++m_pendingStops;
    connect(component, SIGNAL(started()), this, SLOT(onComponentStarted()));
    connect(component, SIGNAL(stopped()), this, SLOT(onComponentStopped()));
}

void Dispatcher::dispatch(Action *action)
{
    auto queued = std::shared_ptr<Action>(action);
    QMutexLocker lock(&m_mutex);
    m_queue.push_back(std::move(queued));
    emit actionAdded();
}

void Dispatcher::processQueue()
{
    if (m_state != Started)
        return;
    QMutexLocker lock(&m_mutex);
    while (!m_queue.empty()) {
        std::shared_ptr<Action> current = m_queue.front();
        m_queue.pop_front();
        lock.unlock();
        for (const auto &middleware : m_middlewares)
            current = middleware->process(current);
        for (const auto &store : m_stores)
            store->process(current);
        current.reset();
        lock.relock();
    }
}

void Dispatcher::start()
{
    m_state = Starting;
    for (const auto &middleware : m_middlewares)
        middleware->start();
    for (const auto &store : m_stores)
        store->start();
    if (m_state == Starting && m_pendingStarts == 0)
        finishStarting();
}

void Dispatcher::finishStarting()
{
    // Queue processing runs before the state changes on purpose: anything
    // queued so far waits for the next actionAdded delivery.
    processQueue();
    m_state = Started;
    emit started();
}

void Dispatcher::onComponentStarted()
{
    --m_pendingStarts;
    if (m_state == Starting && m_pendingStarts == 0)
        finishStarting();
}

void Dispatcher::stop()
{
    processQueue();
    m_state = Stopping;
    for (const auto &middleware : m_middlewares)
        middleware->stop();
    for (const auto &store : m_stores)
        store->stop();
    if (m_state == Stopping && m_pendingStops == 0) {
        m_state = Stopped;
        emit stopped();
    }
}

void Dispatcher::onComponentStopped()
{
    --m_pendingStops;
    if (m_state == Stopping && m_pendingStops == 0) {
        m_state = Stopped;
        emit stopped();
    }
}

} // namespace Bureau
