#include "containers/append_file.h"

#include <vxcamkit/error.h>
#include <vxcamkit/new_file.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace vxcam {

namespace {

constexpr size_t kStage = size_t{4} << 20U;
constexpr size_t kBlock = FileBytes::kAlignment;
constexpr size_t kPiece = size_t{8} << 20U;

[[noreturn]] void refuse(const std::string& path, int error)
{
    throw Error(ErrorKind::File, path + ": " + std::strerror(error), error);
}

} // namespace

AppendFile::AppendFile(const std::string& path, bool force) : path_(path), stage_(kStage)
{
    checkNewFile(path, force);
    if (force) removeOldFile(path);
    file_ = WriterLock(path, O_CREAT | O_EXCL);
    direct_ = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_DIRECT);
}

AppendFile::~AppendFile()
{
    if (direct_ >= 0) ::close(direct_);
}

void AppendFile::writeAt(int descriptor, uint64_t at, const char* bytes, size_t count)
{
    while (count > 0) {
        const ssize_t written =
            ::pwrite(descriptor, bytes, std::min(count, kPiece), static_cast<off_t>(at));
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) refuse(path_, errno);
        // A disk that is full may take a part of it: behind that, memory is not aligned any more.
        const bool isAligned = static_cast<size_t>(written) % kBlock == 0;
        if (descriptor == direct_ && !isAligned) descriptor = file_.descriptor();
        at += static_cast<uint64_t>(written);
        bytes += written;
        count -= static_cast<size_t>(written);
    }
}

void AppendFile::writeDirectly(const char* bytes, size_t count)
{
    if (direct_ >= 0) {
        try {
            writeAt(direct_, written_, bytes, count);
            return;
        } catch (const Error& error) {
            if (error.code() != EINVAL) throw;
            ::close(direct_);
            direct_ = -1;
        }
    }
    writeAt(file_.descriptor(), written_, bytes, count);
}

void AppendFile::writeStaged()
{
    writeDirectly(stage_.data(), staged_);
    written_ += staged_;
    staged_ = shown_ = 0;
}

void AppendFile::append(const void* bytes, size_t count)
{
    const auto* from = static_cast<const char*>(bytes);
    if (staged_ == 0 && reinterpret_cast<uintptr_t>(from) % kBlock == 0 && count >= kStage) {
        const size_t whole = count / kBlock * kBlock;
        writeDirectly(from, whole);
        written_ += whole;
        from += whole;
        count -= whole;
    }
    while (count > 0) {
        const size_t part = std::min(count, kStage - staged_);
        std::memcpy(stage_.data() + staged_, from, part);
        staged_ += part;
        from += part;
        count -= part;
        if (staged_ == kStage) writeStaged();
    }
}

void AppendFile::rewrite(uint64_t at, const void* bytes, size_t count)
{
    const auto* from = static_cast<const char*>(bytes);
    if (at + count > written_) {
        const uint64_t first = std::max(at, written_);
        std::memcpy(stage_.data() + (first - written_), from + (first - at), at + count - first);
    }
    writeAt(file_.descriptor(), at, from, count);
}

void AppendFile::flush(size_t block)
{
    writeAt(file_.descriptor(), written_ + shown_, stage_.data() + shown_, staged_ - shown_);
    shown_ = staged_;
    if (block > 1) {
        const uint64_t end = (size() + block - 1) / block * block;
        if (::ftruncate(file_.descriptor(), static_cast<off_t>(end)) != 0) refuse(path_, errno);
    }
}

void AppendFile::sync()
{
    if (::fdatasync(file_.descriptor()) != 0 && errno != EINVAL) refuse(path_, errno);
}

void AppendFile::cut(uint64_t size)
{
    if (::ftruncate(file_.descriptor(), static_cast<off_t>(size)) != 0) refuse(path_, errno);
}

} // namespace vxcam
