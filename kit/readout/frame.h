// One frame, and everything that is known of it.
#ifndef VXCAMKIT_FRAME_H
#define VXCAMKIT_FRAME_H

#include <vxcamkit/area.h>
#include <vxcamkit/export.h>
#include <vxcamkit/frame_times.h>
#include <vxcamkit/snapshot.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vxcam {

enum class ReadoutKind {
    Area,       // sensor pixels, 8 or 16 bits
    Binned,     // sums of a grid of bins, 32 bits
    MaskBinned, // sums of the bins of the camera's mask, 32 bits
    AsSet       // of plans alone: one of the first two
};
enum class FrameType { Light, Dark, Bias, Flat };

// "area", "binned", "mask-binned", "as-set"
VXCAMKIT_EXPORT const char* nameOf(ReadoutKind kind);
VXCAMKIT_EXPORT const char* nameOf(FrameType type); // "light", "dark", "bias", "flat"

// Something that the camera complained of while the frame's readout ran.
struct Complaint {
    int code = 0, subCode = 0;
    std::string text;
};

// What is known of a frame. A plain record; files, reports and faces are made from it.
struct FrameFacts {
    int number = 0;       // within its readout, from 1
    uint32_t readout = 0; // of the camera since it was opened, from 1
    int frames = 1;       // asked for in the readout; 0: endless
    ReadoutKind kind = ReadoutKind::Area;
    FrameType type = FrameType::Light;
    int bits = 16; // a pixel: 8, 16 or 32, always without a sign
    int rows = 0, columns = 0;
    Area area; // of the sensor, that it shows; of several regions, the smallest around them
    // Where several regions were read: they are stacked in the frame, in this order, each at the
    // left edge; what is right of a narrower one is 0. Else empty.
    std::vector<Area> regions;
    int binningX = 1, binningY = 1; // 0 where its pixels are no grid of equal bins
    Size sensor;
    std::string cameraName, serial; // empty where the camera does not tell
    std::string target;             // as it was opened
    std::chrono::microseconds exposure{0};
    std::optional<double> sensorTemperature, boardTemperature; // degrees Celsius, when it came
    std::optional<double> targetTemperature;
    int imageType = 0; // the camera's code
    int statistic = 0; // the camera's own figure
    uint32_t packetsExpected = 0, packetsMissing = 0;
    uint32_t packetsMisplaced = 0; // with pixels outside the image
    uint32_t packetsDamaged = 0;
    std::vector<int> missingRows;      // not whole, all 0; rows of the frame, from 0, ascending
    bool missingRowsKnown = true;      // false: something is missing, and which rows is not known;
                                       // these may show what an earlier frame left there
    std::vector<Complaint> complaints; // while its readout ran, up to when it came
    uint64_t dropped = 0; // frames of its stream before it that the consumer was too slow for
    FrameTimes times;
    Snapshot settings;               // the properties in force
    std::optional<uint64_t> trueSum; // of the pixels that were sent, as the simulated camera knows

    bool complete() const // nothing is missing, misplaced or damaged
    {
        return packetsMissing == 0 && packetsMisplaced == 0 && packetsDamaged == 0;
    }
    int missing() const { return static_cast<int>(packetsMissing); } // packets
};

// Pixels of one type, contiguous, row after row. Valid as long as a frame that has them.
template <class Pixel>
class PixelView
{
public:
    PixelView(const Pixel* data, size_t size) : data_(data), size_(size) {}

    const Pixel* data() const { return data_; }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    const Pixel* begin() const { return data_; }
    const Pixel* end() const { return data_ + size_; }
    const Pixel& operator[](size_t i) const { return data_[i]; }

private:
    const Pixel* data_;
    size_t size_;
};

// A frame.
//
// Threads: a value that shares its pixels; different copies may be used on different threads.
// Owns: its pixels, together with its copies. It may outlive its stream and its camera; its buffer
//   goes back to the stream with the last copy.
class VXCAMKIT_EXPORT Frame
{
public:
    // Of facts.rows x facts.columns pixels of facts.bits, which are 0. Throws Error{Usage} when
    // these make no frame.
    explicit Frame(FrameFacts facts);

    // The same with pixels that are there already: so many, contiguous, row after row.
    Frame(FrameFacts facts, std::shared_ptr<void> pixels);

    const FrameFacts& facts() const;
    int rows() const { return facts().rows; }
    int columns() const { return facts().columns; }
    int bits() const { return facts().bits; }
    bool complete() const { return facts().complete(); }
    int missing() const { return facts().missing(); } // packets
    const FrameTimes& times() const { return facts().times; }

    // Of all pixels; added up once.
    uint64_t sum() const;

    const void* data() const;
    size_t bytes() const; // of all pixels
    // For whoever fills a frame. Throws Error{Usage} when somebody else holds it, too.
    void* mutableData();

    // Throws Error{Usage} when a pixel is no such type: uint8_t, uint16_t, and uint32_t (or
    // int32_t).
    template <class Pixel>
    PixelView<Pixel> pixels() const;

    // One pixel, whatever its width. Throws Error{Usage} when there is none such.
    double pixel(int row, int column) const;

private:
    struct Body;
    void requireBits(int bits) const;

    std::shared_ptr<Body> body_;
};

template <>
VXCAMKIT_EXPORT PixelView<uint8_t> Frame::pixels<uint8_t>() const;
template <>
VXCAMKIT_EXPORT PixelView<uint16_t> Frame::pixels<uint16_t>() const;
template <>
VXCAMKIT_EXPORT PixelView<int32_t> Frame::pixels<int32_t>() const;
template <>
VXCAMKIT_EXPORT PixelView<uint32_t> Frame::pixels<uint32_t>() const;

} // namespace vxcam

#endif
