#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

// What the benchmarks share: figures from /proc and the application started
// as a user would start it.
namespace Bench {

// The first three fields of /proc/loadavg.
QByteArray loadAverage();
// The value below which a share p (0..1) of the values lie.
double percentile(std::vector<double> values, double p);
// "median .. p90 .. p99 .. max .. <unit> (n=..)" for a list of samples.
std::string summary(const std::vector<double> &values, const char *unit = "ms");
// Milliseconds since a steady-clock time.
double msSince(std::chrono::steady_clock::time_point start);
// Runs work(i) for i < count on threads of their own and waits for all.
void inParallel(int count, const std::function<void(int)> &work);
// User and system time of a process so far, in seconds.
double cpuSeconds(qint64 pid);
// Resident memory of a process, in kB (0 once it is gone).
qint64 residentKb(qint64 pid);

// The application on the current X display with settings of its own (no
// first-run pages), its log merged into one stream. Ended when destroyed.
class AppRun
{
public:
    AppRun(const QString &clip, const QString &lens, const QStringList &environment = {});
    ~AppRun();

    // Reads the log until it holds the text or time runs out.
    bool waitForLog(const QByteArray &text, int timeoutMs);
    // Reads what was logged so far.
    const QByteArray &log();
    // Milliseconds since the process was started.
    qint64 elapsedMs() const { return m_clock.elapsed(); }
    qint64 pid() const { return m_process.processId(); }

private:
    QTemporaryDir m_config;
    QProcess m_process;
    QByteArray m_log;
    QElapsedTimer m_clock;
};

} // namespace Bench
