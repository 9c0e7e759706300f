// The frame parser and the line assembler: any bytes, in any pieces.
//
// Input: options, a seed for the lengths of the pieces, the stream. The same stream is given to one
// parser at once and to another in pieces: they must deliver the same frames and count alike.
#include "tcCamParser.h"
#include "tcFuzzInput.h"

#include <memory>
#include <random>
#include <tuple>

namespace {

enum teOption : uint8_t { eChecksums = 1, eSmallBuffer = 2, eLines = 4, eOneByte = 8 };

struct tsDelivery {
    int status;
    std::vector<uint8_t> bytes;
    unsigned checksum;

    bool operator==(const tsDelivery& other) const
    {
        return std::tie(status, bytes, checksum) ==
               std::tie(other.status, other.bytes, other.checksum);
    }
};

// A parser with a buffer of its very own size, and what it delivered.
class tcWatched : public tcCamParser
{
public:
    tcWatched(uint8_t* memory, int size, bool checksums)
        : tcCamParser(memory, size, checksums), mbChecksums(checksums)
    {
        RegisterCallback(&tcWatched::Take, this);
    }
    void Feed(const std::vector<uint8_t>& bytes)
    {
        // A copy of exactly this size, so that reading beyond it is noticed.
        const std::unique_ptr<uint8_t[]> copy(new uint8_t[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), copy.get());
        mnDelivered += AddData(copy.get(), static_cast<int>(bytes.size()));
    }
    bool SameAs(const tcWatched& other) const
    {
        return maDeliveries == other.maDeliveries && mnDelivered == other.mnDelivered &&
               Counters() == other.Counters() && count == other.count && state == other.state;
    }
    // Every byte taken was framed, or skipped, or waits as the possible start of a frame.
    bool AddsUp() const
    {
        const uint32_t waiting = state == Hunting ? static_cast<uint32_t>(count) : 0;
        return BytesIn == BytesFramed + SkippedBytes + waiting;
    }

private:
    static bool Take(int status, void* frame, int length, unsigned checksum, void* user)
    {
        auto& self = *static_cast<tcWatched*>(user);
        const auto* bytes = static_cast<const uint8_t*>(frame);
        // Without checksums the figure is not the frame's.
        self.maDeliveries.push_back(
            {status, {bytes, bytes + length}, self.mbChecksums ? checksum : 0});
        return true;
    }
    std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t> Counters() const
    {
        return {BytesIn, BytesFramed, GoodFrames, BadFrames, SkippedBytes, ChecksumErrors};
    }

    bool mbChecksums;
    std::vector<tsDelivery> maDeliveries;
    int mnDelivered = 0;
};

std::vector<std::vector<uint8_t>> Cut(const std::vector<uint8_t>& stream, unsigned seed,
                                      bool single)
{
    std::minstd_rand random(seed);
    std::vector<std::vector<uint8_t>> pieces;
    for (size_t at = 0; at < stream.size();) {
        const size_t longest = random() % 3 == 0 ? 600 : 14;
        const size_t length = single ? 1 : std::min(stream.size() - at, 1 + random() % longest);
        const auto from = stream.begin() + static_cast<ptrdiff_t>(at);
        pieces.emplace_back(from, from + static_cast<ptrdiff_t>(length));
        at += length;
    }
    return pieces;
}

void ParseFrames(unsigned options, const std::vector<uint8_t>& stream,
                 const std::vector<std::vector<uint8_t>>& pieces)
{
    const int size =
        (options & eSmallBuffer) != 0 ? 12 + static_cast<int>(options >> 4) * 5 : 16416;
    const std::unique_ptr<uint8_t[]> first(new uint8_t[static_cast<size_t>(size)]);
    const std::unique_ptr<uint8_t[]> second(new uint8_t[static_cast<size_t>(size)]);
    tcWatched whole(first.get(), size, (options & eChecksums) != 0);
    tcWatched pieced(second.get(), size, (options & eChecksums) != 0);
    whole.Feed(stream);
    for (const auto& piece : pieces) {
        pieced.Feed(piece);
        Require(pieced.AddsUp(), "every byte is accounted for");
    }
    Require(whole.SameAs(pieced), "pieces give what the whole gives");
}

class tcLines : public tcDspParserBase
{
public:
    explicit tcLines(int room)
        : tcDspParserBase(nullptr, 0), mpLine(new char[static_cast<size_t>(room)])
    {
        mpLineBuffer = mpLine.get();
        mnLineCapacity = room;
    }
    void Take(const std::vector<uint8_t>& piece)
    {
        const std::unique_ptr<uint8_t[]> copy(new uint8_t[piece.size()]);
        std::copy(piece.begin(), piece.end(), copy.get());
        const int length = static_cast<int>(piece.size());
        for (int at = 0; at < length;) {
            bool complete = false;
            const int taken = AssembleLine(copy.get() + at, length - at, complete);
            Require(taken > 0 && taken <= length - at, "a line takes of its bytes, and some");
            Require(mnLineLength <= mnLineCapacity, "a line fits its buffer");
            if (complete) ResetParser(nullptr, 0);
            at += taken;
        }
    }

private:
    std::unique_ptr<char[]> mpLine;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    tcFuzzInput input(bytes, count);
    const unsigned options = input.U8();
    const unsigned seed = input.U16();
    const std::vector<uint8_t> stream = input.Rest();
    if (stream.empty()) return 0;
    const auto pieces = Cut(stream, seed, (options & eOneByte) != 0);
    if ((options & eLines) == 0) {
        ParseFrames(options, stream, pieces);
        return 0;
    }
    tcLines lines(1 + static_cast<int>(options >> 4) * 3);
    for (const auto& piece : pieces)
        lines.Take(piece);
    return 0;
}
