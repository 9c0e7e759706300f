#include "vxoutlet.h"

#include "vxdescriptors.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>

namespace {

bool MayNotGrow()
{
    rlimit limit;
    return getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur != RLIM_INFINITY;
}

// Opening the side of a pseudo terminal that its program holds makes another one.
bool IsMultiplexer(const struct stat& status)
{
    constexpr unsigned multiplexer = 5, itsNumber = 2;
    return major(status.st_rdev) == multiplexer && minor(status.st_rdev) == itsNumber;
}

int Milliseconds(vx::tcOutlet::tDeadline deadline)
{
    using namespace std::chrono;
    const auto left = ceil<milliseconds>(deadline - steady_clock::now());
    return static_cast<int>(std::clamp<long>(left.count(), 0, 1000));
}

// Whether it has any, or is broken, before the deadline.
bool HasRoom(int descriptor, vx::tcOutlet::tDeadline deadline)
{
    pollfd room{descriptor, POLLOUT, 0};
    return poll(&room, 1, Milliseconds(deadline)) != 0;
}

} // namespace

vx::tcOutlet::tcOutlet(int descriptor) : mhDescriptor(descriptor)
{
    struct stat status;
    if (fstat(descriptor, &status) != 0) return;
    if (S_ISSOCK(status.st_mode)) {
        meWay = eSend;
    } else if (S_ISFIFO(status.st_mode)) {
        mQuiet.emplace();
        meWay = eWriteNow;
    } else if (S_ISCHR(status.st_mode) && isatty(descriptor)) {
        mQuiet.emplace();
        meWay = eAskFirst;
        if (!IsMultiplexer(status)) OpenAgain();
    } else if (S_ISREG(status.st_mode) && MayNotGrow()) {
        mQuiet.emplace();
    }
}

vx::tcOutlet::~tcOutlet()
{
    if (mhOwn >= 0) close(mhOwn);
}

void vx::tcOutlet::OpenAgain()
{
    char path[32];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", mhDescriptor);
    const tcAboveStandard above;
    mhOwn = open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    meWay = mhOwn < 0 ? eAskFirst : eWrite;
    if (mhOwn >= 0) mhDescriptor = mhOwn;
}

ssize_t vx::tcOutlet::WriteNow(std::string_view text)
{
    iovec piece{const_cast<char*>(text.data()), text.size()};
    const ssize_t written = pwritev2(mhDescriptor, &piece, 1, -1, RWF_NOWAIT);
    if (written >= 0 || (errno != EOPNOTSUPP && errno != ENOSYS && errno != EINVAL)) return written;
    OpenAgain();
    errno = EINTR; // to be tried again
    return -1;
}

ssize_t vx::tcOutlet::WriteSome(std::string_view text, tDeadline deadline)
{
    text = text.substr(0, PIPE_BUF); // a pipe takes so much whole or not at all
    switch (meWay) {
    case eSend:
        return send(mhDescriptor, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    case eWriteNow:
        return WriteNow(text);
    case eAskFirst:
        if (HasRoom(mhDescriptor, deadline)) break;
        errno = EAGAIN;
        return -1;
    case eWrite:
        break;
    }
    return write(mhDescriptor, text.data(), text.size());
}

size_t vx::tcOutlet::Write(std::string_view text, tDeadline deadline)
{
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = WriteSome(text.substr(done), deadline);
        if (written > 0) {
            done += static_cast<size_t>(written);
        } else if (written == 0 || (errno != EAGAIN && errno != EINTR)) {
            break;
        } else if (errno == EAGAIN) {
            if (Milliseconds(deadline) == 0) break;
            HasRoom(mhDescriptor, deadline);
        }
    }
    if (mQuiet && done < text.size()) mQuiet->MayHaveFailed();
    return done;
}
