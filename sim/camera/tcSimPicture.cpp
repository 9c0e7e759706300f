#include "tcSimPicture.h"

#include "crc32.h"
#include "vxmessages.h"

#include <algorithm>
#include <cstring>

namespace {

struct tsKindFacts {
    uint32_t id, headBytes, pixelBytes;
};

const tsKindFacts& FactsOf(teSimKind kind)
{
    static constexpr tsKindFacts facts[] = {
        {ansPixels16.id, offsetof(tsPixelData16Msg, Pixels), sizeof(uint16_t)},
        {ansPixels8.id, offsetof(tsPixelData8Msg, Pixels), sizeof(uint8_t)},
        {ansPixels32.id, offsetof(tsPixelData32Msg, Pixels), sizeof(uint32_t)},
        {ansPixels32.id, offsetof(tsPixelData32Msg, Pixels), sizeof(uint32_t)}};
    return facts[static_cast<size_t>(kind)];
}

// Rows and columns of what is sent, region by region.
std::vector<tsSimRegion> Shape(const tsSimJob& job)
{
    if (job.kind == teSimKind::eBinned) {
        return {{0, 0, static_cast<uint32_t>(job.rowEnds.size()),
                 static_cast<uint32_t>(job.columnEnds.size())}};
    }
    if (job.kind == teSimKind::eMaskBinned) {
        uint8_t bins = *std::max_element(job.mask->begin(), job.mask->end());
        return {{0, 0, 1, bins}};
    }
    return job.regions;
}

uint32_t PiecesOf(uint32_t columns, uint32_t pixelsPerPacket)
{
    return (columns + pixelsPerPacket - 1) / pixelsPerPacket;
}

} // namespace

bool SamePicture(const tsSimJob& first, const tsSimJob& second)
{
    auto sameRegion = [](const tsSimRegion& a, const tsSimRegion& b) {
        return a.row == b.row && a.column == b.column && a.rows == b.rows && a.columns == b.columns;
    };
    const tsSimConditions &a = first.conditions, &b = second.conditions;
    return first.kind == second.kind && first.rowEnds == second.rowEnds &&
           first.columnEnds == second.columnEnds && first.scale == second.scale &&
           first.mask == second.mask &&
           std::equal(first.regions.begin(), first.regions.end(), second.regions.begin(),
                      second.regions.end(), sameRegion) &&
           a.exposure == b.exposure && a.gain == b.gain && a.offset == b.offset &&
           a.shutterOpen == b.shutterOpen && a.hotPixels == b.hotPixels &&
           a.readNoise == b.readNoise && a.sky == b.sky && a.stars == b.stars &&
           a.mirrorHorizontal == b.mirrorHorizontal && a.mirrorVertical == b.mirrorVertical &&
           a.optics == b.optics && a.pattern == b.pattern && a.patternValues == b.patternValues;
}

uint32_t tcSimPicture::PixelsPerPacket(teSimKind kind)
{
    const tsKindFacts& facts = FactsOf(kind);
    return (gnLargestMessage - facts.headBytes) / facts.pixelBytes;
}

uint64_t tcSimPicture::Packets(const tsSimJob& job)
{
    uint64_t packets = 0;
    for (const tsSimRegion& region : Shape(job)) {
        packets += uint64_t{region.rows} * PiecesOf(region.columns, PixelsPerPacket(job.kind));
    }
    return packets;
}

// Fills one picture.
class tcSimPicture::tcBuilder
{
public:
    tcBuilder(const tcSimSensor& sensor, const tsSimJob& job, const std::atomic<bool>& cancelled)
        : mtSensor(sensor), mtJob(job), mbCancelled(cancelled), mtKind(FactsOf(job.kind)),
          mpPicture(new tcSimPicture), maRow(sensor.Columns())
    {}

