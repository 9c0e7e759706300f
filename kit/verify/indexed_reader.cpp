// Raw, TIFF and SER records, by the index beside them.
#include "containers/frame_index.h"
#include "verify/page_cards.h"
#include "verify/record_reader.h"

#include <vxcamkit/error.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>

namespace vxcam {

namespace {

using Json = nlohmann::json;

constexpr uint64_t kSerHead = 178;
const std::string kSerMagic = "LUCAM-RECORDER";
constexpr uint64_t kDescription = 270;              // a tag
constexpr uint64_t kMostText = 1U << 20U;           // characters of it
constexpr int64_t kTick = 100;                      // ns
constexpr int64_t kEpoch = 621'355'968'000'000'000; // ticks from the year 1 to 1970

class FilePixels : public PixelReader
{
public:
    FilePixels(const std::string& path, const ReadRecord& record)
        : record_(record), file_(path, std::ios::binary)
    {
        if (!file_) throw Error(ErrorKind::File, path + ": cannot be read", errno);
        file_.seekg(0, std::ios::end);
        size_ = static_cast<uint64_t>(file_.tellg());
    }
    bool read(size_t frame, std::vector<char>* pixels) override
    {
        pixels->resize(record_.frameBytes());
        return bytes(record_.frames[frame].offset, pixels->data(), pixels->size());
    }
    bool bytes(uint64_t at, char* to, size_t count)
    {
        if (at > size_ || count > size_ - at) return false;
        file_.clear();
        file_.seekg(static_cast<std::streamoff>(at));
        return static_cast<bool>(file_.read(to, static_cast<std::streamsize>(count)));
    }
    // A number, low byte first; 0 where there is none.
    uint64_t number(uint64_t at, size_t count)
    {
        unsigned char found[8] = {};
        if (!bytes(at, reinterpret_cast<char*>(found), count)) return 0;
        uint64_t value = 0;
        for (size_t i = count; i-- > 0;) {
            value = value << 8U | found[i];
        }
        return value;
    }
    uint64_t size() const { return size_; }

private:
    const ReadRecord& record_;
    std::ifstream file_;
    uint64_t size_ = 0;
};

void takeFrame(const Json& line, ReadRecord* record)
{
    ReadRow row;
    for (const auto& [name, value] : line.items()) {
        if (value.is_number_integer()) row.numbers[name] = value.get<int64_t>();
    }
    row.offset = line.value("offset", uint64_t{0});
    const auto frame = static_cast<int64_t>(record->frames.size());
    if (!parseRanges(line.value("missing_rows", ""), &row.missingRows)) {
        record->find("rows", "its list of missing rows is none", frame);
    }
    record->frames.push_back(std::move(row));
}

void takeHead(const Json& line, ReadRecord* record)
{
    record->rows = line.value("rows", 0);
    record->columns = line.value("columns", 0);
    record->bits = line.value("bits", 0);
    record->header = line.value("header", Json::object());
    record->settings = line.value("settings", Json::object());
}

void readIndex(const std::string& path, ReadRecord* record)
{
    std::ifstream index(path);
    if (!index) {
        throw Error(ErrorKind::File, path + ": the index cannot be read: " + std::strerror(errno),
                    errno);
    }
    int number = 0;
    for (std::string text; std::getline(index, text);) {
        ++number;
        const Json line = Json::parse(text, nullptr, false);
        if (!line.is_object() || index.eof()) {
            record->find("file", "line " + std::to_string(number) + " of the index is not whole");
        } else if (number == 1) {
            takeHead(line, record);
        } else if (line.contains("index")) {
            takeFrame(line, record);
        } else if (line.contains("ended")) {
            record->ended = line.value("ended", "");
            record->dropped = line.value("dropped", int64_t{-1});
        }
    }
    const bool isShape = record->rows > 0 && record->columns > 0 && record->rows < 65536 &&
                         record->columns < 65536 &&
                         (record->bits == 8 || record->bits == 16 || record->bits == 32);
    if (!isShape) throw Error(ErrorKind::File, path + ": says no size of frames", EINVAL);
}

void checkOffsets(ReadRecord* record, uint64_t first, bool isDense)
{
    uint64_t due = first;
    for (size_t i = 0; i < record->frames.size(); ++i) {
        const uint64_t offset = record->frames[i].offset;
        if (isDense ? offset != due : offset < due) {
            record->find("file", "its pixels do not follow those before", static_cast<int64_t>(i));
        }
        due = offset + record->frameBytes();
    }
}

void checkRaw(FilePixels& file, ReadRecord* record)
{
    checkOffsets(record, 0, true);
    if (record->ended != "running" && file.size() != record->frames.size() * record->frameBytes()) {
        record->find("file", "has " + std::to_string(file.size()) + " bytes, and not those of " +
                                 std::to_string(record->frames.size()) + " frames");
    }
}

void checkSer(FilePixels& file, ReadRecord* record)
{
    checkOffsets(record, kSerHead, true);
    std::string magic(kSerMagic.size(), '\0');
    if (!file.bytes(0, magic.data(), magic.size()) || magic != kSerMagic) {
        record->find("file", "it does not begin as SER files do");
    }
    if (file.number(18, 4) != 0 || file.number(22, 4) != 0) {
        record->find("file", "its head says that pixels are not gray, or not low byte first");
    }
    const uint64_t frames = record->frames.size();
    const bool isShape = file.number(26, 4) == static_cast<uint64_t>(record->columns) &&
                         file.number(30, 4) == static_cast<uint64_t>(record->rows) &&
                         file.number(34, 4) == static_cast<uint64_t>(record->bits);
    if (!isShape) record->find("file", "its head says another size than the index");
    if (record->ended == "running") return;
    if (file.number(38, 4) != frames) {
        record->find("file", "its head says another number of frames than the index");
    }
    const uint64_t times = kSerHead + frames * record->frameBytes();
    if (file.size() != times + 8 * frames) record->find("file", "it is longer or shorter");
    for (uint64_t i = 0; i < frames; ++i) {
        const int64_t due = kEpoch + record->frames[i]["begin_ns"] / kTick;
        if (file.number(times + 8 * i, 8) == static_cast<uint64_t>(due)) continue;
        record->find("times", "the time at the end of the file is another one",
                     static_cast<int64_t>(i));
    }
}

// What a tag of that many characters refers to, without its end.
std::string textOf(FilePixels& file, uint64_t at, uint64_t count)
{
    if (count == 0 || count > kMostText) return "";
    std::string text(static_cast<size_t>(count), '\0');
    if (!file.bytes(at, text.data(), text.size()) || text.back() != '\0') return "";
    text.pop_back();
    return text;
}

// Follows the pages: each has the size and the pixels of its frame, and says of it what the index
// does.
void checkTiff(FilePixels& file, ReadRecord* record)
{
    checkOffsets(record, 16, false);
    constexpr uint64_t start = 0x0008'002B'4949; // II, 43, eight bytes an offset, low byte first
    if (file.number(0, 8) != start) record->find("file", "it does not begin as BigTIFF files do");
    uint64_t page = file.number(8, 8);
    size_t count = 0;
    for (; page != 0 && count < record->frames.size(); ++count) {
        std::map<uint64_t, uint64_t> tags;
        uint64_t characters = 0; // of the description
        const uint64_t entries = std::min<uint64_t>(file.number(page, 8), 64);
        for (uint64_t i = 0; i < entries; ++i) {
            const uint64_t tag = file.number(page + 8 + 20 * i, 2);
            tags[tag] = file.number(page + 20 + 20 * i, 8);
            if (tag == kDescription) characters = file.number(page + 12 + 20 * i, 8);
        }
        const bool isIt = tags[256] == static_cast<uint64_t>(record->columns) &&
                          tags[257] == static_cast<uint64_t>(record->rows) &&
                          tags[258] == static_cast<uint64_t>(record->bits) && tags[259] == 1 &&
                          tags[262] == 1 && tags[277] == 1 &&
                          tags[273] == record->frames[count].offset &&
                          tags[279] == record->frameBytes();
        if (!isIt) {
            record->find("file", "its page is not that of the index", static_cast<int64_t>(count));
        }
        comparePageCards(textOf(file, tags[kDescription], characters), static_cast<int64_t>(count),
                         record);
        page = file.number(page + 8 + 20 * entries, 8);
    }
    const bool isMore = page != 0 && record->ended != "running";
    if (count < record->frames.size() || isMore) {
        record->find("file", "has more or less pages than the index has frames");
    }
}

} // namespace

bool parseRanges(const std::string& text, std::vector<int>* numbers)
{
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at < end) {
        int first = 0;
        auto [rest, error] = std::from_chars(at, end, first);
        int last = first;
        if (error == std::errc() && rest < end && *rest == '-') {
            const auto second = std::from_chars(rest + 1, end, last);
            rest = second.ptr;
            error = second.ec;
        }
        const bool isEnd = rest == end || *rest == ',';
        if (error != std::errc() || !isEnd || last < first || last > 65535) return false;
        for (int number = first; number <= last; ++number) {
            numbers->push_back(number);
        }
        at = rest + 1;
    }
    return true;
}

std::unique_ptr<PixelReader> readIndexed(const std::string& path, ReadRecord* record)
{
    readIndex(frameIndexPath(path), record);
    auto pixels = std::make_unique<FilePixels>(path, *record);
    if (record->format == "raw") checkRaw(*pixels, record);
    if (record->format == "SER") checkSer(*pixels, record);
    if (record->format == "TIFF") checkTiff(*pixels, record);
    return pixels;
}

} // namespace vxcam
