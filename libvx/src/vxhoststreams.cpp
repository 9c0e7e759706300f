#include "vxhoststreams.h"

#include "vxoutlet.h"
#include "vxsignals.h"
#include "vxundying.h"

#include <ext/stdio_filebuf.h>
#include <ext/stdio_sync_filebuf.h>
#include <pthread.h>
#include <stdio_ext.h>
#include <unistd.h>
#include <wchar.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <iostream>
#include <iterator>
#include <map>

namespace {

using vx::tcPrintClock;
using vx::tcStreamLock;

// Whether the calling thread has a tcOneWait, and until when that is, once that was asked: looking
// at the clock is a good part of what a record costs that goes to no stream.
thread_local bool sbOneWait = false;
thread_local tcPrintClock::time_point stDeadline;

std::atomic<unsigned long> gnUnprinted{0}; // texts
std::atomic<unsigned long> gnTold{0};      // of these

class tcUndisturbed
{
public:
    tcUndisturbed() : mnError(errno) { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &mnBefore); }
    ~tcUndisturbed()
    {
        pthread_setcancelstate(mnBefore, nullptr);
        errno = mnError;
    }
    tcUndisturbed(const tcUndisturbed&) = delete;
    tcUndisturbed& operator=(const tcUndisturbed&) = delete;

private:
    int mnError;
    int mnBefore = PTHREAD_CANCEL_ENABLE;
};

// ---- What the host has put into a stream that has not printed it yet ----------------------------

// Of a stream of the C library, whose lock the caller holds. The library has no function that
// prints it without waiting.
std::string_view Backlog(FILE* file)
{
    if (fwide(file, 0) > 0) return {};
    return {file->_IO_write_base, __fpending(file)};
}

void Drop(FILE* file, size_t size)
{
    file->_offset = -1; // to be asked for
    if (size == 0) return;
    const size_t left = Backlog(file).size() - size;
    std::memmove(file->_IO_write_base, file->_IO_write_base + size, left);
    file->_IO_write_ptr -= size;
}

// Of a buffer of C++.
class tcPutArea : public std::streambuf
{
public:
    static std::string_view Of(const std::streambuf& buffer)
    {
        const char* const begin = (buffer.*&tcPutArea::pbase)();
        const char* const end = (buffer.*&tcPutArea::pptr)();
        return begin ? std::string_view(begin, static_cast<size_t>(end - begin))
                     : std::string_view();
    }
    static void DropFrom(std::streambuf& buffer, size_t size)
    {
        const size_t left = Of(buffer).size() - size;
        char* const begin = (buffer.*&tcPutArea::pbase)();
        std::memmove(begin, begin + size, left);
        (buffer.*&tcPutArea::pbump)(-static_cast<int>(size));
    }
};

std::string_view Backlog(std::streambuf* buffer)
{
    return tcPutArea::Of(*buffer);
}

void Drop(std::streambuf* buffer, size_t size)
{
    if (size > 0) tcPutArea::DropFrom(*buffer, size);
}

// ---- The host's streams -------------------------------------------------------------------------

class tcUnlock
{
public:
    explicit tcUnlock(tcStreamLock& lock) : mLock(lock) {}
    ~tcUnlock() { mLock.Unlock(); }
    tcUnlock(const tcUnlock&) = delete;
    tcUnlock& operator=(const tcUnlock&) = delete;

private:
    tcStreamLock& mLock;
};

struct tsHostStream {
    tcStreamLock mLock;      // of the descriptor and what is behind it
    tcStreamLock mOwnBuffer; // of what the application may have put in its place
};

tsHostStream& HostStream(bool isError)
{
    static vx::tcUndying<tsHostStream> outputRoom, errorRoom;
    static tsHostStream &output = outputRoom.Make(), &error = errorRoom.Make();
    return isError ? error : output;
}

