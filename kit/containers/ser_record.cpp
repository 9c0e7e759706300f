// A SER file, as programs for planetary work read it, and an index beside it.
#include "containers/frame_index.h"
#include "containers/record_columns.h"

#include "files/ascii.h"

#include <vector>

namespace vxcam {

namespace {

constexpr const char* kMagic = "LUCAM-RECORDER";    // how such files begin
constexpr uint64_t kCountAt = 38;                   // where the number of frames stands
constexpr size_t kName = 40;                        // characters of a name
constexpr int64_t kTick = 100;                      // ns
constexpr int64_t kEpoch = 621'355'968'000'000'000; // ticks from the year 1 to 1970
constexpr uint64_t kClosing = 4096;

void put(uint64_t number, size_t bytes, std::string* to)
{
    for (size_t i = 0; i < bytes; ++i) {
        to->push_back(static_cast<char>(number >> (8 * i) & 0xFFU));
    }
}

uint64_t ticksOf(UtcTime time)
{
    return static_cast<uint64_t>(kEpoch + nanosecondsOf(time) / kTick);
}

std::string nameField(const std::string& name)
{
    std::string field = asciiOf(name);
    field.resize(kName, '\0');
    return field;
}

class SerRecord : public RecordFile
{
public:
    SerRecord(const std::string& path, const RecordOptions& options, const Frame& first)
        : file_(path, options.force), index_(path, options, first, "ser")
    {
        const FrameFacts& facts = first.facts();
        const uint64_t begin = ticksOf(facts.times.begin);
        std::string start = kMagic;
        put(0, 4, &start); // no serial number
        put(0, 4, &start); // gray
        put(0, 4, &start); // low bytes first, as programs take it
        put(static_cast<uint64_t>(first.columns()), 4, &start);
        put(static_cast<uint64_t>(first.rows()), 4, &start);
        put(static_cast<uint64_t>(first.bits()), 4, &start);
        put(0, 4, &start); // frames
        start += nameField("");
        start += nameField(options.header.instrument.empty() ? facts.cameraName
                                                             : options.header.instrument);
        start += nameField("");
        put(begin, 8, &start); // the local time, which is not known better
        put(begin, 8, &start);
        start_ = start.size();
        frameBytes_ = first.bytes();
        file_.append(start);
        file_.flush();
    }

    void add(const RecordedFrame& frame) override
    {
        const uint64_t offset = file_.size();
        file_.append(frame.frame.data(), frame.frame.bytes());
        index_.add(frame, offset);
        begins_.push_back(ticksOf(frame.frame.facts().times.begin));
    }
    void note(const Event& event) override { index_.note(event); }
    void flush() override
    {
        file_.flush();
        std::string count;
        put(begins_.size(), 4, &count);
        file_.rewrite(kCountAt, count.data(), count.size());
        index_.flush();
        flushed_ = begins_.size();
    }
    void close(const RecordEnd& end) override
    {
        flush();
        std::string times;
        for (const uint64_t begin : begins_) {
            put(begin, 8, &times);
        }
        file_.append(times);
        file_.flush();
        file_.sync();
        index_.close(end);
    }
    void salvage() override { file_.cut(start_ + flushed_ * frameBytes_); }
    uint64_t frames() const override { return flushed_; }
    uint64_t bytes() const override { return file_.size() + index_.bytes(); }
    uint64_t closingBytes() const override { return kClosing + 8 * begins_.size(); }

private:
    AppendFile file_;
    FrameIndex index_;
    uint64_t start_ = 0, frameBytes_ = 0;
    std::vector<uint64_t> begins_; // of the exposures, in ticks
    uint64_t flushed_ = 0;
};

} // namespace

std::unique_ptr<RecordFile> makeSerRecord(const std::string& path, const RecordOptions& options,
                                          const RecordedFrame& first)
{
    return std::make_unique<SerRecord>(path, options, first.frame);
}

} // namespace vxcam
