#include "sequence/sequence_journal.h"

#include "vxvisible.h"

#include <vxcamkit/frame_times.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <sstream>

namespace vxcam {

namespace {

constexpr const char* kTitle = "vxcam-sequence 1";
constexpr const char* kNoSerial = "-";

[[noreturn]] void refuse(const std::string& path, const std::string& why, int error = 0)
{
    throw Error(ErrorKind::File, path + ": " + why, error);
}

[[noreturn]] void refuseErrno(const std::string& path, int error)
{
    refuse(path, std::strerror(error), error);
}

std::string textOf(int descriptor, const std::string& path)
{
    std::string text;
    char bytes[65536];
    while (true) {
        const ssize_t count = ::read(descriptor, bytes, sizeof bytes);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) refuseErrno(path, errno);
        if (count == 0) return text;
        text.append(bytes, static_cast<size_t>(count));
    }
}

// Whether a power cut may have left this of a first line, zeros of what was not on the disk yet
// included.
bool isBeginning(const std::string& text)
{
    const std::string title = std::string(kTitle) + " ";
    return text.find_first_not_of('\0') == std::string::npos ||
           text.compare(0, title.size(), title, 0, text.size()) == 0;
}

std::string randomId()
{
    std::random_device source;
    char text[17];
    std::snprintf(text, sizeof text, "%08x%08x", source(), source());
    return text;
}

std::string present()
{
    return utcText(
        std::chrono::time_point_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now()));
}

void syncFolder(const std::string& path)
{
    const std::string folder = std::filesystem::path(path).parent_path().string();
    const int descriptor =
        ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return;
    ::fsync(descriptor);
    ::close(descriptor);
}

} // namespace

SequenceJournal::SequenceJournal(const std::string& path, const std::string& mark) : path_(path)
{
    descriptor_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (descriptor_ < 0) refuseErrno(path, errno);
    try {
        lock();
        const std::string text = textOf(descriptor_, path);
        const size_t end = text.rfind('\n');
        if (end == std::string::npos) {
            if (!isBeginning(text)) refuse(path, "is no journal");
            create(mark);
        } else {
            size_ = end + 1;
            if (!read(text.substr(0, size_), mark)) beginAnew(mark);
        }
    } catch (...) {
        ::close(descriptor_);
        throw;
    }
}

SequenceJournal::~SequenceJournal()
{
    if (descriptor_ >= 0) ::close(descriptor_);
}

void SequenceJournal::lock()
{
    if (::flock(descriptor_, LOCK_EX | LOCK_NB) == 0) return;
    if (errno == EWOULDBLOCK) refuse(path_, "this sequence runs already", errno);
    if (errno != ENOLCK && errno != ENOSYS && errno != EINVAL) refuseErrno(path_, errno);
}

void SequenceJournal::create(const std::string& mark)
{
    id_ = randomId();
    append(std::string(kTitle) + " " + id_ + " " + mark);
    syncFolder(path_);
}

bool SequenceJournal::read(const std::string& text, const std::string& mark)
{
    std::istringstream lines(text);
    std::string line, name, version, planned;
    std::getline(lines, line);
    std::istringstream words(line);
    words >> name >> version >> id_ >> planned;
    if (name + " " + version != kTitle || planned.empty()) refuse(path_, "is no journal");
    for (int number = 2; std::getline(lines, line); ++number) {
        if (!take(line)) refuse(path_, "line " + std::to_string(number) + " is damaged");
    }
    if (planned == mark) return true;
    if (!frames_.empty() || !done_.empty()) {
        throw Error(ErrorKind::Usage, path_ +
                                          ": is of another plan, or the plan was changed since; "
                                          "choose another folder, or go on with the old plan");
    }
    return false;
}

void SequenceJournal::beginAnew(const std::string& mark)
{
    failures_.clear();
    processes_.clear();
    camera_.reset();
    hasEnded_ = false;
    size_ = 0;
    create(mark);
}

