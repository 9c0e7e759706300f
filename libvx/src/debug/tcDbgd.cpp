#include "tcDbgd.h"

#include "background.h"
#include "dbgdserver.h"
#include "tcLog.h"
#include "vxenvironment.h"
#include "vxundying.h"

#include <sys/auxv.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

// Null where nobody defines it.
#pragma weak VXNoDebugServices

tcDbgd* tcDbgd::mpDbgd = nullptr;
char const* tcDbgd::spLoadableModulePath = nullptr;
std::atomic<bool> tcDbgd::sbHeedsOptOut{true};
std::atomic<int> tcDbgd::snAnnounceInterval{5000};
std::atomic<int> tcDbgd::snClientPatience{10000};
std::atomic<int> tcDbgd::snReplyPatience{2000};
std::atomic<int> tcDbgd::snRetrySecond{1000};

namespace {

constexpr unsigned short nDefaultPort = 17020;
constexpr int nRemovalWaitMs = 1000;
constexpr int nStopWaitMs = 1000;

// Guards mpDbgd. Recursive, since modules that are loaded while the daemon is built ask for it.
std::recursive_mutex& SingletonLock()
{
    static vx::tcUndying<std::recursive_mutex> room;
    static std::recursive_mutex& lock = room.Make();
    return lock;
}

// What cannot be had is done without.
template <typename tStep>
void WithoutThrowing(tStep step)
{
    try {
        step();
    } catch (std::exception const& failure) {
        vx::ReportFailure(failure.what());
    }
}

bool IsOptedOut()
{
    return &VXNoDebugServices && VXNoDebugServices != 0;
}

} // namespace

tcDbgdWB::tcDbgdWB(const char* token, const char* help)
    : msToken(token ? token : ""), msHelp(help ? help : "")
{}

tcDbgdWB::~tcDbgdWB() = default;

tcDbgd::tcHeldWB::tcHeldWB(std::shared_ptr<tcRegistry> registry, tcDbgdWB* handler)
    : mpRegistry(std::move(registry)), mpHandler(handler)
{}

tcDbgd::tcHeldWB::tcHeldWB(tcHeldWB&& other) noexcept
    : mpRegistry(std::move(other.mpRegistry)), mpHandler(other.mpHandler)
{
    other.mpHandler = nullptr;
}

tcDbgd::tcHeldWB::~tcHeldWB()
{
    if (mpHandler) mpRegistry->Release(mpHandler);
}

tcDbgd::tcDbgd() : mpRegistry(new tcRegistry), mnPort(nDefaultPort), msName("DBGD")
{
    const std::lock_guard<std::recursive_mutex> guard(SingletonLock());
    mpDbgd = this;
    WithoutThrowing([this] {
        LoadModules();
        StartServer();
    });
}

tcDbgd::~tcDbgd()
{
    {
        const std::lock_guard<std::recursive_mutex> guard(SingletonLock());
        if (mpDbgd == this) mpDbgd = nullptr;
    }
    if (mpServer && !mpServer->HasEnded()) StopServer();
    mpRegistry->Clear();
}

tcDbgd* tcDbgd::getItem()
{
    tcDbgd* found = nullptr;
    WithoutThrowing([&found] {
        const std::lock_guard<std::recursive_mutex> guard(SingletonLock());
        if (!mpDbgd) new tcDbgd; // sets mpDbgd
        found = mpDbgd;
    });
    return found;
}

extern "C" tcDbgd* DbgdPointer()
{
    return tcDbgd::getItem();
}

void tcDbgd::StartServer()
{
    if (vx::Variable("DBGD_DISABLE") || (sbHeedsOptOut && IsOptedOut())) return;
    const std::lock_guard<std::mutex> guard(mhServerLock);
    if (mpServer && !mpServer->HasEnded()) {
        if (!mpServer->IsStopping()) return;
        mpServer->WaitEnded(nStopWaitMs);
    }
    WithoutThrowing([this] {
        GetLog().logDebug(1, "tcDbgd::StartServer, spawning the Dbgd Server");
        const tsServerSettings settings(mnPort);
        mnPort = settings.mnPort;
        mpServer = std::make_shared<tcServer>(settings, mpRegistry, msName);
        mpServer->Start();
    });
}

void tcDbgd::StopServer()
{
    WithoutThrowing(
        [] { GetLog().logDebug(1, "tcDbgd::StopServer, shutting down the Dbgd Server"); });
    const std::lock_guard<std::mutex> guard(mhServerLock);
    if (mpServer) mpServer->Stop();
}

int tcDbgd::RegisterWB(tcDbgdWB* handler)
{
    if (!handler) return -1;
    bool isRegistered = false;
    WithoutThrowing([&] {
        isRegistered = mpRegistry->Add(handler);
        if (isRegistered) {
            GetLog().logDebug(1, "tcDbgd::RegisterWB registered %s token handler",
                              handler->msToken.c_str());
        } else {
            GetLog().logError("tcDbgd::RegisterWB unable to register %s token handler",
                              handler->msToken.c_str());
        }
    });
    return isRegistered ? 0 : -1;
}

