// Records of the log as they come over the network, in binary or as lines of text.
//
// Input: a kind, then the bytes of a datagram or of a text.
#include "logrecord.h"
#include "tcFuzzInput.h"

#include <memory>

namespace {

bool IsPrintable(const std::string& text)
{
    return std::none_of(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7F;
    });
}

void CheckRecord(const std::vector<uint8_t>& content)
{
    const std::unique_ptr<uint8_t[]> datagram(new uint8_t[content.size()]);
    std::copy(content.begin(), content.end(), datagram.get());
    const auto record = ParseLogRecord(datagram.get(), content.size());
    if (!record) return;
    Require(content.size() == gnLogRecordBytes, "a record has its size");
    Require(record->tag.size() <= 15 && record->message.size() <= 255, "texts fit their fields");
    Require(record->millis >= 0 && record->millis <= 1000, "milliseconds");
    Require(LogLabel(*record).size() >= 4, "a label has its columns");
    const std::string line = LogLine(*record);
    Require(IsPrintable(Printable(line)), "a line can be shown");
    if (record->tag.size() > 8) return;
    const auto again = ParseLogLine(line);
    Require(again.has_value(), "a record's line is a line");
    std::string message = record->message;
    if (!message.empty() && message.back() == '\n') message.pop_back();
    Require(again->message == message && again->millis == record->millis, "a line tells it all");
    Require(again->tag == record->tag, "a line tells whose it is");
}

void CheckText(const std::vector<uint8_t>& content)
{
    const std::unique_ptr<char[]> copy(new char[content.size()]);
    std::copy(content.begin(), content.end(), copy.get());
    const std::string_view text(copy.get(), content.size());
    if (const auto line = ParseLogLine(text)) {
        Require(line->millis >= 0 && line->millis <= 1000, "milliseconds");
        Require(line->message.size() <= text.size(), "a message is part of its line");
    }
    size_t bytes = 0;
    for (const std::string& line : LogLinesInOrder(text))
        bytes += line.size();
    Require(bytes <= text.size(), "lines are parts of the text");
    Require(IsPrintable(Printable(text)), "a text can be shown");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    tcFuzzInput input(bytes, count);
    const unsigned kind = input.U8();
    if (kind % 2 == 0)
        CheckRecord(input.Rest());
    else
        CheckText(input.Rest());
    return 0;
}
