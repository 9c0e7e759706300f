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
constexpr size_t kBlock = DirectWriter::kBlock;

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
    writer_ = std::make_unique<DirectWriter>(path, file_.descriptor());
}

AppendFile::~AppendFile() = default;

void AppendFile::writeStaged()
{
    writer_->write(written_, stage_.data(), staged_);
    written_ += staged_;
    staged_ = shown_ = 0;
}

void AppendFile::append(const void* bytes, size_t count)
{
    const auto* from = static_cast<const char*>(bytes);
    if (staged_ == 0 && reinterpret_cast<uintptr_t>(from) % kBlock == 0 && count >= kStage) {
        const size_t whole = count / kBlock * kBlock;
        writer_->write(written_, from, whole);
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
    writer_->writePlainly(at, from, count);
}

void AppendFile::flush(size_t block)
{
    writer_->writePlainly(written_ + shown_, stage_.data() + shown_, staged_ - shown_);
    shown_ = staged_;
    if (block > 1) {
        const uint64_t end = (size() + block - 1) / block * block;
        if (::ftruncate(file_.descriptor(), static_cast<off_t>(end)) != 0) refuse(path_, errno);
    }
}

size_t AppendFile::read(uint64_t at, void* bytes, size_t count) const
{
    const ssize_t got = ::pread(file_.descriptor(), bytes, count, static_cast<off_t>(at));
    if (got < 0) refuse(path_, errno);
    return static_cast<size_t>(got);
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
