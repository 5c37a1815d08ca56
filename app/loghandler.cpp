#include "loghandler.h"

#include <QDir>
#include <QFile>
#include <QMutex>
#include <QStandardPaths>
#include <QTextStream>
#include <cstdio>
#include <cstdlib>

namespace VCam {

namespace {

QMutex g_mutex;
QFile *g_file = nullptr;
bool g_fileChosen = false;
QtMessageHandler g_previous = nullptr;

void chooseFile()
{
    g_fileChosen = true;
    QDir().mkpath(QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation));
    g_file = new QFile(LogHandler::filePath());
}

void writeToFile(const QString &line)
{
    if (!g_fileChosen)
        chooseFile();
    if (!g_file->isOpen() && !g_file->open(QIODevice::WriteOnly | QIODevice::Text))
        return;
    QTextStream stream(g_file);
    stream << line;
    stream.flush();
    g_file->flush();
}

} // namespace

QString LogHandler::filePath()
{
    return QDir(QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation))
        .filePath(QStringLiteral("Log.txt"));
}

void LogHandler::install()
{
    g_previous = qInstallMessageHandler(&LogHandler::handle);
}

void LogHandler::uninstall()
{
    qInstallMessageHandler(g_previous);
    QMutexLocker lock(&g_mutex);
    delete g_file;
    g_file = nullptr;
    g_fileChosen = false;
}

void LogHandler::handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    QMutexLocker lock(&g_mutex);
    QString line = qFormatLogMessage(type, context, message);
    if (!line.endsWith(QLatin1Char('\n')))
        line += QLatin1Char('\n');
    writeToFile(line);
    const QByteArray bytes = line.toLocal8Bit();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stderr);
    std::fflush(stderr);
    if (type == QtFatalMsg)
        std::abort();
}

} // namespace VCam
