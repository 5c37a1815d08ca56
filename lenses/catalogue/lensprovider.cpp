#include "lensprovider.h"

namespace VCam {

LensProvider::LensProvider(QObject *parent) : QObject(parent)
{
    // The list types travel through queued connections and signal spies.
    qRegisterMetaType<std::vector<LensInfo>>("std::vector<VCam::LensInfo>");
    qRegisterMetaType<std::set<LensId>>("std::set<VCam::LensId>");
    qRegisterMetaType<std::vector<LensId>>("std::vector<VCam::LensId>");
    qRegisterMetaType<LensId>("VCam::LensId");
}

} // namespace VCam
