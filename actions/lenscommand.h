#pragma once

#include "actiontypes.h"
#include "lensid.h"

#include <QMetaType>
#include <QUrl>

namespace VCam {

// The payload of the lens actions that carry more than one argument:
//   SetActiveLensId        lensId, context
//   SetLensFavorite        lensId, enabled (favourite or not), context
//   SetCoreProcessingLens  lensId, text (the lens folder)
//   SetSecondaryLens       lensId, kind (LensRole)
//   SaveGlintcode          lensId, url (where to save), context
//   CopyLensLink           lensId, context
//   ReportLens             lensId, kind (LensReportType), text (description), context
struct LensCommand
{
    LensId lensId = kInvalidLensId;
    LensActionContext context = LensActionContext::None;
    bool enabled = false;
    QString text;
    QUrl url;
    qint32 kind = 0;
};

QDebug operator<<(QDebug debug, const LensCommand &command);

} // namespace VCam

Q_DECLARE_METATYPE(VCam::LensCommand)
