#pragma once

#include <ivirtualcamservice.h>
#include <memory>
#include <virtualcamstreamwriter.h>

// The virtual camera output without the system registration, which needs a
// kernel module that a test machine cannot load: the stream writer the
// service uses, over the real pipe to a camera sink the caller starts.
class WriterOnlyOutput : public VCam::IVirtualCamService
{
public:
    bool install() override { return true; }
    bool uninstall() override { return true; }
    bool isInstalled() override { return true; }
    bool start() override;
    bool stop() override;
    bool isAvailable() override { return m_writer != nullptr; }
    bool setConfig(const VCam::VirtualCamConfig &) override { return true; }
    bool getConfig(VCam::VirtualCamConfig &config) override;
    bool writeFrame(VCam::VirtualCamBuffer buffer, int byteCount) override;

    bool isConnected() const { return m_writer && m_writer->isConnected(); }
    // Frames that reached the pipe whole.
    int written() const { return m_written; }

private:
    std::unique_ptr<VCam::VirtualCamStreamWriter> m_writer;
    int m_written = 0;
};
