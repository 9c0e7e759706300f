#include <vxcamkit/new_file.h>

#include "files/writer_lock.h"

#include <vxcamkit/error.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace vxcam {

namespace {

constexpr size_t kPiece = size_t{8} << 20U; // after which it is asked whether to go on
constexpr size_t kLeastDirect = size_t{1} << 20U;
constexpr int kNameTries = 100;

[[noreturn]] void refuse(const std::string& path, const std::string& why, int error = 0)
{
    throw Error(ErrorKind::File, path + ": " + why, error);
}

[[noreturn]] void refuseErrno(const std::string& path, int error)
{
    refuse(path, std::strerror(error), error);
}

[[noreturn]] void refuseExisting(const std::string& path)
{
    refuse(path, "exists already", EEXIST);
}

std::string folderOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// An existing file behind a symbolic link is written itself, not the link.
std::string resolved(const std::string& path)
{
    const std::unique_ptr<char, void (*)(void*)> real(::realpath(path.c_str(), nullptr), std::free);
    return real ? real.get() : path;
}

void throwIfCancelled(const std::string& name, const std::atomic<bool>* cancelled)
{
    if (cancelled == nullptr || !*cancelled) return;
    throw Error(ErrorKind::Aborted, name + ": not written: interrupted");
}

// Whether the descriptor passes the system's memory by from now on.
bool setDirect(int descriptor, bool isDirect)
{
    const int flags = ::fcntl(descriptor, F_GETFL);
    return flags >= 0 &&
           ::fcntl(descriptor, F_SETFL, isDirect ? flags | O_DIRECT : flags & ~O_DIRECT) == 0;
}

} // namespace

void checkNewFile(const std::string& path, bool force)
{
    struct stat status {};
    if (path.empty() || path.back() == '/') refuse(path, "is no file name", EINVAL);
    if (::stat(path.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) refuse(path, "is a folder", EISDIR);
        if (!S_ISREG(status.st_mode)) refuse(path, "is no regular file", EINVAL);
        if (!force) refuseExisting(path);
        if (isBeingWritten(path)) refuse(path, "is being written by somebody else", EBUSY);
    } else if (errno != ENOENT) {
        refuseErrno(path, errno);
    } else if (!force && ::lstat(path.c_str(), &status) == 0) {
        refuseExisting(path);
    }
    const std::string folder = folderOf(resolved(path));
    if (::stat(folder.c_str(), &status) != 0) {
        const int error = errno;
        refuse(path, error == ENOENT ? "there is no folder " + folder : std::strerror(error),
               error);
    }
    if (!S_ISDIR(status.st_mode)) refuse(path, folder + " is no folder", ENOTDIR);
    if (::access(folder.c_str(), W_OK | X_OK) != 0) {
        const int error = errno;
        refuse(path, "cannot write in folder " + folder + ": " + std::strerror(error), error);
    }
}

void writeToDescriptor(int descriptor, const std::string& name, const void* bytes, size_t count,
                       const std::atomic<bool>* cancelled)
{
    const auto* from = static_cast<const char*>(bytes);
    while (count > 0) {
        throwIfCancelled(name, cancelled);
        const ssize_t written = ::write(descriptor, from, std::min(count, kPiece));
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) refuseErrno(name, errno);
        from += written;
        count -= static_cast<size_t>(written);
    }
}

struct NewFile::Body {
    std::string path;   // as it was given
    std::string target; // that is written
    std::string hidden; // empty: it is not there any more
    bool force = false;
    const std::atomic<bool>* cancelled = nullptr;
    int descriptor = -1;

    ~Body()
    {
        if (descriptor >= 0) ::close(descriptor);
        if (!hidden.empty()) ::unlink(hidden.c_str());
    }

    void open()
    {
        static std::atomic<unsigned> count{0};
        for (int i = 0; i < kNameTries; ++i) {
            std::string name = folderOf(target) + "/.vxcam-" + std::to_string(::getpid()) + "-" +
                               std::to_string(++count) + ".part";
            descriptor = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            if (descriptor >= 0) {
                hidden = std::move(name);
                return;
            }
            if (errno != EEXIST) refuseErrno(path, errno);
        }
        refuseErrno(path, EEXIST);
    }

