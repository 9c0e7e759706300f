// Records, read again.
#ifndef VXCAMKIT_RECORD_READER_H
#define VXCAMKIT_RECORD_READER_H

#include <vxcamkit/verify.h>

#include <nlohmann/json.hpp>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace vxcam {

// What a record says of one frame.
struct ReadRow {
    std::map<std::string, int64_t> numbers; // whole ones, by the names of the columns
    std::vector<int> missingRows;
    bool areRowsCut = false; // there are more of them
    uint64_t offset = 0;     // of its pixels, in indexed files

    int64_t operator[](const char* name) const
    {
        const auto found = numbers.find(name);
        return found != numbers.end() ? found->second : 0;
    }
    bool has(const char* name) const { return numbers.count(name) != 0; }
};

// A record, as far as it can be read. Errors: makers throw Error{File}.
struct ReadRecord {
    std::string format;
    int rows = 0, columns = 0, bits = 0;
    std::string ended = "running";
    int64_t dropped = -1; // in all; -1: it does not say
    nlohmann::json header, settings;
    std::vector<ReadRow> frames;
    std::vector<Finding> findings; // that were met on the way

    size_t frameBytes() const
    {
        return static_cast<size_t>(rows) * static_cast<size_t>(columns) *
               static_cast<size_t>(bits) / 8;
    }
    void find(const std::string& check, const std::string& text, int64_t frame = -1)
    {
        findings.push_back({check, frame, text});
    }
};

// The pixels of a record's frames, as they lay in memory.
//
// Threads: one.
class PixelReader
{
public:
    PixelReader() = default;
    virtual ~PixelReader() = default;
    PixelReader(const PixelReader&) = delete;
    PixelReader& operator=(const PixelReader&) = delete;

    // False when they cannot be read.
    virtual bool read(size_t frame, std::vector<char>* pixels) = 0;
};

// Raw, TIFF and SER files by their index.
std::unique_ptr<PixelReader> readIndexed(const std::string& path, ReadRecord* record);
std::unique_ptr<PixelReader> readFits(const std::string& path, ReadRecord* record);
std::unique_ptr<PixelReader> readHdf5(const std::string& path, ReadRecord* record);

// "0-3,7": false for what is none.
bool parseRanges(const std::string& text, std::vector<int>* numbers);

} // namespace vxcam

#endif
