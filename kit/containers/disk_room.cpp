#include "containers/disk_room.h"

#include <sys/resource.h>
#include <sys/statvfs.h>

#include <algorithm>

namespace vxcam {

uint64_t diskRoom(const std::string& path, uint64_t size)
{
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    uint64_t room = kRoomUnknown;
    struct statvfs status {};
    if (::statvfs(folder.c_str(), &status) == 0) room = status.f_bavail * status.f_frsize;
    struct rlimit limit {};
    if (::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) {
        room = std::min<uint64_t>(room, limit.rlim_cur - std::min<uint64_t>(limit.rlim_cur, size));
    }
    return room;
}

} // namespace vxcam
