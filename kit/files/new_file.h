// A file that appears under its name only when it is whole.
#ifndef VXCAMKIT_NEW_FILE_H
#define VXCAMKIT_NEW_FILE_H

#include <vxcamkit/export.h>
#include <vxcamkit/file_bytes.h>

#include <atomic>
#include <memory>
#include <string>

namespace vxcam {

// Refuses what NewFile would refuse, so that it is known before an exposure: an existing file
// unless `force`, one that is being recorded into at this moment, anything there that is no regular
// file, a folder that is missing or cannot be written to. Throws Error{File}.
VXCAMKIT_EXPORT void checkNewFile(const std::string& path, bool force);

// Writes a file as a whole: a hidden one beside `path`, which reaches the disk and then gets its
// name. An existing file is replaced with `force` and otherwise left as it is, also when it appears
// meanwhile. When anything fails, nothing of the new file stays. Ends early when `*cancelled`
// becomes true. Throws Error{File}, whose code() is errno where there is one; when cancelled,
// Error{ Aborted}.
VXCAMKIT_EXPORT void writeNewFile(const std::string& path, const void* bytes, size_t count,
                                  bool force = false, const std::atomic<bool>* cancelled = nullptr);
VXCAMKIT_EXPORT void writeNewFile(const std::string& path, const FileBytes& bytes,
                                  bool force = false, const std::atomic<bool>* cancelled = nullptr);

// Writes all of it to an open descriptor, such as a pipe; `name` is what errors call it. Throws
// likewise. Whoever writes to pipes ignores SIGPIPE.
VXCAMKIT_EXPORT void writeToDescriptor(int descriptor, const std::string& name, const void* bytes,
                                       size_t count, const std::atomic<bool>* cancelled = nullptr);

// The steps of writeNewFile(), for whoever takes them on different threads. Without keep(), nothing
// stays.
//
// Threads: one at a time. Owns: the descriptor, and the hidden file until keep().
class VXCAMKIT_EXPORT NewFile
{
public:
    // Checks as checkNewFile() and makes the hidden file.
    explicit NewFile(const std::string& path, bool force = false,
                     const std::atomic<bool>* cancelled = nullptr);
    ~NewFile();
    NewFile(NewFile&& other) noexcept;
    NewFile& operator=(NewFile&& other) noexcept;

    void write(const void* bytes, size_t count); // behind what was written before
    // The whole file at once, past the system's memory where that can be. What lies behind its end,
    // up to room(), is written for a moment, too: it had better be zeros.
    void write(const FileBytes& bytes);
    void sync();     // waits until it is on the disk
    void keep();     // gives it its name
    void syncName(); // waits until the name is on the disk

    const std::string& path() const;

private:
    struct Body;
    std::unique_ptr<Body> body_;
};

} // namespace vxcam

#endif
