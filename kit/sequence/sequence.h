// Many exposures by a plan that is written down, through a whole night and what happens in it.
#ifndef VXCAMKIT_SEQUENCE_H
#define VXCAMKIT_SEQUENCE_H

#include <vxcamkit/area.h>
#include <vxcamkit/cooler.h>
#include <vxcamkit/error.h>
#include <vxcamkit/export.h>
#include <vxcamkit/frame.h>
#include <vxcamkit/header.h>
#include <vxcamkit/plan.h>
#include <vxcamkit/value.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vxcam {

class Camera;

// A command of the user's, for /bin/sh.
struct SequenceHook {
    std::string command; // empty: none
    std::chrono::milliseconds patience{60000};
    bool mayFail = false; // that is told, and the sequence goes on
};

// How bright frames shall be, and between which exposures that is looked for.
struct SequenceLevel {
    double mean = 0;        // of all pixels; 0: the exposure is given
    double tolerance = 0.1; // of the mean that a frame may be off
    std::chrono::milliseconds least{1}, most{60000};
};

// One thing to do.
struct SequenceStep {
    enum class Kind { Frames, Set, Cool, WarmUp, Delay, Hook, Repeat };
    Kind kind = Kind::Frames;
    int line = 0; // of the file

    // Frames: one readout each.
    std::string name; // that their files begin with: "light"
    int count = 1;    // of Repeat, how often
    Plan plan;        // but for the number of frames
    SequenceLevel level;
    SequenceHook dither;
    int ditherEvery = 1; // frames; not behind the last one of the step

    // Set, and Frames before the first one: they stay until something else is set.
    std::vector<std::pair<std::string, Value>> settings;

    Cooling cooling; // WarmUp: target and ramp
    bool waits = true;
    std::chrono::milliseconds patience{3600000}; // until it has settled

    std::chrono::milliseconds delay{0};
    SequenceHook hook;
    std::vector<SequenceStep> steps; // of Repeat
};

// docs/sequence.md tells how it is written.
struct SequencePlan {
    std::string path;
    std::string mark;                       // of what it says: another plan, another mark
    std::string target;                     // empty: not said
    std::string folder;                     // where the frames go
    std::optional<Size> sensor;             // that the plan is made for
    std::vector<HeaderCard> cards;          // of each file
    int retries = 3;                        // of a frame, before the sequence ends
    std::chrono::milliseconds link{600000}; // that a camera may be away
    std::vector<SequenceStep> steps;
};

struct SequenceMistake {
    int line = 0; // of the file; 0: the plan as a whole
    std::string text;
};

// What is wrong with a plan: a usage error whose text names each mistake with its line, the first
// ten of them.
class VXCAMKIT_EXPORT SequenceError : public Error
{
public:
    SequenceError(const std::string& path, std::vector<SequenceMistake> mistakes);
    ~SequenceError() override;

    const std::vector<SequenceMistake>& mistakes() const { return mistakes_; } // all of them

private:
    std::vector<SequenceMistake> mistakes_;
};

// Reads a plan and checks all of it. Throws SequenceError; Error{File} when it cannot be read.
VXCAMKIT_EXPORT SequencePlan readSequence(const std::string& path);
// The same with a text that stands, or might stand, in that file.
VXCAMKIT_EXPORT SequencePlan parseSequence(const std::string& text, const std::string& path);

// What a plan comes to. Times are the camera's.
struct SequenceNeeds {
    int frames = 0, hooks = 0;
    std::chrono::milliseconds exposure{0}; // of all frames
    std::chrono::milliseconds duration{0}; // as far as it can be told: hooks count for nothing
    std::optional<uint64_t> bytes;         // of all files; nothing: the sensor is not known
};
// `sensor`: of the camera; else what the plan says. Throws SequenceError for areas beyond it.
VXCAMKIT_EXPORT SequenceNeeds needsOf(const SequencePlan& plan,
                                      const std::optional<Size>& sensor = {});

// What it comes to with this camera. Throws Error{Usage} for what that cannot do: it has another
// sensor, areas reach beyond it, or it cannot take a setting. Nothing is sent.
VXCAMKIT_EXPORT SequenceNeeds checkSequence(const SequencePlan& plan, Camera& camera);

