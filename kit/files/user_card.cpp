// Cards that a user writes.
#include <vxcamkit/error.h>
#include <vxcamkit/header.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <regex>

namespace vxcam {

namespace {

constexpr size_t kMostWord = 8;

// Those of makeHeader(), and those that say how a file is made up. A # stands for a number.
constexpr const char* kReserved[] = {
    "BITPIX",   "BLANK",    "BLOCKED",  "BRD-TEMP", "BSCALE",   "BUNIT",    "BZERO",    "CAMADDR",
    "CAMSTAT",  "CCD-TEMP", "CHECKSUM", "CLKSYNC",  "COMMENT",  "COMPLETE", "COMPLNT#", "CONTINUE",
    "DATAMAX",  "DATAMIN",  "DATASEC",  "DATASUM",  "DATE",     "DATE-AVG", "DATE-BEG", "DATE-END",
    "DATE-OBS", "DETSEC",   "DETSIZE",  "END",      "EXPTIME",  "EXTEND",   "FRAMENO",  "GAIN",
    "GCOUNT",   "GROUPS",   "HIERARCH", "HISTORY",  "IMAGETYP", "IMGTYPE",  "INHERIT",  "INSTRUME",
    "LONGSTRN", "LTM#_#",   "LTV#",     "MISSROWS", "MJD-AVG",  "MJD-BEG",  "MJD-END",  "MJD-OBS",
    "NAXIS",    "NAXIS#",   "NCOMPLNT", "NDAMAGED", "NDROPPED", "NFRAMES",  "NMISPLAC", "NMISSING",
    "NMISSROW", "NPACKETS", "NREGIONS", "OFFSET",   "PCOUNT",   "PIXSUM",   "READMODE", "READOUT",
    "REGION#",  "ROWORDER", "SERIAL",   "SET-TEMP", "SIMPLE",   "SIMSUM",   "SWCREATE", "TBCOL#",
    "TDIM#",    "TDISP#",   "TELAPSE",  "TFIELDS",  "TFORM#",   "THEAP",    "TIMEHOW",  "TIMESYS",
    "TIMEUNIT", "TIMRDER",  "TIMSYER",  "TNULL#",   "TSCAL#",   "TTYPE#",   "TUNIT#",   "TZERO#",
    "XBINNING", "XORGSUBF", "XPOSURE",  "XTENSION", "YBINNING", "YORGSUBF"};

// Words whose values are texts, whatever they look like.
constexpr const char* kTexts[] = {"AUTHOR",  "FILTER",  "OBJECT",   "OBSERVER", "ORIGIN",
                                  "PROGRAM", "RADESYS", "REFERENC", "SITENAME", "TELESCOP"};

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool matches(const char* pattern, const std::string& word)
{
    size_t at = 0;
    for (; *pattern != '\0'; ++pattern) {
        if (*pattern != '#') {
            if (at >= word.size() || word[at++] != *pattern) return false;
            continue;
        }
        if (at >= word.size() || !isDigit(word[at])) return false;
        while (at < word.size() && isDigit(word[at])) {
            ++at;
        }
    }
    return at == word.size();
}

[[noreturn]] void refuse(const std::string& text, const std::string& why)
{
    throw Error(ErrorKind::Usage, "header '" + text + "': " + why);
}

std::string trimmed(const std::string& text)
{
    const size_t first = text.find_first_not_of(' ');
    return first == std::string::npos ? ""
                                      : text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

std::string wordOf(const std::string& text, const std::string& name)
{
    std::string word = trimmed(name);
    std::transform(word.begin(), word.end(), word.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? char(c - 'a' + 'A') : c; });
    const bool isPlain = std::all_of(word.begin(), word.end(), [](char c) {
        return isDigit(c) || (c >= 'A' && c <= 'Z') || c == '-' || c == '_';
    });
    if (word.empty() || word.size() > kMostWord || !isPlain) {
        refuse(text, "the word before = has 1 to 8 letters, digits, - or _");
    }
    if (isReserved(word)) refuse(text, word + " is a word that files have of their own");
    return word;
}

// The text in quotes at the front of `rest`, which then is what stands behind it.
std::string quoted(const std::string& text, std::string* rest)
{
    std::string value;
    for (size_t at = 1; at < rest->size(); ++at) {
        if ((*rest)[at] == '\'') {
            if (at + 1 >= rest->size() || (*rest)[at + 1] != '\'') {
                *rest = trimmed(rest->substr(at + 1));
                if (!rest->empty() && rest->front() != '/') {
                    refuse(text, "behind the text in quotes comes / and a comment, or nothing");
                }
                return value;
            }
            ++at;
        }
        value += (*rest)[at];
    }
    refuse(text, "the quote has no end");
}

HeaderCard::Value valueOf(const std::string& value)
{
    static const std::regex whole("[+-]?[0-9]{1,18}");
    static const std::regex real("[+-]?([0-9]+\\.?[0-9]*|\\.[0-9]+)([eE][+-]?[0-9]+)?");
    if (value == "T" || value == "F") return value == "T";
    const char* const first = value.data() + (!value.empty() && value[0] == '+' ? 1 : 0);
    const char* const end = value.data() + value.size();
    if (std::regex_match(value, whole)) {
        int64_t number = 0;
        std::from_chars(first, end, number);
        return number;
    }
    double number = 0;
    if (std::regex_match(value, real) && std::from_chars(first, end, number).ec == std::errc() &&
        std::isfinite(number)) {
        return number;
    }
    return value;
}

} // namespace

bool isReserved(const std::string& keyword)
{
    return std::any_of(std::begin(kReserved), std::end(kReserved),
                       [&](const char* pattern) { return matches(pattern, keyword); });
}

HeaderCard parseCard(const std::string& text)
{
    const size_t equals = text.find('=');
    if (equals == std::string::npos) refuse(text, "write KEY=VALUE or KEY=VALUE/COMMENT");
    HeaderCard card;
    card.keyword = wordOf(text, text.substr(0, equals));
    std::string rest = trimmed(text.substr(equals + 1));
    if (!rest.empty() && rest.front() == '\'') {
        card.value = quoted(text, &rest);
        card.comment = rest.empty() ? "" : trimmed(rest.substr(1));
        return card;
    }
    const size_t slash = rest.find('/');
    const std::string value = trimmed(rest.substr(0, slash));
    const bool isText =
        std::find(std::begin(kTexts), std::end(kTexts), card.keyword) != std::end(kTexts);
    card.value = isText ? HeaderCard::Value(value) : valueOf(value);
    if (slash != std::string::npos) card.comment = trimmed(rest.substr(slash + 1));
    return card;
}

} // namespace vxcam
