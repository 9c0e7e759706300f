#include "wire/block_file.h"

#include <vxcamkit/error.h>
#include <vxcamkit/new_file.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace vxcam {

namespace {

WriterLock newFile(const std::string& path, bool force)
{
    checkNewFile(path, force);
    if (force) removeOldFile(path);
    return WriterLock(path, O_CREAT | O_EXCL);
}

} // namespace

BlockFile::BlockFile(const std::string& path, bool force, const void* head, size_t count)
    : path_(path), file_(newFile(path, force)), writer_(path, file_.descriptor()), tailBytes_(count)
{
    std::memcpy(tail_.data(), head, count);
    writer_.writePlainly(0, tail_.data(), count);
}

void BlockFile::append(FileBytes* bytes, size_t end)
{
    std::memcpy(bytes->data(), tail_.data(), tailBytes_);
    try {
        writer_.write(written_, bytes->data(), end);
    } catch (const Error&) {
        // What the system keeps of the last bytes is no matter any more.
        [[maybe_unused]] const int ignored =
            ::ftruncate(file_.descriptor(), static_cast<off_t>(size()));
        throw;
    }
    const size_t whole = end / kAlignment * kAlignment;
    written_ += whole;
    tailBytes_ = end - whole;
    std::memcpy(tail_.data(), bytes->data() + whole, tailBytes_);
}

void BlockFile::sync()
{
    if (::fdatasync(file_.descriptor()) != 0 && errno != EINVAL) {
        throw Error(ErrorKind::File, path_ + ": " + std::strerror(errno), errno);
    }
}

} // namespace vxcam