struct SequenceProgress {
    int frames = 0, taken = 0;         // of the plan; of them, in all runs
    double done = 0;                   // of the time of all runs, 0 to 1
    std::chrono::milliseconds left{0}; // on the wall
    std::string doing;                 // "light 5: exposing"
    std::string file;                  // that has just been written; else empty
};

struct SequenceOptions {
    std::string software; // as of HeaderOptions
    std::string instrument;
    // Called every 0.1 s at least, on the thread of run(). What it throws ends the sequence, which
    // goes on there when it is run again.
    std::function<void(const SequenceProgress&)> onProgress;
};

struct SequenceFile {
    std::string path;
    uint64_t bytes = 0;
};

// Something that went wrong.
struct SequenceFailure {
    std::string utc;  // "2026-01-31T23:59:59.999"
    std::string text; // "light 5: the connection was lost"
};

// What became of a sequence, in all its runs.
struct SequenceReport {
    std::string journal;
    int runs = 0;
    int frames = 0; // of the plan
    int before = 0; // frames that earlier runs took
    bool complete = false;
    std::vector<SequenceFile> files; // of the frames that are taken, in their order
    std::vector<SequenceFailure> failures;
};

// The same from the journal beside the frames, also while a run goes on; nothing where no run of
// this plan has begun. Throws Error as Sequence does.
VXCAMKIT_EXPORT std::optional<SequenceReport> reportOf(const SequencePlan& plan);

// What becomes of a run, besides its progress; all are called on the thread of run(), and may be
// empty. What they throw ends it.
struct SequenceWatch {
    // Another step of the plan begins; the progress is told behind it at once.
    std::function<void(int line)> onStep;
    // Each that came, incomplete ones and those for looking for an exposure included; before it is
    // written to a file.
    std::function<void(const Frame&)> onFrame;
    std::function<void(const std::string& name, const Value&)> onSetting; // the camera took it
    std::function<void(const SequenceFailure&)> onFailure;
};

// When a run ends that is stopped: at once, with the exposure aborted and a command killed; or
// behind the frame, if one is under way, and else at once.
enum class SequenceStop { Now, BehindFrame };

// A hook ended with another code than 0, or not in time.
class VXCAMKIT_EXPORT HookError : public Error
{
public:
    explicit HookError(const std::string& text);
    ~HookError() override;
};

// A sequence, begun or gone on with: beside its frames stands a journal of what is done. Whatever
// ends a run, another one goes on behind the last frame that stands on the disk.
//
// Threads: one; stop() on any. Owns: the journal, which one run at a time may have.
class VXCAMKIT_EXPORT Sequence
{
public:
    // Makes folder and journal, or reads it. Throws Error: File when that cannot be, or somebody
    // else has the journal; Usage when it is that of another plan.
    explicit Sequence(SequencePlan plan, SequenceOptions options = {});
    ~Sequence();
    Sequence(const Sequence&) = delete;
    Sequence& operator=(const Sequence&) = delete;

    // Does what is left to do. A link that is lost is waited for, and the frame taken again; so is
    // a frame that fails otherwise, some times. Throws Error: Usage for what this camera cannot do,
    // or when frames of another one are there, before anything is done; Camera when another one
    // takes its place; File for a disk without room or a file that is there already;
    // HookError; Aborted when it is stopped; what the camera fails with at last. A ramp of the
    // temperature that is under way ends then, at what the set point has come to.
    // Other threads may read the camera's properties meanwhile. What they set goes between the
    // commands of the sequence: it holds from the next frame on, which says so, until the plan sets
    // the same, also when its settings are made again behind a lost link. A readout of theirs lets
    // the sequence fail, and Camera::abort() ends it.
    void run(Camera& camera);

    void watch(SequenceWatch watch); // before run()

    // Has run() end, or not begin; for good: another Sequence goes on.
    void stop(SequenceStop when = SequenceStop::Now);

    bool isComplete() const; // nothing is left to do
    SequenceReport report() const;

private:
    struct Body;
    std::unique_ptr<Body> body_;
};

} // namespace vxcam

#endif
