// Bytes of recordings of the wire, laid down by hand, and check values of another's.
#ifndef WIRE_SUPPORT_H
#define WIRE_SUPPORT_H

#include <zlib.h>

#include <cstdint>
#include <string>

// A number with its low byte first.
inline std::string low(uint64_t value, int bytes)
{
    std::string text;
    for (int i = 0; i < bytes; ++i) {
        text += static_cast<char>(value >> (8 * i));
    }
    return text;
}

inline std::string checkOf(const std::string& bytes)
{
    return low(
        crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())), 4);
}

inline std::string wireHead(int version = 1)
{
    const std::string head = std::string("\x89VXW\r\n\x1a\n", 8) + low(version, 2) + low(0, 2);
    return head + checkOf(head);
}

inline std::string wireRecord(int kind, int64_t steady, const std::string& bytes, int camera = 0)
{
    return low(steady, 8) + low(bytes.size(), 4) + low(kind, 1) + low(camera, 1) + low(0, 2) +
           bytes;
}

inline std::string wireBlock(uint32_t number, int64_t utc, int64_t steady,
                             const std::string& records, uint32_t count)
{
    const std::string rest = low(number, 4) + low(records.size(), 4) + low(utc, 8) +
                             low(steady, 8) + checkOf(records) + low(count, 4);
    return "VXWB" + checkOf(rest) + rest + records;
}

// The block that says that the recording was ended.
inline std::string wireEnd(uint32_t number)
{
    return wireBlock(number, 0, 0, "", 0);
}

// A message as it travels: header and payload.
inline std::string wireMessage(uint32_t id, const std::string& payload, int number = 0)
{
    return std::string("\x50\xFA") + low(payload.size(), 2) + low(number, 1) + low(0, 3) +
           low(3, 1) + low(id, 3) + payload;
}

#endif
