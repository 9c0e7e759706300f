// Life of a camera: registry, construction, callbacks, opening handshake, destruction.
#include "tcVXCamera.h"
#include "tcLedger.h"

#include <algorithm>
#include <shared_mutex>
#include <string>

namespace {

// Guards the registry's map. Never destroyed: threads may still look cameras up while the process
// exits.
std::shared_mutex& RegistryMutex()
{
    static auto* mutex = new std::shared_mutex;
    return *mutex;
}

} // namespace

std::map<unsigned, tcVXCamera*>* tcVXCamera::gpCameraMap = nullptr;
unsigned tcVXCamera::gnCameraCount = 0;
unsigned tcVXCamera::DllVersion = 0;
std::atomic<tpErrorCallback> tcVXCamera::spGlobalErrorMsgCallBack{nullptr};

tcVXCamera* tcVXCamera::Find(int handle)
{
    std::shared_lock<std::shared_mutex> lock(RegistryMutex());
    if (gpCameraMap == nullptr) return nullptr;
    auto entry = gpCameraMap->find(static_cast<unsigned>(handle));
    return entry == gpCameraMap->end() ? nullptr : entry->second;
}

int tcVXCamera::Withdraw(int handle, tcVXCamera*& camera)
{
    std::unique_lock<std::shared_mutex> lock(RegistryMutex());
    if (gpCameraMap == nullptr) return eVXNoCamera;
    auto entry = gpCameraMap->find(static_cast<unsigned>(handle));
    if (entry == gpCameraMap->end() || entry->second == nullptr) return eVXNoCamera;
    if (entry->second->RefuseOnReceiveThread("VXCloseCamera") != eVXOk) return eVXFailed;
    camera = entry->second;
    gpCameraMap->erase(entry);
    return eVXOk;
}

int tcVXCamera::GetVersion()
{
    DllVersion = 0x00030007;
    return static_cast<int>(DllVersion);
}

int tcVXCamera::SetGlobalErrorCallback(tpErrorCallback callback)
{
    spGlobalErrorMsgCallBack = callback;
    return eVXOk;
}

tcVXCamera::tcVXCamera(teMonitor monitor)
    : mpParser(std::make_unique<tcCamParser>(nullptr, gnLargestMessage, false)),
      mpLedger(std::make_unique<tcLedger>())
{
    mpParser->RegisterCallback(&tcVXCamera::DispatchCallbackParser, this);
    {
        std::unique_lock<std::shared_mutex> lock(RegistryMutex());
        if (gpCameraMap == nullptr) {
            gpCameraMap = new std::map<unsigned, tcVXCamera*>;
            gnCameraCount = 0;
        }
        mnHandle = static_cast<int>(gnCameraCount);
        (*gpCameraMap)[gnCameraCount] = this;
        ++gnCameraCount;
        // The logger's number is the count of cameras, so always the handle + 1.
        mLog.SetTag(("VXCAM" + std::to_string(gnCameraCount)).c_str());
    }
    if (monitor == teMonitor::eManual) return;
    mbMonitorRunning = true;
    mMonitorThread = std::thread(&tcVXCamera::DispatchMonitorStackThread, this);
}

tcVXCamera::~tcVXCamera()
{
    {
        std::unique_lock<std::shared_mutex> lock(RegistryMutex());
        gpCameraMap->erase(static_cast<unsigned>(mnHandle));
    }
    StopMonitor();
}

int tcVXCamera::SetHeartBeatCallback(tpHeartBeatCallback callback)
{
    mpHeartBeatCallback = callback;
    return eVXOk;
}

int tcVXCamera::SetErrorCallback(tpErrorCallback callback)
{
    mpErrorCallback = callback;
    return eVXOk;
}

int tcVXCamera::SetUserDefinedCallback(tpUserDefinedCallback callback)
{
    mpUserDefinedCallback = callback;
    return eVXOk;
}

int tcVXCamera::SetImageDataCallback(tpImageDataCallback callback)
{
    mpImageDataCallback = callback;
    return eVXOk;
}

int tcVXCamera::Initialize()
{
    TVXCameraHardware info{};
    int size = sizeof info;
    if (GetCameraHardwareInfo(&info, &size) != eVXOk) return 0;
    if (!mbGeometryKnown) return 1;

    std::lock_guard<std::recursive_mutex> lock(mStackMutex);
    const uint32_t rows = mnRows, columns = mnColumns;
    const size_t pixels = static_cast<size_t>(rows) * columns;
    // Memory that the system hands out only when an image is stored in it.
    auto* buffer = static_cast<uint32_t*>(calloc(std::max<size_t>(pixels, 1), sizeof(uint32_t)));
    if (buffer == nullptr) {
        mLog.logError("tcVXCamera::Initialize no memory for an image of %u x %u", columns, rows);
        return 0;
    }
    for (int index : {eItemImage16, eItemImage32}) {
        void*& target = maItems[index].result1;
        if (target == mpDefaultBuffer.get()) target = buffer;
    }
    mpDefaultBuffer.reset(buffer);
    mnDefaultPixels = pixels;
    return 1;
}
