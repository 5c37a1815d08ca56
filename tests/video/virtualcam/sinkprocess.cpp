#include "sinkprocess.h"

#include "framepattern.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QTest>

SinkProcess::SinkProcess(const QString &directory) : m_directory(directory) {}

SinkProcess::~SinkProcess()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.terminate();
        if (!m_process.waitForFinished(3000))
            kill();
    }
}

QString SinkProcess::program()
{
    return QStringLiteral(GLINT_TEST_SINK_PATH);
}

bool SinkProcess::start()
{
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start(program(), {"--dir", m_directory, "--output", "-", "--format", "rgb"});
    return m_process.waitForStarted(5000) &&
           QTest::qWaitFor([this] { return QFileInfo::exists(m_directory + "/GlintVirtualCamEvent"); });
}

QByteArray SinkProcess::readFrame(int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (m_buffer.size() < FramePattern::kFrameBytes) {
        const int left = timeoutMs - int(timer.elapsed());
        if (left <= 0)
            return {};
        if (m_process.bytesAvailable() == 0 && !m_process.waitForReadyRead(left))
            return {};
        m_buffer += m_process.readAll();
    }
    const QByteArray frame = m_buffer.left(FramePattern::kFrameBytes);
    m_buffer.remove(0, FramePattern::kFrameBytes);
    return frame;
}

void SinkProcess::kill()
{
    m_process.kill();
    m_process.waitForFinished(3000);
}
