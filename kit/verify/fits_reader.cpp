// FITS records: cubes, compressed ones, and files of one frame.
#include "containers/fits_table.h"
#include "fits/fits_header.h"
#include "verify/fits_parts.h"
#include "verify/frame_cards.h"
#include "verify/record_reader.h"
#include "verify/tile_reader.h"

#include <vxcamkit/error.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace vxcam {

namespace {

// Of planes that lie one behind the other in one part.
class PlanePixels : public PixelReader
{
public:
    PlanePixels(FitsParts parts, const ReadRecord& record)
        : parts_(std::move(parts)), record_(record)
    {}
    bool read(size_t frame, std::vector<char>* pixels) override
    {
        const FitsPart& part = parts_.parts().front();
        pixels->resize(record_.frameBytes());
        if (!parts_.read(part.data + frame * pixels->size(), pixels->data(), pixels->size())) {
            return false;
        }
        const auto width = static_cast<size_t>(record_.bits / 8);
        const bool isFlipped = width > 1 && part.number("BZERO") != 0;
        for (size_t i = 0; i < pixels->size(); i += width) {
            if (isFlipped) (*pixels)[i] = static_cast<char>((*pixels)[i] ^ '\x80');
            std::reverse(pixels->begin() + static_cast<std::ptrdiff_t>(i),
                         pixels->begin() + static_cast<std::ptrdiff_t>(i + width));
        }
        if (part.has("BLANK")) clearBlank(part.number("BLANK") + part.number("BZERO"), pixels);
        return true;
    }

private:
    // Pixels that did not come were 0 in memory.
    void clearBlank(int64_t blank, std::vector<char>* pixels) const
    {
        const auto width = static_cast<size_t>(record_.bits / 8);
        for (size_t i = 0; i < pixels->size(); i += width) {
            if (std::memcmp(pixels->data() + i, &blank, width) != 0) continue;
            std::memset(pixels->data() + i, 0, width);
        }
    }

