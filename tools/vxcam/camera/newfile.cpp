#include "newfile.h"

#include "failure.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

constexpr size_t gnPiece = 1 << 20;
constexpr int gnNameTries = 100;

[[noreturn]] void Refuse(const std::string& path, const std::string& why)
{
    throw tcFailure(eExitFile, path + ": " + why);
}

[[noreturn]] void RefuseErrno(const std::string& path, int error)
{
    Refuse(path, std::strerror(error));
}

std::string FolderOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// An existing file behind a symbolic link is written itself, not the link.
std::string Resolved(const std::string& path)
{
    std::unique_ptr<char, void (*)(void*)> real(::realpath(path.c_str(), nullptr), std::free);
    return real ? real.get() : path;
}

// The file under its temporary name. Owns: the descriptor, and the file until Keep.
class tcHiddenFile
{
public:
    explicit tcHiddenFile(const std::string& path);
    ~tcHiddenFile();
    tcHiddenFile(const tcHiddenFile&) = delete;
    tcHiddenFile& operator=(const tcHiddenFile&) = delete;

    void Write(const char* bytes, size_t count, const std::atomic<bool>& cancelled);
    void Keep(bool force);

private:
    void NameWithoutReplacing();

    std::string msPath, msHidden;
    int mhFile = -1;
};

tcHiddenFile::tcHiddenFile(const std::string& path) : msPath(path)
{
    static std::atomic<unsigned> snCount{0};
    for (int i = 0; i < gnNameTries && mhFile < 0; ++i) {
        msHidden = FolderOf(path) + "/.vxcam-" + std::to_string(::getpid()) + "-" +
                   std::to_string(++snCount) + ".part";
        mhFile = ::open(msHidden.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (mhFile < 0 && errno != EEXIST) RefuseErrno(path, errno);
    }
    if (mhFile < 0) RefuseErrno(path, EEXIST);
}

tcHiddenFile::~tcHiddenFile()
{
    if (mhFile >= 0) ::close(mhFile);
    if (!msHidden.empty()) ::unlink(msHidden.c_str());
}

void tcHiddenFile::Write(const char* bytes, size_t count, const std::atomic<bool>& cancelled)
{
    while (count > 0) {
        if (cancelled) Refuse(msPath, "not written: interrupted");
        const ssize_t written = ::write(mhFile, bytes, std::min(count, gnPiece));
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) RefuseErrno(msPath, errno);
        bytes += written;
        count -= static_cast<size_t>(written);
    }
    if (::fsync(mhFile) != 0 && errno != EINVAL) RefuseErrno(msPath, errno);
    const int file = mhFile;
    mhFile = -1;
    if (::close(file) != 0) RefuseErrno(msPath, errno);
}

// Some file systems know no such rename, some no links.
void tcHiddenFile::NameWithoutReplacing()
{
    if (::renameat2(AT_FDCWD, msHidden.c_str(), AT_FDCWD, msPath.c_str(), RENAME_NOREPLACE) == 0) {
        msHidden.clear();
        return;
    }
    if (errno == EINVAL || errno == ENOSYS) {
        if (::link(msHidden.c_str(), msPath.c_str()) == 0) return;
    }
    if (errno == EEXIST) Refuse(msPath, "exists already (--force replaces it)");
    RefuseErrno(msPath, errno);
}

void tcHiddenFile::Keep(bool force)
{
    if (force) {
        if (::rename(msHidden.c_str(), msPath.c_str()) != 0) RefuseErrno(msPath, errno);
        msHidden.clear();
    } else {
        NameWithoutReplacing();
    }
    const int folder = ::open(FolderOf(msPath).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0) return; // written but not readable: the name reaches the disk when it will
    ::fsync(folder);
    ::close(folder);
}

} // namespace

void CheckNewFile(const std::string& path, bool force)
{
    struct stat status {};
    if (path.empty() || path.back() == '/') Refuse(path, "is no file name");
    if (::stat(path.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) Refuse(path, "is a folder");
        if (!S_ISREG(status.st_mode)) Refuse(path, "is no regular file");
        if (!force) Refuse(path, "exists already (--force replaces it)");
    } else if (errno != ENOENT) {
        RefuseErrno(path, errno);
    } else if (!force && ::lstat(path.c_str(), &status) == 0) {
        Refuse(path, "exists already (--force replaces it)");
    }
    const std::string folder = FolderOf(Resolved(path));
    if (::stat(folder.c_str(), &status) != 0) {
        Refuse(path, errno == ENOENT ? "there is no folder " + folder : std::strerror(errno));
    }
    if (!S_ISDIR(status.st_mode)) Refuse(path, folder + " is no folder");
    if (::access(folder.c_str(), W_OK | X_OK) != 0) {
        Refuse(path, "cannot write in folder " + folder + ": " + std::strerror(errno));
    }
}

void WriteNewFile(const std::string& path, const void* bytes, size_t count, bool force,
                  const std::atomic<bool>& cancelled)
{
    CheckNewFile(path, force);
    tcHiddenFile file(Resolved(path));
    file.Write(static_cast<const char*>(bytes), count, cancelled);
    file.Keep(force);
}
