#include "vxdescriptors.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

namespace {

constexpr int nStandard = 3; // input, output, error

std::mutex sMutex;
int snUsers = 0;
bool sabTaken[nStandard];

void TakeClosedOnes()
{
    for (int i = 0; i < nStandard; ++i) {
        if (fcntl(i, F_GETFD) >= 0) continue;
        const int descriptor = open("/", O_PATH | O_CLOEXEC);
        if (descriptor >= nStandard) close(descriptor);
        if (descriptor >= 0 && descriptor < nStandard) sabTaken[descriptor] = true;
    }
}

// But not what the host has put there since.
void GiveBack()
{
    for (int i = 0; i < nStandard; ++i) {
        if (!sabTaken[i]) continue;
        sabTaken[i] = false;
        const int flags = fcntl(i, F_GETFL);
        if (flags >= 0 && (flags & O_PATH) != 0) close(i);
    }
}

} // namespace

vx::tcAboveStandard::tcAboveStandard()
{
    const int error = errno;
    const std::lock_guard<std::mutex> lock(sMutex);
    ++snUsers;
    TakeClosedOnes();
    errno = error;
}

vx::tcAboveStandard::~tcAboveStandard()
{
    const int error = errno;
    const std::lock_guard<std::mutex> lock(sMutex);
    if (--snUsers == 0) GiveBack();
    errno = error;
}

int vx::OpenSocket(int domain, int type)
{
    const tcAboveStandard above;
    return socket(domain, type | SOCK_CLOEXEC, 0);
}

std::FILE* vx::OpenFile(const char* path, const char* mode)
{
    const tcAboveStandard above;
    return std::fopen(path, mode);
}
