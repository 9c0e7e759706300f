#include "logrecord.h"

#include "vxvisible.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

constexpr size_t gnTagAt = 20, gnTagBytes = 16, gnMessageAt = 36, gnMessageBytes = 256;
constexpr int32_t gnMostMillis = 1000;
constexpr size_t gnTimeLength = 17; // "20240115-13:45:02"
constexpr size_t gnTagColumns = 8, gnLabelColumns = 4;

int32_t WordAt(const unsigned char* bytes)
{
    uint32_t word = 0;
    for (size_t i = 0; i < 4; ++i) {
        word |= uint32_t{bytes[i]} << (8 * i);
    }
    return static_cast<int32_t>(word);
}

// The text of a field; false when it does not end in it.
bool TextAt(const unsigned char* bytes, size_t size, std::string* text)
{
    const void* end = std::memchr(bytes, '\0', size);
    if (end == nullptr) return false;
    text->assign(reinterpret_cast<const char*>(bytes));
    return true;
}

std::string WithoutBlanksInFront(std::string_view text)
{
    const size_t first = text.find_first_not_of(' ');
    return std::string(first == std::string_view::npos ? "" : text.substr(first));
}

bool IsTime(std::string_view text)
{
    constexpr std::string_view pattern = "dddddddd-dd:dd:dd";
    static_assert(pattern.size() == gnTimeLength, "the pattern is as long as a time");
    return text.size() == pattern.size() &&
           std::equal(text.begin(), text.end(), pattern.begin(), [](char c, char wanted) {
               return wanted == 'd' ? c >= '0' && c <= '9' : c == wanted;
           });
}

// Takes `length` columns and the colon behind them off the text; false when they are not there.
bool TakeColumns(std::string_view* text, size_t length, std::string_view* columns)
{
    if (text->size() <= length || (*text)[length] != ':') return false;
    *columns = text->substr(0, length);
    text->remove_prefix(length + 1);
    return true;
}

// When a record was made, in milliseconds, to compare; nothing when the text is no record.
std::optional<int64_t> MomentOf(const std::string& text)
{
    const std::optional<tsLogLine> line = ParseLogLine(text);
    tm time{};
    if (!line || ::strptime(line->time.c_str(), "%Y%m%d-%H:%M:%S", &time) == nullptr) return {};
    return int64_t{::timegm(&time)} * 1000 + line->millis;
}

} // namespace

std::optional<tsLogRecord> ParseLogRecord(const void* bytes, size_t count)
{
    if (bytes == nullptr || count != gnLogRecordBytes) return {};
    const auto* raw = static_cast<const unsigned char*>(bytes);
    tsLogRecord record;
    int32_t* const words[] = {&record.type, &record.seconds, &record.millis, &record.level,
                              &record.errorNumber};
    for (size_t i = 0; i < std::size(words); ++i) {
        *words[i] = WordAt(raw + 4 * i);
    }
    if (record.millis < 0 || record.millis > gnMostMillis) return {};
    if (!TextAt(raw + gnTagAt, gnTagBytes, &record.tag)) return {};
    if (!TextAt(raw + gnMessageAt, gnMessageBytes, &record.message)) return {};
    record.tag = WithoutBlanksInFront(record.tag);
    return record;
}

std::string LogLabel(const tsLogRecord& record)
{
    switch (record.type) {
    case eLogDebug:
        return record.level < 0 || record.level > 9 ? "DBG+" : "DBG" + std::to_string(record.level);
    case eLogJournal:
        return " JNL";
    case eLogError:
        return " ERR";
    case eLogEvent:
        return " EVT";
    default:
        return " UNK";
    }
}

std::string LogLine(const tsLogRecord& record)
{
    const time_t clock = record.seconds;
    tm local{};
    char time[80] = "", middle[80];
    if (::localtime_r(&clock, &local) == nullptr ||
        std::strftime(time, sizeof time, "%Y%m%d-%H:%M:%S", &local) == 0) {
        time[0] = '\0';
    }
    std::snprintf(middle, sizeof middle, ".%03d:%8s:%4s:", record.millis, record.tag.c_str(),
                  LogLabel(record).c_str());
    return std::string(time) + middle + record.message;
}

std::optional<tsLogLine> ParseLogLine(std::string_view text)
{
    if (!IsTime(text.substr(0, gnTimeLength)) || text.substr(gnTimeLength, 1) != ".") return {};
    tsLogLine line;
    line.time = std::string(text.substr(0, gnTimeLength));
    text.remove_prefix(gnTimeLength + 1);
    std::string_view millis, tag, label;
    const size_t digits = std::min(text.find(':'), text.size());
    if (digits < 3 || digits > 4 || !TakeColumns(&text, digits, &millis) ||
        millis.find_first_not_of("0123456789") != std::string_view::npos) {
        return {};
    }
    if (!TakeColumns(&text, gnTagColumns, &tag) || !TakeColumns(&text, gnLabelColumns, &label)) {
        return {};
    }
    line.millis = std::stoi(std::string(millis));
    if (line.millis > gnMostMillis) return {};
    line.tag = WithoutBlanksInFront(tag);
    line.label = WithoutBlanksInFront(label);
    if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
    line.message = std::string(text);
    return line;
}

std::vector<std::string> LogLinesInOrder(std::string_view text)
{
    std::vector<std::string> records;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        const std::string line(text.substr(0, end));
        if (records.empty() || ParseLogLine(line)) {
            records.push_back(line);
        } else {
            records.back() += "\n" + line;
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    PutLogInOrder(&records);
    return records;
}

// Records of several threads may be some milliseconds out of order; where the buffer went round,
// the step back in time is the largest.
void PutLogInOrder(std::vector<std::string>* records)
{
    std::vector<int64_t> moments;
    for (const std::string& record : *records) {
        const std::optional<int64_t> moment = MomentOf(record);
        if (!moment) return;
        moments.push_back(*moment);
    }
    if (moments.empty() || moments.front() <= moments.back()) return;
    size_t oldest = 0;
    int64_t largest = 0;
    for (size_t i = 1; i < moments.size(); ++i) {
        const int64_t step = moments[i - 1] - moments[i];
        if (step <= largest) continue;
        largest = step;
        oldest = i;
    }
    std::rotate(records->begin(), records->begin() + static_cast<std::ptrdiff_t>(oldest),
                records->end());
}

std::string Printable(std::string_view text)
{
    return vx::Visible(text);
}
