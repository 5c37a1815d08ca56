#include "logmiddleware.h"

#include "actiontypes.h"

#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcActions, "glint.actions")

namespace VCam {

LogMiddleware::LogMiddleware(std::set<qint32> skip, QObject *parent)
    : Bureau::Middleware(parent), m_skip(std::move(skip))
{}

std::shared_ptr<Bureau::Action> LogMiddleware::process(std::shared_ptr<Bureau::Action> action)
{
    if (m_skip.count(action->type))
        return action;
    const QByteArray key = actionTypeKey(action->type);
    if (action->payload.isValid())
        qCInfo(lcActions).noquote() << key << action->payload;
    else
        qCInfo(lcActions).noquote() << key;
    return action;
}

} // namespace VCam
