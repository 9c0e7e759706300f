// What stands on the command line, and what it means. All functions throw tcFailure with
// eExitUsage and a text that names the value.
#ifndef ARGUMENTS_H
#define ARGUMENTS_H

#include <vxcamkit/area.h>
#include <vxcamkit/target.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// A TCP or UDP port of a host.
struct tsEndpoint {
    std::string host;
    uint16_t port = 0;
};

// "500ms", "2s", "0.5", "1min", "1h": a number and a unit, seconds without one. Rounded to whole
// milliseconds, at most 4294967295 of them; below 1 ms there is only 0.
std::chrono::milliseconds ParseDuration(const std::string& text);

// "2GB", "256MiB", "1000000": a number of bytes, at least 1; k, M, G, T are thousands, Ki, Mi, Gi,
// Ti multiples of 1024.
uint64_t ParseBytes(const std::string& text);

// "x,y,w,h", 0 to 65535 each, w and h at least 1; and several, with slashes between them.
vxcam::Area ParseArea(const std::string& text);
std::vector<vxcam::Area> ParseAreas(const std::string& text);

// "2" or "2,1": columns and rows in a bin, 1 to 65535 each.
std::pair<int, int> ParseBins(const std::string& text);

// "2048x1024": columns, rows.
vxcam::Size ParseSize(const std::string& text);

// "sim", "serial:NUMBER" or "HOST:PORT", the host a name or a dotted IPv4 address.
vxcam::Target ParseTarget(const std::string& text);

// "HOST" or "HOST:PORT", the host a name or a dotted IPv4 address. `what` is what it is called:
// "target".
tsEndpoint ParseEndpoint(const std::string& what, const std::string& text, uint16_t defaultPort);

// "1.5 s", "20 ms", "2 min": for people.
std::string DurationText(std::chrono::milliseconds duration);

// How much of it has passed, in its own unit: "300 of 500 ms", "0.9 of 5 s", "1.5 of 10 min".
std::string PassedText(std::chrono::milliseconds passed, std::chrono::milliseconds duration);

// "512 MB", "2.1 GB": for people.
std::string BytesText(uint64_t bytes);

// "0 frames", "1 frame", "2 frames".
std::string CountText(uint64_t count, const std::string& noun);

// The names of `count` files. One %d in it (or %4d, or %04d for zeros in front)
// stands for the frame's number from 1, %% for a percent sign. Without one, several files get
// "-0001" and so on in front of the extension.
std::vector<std::string> FileNames(const std::string& pattern, int count);

#endif
