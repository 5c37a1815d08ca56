#include "virtualcamservice.h"

#include "virtualcamstreamwriter.h"

namespace VCam {

VirtualCamService::VirtualCamService(const std::wstring &applicationDir)
    : m_filterPath64(applicationDir + L"\\GlintVirtualCam64.dll"),
      m_filterPath32(applicationDir + L"\\GlintVirtualCam32.dll"), m_system(applicationDir)
{}

VirtualCamService::~VirtualCamService()
{
    stop();
}

bool VirtualCamService::install()
{
    return m_system.install(m_filterPath64, m_filterPath32);
}

bool VirtualCamService::uninstall()
{
    return m_system.uninstall(m_filterPath64, m_filterPath32);
}

bool VirtualCamService::isInstalled()
{
    return m_system.isInstalled();
}

bool VirtualCamService::isAvailable()
{
    return isInstalled();
}

bool VirtualCamService::start()
{
    if (!isInstalled())
        return false;
    if (m_writer)
        return true;
    if (!m_system.outputAllowed())
        return false;
    m_writer = std::make_shared<VirtualCamStreamWriter>();
    m_system.startCompanion();
    return true;
}

bool VirtualCamService::stop()
{
    if (m_writer) {
        m_writer.reset();
        m_system.stopCompanion();
    }
    return !m_writer;
}

bool VirtualCamService::setConfig(const VirtualCamConfig &config)
{
    m_config = config;
    return true;
}

bool VirtualCamService::getConfig(VirtualCamConfig &config)
{
    config = m_config;
    return true;
}

bool VirtualCamService::writeFrame(VirtualCamBuffer buffer, int byteCount)
{
    if (!m_writer)
        return false;
    return m_writer->write(std::move(buffer), byteCount);
}

} // namespace VCam
