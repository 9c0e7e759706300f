// Life of a camera: registry, construction, callbacks, opening handshake, destruction.
#include "tcVXCamera.h"
#include "cam_handler.h"
#include "tcExtension.h"

#include <algorithm>
#include <new>
#include <string>

// What guards the map of cameras, and what is known of those that leave it. Never destroyed:
// threads may still look cameras up while the process exits.
struct tcVXCamera::tsRegistry {
    std::mutex mutex;
    std::condition_variable released; // a camera that is being closed

    static tsRegistry& Instance()
    {
        static auto* registry = new tsRegistry;
        return *registry;
    }

    // The camera with that handle, or null; also null while it is being opened or closed.
    static tcVXCamera* FindOpen(int handle)
    {
        if (gpCameraMap == nullptr) return nullptr;
        const auto entry = gpCameraMap->find(static_cast<unsigned>(handle));
        if (entry == gpCameraMap->end() || entry->second == nullptr) return nullptr;
        return entry->second->mbOpening ? nullptr : entry->second;
    }

    // Whether the receive thread of one camera waits until the other is closed, by way of others.
    static bool WaitsFor(const tcVXCamera& camera, const tcVXCamera& other)
    {
        const tcVXCamera* next = camera.mpClosing;
        while (next != nullptr && next != &other) {
            next = next->mpClosing;
        }
        return next != nullptr;
    }
};

static thread_local bool tbOpening = false; // this thread makes cameras that are not open yet

std::map<unsigned, tcVXCamera*>* tcVXCamera::gpCameraMap = nullptr;
unsigned tcVXCamera::gnCameraCount = 0;
unsigned tcVXCamera::DllVersion = 0;
std::atomic<tpErrorCallback> tcVXCamera::spGlobalErrorMsgCallBack{nullptr};

tcVXCamera* tcVXCamera::Find(int handle)
{
    std::lock_guard<std::mutex> lock(tsRegistry::Instance().mutex);
    if (gpCameraMap == nullptr) return nullptr;
    auto entry = gpCameraMap->find(static_cast<unsigned>(handle));
    return entry == gpCameraMap->end() ? nullptr : entry->second;
}

tcVXCamera::tcHold::tcHold(int handle)
{
    std::lock_guard<std::mutex> lock(tsRegistry::Instance().mutex);
    mpCamera = tsRegistry::FindOpen(handle);
    if (mpCamera != nullptr) ++mpCamera->mnHolds;
}

tcVXCamera::tcHold::~tcHold()
{
    if (mpCamera == nullptr) return;
    tsRegistry& registry = tsRegistry::Instance();
    std::lock_guard<std::mutex> lock(registry.mutex);
    if (--mpCamera->mnHolds == 0 && mpCamera->mbClosing) registry.released.notify_all();
}

std::vector<int> tcVXCamera::Handles()
{
    std::vector<int> handles;
    std::lock_guard<std::mutex> lock(tsRegistry::Instance().mutex);
    if (gpCameraMap == nullptr) return handles;
    for (const auto& [handle, camera] : *gpCameraMap) {
        if (camera != nullptr && !camera->mbOpening) handles.push_back(static_cast<int>(handle));
    }
    return handles;
}

// Under the registry's mutex a camera that is in the map is not destroyed, not even by an owner who
// knows of no holds, beyond what its transport adds to it.
bool tcVXCamera::Describe(int handle, tsCameraFacts* facts)
{
    std::lock_guard<std::mutex> lock(tsRegistry::Instance().mutex);
    const tcVXCamera* camera = tsRegistry::FindOpen(handle);
    if (camera == nullptr) return false;
    facts->type = camera->msLinkType;
    facts->address = camera->msLinkAddress;
    facts->link = camera->mpLinkState;
    facts->figures = camera->mpLedger->Read();
    return true;
}

void tcVXCamera::SetLink(const char* type, const std::string& address)
{
    std::lock_guard<std::mutex> lock(tsRegistry::Instance().mutex);
    msLinkType = type;
    msLinkAddress = address;
}

