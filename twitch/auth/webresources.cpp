#include "webresources.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QRegularExpression>

Q_LOGGING_CATEGORY(lcWebResources, "glint.twitch.web")

namespace VCam {

namespace {

bool isSafeName(const QString &name)
{
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9_-][A-Za-z0-9._-]*$"));
    return plain.match(name).hasMatch() && !name.contains(QLatin1String(".."));
}

// Refuses anything that could reach outside the bundle: parent steps,
// back-slashes, percent-encoded separators or dots, and absolute forms such
// as "//host/x" or "http://...".
bool isSafePath(const QString &path)
{
    if (!path.startsWith(QLatin1Char('/')) || path.startsWith(QLatin1String("//")))
        return false;
    if (path.contains(QLatin1String("..")) || path.contains(QLatin1Char('\\')))
        return false;
    static const QRegularExpression encoded(QStringLiteral("%(2f|5c|2e|00)"),
                                            QRegularExpression::CaseInsensitiveOption);
    return !encoded.match(path).hasMatch();
}

} // namespace

WebResources::WebResources(QString folder) : m_folder(std::move(folder)) {}

QString WebResources::defaultFolder()
{
    const QString overridden = qEnvironmentVariable("GLINT_WEB_RESOURCES");
    if (!overridden.isEmpty())
        return overridden;
    const QDir programDir(QCoreApplication::applicationDirPath());
    for (const QString &candidate : {kBundleName, QStringLiteral("../data/") + kBundleName,
                                     QStringLiteral("../share/glint-camera/") + kBundleName}) {
        if (programDir.exists(candidate))
            return QDir::cleanPath(programDir.filePath(candidate));
    }
    return programDir.filePath(kBundleName);
}

QString WebResources::contentType(const QString &fileName)
{
    const QString extension = fileName.mid(fileName.lastIndexOf(QLatin1Char('.')) + 1).toLower();
    static const std::pair<const char *, const char *> table[] = {
        {"html", "text/html"},     {"htm", "text/html"},         {"css", "text/css"},
        {"js", "text/javascript"}, {"png", "image/png"},         {"svg", "image/svg+xml"},
        {"ico", "image/x-icon"},   {"jpg", "image/jpeg"},        {"jpeg", "image/jpeg"},
        {"woff2", "font/woff2"},   {"json", "application/json"}, {"txt", "text/plain"},
    };
    for (const auto &[known, type] : table) {
        if (extension == QLatin1String(known))
            return QString::fromLatin1(type);
    }
    return QString();
}

std::optional<QByteArray> WebResources::file(const QString &requestPath, QString *contentType) const
{
    QString path = requestPath;
    path.truncate(path.indexOf(QLatin1Char('?')) < 0 ? path.size() : path.indexOf(QLatin1Char('?')));
    if (!isSafePath(path))
        return std::nullopt;
    const QString name = path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
    if (!isSafeName(name))
        return std::nullopt;

    // The bundle may itself be a link; its files must stay inside it.
    const QString root = QFileInfo(m_folder).canonicalFilePath();
    const QFileInfo info(QDir(m_folder).filePath(name));
    const QString real = info.canonicalFilePath();
    if (root.isEmpty() || real.isEmpty() || !real.startsWith(root + QLatin1Char('/')) || !info.isFile() ||
        info.size() > kMaxFileBytes)
        return std::nullopt;
    QFile file(real);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    if (contentType)
        *contentType = WebResources::contentType(name);
    return file.read(kMaxFileBytes);
}

QString WebResources::text(const QString &fileName) const
{
    QString unused;
    const auto bytes = file(QLatin1Char('/') + fileName, &unused);
    if (!bytes) {
        qCWarning(lcWebResources).noquote()
            << QStringLiteral("Web resource %1 is missing from %2").arg(fileName, m_folder);
        return QString();
    }
    return QString::fromUtf8(*bytes);
}

QByteArray WebResources::page(Page which)
{
    QByteArray &cached = m_pages.at(static_cast<size_t>(which));
    if (cached.isEmpty())
        cached = build(which);
    return cached;
}

QByteArray WebResources::build(Page which) const
{
    QString pageTemplate = text(QStringLiteral("page_template.html"));
    if (pageTemplate.isEmpty())
        pageTemplate = QStringLiteral("<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>%1</title>"
                                      "</head><body><h1>%1</h1>%2</body></html>");
    if (which == Page::Failed) {
        return pageTemplate
            .arg(QCoreApplication::translate("VCam::WebResources", "Authorization Failed"),
                 text(QStringLiteral("authorization_failed.html")))
            .toUtf8();
    }
    static const char *const extensionPages[] = {"plugin_not_installed.html", "plugin_not_activated.html",
                                                 "plugin_is_ready.html"};
    const QString extension = text(QString::fromLatin1(extensionPages[static_cast<int>(which) - 1]));
    QString succeeded = text(QStringLiteral("authorization_succeeded_template.html"));
    if (succeeded.isEmpty())
        succeeded = QStringLiteral("%1");
    return pageTemplate
        .arg(QCoreApplication::translate("VCam::WebResources", "Authorization Succeeded"),
             succeeded.arg(extension))
        .toUtf8();
}

} // namespace VCam
