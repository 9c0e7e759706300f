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
#include <new>

namespace vxcam {

namespace {

constexpr size_t kBlockBytes = size_t{1} << 20U;
constexpr size_t kMostWaiting = 63;    // blocks
constexpr uint64_t kMostCameras = 256; // that their numbers tell apart
constexpr std::chrono::milliseconds kLongestWait(100);

int64_t nanoseconds(std::chrono::nanoseconds time)
{
    return time.count();
}

} // namespace

WireCapture::Body::Body(const std::string& path, bool force, std::string software)
    : software_(std::move(software)), file_(path, force)
{
    const auto head = wireFileHead();
    file_.append(head.data(), head.size());
    file_.flush();
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

// What is longer than a block goes into several.
void WireCapture::Body::add(WireKind kind, uint8_t camera, const Moment& time, const void* bytes,
                            size_t count)
{
    const auto* from = static_cast<const char*>(bytes);
    do {
        const size_t part = std::min(count, kBlockBytes - kWireRecordHead);
        append(kind, camera, time, from, part);
        from += part;
        count -= part;
    } while (count > 0);
}

void WireCapture::Body::append(WireKind kind, uint8_t camera, const Moment& time, const char* bytes,
                               size_t count)
{
    std::unique_lock<std::mutex> guard(lock);
    const auto hasRoom = [&] {
        return present_.bytes.size() + kWireRecordHead + count <= kBlockBytes;
    };
    changed.wait(
        guard, [&] { return hasRoom() || waiting_.size() < kMostWaiting || failure || isEnding_; });
    if (failure || isEnding_) return;
    if (!hasRoom()) turn();
    if (present_.records == 0) {
        present_.begun = time;
        present_.bytes.reserve(kBlockBytes);
        changed.notify_all();
    }
    char head[kWireRecordHead] = {};
    putNumber(head, nanoseconds(time.steady.time_since_epoch()));
    putNumber(head + 8, static_cast<uint32_t>(count));
    putNumber(head + 12, static_cast<uint8_t>(kind));
    putNumber(head + 13, camera);
    present_.bytes.insert(present_.bytes.end(), head, head + sizeof head);
    present_.bytes.insert(present_.bytes.end(), bytes, bytes + count);
    ++present_.records;
    if (kind == WireKind::Received) books.received += count;
    if (kind == WireKind::Sent) books.sent += count;
}

// The present block is full.
void WireCapture::Body::turn()
{
    waiting_.push_back(std::move(present_));
    present_ = {};
    if (!spare_.empty()) {
        present_.bytes = std::move(spare_.back());
        spare_.pop_back();
    }
    changed.notify_all();
}

// The next one to be written, when it is full or old; nothing at the end.
std::optional<WireCapture::Body::Block> WireCapture::Body::takeBlock()
{
    std::unique_lock<std::mutex> guard(lock);
    changed.wait(guard, [this] { return !waiting_.empty() || present_.records > 0 || isEnding_; });
    if (waiting_.empty() && !isEnding_) {
        changed.wait_for(guard, kLongestWait, [this] { return !waiting_.empty() || isEnding_; });
    }
    Block block;
    if (!waiting_.empty()) {
        block = std::move(waiting_.front());
        waiting_.pop_front();
        changed.notify_all();
        return block;
    }
    if (present_.records == 0) return std::nullopt;
    std::swap(block, present_);
    return block;
}

void WireCapture::Body::write(const Block& block)
{
    WireBlockHead head;
    head.number = number_;
    head.length = static_cast<uint32_t>(block.bytes.size());
    head.utc = nanoseconds(block.begun.utc.time_since_epoch());
    head.steady = nanoseconds(block.begun.steady.time_since_epoch());
    head.check = pixelCrc(block.bytes.data(), block.bytes.size());
    head.records = block.records;
    const auto bytes = bytesOf(head);
    const uint64_t before = file_.size();
    try {
        file_.append(bytes.data(), bytes.size());
        file_.append(block.bytes.data(), block.bytes.size());
        file_.flush();
    } catch (const Error&) {
        file_.cut(before); // what is there stays whole
        throw;
    }
    ++number_;
}

void WireCapture::Body::run()
{
    try {
        while (std::optional<Block> block = takeBlock()) {
            write(*block);
            block->bytes.clear();
            std::lock_guard<std::mutex> guard(lock);
            books.fileBytes = file_.size();
            if (spare_.size() < 2) spare_.push_back(std::move(block->bytes));
        }
        Block end;
        end.begun = presentMoment();
        write(end);
        file_.sync();
        std::lock_guard<std::mutex> guard(lock);
        books.fileBytes = file_.size();
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
