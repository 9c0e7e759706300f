#include "fits/fits_cards.h"

#include "files/ascii.h"
#include "values/decimals.h"
#include "values/escapes.h"

#include <algorithm>
#include <cmath>

namespace vxcam {

namespace {

constexpr size_t kWord = 8;         // characters of an ordinary keyword
constexpr size_t kShortestText = 8; // between its quotes, of an ordinary card
constexpr size_t kNumberEnd = 30;   // column where numbers end
constexpr const char* kContinue = "CONTINUE  ";

std::string padded(std::string text, size_t width)
{
    if (text.size() < width) text.append(width - text.size(), ' ');
    return text;
}

// Where quotes are written twice, both stay together.
std::vector<std::string> units(const std::string& text)
{
    std::vector<std::string> list;
    for (const char c : text) {
        list.emplace_back(c == '\'' ? 2 : 1, c);
    }
    return list;
}

// Behind the column where numbers end, as far as there is room for that.
void addComment(std::string* line, const std::string& comment)
{
    if (comment.empty()) return;
    const std::string whole = " / " + comment;
    if (whole.size() < kFitsCard) {
        *line = padded(*line, std::min(kNumberEnd, kFitsCard - whole.size()));
    }
    *line += whole;
    if (line->size() > kFitsCard) line->resize(kFitsCard);
}

// A text behind `front`, and behind that, line by line, what does not fit.
std::vector<std::string> textCards(const std::string& front, const std::string& text)
{
    std::vector<std::string> lines;
    std::string line = front + "'";
    const std::vector<std::string> parts = units(text);
    size_t left = 0; // to come
    for (const std::string& part : parts) {
        left += part.size();
    }
    for (const std::string& part : parts) {
        // The last line needs its quote, the others one and the sign that there is more.
        if (line.size() + left + 1 > kFitsCard && line.size() + part.size() + 2 > kFitsCard) {
            lines.push_back(line + "&'");
            line = std::string(kContinue) + "'";
        }
        line += part;
        left -= part.size();
    }
    if (lines.empty() && front.size() == kWord + 2) {
        line = padded(line, front.size() + 1 + kShortestText);
    }
    lines.push_back(line + "'");
    return lines;
}

std::string scalarText(const HeaderCard& card)
{
    if (const auto* value = std::get_if<bool>(&card.value)) return *value ? "T" : "F";
    if (const auto* value = std::get_if<int64_t>(&card.value)) return std::to_string(*value);
    return fitsNumber(std::get<double>(card.value), card.decimals);
}

} // namespace

std::string fitsNumber(double value, int decimals)
{
    if (!std::isfinite(value)) return "";
    if (decimals != HeaderCard::kAsNeeded) return fixedText(value, decimals);
    std::string number;
    for (const int digits : {15, 17}) {
        number = roundedText(value, digits);
        if (numberIn(number) == value) break;
    }
    std::replace(number.begin(), number.end(), 'e', 'E');
    if (number.find('.') == std::string::npos) {
        number.insert(std::min(number.find('E'), number.size()), ".0");
    }
    return number;
}

std::vector<std::string> fitsCards(const HeaderCard& card, std::vector<std::string>* warnings)
{
    const bool isOrdinary = card.keyword.size() <= kWord;
    const std::string front =
        padded(card.keyword, isOrdinary ? kWord : 0) + (isOrdinary ? "= " : " = ");
    const std::string comment = asciiOf(card.comment);
    std::vector<std::string> lines;
    if (const auto* given = std::get_if<std::string>(&card.value)) {
        const std::string text = asciiOf(*given);
        lines = textCards(front, text);
        if (text != *given && warnings != nullptr) {
            warnings->push_back(card.keyword + ": '" + escaped(*given) + "' is written as '" +
                                text + "', since FITS files hold ASCII alone");
        }
    } else {
        std::string value = scalarText(card);
        if (value.empty()) return {}; // no number: it is not known
        if (isOrdinary && front.size() + value.size() < kNumberEnd) {
            value.insert(0, kNumberEnd - front.size() - value.size(), ' ');
        }
        lines = {front + value};
    }
    addComment(&lines.back(), comment);
    const bool isCut = !comment.empty() && lines.back().size() == kFitsCard &&
                       lines.back().find(" / " + comment) == std::string::npos;
    if (warnings != nullptr && (isCut || comment != card.comment)) {
        warnings->push_back(card.keyword + ": the comment '" + escaped(card.comment) +
                            "' is not written as it stands");
    }
    for (std::string& line : lines) {
        line = padded(line, kFitsCard);
    }
    return lines;
}

} // namespace vxcam
