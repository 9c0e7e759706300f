// What of a sequence is done, in a file beside its frames.
#ifndef VXCAMKIT_SEQUENCE_JOURNAL_H
#define VXCAMKIT_SEQUENCE_JOURNAL_H

#include "sequence/sequence_camera.h"

#include <vxcamkit/sequence.h>

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace vxcam {

// A line for each thing, on the disk when it is written. What a power cut leaves of the last line
// is cut off; anything else that is no line of a journal is an error.
//
// Threads: one. Owns: the descriptor, and a lock on the file that goes with the process.
// Errors: throw Error{File}; Error{Usage} for the journal of another plan, of which something
//   is done.
class SequenceJournal
{
public:
    struct Frame {
        std::string file;
        uint64_t bytes = 0;
    };

    // Makes it, or reads it and goes on behind its end.
    SequenceJournal(const std::string& path, const std::string& mark);
    // What it says now, also while somebody else has it; nothing where there is none, or one in
    // which nothing of this plan is done. Only to read from.
    static std::unique_ptr<const SequenceJournal> look(const std::string& path,
                                                       const std::string& mark);
    ~SequenceJournal();
    SequenceJournal(const SequenceJournal&) = delete;
    SequenceJournal& operator=(const SequenceJournal&) = delete;

    void begin();                              // a run
    void camera(const SequenceCamera& camera); // that the frames are of from now on
    void frame(int unit, const std::string& file, uint64_t bytes);
    void again(int unit); // the frame is to be taken again
    void done(int unit);
    void failed(const std::string& text);
    void ended();

    const std::string& path() const { return path_; }
    const std::string& id() const { return id_; }                  // of the sequence, by chance
    const std::map<int, Frame>& frames() const { return frames_; } // by their units
    bool isDone(int unit) const { return frames_.count(unit) != 0 || done_.count(unit) != 0; }
    const std::vector<SequenceFailure>& failures() const { return failures_; }
    const std::vector<int>& processes() const { return processes_; } // of all runs
    // Nothing: not written down.
    const std::optional<SequenceCamera>& camera() const { return camera_; }
    bool hasEnded() const { return hasEnded_; }
    int framesNow() const { return framesNow_; } // of this run

private:
    explicit SequenceJournal(std::string path) : path_(std::move(path)) {}
    void lock();
    void create(const std::string& mark);
    void beginAnew(const std::string& mark);
    bool read(const std::string& text, const std::string& mark); // false: another plan's
    bool take(const std::string& line);                          // false: no line of a journal
    void append(const std::string& line);

    const std::string path_;
    int descriptor_ = -1;
    uint64_t size_ = 0;
    std::string id_;
    std::map<int, Frame> frames_;
    std::set<int> done_;
    std::vector<SequenceFailure> failures_;
    std::vector<int> processes_;
    std::optional<SequenceCamera> camera_;
    bool hasEnded_ = false;
    int framesNow_ = 0;
};

} // namespace vxcam

#endif
