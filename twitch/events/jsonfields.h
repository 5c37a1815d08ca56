#pragma once

#include <QJsonObject>
#include <QString>

namespace VCam {

// Typed reads of JSON members that remember the first type error: a missing
// or null member gives the default, a member of another type fails.
class JsonFields
{
public:
    explicit JsonFields(const QJsonObject &object) : m_object(object) {}

    QString text(const char *key);
    qint64 integer(const char *key);
    bool boolean(const char *key);
    QJsonObject object(const char *key);

    bool ok() const { return m_error.isEmpty(); }
    QString error() const { return m_error; }

private:
    void fail(const char *key, const char *expected);

    QJsonObject m_object;
    QString m_error;
};

} // namespace VCam
