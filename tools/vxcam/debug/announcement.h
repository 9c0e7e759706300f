// What the debug daemons of processes say about themselves. Knows no sockets; takes any bytes.
#ifndef ANNOUNCEMENT_H
#define ANNOUNCEMENT_H

#include <cstdint>
#include <optional>
#include <string>

struct tsAnnouncement {
    std::string name;
    uint16_t port = 0;
};

// "DBGD NAME PORT", perhaps with a zero byte behind. A port above 32767 comes as the negative
// number that it is in 16 bits. Nothing when the bytes say something else.
std::optional<tsAnnouncement> ParseAnnouncement(const std::string& bytes);

#endif
