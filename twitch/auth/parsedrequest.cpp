#include "parsedrequest.h"

#include <QRegularExpression>

namespace VCam {

ParsedRequest ParsedRequest::parse(const QByteArray &request)
{
    static const QRegularExpression blanks(QStringLiteral("[ \r\n][ \r\n]*"));
    const QStringList words = QString::fromUtf8(request).split(blanks);
    ParsedRequest result;
    if (words.size() < 2 || words.at(0) != QLatin1String("GET"))
        return result;
    result.kind = Kind::File;
    result.value = words.at(1);

    const int question = result.value.indexOf(QLatin1Char('?'));
    const QString query = question < 0 ? result.value : result.value.mid(question + 1);
    for (const QString &item : query.split(QLatin1Char('&'))) {
        const QStringList pair = item.split(QLatin1Char('='));
        if (pair.size() != 2)
            continue;
        if (pair.at(0) == QLatin1String("code"))
            result = {Kind::Code, pair.at(1)};
        else if (pair.at(0) == QLatin1String("error"))
            result = {Kind::Error, pair.at(1)};
    }
    return result;
}

} // namespace VCam
