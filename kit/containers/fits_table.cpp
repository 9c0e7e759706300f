#include "containers/fits_table.h"

#include "files/ascii.h"
#include "fits/fits_words.h"

#include <algorithm>
#include <cstring>

namespace vxcam {

namespace {

constexpr size_t kMostHow = 30; // characters, which one card has room for
constexpr size_t kKindText = 20, kEventText = 200;

void addNumber(uint64_t bits, std::string* row)
{
    for (int shift = 56; shift >= 0; shift -= 8) {
        row->push_back(static_cast<char>(bits >> static_cast<unsigned>(shift) & 0xFFU));
    }
}

void addText(const std::string& text, size_t width, std::string* row)
{
    std::string field = asciiOf(text);
    if (field.size() > width) field = field.substr(0, width - 3) + "...";
    field.resize(width, '\0');
    *row += field;
}

// The lines of a table, column by column.
class TableHeader
{
public:
    TableHeader(const std::string& name, size_t rowBytes, uint64_t rows, int columns)
    {
        header_.text("XTENSION", "BINTABLE", "a table");
        header_.whole("BITPIX", 8, "of bytes");
        header_.whole("NAXIS", 2, "rows of columns");
        header_.whole("NAXIS1", static_cast<int64_t>(rowBytes), "bytes of a row");
        header_.whole("NAXIS2", static_cast<int64_t>(rows), "rows");
        header_.whole("PCOUNT", 0, "nothing behind it");
        header_.whole("GCOUNT", 1, "one table");
        header_.whole("TFIELDS", columns, "columns");
        header_.text("EXTNAME", name, "what it is");
    }
    void column(const std::string& name, const std::string& form, const std::string& unit,
                const std::string& meaning)
    {
        const std::string number = std::to_string(++columns_);
        header_.text("TTYPE" + number, name, meaning.size() > 40 ? "" : meaning);
        header_.text("TFORM" + number, form, "");
        if (!unit.empty()) header_.text("TUNIT" + number, unit, "");
    }
    std::string finish(uint32_t dataSum) const { return header_.finish(dataSum); }

private:
    FitsHeader header_;
    int columns_ = 0;
};

std::string textForm(size_t width)
{
    return std::to_string(width) + "A";
}

void addColumns(const std::vector<RecordColumn>& columns, TableHeader* header)
{
    for (const RecordColumn& column : columns) {
        header->column(column.name, column.isWhole() ? "1K" : "1D", column.unit, column.meaning);
    }
}

void addNumbers(const std::vector<RecordColumn>& columns, const RecordedFrame& frame,
                std::string* row)
{
    for (const RecordColumn& column : columns) {
        uint64_t bits = 0;
        std::visit(
            [&](auto valueOf) {
                const auto value = valueOf(frame);
                static_assert(sizeof value == sizeof bits);
                std::memcpy(&bits, &value, sizeof bits);
            },
            column.value);
        addNumber(bits, row);
    }
}

} // namespace

std::string frameTableHeader(uint64_t rows, bool isMeasured, uint32_t dataSum)
{
    const size_t numbers = recordColumns().size() + (isMeasured ? measureColumns().size() : 0);
    TableHeader header("FRAMES", numbers * sizeof(uint64_t) + kRowsText, rows,
                       static_cast<int>(numbers) + 1);
    addColumns(recordColumns(), &header);
    header.column("missing_rows", textForm(kRowsText), "", "rows that are not whole");
    if (isMeasured) addColumns(measureColumns(), &header);
    return header.finish(dataSum);
}

std::string frameTableRow(const RecordedFrame& frame)
{
    std::string row;
    addNumbers(recordColumns(), frame, &row);
    addText(rangesText(frame.frame.facts().missingRows), kRowsText, &row);
    if (frame.measures) addNumbers(measureColumns(), frame, &row);
    return row;
}

void addRecordCards(const RecordEnd& end, uint64_t frames, FitsHeader* header)
{
    header->text("RECEND", asciiOf(end.how).substr(0, kMostHow), "how the record ended");
    header->whole("RECFRAME", static_cast<int64_t>(frames), "frames that it has");
    header->whole("RECDROP", static_cast<int64_t>(end.dropped), "frames that were dropped");
}

std::string eventTable(const std::vector<Event>& events)
{
    constexpr size_t rowBytes = 4 * sizeof(uint64_t) + kKindText + kEventText;
    std::string rows;
    for (const Event& event : events) {
        addNumber(static_cast<uint64_t>(nanosecondsOf(event.time.utc)), &rows);
        addNumber(static_cast<uint64_t>(int64_t{event.code}), &rows);
        addNumber(static_cast<uint64_t>(int64_t{event.subCode}), &rows);
        addNumber(event.readout, &rows);
        addText(nameOf(event.kind), kKindText, &rows);
        addText(event.text, kEventText, &rows);
    }
    rows.resize(fitsBlocks(rows.size()), '\0');
    TableHeader header("EVENTS", rowBytes, events.size(), 6);
    header.column("time_ns", "1K", "ns", "UTC since 1970");
    header.column("code", "1K", "", "of an error");
    header.column("sub_code", "1K", "", "");
    header.column("readout", "1K", "", "that ran");
    header.column("event", textForm(kKindText), "", "what it was");
    header.column("text", textForm(kEventText), "", "");
    return header.finish(fitsSum(rows.data(), rows.size())) + rows;
}

} // namespace vxcam
