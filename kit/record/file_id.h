// Which file has a name.
#ifndef VXCAMKIT_FILE_ID_H
#define VXCAMKIT_FILE_ID_H

#include <sys/stat.h>

#include <string>

namespace vxcam {

class FileId
{
public:
    FileId() = default; // of no file, which nothing is asked of
    explicit FileId(const std::string& path) { isKnown_ = ::stat(path.c_str(), &status_) == 0; }

    // Whether it still has that name.
    bool isAt(const std::string& path) const
    {
        if (!isKnown_) return true;
        struct stat now {};
        return ::stat(path.c_str(), &now) == 0 && now.st_ino == status_.st_ino &&
               now.st_dev == status_.st_dev;
    }

private:
    struct stat status_ {};
    bool isKnown_ = false;
};

} // namespace vxcam

#endif
