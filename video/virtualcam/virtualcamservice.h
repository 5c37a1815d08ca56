#pragma once

#include "ivirtualcamservice.h"
#include "virtualcamsystem.h"

#include <memory>
#include <string>

namespace VCam {

class VirtualCamStreamWriter;

class VirtualCamService : public IVirtualCamService
{
public:
    // applicationDir: the program's folder, with forward slashes.
    explicit VirtualCamService(const std::wstring &applicationDir);
    ~VirtualCamService() override;

    bool install() override;
    bool uninstall() override;
    bool isInstalled() override;
    bool start() override;
    bool stop() override;
    bool isAvailable() override;
    bool setConfig(const VirtualCamConfig &config) override;
    bool getConfig(VirtualCamConfig &config) override;
    bool writeFrame(VirtualCamBuffer buffer, int byteCount) override;

private:
    std::shared_ptr<VirtualCamStreamWriter> m_writer;
    std::wstring m_filterPath64;
    std::wstring m_filterPath32;
    VirtualCamConfig m_config;
    VirtualCamSystem m_system;
};

} // namespace VCam
