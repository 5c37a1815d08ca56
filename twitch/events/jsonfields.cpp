#include "jsonfields.h"

#include <QJsonValue>
#include <cmath>

namespace VCam {

void JsonFields::fail(const char *key, const char *expected)
{
    if (m_error.isEmpty())
        m_error = QStringLiteral("\"%1\" is not %2").arg(QLatin1String(key), QLatin1String(expected));
}

QString JsonFields::text(const char *key)
{
    const QJsonValue value = m_object.value(QLatin1String(key));
    if (value.isUndefined() || value.isNull())
        return {};
    if (!value.isString()) {
        fail(key, "a string");
        return {};
    }
    return value.toString();
}

qint64 JsonFields::integer(const char *key)
{
    const QJsonValue value = m_object.value(QLatin1String(key));
    if (value.isUndefined() || value.isNull())
        return 0;
    const double number = value.toDouble(NAN);
    if (!value.isDouble() || std::trunc(number) != number || std::fabs(number) > 9.0e15) {
        fail(key, "an integer");
        return 0;
    }
    return static_cast<qint64>(number);
}

bool JsonFields::boolean(const char *key)
{
    const QJsonValue value = m_object.value(QLatin1String(key));
    if (value.isUndefined() || value.isNull())
        return false;
    if (!value.isBool()) {
        fail(key, "a boolean");
        return false;
    }
    return value.toBool();
}

QJsonObject JsonFields::object(const char *key)
{
    const QJsonValue value = m_object.value(QLatin1String(key));
    if (value.isUndefined() || value.isNull())
        return {};
    if (!value.isObject()) {
        fail(key, "an object");
        return {};
    }
    return value.toObject();
}

} // namespace VCam
