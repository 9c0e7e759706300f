#include "wire/wire_reader.h"

#include "containers/pixel_crc.h"
#include "wire/wire_format.h"

#include <vxcamkit/error.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

namespace vxcam {

namespace {

constexpr size_t kVersionAt = 8, kFileCheckAt = 12;
constexpr size_t kScan = size_t{64} << 10U; // bytes that are looked through at once
constexpr auto kLastKind = static_cast<uint8_t>(WireKind::LinkRestored);
constexpr uint8_t kFirstKind = 1;

} // namespace

struct WireReader::Body {
    std::string path;
    std::unique_ptr<std::istream> file;
    WireCondition condition;
    uint64_t size = 0;     // of the file
    uint64_t place = 0;    // of the next block
    uint64_t expected = 0; // its number
    WireBlockHead head;
    std::vector<char> block;
    size_t at = 0; // in the block
    bool isInDamage = false;

    void open();
    size_t read(uint64_t from, char* to, size_t count);
    bool readBlock();
    bool isBlockWhole();
    void take();
    void noteDamage(uint64_t to);
    uint64_t findMarker(uint64_t from);
    std::optional<WireRecord> nextOfBlock();
};

void WireReader::Body::open()
{
    file->seekg(0, std::ios::end);
    const std::streamoff end = file->tellg();
    if (!*file || end < 0) throw Error(ErrorKind::File, path + ": cannot be read");
    size = static_cast<uint64_t>(end);
    char bytes[kWireFileHead] = {};
    const size_t count = read(0, bytes, sizeof bytes);
    size_t wrong = 0;
    for (size_t i = 0; i < kWireSignature.size(); ++i) {
        if (bytes[i] != kWireSignature[i]) ++wrong;
    }
    constexpr size_t mostWrong = 1; // a damaged byte does not make it another kind of file
    if (count < kWireSignature.size() || wrong > mostWrong) {
        throw Error(ErrorKind::File, path + ": is no recording of the wire");
    }
    condition.major = numberAt<uint16_t>(bytes + kVersionAt);
    condition.minor = numberAt<uint16_t>(bytes + kVersionAt + 2);
    const bool isChecked = count == kWireFileHead && numberAt<uint32_t>(bytes + kFileCheckAt) ==
                                                         pixelCrc(bytes, kFileCheckAt);
    condition.isHeadGood = isChecked && wrong == 0;
    if (condition.isHeadGood && condition.major > kWireMajor) {
        throw Error(ErrorKind::File, path + ": is of version " + std::to_string(condition.major) +
                                         "; this program knows them up to " +
                                         std::to_string(kWireMajor));
    }
    place = std::min<uint64_t>(kWireFileHead, size);
}

size_t WireReader::Body::read(uint64_t from, char* to, size_t count)
{
    if (from >= size) return 0;
    file->clear();
    file->seekg(static_cast<std::streamoff>(from));
    file->read(to, static_cast<std::streamsize>(std::min<uint64_t>(count, size - from)));
    if (file->bad()) throw Error(ErrorKind::File, path + ": cannot be read", EIO);
    return static_cast<size_t>(file->gcount());
}

// The first place from there on where a block may begin; else the end of the file.
uint64_t WireReader::Body::findMarker(uint64_t from)
{
    char marker[sizeof kWireMarker];
    putNumber(marker, kWireMarker);
    std::vector<char> bytes(kScan);
    while (from < size) {
        const size_t count = read(from, bytes.data(), bytes.size());
        const auto end = bytes.begin() + static_cast<std::ptrdiff_t>(count);
        const auto found = std::search(bytes.begin(), end, std::begin(marker), std::end(marker));
        if (found != end) return from + static_cast<uint64_t>(found - bytes.begin());
        if (count < bytes.size()) return size;
        from += count - sizeof marker + 1;
    }
    return size;
}

void WireReader::Body::noteDamage(uint64_t to)
{
    if (!isInDamage) {
        if (condition.damaged++ == 0 && condition.isHeadGood) condition.firstDamage = place;
        isInDamage = true;
    }
    condition.damagedBytes += to - place;
    place = to;
}

bool WireReader::Body::isBlockWhole()
{
    const uint64_t left = size - place - kWireBlockHead;
    if (head.length > left) return false;
    block.resize(head.length);
    if (read(place + kWireBlockHead, block.data(), block.size()) != block.size()) return false;
    return pixelCrc(block.data(), block.size()) == head.check;
}

void WireReader::Body::take()
{
    isInDamage = false;
    if (head.number > expected) condition.missing += head.number - expected;
    expected = uint64_t{head.number} + 1;
    ++condition.blocks;
    condition.records += head.records;
    condition.isEnded = head.length == 0;
    place += kWireBlockHead + head.length;
    at = 0;
}

// False at the end of the file.
bool WireReader::Body::readBlock()
{
    while (place < size) {
        char bytes[kWireBlockHead];
        const bool isThere = read(place, bytes, sizeof bytes) == sizeof bytes;
        if (!isThere || !readHead(bytes, &head)) {
            noteDamage(findMarker(place + 1));
        } else if (!isBlockWhole()) {
            // What its head tells holds: what lies inside of it is not looked at for others.
            noteDamage(std::min(place + kWireBlockHead + head.length, size));
        } else {
            take();
            return true;
        }
        condition.isEnded = false;
    }
    return false;
}

std::optional<WireRecord> WireReader::Body::nextOfBlock()
{
    while (block.size() - at >= kWireRecordHead) {
        const char* const from = block.data() + at;
        const auto steady = numberAt<int64_t>(from);
        const auto length = numberAt<uint32_t>(from + 8);
        const auto kind = numberAt<uint8_t>(from + 12);
        if (length > block.size() - at - kWireRecordHead) break;
        at += kWireRecordHead + length;
        if (kind < kFirstKind || kind > kLastKind) continue;
        WireRecord record;
        record.kind = static_cast<WireKind>(kind);
        record.camera = numberAt<uint8_t>(from + 13);
        record.time.known = true;
        record.time.steady = SteadyTime(std::chrono::nanoseconds(steady));
        const auto sinceBlock = static_cast<uint64_t>(steady) - static_cast<uint64_t>(head.steady);
        record.time.utc = UtcTime(std::chrono::nanoseconds(
            static_cast<int64_t>(static_cast<uint64_t>(head.utc) + sinceBlock)));
        record.bytes = {from + kWireRecordHead, length};
        return record;
    }
    at = block.size();
    return std::nullopt;
}

WireReader::WireReader(const std::string& path) : body_(std::make_unique<Body>())
{
    body_->path = path;
    std::error_code none;
    const auto status = std::filesystem::status(path, none);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
        throw Error(ErrorKind::File,
                    path + ": is no regular file, which a recording is read from; save it as one");
    }
    errno = 0;
    body_->file = std::make_unique<std::ifstream>(path, std::ios::binary);
    if (!*body_->file) {
        const int error = errno;
        throw Error(ErrorKind::File, path + ": " + std::strerror(error), error);
    }
    body_->open();
}