    std::shared_ptr<tcSimPicture> Build()
    {
        Reserve();
        if (mtJob.kind == teSimKind::eBinned)
            BuildBinned();
        else if (mtJob.kind == teSimKind::eMaskBinned)
            BuildMaskBinned();
        else
            BuildArea();
        if (mbCancelled) return nullptr;
        Finish();
        return mpPicture;
    }

private:
    void Reserve()
    {
        const std::vector<tsSimRegion> shape = Shape(mtJob);
        const uint32_t pixelsPerPacket = PixelsPerPacket(mtJob.kind);
        size_t bytes = 0, packets = 0;
        tsSimFrame& facts = mpPicture->mtFacts;
        for (const tsSimRegion& region : shape) {
            const size_t pieces = PiecesOf(region.columns, pixelsPerPacket);
            packets += region.rows * pieces;
            bytes += region.rows *
                     (pieces * mtKind.headBytes + size_t{region.columns} * mtKind.pixelBytes);
            facts.rows += region.rows;
            facts.columns = std::max(facts.columns, region.columns);
            mnPixels += uint64_t{region.rows} * region.columns;
        }
        mpPicture->mpBytes.reset(new uint8_t[bytes]);
        mpPicture->maStarts.reserve(packets + 1);
        mpPicture->maSums.reserve(packets + 1);
        mpPicture->maCrcs.reserve(packets + 1);
        mpPicture->mnHeadBytes = mtKind.headBytes;
        mnPackets = static_cast<uint32_t>(packets);
    }

    void BuildArea()
    {
        for (const tsSimRegion& region : mtJob.regions) {
            for (uint32_t row = region.row; row < region.row + region.rows; ++row) {
                if (mbCancelled) return;
                mtSensor.ReadRow(mtJob.conditions, row, region.column, region.columns,
                                 maRow.data());
                if (mtJob.kind == teSimKind::eArea16) {
                    AddRow(row, region.column, maRow.data(), region.columns);
                    continue;
                }
                maBytes.resize(region.columns);
                std::transform(maRow.begin(), maRow.begin() + region.columns, maBytes.begin(),
                               [](uint16_t pixel) { return static_cast<uint8_t>(pixel >> 8); });
                AddRow(row, region.column, maBytes.data(), region.columns);
            }
        }
    }

    void BuildBinned()
    {
        const uint32_t columns = mtJob.columnEnds.empty() ? 0 : mtJob.columnEnds.back();
        std::vector<uint64_t> sums(columns);
        std::vector<uint32_t> binned(mtJob.columnEnds.size());
        uint32_t row = 0;
        for (uint32_t group = 0; group < mtJob.rowEnds.size(); ++group) {
            std::fill(sums.begin(), sums.end(), 0);
            for (; row < mtJob.rowEnds[group]; ++row) {
                if (mbCancelled) return;
                mtSensor.ReadRow(mtJob.conditions, row, 0, columns, maRow.data());
                for (uint32_t column = 0; column < columns; ++column) {
                    sums[column] += maRow[column];
                }
            }
            uint32_t column = 0;
            for (size_t i = 0; i < binned.size(); ++i) {
                uint64_t sum = 0;
                for (; column < mtJob.columnEnds[i]; ++column) {
                    sum += sums[column];
                }
                binned[i] = Scaled(sum);
            }
            AddRow(group, 0, binned.data(), static_cast<uint32_t>(binned.size()));
        }
        mnExtra1 = static_cast<uint16_t>(mtJob.rowEnds.front());
        mnExtra2 = static_cast<uint16_t>(mtJob.columnEnds.front());
    }

    void BuildMaskBinned()
    {
        uint64_t sums[256] = {};
        const uint8_t* mask = mtJob.mask->data();
        for (uint32_t row = 0; row < mtSensor.Rows(); ++row, mask += mtSensor.Columns()) {
            if (mbCancelled) return;
            mtSensor.ReadRow(mtJob.conditions, row, 0, mtSensor.Columns(), maRow.data());
            for (uint32_t column = 0; column < mtSensor.Columns(); ++column) {
                sums[mask[column]] += maRow[column];
            }
        }
        std::vector<uint32_t> bins(mpPicture->mtFacts.columns);
        std::transform(sums + 1, sums + 1 + bins.size(), bins.begin(),
                       [this](uint64_t sum) { return Scaled(sum); });
        AddRow(0, 0, bins.data(), static_cast<uint32_t>(bins.size()));
    }

    uint32_t Scaled(uint64_t sum) const
    {
        double value = std::clamp(static_cast<double>(sum) * mtJob.scale, 0.0, 4294967295.0);
        return static_cast<uint32_t>(value);
    }

    // One row of the picture, in as many packets as it takes.
    template <class Pixel>
    void AddRow(uint32_t row, uint32_t firstColumn, const Pixel* pixels, uint32_t count)
    {
        const uint32_t most = PixelsPerPacket(mtJob.kind);
        for (uint32_t done = 0; done < count; done += most) {
            const uint32_t size = std::min(most, count - done);
            AddPacket(row, firstColumn + done, pixels + done, size);
        }
    }

