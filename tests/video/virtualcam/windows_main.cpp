// Links the Windows virtual camera files into a program for the cross-compile check.
#include "virtualcamservice.h"

int main()
{
    VCam::VirtualCamService service(L"C:/Glint");
    return service.isInstalled() ? 0 : 1;
}