    FitsParts parts_;
    const ReadRecord& record_;
};

int64_t highFirst(const char* bytes)
{
    uint64_t value = 0;
    for (size_t i = 0; i < sizeof value; ++i) {
        value = value << 8U | static_cast<unsigned char>(bytes[i]);
    }
    return static_cast<int64_t>(value);
}

void readTable(FitsParts* parts, const FitsPart& table, ReadRecord* record)
{
    const std::vector<RecordColumn>& columns = recordColumns();
    const auto width = static_cast<size_t>(table.number("NAXIS1"));
    const size_t numbers = columns.size() * sizeof(int64_t);
    if (width < numbers || width > numbers + 4096) { // what is measured stands behind
        record->find("file", "the table FRAMES is laid out in another way");
        return;
    }
    std::string row(width, '\0');
    for (int64_t i = 0; i < table.number("NAXIS2"); ++i) {
        if (!parts->read(table.data + static_cast<uint64_t>(i) * width, row.data(), width)) {
            record->find("file", "the table FRAMES is not whole");
            return;
        }
        ReadRow read;
        for (size_t k = 0; k < columns.size(); ++k) {
            if (!columns[k].isWhole()) continue;
            read.numbers[columns[k].name] = highFirst(row.data() + k * sizeof(int64_t));
        }
        std::string text = row.substr(numbers, kRowsText);
        text = text.substr(0, text.find('\0'));
        read.areRowsCut = text.size() > 3 && text.compare(text.size() - 3, 3, "...") == 0;
        if (!read.areRowsCut && !parseRanges(text, &read.missingRows)) {
            record->find("rows", "its list of missing rows is none", i);
        }
        record->frames.push_back(std::move(read));
    }
}

// Cards that are compared with other things.
void readCards(const FitsPart& part, ReadRecord* record)
{
    record->header = nlohmann::json::object();
    for (const char* word : {"EXPTIME", "XPOSURE", "SET-TEMP", "GAIN", "NFRAMES"}) {
        if (part.has(word)) record->header[word] = part.real(word);
    }
}

// The table of a record that still runs, or whose process was killed, lies beside it.
void readFrames(const std::string& path, FitsParts* parts, ReadRecord* record)
{
    const FitsPart& first = parts->parts().front();
    record->ended = first.text("RECEND");
    record->dropped = first.number("RECDROP", -1);
    if (const FitsPart* table = parts->find("FRAMES")) {
        readTable(parts, *table, record);
    } else if (record->ended == "running") {
        FitsParts beside(path + ".frames");
        if (const FitsPart* waiting = beside.find("FRAMES")) {
            readTable(&beside, *waiting, record);
        }
    } else {
        record->find("file", "the table FRAMES is not there");
    }
}

void checkCount(int64_t frames, ReadRecord* record)
{
    const auto rows = static_cast<int64_t>(record->frames.size());
    const bool isEven = rows == frames || (record->ended == "running" && rows > frames);
    if (!isEven) {
        record->find("file", "has " + std::to_string(frames) + " frames, and " +
                                 std::to_string(rows) + " rows in the table FRAMES");
    }
    if (rows > frames) record->frames.resize(static_cast<size_t>(frames));
}

// A file of one frame says of itself what a table would.
void readOneFrame(const FitsPart& part, ReadRecord* record)
{
    const bool isText = part.has("NMISSROW") && part.has("MISSROWS");
    ReadRow row = readFrameCards(part);
    if (isText && row.areRowsCut) record->find("rows", "its list of missing rows is none", 0);
    checkTimeCards(part, 0, record);
    record->ended = "complete";
    record->frames.push_back(std::move(row));
}

// Compressed: an extension for each frame, and then the table.
void checkExtensions(const FitsParts& parts, ReadRecord* record)
{
    size_t images = 0;
    for (const FitsPart& part : parts.parts()) {
        if (part.has("ZIMAGE")) ++images;
    }
    const size_t frames = record->frames.size();
    if (images != frames && (record->ended != "running" || images < frames)) {
        record->find("file", "has " + std::to_string(images) + " images, and " +
                                 std::to_string(frames) + " frames");
    }
    for (size_t i = 0; i < frames && i + 1 < parts.parts().size(); ++i) {
        const FitsPart& part = parts.parts()[i + 1];
        if (!part.has("ZIMAGE")) return;
        compareFrameCards(part, record->frames[i], "the table FRAMES", static_cast<int64_t>(i),
                          record);
        checkTimeCards(part, static_cast<int64_t>(i), record);
    }
}

} // namespace

std::unique_ptr<PixelReader> readFits(const std::string& path, ReadRecord* record)
{
    FitsParts parts(path);
    const FitsPart first = parts.parts().front();
    readCards(first, record);
    for (size_t i = 0; i < parts.parts().size(); ++i) {
        const FitsPart part = parts.parts()[i];
        if (part.has("CHECKSUM") && !parts.isSumRight(part)) {
            record->find("file", "the sum of part " + std::to_string(i) + " is not right");
        }
    }
    if (first.has("RECEND")) readFrames(path, &parts, record);
    const bool isRunning = record->ended == "running" && first.has("RECEND");
    if (parts.rest() != 0 && !isRunning) {
        record->find("file", std::to_string(parts.rest()) + " bytes at its end belong to nothing");
    }
    if (first.number("NAXIS") == 0 && first.has("RECFRAME")) {
        checkCount(first.number("RECFRAME"), record);
        checkExtensions(parts, record);
        return readTiles(path, record);
    }
    record->columns = static_cast<int>(first.number("NAXIS1"));
    record->rows = static_cast<int>(first.number("NAXIS2"));
    record->bits = static_cast<int>(first.number("BITPIX"));
    if (record->columns < 1 || record->rows < 1 ||
        (record->bits != 8 && record->bits != 16 && record->bits != 32)) {
        throw Error(ErrorKind::File, path + ": holds no frames", EINVAL);
    }
    if (first.number("NAXIS") == 3) {
        checkCount(first.number("NAXIS3"), record);
    } else {
        readOneFrame(first, record);
    }
    return std::make_unique<PlanePixels>(std::move(parts), *record);
}

} // namespace vxcam
