#include "tcTriggerHook.h"

#include "failure.h"
#include "interrupt.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <exception>
#include <system_error>
#include <utility>

namespace {

using tpClock = std::chrono::steady_clock;

constexpr char gnActive = '1', gnInactive = '0';
constexpr const char* gsDone = "done";
constexpr int gnBacklog = 16;
constexpr int gnPoll = 50; // ms
constexpr size_t gnLongestAnswer = 1000;
constexpr std::chrono::seconds gnPatience{10};

int NewSocket()
{
    return ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
}

// Of a long name the end counts: there is the port.
socklen_t MakeAddress(const std::string& camera, sockaddr_un* address)
{
    const std::string start = "vxcam-trigger-" + std::to_string(::geteuid()) + "-";
    const size_t room = sizeof address->sun_path - 1 - start.size();
    const std::string name = start + camera.substr(camera.size() - std::min(camera.size(), room));
    address->sun_family = AF_UNIX;
    address->sun_path[0] = '\0';
    name.copy(address->sun_path + 1, name.size());
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
}

template <class Call>
bool WithAddress(const std::string& camera, const Call& call)
{
    sockaddr_un address{};
    const socklen_t length = MakeAddress(camera, &address);
    return call(reinterpret_cast<const sockaddr*>(&address), length) == 0;
}

// Anybody may take such a name, and connect to it.
bool IsOfThisUser(int connection)
{
    ucred peer{};
    socklen_t length = sizeof peer;
    return ::getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 &&
           peer.uid == ::geteuid();
}

} // namespace

tcTriggerHook::tcTriggerHook(const std::string& camera, std::function<void(bool)> set)
    : mSet(std::move(set)), mhListening(NewSocket()), mhStop(::eventfd(0, EFD_CLOEXEC))
{
    const auto bind = [this](const sockaddr* address, socklen_t length) {
        return ::bind(mhListening, address, length);
    };
    if (mhStop < 0 || !WithAddress(camera, bind) || ::listen(mhListening, gnBacklog) != 0) return;
    try {
        mThread = std::thread([this] { Serve(); });
    } catch (const std::system_error&) {
        ::close(mhListening); // so that callers are refused
        mhListening = -1;
    }
}

tcTriggerHook::~tcTriggerHook()
{
    const uint64_t one = 1;
    if (mThread.joinable() && ::write(mhStop, &one, sizeof one) == sizeof one) mThread.join();
    if (mhListening >= 0) ::close(mhListening);
    if (mhStop >= 0) ::close(mhStop);
}

// False when it is time to stop.
bool tcTriggerHook::WaitFor(int descriptor) const
{
    pollfd states[] = {{mhStop, POLLIN, 0}, {descriptor, POLLIN, 0}};
    while (::poll(states, 2, -1) < 0) {
        if (errno != EINTR) return false;
    }
    return states[0].revents == 0;
}

void tcTriggerHook::Serve()
{
    while (WaitFor(mhListening)) {
        const int client = ::accept4(mhListening, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) {
            pollfd stop{mhStop, POLLIN, 0}; // there may be no descriptor left for a while
            ::poll(&stop, 1, gnPoll);
            continue;
        }
        if (IsOfThisUser(client)) ServeOne(client);
        ::close(client);
    }
}

void tcTriggerHook::ServeOne(int client)
{
    bool isActive = false;
    char asked = 0;
    while (WaitFor(client) && ::recv(client, &asked, 1, 0) == 1) {
        const std::string answer = Answer(asked == gnActive);
        if (answer == gsDone) isActive = asked == gnActive;
        const int flags = MSG_NOSIGNAL | MSG_DONTWAIT;
        if (::send(client, answer.data(), answer.size(), flags) < 0) break;
    }
    if (isActive) Answer(false);
}

std::string tcTriggerHook::Answer(bool active)
{
    try {
        mSet(active);
        return gsDone;
    } catch (const std::exception& error) {
        return std::string(error.what()).substr(0, gnLongestAnswer);
    }
}

tcTriggerCall::tcTriggerCall(const std::string& camera) : msCamera(camera), mhSocket(NewSocket())
{
    const auto connect = [this](const sockaddr* address, socklen_t length) {
        return ::connect(mhSocket, address, length);
    };
    if (mhSocket >= 0 && WithAddress(camera, connect) && IsOfThisUser(mhSocket)) return;
    if (mhSocket >= 0) ::close(mhSocket);
    throw tcFailure(eExitNoCamera, camera + ": no vxcam grab of yours reads this camera out");
}

tcTriggerCall::~tcTriggerCall()
{
    ::close(mhSocket);
}

void tcTriggerCall::Set(bool active)
{
    const char asked = active ? gnActive : gnInactive;
    bool isSent = ::send(mhSocket, &asked, 1, MSG_NOSIGNAL) == 1;
    const auto deadline = tpClock::now() + gnPatience;
    while (isSent && tpClock::now() < deadline) {
        ThrowIfInterrupted();
        pollfd state{mhSocket, POLLIN, 0};
        if (::poll(&state, 1, gnPoll) <= 0) continue;
        char text[gnLongestAnswer];
        const ssize_t length = ::recv(mhSocket, text, sizeof text, 0);
        const std::string answer(text, static_cast<size_t>(std::max<ssize_t>(length, 0)));
        if (answer == gsDone) return;
        if (!answer.empty()) throw tcFailure(eExitCamera, answer);
        isSent = false;
    }
    throw tcFailure(eExitTimeout, msCamera + (isSent ? ": its vxcam grab does not answer"
                                                     : ": its vxcam grab has ended"));
}
