// One readout: from the command to the last frame's file.
#ifndef READOUT_H
#define READOUT_H

#include "grabbed.h"
#include "tcProgress.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/file_bytes.h>
#include <vxcamkit/frame_writer.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <string>
#include <vector>

struct tsReadoutOptions {
    std::vector<std::string> files;    // one for each frame
    std::vector<std::string> previews; // the same, or none
    bool force = false;
    bool toOutput = false; // the file of the one frame is printed
    bool measure = false;
    vxcam::HeaderOptions header;
};

// Threads: the main one; a frame's end is told on the writer's.
// Owns: the stream, and the writer.
class tcReadout
{
public:
    // Starts it. Throws vxcam::Error.
    tcReadout(vxcam::Camera& camera, const vxcam::Plan& plan, tsReadoutOptions options);
    tcReadout(const tcReadout&) = delete;
    tcReadout& operator=(const tcReadout&) = delete;

    // Returns when all frames are on disk, or printed. Throws vxcam::Error for a readout that
    // failed and a file that cannot be written, tcFailure after a signal; frames that came before a
    // failure are written, but not after a signal. What cannot be printed is a tcFailure, too.
    void Run(tcProgress& progress);

    std::chrono::milliseconds Exposure() const; // by the camera's clock
    // Frames whose files are there.
    std::vector<tsGrabbed> Written() const;

private:
    bool Step(tcProgress& progress);
    void Take(vxcam::Frame frame);
    vxcam::Frame WithTemperature(vxcam::Frame frame) const;
    void WriteAll();
    void WaitForWriter(size_t most);
    size_t UnderWay() const { return maTaken.size() - mnWritten; }
    size_t MostUnderWay() const;
    void ShowProgress(tcProgress& progress) const;
    std::string SilenceText() const;
    vxcam::WriterOptions WriterOptions();

    vxcam::Camera& mCamera;
    const vxcam::Plan mtPlan;
    const tsReadoutOptions mtOptions;
    std::vector<tsGrabbed> maTaken;
    vxcam::FileBytes mPrinted; // with toOutput
    std::atomic<size_t> mnWritten{0};
    std::mutex mLock;
    std::condition_variable mChanged;
    vxcam::Stream mStream;
    vxcam::FrameWriter mWriter;
};

#endif
