#include "writeronlyoutput.h"

bool WriterOnlyOutput::start()
{
    if (!m_writer)
        m_writer = std::make_unique<VCam::VirtualCamStreamWriter>();
    return true;
}

bool WriterOnlyOutput::stop()
{
    m_writer.reset();
    return true;
}

bool WriterOnlyOutput::getConfig(VCam::VirtualCamConfig &config)
{
    config = VCam::VirtualCamConfig();
    return true;
}

bool WriterOnlyOutput::writeFrame(VCam::VirtualCamBuffer buffer, int byteCount)
{
    if (!m_writer || !m_writer->write(std::move(buffer), byteCount))
        return false;
    ++m_written;
    return true;
}
