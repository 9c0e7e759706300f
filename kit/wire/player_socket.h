// A socket of a WirePlayer.
#ifndef VXCAMKIT_PLAYER_SOCKET_H
#define VXCAMKIT_PLAYER_SOCKET_H

#include <sys/uio.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vxcam {

// An open socket, or -1.
class PlayerSocket
{
public:
    PlayerSocket() = default;
    ~PlayerSocket() { reset(-1); }
    PlayerSocket(const PlayerSocket&) = delete;
    PlayerSocket& operator=(const PlayerSocket&) = delete;

    int get() const { return descriptor_; }
    bool isOpen() const { return descriptor_ >= 0; }
    void reset(int descriptor)
    {
        if (descriptor_ >= 0) ::close(descriptor_);
        descriptor_ = descriptor;
    }

    // Listens on loopback. The port that it has; 0 takes a free one. Throws Error{Busy}.
    uint16_t listen(uint16_t port);
    // Sends what is taken at once of these pieces, from the first that is left on. False when that
    // is nothing, and errno says why.
    bool send(std::vector<iovec>* pieces, size_t* first);

private:
    int descriptor_ = -1;
};

} // namespace vxcam

#endif
