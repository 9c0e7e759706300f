#include "files/direct_writer.h"

#include <vxcamkit/error.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace vxcam {

namespace {

constexpr size_t kPiece = size_t{8} << 20U;

} // namespace

DirectWriter::DirectWriter(std::string path, int descriptor)
    : path_(std::move(path)), plain_(descriptor),
      direct_(::open(path_.c_str(), O_WRONLY | O_CLOEXEC | O_DIRECT))
{}

DirectWriter::~DirectWriter()
{
    if (direct_ >= 0) ::close(direct_);
}

void DirectWriter::writeWith(int descriptor, uint64_t at, const char* bytes, size_t count)
{
    while (count > 0) {
        const ssize_t written =
            ::pwrite(descriptor, bytes, std::min(count, kPiece), static_cast<off_t>(at));
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) {
            const int why = written < 0 ? errno : EIO; // none would be written for ever
            throw Error(ErrorKind::File, path_ + ": " + std::strerror(why), why);
        }
        // A disk that is full may take a part of it: behind that, memory is not aligned any more.
        const bool isAligned = static_cast<size_t>(written) % kBlock == 0;
        if (descriptor == direct_ && !isAligned) descriptor = plain_;
        at += static_cast<uint64_t>(written);
        bytes += written;
        count -= static_cast<size_t>(written);
    }
}

void DirectWriter::writePlainly(uint64_t at, const char* bytes, size_t count)
{
    writeWith(plain_, at, bytes, count);
}

void DirectWriter::write(uint64_t at, const char* bytes, size_t count)
{
    const bool isAligned = at % kBlock == 0 && reinterpret_cast<uintptr_t>(bytes) % kBlock == 0;
    const size_t whole = direct_ >= 0 && isAligned ? count / kBlock * kBlock : 0;
    try {
        writeWith(direct_, at, bytes, whole);
    } catch (const Error& error) {
        if (error.code() != EINVAL) throw;
        ::close(direct_);
        direct_ = -1;
        return writePlainly(at, bytes, count);
    }
    writePlainly(at + whole, bytes + whole, count - whole);
}

} // namespace vxcam