    // How much of it was written: all, or what was before the system would not go on like that.
    size_t writeDirectly(const FileBytes& bytes) const
    {
        if (bytes.size() < kLeastDirect || !setDirect(descriptor, true)) return 0;
        size_t at = 0;
        while (at < bytes.room()) {
            throwIfCancelled(path, cancelled);
            const ssize_t written =
                ::write(descriptor, bytes.data() + at, std::min(bytes.room() - at, kPiece));
            if (written < 0 && errno == EINTR) continue;
            if (written < 0 && errno != EINVAL) refuseErrno(path, errno);
            if (written < 0) break;
            at += static_cast<size_t>(written);
            if (static_cast<size_t>(written) % FileBytes::kAlignment != 0) break;
        }
        setDirect(descriptor, false);
        return at;
    }

    // Some file systems know no such rename, some no links.
    void nameWithoutReplacing()
    {
        if (::renameat2(AT_FDCWD, hidden.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) ==
            0) {
            hidden.clear();
            return;
        }
        const bool isUnknown = errno == EINVAL || errno == ENOSYS;
        if (isUnknown && ::link(hidden.c_str(), target.c_str()) == 0) return;
        if (errno == EEXIST) refuseExisting(path);
        refuseErrno(path, errno);
    }
};

NewFile::NewFile(const std::string& path, bool force, const std::atomic<bool>* cancelled)
    : body_(std::make_unique<Body>())
{
    checkNewFile(path, force);
    body_->path = path;
    body_->target = resolved(path);
    body_->force = force;
    body_->cancelled = cancelled;
    body_->open();
}

NewFile::~NewFile() = default;
NewFile::NewFile(NewFile&& other) noexcept = default;
NewFile& NewFile::operator=(NewFile&& other) noexcept = default;

const std::string& NewFile::path() const
{
    return body_->path;
}

void NewFile::write(const void* bytes, size_t count)
{
    writeToDescriptor(body_->descriptor, body_->path, bytes, count, body_->cancelled);
}

void NewFile::write(const FileBytes& bytes)
{
    const size_t done = body_->writeDirectly(bytes);
    if (done < bytes.size()) {
        write(bytes.data() + done, bytes.size() - done);
    } else if (done > bytes.size() &&
               ::ftruncate(body_->descriptor, static_cast<off_t>(bytes.size())) != 0) {
        refuseErrno(body_->path, errno);
    }
}

void NewFile::sync()
{
    throwIfCancelled(body_->path, body_->cancelled);
    if (::fdatasync(body_->descriptor) != 0 && errno != EINVAL) refuseErrno(body_->path, errno);
}

void NewFile::keep()
{
    const int descriptor = std::exchange(body_->descriptor, -1);
    if (::close(descriptor) != 0) refuseErrno(body_->path, errno);
    if (!body_->force) {
        body_->nameWithoutReplacing();
    } else {
        if (::rename(body_->hidden.c_str(), body_->target.c_str()) != 0) {
            refuseErrno(body_->path, errno);
        }
        body_->hidden.clear();
    }
}

void NewFile::syncName()
{
    const int folder = ::open(folderOf(body_->target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0) return; // written but not readable: the name reaches the disk when it will
    ::fsync(folder);
    ::close(folder);
}

void writeNewFile(const std::string& path, const void* bytes, size_t count, bool force,
                  const std::atomic<bool>* cancelled)
{
    NewFile file(path, force, cancelled);
    file.write(bytes, count);
    file.sync();
    file.keep();
    file.syncName();
}

void writeNewFile(const std::string& path, const FileBytes& bytes, bool force,
                  const std::atomic<bool>* cancelled)
{
    NewFile file(path, force, cancelled);
    file.write(bytes);
    file.sync();
    file.keep();
    file.syncName();
}

} // namespace vxcam
