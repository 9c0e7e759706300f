#include "fits/rice_tiles.h"

#include "fits/fits_header.h"
#include "fits/fits_words.h"

#include <vxcamkit/error.h>

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <utility>
#include <vector>

extern "C" {
#include <fitsio2.h>
}

namespace vxcam {

namespace {

constexpr int kRiceBlock = 32;   // pixels that are coded alike
constexpr size_t kPlaceSize = 8; // of what tells length and place of a row
using Code = unsigned char;

// How cfitsio codes pixels of each width: as signed numbers.
int codeRow(const uint8_t* pixels, int count, std::vector<signed char>* row, Code* to, int room)
{
    std::memcpy(row->data(), pixels, static_cast<size_t>(count));
    return fits_rcomp_byte(row->data(), count, to, room, kRiceBlock);
}

int codeRow(const uint16_t* pixels, int count, std::vector<short>* row, Code* to, int room)
{
    std::transform(pixels, pixels + count, row->begin(),
                   [](uint16_t pixel) { return static_cast<short>(pixel ^ 0x8000U); });
    return fits_rcomp_short(row->data(), count, to, room, kRiceBlock);
}

int codeRow(const uint32_t* pixels, int count, std::vector<int>* row, Code* to, int room)
{
    std::transform(pixels, pixels + count, row->begin(),
                   [](uint32_t pixel) { return static_cast<int>(pixel ^ 0x80000000U); });
    return fits_rcomp(row->data(), count, to, room, kRiceBlock);
}

// Bytes of a row, at most.
int rowRoom(const Frame& frame)
{
    return imcomp_calc_max_elem(RICE_1, frame.columns(), frame.bits(), kRiceBlock);
}

size_t tableRoom(const Frame& frame)
{
    return static_cast<size_t>(frame.rows()) *
           (kPlaceSize + static_cast<size_t>(std::max(rowRoom(frame), 0)));
}

// Rows of codes, and before them the table of their places.
struct Table {
    char* start;
    size_t rows;
    size_t longest = 0, codes = 0; // bytes, of a row and of all
    size_t size() const { return rows * kPlaceSize + codes; }
};

void putWord(size_t value, char* to)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        *to++ = static_cast<char>(value >> static_cast<unsigned>(shift) & 0xFFU);
    }
}

template <class Pixel, class Coded>
void codeRows(const Frame& frame, Table* table)
{
    const auto columns = static_cast<size_t>(frame.columns());
    const int room = rowRoom(frame);
    std::vector<Coded> row(columns);
    for (size_t i = 0; i < table->rows; ++i) {
        const Pixel* const pixels = frame.pixels<Pixel>().data() + i * columns;
        auto* const to = reinterpret_cast<Code*>(table->start + table->size());
        const int count = codeRow(pixels, frame.columns(), &row, to, room);
        if (count < 0) throw Error(ErrorKind::File, "a frame cannot be compressed", EIO);
        putWord(static_cast<size_t>(count), table->start + i * kPlaceSize);
        putWord(table->codes, table->start + i * kPlaceSize + kPlaceSize / 2);
        table->codes += static_cast<size_t>(count);
        table->longest = std::max(table->longest, static_cast<size_t>(count));
    }
}

void codeRows(const Frame& frame, Table* table)
{
    if (frame.bits() == 8) return codeRows<uint8_t, signed char>(frame, table);
    if (frame.bits() == 16) return codeRows<uint16_t, short>(frame, table);
    codeRows<uint32_t, int>(frame, table);
}

void addTable(const Frame& frame, const Table& table, FitsHeader* header)
{
    header->text("XTENSION", "BINTABLE", "a table, which is an image");
    header->whole("BITPIX", 8, "of bytes");
    header->whole("NAXIS", 2, "rows of columns");
    header->whole("NAXIS1", kPlaceSize, "bytes of a row of the table");
    header->whole("NAXIS2", frame.rows(), "rows of the table");
    header->whole("PCOUNT", static_cast<int64_t>(table.codes), "bytes of all that is compressed");
    header->whole("GCOUNT", 1, "one table");
    header->whole("TFIELDS", 1, "columns of the table");
    header->text("TTYPE1", "COMPRESSED_DATA", "a row of pixels");
    header->text("TFORM1", "1PB(" + std::to_string(table.longest) + ")", "bytes behind the table");
}

void addImage(const Frame& frame, FitsHeader* header)
{
    header->logical("ZIMAGE", true, "the image is compressed");
    header->logical("ZSIMPLE", true, "a FITS file");
    header->whole("ZBITPIX", frame.bits(), "bits of a pixel");
    header->whole("ZNAXIS", 2, "an image");
    header->whole("ZNAXIS1", frame.columns(), "columns");
    header->whole("ZNAXIS2", frame.rows(), "rows");
    header->whole("ZTILE1", frame.columns(), "columns that are compressed together");
    header->whole("ZTILE2", 1, "and rows");
    header->text("ZCMPTYPE", "RICE_1", "how it is compressed");
    header->text("ZNAME1", "BLOCKSIZE", "pixels that are coded alike");
    header->whole("ZVAL1", kRiceBlock, "");
    header->text("ZNAME2", "BYTEPIX", "bytes of a pixel");
    header->whole("ZVAL2", frame.bits() / 8, "");
    if (frame.bits() == 8) return;
    header->whole("BZERO", int64_t{1} << (frame.bits() - 1),
                  "numbers in the file + this are the pixels");
    header->whole("BSCALE", 1, "as they are");
}

// As long whatever the codes are.
std::string headerText(const Frame& frame, const std::vector<HeaderCard>& cards, const Table& table,
                       uint32_t sum)
{
    FitsHeader header;
    addTable(frame, table, &header);
    addImage(frame, &header);
    for (const HeaderCard& card : cards) {
        header.add(card);
    }
    return header.finish(sum);
}

} // namespace

bool fitsRiceTiles(const Frame& frame)
{
    return rowRoom(frame) > 0 &&
           tableRoom(frame) <= static_cast<size_t>(std::numeric_limits<int32_t>::max());
}

FileBytes riceTiles(const Frame& frame, const HeaderOptions& options, FileBytes spare)
{
    const std::vector<HeaderCard> cards = makeHeader(frame, options);
    Table table{nullptr, static_cast<size_t>(frame.rows())};
    const size_t start = headerText(frame, cards, table, 0).size();
    FileBytes file(start + fitsBlocks(tableRoom(frame)), std::move(spare));
    table.start = file.data() + start;
    codeRows(frame, &table);
    const size_t whole = fitsBlocks(table.size());
    std::memset(table.start + table.size(), 0, whole - table.size());
    file.shrink(start + whole);
    const std::string header = headerText(frame, cards, table, fitsSum(table.start, whole));
    std::memcpy(file.data(), header.data(), start);
    return file;
}

} // namespace vxcam
