// Descriptors of the host's that are written to without waiting, private to the library.
#ifndef VX_OUTLET_H
#define VX_OUTLET_H

#include "vxsignals.h"

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string_view>

namespace vx {

// The flags of the host's descriptor are the host's. Sockets and, with kernels of late, pipes have
// flags for each call; a terminal, and a pipe otherwise, is opened once more. Where that cannot be
// done it is asked whether there is room. Files on a disk and other devices take what they are
// given. No signal is raised.
class tcOutlet
{
public:
    using tDeadline = std::chrono::steady_clock::time_point;

    explicit tcOutlet(int descriptor);
    ~tcOutlet();
    tcOutlet(const tcOutlet&) = delete;
    tcOutlet& operator=(const tcOutlet&) = delete;

    // How much of the text was written before the deadline, which may have passed already.
    size_t Write(std::string_view text, tDeadline deadline);

private:
    enum teWay { eWrite, eSend, eWriteNow, eAskFirst };

    ssize_t WriteSome(std::string_view text, tDeadline deadline);
    ssize_t WriteNow(std::string_view text);
    void OpenAgain();

    int mhDescriptor;
    int mhOwn = -1; // the same opened again
    teWay meWay = eWrite;
    std::optional<tcNoWriteSignals> mQuiet;
};

} // namespace vx

#endif