std::unique_ptr<const SequenceJournal> SequenceJournal::look(const std::string& path,
                                                             const std::string& mark)
{
    std::unique_ptr<SequenceJournal> journal(new SequenceJournal(path));
    journal->descriptor_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (journal->descriptor_ < 0 && errno == ENOENT) return nullptr;
    if (journal->descriptor_ < 0) refuseErrno(path, errno);
    const std::string text = textOf(journal->descriptor_, path);
    const size_t end = text.rfind('\n');
    if (end == std::string::npos && !isBeginning(text)) refuse(path, "is no journal");
    if (end == std::string::npos || !journal->read(text.substr(0, end + 1), mark)) return nullptr;
    return journal;
}

bool SequenceJournal::take(const std::string& line)
{
    std::istringstream words(line);
    std::string utc, what;
    int unit = 0;
    words >> utc >> what;
    if (what == "failed") {
        std::string text;
        std::getline(words >> std::ws, text);
        failures_.push_back({utc, text});
    } else if (what == "frame") {
        Frame frame;
        words >> unit >> frame.bytes >> frame.file;
        if (!words.fail()) frames_[unit] = frame;
    } else if (what == "again" && words >> unit) {
        frames_.erase(unit);
    } else if (what == "done" && words >> unit) {
        done_.insert(unit);
    } else if (what == "run" && words >> unit) {
        processes_.push_back(unit);
        hasEnded_ = false;
    } else if (what == "camera") {
        SequenceCamera camera;
        words >> camera.sensor.columns >> camera.sensor.rows >> camera.serial;
        if (words.fail()) return false;
        std::getline(words >> std::ws, camera.name); // there may be none
        if (camera.serial == kNoSerial) camera.serial.clear();
        camera_ = camera;
        return true;
    } else if (what == "complete") {
        hasEnded_ = true;
    } else {
        return false;
    }
    return !words.fail();
}

// What the disk takes only half of is taken back.
void SequenceJournal::append(const std::string& line)
{
    const std::string bytes = line + "\n";
    size_t done = 0;
    int error = 0;
    while (done < bytes.size() && error == 0) {
        const ssize_t count = ::pwrite(descriptor_, bytes.data() + done, bytes.size() - done,
                                       static_cast<off_t>(size_ + done));
        if (count >= 0) {
            done += static_cast<size_t>(count);
        } else if (errno != EINTR) {
            error = errno;
        }
    }
    if (error == 0) {
        if (::ftruncate(descriptor_, static_cast<off_t>(size_ + done)) != 0 ||
            ::fdatasync(descriptor_) != 0) {
            error = errno;
        }
    }
    if (error != 0) {
        if (::ftruncate(descriptor_, static_cast<off_t>(size_)) != 0) error = errno;
        refuseErrno(path_, error);
    }
    size_ += done;
}

void SequenceJournal::begin()
{
    const auto process = static_cast<int>(::getpid());
    append(present() + " run " + std::to_string(process));
    processes_.push_back(process);
    hasEnded_ = false;
}

void SequenceJournal::camera(const SequenceCamera& camera)
{
    append(present() + " camera " + std::to_string(camera.sensor.columns) + " " +
           std::to_string(camera.sensor.rows) + " " +
           (camera.serial.empty() ? kNoSerial : camera.serial) + " " + vx::Visible(camera.name));
    camera_ = camera;
}

void SequenceJournal::frame(int unit, const std::string& file, uint64_t bytes)
{
    append(present() + " frame " + std::to_string(unit) + " " + std::to_string(bytes) + " " + file);
    frames_[unit] = {file, bytes};
    ++framesNow_;
}

void SequenceJournal::again(int unit)
{
    append(present() + " again " + std::to_string(unit));
    frames_.erase(unit);
}

void SequenceJournal::done(int unit)
{
    append(present() + " done " + std::to_string(unit));
    done_.insert(unit);
}

void SequenceJournal::failed(const std::string& text)
{
    const std::string utc = present(), line = vx::Visible(text);
    failures_.push_back({utc, line});
    append(utc + " failed " + line);
}

void SequenceJournal::ended()
{
    append(present() + " complete");
    hasEnded_ = true;
}

} // namespace vxcam
