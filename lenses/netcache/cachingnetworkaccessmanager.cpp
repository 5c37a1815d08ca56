#include "cachingnetworkaccessmanager.h"

namespace VCam {

QNetworkReply *CachingNetworkAccessManager::createRequest(Operation op, const QNetworkRequest &request,
                                                          QIODevice *outgoingData)
{
    QNetworkRequest cached = request;
    cached.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::PreferCache);
    return QNetworkAccessManager::createRequest(op, cached, outgoingData);
}

} // namespace VCam
