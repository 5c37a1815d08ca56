#pragma once

#include <QList>
#include <QMutex>
#include <QStringList>
#include <QtGlobal>

// Keeps the messages logged while it lives (warnings and critical messages
// unless other types are given, an empty list for every type; of one
// logging category, or of every category) and passes every message on as
// before, so a test can tell what a component said and how often. Captures
// may nest; each sees what is logged during its life.
class MessageCapture
{
public:
    explicit MessageCapture(const char *category = nullptr,
                            const QList<QtMsgType> &types = {QtWarningMsg, QtCriticalMsg})
        : m_category(category), m_types(types), m_outer(s_current)
    {
        s_current = this;
        m_previous = qInstallMessageHandler(&MessageCapture::handle);
    }
    ~MessageCapture()
    {
        qInstallMessageHandler(m_previous);
        s_current = m_outer;
    }
    MessageCapture(const MessageCapture &) = delete;
    MessageCapture &operator=(const MessageCapture &) = delete;

    QStringList messages() const
    {
        QMutexLocker lock(&m_mutex);
        return m_messages;
    }
    // How many messages contain text.
    int count(const QString &text) const { return messages().filter(text).size(); }
    void clear()
    {
        QMutexLocker lock(&m_mutex);
        m_messages.clear();
    }

private:
    void record(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        if (!m_types.isEmpty() && !m_types.contains(type))
            return;
        if (m_category && (!context.category || qstrcmp(context.category, m_category) != 0))
            return;
        QMutexLocker lock(&m_mutex);
        m_messages << message;
    }

    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        // The outermost capture holds the handler that was there before.
        QtMessageHandler original = nullptr;
        for (MessageCapture *capture = s_current; capture; capture = capture->m_outer) {
            capture->record(type, context, message);
            original = capture->m_previous;
        }
        if (original)
            original(type, context, message);
    }

    static inline MessageCapture *s_current = nullptr;
    const char *m_category;
    const QList<QtMsgType> m_types;
    MessageCapture *m_outer;
    QtMessageHandler m_previous = nullptr;
    mutable QMutex m_mutex;
    QStringList m_messages;
};