int tcVXCamera::Close(int handle)
{
    tsRegistry& registry = tsRegistry::Instance();
    std::unique_lock<std::mutex> lock(registry.mutex);
    tcVXCamera* camera = tsRegistry::FindOpen(handle);
    if (camera == nullptr) return eVXNoCamera;
    tcVXCamera* caller = CallingCamera();
    if (camera->OnReceiveThread() || (caller != nullptr && registry.WaitsFor(*camera, *caller))) {
        lock.unlock();
        camera->mLog.logError("%s would wait for the thread it was called on", "VXCloseCamera");
        return eVXFailed;
    }
    gpCameraMap->erase(static_cast<unsigned>(handle));
    if (caller != nullptr) caller->mpClosing = camera;
    camera->mpCloser = caller;
    camera->mbClosing = true;
    lock.unlock();
    camera->Interrupt();
    camera->TellMonitorToStop();
    camera->GiveUpAll();
    lock.lock();
    registry.released.wait(lock, [camera] { return camera->mnHolds == 0; });
    lock.unlock();
    delete camera;
    return eVXOk;
}

tcVXCamera::tcOpening::tcOpening()
{
    tbOpening = true;
}

tcVXCamera::tcOpening::~tcOpening()
{
    tbOpening = false;
}

void tcVXCamera::Opened()
{
    std::lock_guard<std::mutex> lock(tsRegistry::Instance().mutex);
    mbOpening = false;
}

int tcVXCamera::GetVersion()
{
    constexpr unsigned version = 0x00030007;
    __atomic_store_n(&DllVersion, version, __ATOMIC_RELAXED); // applications see a plain number
    return static_cast<int>(version);
}

int tcVXCamera::SetGlobalErrorCallback(tpErrorCallback callback)
{
    spGlobalErrorMsgCallBack = callback;
    return eVXOk;
}

tcVXCamera::tcVXCamera(teMonitor monitor)
    : mpParser(std::make_unique<tcCamParser>(nullptr, gnLargestMessage, false)),
      mpExtension(std::make_unique<tsExtension>()), mpLedger(std::make_unique<tcLedger>())
{
    if (mpParser->ResetParser(nullptr, gnLargestMessage) == 0) throw std::bad_alloc(); // no buffer
    mpParser->RegisterCallback(&tcVXCamera::DispatchCallbackParser, this);
    mpExtension->regions.reserve(gnAreaRegions);
    EnterRegistry();
    if (monitor == teMonitor::eManual) return;
    try {
        mbMonitorRunning = true;
        mMonitorThread = std::thread(&tcVXCamera::DispatchMonitorStackThread, this);
    } catch (...) {
        LeaveRegistry();
        throw;
    }
}

tcVXCamera::~tcVXCamera()
{
    LeaveRegistry();
    StopMonitor();
}

void tcVXCamera::EnterRegistry()
{
    std::lock_guard<std::mutex> lock(tsRegistry::Instance().mutex);
    mbOpening = tbOpening;
    if (gpCameraMap == nullptr) {
        gpCameraMap = new std::map<unsigned, tcVXCamera*>;
        gnCameraCount = 0;
    }
    mLog.ShowControlCharacters(); // of texts that the camera sends
    // The logger's number is the count of cameras, so always the handle + 1.
    mLog.SetTag(("VXCAM" + std::to_string(gnCameraCount + 1)).c_str());
    (*gpCameraMap)[gnCameraCount] = this;
    mnHandle = static_cast<int>(gnCameraCount++);
}

void tcVXCamera::LeaveRegistry()
{
    std::lock_guard<std::mutex> lock(tsRegistry::Instance().mutex);
    gpCameraMap->erase(static_cast<unsigned>(mnHandle));
    if (mpCloser != nullptr) mpCloser->mpClosing = nullptr;
    mpCloser = nullptr;
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

// The connection ended before the camera answered.
void tcVXCamera::EndHandshake(const char* lastWords)
{
    mLog.logError("tcVXCamera::Initialize the camera ended the connection%s%s",
                  lastWords[0] != '\0' ? ": " : "", lastWords);
    tsRequestItem& item = maItems[eItemHardware];
    if (item.IsPending()) GiveUpItem(item, eNotSent);
}

int tcVXCamera::Initialize()
{
    TVXCameraHardware info{};
    int size = sizeof info;
    if (GetCameraHardwareInfo(&info, &size) != eVXOk) return 0;
    RegisterCamHandler();
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
    mtDefaultLimits = {true, rows, columns, pixels};
    return 1;
}
