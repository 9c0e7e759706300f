// Marks files that grow as being written, so that nobody takes their place meanwhile.
#ifndef VXCAMKIT_WRITER_LOCK_H
#define VXCAMKIT_WRITER_LOCK_H

#include <string>

namespace vxcam {

// Holds for the programs of this machine, and for others where the file system tells them; file
// systems without locks know none. Readers are not held up.
//
// Threads: one. Owns: its descriptor.
class WriterLock
{
public:
    WriterLock() = default;
    // Opens the file to write and read it; `flags` are further ones for open(). Throws Error{File},
    // also where somebody else was quicker.
    explicit WriterLock(const std::string& path, int flags = 0);
    ~WriterLock();
    WriterLock(WriterLock&& other) noexcept;
    WriterLock& operator=(WriterLock&& other) noexcept;

    int descriptor() const { return descriptor_; }

private:
    int descriptor_ = -1;
};

// Whether somebody holds such a lock. False for a file that cannot be read.
bool isBeingWritten(const std::string& path);

// Makes room for a file that `path` shall name: what is there goes, unless it is being written.
// Throws Error{File}.
void removeOldFile(const std::string& path);

} // namespace vxcam

#endif
