#include "http/caller.h"

#include <arpa/inet.h>
#include <chrono>
#include <netinet/in.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace vxcam {

namespace {

constexpr std::chrono::milliseconds kBetweenCalls{20};

void call(const sockaddr_in& there)
{
    const int client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (client < 0) return;
    (void)::connect(client, reinterpret_cast<const sockaddr*>(&there), sizeof there);
    ::close(client);
}

} // namespace

Caller::Caller(const std::string& address, int port)
{
    sockaddr_in there{};
    there.sin_family = AF_INET;
    there.sin_port = htons(static_cast<uint16_t>(port));
    if (::inet_pton(AF_INET, address.c_str(), &there.sin_addr) != 1) return;
    try {
        thread_ = std::thread([this, there] {
            while (!isEnding_) {
                call(there);
                std::this_thread::sleep_for(kBetweenCalls);
            }
        });
    } catch (const std::system_error&) {
        return;
    }
}

Caller::~Caller()
{
    isEnding_ = true;
    if (thread_.joinable()) thread_.join();
}

} // namespace vxcam
