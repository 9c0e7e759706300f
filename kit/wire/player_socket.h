// A socket of a WirePlayer.
#ifndef VXCAMKIT_PLAYER_SOCKET_H
#define VXCAMKIT_PLAYER_SOCKET_H

#include <unistd.h>

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

private:
    int descriptor_ = -1;
};

} // namespace vxcam

#endif
