#include "hintsdelegate.h"

namespace VCam {

void HintsDelegate::showHint(const std::string &hintId)
{
    emit showHintRequested(QString::fromStdString(hintId));
}

void HintsDelegate::hideHint()
{
    emit hideHintRequested();
}

} // namespace VCam
