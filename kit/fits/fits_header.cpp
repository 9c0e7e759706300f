#include "fits/fits_header.h"

#include "fits/fits_words.h"

#include <algorithm>
#include <array>

namespace vxcam {

namespace {

constexpr const char* kNoSum = "0000000000000000";
constexpr size_t kSumLength = 16;

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

size_t fitsBlocks(size_t bytes)
{
    return (bytes + kFitsBlock - 1) / kFitsBlock * kFitsBlock;
}

void FitsHeader::add(const HeaderCard& card, std::vector<std::string>* warnings)
{
    const std::vector<std::string> lines = fitsCards(card, warnings);
    hasLongTexts_ = hasLongTexts_ || lines.size() > 1;
    for (const std::string& line : lines) {
        text_ += line;
    }
}

std::string FitsHeader::finish(const std::string& fileSum, uint32_t dataSum) const
{
    FitsHeader whole = *this;
    if (hasLongTexts_) whole.text("LONGSTRN", "OGIP 1.0", "long texts are continued");
    whole.text("CHECKSUM", fileSum, "sum of the file, as a text");
    whole.text("DATASUM", std::to_string(dataSum), "sum of the pixels");
    whole.text_ += "END";
    whole.text_.resize(fitsBlocks(whole.text_.size()), ' ');
    return std::move(whole.text_);
}

std::string FitsHeader::finish(uint32_t dataSum) const
{
    const std::string draft = finish(kNoSum, dataSum);
    const uint32_t sum = addFitsSums(dataSum, fitsSum(draft.data(), draft.size()));
    return finish(sumText(~sum), dataSum);
}

} // namespace vxcam
