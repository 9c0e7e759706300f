// What is behind a Camera.
#ifndef VXCAMKIT_CAMERA_CORE_H
#define VXCAMKIT_CAMERA_CORE_H

#include "camera/event_queue.h"
#include "camera/keeper.h"
#include "readout/stream_core.h"
#include "record/flight_recorder.h"
#include "simulation/simulator.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/cooler.h>
#include <vxcamkit/discover.h>
#include <vxcamkit/property.h>
#include <vxcamkit/property_access.h>
#include <vxcamkit/settings.h>
#include <vxcamkit/wire_capture.h>

#include "vxcamext.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

namespace vxcam {

// Threads: as Camera; the callbacks run on the library's receive thread, watch() on the keeper's.
// Locks: `commands_` is held by whoever makes the camera do something, for as long as that takes;
//   `state_` guards what is told and is never held while calling out. Order: commands_, state_.
// Owns: all that Camera says.
class CameraCore : public Access, public std::enable_shared_from_this<CameraCore>
{
public:
    using Capture = std::shared_ptr<WireCapture::Body>; // may be none
    static std::shared_ptr<CameraCore> open(const Target& target, const OpenOptions& options,
                                            const Capture& capture);
    CameraCore(const Target& target, const OpenOptions& options, Capture capture); // of open()
    ~CameraCore() override;
    CameraCore(const CameraCore&) = delete;
    CameraCore& operator=(const CameraCore&) = delete;

    void close();
    std::shared_ptr<StreamCore> stream(Plan plan);
    ReadoutKind kindOf(const Plan& plan);
    void abort();
    Subscription onEvent(EventHandler handler) { return events_.listen(std::move(handler)); }

    std::string flight() const { return flight_.text(); }

    Cooler& cooler() { return cooler_; }
    Value get(const std::string& name);
    Value set(const std::string& name, const Value& value);
    std::optional<Value> tryGet(const std::string& name, std::string* why);
    std::optional<Value> getWithin(const std::string& name, std::chrono::milliseconds most);
    Value checked(const std::string& name, const Value& value);
    Snapshot snapshot();
    Profile profile(bool withMask);
    std::vector<Outcome> apply(const Profile& profile);
    bool waitForLink(std::chrono::milliseconds most) const;
    std::string restore();
    LinkCheck checkLink(int messages);

    const Identity& identity() const { return *identity_; }
    const Target& target() const { return target_; }
    const std::string& address() const { return address_; }
    double timeScale() const;
    Statistics statistics() const;
    bool isClosed() const { return isClosed_; }
    // As temperatures(), without waiting; and when they came.
    std::optional<Temperatures> lastTemperatures(SteadyTime* told = nullptr) const;

    // ---- Access
    int handle() const override { return handle_; }
    Size sensor() const override { return *sensor_.load(); }
    std::optional<Temperatures> temperatures() override;
    uint64_t complaints() const override;
    void throwComplaint(uint64_t before) const override;
    void require(int result, const std::string& what) override;
    void roundTrip() override;

    // While one lives, its thread alone makes the camera do something, and what an abandoned
    // readout left behind has been cleared away.
    class Command
    {
    public:
        enum class Before { All, Nothing }; // what is to be done is done
        explicit Command(CameraCore& core, const std::string& asked = "",
                         Before before = Before::All);
        Command(const Command&) = delete;
        Command& operator=(const Command&) = delete;

        // All its questions are answered: errors that come now are not its own any more.
        void answered() { underWay_.answered(); }

    private:
        // While it lives, those know of the command for whom that matters: errors that come are its
        // own, and a camera that is held back can answer.
        class UnderWay
        {
        public:
            UnderWay(CameraCore& core, std::string asked);
            ~UnderWay();
            UnderWay(const UnderWay&) = delete;
            UnderWay& operator=(const UnderWay&) = delete;
            void answered();

        private:
            CameraCore& core_;
            const std::string outer_; // what the thread does by this one
            bool isAnswered_ = false;
            std::shared_ptr<StreamCore> held_;
        };

        const SteadyTime came_ = std::chrono::steady_clock::now();
        std::unique_lock<std::recursive_mutex> guard_;
        UnderWay underWay_;
    };

private:
    std::unique_lock<std::recursive_mutex> takeTurn();
    tsStatistics figures() const;
    static uint64_t wholePackets(const tsStatistics& figures)
    {
        return figures.PacketsReceived - figures.PacketsDamaged;
    }

    struct Callbacks;
    class OpeningTap;
    struct LateQuestion {
        uint64_t connection;              // where its answer may be on its way
        uint64_t complaints, lateAnswers; // that had come when it was asked
    };
    // opening.cpp
    void connect();
    void openAt(const std::string& host, uint16_t port);
    void openSerial();
    void openFound(const FoundCamera& camera, const std::string& who);
    void listen();

    // identifying.cpp
    int askHardware(TVXCameraHardware* hardware);
    void identify();
    void compare(TVXCameraHardware hardware);
    void takeChange(const Size& size, const Identity& identity);

    // first_question.cpp
    bool askFirst(SteadyTime since);
    void tellLoss(const Moment& time, const std::string& words);
    void tellAnswer(uint64_t connection);

