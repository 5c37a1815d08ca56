#include "settings.h"

#include "boundedjsonparser.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <cerrno>
#include <cstring>

namespace VCam {

namespace {

// Far beyond any file the program writes, small enough to read at once.
constexpr qint64 kMaxFileBytes = 64 * 1024 * 1024;

bool parseObject(const QByteArray &bytes, nlohmann::json &out, QString &error)
{
    if (!BoundedJsonParser().parse(bytes, out, error))
        return false;
    if (!out.is_object()) {
        error = QStringLiteral("the document is not a JSON object");
        return false;
    }
    return true;
}

// Members of a file section replace those of the same name in the defaults;
// members the file lacks keep their default.
void mergeSections(nlohmann::json &base, const nlohmann::json &file)
{
    for (auto it = file.begin(); it != file.end(); ++it) {
        if (it->is_object() && base.contains(it.key()) && base[it.key()].is_object())
            base[it.key()].update(*it);
        else
            base[it.key()] = *it;
    }
}

} // namespace

Settings::Settings(const QString &fileName, const QString &defaultsResource)
    : m_defaultsResource(defaultsResource)
{
    m_path =
        QFileInfo(fileName).isAbsolute()
            ? fileName
            : QDir(QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation)).filePath(fileName);
}

bool Settings::load()
{
    m_error.clear();
    m_document = nlohmann::json::object();
    const bool defaultsOk = readDefaults();
    const bool fileOk = readFile();
    return defaultsOk && fileOk;
}

bool Settings::readDefaults()
{
    QFile defaults(m_defaultsResource);
    if (!defaults.open(QIODevice::ReadOnly)) {
        m_error =
            QStringLiteral("Can't open defaults %1: %2").arg(m_defaultsResource, defaults.errorString());
        return false;
    }
    QString error;
    nlohmann::json document;
    if (!parseObject(defaults.readAll(), document, error)) {
        m_error = QStringLiteral("Defaults %1 are not valid: %2").arg(m_defaultsResource, error);
        return false;
    }
    m_document = document;
    return true;
}

bool Settings::readFile()
{
    QFile file(m_path);
    if (!file.exists())
        return true; // a first start: the defaults are the settings
    if (!file.open(QIODevice::ReadOnly)) {
        m_error = QStringLiteral("Can't open %1: %2").arg(m_path, file.errorString());
        return false;
    }
    QString error;
    nlohmann::json document;
    const bool tooLarge = file.size() > kMaxFileBytes;
    if (tooLarge)
        error = QStringLiteral("larger than %1 bytes").arg(kMaxFileBytes);
    if (tooLarge || !parseObject(file.readAll(), document, error)) {
        m_error = QStringLiteral("%1 is not valid JSON (%2); it was kept as %1.bak").arg(m_path, error);
        file.close();
        keepUnreadableFile();
        return false;
    }
    mergeSections(m_document, document);
    return true;
}

void Settings::keepUnreadableFile()
{
    const QString backup = m_path + QStringLiteral(".bak");
    QFile::remove(backup);
    QFile::copy(m_path, backup);
}

bool Settings::save()
{
    m_error.clear();
    QDir().mkpath(QFileInfo(m_path).absolutePath());
    const std::string text = m_document.dump(4) + "\n";
    if (text == m_lastWritten && QFileInfo::exists(m_path))
        return true; // nothing changed since the last write
    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly)) {
        m_error = QStringLiteral("Can't write %1: %2").arg(m_path, file.errorString());
        return false;
    }
    // The first failing write keeps its reason (disk full, I/O error):
    // Qt's own text for it is often only "Unknown error".
    errno = 0;
    if (file.write(text.data(), static_cast<qint64>(text.size())) != static_cast<qint64>(text.size()) ||
        !file.flush()) {
        const int reason = errno;
        m_error = QStringLiteral("Can't write %1: %2")
                      .arg(m_path,
                           reason != 0 ? QString::fromLocal8Bit(std::strerror(reason)) : file.errorString());
        file.cancelWriting();
        return false;
    }
    if (!file.commit()) {
        m_error = QStringLiteral("Can't write %1: %2").arg(m_path, file.errorString());
        return false;
    }
    m_lastWritten = text;
    return true;
}

nlohmann::json Settings::section(const std::string &name) const
{
    const auto it = m_document.find(name);
    return it != m_document.end() && it->is_object() ? *it : nlohmann::json::object();
}

void Settings::setSection(const std::string &name, nlohmann::json value)
{
    m_document[name] = std::move(value);
}

} // namespace VCam
