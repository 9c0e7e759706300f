#include "verify/tile_reader.h"

#include <vxcamkit/error.h>

#include <fitsio.h>

#include <cerrno>
#include <cstdlib>

namespace vxcam {

namespace {

class TilePixels : public PixelReader
{
public:
    TilePixels(const std::string& path, ReadRecord* record) : record_(*record)
    {
        int status = 0, bits = 0, axes = 0;
        long size[2] = {0, 0};
        fits_open_diskfile(&file_, path.c_str(), READONLY, &status);
        fits_movabs_hdu(file_, 2, nullptr, &status);
        fits_get_img_param(file_, 2, &bits, &axes, size, &status);
        if (status != 0) {
            if (file_ != nullptr) fits_close_file(file_, &axes);
            throw Error(ErrorKind::File, path + ": holds no frames", EIO);
        }
        record->columns = static_cast<int>(size[0]);
        record->rows = static_cast<int>(size[1]);
        record->bits = std::abs(bits);
    }
    ~TilePixels() override
    {
        int ignored = 0;
        fits_close_file(file_, &ignored);
    }
    TilePixels(const TilePixels&) = delete;
    TilePixels& operator=(const TilePixels&) = delete;

    bool read(size_t frame, std::vector<char>* pixels) override
    {
        int status = 0, any = 0;
        pixels->resize(record_.frameBytes());
        const int type = record_.bits == 8 ? TBYTE : record_.bits == 16 ? TUSHORT : TUINT;
        const auto count = static_cast<LONGLONG>(record_.rows) * record_.columns;
        fits_movabs_hdu(file_, static_cast<int>(frame) + 2, nullptr, &status);
        fits_read_img(file_, type, 1, count, nullptr, pixels->data(), &any, &status);
        return status == 0;
    }

private:
    const ReadRecord& record_;
    fitsfile* file_ = nullptr;
};

} // namespace

std::unique_ptr<PixelReader> readTiles(const std::string& path, ReadRecord* record)
{
    return std::make_unique<TilePixels>(path, record);
}

} // namespace vxcam
