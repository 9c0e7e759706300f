// How much may still be written.
#ifndef VXCAMKIT_DISK_ROOM_H
#define VXCAMKIT_DISK_ROOM_H

#include <cstdint>
#include <string>

namespace vxcam {

inline constexpr uint64_t kRoomUnknown = ~uint64_t{0};

// Bytes that the file may still grow by, or one that is made there: what its disk has free, and
// what the process may write to a file of `size` bytes.
uint64_t diskRoom(const std::string& path, uint64_t size);

} // namespace vxcam

#endif
