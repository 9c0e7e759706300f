// Frames in files of any kind.
#ifndef VXCAMKIT_FRAME_FILE_H
#define VXCAMKIT_FRAME_FILE_H

#include <vxcamkit/export.h>
#include <vxcamkit/file_bytes.h>
#include <vxcamkit/frame.h>
#include <vxcamkit/header.h>

#include <optional>
#include <string>
#include <vector>

namespace vxcam {

enum class FileFormat {
    Fits,
    Tiff,
    Preview // PNG, for looking at
};

// "FITS", "TIFF", "PNG"
VXCAMKIT_EXPORT const char* nameOf(FileFormat format);

// By the ending of a name, in small letters or capitals: .fits .fit .fts, .tif .tiff, .png. Nothing
// for another one.
VXCAMKIT_EXPORT std::optional<FileFormat> formatOf(const std::string& path);

// Whether this kit was built with it.
VXCAMKIT_EXPORT bool isAvailable(FileFormat format);

// What a name says that a file of this format is not: "PNG", "HDF5", "JPEG". Empty where it says
// nothing else: it ends as files of the format do, or as none that is known.
VXCAMKIT_EXPORT std::string otherKindOf(const std::string& path, FileFormat format);

// As makeFits(), makeTiff() and makePreview() do.
VXCAMKIT_EXPORT FileBytes makeFile(FileFormat format, const Frame& frame,
                                   const HeaderOptions& options = {},
                                   std::vector<std::string>* warnings = nullptr,
                                   FileBytes spare = {});

// The names of `count` files. One %d in the pattern (or %4d, or %04d for zeros in front) stands for
// the frame's number from 1, %% for a percent sign. Without one, several files get "-0001" and so
// on in front of the ending. Throws Error{Usage} for another pattern.
VXCAMKIT_EXPORT std::string fileName(const std::string& pattern, int number, int count);

} // namespace vxcam

#endif
