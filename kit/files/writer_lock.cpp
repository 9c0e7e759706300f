#include "files/writer_lock.h"

#include <vxcamkit/error.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace vxcam {

namespace {

// Of the whole file. It belongs to the open file, not to the process: libraries that open and close
// the same file do not end it.
struct flock wholeFile()
{
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    return whole;
}

[[noreturn]] void refuse(const std::string& path, int error)
{
    throw Error(ErrorKind::File, path + ": " + std::strerror(error), error);
}

[[noreturn]] void refuseWritten(const std::string& path)
{
    throw Error(ErrorKind::File, path + ": is being written by somebody else", EBUSY);
}

} // namespace

WriterLock::WriterLock(const std::string& path, int flags)
{
    descriptor_ = ::open(path.c_str(), O_RDWR | O_CLOEXEC | flags, 0666);
    if (descriptor_ < 0) refuse(path, errno);
    struct flock whole = wholeFile();
    const bool isTaken =
        ::fcntl(descriptor_, F_OFD_SETLK, &whole) != 0 && (errno == EAGAIN || errno == EACCES);
    struct stat status {};
    // Before it was locked, it may have had to make room for another one.
    const bool isGone = ::fstat(descriptor_, &status) == 0 && status.st_nlink == 0;
    if (!isTaken && !isGone) return;
    ::close(descriptor_);
    refuseWritten(path);
}

WriterLock::~WriterLock()
{
    if (descriptor_ >= 0) ::close(descriptor_);
}

WriterLock::WriterLock(WriterLock&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1))
{}

WriterLock& WriterLock::operator=(WriterLock&& other) noexcept
{
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

bool isBeingWritten(const std::string& path)
{
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) return false;
    struct flock whole = wholeFile();
    const bool isLocked = ::fcntl(descriptor, F_OFD_GETLK, &whole) == 0 && whole.l_type == F_WRLCK;
    ::close(descriptor);
    return isLocked;
}

void removeOldFile(const std::string& path)
{
    if (isBeingWritten(path)) refuseWritten(path);
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) refuse(path, errno);
}

} // namespace vxcam
