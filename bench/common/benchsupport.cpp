#include "benchsupport.h"

#include <QDir>
#include <QFile>
#include <algorithm>
#include <cstdio>
#include <thread>
#include <unistd.h>

namespace Bench {

QByteArray loadAverage()
{
    QFile file(QStringLiteral("/proc/loadavg"));
    if (!file.open(QIODevice::ReadOnly))
        return "unknown";
    return file.readAll().split(' ').mid(0, 3).join(' ');
}

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(p * values.size()))];
}

std::string summary(const std::vector<double> &values, const char *unit)
{
    char line[160];
    std::snprintf(line, sizeof line, "median %7.2f  p90 %7.2f  p99 %7.2f  max %7.2f %s (n=%zu)",
                  percentile(values, 0.5), percentile(values, 0.9), percentile(values, 0.99),
                  percentile(values, 1.0), unit, values.size());
    return line;
}

double msSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

void inParallel(int count, const std::function<void(int)> &work)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back(work, i);
    for (auto &thread : threads)
        thread.join();
}

double cpuSeconds(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray stat = file.readAll();
    // Fields after the command name (which may hold spaces) in parentheses.
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    if (fields.size() < 13)
        return 0;
    return (fields[11].toDouble() + fields[12].toDouble()) / double(sysconf(_SC_CLK_TCK));
}

qint64 residentKb(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/status").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : file.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong();
    return 0;
}

AppRun::AppRun(const QString &clip, const QString &lens, const QStringList &environment)
{
    QDir().mkpath(m_config.path() + "/Glint/Glint Camera");
    QFile settings(m_config.path() + "/Glint/Glint Camera/settings.json");
    if (settings.open(QIODevice::WriteOnly))
        settings.write(R"({"settings": {"show_onboarding": false}})");
    settings.close();
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_CONFIG_HOME", m_config.path());
    env.insert("QT_QPA_PLATFORM", "xcb");
    env.insert("GLINT_DEMO_CLIP", clip);
    for (const QString &setting : environment)
        env.insert(setting.section('=', 0, 0), setting.section('=', 1));
    m_process.setProcessEnvironment(env);
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    QStringList args;
    if (!lens.isEmpty())
        args << "--lens" << QStringLiteral(GLINT_LENSES_DIR "/") + lens;
    m_clock.start();
    m_process.start(GLINT_APP_BINARY, args);
}

AppRun::~AppRun()
{
    m_process.terminate();
    if (!m_process.waitForFinished(10000))
        m_process.kill();
    m_process.waitForFinished(5000);
}

bool AppRun::waitForLog(const QByteArray &text, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    while (!m_log.contains(text) && clock.elapsed() < timeoutMs &&
           m_process.state() != QProcess::NotRunning) {
        m_process.waitForReadyRead(20);
        m_log += m_process.readAll();
    }
    return m_log.contains(text);
}

const QByteArray &AppRun::log()
{
    m_log += m_process.readAll();
    return m_log;
}

} // namespace Bench
