#include "lensinfostorage.h"

#include <QCryptographicHash>
#include <glintdeployment.h>

namespace VCam {

LensInfoStorage::LensInfoStorage(QObject *parent) : QObject(parent) {}

QHash<int, QByteArray> LensInfoStorage::roleNames()
{
    return {{TitleRole, "title"},
            {AuthorRole, "author"},
            {AuthorPageUrlRole, "authorPageUrl"},
            {IconUrlRole, "iconUrl"},
            {GlintcodeUrlRole, "glintcodeUrl"},
            {IsFavoriteRole, "isFav"},
            {PreviewRole, "preview"},
            {PreviewSequenceRole, "previewSequence"},
            {MainColorRole, "mainColor"},
            {IsBundledRole, "isBundled"},
            {InfoRolesCount, "lensId"}};
}

QUrl LensInfoStorage::authorPageUrl(const QString &authorSlug)
{
    if (authorSlug.isEmpty())
        return {};
    const QString host = QString::fromStdString(glint::deployment(glint::kCreatorHost));
    return QUrl(QStringLiteral("https://%1/creator/%2").arg(host, authorSlug));
}

QColor LensInfoStorage::mainColorOf(const LensId &lensId)
{
    const QByteArray digest = QCryptographicHash::hash(lensId.toUtf8(), QCryptographicHash::Sha1);
    const int hue = (quint8(digest[0]) << 8 | quint8(digest[1])) % 360;
    return QColor::fromHsl(hue, 150, 110);
}

void LensInfoStorage::insert(const LensInfo &info)
{
    if (!info.isValid())
        return;
    const auto found = m_lenses.find(info.lensId);
    if (found == m_lenses.end()) {
        m_lenses.emplace(info.lensId, info);
        emit lensAdded(info.lensId);
        return;
    }
    if (found->second == info)
        return;
    found->second = info;
    emit lensUpdated(info.lensId);
}

void LensInfoStorage::remove(const LensId &lensId)
{
    if (m_lenses.erase(lensId) == 0)
        return;
    emit lensRemoved(lensId);
}

LensInfo LensInfoStorage::info(const LensId &lensId) const
{
    const auto found = m_lenses.find(lensId);
    if (found == m_lenses.end())
        return {};
    return found->second;
}

static QVariantMap sequenceMap(const ImageSequenceInfo &sequence)
{
    return {{QStringLiteral("urlPattern"), sequence.urlPattern},
            {QStringLiteral("frameInterval"), sequence.frameIntervalMs},
            {QStringLiteral("size"), sequence.size}};
}

QVariant LensInfoStorage::data(const LensId &lensId, int role) const
{
    if (role == InfoRolesCount)
        return lensId;
    if (role == IsFavoriteRole)
        return isFavorite(lensId);
    if (role == MainColorRole)
        return mainColorOf(lensId);
    const LensInfo lens = info(lensId);
    switch (role) {
    case TitleRole:
        return lens.lensName;
    case AuthorRole:
        return lens.authorName;
    case AuthorPageUrlRole:
        return authorPageUrl(lens.authorSlug);
    case IconUrlRole:
        return QUrl(lens.iconUrl);
    case GlintcodeUrlRole:
        return QUrl(lens.glintcodeUrl);
    case PreviewRole:
        return QUrl(lens.thumbnailMediaPosterUrl.isEmpty() ? lens.standardMediaPosterUrl
                                                           : lens.thumbnailMediaPosterUrl);
    case PreviewSequenceRole:
        return sequenceMap(lens.imageSequence);
    case IsBundledRole:
        return lens.lensStatus == QLatin1String("bundled");
    default:
        return {};
    }
}

QVariantMap LensInfoStorage::toVariantMap(const LensId &lensId) const
{
    QVariantMap map;
    const auto names = roleNames();
    for (auto it = names.cbegin(); it != names.cend(); ++it)
        map.insert(QString::fromLatin1(it.value()), data(lensId, it.key()));
    map.insert(QStringLiteral("deeplink"), info(lensId).deeplink);
    map.insert(QStringLiteral("isKnown"), contains(lensId));
    return map;
}

void LensInfoStorage::setFavorite(const LensId &lensId, bool value)
{
    const bool changed = value ? m_favorites.insert(lensId).second : m_favorites.erase(lensId) > 0;
    if (changed && contains(lensId))
        emit lensUpdated(lensId);
}

} // namespace VCam
