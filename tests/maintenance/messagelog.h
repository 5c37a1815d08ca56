#pragma once

#include <QMutex>
#include <QStringList>
#include <QtGlobal>

// Collects the messages of one logging category while it lives, so a test
// can tell which warnings a component gave and how many.
class MessageLog
{
public:
    explicit MessageLog(const char *category) : m_category(category)
    {
        s_current = this;
        m_previous = qInstallMessageHandler(&MessageLog::handle);
    }
    ~MessageLog()
    {
        qInstallMessageHandler(m_previous);
        s_current = nullptr;
    }

    QStringList warnings() const
    {
        QMutexLocker lock(&m_mutex);
        return m_warnings;
    }
    int count(const QString &text) const
    {
        int n = 0;
        for (const QString &warning : warnings())
            n += warning.contains(text) ? 1 : 0;
        return n;
    }
    void clear()
    {
        QMutexLocker lock(&m_mutex);
        m_warnings.clear();
    }

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        MessageLog *log = s_current;
        if (log && type == QtWarningMsg && context.category &&
            qstrcmp(context.category, log->m_category) == 0) {
            QMutexLocker lock(&log->m_mutex);
            log->m_warnings << message;
        }
        if (log && log->m_previous)
            log->m_previous(type, context, message);
    }

    static inline MessageLog *s_current = nullptr;
    const char *m_category;
    QtMessageHandler m_previous = nullptr;
    mutable QMutex m_mutex;
    QStringList m_warnings;
};
