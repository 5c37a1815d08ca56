#include "platformword.h"

namespace VCam {

QString platformWord()
{
    return QStringLiteral("windows");
}

} // namespace VCam
