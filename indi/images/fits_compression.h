// Packed FITS files.
#ifndef VXINDI_FITS_COMPRESSION_H
#define VXINDI_FITS_COMPRESSION_H

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace vxcam {

// Memory of the C library.
struct PackedFile {
    struct Free {
        void operator()(void* memory) const { std::free(memory); }
    };
    std::unique_ptr<void, Free> bytes;
    size_t size = 0;
};

// The same file with its image in Rice-coded tiles, without a loss, as ".fits.fz" has it. Throws
// Error{File}.
PackedFile packFits(const void* file, size_t size);

} // namespace vxcam

#endif
