#pragma once

#include <QString>

namespace VCam {

// Writes every log message to "Log.txt" in the per-user configuration
// directory (started empty at each run) and to standard error. A log file
// that cannot be opened is skipped; standard error still gets the message.
class LogHandler
{
public:
    static void install();
    static void uninstall();
    // "Log.txt" in the per-user configuration directory.
    static QString filePath();

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message);
};

} // namespace VCam
