#include <vxcamkit/fits.h>

#include "files/fits_cards.h"
#include "files/fits_pixels.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace vxcam {

namespace {

constexpr const char* kNoSum = "0000000000000000";
constexpr size_t kSumLength = 16;

size_t blocks(size_t bytes)
{
    return (bytes + kFitsBlock - 1) / kFitsBlock * kFitsBlock;
}

// The lines of a header, one behind the other.
class FitsHeader
{
public:
    void add(const HeaderCard& card, std::vector<std::string>* warnings = nullptr)
    {
        const std::vector<std::string> lines = fitsCards(card, warnings);
        hasLongTexts_ = hasLongTexts_ || lines.size() > 1;
        for (const std::string& line : lines) {
            text_ += line;
        }
    }
    void whole(const std::string& keyword, int64_t value, const std::string& comment)
    {
        add({keyword, value, comment});
    }
    void text(const std::string& keyword, const std::string& value, const std::string& comment)
    {
        add({keyword, value, comment});
    }
    bool hasLongTexts() const { return hasLongTexts_; }

    std::string finish() const
    {
        std::string whole = text_ + "END";
        whole.resize(blocks(whole.size()), ' ');
        return whole;
    }

private:
    std::string text_;
    bool hasLongTexts_ = false;
};

// How the file is made up.
void addStructure(const Frame& frame, const FitsPixels& pixels, FitsHeader* header)
{
    header->add({"SIMPLE", true, "a FITS file"});
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

// A sum as 16 letters and digits, such that the file's own sum becomes that of nothing.
std::string sumText(uint32_t sum)
{
    constexpr std::array<char, 13> excluded = {':', ';',  '<', '=', '>', '?', '@',
                                               '[', '\\', ']', '^', '_', '`'};
    const auto isExcluded = [&](int letter) {
        return std::find(excluded.begin(), excluded.end(), letter) != excluded.end();
    };
    std::string text(kSumLength, '0');
    for (size_t place = 0; place < 4; ++place) {
        const int byte = static_cast<int>(sum >> (24U - 8U * place) & 0xFFU);
        std::array<int, 4> letters{};
        letters.fill('0' + byte / 4);
        letters[0] += byte % 4;
        for (bool isChanged = true; isChanged;) {
            isChanged = false;
            for (size_t i = 0; i < letters.size(); i += 2) {
                if (!isExcluded(letters[i]) && !isExcluded(letters[i + 1])) continue;
                ++letters[i];
                --letters[i + 1];
                isChanged = true;
            }
        }
        for (size_t i = 0; i < letters.size(); ++i) {
            // In the file the letters begin one byte behind the begin of a word.
            text[(4 * i + place + 1) % kSumLength] = static_cast<char>(letters[i]);
        }
    }
    return text;
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
    if (header.hasLongTexts()) header.text("LONGSTRN", "OGIP 1.0", "long texts are continued");

    FitsHeader whole = header;
    const auto addSums = [&whole](const std::string& file, uint32_t data) {
        whole.text("CHECKSUM", file, "sum of the file, as a text");
        whole.text("DATASUM", std::to_string(data), "sum of the pixels");
    };
    addSums(kNoSum, 0);
    const size_t start = whole.finish().size();
    FileBytes file(start + blocks(frame.bytes()), std::move(spare));
    encodePixels(frame, pixels, file.data() + start);
    std::memset(file.data() + start + frame.bytes(), 0, file.room() - start - frame.bytes());

    const uint32_t dataSum = fitsSum(file.data() + start, file.size() - start);
    whole = header;
    addSums(kNoSum, dataSum);
    const std::string draft = whole.finish();
    const uint32_t sum = addFitsSums(dataSum, fitsSum(draft.data(), draft.size()));
    whole = header;
    addSums(sumText(~sum), dataSum);
    std::memcpy(file.data(), whole.finish().data(), start);
    return file;
}

} // namespace vxcam
