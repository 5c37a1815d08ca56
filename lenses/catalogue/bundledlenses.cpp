#include "bundledlenses.h"

#include "lenscache.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QUrl>
#include <nlohmann/json.hpp>

Q_LOGGING_CATEGORY(lcBundledLenses, "glint.lenses.bundled")

namespace VCam {

namespace {

QString member(const nlohmann::json &object, const char *key)
{
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? QString::fromStdString(it->get<std::string>()) : QString();
}

// Only plain file names inside the folder.
bool isPlainName(const QString &name)
{
    return !name.isEmpty() && !name.contains('/') && !name.contains('\\') && name != "." && name != "..";
}

} // namespace

BundledLenses::BundledLenses(const QString &folder)
{
    if (!folder.isEmpty())
        load(folder);
}

QString BundledLenses::defaultFolder()
{
    const QString overridden = qEnvironmentVariable("GLINT_BUNDLED_LENSES");
    if (!overridden.isEmpty())
        return overridden;
    if (!QCoreApplication::instance())
        return {};
    const QDir programDir(QCoreApplication::applicationDirPath());
    for (const QString &candidate :
         {QStringLiteral("../data/bundled-lenses"), QStringLiteral("../share/glint-camera/bundled-lenses")}) {
        if (programDir.exists(candidate + QStringLiteral("/index.json")))
            return QDir::cleanPath(programDir.filePath(candidate));
    }
    return {};
}

void BundledLenses::load(const QString &folder)
{
    QFile index(folder + QStringLiteral("/index.json"));
    if (!index.open(QIODevice::ReadOnly)) {
        qCInfo(lcBundledLenses).noquote() << "No bundled lenses in" << folder;
        return;
    }
    if (index.size() > kMaxIndexBytes) {
        qCWarning(lcBundledLenses).noquote() << "Bundled lenses ignored: the index is too large";
        return;
    }
    const QByteArray text = index.readAll();
    const auto json = nlohmann::json::parse(text.constData(), text.constData() + text.size(), nullptr, false);
    const auto list = json.is_object() ? json.find("lenses") : json.end();
    if (!json.is_object() || list == json.end() || !list->is_array()) {
        qCWarning(lcBundledLenses).noquote() << "Bundled lenses ignored: the index has no \"lenses\" array";
        return;
    }
    const QDir dir(folder);
    for (const auto &item : *list) {
        if (!item.is_object())
            continue;
        LensInfo info;
        info.lensId = member(item, "lens_id");
        const QString archive = member(item, "archive");
        const QString signature = member(item, "signature");
        if (!LensCache::isValidLensId(info.lensId) || !isPlainName(archive) || signature.isEmpty() ||
            m_entries.count(info.lensId)) {
            qCWarning(lcBundledLenses).noquote()
                << "Bundled lens record skipped:" << QString::fromStdString(item.dump());
            continue;
        }
        info.lensName = member(item, "lens_name");
        info.authorName = member(item, "author_name");
        info.lensStatus = kStatus;
        const QString icon = member(item, "icon");
        if (isPlainName(icon))
            info.iconUrl = QUrl::fromLocalFile(dir.absoluteFilePath(icon)).toString();
        m_entries[info.lensId] = Entry{dir.absoluteFilePath(archive), signature};
        m_lenses.push_back(info);
    }
    qCInfo(lcBundledLenses).noquote() << m_lenses.size() << "bundled lenses in" << folder;
}

QString BundledLenses::signature(const LensId &lensId) const
{
    const auto it = m_entries.find(lensId);
    return it == m_entries.end() ? QString() : it->second.signature;
}

QByteArray BundledLenses::archive(const LensId &lensId) const
{
    const auto it = m_entries.find(lensId);
    if (it == m_entries.end())
        return {};
    QFile file(it->second.archivePath);
    if (!file.open(QIODevice::ReadOnly) || file.size() > kMaxArchiveBytes) {
        qCWarning(lcBundledLenses).noquote() << "Bundled lens archive unusable:" << it->second.archivePath;
        return {};
    }
    return file.readAll();
}

} // namespace VCam
