#pragma once

#include <QNetworkAccessManager>

namespace VCam {

// Answers every request from its cache when it can, whatever its age.
class CachingNetworkAccessManager : public QNetworkAccessManager
{
    Q_OBJECT
public:
    using QNetworkAccessManager::QNetworkAccessManager;

protected:
    QNetworkReply *createRequest(Operation op, const QNetworkRequest &request,
                                 QIODevice *outgoingData = nullptr) override;
};

} // namespace VCam
