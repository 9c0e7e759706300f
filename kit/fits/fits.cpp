#include <vxcamkit/fits.h>

#include "fits/fits_header.h"
#include "fits/fits_pixels.h"

#include <cstring>

namespace vxcam {

namespace {

// How the file is made up.
void addStructure(const Frame& frame, const FitsPixels& pixels, FitsHeader* header)
{
    header->logical("SIMPLE", true, "a FITS file");
    header->whole("BITPIX", pixels.bits, "bits of a pixel");
    header->whole("NAXIS", 2, "an image");
    header->whole("NAXIS1", frame.columns(), "columns");
    header->whole("NAXIS2", frame.rows(), "rows");
    if (pixels.zero != 0) {
        header->whole("BZERO", pixels.zero, "numbers in the file + this are the pixels");
        header->whole("BSCALE", 1, "as they are");
    }
    if (pixels.blank) header->whole("BLANK", *pixels.blank, "number of pixels that did not come");
    const auto now = std::chrono::system_clock::now();
    header->text("DATE", utcText(UtcTime(now), 0), "when the file was made, UTC");
}

} // namespace

FileBytes makeFits(const Frame& frame, const HeaderOptions& options,
                   std::vector<std::string>* warnings, FileBytes spare)
{
    const std::vector<HeaderCard> cards = makeHeader(frame, options);
    const FitsPixels pixels = fitsPixelsOf(frame);
    FitsHeader header;
    addStructure(frame, pixels, &header);
    for (const HeaderCard& card : cards) {
        header.add(card, warnings);
    }

    const size_t start = header.finish(0).size();
    FileBytes file(start + fitsBlocks(frame.bytes()), std::move(spare));
    const uint32_t sum = encodePixels(frame, pixels, file.data() + start);
    std::memset(file.data() + start + frame.bytes(), 0, file.room() - start - frame.bytes());
    std::memcpy(file.data(), header.finish(sum).data(), start);
    return file;
}

std::vector<std::string> fitsWarnings(const HeaderCard& card)
{
    std::vector<std::string> warnings;
    fitsCards(card, &warnings);
    return warnings;
}

} // namespace vxcam
