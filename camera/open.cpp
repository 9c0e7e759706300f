// C functions with logic of their own: open, close, locate, ready, versions.
#include "vxcamiface.h"

#include "guarded.h"
#include "tcConfiguration.h"
#include "tcVXCamera_Ethernet.h"

#include <arpa/inet.h>
#include <exception>

namespace {

// Asks for a setting of a transport that this library does not have; the value serves nobody.
int ReadSetting(const char* section, const char* name, int defaultValue)
{
    tcConfiguration::GetInstance()->GetItemInSection(section, name, defaultValue);
    return eVXFailed;
}

// A handle, or -1 with the camera's own error line. Throws for want of memory or threads.
int Open(const char* address, unsigned short port)
{
    tcConfiguration::GetInstance(); // is to be loaded before any camera exists
    if (address == nullptr) return eVXFailed;
    std::unique_ptr<tcVXCamera_Ethernet> camera;
    {
        const tcVXCamera::tcOpening opening;
        camera = std::make_unique<tcVXCamera_Ethernet>(address, port);
    }
    camera->TakeOpeningTap();
    if (camera->Initialize() == 0) return eVXFailed;
    const int handle = camera->GetHandle();
    if (handle >= 0) camera.release()->Opened(); // the registry holds it until VXCloseCamera
    return handle;
}

// For a camera that could not even be made, and so has no logger.
void LogNotMade(const char* why)
try {
    tcLog log("VXCAM", 0);
    log.logError("VXOpenENetCamera could not make a camera: %s", why);
} catch (...) { // nor can this be told
}

} // namespace

extern "C" int VXOpenENetCamera(const char* address, unsigned short port)
{
    return Guarded([=] {
        try {
            return Open(address, port);
        } catch (const std::exception& reason) {
            LogNotMade(reason.what());
            return static_cast<int>(eVXFailed);
        }
    });
}

extern "C" int VXOpenCameraBySerialNumber(int serial)
{
    const vx::tcNoCancel noCancel;
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
{
    const vx::tcNoCancel noCancel;
    if (list == nullptr || max < 1) return 0;
    return tcVXCamera_Ethernet::LocateEnetCameras(list, max);
}

extern "C" int VXCloseCamera(int handle)
{
    return Guarded([=] { return tcVXCamera::Close(handle); });
}

extern "C" int VXisCameraReady(int handle)
{
    return Guarded([=] {
        const tcVXCamera::tcHold camera(handle);
        if (!camera) return eVXNoCamera;
        return camera->numOpsPending() == 0 ? eVXOk : eVXFailed;
    });
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
    return Guarded([] { return ReadSetting("SERIAL", "RS232_BAUDRATE", 115200); });
}

extern "C" int VXOpenUSBSerialCamera(void)
{
    return Guarded([] { return ReadSetting("SERIAL", "USB_BAUDRATE", 921600); });
}

extern "C" int VXOpenHSUSBCamera(int deviceIndex)
{
    constexpr int configured = -1;
    if (deviceIndex != configured) return eVXFailed;
    return Guarded([] { return ReadSetting("HSUSB", "DEVICEINDEX", 0); });
}

extern "C" int VXLocateHSUSBCameras(void)
{
    return eVXFailed;
}

extern "C" int VXSetErrorCallback(int handle, tpErrorCallback callback)
{
    constexpr int process = -1;
    if (handle == process) return tcVXCamera::SetGlobalErrorCallback(callback);
    return Guarded([=] {
        const tcVXCamera::tcHold camera(handle);
        return camera ? camera->SetErrorCallback(callback) : static_cast<int>(eVXNoCamera);
    });
}