    template <class Pixel>
    void AddPacket(uint32_t row, uint32_t firstColumn, const Pixel* pixels, uint32_t count)
    {
        const size_t start = mpPicture->maStarts.back();
        const size_t bytes = mtKind.headBytes + size_t{count} * sizeof(Pixel);
        tsPixelData32Msg head{};
        head.header.Magic = gnMessageMagic;
        head.header.Length = static_cast<uint16_t>(bytes - gnHeaderBytes);
        head.header.IDD = gnInterfaceVersion;
        head.header.MsgId = mtKind.id & 0xFFFFFF;
        head.PacketNumber = static_cast<uint16_t>(mpPicture->maStarts.size());
        head.TotalPackets = static_cast<uint16_t>(mnPackets);
        head.Row = static_cast<uint16_t>(row);
        head.FirstColumn = static_cast<uint16_t>(firstColumn);
        head.LastColumn = static_cast<uint16_t>(firstColumn + count - 1);
        std::memcpy(mpPicture->mpBytes.get() + start, &head, mtKind.headBytes);
        std::memcpy(mpPicture->mpBytes.get() + start + mtKind.headBytes, pixels,
                    count * sizeof(Pixel));
        uint64_t sum = 0;
        Pixel lowest = pixels[0], highest = pixels[0];
        for (uint32_t i = 0; i < count; ++i) {
            sum += pixels[i];
            lowest = std::min(lowest, pixels[i]);
            highest = std::max(highest, pixels[i]);
        }
        mnLowest = std::min<uint32_t>(mnLowest, lowest);
        mnHighest = std::max<uint32_t>(mnHighest, highest);
        mpPicture->maStarts.push_back(start + bytes);
        mpPicture->maSums.push_back(mpPicture->maSums.back() + sum);
        mpPicture->maCrcs.push_back(SimCrc32(mpPicture->maCrcs.back(),
                                             mpPicture->mpBytes.get() + start + mtKind.headBytes,
                                             count * sizeof(Pixel)));
    }

    // What is known only at the end goes into every packet: the statistic and the extra words.
    void Finish()
    {
        tsSimFrame& facts = mpPicture->mtFacts;
        facts.readout = mtJob.readout;
        facts.frame = mtJob.frame;
        facts.bits = mtKind.pixelBytes * 8;
        facts.pixelSum = mpPicture->maSums.back();
        facts.crc = mpPicture->maCrcs.back();
        facts.minimum = mnLowest;
        facts.maximum = mnHighest;
        facts.totalPackets = mpPicture->PacketCount();
        facts.exposure = mtJob.conditions.exposure;
        facts.temperature = mtJob.conditions.temperature;
        const bool wide = mtKind.pixelBytes == sizeof(uint32_t);
        const uint64_t figure = wide ? mnHighest : facts.pixelSum / std::max<uint64_t>(mnPixels, 1);
        const uint16_t words[] = {static_cast<uint16_t>(std::min<uint64_t>(figure, 0xFFFF)),
                                  mnExtra1, mnExtra2};
        const size_t bytes = wide ? sizeof(words) : sizeof(words[0]);
        for (uint32_t i = 0; i < mpPicture->PacketCount(); ++i) {
            std::memcpy(mpPicture->Packet(i) + offsetof(tsPixelData32Msg, Statistic), words, bytes);
        }
    }

    const tcSimSensor& mtSensor;
    const tsSimJob& mtJob;
    const std::atomic<bool>& mbCancelled;
    const tsKindFacts& mtKind;
    std::shared_ptr<tcSimPicture> mpPicture;
    std::vector<uint16_t> maRow;
    std::vector<uint8_t> maBytes;
    uint32_t mnPackets = 0;
    uint64_t mnPixels = 0;
    uint32_t mnLowest = 0xFFFFFFFF, mnHighest = 0;
    uint16_t mnExtra1 = 0, mnExtra2 = 0;
};

std::shared_ptr<tcSimPicture> tcSimPicture::Make(const tcSimSensor& sensor, const tsSimJob& job,
                                                 const std::atomic<bool>& cancelled)
{
    return tcBuilder(sensor, job, cancelled).Build();
}
