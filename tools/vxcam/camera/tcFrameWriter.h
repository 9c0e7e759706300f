// Writes frames to files.
#ifndef TCFRAMEWRITER_H
#define TCFRAMEWRITER_H

#include "failure.h"
#include "fits.h"
#include "tcFrameQueue.h"
#include "tcSession.h"

#include <atomic>
#include <exception>
#include <thread>

// A frame that stands on disk. Its pixels are gone.
struct tsWrittenFrame {
    tsFrame frame;
    tsFrameFigures figures;
    std::optional<uint64_t> simulatorSum;
    std::string file, preview; // preview may be empty
};

struct tsWriterOptions {
    std::vector<std::string> files;    // one for each frame
    std::vector<std::string> previews; // the same, or none
    bool force = false;
    tsFitsFacts facts;
    // How long a frame without a temperature waits for the camera's first heartbeat.
    std::chrono::steady_clock::time_point temperatureDeadline;
};

// Takes frames from a queue until that ends or a file cannot be written; then it closes the queue.
//
// Threads: one of its own. The others call Stop, Failed, Done and, after Stop or Finish, the rest.
// Owns: the thread.
class tcFrameWriter
{
public:
    tcFrameWriter(tcSession& session, tcFrameQueue& queue, tsWriterOptions options);
    ~tcFrameWriter(); // stops
    tcFrameWriter(const tcFrameWriter&) = delete;
    tcFrameWriter& operator=(const tcFrameWriter&) = delete;

    bool Failed() const { return mbFailed; }
    bool Done() const { return mbDone; } // the thread is at its end

    void Finish(); // waits until the finished queue is empty and everything is written
    void Stop();   // gives up what is not yet written

    void ThrowFailure() const; // what went wrong, if anything
    const std::vector<tsWrittenFrame>& Written() const { return maWritten; }

private:
    void Run();
    void Write(tsFrame frame);

    tcSession& mSession;
    tcFrameQueue& mQueue;
    const tsWriterOptions mtOptions;
    std::vector<tsWrittenFrame> maWritten;
    std::exception_ptr mpFailure;
    std::atomic<bool> mbFailed{false};
    std::atomic<bool> mbCancelled{false};
    std::atomic<bool> mbDone{false};
    std::thread mThread;
};

#endif
