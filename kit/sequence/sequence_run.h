// A sequence on its way.
#ifndef VXCAMKIT_SEQUENCE_RUN_H
#define VXCAMKIT_SEQUENCE_RUN_H

#include "sequence/flat_exposure.h"
#include "sequence/sequence_clock.h"
#include "sequence/sequence_journal.h"
#include "sequence/sequence_units.h"

#include <vxcamkit/camera.h>

#include <atomic>
#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace vxcam {

// The sensor does not get as cold, or as warm, as it shall.
class CoolingFailure : public Error
{
public:
    explicit CoolingFailure(const std::string& text) : Error(ErrorKind::Timeout, text) {}
};

// What holds a run up: nothing, or how it is to be stopped.
enum class SequenceHold { None, BehindFrame, Now };

// It was.
class SequenceStopped : public Error
{
public:
    SequenceStopped() : Error(ErrorKind::Aborted, "the sequence was stopped") {}
};

// What a run goes by.
struct SequenceOrders {
    const SequencePlan& plan;
    const SequenceOptions& options;
    const SequenceWatch& watch;
    const std::atomic<SequenceHold>& hold;
};

// One run, with a camera.
//
// Threads: one.
class SequenceRun
{
public:
    SequenceRun(Camera& camera, const SequenceOrders& orders,
                const std::vector<SequenceUnit>& units, SequenceJournal& journal);

    void run();

private:
    using Clock = std::chrono::steady_clock;
    using Time = std::chrono::milliseconds;

    void check();
    void checkRoom() const;
    bool checkFiles() const; // whether frames are taken
    void checkTaken(int number, uint64_t wanted) const;
    bool isOurs(const SequenceUnit& unit) const;
    void removeRemains() const;
    int firstLeft() const;
    void countAll(int first);
    void doUnits(int first);
    void doUnit(int unit, bool isRestoreDue);
    void tryUnit(const SequenceUnit& unit, int number);
    bool mayGoOn(const Error& error, const SequenceUnit& unit, int failures);
    void awaitLink(const Error& error);
    bool isCameraThere();
    void askCamera();
    void throwIfOther(const SequenceCamera& camera, ErrorKind kind = ErrorKind::Camera) const;
    void restore(int before);
    bool isCooledAnew(int from) const;
    bool hasLostLink() const;

    void takeFrame(const SequenceUnit& unit, int number);
    bool adopt(const SequenceUnit& unit, int number);
    Frame grab(const Plan& plan, const std::string& doing);
    Time exposureOf(const SequenceStep& step);
    FlatExposure& flatOf(const SequenceStep& step);
    void set(const SequenceStep& step);
    void setOne(const std::string& name, const Value& value);
    void cool(const SequenceUnit& unit);
    void awaitTemperature(const SequenceStep& step);
    void delay(const SequenceUnit& unit);
    void runHook(const SequenceUnit& unit);

    bool isStopped() const;
    void throwIfStopped() const;
    void begin(const SequenceUnit& unit);
    void failed(const std::string& text);
    void tell(const std::string& doing, const std::string& file = "");
    std::string pathOf(const std::string& file) const { return plan_.folder + "/" + file; }

    Camera& camera_;
    const SequencePlan& plan_;
    const SequenceOptions& options_;
    const SequenceWatch& watch_;
    const std::atomic<SequenceHold>& hold_;
    const std::vector<SequenceUnit>& units_;
    SequenceJournal& journal_;
    std::map<const SequenceStep*, FlatExposure> flats_;
    SequenceClock clock_;
    int frames_ = 0;
    uint64_t losses_ = 0; // of the connection, that have been dealt with
    std::string last_;    // file of a frame
    const SequenceStep* step_ = nullptr;
    bool isInFrame_ = false, hasCooled_ = false;
};

} // namespace vxcam

#endif
