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
    void kill();
    qint64 pid() const { return m_process.processId(); }

private:
    QString m_directory;
    QProcess m_process;
    QByteArray m_buffer;
};
