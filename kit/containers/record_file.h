// One file of a record, whatever holds it.
#ifndef VXCAMKIT_RECORD_FILE_H
#define VXCAMKIT_RECORD_FILE_H

#include <vxcamkit/file_bytes.h>
#include <vxcamkit/measures.h>
#include <vxcamkit/recorder.h>

#include <memory>
#include <optional>
#include <string>

namespace vxcam {

// A frame on its way into a file.
struct RecordedFrame {
    Frame frame;
    uint64_t index = 0;                    // within the record, from 0
    uint32_t crc = 0;                      // of its pixels as they lie in memory
    std::optional<Measures> measures = {}; // of all frames of a record, or of none
    FileBytes encoded; // its pixels as the file has them; empty: as they lie in memory
};

// How a record ended.
struct RecordEnd {
    std::string how;
    uint64_t dropped = 0;
};

// Threads: one. Errors: throw Error{File}; what was flushed before stays readable.
class RecordFile
{
public:
    RecordFile() = default;
    virtual ~RecordFile() = default; // what is not closed stays as it was flushed
    RecordFile(const RecordFile&) = delete;
    RecordFile& operator=(const RecordFile&) = delete;

    virtual void add(const RecordedFrame& frame) = 0;
    virtual void note(const Event& /*event*/) {}
    // Whoever opens the file from now on finds what was added.
    virtual void flush() = 0;
    // The rest, with how it ended; on the disk then.
    virtual void close(const RecordEnd& end) = 0;
    // When one of these has failed: what was not flushed is taken away again, where that is needed.
    virtual void salvage() {}

    virtual uint64_t frames() const = 0;                // that were flushed
    virtual uint64_t bytes() const = 0;                 // about
    virtual uint64_t closingBytes() const { return 0; } // that close() will add, at most
};

// Of one kind of record.
struct RecordKind {
    RecordFormat format;
    Compression compression;
    // Starts a file for frames like the first one, whose name has been checked.
    std::unique_ptr<RecordFile> (*make)(const std::string& path, const RecordOptions& options,
                                        const RecordedFrame& first);
    // The pixels as the file has them, in the memory of `spare`; nothing: as they lie in memory.
    // Runs on several threads.
    FileBytes (*encode)(const RecordedFrame& frame, const RecordOptions& options, FileBytes spare);
    int mostBits;       // of a pixel
    bool isMany;        // the name is a pattern, for a file for each frame
    const char* beside; // what the name of another file has behind this one's; empty: none
    bool isBesideTaken; // into this one, when the record ends
};

inline constexpr size_t kRecordDrafts = 4; // frames that are encoded before their turn, at most

// The kind that a name and options stand for. Throws Error{Usage}.
const RecordKind& recordKindOf(const std::string& path, const RecordOptions& options);

std::unique_ptr<RecordFile> makeRawRecord(const std::string& path, const RecordOptions& options,
                                          const RecordedFrame& first);
std::unique_ptr<RecordFile> makeCubeRecord(const std::string& path, const RecordOptions& options,
                                           const RecordedFrame& first);
FileBytes encodeForCube(const RecordedFrame& frame, const RecordOptions& options, FileBytes spare);
std::unique_ptr<RecordFile> makeHdf5Record(const std::string& path, const RecordOptions& options,
                                           const RecordedFrame& first);
FileBytes encodeForHdf5(const RecordedFrame& frame, const RecordOptions& options, FileBytes spare);
std::unique_ptr<RecordFile> makeTilesRecord(const std::string& path, const RecordOptions& options,
                                            const RecordedFrame& first);
FileBytes encodeForTiles(const RecordedFrame& frame, const RecordOptions& options, FileBytes spare);
std::unique_ptr<RecordFile> makeFitsFilesRecord(const std::string& path,
                                                const RecordOptions& options,
                                                const RecordedFrame& first);
FileBytes encodeForFitsFiles(const RecordedFrame& frame, const RecordOptions& options,
                             FileBytes spare);
std::unique_ptr<RecordFile> makeTiffRecord(const std::string& path, const RecordOptions& options,
                                           const RecordedFrame& first);
std::unique_ptr<RecordFile> makeSerRecord(const std::string& path, const RecordOptions& options,
                                          const RecordedFrame& first);

} // namespace vxcam

#endif
