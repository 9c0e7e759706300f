#include "wire/wire_capture.h"

#include "containers/pixel_crc.h"
#include "readout/frame_facts.h"
#include "readout/host_clock.h"
#include "values/started_thread.h"
#include "wire/capture_body.h"
#include "wire/wire_format.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <new>

namespace vxcam {

namespace {

constexpr size_t kBlockBytes = size_t{1} << 20U;
constexpr size_t kMostWaiting = 63;            // blocks
constexpr size_t kMostAbout = kBlockBytes / 2; // what is told of a camera
constexpr size_t kMostSpare = 4;               // likewise
constexpr uint64_t kMostCameras = 256;         // that their numbers tell apart
constexpr std::chrono::milliseconds kLongestWait(100);

int64_t nanoseconds(std::chrono::nanoseconds time)
{
    return time.count();
}

} // namespace

WireCapture::Body::Body(const std::string& path, bool force, std::string software)
    : software_(std::move(software)), file_(path, force, wireFileHead().data(), kWireFileHead)
{
    present_.from = file_.from();
    present_.end = present_.from + kWireBlockHead;
    books.fileBytes = file_.size();
    thread_ = startedThread([this] { run(); });
}

WireCapture::Body::~Body()
{
    finish();
}

uint8_t WireCapture::Body::addCamera(const std::string& target)
{
    nlohmann::ordered_json about{{"target", target}};
    if (!software_.empty()) about["software"] = software_;
    const std::string text = about.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    if (text.size() > kMostAbout) {
        throw Error(ErrorKind::Usage, file_.path() + ": what is told of the program is too long");
    }
    uint8_t number = 0;
    {
        std::lock_guard<std::mutex> guard(lock);
        if (books.cameras >= kMostCameras) {
            throw Error(ErrorKind::Usage, file_.path() + ": holds at most " +
                                              std::to_string(kMostCameras) + " cameras");
        }
        number = static_cast<uint8_t>(books.cameras++);
    }
    add(WireKind::About, number, presentMoment(), text.data(), text.size());
    return number;
}

void WireCapture::Body::take(uint8_t camera, const tsTapRecord& record)
try {
    const Moment time = momentOf(record.Time);
    if (record.What == eTapLink) {
        const bool isLost = record.Event == eLinkLost;
        return add(isLost ? WireKind::LinkLost : WireKind::LinkRestored, camera, time, nullptr, 0);
    }
    const bool isReceived = record.What == eTapBytesReceived;
    if (!isReceived && record.What != eTapBytesSent) return;
    add(isReceived ? WireKind::Received : WireKind::Sent, camera, time, record.Bytes,
        record.Length);
} catch (const std::bad_alloc&) { // nothing may be thrown into the library
    std::lock_guard<std::mutex> guard(lock);
    if (!failure) failure.emplace(ErrorKind::File, file_.path() + ": not enough memory");
    changed.notify_all();
}

size_t WireCapture::Body::Block::room() const
{
    return kBlockBytes - end;
}

// Bytes that travelled and for which there is no room in one block go on in the next: so blocks
// that are full end where blocks of the disk do. Other records are whole.
void WireCapture::Body::add(WireKind kind, uint8_t camera, const Moment& time, const void* bytes,
                            size_t count)
{
    const auto* from = static_cast<const char*>(bytes);
    std::unique_lock<std::mutex> guard(lock);
    const bool isStream = kind == WireKind::Received || kind == WireKind::Sent;
    do {
        awaitRoom(guard, kWireRecordHead + (isStream ? std::min<size_t>(count, 1) : count));
        if (failure || isEnding_) return;
        const size_t part = std::min(count, present_.room() - kWireRecordHead);
        put(kind, camera, time, from, part);
        from += part;
        count -= part;
    } while (count > 0);
}

void WireCapture::Body::awaitRoom(std::unique_lock<std::mutex>& guard, size_t bytes)
{
    const auto hasRoom = [&] { return present_.room() >= bytes; };
    changed.wait(
        guard, [&] { return hasRoom() || waiting_.size() < kMostWaiting || failure || isEnding_; });
    if (!hasRoom() && !failure && !isEnding_) turn();
}

void WireCapture::Body::put(WireKind kind, uint8_t camera, const Moment& time, const char* bytes,
                            size_t count)
{
    if (present_.records == 0) {
        present_.bytes = memory();
        present_.begun = time;
        changed.notify_all();
    }
    char* const to = present_.bytes.data() + present_.end;
    putNumber(to, nanoseconds(time.steady.time_since_epoch()));
    putNumber(to + 8, static_cast<uint32_t>(count));
    putNumber(to + 12, static_cast<uint8_t>(kind));
    putNumber(to + 13, camera);
    putNumber(to + 14, uint16_t{0});
    if (count > 0) std::memcpy(to + kWireRecordHead, bytes, count);
    present_.end += kWireRecordHead + count;
    ++present_.records;
    if (kind == WireKind::Received) books.received += count;
    if (kind == WireKind::Sent) books.sent += count;
}

// For a block, what was used before if there is some: the system takes its time to give fresh
// memory.
FileBytes WireCapture::Body::memory()
{
    if (spare_.empty()) return FileBytes(kBlockBytes);
    FileBytes used = std::move(spare_.back());
    spare_.pop_back();
    return used;
}

// The present block is full or old. The next one begins where it ends.
void WireCapture::Body::turn()
{
    const size_t from = present_.end % BlockFile::kAlignment;
    waiting_.push_back(std::move(present_));
    present_ = {};
    present_.from = from;
    present_.end = from + kWireBlockHead;
    changed.notify_all();
}

// The next one to be written, when it is full or old. The last one has no records.
WireCapture::Body::Block WireCapture::Body::takeBlock()
{
    std::unique_lock<std::mutex> guard(lock);
    changed.wait(guard, [this] { return !waiting_.empty() || present_.records > 0 || isEnding_; });
    if (waiting_.empty() && !isEnding_) {
        changed.wait_for(guard, kLongestWait, [this] { return !waiting_.empty() || isEnding_; });
    }
    if (waiting_.empty() && present_.records == 0) {
        present_.bytes = memory();
        present_.begun = presentMoment();
        return std::move(present_);
    }
    if (waiting_.empty()) turn();
    Block block = std::move(waiting_.front());
    waiting_.pop_front();
    changed.notify_all();
    return block;
}

void WireCapture::Body::write(Block* block)
{
    char* const records = block->bytes.data() + block->from + kWireBlockHead;
    WireBlockHead head;
    head.number = number_++;
    head.length = static_cast<uint32_t>(block->end - block->from - kWireBlockHead);
    head.utc = nanoseconds(block->begun.utc.time_since_epoch());
    head.steady = nanoseconds(block->begun.steady.time_since_epoch());
    head.check = pixelCrc(records, head.length);
    head.records = block->records;
    const auto bytes = bytesOf(head);
    std::memcpy(block->bytes.data() + block->from, bytes.data(), bytes.size());
    file_.append(&block->bytes, block->end);
}

void WireCapture::Body::run()
{
    try {
        for (bool isLast = false; !isLast;) {
            Block block = takeBlock();
            isLast = block.records == 0;
            write(&block);
            std::lock_guard<std::mutex> guard(lock);
            books.fileBytes = file_.size();
            if (spare_.size() < kMostSpare) spare_.push_back(std::move(block.bytes));
        }
        file_.sync();
    } catch (const Error& error) {
        giveUp(error);
    } catch (const std::bad_alloc&) {
        giveUp(Error(ErrorKind::File, file_.path() + ": not enough memory"));
    }
}

void WireCapture::Body::giveUp(const Error& error)
{
    std::lock_guard<std::mutex> guard(lock);
    failure = error;
    waiting_.clear();
    spare_.clear();
    present_ = {};
    changed.notify_all();
}

void WireCapture::Body::finish()
{
    std::lock_guard<std::mutex> finishing(finishing_);
    {
        std::lock_guard<std::mutex> guard(lock);
        isEnding_ = true;
        changed.notify_all();
    }
    if (thread_.joinable()) thread_.join();
}

WireCapture::WireCapture(const std::string& path, bool force, const std::string& software)
    : body_(std::make_shared<Body>(path, force, software))
{}

WireCapture::~WireCapture()
{
    body_->finish();
}

void WireCapture::finish()
{
    body_->finish();
    throwFailure();
}

bool WireCapture::hasFailed() const
{
    std::lock_guard<std::mutex> guard(body_->lock);
    return body_->failure.has_value();
}

void WireCapture::throwFailure() const
{
    std::lock_guard<std::mutex> guard(body_->lock);
    if (body_->failure) throw Error(*body_->failure);
}

WireBooks WireCapture::books() const
{
    std::lock_guard<std::mutex> guard(body_->lock);
    return body_->books;
}

} // namespace vxcam
