#include "virtualcamsystem.h"

// clang-format off
#include <windows.h>
#include <shellapi.h>
// clang-format on

// On Windows the camera is a DirectShow filter in two libraries beside the
// program, registered under the filter's class id.

namespace VCam {

namespace {

constexpr const wchar_t *kClassKey64 = L"SOFTWARE\\Classes\\CLSID\\{1c5f1162-834e-47d6-ae96-258bae067fa3}";
constexpr const wchar_t *kClassKey32 =
    L"SOFTWARE\\Classes\\WOW6432Node\\CLSID\\{1c5f1162-834e-47d6-ae96-258bae067fa3}";

bool keyExists(const wchar_t *path)
{
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key) != ERROR_SUCCESS)
        return false;
    RegCloseKey(key);
    return true;
}

// Runs both regsvr32 registrations in one elevated, hidden cmd.
bool runRegistration(const std::wstring &mode, const std::wstring &filterPath64,
                     const std::wstring &filterPath32)
{
    const std::wstring quote = L"\"";
    const std::wstring parameters = L"/c " + std::wstring(L"%windir%\\system32\\regsvr32") + L" " + L"/s " +
                                    mode + quote + filterPath64 + quote + L" && " +
                                    L"%windir%\\SysWOW64\\regsvr32" + L" " + L"/s " + mode + quote +
                                    filterPath32 + quote;
    const HINSTANCE result = ShellExecuteW(nullptr, L"runas", L"cmd", parameters.c_str(), nullptr, 0);
    // ShellExecuteW returns a status, not a process handle: the wait returns
    // at once and the registration finishes in the background.
    const HANDLE notAProcess = reinterpret_cast<HANDLE>(result);
    WaitForSingleObject(notAProcess, INFINITE);
    CloseHandle(notAProcess);
    return reinterpret_cast<INT_PTR>(result) > 32;
}

} // namespace

VirtualCamSystem::VirtualCamSystem(std::wstring applicationDir) : m_applicationDir(std::move(applicationDir))
{}

VirtualCamSystem::~VirtualCamSystem() = default;

bool VirtualCamSystem::isInstalled() const
{
    return keyExists(kClassKey64) && keyExists(kClassKey32);
}

VirtualCamSystem::Readiness VirtualCamSystem::readiness() const
{
    return isInstalled() ? Readiness::Ready : Readiness::DeviceMissing;
}

// Registering the filters asks for elevation inside install().
std::vector<std::string> VirtualCamSystem::setUpCommand() const
{
    return {};
}

bool VirtualCamSystem::install(const std::wstring &filterPath64, const std::wstring &filterPath32)
{
    return runRegistration(L"/i ", filterPath64, filterPath32);
}

bool VirtualCamSystem::uninstall(const std::wstring &filterPath64, const std::wstring &filterPath32)
{
    return runRegistration(L"/u ", filterPath64, filterPath32);
}

bool VirtualCamSystem::outputAllowed() const
{
    return true;
}

void VirtualCamSystem::startCompanion() {}

void VirtualCamSystem::stopCompanion() {}

} // namespace VCam