WireReader::WireReader(std::unique_ptr<std::istream> bytes, const std::string& name)
    : body_(std::make_unique<Body>())
{
    body_->path = name;
    body_->file = std::move(bytes);
    body_->open();
}

WireReader::~WireReader() = default;
WireReader::WireReader(WireReader&& other) noexcept = default;
WireReader& WireReader::operator=(WireReader&& other) noexcept = default;

std::optional<WireRecord> WireReader::next()
{
    while (true) {
        if (std::optional<WireRecord> record = body_->nextOfBlock()) return record;
        if (!body_->readBlock()) return std::nullopt;
    }
}

const WireCondition& WireReader::condition() const
{
    return body_->condition;
}

const std::string& WireReader::path() const
{
    return body_->path;
}

std::string WireCondition::text() const
{
    std::string text =
        std::to_string(blocks) + (blocks == 1 ? " block is whole" : " blocks are whole");
    if (isWhole()) return text;
    if (!isHeadGood) text += "; the head of the file is damaged";
    if (damaged > 0) {
        text += "; " + std::to_string(damagedBytes) + " bytes from byte " +
                std::to_string(firstDamage) + " on are no whole block";
    }
    if (missing > 0) {
        text += "; " + std::to_string(missing) +
                (missing == 1 ? " block is missing" : " blocks are missing");
    }
    if (!isEnded) text += "; it was not ended";
    return text;
}

} // namespace vxcam
