#include "verify/fits_parts.h"

#include "fits/fits_header.h"
#include "fits/fits_words.h"

#include <vxcamkit/error.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>

namespace vxcam {

namespace {

constexpr uint64_t kMostHeader = 64 * kFitsBlock;
constexpr size_t kPiece = 400 * kFitsBlock;

std::string trimmed(const std::string& text)
{
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

// Behind the "= " of a line.
std::string valueOf(const std::string& text)
{
    if (text.empty() || text[0] != '\'') return trimmed(text.substr(0, text.find('/')));
    std::string value;
    for (size_t i = 1; i < text.size(); ++i) {
        if (text[i] == '\'' && (i + 1 >= text.size() || text[i + 1] != '\'')) break;
        if (text[i] == '\'') ++i;
        value += text[i];
    }
    return value.substr(0, value.find_last_not_of(' ') + 1);
}

uint64_t dataBytes(const FitsPart& part)
{
    const int64_t axes = part.number("NAXIS");
    if (axes <= 0 || axes > 9) return 0;
    uint64_t count = static_cast<uint64_t>(std::abs(part.number("BITPIX"))) / 8;
    for (int64_t axis = 1; axis <= axes; ++axis) {
        const int64_t length = part.number("NAXIS" + std::to_string(axis));
        if (length < 0 || length > std::numeric_limits<int32_t>::max()) return 0;
        count *= static_cast<uint64_t>(length);
    }
    return count + static_cast<uint64_t>(std::max<int64_t>(part.number("PCOUNT"), 0));
}

} // namespace

std::string FitsPart::text(const std::string& word) const
{
    const auto found = cards.find(word);
    return found != cards.end() ? found->second : "";
}

int64_t FitsPart::number(const std::string& word, int64_t otherwise) const
{
    const auto found = cards.find(word);
    return found != cards.end() ? std::strtoll(found->second.c_str(), nullptr, 10) : otherwise;
}

double FitsPart::real(const std::string& word) const
{
    const auto found = cards.find(word);
    return found != cards.end() ? std::strtod(found->second.c_str(), nullptr)
                                : std::numeric_limits<double>::quiet_NaN();
}

FitsParts::FitsParts(const std::string& path) : file_(path, std::ios::binary)
{
    if (!file_) throw Error(ErrorKind::File, path + ": cannot be read", errno);
    file_.seekg(0, std::ios::end);
    size_ = static_cast<uint64_t>(file_.tellg());
    uint64_t at = 0;
    while (at < size_ && readPart(at)) {
        at = parts_.back().data + fitsBlocks(parts_.back().bytes);
    }
    rest_ = at < size_ ? size_ - at : 0;
    if (parts_.empty() || !parts_[0].has("SIMPLE")) {
        throw Error(ErrorKind::File, path + ": is no FITS file", EINVAL);
    }
}

bool FitsParts::read(uint64_t at, char* to, size_t count)
{
    if (at > size_ || count > size_ - at) return false;
    file_.clear();
    file_.seekg(static_cast<std::streamoff>(at));
    return static_cast<bool>(file_.read(to, static_cast<std::streamsize>(count)));
}

bool FitsParts::readPart(uint64_t at)
{
    FitsPart part;
    part.start = at;
    std::string block(kFitsBlock, '\0');
    for (uint64_t end = at; end < at + kMostHeader; end += kFitsBlock) {
        if (!read(end, block.data(), block.size())) return false;
        if (end == at && block.rfind("SIMPLE  =", 0) != 0 && block.rfind("XTENSION=", 0) != 0) {
            return false;
        }
        for (size_t line = 0; line < kFitsBlock; line += kFitsCard) {
            const std::string card = block.substr(line, kFitsCard);
            if (trimmed(card) == "END") {
                part.data = end + kFitsBlock;
                part.bytes = dataBytes(part);
                parts_.push_back(std::move(part));
                return true;
            }
            const size_t equals = card.find("= ");
            if (equals == std::string::npos) continue;
            part.cards.emplace(trimmed(card.substr(0, equals)),
                               valueOf(trimmed(card.substr(equals + 2))));
        }
    }
    return false;
}

const FitsPart* FitsParts::find(const std::string& name) const
{
    const auto found = std::find_if(parts_.begin(), parts_.end(), [&](const FitsPart& part) {
        return part.text("EXTNAME") == name;
    });
    return found != parts_.end() ? &*found : nullptr;
}

bool FitsParts::isSumRight(const FitsPart& part)
{
    uint32_t sum = 0;
    std::string piece(kPiece, '\0');
    const uint64_t end = part.data + fitsBlocks(part.bytes);
    for (uint64_t at = part.start; at < end; at += kPiece) {
        const auto count = static_cast<size_t>(std::min<uint64_t>(kPiece, end - at));
        if (!read(at, piece.data(), count)) return false;
        sum = addFitsSums(sum, fitsSum(piece.data(), count));
    }
    return sum == 0 || sum == std::numeric_limits<uint32_t>::max();
}

} // namespace vxcam
