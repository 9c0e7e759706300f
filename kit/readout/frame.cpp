#include <vxcamkit/frame.h>

#include "readout/frame_pool.h"
#include "values/pixel_sum.h"

#include <vxcamkit/error.h>

#include <cstring>
#include <mutex>

namespace vxcam {

namespace {

size_t pixelCount(const FrameFacts& facts)
{
    return static_cast<size_t>(facts.rows) * static_cast<size_t>(facts.columns);
}

size_t byteCount(const FrameFacts& facts)
{
    return pixelCount(facts) * static_cast<size_t>(facts.bits) / 8;
}

void requireShape(const FrameFacts& facts)
{
    if (facts.rows < 1 || facts.columns < 1) {
        throw Error(ErrorKind::Usage, "a frame of " + std::to_string(facts.columns) + " x " +
                                          std::to_string(facts.rows) + " pixels has no pixels");
    }
    if (facts.bits != 8 && facts.bits != 16 && facts.bits != 32) {
        throw Error(ErrorKind::Usage,
                    "a frame's pixels have 8, 16 or 32 bits, not " + std::to_string(facts.bits));
    }
}

std::shared_ptr<void> allocate(const FrameFacts& facts)
{
    requireShape(facts);
    std::shared_ptr<void> memory = allocateFrame(byteCount(facts));
    std::memset(memory.get(), 0, byteCount(facts));
    return memory;
}

template <class Pixel>
uint64_t sumOf(const PixelView<Pixel>& pixels)
{
    return pixelSum(pixels.data(), pixels.size());
}

} // namespace

const char* nameOf(ReadoutKind kind)
{
    switch (kind) {
    case ReadoutKind::Binned:
        return "binned";
    case ReadoutKind::MaskBinned:
        return "mask-binned";
    case ReadoutKind::AsSet:
        return "as-set";
    case ReadoutKind::Area:
        break;
    }
    return "area";
}

const char* nameOf(FrameType type)
{
    switch (type) {
    case FrameType::Dark:
        return "dark";
    case FrameType::Bias:
        return "bias";
    case FrameType::Flat:
        return "flat";
    case FrameType::Light:
        break;
    }
    return "light";
}

struct Frame::Body {
    FrameFacts facts;
    std::shared_ptr<void> pixels;
    std::mutex lock; // of the sum
    std::optional<uint64_t> sum;

    Body(FrameFacts frameFacts, std::shared_ptr<void> framePixels)
        : facts(std::move(frameFacts)), pixels(std::move(framePixels))
    {}
};

Frame::Frame(FrameFacts facts)
{
    std::shared_ptr<void> pixels = allocate(facts);
    body_ = std::make_shared<Body>(std::move(facts), std::move(pixels));
}

Frame::Frame(FrameFacts facts, std::shared_ptr<void> pixels)
{
    requireShape(facts);
    if (!pixels) throw Error(ErrorKind::Usage, "a frame without pixels");
    body_ = std::make_shared<Body>(std::move(facts), std::move(pixels));
}

const FrameFacts& Frame::facts() const
{
    return body_->facts;
}

uint64_t Frame::sum() const
{
    std::lock_guard<std::mutex> lock(body_->lock);
    if (body_->sum) return *body_->sum;
    uint64_t sum = 0;
    if (bits() == 8) sum = sumOf(pixels<uint8_t>());
    if (bits() == 16) sum = sumOf(pixels<uint16_t>());
    if (bits() == 32) sum = sumOf(pixels<uint32_t>());
    body_->sum = sum;
    return sum;
}

const void* Frame::data() const
{
    return body_->pixels.get();
}

size_t Frame::bytes() const
{
    return byteCount(facts());
}

void* Frame::mutableData()
{
    if (body_.use_count() > 1) {
        throw Error(ErrorKind::Usage, "a frame that others hold cannot be changed");
    }
    std::lock_guard<std::mutex> lock(body_->lock);
    body_->sum.reset();
    return body_->pixels.get();
}

void Frame::requireBits(int bits) const
{
    if (bits == this->bits()) return;
    throw Error(ErrorKind::Usage, "the frame's pixels have " + std::to_string(this->bits()) +
                                      " bits, not " + std::to_string(bits));
}

template <>
PixelView<uint8_t> Frame::pixels<uint8_t>() const
{
    requireBits(8);
    return {static_cast<const uint8_t*>(data()), pixelCount(facts())};
}

template <>
PixelView<uint16_t> Frame::pixels<uint16_t>() const
{
    requireBits(16);
    return {static_cast<const uint16_t*>(data()), pixelCount(facts())};
}

template <>
PixelView<int32_t> Frame::pixels<int32_t>() const
{
    requireBits(32);
    return {static_cast<const int32_t*>(data()), pixelCount(facts())};
}

template <>
PixelView<uint32_t> Frame::pixels<uint32_t>() const
{
    requireBits(32);
    return {static_cast<const uint32_t*>(data()), pixelCount(facts())};
}

double Frame::pixel(int row, int column) const
{
    if (row < 0 || column < 0 || row >= rows() || column >= columns()) {
        throw Error(ErrorKind::Usage, "no pixel in row " + std::to_string(row) + ", column " +
                                          std::to_string(column) + " of a frame of " +
                                          std::to_string(columns()) + " x " +
                                          std::to_string(rows()));
    }
    const size_t at =
        static_cast<size_t>(row) * static_cast<size_t>(columns()) + static_cast<size_t>(column);
    if (bits() == 8) return pixels<uint8_t>()[at];
    if (bits() == 16) return pixels<uint16_t>()[at];
    return pixels<uint32_t>()[at];
}

} // namespace vxcam
