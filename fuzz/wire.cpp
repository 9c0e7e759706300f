// Recordings of the wire.
//
// Input: how the file is made, then the file's bytes; or, in turn, how long a block is and its
// bytes, for blocks whose check values are right.
#include "tcFuzzInput.h"

#include "wire/wire_format.h"

#include "containers/pixel_crc.h"

#include <vxcamkit/error.h>
#include <vxcamkit/wire_messages.h>

#include <map>
#include <memory>
#include <sstream>

namespace {

std::string WithBlocks(tcFuzzInput& input)
{
    const auto head = vxcam::wireFileHead();
    std::string file(head.begin(), head.end());
    vxcam::WireBlockHead block;
    while (input.Left() > 0) {
        const std::vector<uint8_t> records = input.Bytes(input.U8());
        block.length = static_cast<uint32_t>(records.size());
        block.check = vxcam::pixelCrc(records.data(), records.size());
        block.steady = block.utc = input.U32();
        const auto bytes = vxcam::bytesOf(block);
        file.append(bytes.begin(), bytes.end());
        file.append(records.begin(), records.end());
        ++block.number;
    }
    return file;
}

vxcam::WireReader ReaderOf(const std::string& file)
{
    return {std::make_unique<std::istringstream>(file), "fuzzed"};
}

// Bytes by camera and direction.
using tpBytes = std::map<int, std::string>;

tpBytes BytesOfRecords(const std::string& file)
{
    tpBytes bytes;
    vxcam::WireReader reader = ReaderOf(file);
    uint64_t count = 0;
    while (const auto record = reader.next()) {
        ++count;
        const bool isSent = record->kind == vxcam::WireKind::Sent;
        if (!isSent && record->kind != vxcam::WireKind::Received) continue;
        if (!record->bytes.empty()) bytes[2 * record->camera + (isSent ? 1 : 0)] += record->bytes;
    }
    const vxcam::WireCondition& condition = reader.condition();
    const uint64_t heads = std::min<uint64_t>(file.size(), vxcam::kWireFileHead);
    const uint64_t blocks = condition.blocks * vxcam::kWireBlockHead;
    Require(heads + blocks + condition.damagedBytes <= file.size(), "bytes are counted once");
    Require(condition.damaged <= condition.damagedBytes, "damage has bytes");
    Require(count <= file.size() / vxcam::kWireRecordHead, "records have heads");
    Require(!condition.isWhole() || condition.damagedBytes == 0, "a whole one is not damaged");
    return bytes;
}

tpBytes BytesOfEvents(const std::string& file)
{
    tpBytes bytes;
    vxcam::WireEvents events(ReaderOf(file));
    while (const auto event = events.next()) {
        const vxcam::WirePiece& piece = event->piece;
        if (piece.bytes.empty()) continue;
        bytes[2 * event->camera + (piece.isSent ? 1 : 0)] += piece.bytes;
        Require(!piece.isMessage || piece.bytes.size() >= 12, "a message has its header");
        Require(!vxcam::wireName(piece).empty(), "everything is called something");
        for (const auto& [name, value] : vxcam::wireFields(piece)) {
            Require(!name.empty() && !value.empty(), "a field has a name and a value");
        }
    }
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    tcFuzzInput input(bytes, count);
    const bool hasBlocks = input.U8() % 2 == 1;
    std::string file;
    if (hasBlocks) {
        file = WithBlocks(input);
    } else {
        const std::vector<uint8_t> rest = input.Rest();
        file.assign(rest.begin(), rest.end());
    }
    try {
        Require(BytesOfRecords(file) == BytesOfEvents(file), "pieces are all bytes");
    } catch (const vxcam::Error& error) {
        Require(!hasBlocks && error.kind() == vxcam::ErrorKind::File, "only strange files fail");
    }
    return 0;
}
