// What the library prints, private to the library: all of its output on the host's standard streams
// goes through here.
//
// Standard output and error are the host's, and often somebody else's behind it: a pipe whose
// reader has stopped, a terminal that is held, a socket. A text is printed at once and whole,
// behind what the host itself has put into the stream before; what cannot be printed within
// nPatienceMs is left out and counted, and as long as that lasts no further text is waited for. No
// signal is raised, and the flags of the host's descriptors stay as they are. Once standard error
// takes something again, a line of its own tells there how many texts were left out.
//
// An application that has given std::cout or std::cerr another buffer gets the text through that
// buffer. A stream that the host has put into a failed state takes nothing.
//
// Limits:
// - A buffer or stream of the application may keep whoever writes to it for as long as it likes,
//   all others wait for nPatienceMs at most.
// - A file on a disk is written to as the disk takes it, and so are devices other than terminals.
// - Where a terminal, or with an old kernel a pipe, cannot be opened again (without /proc, say), it
//   is asked for room before each piece; who else takes that room first holds the writer up.
// - A long text may end in the middle: the rest is left out when the stream stops taking it.
// - Streams without std::ios::sync_with_stdio have no lock of the C library: the host's own threads
//   must not print on them meanwhile, as with any such stream.
// - In a child that is forked while another thread prints, texts for that stream are left out.
//
// Threads: any, several at once; texts for one stream do not mix. Keeps errno, and cannot be
// cancelled.
// Locks: one for each stream, and that of the C library's stream, neither of which is waited for
// without end.
#ifndef VX_HOSTSTREAMS_H
#define VX_HOSTSTREAMS_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>

namespace vx {

constexpr int nPatienceMs = 80;

using tcPrintClock = std::chrono::steady_clock;

// The recursive lock of a stream, and how long whoever prints there waits.
class tcStreamLock
{
public:
    // nPatienceMs from now; at once where it was to no avail last time.
    tcPrintClock::time_point Deadline() const;
    void HasPrinted(bool isPrinted) { mbInVain = !isPrinted; }

    bool Lock(tcPrintClock::time_point deadline);
    void Unlock();

private:
    std::atomic<bool> mbInVain{false};
    std::mutex mMutex; // of what follows
    std::condition_variable mFree;
    std::thread::id mOwner;
    int mnDepth = 0;
};

// While one lives, what the calling thread prints is waited for no longer than nPatienceMs in all:
// for what goes to both streams.
class tcOneWait
{
public:
    tcOneWait();
    ~tcOneWait();
    tcOneWait(const tcOneWait&) = delete;
    tcOneWait& operator=(const tcOneWait&) = delete;

private:
    bool mbOutermost;
};

// Streams are not made for several threads: who writes to one holds its lock. It lives as long as
// somebody refers to it; those of the standard streams stay.
std::shared_ptr<tcStreamLock> LockOf(const std::ostream& stream);

// Prints on std::cout or std::cerr.
void Print(std::ostream& stream, std::string_view text);

// The same for any stream, whose lock the caller knows.
void Print(std::ostream& stream, tcStreamLock& lock, std::string_view text);

// Prints on stdout or stderr.
void Print(std::FILE* stream, std::string_view text) noexcept;

// As printf(), at most 1023 characters. No allocation.
void PrintFormatted(std::ostream& stream, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
void PrintFormatted(std::FILE* stream, const char* format, ...) noexcept
    __attribute__((format(printf, 2, 3)));

// As perror().
void PrintSystemError(const char* what) noexcept;

// How many texts were left out so far.
unsigned long UnprintedTexts() noexcept;

} // namespace vx

#endif
