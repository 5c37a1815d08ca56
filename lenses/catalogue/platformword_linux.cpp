#include "platformword.h"

namespace VCam {

QString platformWord()
{
    return QStringLiteral("linux");
}

} // namespace VCam
