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
    return makePng(graysOf(frame, findStretch(frame)), frame.columns());
}

FileBytes makePng(const std::vector<uint8_t>& grays, int columns)
{
    if (columns < 1 || grays.empty() || grays.size() % static_cast<size_t>(columns) != 0) {
        throw Error(ErrorKind::Usage, "a picture has whole rows");
    }
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(columns);
    image.height = static_cast<png_uint_32>(grays.size() / static_cast<size_t>(columns));
    image.format = PNG_FORMAT_GRAY;
    image.flags = PNG_IMAGE_FLAG_FAST;
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    FileBytes bytes(size);
    if (png_image_write_to_memory(&image, bytes.data(), &size, 0, grays.data(), 0, nullptr) == 0) {
        throw Error(ErrorKind::File, std::string("the picture cannot be made: ") + image.message,
                    EIO);
    }
    bytes.shrink(size);
    return bytes;
}

} // namespace vxcam
