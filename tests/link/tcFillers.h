#ifndef TCFILLERS_H
#define TCFILLERS_H

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <vector>

// Connections that fill a listener's backlog, so that it takes no notice of further ones, which is
// what a host does that drops packets.
class tcFillers
{
public:
    tcFillers(uint16_t port, int count)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        for (int i = 0; i < count; ++i) {
            const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
            (void)connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address);
            mvDescriptors.push_back(descriptor);
        }
    }
    ~tcFillers()
    {
        for (int descriptor : mvDescriptors)
            close(descriptor);
    }
    tcFillers(const tcFillers&) = delete;
    tcFillers& operator=(const tcFillers&) = delete;

private:
    std::vector<int> mvDescriptors;
};

#endif
