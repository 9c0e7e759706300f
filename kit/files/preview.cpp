#include <vxcamkit/preview.h>

#include <vxcamkit/error.h>
#include <vxcamkit/stretch.h>

#include <png.h>

#include <cerrno>
#include <string>
#include <vector>

namespace vxcam {

FileBytes makePreview(const Frame& frame)
{
    const std::vector<uint8_t> grays = graysOf(frame, findStretch(frame));
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(frame.columns());
    image.height = static_cast<png_uint_32>(frame.rows());
    image.format = PNG_FORMAT_GRAY;
    image.flags = PNG_IMAGE_FLAG_FAST;
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    FileBytes bytes(size);
    if (png_image_write_to_memory(&image, bytes.data(), &size, 0, grays.data(), 0, nullptr) == 0) {
        throw Error(ErrorKind::File, std::string("the preview cannot be made: ") + image.message,
                    EIO);
    }
    bytes.shrink(size);
    return bytes;
}

} // namespace vxcam
