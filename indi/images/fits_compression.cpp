#include "fits_compression.h"

#include <vxcamkit/error.h>

#include <fitsio.h>
#include <string>

namespace vxcam {

namespace {

constexpr size_t kFirstRoom = size_t{1} << 20, kMoreRoom = size_t{4} << 20;

void require(int status, const char* what)
{
    if (status == 0) return;
    char reason[FLEN_STATUS] = "";
    fits_get_errstatus(status, reason);
    throw Error(ErrorKind::File, std::string("packing the image: ") + what + ": " + reason);
}

} // namespace

PackedFile packFits(const void* file, size_t size)
{
    void* content = const_cast<void*>(file); // it is only read
    fitsfile* plain = nullptr;
    int status = 0;
    fits_open_memfile(&plain, "plain", READONLY, &content, &size, 0, nullptr, &status);
    require(status, "reading");

    void* memory = std::malloc(kFirstRoom);
    size_t room = kFirstRoom;
    fitsfile* packed = nullptr;
    fits_create_memfile(&packed, &memory, &room, kMoreRoom, std::realloc, &status);
    if (packed != nullptr) {
        fits_set_compression_type(packed, RICE_1, &status);
        fits_img_compress(plain, packed, &status);
        fits_flush_file(packed, &status);
        LONGLONG begin = 0, data = 0, end = 0;
        fits_get_hduaddrll(packed, &begin, &data, &end, &status);
        room = static_cast<size_t>(end);
        int closing = 0;
        fits_close_file(packed, &closing);
    }
    int closing = 0;
    fits_close_file(plain, &closing);
    PackedFile result{std::unique_ptr<void, PackedFile::Free>(memory), room};
    require(status, "writing");
    return result;
}

} // namespace vxcam
