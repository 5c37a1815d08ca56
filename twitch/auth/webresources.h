#pragma once

#include <QByteArray>
#include <QString>
#include <array>
#include <optional>

namespace VCam {

// The pages and files the redirect server shows the browser, all read from
// the "WebResources.bundle" folder. Only plain file names inside that folder
// are ever served: no sub-folders, no "..", no absolute or encoded paths.
class WebResources
{
public:
    enum class Page { Failed = 0, NotInstalled = 1, NotActivated = 2, Ready = 3 };

    static constexpr qint64 kMaxFileBytes = 2 * 1024 * 1024;
    static inline const QString kBundleName = QStringLiteral("WebResources.bundle");

    explicit WebResources(QString folder = defaultFolder());

    // GLINT_WEB_RESOURCES when set; else the bundle beside the program, in
    // the build tree's data folder or in the installed share folder.
    static QString defaultFolder();
    QString folder() const { return m_folder; }

    // The bytes of the file a request path names and its content type, or
    // nothing when the path is refused or no such file exists.
    std::optional<QByteArray> file(const QString &requestPath, QString *contentType) const;
    static QString contentType(const QString &fileName);

    // The finished result pages, built on first use and then kept.
    QByteArray page(Page page);

private:
    QByteArray build(Page page) const;
    QString text(const QString &fileName) const;

    QString m_folder;
    std::array<QByteArray, 4> m_pages;
};

} // namespace VCam
