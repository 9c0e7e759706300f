// Writes frames to files while the next ones come.
#ifndef VXCAMKIT_FRAME_WRITER_H
#define VXCAMKIT_FRAME_WRITER_H

#include <vxcamkit/export.h>
#include <vxcamkit/frame.h>
#include <vxcamkit/frame_file.h>
#include <vxcamkit/header.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vxcam {

// A file that shall be made of a frame.
struct FramePath {
    std::string path;
    FileFormat format = FileFormat::Fits;
};

// A frame whose files stand on the disk. Its pixels are gone.
struct WrittenFrame {
    FrameFacts facts;
    uint64_t sum = 0; // of its pixels
    std::vector<FramePath> files;
    std::vector<std::string> warnings; // of makeFile()
};

struct WriterOptions {
    HeaderOptions header;
    bool force = false; // replace files that exist
    size_t most = 2;    // frames that wait to be written, besides those that are being written
    // Called when a frame's files are there, in the order of write(), on a thread of the writer's;
    // it must not call finish() or stop().
    std::function<void(const WrittenFrame&)> whenWritten;
    // Called once when nothing is written any more: all is there after finish() has begun, or
    // writing has failed or was stopped. Likewise.
    std::function<void()> whenDone;
};

// Files of one frame appear in the order in which they are given, those of successive frames in the
// order of write(): whoever sees the last file of a frame has all that were before it. What they
// hold is on the disk when they appear, and their names are when the writer is done. When one
// cannot be written, the frames before it stay, and nothing behind them comes.
//
// Threads: write() on one, the others on any; it has five of its own. Locks: its own, never held
//   while calling out. Owns: its threads, and the frames that wait.
class VXCAMKIT_EXPORT FrameWriter
{
public:
    explicit FrameWriter(WriterOptions options = {});
    ~FrameWriter(); // as stop()
    FrameWriter(const FrameWriter&) = delete;
    FrameWriter& operator=(const FrameWriter&) = delete;

    // Takes a frame; waits while too many wait. False, and the frame is not taken, when writing has
    // failed or was stopped.
    bool write(Frame frame, std::vector<FramePath> files);
    // The same with cards of this frame, behind those of the options.
    bool write(Frame frame, std::vector<FramePath> files, std::vector<HeaderCard> cards);

    void finish(); // takes no more, waits until all is written; throws as throwFailure() does
    void stop();   // gives up what is not there yet, also of a file that is being written

    bool hasFailed() const;
    bool isDone() const;       // nothing is written any more
    void throwFailure() const; // what went wrong, if anything: Error{File}

    std::vector<WrittenFrame> written() const;

private:
    struct Body;
    std::unique_ptr<Body> body_;
};

} // namespace vxcam

#endif
