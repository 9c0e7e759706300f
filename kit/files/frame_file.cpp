#include <vxcamkit/frame_file.h>

#include <vxcamkit/error.h>
#include <vxcamkit/fits.h>
#include <vxcamkit/preview.h>
#include <vxcamkit/tiff.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <utility>

namespace vxcam {

namespace {

constexpr int kUsualDigits = 4, kMostDigits = 9;

struct Ending {
    const char* text;
    FileFormat format;
};
constexpr Ending kEndings[] = {{".fits", FileFormat::Fits}, {".fit", FileFormat::Fits},
                               {".fts", FileFormat::Fits},  {".tif", FileFormat::Tiff},
                               {".tiff", FileFormat::Tiff}, {".png", FileFormat::Preview}};
// Of files that are not made of one frame.
constexpr std::pair<const char*, const char*> kOtherEndings[] = {
    {".raw", "raw"},    {".ser", "SER"},  {".h5", "HDF5"},   {".hdf5", "HDF5"}, {".nxs", "HDF5"},
    {".jsonl", "JSON"}, {".jpg", "JPEG"}, {".jpeg", "JPEG"}, {".gif", "GIF"},   {".bmp", "BMP"}};

size_t endingOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    const size_t start = slash == std::string::npos ? 0 : slash + 1;
    const size_t dot = path.rfind('.');
    return dot == std::string::npos || dot <= start ? path.size() : dot;
}

std::string smallEndingOf(const std::string& path)
{
    std::string ending = path.substr(endingOf(path));
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; });
    return ending;
}

[[noreturn]] void refuse(const std::string& pattern, const std::string& why)
{
    throw Error(ErrorKind::Usage, "file name '" + pattern + "': " + why);
}

std::string digitsOf(int number, int digits, bool hasZeros)
{
    char text[32];
    std::snprintf(text, sizeof text, hasZeros ? "%0*d" : "%*d", digits, number);
    return text;
}

// The pattern with the number in place of its conversion, and whether it had one.
std::string expanded(const std::string& pattern, int number, bool* isNumbered)
{
    std::string name;
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != '%' || pattern.compare(i, 2, "%%") == 0) {
            if (pattern[i] == '%') ++i;
            name += pattern[i];
            continue;
        }
        const bool hasZeros = pattern.compare(++i, 1, "0") == 0;
        int digits = 0;
        while (i < pattern.size() && pattern[i] >= '0' && pattern[i] <= '9') {
            digits = digits * 10 + (pattern[i++] - '0');
            if (digits > kMostDigits) refuse(pattern, "at most 9 digits");
        }
        if (i >= pattern.size() || pattern[i] != 'd') {
            refuse(pattern, "write %d or %04d for the frame's number, %% for a %");
        }
        if (*isNumbered) refuse(pattern, "it has two places for the number");
        *isNumbered = true;
        name += digitsOf(number, digits, hasZeros);
    }
    return name;
}

} // namespace

const char* nameOf(FileFormat format)
{
    switch (format) {
    case FileFormat::Tiff:
        return "TIFF";
    case FileFormat::Preview:
        return "PNG";
    case FileFormat::Fits:
        break;
    }
    return "FITS";
}

std::optional<FileFormat> formatOf(const std::string& path)
{
    const std::string ending = smallEndingOf(path);
    const auto* const found = std::find_if(std::begin(kEndings), std::end(kEndings),
                                           [&](const Ending& one) { return ending == one.text; });
    return found != std::end(kEndings) ? std::optional(found->format) : std::nullopt;
}

bool isAvailable(FileFormat format)
{
    if (format == FileFormat::Tiff) return VXCAMKIT_HAS_TIFF != 0;
    if (format == FileFormat::Preview) return VXCAMKIT_HAS_PNG != 0;
    return true;
}

std::string otherKindOf(const std::string& path, FileFormat format)
{
    if (const std::optional<FileFormat> named = formatOf(path)) {
        return *named != format ? nameOf(*named) : "";
    }
    const std::string ending = smallEndingOf(path);
    for (const auto& [other, kind] : kOtherEndings) {
        if (ending == other) return kind;
    }
    return "";
}

FileBytes makeFile(FileFormat format, const Frame& frame, const HeaderOptions& options,
                   std::vector<std::string>* warnings, FileBytes spare)
{
    switch (format) {
    case FileFormat::Tiff:
        return makeTiff(frame, options);
    case FileFormat::Preview:
        return makePreview(frame);
    case FileFormat::Fits:
        break;
    }
    return makeFits(frame, options, warnings, std::move(spare));
}

std::string fileName(const std::string& pattern, int number, int count)
{
    if (pattern.empty()) refuse(pattern, "it is empty");
    bool isNumbered = false;
    std::string name = expanded(pattern, number, &isNumbered);
    if (!isNumbered && count != 1) {
        name.insert(endingOf(name), "-" + digitsOf(number, kUsualDigits, true));
    }
    return name;
}

} // namespace vxcam
