#include "alpaca/alpaca_image.h"

#include <vxcamkit/error.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <limits>

namespace vxcam {

namespace {

constexpr int32_t kInt32 = 2, kByte = 6, kUint16 = 8; // types of elements
constexpr size_t kHeaderBytes = 44;
constexpr int kBlock = 32; // columns that are gathered at once, so that memory is read in lines

void putWord(std::string* bytes, uint32_t word)
{
    for (int shift = 0; shift < 32; shift += 8) {
        *bytes += static_cast<char>(word >> shift & 0xFF);
    }
}

std::string headerOf(const Transactions& ids, int32_t type, const Area& part)
{
    constexpr uint32_t kVersion = 1, kNoError = 0, kRank = 2;
    const std::array<uint32_t, kHeaderBytes / 4> words{kVersion,
                                                       kNoError,
                                                       ids.client,
                                                       ids.server,
                                                       kHeaderBytes,
                                                       kInt32,
                                                       static_cast<uint32_t>(type),
                                                       kRank,
                                                       static_cast<uint32_t>(part.columns),
                                                       static_cast<uint32_t>(part.rows),
                                                       0};
    std::string header;
    for (const uint32_t word : words) {
        putWord(&header, word);
    }
    return header;
}

template <class Pixel>
PixelView<Pixel> pixelsOf(const AlpacaImage& image)
{
    return image.frame.pixels<Pixel>();
}

template <class Pixel>
uint32_t mostOf(const AlpacaImage& image)
{
    const auto pixels = pixelsOf<Pixel>(image);
    uint32_t most = 0;
    for (int row = 0; row < image.part.rows; ++row) {
        const Pixel* const first = pixels.data() +
                                   size_t(image.part.row + row) * size_t(image.frame.columns()) +
                                   size_t(image.part.column);
        most = std::max<uint32_t>(most, *std::max_element(first, first + image.part.columns));
    }
    return most;
}

// Turns rows into columns of another type, which holds every value.
template <class Element, class Pixel>
void addColumns(const AlpacaImage& image, std::string* bytes)
{
    const auto pixels = pixelsOf<Pixel>(image);
    const Area& part = image.part;
    const auto rows = size_t(part.rows);
    const size_t begin = bytes->size();
    bytes->resize(begin + size_t(part.columns) * rows * sizeof(Element));
    char* const target = bytes->data() + begin;
    for (int first = 0; first < part.columns; first += kBlock) {
        const int end = std::min(first + kBlock, part.columns);
        for (size_t row = 0; row < rows; ++row) {
            const Pixel* const line = pixels.data() +
                                      (size_t(part.row) + row) * size_t(image.frame.columns()) +
                                      size_t(part.column);
            for (int column = first; column < end; ++column) {
                const auto element = static_cast<Element>(line[column]);
                std::memcpy(target + (size_t(column) * rows + row) * sizeof element, &element,
                            sizeof element);
            }
        }
    }
}

void requireInt32(const AlpacaImage& image)
{
    if (image.frame.bits() == 32 &&
        mostOf<uint32_t>(image) > uint32_t{std::numeric_limits<int32_t>::max()}) {
        throw Error(ErrorKind::Camera, "a sum of pixels is beyond what the protocol holds");
    }
}

template <class Pixel>
std::string textOf(const AlpacaImage& image)
{
    const auto pixels = pixelsOf<Pixel>(image);
    const Area& part = image.part;
    std::string text = "[";
    text.reserve(size_t(part.columns) * size_t(part.rows) * 6);
    std::array<char, 16> digits{};
    for (int column = 0; column < part.columns; ++column) {
        text += column == 0 ? "[" : ",[";
        for (int row = 0; row < part.rows; ++row) {
            const Pixel pixel = pixels[size_t(part.row + row) * size_t(image.frame.columns()) +
                                       size_t(part.column + column)];
            const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), pixel).ptr;
            if (row > 0) text += ',';
            text.append(digits.data(), static_cast<size_t>(end - digits.data()));
        }
        text += ']';
    }
    return text + "]";
}

} // namespace

std::string imageBytes(const AlpacaImage& image, const Transactions& ids)
{
    requireInt32(image);
    const int bits = image.frame.bits();
    const bool isWide =
        bits == 32 && mostOf<uint32_t>(image) > std::numeric_limits<uint16_t>::max();
    const int32_t type = bits == 8 ? kByte : isWide ? kInt32 : kUint16;
    std::string bytes = headerOf(ids, type, image.part);
    if (bits == 8) {
        addColumns<uint8_t, uint8_t>(image, &bytes);
    } else if (bits == 16) {
        addColumns<uint16_t, uint16_t>(image, &bytes);
    } else if (isWide) {
        addColumns<int32_t, uint32_t>(image, &bytes);
    } else {
        addColumns<uint16_t, uint32_t>(image, &bytes);
    }
    return bytes;
}

std::string imageJson(const AlpacaImage& image)
{
    requireInt32(image);
    switch (image.frame.bits()) {
    case 8:
        return textOf<uint8_t>(image);
    case 16:
        return textOf<uint16_t>(image);
    default:
        return textOf<uint32_t>(image);
    }
}

} // namespace vxcam