int tcDbgd::RemoveWB(tcDbgdWB* handler)
{
    if (!handler) return -1;
    // Kept: the entry of the token goes, whichever handler stands there.
    const bool isRemoved = mpRegistry->Remove(handler->msToken);
    WithoutThrowing([=] {
        if (isRemoved) {
            GetLog().logDebug(1, "tcDbgd::RemoveWB removing %s token handler",
                              handler->msToken.c_str());
        } else {
            GetLog().logError("tcDbgd::RemoveWB unable to remove %s token handler",
                              handler->msToken.c_str());
        }
    });
    if (!isRemoved) return -1;
    mpRegistry->WaitUnused(handler, nRemovalWaitMs);
    return 0;
}

bool tcDbgd::Trusts(HSocket* client)
{
    if (getauxval(AT_SECURE) != 0) return false;
    if (!client || vx::IsWithinHost(*client)) return true;
    std::shared_ptr<tcServer> server;
    {
        const std::lock_guard<std::mutex> guard(mhServerLock);
        server = mpServer;
    }
    if (server) return server->Trusts(*client);
    const unsigned int peer = client->GetRemoteIP();
    return peer != 0 && vx::IsOfThisHost(peer);
}

tcDbgd::tcHeldWB tcDbgd::Hold(const std::shared_ptr<tcRegistry>& registry, char const* token)
{
    GetLog().logDebug(1, "tcDbgd::GetWB looking for %s ,length = %d", token,
                      static_cast<int>(std::strlen(token)));
    tcHeldWB found(registry, registry->Hold(token));
    if (found)
        GetLog().logDebug(1, "tcDbgd::GetWB found worker bee for %s", token);
    else
        GetLog().logDebug(1, "tcDbgd::GetWB didn't find %s", token);
    return found;
}

tcDbgd::tcHeldWB tcDbgd::HoldWB(char const* token)
{
    try {
        return Hold(mpRegistry, token ? token : "");
    } catch (std::exception const& failure) {
        vx::ReportFailure(failure.what());
        return tcHeldWB(mpRegistry, nullptr);
    }
}

tcDbgdWB* tcDbgd::GetWB(char const* token)
{
    return HoldWB(token).mpHandler;
}

std::string tcDbgd::List()
{
    std::string list;
    WithoutThrowing([&] { list = mpRegistry->List(); });
    return list;
}

unsigned short tcDbgd::GetPort() const
{
    const std::lock_guard<std::mutex> guard(mhServerLock);
    return mpServer ? mpServer->GetPort() : 0;
}

tcLog& tcDbgd::GetLog()
{
    static tcLog& log = []() -> tcLog& {
        tcLog& made = *new tcLog("dbgd", "Debug", 0);
        made.ShowControlCharacters(); // of requests
        return made;
    }();
    return log;
}

bool tcDbgd::tcRegistry::Add(tcDbgdWB* handler)
{
    const std::lock_guard<std::mutex> guard(mhLock);
    return mmHandlers.emplace(handler->msToken, handler).second;
}

bool tcDbgd::tcRegistry::Remove(const std::string& token)
{
    const std::lock_guard<std::mutex> guard(mhLock);
    return mmHandlers.erase(token) != 0;
}

bool tcDbgd::tcRegistry::IsUsedElsewhere(tcDbgdWB* handler) const
{
    const auto uses = mmUses.equal_range(handler);
    return std::any_of(uses.first, uses.second,
                       [](const auto& use) { return !pthread_equal(use.second, pthread_self()); });
}

bool tcDbgd::tcRegistry::WaitUnused(tcDbgdWB* handler, int waitMs)
{
    std::unique_lock<std::mutex> guard(mhLock);
    return mReleased.wait_for(guard, std::chrono::milliseconds(waitMs),
                              [&] { return !IsUsedElsewhere(handler); });
}

tcDbgdWB* tcDbgd::tcRegistry::Hold(const std::string& token)
{
    const std::lock_guard<std::mutex> guard(mhLock);
    const auto entry = mmHandlers.find(token);
    if (entry == mmHandlers.end()) return nullptr;
    mmUses.emplace(entry->second, pthread_self());
    return entry->second;
}

void tcDbgd::tcRegistry::Release(tcDbgdWB* handler)
{
    const std::lock_guard<std::mutex> guard(mhLock);
    const auto uses = mmUses.equal_range(handler);
    const auto own = std::find_if(uses.first, uses.second, [](const auto& use) {
        return pthread_equal(use.second, pthread_self());
    });
    if (own != uses.second) mmUses.erase(own);
    mReleased.notify_all();
}

std::string tcDbgd::tcRegistry::List() const
{
    const std::lock_guard<std::mutex> guard(mhLock);
    std::string text = "Available Tokens:\n";
    for (const auto& entry : mmHandlers)
        text.append("\t").append(entry.first).append("\n");
    return text;
}

void tcDbgd::tcRegistry::Clear()
{
    const std::lock_guard<std::mutex> guard(mhLock);
    mmHandlers.clear();
}
