// C functions with logic of their own: open, close, locate, ready, versions.
#include "vxcamiface.h"

#include "tcConfiguration.h"
#include "tcVXCamera_Ethernet.h"

#include <arpa/inet.h>
#include <new>

// Asks for a setting of a transport that this library does not have; the value serves nobody.
static void ReadSetting(const char* section, const char* name, int defaultValue)
try {
    tcConfiguration::GetInstance()->GetItemInSection(section, name, defaultValue);
} catch (...) { // out of memory
}

extern "C" int VXOpenENetCamera(const char* address, unsigned short port)
try {
    tcConfiguration::GetInstance(); // is to be loaded before any camera exists
    if (address == nullptr) return eVXFailed;
    std::unique_ptr<tcVXCamera_Ethernet> camera;
    {
        const tcVXCamera::tcOpening opening;
        camera = std::make_unique<tcVXCamera_Ethernet>(address, port);
    }
    if (camera->Initialize() == 0) return eVXFailed;
    const int handle = camera->GetHandle();
    if (handle >= 0) camera.release()->Opened(); // the registry holds it until VXCloseCamera
    return handle;
} catch (...) { // out of memory or threads
    return eVXFailed;
}

extern "C" int VXOpenCameraBySerialNumber(int serial)
{
    constexpr int most = 10;
    tsEnetData cameras[most] = {};
    const int found = VXLocateEnetCameras(cameras, most);
    for (int i = 0; i < found; ++i) {
        if (cameras[i].SerialNumber != static_cast<uint32_t>(serial)) continue;
        char address[INET_ADDRSTRLEN];
        inet_ntop(AF_INET, &cameras[i].SourceAddr.sin_addr, address, sizeof address);
        return VXOpenENetCamera(address, cameras[i].Port);
    }
    return eVXFailed;
}

extern "C" int VXLocateEnetCameras(tsEnetData* list, int max)
try {
    if (list == nullptr || max < 1) return 0;
    return tcVXCamera_Ethernet::LocateEnetCameras(list, max);
} catch (...) {
    return eVXFailed;
}

extern "C" int VXCloseCamera(int handle)
{
    return tcVXCamera::Close(handle);
}

extern "C" int VXisCameraReady(int handle)
{
    const tcVXCamera::tcHold camera(handle);
    if (!camera) return eVXNoCamera;
    return camera->numOpsPending() == 0 ? eVXOk : eVXFailed;
}

extern "C" int VXGetDllVersion(void)
{
    return tcVXCamera::GetVersion();
}

extern "C" int VXGetTimingDataSize(void)
{
    return gnTimingDataBytes;
}

extern "C" int VXOpenSerialCamera(void)
{
    ReadSetting("SERIAL", "RS232_BAUDRATE", 115200);
    return eVXFailed;
}

extern "C" int VXOpenUSBSerialCamera(void)
{
    ReadSetting("SERIAL", "USB_BAUDRATE", 921600);
    return eVXFailed;
}

extern "C" int VXOpenHSUSBCamera(int deviceIndex)
{
    constexpr int configured = -1;
    if (deviceIndex == configured) ReadSetting("HSUSB", "DEVICEINDEX", 0);
    return eVXFailed;
}

extern "C" int VXLocateHSUSBCameras(void)
{
    return eVXFailed;
}

extern "C" int VXSetErrorCallback(int handle, tpErrorCallback callback)
{
    constexpr int process = -1;
    if (handle == process) return tcVXCamera::SetGlobalErrorCallback(callback);
    const tcVXCamera::tcHold camera(handle);
    return camera ? camera->SetErrorCallback(callback) : eVXNoCamera;
}
