// The kinds of records, a row each.
#include "containers/record_file.h"

#include <vxcamkit/error.h>
#include <vxcamkit/frame_file.h>

#include <algorithm>
#include <iterator>

namespace vxcam {

namespace {

FileBytes asItIs(const RecordedFrame& /*frame*/, const RecordOptions& /*options*/,
                 FileBytes /*spare*/)
{
    return {};
}

// clang-format off
constexpr RecordKind kKinds[] = {
#if VXCAMKIT_HAS_HDF5
    {RecordFormat::Hdf5, Compression::None, makeHdf5Record, asItIs, 32, false, "", false},
    {RecordFormat::Hdf5, Compression::Gzip, makeHdf5Record, encodeForHdf5, 32, false, "", false},
#endif
    {RecordFormat::Fits, Compression::None, makeCubeRecord, encodeForCube, 32, false, ".frames", true},
    {RecordFormat::Fits, Compression::None, makeFitsFilesRecord, encodeForFitsFiles, 32, true, "", false},
#if VXCAMKIT_HAS_CFITSIO
    {RecordFormat::Fits, Compression::Gzip, makeTilesRecord, encodeForTiles, 32, false, ".frames", true},
    {RecordFormat::Fits, Compression::Rice, makeTilesRecord, encodeForTiles, 32, false, ".frames", true},
#endif
    {RecordFormat::Tiff, Compression::None, makeTiffRecord, asItIs, 32, false, ".jsonl", false},
    {RecordFormat::Ser, Compression::None, makeSerRecord, asItIs, 16, false, ".jsonl", false},
    {RecordFormat::Raw, Compression::None, makeRawRecord, asItIs, 32, false, ".jsonl", false},
};
// clang-format on

struct Ending {
    const char* text;
    RecordFormat format;
};
constexpr Ending kEndings[] = {{".h5", RecordFormat::Hdf5},  {".hdf5", RecordFormat::Hdf5},
                               {".nxs", RecordFormat::Hdf5}, {".fits", RecordFormat::Fits},
                               {".fit", RecordFormat::Fits}, {".fts", RecordFormat::Fits},
                               {".tif", RecordFormat::Tiff}, {".tiff", RecordFormat::Tiff},
                               {".ser", RecordFormat::Ser},  {".raw", RecordFormat::Raw}};

std::string endingOf(const std::string& path)
{
    const size_t dot = path.rfind('.'), slash = path.rfind('/');
    const size_t first = slash == std::string::npos ? 0 : slash + 1;
    if (dot == std::string::npos || dot <= first) return "";
    std::string ending = path.substr(dot);
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; });
    return ending;
}

} // namespace

const char* nameOf(RecordFormat format)
{
    switch (format) {
    case RecordFormat::Hdf5:
        return "HDF5";
    case RecordFormat::Fits:
        return "FITS";
    case RecordFormat::Tiff:
        return "TIFF";
    case RecordFormat::Ser:
        return "SER";
    case RecordFormat::Raw:
        break;
    }
    return "raw";
}

const char* nameOf(Compression compression)
{
    switch (compression) {
    case Compression::Gzip:
        return "gzip";
    case Compression::Rice:
        return "rice";
    case Compression::None:
        break;
    }
    return "none";
}

std::optional<RecordFormat> recordFormatOf(const std::string& path)
{
    const std::string ending = endingOf(path);
    const auto* const found = std::find_if(std::begin(kEndings), std::end(kEndings),
                                           [&](const Ending& one) { return ending == one.text; });
    return found != std::end(kEndings) ? std::optional(found->format) : std::nullopt;
}

bool isAvailable(RecordFormat format)
{
    return std::any_of(std::begin(kKinds), std::end(kKinds),
                       [&](const RecordKind& kind) { return kind.format == format; });
}

const RecordKind& recordKindOf(const std::string& path, const RecordOptions& options)
{
    const auto refuse = [&](const std::string& why) {
        throw Error(ErrorKind::Usage, "record '" + path + "': " + why);
    };
    const std::optional<RecordFormat> format = recordFormatOf(path);
    if (!format) refuse("the name says no format: .h5, .fits, .tif, .ser or .raw");
    if (!isAvailable(*format)) refuse(std::string("this kit was built without ") + nameOf(*format));
    const bool isMany = *format == RecordFormat::Fits && options.split == 0 &&
                        options.compression == Compression::None &&
                        path.find('%') != std::string::npos &&
                        fileName(path, 1, 1) != fileName(path, 2, 1);
    const auto* const kind =
        std::find_if(std::begin(kKinds), std::end(kKinds), [&](const RecordKind& one) {
            return one.format == *format && one.compression == options.compression &&
                   one.isMany == isMany;
        });
    if (kind == std::end(kKinds)) {
        refuse(std::string(nameOf(*format)) + " files are not compressed by " +
               nameOf(options.compression));
    }
    return *kind;
}

size_t recordCopies(const std::string& path, const RecordOptions& options)
{
    return recordKindOf(path, options).encode == asItIs ? 0 : kRecordDrafts;
}

} // namespace vxcam
