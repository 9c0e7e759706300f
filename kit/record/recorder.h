// Keeps frames in files at the rate at which they come.
#ifndef VXCAMKIT_RECORDER_H
#define VXCAMKIT_RECORDER_H

#include <vxcamkit/event.h>
#include <vxcamkit/export.h>
#include <vxcamkit/frame.h>
#include <vxcamkit/header.h>
#include <vxcamkit/stars.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vxcam {

// docs/recording.md tells how each is laid out.
enum class RecordFormat {
    Hdf5, // all frames in one dataset, which others may read while it grows
    Fits, // a cube; compressed, an extension for each frame; with %d in the name, a file for each
    Tiff, // a BigTIFF with a page for each frame
    Ser,  // for planetary work; 8 and 16 bits
    Raw   // the pixels, and an index beside them
};
enum class Compression { None, Gzip, Rice };

// "HDF5", "FITS", "TIFF", "SER", "raw"
VXCAMKIT_EXPORT const char* nameOf(RecordFormat format);
VXCAMKIT_EXPORT const char* nameOf(Compression compression); // "none", "gzip", "rice"
// By the ending of a name, in small letters or capitals: .h5 .hdf5 .nxs, .fits .fit .fts, .tif
// .tiff, .ser, .raw. Nothing for another one.
VXCAMKIT_EXPORT std::optional<RecordFormat> recordFormatOf(const std::string& path);
// Whether this kit was built with it.
VXCAMKIT_EXPORT bool isAvailable(RecordFormat format);

struct RecordOptions {
    HeaderOptions header;
    Compression compression = Compression::None;
    bool force = false; // replace files that exist, but none that is being recorded into
    // A file that has so many bytes is the last one but one: the next frame begins another. Names
    // get a number then, as fileName() makes it. 0: one file.
    uint64_t split = 0;
    size_t most = 8; // frames that are held at most, to be written
    // So much of the disk stays free, at least; 0: what the files need to be ended, and a little.
    uint64_t reserve = 0;
};

// A file of a record.
struct RecordedFile {
    std::string path;
    uint64_t frames = 0; // that are in it
    uint64_t bytes = 0;
};

struct RecordBooks {
    uint64_t frames = 0;     // that are written
    uint64_t flushed = 0;    // of these: whoever opens the files has them
    uint64_t incomplete = 0; // of these
    uint64_t pixelBytes = 0; // of these
    uint64_t dropped = 0;    // before the last one, as it says
    size_t held = 0;         // that wait, or are being written
    uint64_t diskLeft = 0;   // bytes that may still be written; all ones: not known yet
    std::vector<RecordedFile> files;
};

// Writes frames of one size to a record. A file of it has its name from the start, and whoever
// opens it has all frames but the last 0.1 s and those that are held, also when this process is
// killed. When the disk is full, or takes no more, nothing is taken any more, and what was written
// stays readable.
//
// Threads: write() on one, the others on any; it has some of its own. Locks: its own, never held
//   while it writes. Owns: its threads, the frames it holds, and the files until they are ended.
class VXCAMKIT_EXPORT Recorder
{
public:
    // By the ending of the name. Checks what can be checked before a frame is there. Throws
    // Error{Usage} for a name or options that cannot be, Error{File} for files that cannot be made.
    explicit Recorder(const std::string& path, RecordOptions options = {});
    ~Recorder(); // as finish("stopped"), without its errors
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // Has what is measured of each frame (<vxcamkit/measures.h>) stand beside its numbers, with the
    // names that docs/recording.md says. Costs a pass over all pixels, on threads of the record's.
    // Throws Error{Usage} when a frame was taken already.
    void measure(const StarOptions& options = {});

    // Takes a frame; waits while too many are held. False, and the frame is not taken, when the
    // record has failed or has ended. Frames that are of another size than the first one fail it.
    bool write(Frame frame);
    // The same for what the camera told meanwhile.
    void note(const Event& event);

    // Takes no more, waits until all is written and on the disk. The record says that it ended so
    // ("complete", "stopped"), and how many frames were dropped in all. Throws as throwFailure()
    // does.
    void finish(const std::string& how = "complete", std::optional<uint64_t> dropped = {});

    bool hasFailed() const;
    void throwFailure() const; // what went wrong, if anything: Error{File}, Error{Usage}
    RecordBooks books() const;

private:
    struct Body;
    std::unique_ptr<Body> body_;
};

// Checks what can be checked of a record before a frame is there. Throws as Recorder does.
VXCAMKIT_EXPORT void checkRecord(const std::string& path, const RecordOptions& options);
// Bytes that can be written there.
VXCAMKIT_EXPORT uint64_t recordRoom(const std::string& path);
// Bytes that have to be free there for a frame of so many to be taken.
VXCAMKIT_EXPORT uint64_t recordNeeds(const RecordOptions& options, uint64_t frameBytes);
// Copies of frames that a record makes in memory, at most, beside those it holds. Throws
// Error{Usage} as Recorder does.
VXCAMKIT_EXPORT size_t recordCopies(const std::string& path, const RecordOptions& options);

} // namespace vxcam

#endif