bool LockFile(FILE* file, tcPrintClock::time_point deadline)
{
    while (ftrylockfile(file) != 0) {
        if (tcPrintClock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

bool TellLoss(vx::tcOutlet& outlet, tcPrintClock::time_point deadline)
{
    const unsigned long unprinted = gnUnprinted;
    if (unprinted == gnTold) return true;
    char line[80];
    const int length = std::snprintf(line, sizeof line, "libvxcamiface: %lu texts not printed\n",
                                     unprinted - gnTold);
    const std::string_view text(line, static_cast<size_t>(length));
    if (outlet.Write(text, deadline) != text.size()) return false;
    gnTold = unprinted;
    return true;
}

// Behind what waits in `buffer`.
template <class tBuffer>
bool PrintBehind(tBuffer* buffer, int descriptor, std::string_view text, bool isError,
                 tcPrintClock::time_point deadline)
{
    const std::string_view before = Backlog(buffer);
    if (before.empty() && text.empty()) return true;
    vx::tcOutlet outlet(descriptor);
    const size_t gone = outlet.Write(before, deadline);
    Drop(buffer, gone);
    return gone == before.size() && (!isError || TellLoss(outlet, deadline)) &&
           outlet.Write(text, deadline) == text.size();
}

// A stream that the host has made of something else, or closed.
bool PrintElsewhere(FILE* file, std::string_view text)
{
    vx::tcNoWriteSignals quiet;
    quiet.MayHaveFailed();
    return std::fwrite(text.data(), 1, text.size(), file) == text.size() && std::fflush(file) == 0;
}

bool PrintLocked(FILE* file, std::string_view text, tcPrintClock::time_point deadline)
{
    if (!LockFile(file, deadline)) return false;
    const int descriptor = fileno(file);
    const bool isPrinted = descriptor < 0
                               ? PrintElsewhere(file, text)
                               : PrintBehind(file, descriptor, text, file == stderr, deadline);
    funlockfile(file);
    return isPrinted;
}

// `print` is given the deadline.
template <class tPrint>
void PrintOnHost(bool isError, std::string_view text, tPrint print)
{
    const tcUndisturbed undisturbed;
    tcStreamLock& lock = HostStream(isError).mLock;
    const auto deadline = lock.Deadline();
    bool isPrinted = false;
    if (lock.Lock(deadline)) {
        isPrinted = print(deadline);
        lock.Unlock();
    }
    if (isPrinted && text.empty()) return; // there need not have been anything to print
    lock.HasPrinted(isPrinted);
    if (!isPrinted && !text.empty()) ++gnUnprinted;
}

// What std::cout and std::cerr have for buffers when they are not synchronised with the C library.
using tcFileBuffer = __gnu_cxx::stdio_filebuf<char>;

void Print(tcFileBuffer& buffer, std::string_view text)
{
    const int descriptor = buffer.fd();
    const bool isError = descriptor == STDERR_FILENO;
    PrintOnHost(isError, text, [&](auto deadline) {
        return PrintBehind<std::streambuf>(&buffer, descriptor, text, isError, deadline);
    });
}

// What an ostream does, except that the stream it is tied to has been flushed already.
void PrintThrough(std::ostream& stream, std::string_view text)
{
    if (!stream.good()) return;
    const auto size = static_cast<std::streamsize>(text.size());
    bool isGood = false;
    try {
        std::streambuf& buffer = *stream.rdbuf();
        isGood = buffer.sputn(text.data(), size) == size && buffer.pubsync() != -1;
    } catch (...) {
        // As with any failure.
    }
    if (!isGood) stream.setstate(std::ios::badbit); // may throw
}

// Null where the application has put in a buffer of its own.
FILE* FileOf(const std::ostream& stream)
{
    auto* buffer = dynamic_cast<__gnu_cxx::stdio_sync_filebuf<char>*>(stream.rdbuf());
    FILE* const file = buffer ? buffer->file() : nullptr;
    return file && (file == stdout || file == stderr) ? file : nullptr;
}

tcFileBuffer* FileBufferOf(const std::ostream& stream)
{
    auto* buffer = dynamic_cast<tcFileBuffer*>(stream.rdbuf());
    const int descriptor = buffer ? buffer->fd() : -1;
    return descriptor == STDOUT_FILENO || descriptor == STDERR_FILENO ? buffer : nullptr;
}

using tFormatted = char[1024];

size_t Format(tFormatted& text, const char* format, va_list args)
    __attribute__((format(printf, 2, 0)));

size_t Format(tFormatted& text, const char* format, va_list args)
{
    const int length = std::vsnprintf(text, sizeof text, format, args);
    return std::clamp<size_t>(length < 0 ? 0 : static_cast<size_t>(length), 0, sizeof text - 1);
}

} // namespace

vx::tcOneWait::tcOneWait() : mbOutermost(!sbOneWait)
{
    sbOneWait = true;
}

vx::tcOneWait::~tcOneWait()
{
    if (!mbOutermost) return;
    sbOneWait = false;
    stDeadline = {};
}

tcPrintClock::time_point tcStreamLock::Deadline() const
{
    const auto now = tcPrintClock::now();
    if (mbInVain) return now;
    const auto patience = std::chrono::milliseconds(nPatienceMs);
    if (!sbOneWait) return now + patience;
    if (stDeadline == tcPrintClock::time_point()) stDeadline = now + patience;
    return stDeadline;
}

bool tcStreamLock::Lock(tcPrintClock::time_point deadline)
{
    // Those who do not wait for the stream wait for each other.
    deadline = std::max(deadline, tcPrintClock::now() + std::chrono::milliseconds(2));
    const auto self = std::this_thread::get_id();
    std::unique_lock<std::mutex> guard(mMutex);
    const auto isOurs = [&] { return mnDepth == 0 || mOwner == self; };
    if (!isOurs() && !mFree.wait_until(guard, deadline, isOurs)) return false;
    mOwner = self;
    ++mnDepth;
    return true;
}

void tcStreamLock::Unlock()
{
    {
        const std::lock_guard<std::mutex> guard(mMutex);
        if (--mnDepth > 0) return;
    }
    mFree.notify_one();
}

std::shared_ptr<tcStreamLock> vx::LockOf(const std::ostream& stream)
{
    const bool isError = &stream == &std::cerr || &stream == &std::clog;
    if (isError || &stream == &std::cout)
        return {std::shared_ptr<void>(), &HostStream(isError).mOwnBuffer};
    using tLocks = std::map<const std::ostream*, std::weak_ptr<tcStreamLock>>;
    static std::mutex& mutex = *new std::mutex;
    static tLocks& locks = *new tLocks;
    const std::lock_guard<std::mutex> guard(mutex);
    const auto known = locks.find(&stream);
    std::shared_ptr<tcStreamLock> lock = known == locks.end() ? nullptr : known->second.lock();
    if (lock) return lock;
    for (auto entry = locks.begin(); entry != locks.end();)
        entry = entry->second.expired() ? locks.erase(entry) : std::next(entry);
    lock = std::make_shared<tcStreamLock>();
    locks[&stream] = lock;
    return lock;
}

void vx::Print(std::ostream& stream, std::string_view text)
{
    Print(stream, *LockOf(stream), text);
}

void vx::Print(std::ostream& stream, tcStreamLock& lock, std::string_view text)
{
    const tcOneWait wait;
    FILE* const file = FileOf(stream);
    tcFileBuffer* const buffer = file ? nullptr : FileBufferOf(stream);
    if (!stream.good()) {
        if ((file || buffer) && stream.bad() && !text.empty()) ++gnUnprinted;
        return;
    }
    if (stream.tie() && !text.empty()) Print(*stream.tie(), {}); // flushes it
    if (file) return Print(file, text);
    if (buffer) return ::Print(*buffer, text);

    const tcUndisturbed undisturbed;
    const bool isLocked = lock.Lock(lock.Deadline());
    lock.HasPrinted(isLocked);
    if (!isLocked) {
        if (!text.empty()) ++gnUnprinted;
        return;
    }
    const tcUnlock unlock(lock);
    tcNoWriteSignals quiet;
    quiet.MayHaveFailed();
    PrintThrough(stream, text);
}

void vx::Print(FILE* file, std::string_view text) noexcept
{
    PrintOnHost(file == stderr, text,
                [&](auto deadline) { return PrintLocked(file, text, deadline); });
}

void vx::PrintFormatted(std::ostream& stream, const char* format, ...)
{
    tFormatted text;
    va_list args;
    va_start(args, format);
    const size_t length = Format(text, format, args);
    va_end(args);
    Print(stream, {text, length});
}

void vx::PrintFormatted(FILE* file, const char* format, ...) noexcept
{
    tFormatted text;
    va_list args;
    va_start(args, format);
    const size_t length = Format(text, format, args);
    va_end(args);
    Print(file, {text, length});
}

void vx::PrintSystemError(const char* what) noexcept
{
    char buffer[256];
    const char* const reason = strerror_r(errno, buffer, sizeof buffer);
    const bool isNamed = what && *what;
    PrintFormatted(stderr, "%s%s%s\n", isNamed ? what : "", isNamed ? ": " : "", reason);
}

unsigned long vx::UnprintedTexts() noexcept
{
    return gnUnprinted;
}
