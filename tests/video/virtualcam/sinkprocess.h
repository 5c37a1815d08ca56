#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>

// The real glint-camera-sink, run with its pipe in a given folder and every
// received frame copied to its standard output as raw RGB.
class SinkProcess
{
public:
    explicit SinkProcess(const QString &directory);
    ~SinkProcess();

    static QString program();
    bool start();
    // The next whole frame, or an empty array after timeoutMs.
    QByteArray readFrame(int timeoutMs = 5000);
    // Bytes of output that arrive within timeoutMs (for checking that nothing more came).
    qint64 pendingBytes(int timeoutMs);
    void kill();
    qint64 pid() const { return m_process.processId(); }

private:
    QString m_directory;
    QProcess m_process;
    QByteArray m_buffer;
};

// Waits until condition() holds, up to timeoutMs, processing nothing else.
template <typename Condition> bool waitUntil(Condition condition, int timeoutMs = 5000);

#include <QElapsedTimer>
#include <QThread>

template <typename Condition> bool waitUntil(Condition condition, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > timeoutMs)
            return false;
        QThread::msleep(2);
    }
    return true;
}