    // short_question.cpp
    bool isReadyToAsk(std::chrono::milliseconds most) const;
    std::optional<Value> askShortly(const PropertyName& name, std::chrono::milliseconds most);
    void awaitLateAnswer();
    bool isLate() const;
    bool isRefusalDue(const tsStatistics& figures) const;
    void noteAnswer(SteadyTime asked);

    // camera_settings.cpp
    std::optional<Value> learn(const std::string& name);
    void survey(Snapshot::Again which);
    void keep(const PropertyName& name, const Value& asked, const Value& told);
    Value sendTrigger(const PropertyName& name, const Value& value);
    std::string sendAgain();
    void restoreIfLost();
    Error named(const Error& error) const;

    // starting.cpp
    void checkPlan(const Plan& plan) const;
    void apply(const std::string& name, const Value& value);
    void applyArea(const Area& area);
    void applyPlan(const Plan& plan);
    void undoPlan();
    void abandonPlan();
    ReadoutKind kindSet();
    bool isNoAreaKnown() const;
    void fillFacts(const Plan& plan, FrameFacts* facts);
    ExposurePlan exposurePlan(std::chrono::nanoseconds exposure);
    StreamSetup setUp(const Plan& plan);
    std::shared_ptr<FramePool> poolFor(const Plan& plan, const FrameFacts& facts);
    int sendReadout(const StreamSetup& setup);

    void endReadout();
    void readoutEnded(const StreamCore& stream);
    void clearAway();
    bool hasGoneOn() const;
    void stopCamera();
    void awaitClearance();
    std::optional<SteadyTime> watch();
    std::optional<SteadyTime> lookAfter();
    bool isQuestionDue() const;
    std::optional<SteadyTime> nextLook() const;
    void noteFailure(const std::string& text);
    std::optional<SteadyTime> saveFlight();
    std::shared_ptr<StreamCore> present() const;
    void requireOpen() const;
    [[noreturn]] void fail(ErrorKind kind, const std::string& text) const;

    const Target target_;
    const OpenOptions options_;
    const Capture capture_;
    uint8_t captured_ = 0; // the camera's number in it
    std::unique_ptr<Simulator> simulator_;
    std::shared_ptr<SimulatorWitness> witness_; // of a simulated camera of this process
    std::string address_;
    int handle_ = -1;
    std::deque<Size> sensors_{1}; // all that it had, and identities: somebody may look at one
    std::atomic<const Size*> sensor_{&sensors_.front()};
    std::deque<Identity> identities_{1};
    std::atomic<const Identity*> identity_{&identities_.front()};
    SteadyTime opened_;
    std::atomic<bool> isClosed_{false};
    std::mutex closing_;

    std::recursive_mutex commands_;
    std::atomic<int> waiting_{0}; // for it, of those who command
    // The last readout's connection was lost: the camera may not have noticed, and still be at it.
    std::atomic<bool> isStopDue_{false}; // changed with commands_
    // With commands_.
    bool isClearing_ = false, isRestoring_ = false;
    std::string asked_; // by the application: what a lost link brings to nothing
    std::vector<std::pair<PropertyName, Value>> undo_; // what a plan changed, and what was there
    std::shared_ptr<FramePool> pool_;
    Settings made_;                                                    // by the application
    Snapshot settings_ = Snapshot::unasked(Snapshot::Scope::Settings); // in force

    mutable std::mutex state_;
    mutable std::condition_variable changed_;
    std::shared_ptr<StreamCore> stream_; // the last one
    bool isCleared_ = true;              // nothing is left of it on the camera
    int commandsUnderWay_ = 0;
    bool isLinkUp_ = true;
    uint64_t connection_ = 0, answeredOn_ = 0; // counted; the last one with a first answer
    uint64_t losses_ = 0, lossesTold_ = 0;     // of it; those that are no reason for what fails now
    uint64_t readoutOn_ = 0;                   // where the last readout began
    uint64_t packetsAtLoss_ = 0;               // that had come whole when the link was lost
    uint64_t silentOn_ = 0;                    // where the first question was in vain
    SteadyTime silentUntil_;                   // on that one
    bool isLossTold_ = false;                  // and no answer since
    std::string wordsTold_;                    // with it
    std::optional<LateQuestion> late_;         // whose answer nobody waits for
    std::chrono::nanoseconds lastAnswer_{0};   // took so long
    std::string lastWords_;
    // The last error, where it answered a command or is older than the readout, and how many
    // questions were answered by then; none once that command was over. Behind either it is no
    // reason of a lost link.
    std::string refusal_;
    std::optional<uint64_t> refusedAt_;
    bool isRestoreDue_ = false; // the link was lost, and with it, maybe, the settings
    std::optional<Temperatures> temperatures_;
    SteadyTime temperatureTime_;
    uint64_t complaintCount_ = 0;
    std::vector<Complaint> complaintList_; // the last ones

    FlightRecorder flight_;
    std::atomic<bool> isFlightDue_{false}; // something failed since it was saved
    SteadyTime flightSaved_;               // of the thread that saves

    EventQueue events_;
    std::unique_ptr<Keeper> keeper_;
    std::unique_ptr<Keeper> flightKeeper_; // where there is a file
    Cooler cooler_;
};

} // namespace vxcam

#endif
