// A frame as it goes over the wire: the pixel packets of one picture, made in one piece.
#ifndef TCSIMPICTURE_H
#define TCSIMPICTURE_H

#include "tcSimSensor.h"
#include "tcSimServer.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

// Part of the sensor.
struct tsSimRegion {
    uint32_t row = 0, column = 0, rows = 0, columns = 0;
};

enum class teSimKind { eArea16, eArea8, eBinned, eMaskBinned };

// What picture to make. Holds all it needs: the camera's settings may change meanwhile.
struct tsSimJob {
    teSimKind kind = teSimKind::eArea16;
    tsSimConditions conditions;
    std::vector<tsSimRegion> regions; // of the area readouts, in the order they are sent

    // Of the binned readout: where each group of rows or columns ends, exclusive. What lies beyond
    // the last group is not read.
    std::vector<uint32_t> rowEnds, columnEnds;
    double scale = 1.0; // times the sum of a group

    // Of the mask-binned readout: the bin of each pixel of the sensor, 0 for none.
    std::shared_ptr<const std::vector<uint8_t>> mask;

    uint32_t readout = 0, frame = 0;
};

// Whether two jobs differ in nothing but which frame they are.
bool SamePicture(const tsSimJob& first, const tsSimJob& second);

// Threads: made on one, sent from another; one at a time.
// Owns: the packets.
class tcSimPicture
{
public:
    // Null when `cancelled` became true meanwhile. Sequence numbers and the last-frame flag are
    // left 0: they are stamped when a packet goes out.
    static std::shared_ptr<tcSimPicture> Make(const tcSimSensor& sensor, const tsSimJob& job,
                                              const std::atomic<bool>& cancelled);

    // How many packets a picture takes; at most 65535 can be told.
    static uint64_t Packets(const tsSimJob& job);
    static uint32_t PixelsPerPacket(teSimKind kind);

    uint32_t PacketCount() const { return static_cast<uint32_t>(maStarts.size() - 1); }
    uint8_t* Packet(uint32_t number) { return mpBytes.get() + maStarts[number]; } // from 0
    size_t Bytes(uint32_t from, uint32_t to) const { return maStarts[to] - maStarts[from]; }
    // Of the pixels in the first `packets` packets.
    uint64_t PixelSum(uint32_t packets) const { return maSums[packets]; }
    uint32_t Crc(uint32_t packets) const { return maCrcs[packets]; }
    size_t PixelBytes(uint32_t packets) const { return maStarts[packets] - packets * mnHeadBytes; }
    // Of a packet, where its pixels begin.
    size_t HeadBytes() const { return mnHeadBytes; }
    const tsSimFrame& Facts() const { return mtFacts; }

private:
    class tcBuilder;
    tcSimPicture() = default;

    std::unique_ptr<uint8_t[]> mpBytes;
    std::vector<size_t> maStarts{0};
    std::vector<uint64_t> maSums{0};
    std::vector<uint32_t> maCrcs{0};
    size_t mnHeadBytes = 0;
    tsSimFrame mtFacts;
};

#endif
