// The program as a whole: its verbs and how they are called.
#ifndef PROGRAM_H
#define PROGRAM_H

#include "tcCommandLine.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/wire_capture.h>

#include <nlohmann/json_fwd.hpp>

#include <functional>
#include <memory>
#include <string>
#include <vector>

// Options that many verbs share.
struct tsCommonOptions {
    std::string target = "sim";
    std::string simSensor = "2048x2048";
    uint64_t simSeed = 1;
    double simTimeScale = 1;
    std::string flight; // a file
    bool quiet = false;
    bool verbose = false;
};

// One verb: declares its options, then runs. A new verb is a class of its own in a file of its own,
// and a row of gaVerbs.
class tcVerb
{
public:
    virtual ~tcVerb() = default;
    virtual void Declare(tcCommandLine& line) = 0;
    virtual void Run() = 0; // throws tcFailure
    // With --json, a document about a run that failed; null when the verb has nothing to say.
    virtual nlohmann::ordered_json Document() const;
    bool WantsJson() const { return mbJson; }
    // What the process ends with when nothing was thrown.
    virtual int Code() const { return 0; }
    // What the kit says, without the camera's name in front: a run has one camera.
    std::string Told(const std::string& text) const;

protected:
    // Opens the camera that the options name; the library is hushed, see HushLibrary(). A signal
    // ends the process meanwhile. Throws tcFailure: eExitNoCamera when that fails, eExitCamera when
    // the camera does not tell its size.
    vxcam::Camera OpenCamera(const tsCommonOptions& options);

    bool mbJson = false;

private:
    std::string msOpened; // the camera, as the kit calls it
};

struct tsVerb {
    const char* name;
    const char* summary;
    const char* examples; // behind the help
    std::unique_ptr<tcVerb> (*make)();
};
extern const std::vector<tsVerb>& Verbs();

// Declares --quiet and --verbose.
void DeclareOutput(tcCommandLine& line, tsCommonOptions* options);
// Declares these, the target and the options of the simulated camera.
void DeclareCommon(tcCommandLine& line, tsCommonOptions* options);
// The target, and all but the target, for verbs with actions.
void DeclareTarget(tcCommandLine& line, tsCommonOptions* options);
void DeclareCameraOptions(tcCommandLine& line, tsCommonOptions* options);
// Declares --quiet alone, for verbs that open no camera.
void DeclareQuiet(tcCommandLine& line, bool* isQuiet);
// Unless --verbose, keeps the library's error log from standard error. Before its first call.
void HushLibrary(const tsCommonOptions& options);
// The camera that the options name.
vxcam::Target TargetOf(const tsCommonOptions& options);
// The camera's name for people: "simulated camera", "192.168.1.20:2000".
std::string NameOf(const vxcam::Camera& camera);
// The library's: the program's own, "3.0.7", where number and build are the same; else these,
// "3.8".
std::string LibraryVersionText();

// While one lives, the wire of each camera that OpenCamera() opens is recorded. The recording is
// made when the first one is about to be opened: of a verb that does not come so far, there is
// none.
//
// Threads: the main one only.
class tcCapturing
{
public:
    using tpMake = std::function<std::unique_ptr<vxcam::WireCapture>()>;
    explicit tcCapturing(tpMake make);
    ~tcCapturing();
    // The recording; null before a camera was about to be opened.
    vxcam::WireCapture* Capture() const { return mpCapture.get(); }
    const vxcam::WireCapture& MadeCapture();
    tcCapturing(const tcCapturing&) = delete;
    tcCapturing& operator=(const tcCapturing&) = delete;

private:
    const tpMake mMake;
    std::unique_ptr<vxcam::WireCapture> mpCapture;
};

// Throws tcFailure for what is no verb that opens a camera.
void CheckVerbOn(const std::string& name);
// Runs a verb with this camera as its target: the verb and its arguments, without the target.
// Prints, and returns the exit code. Throws as CheckVerbOn() does.
int RunVerbOn(const std::string& target, std::vector<std::string> words);

// The arguments without the program's name. Prints, and returns the exit code.
int RunProgram(const std::vector<std::string>& arguments);

std::unique_ptr<tcVerb> MakeCapture();
std::unique_ptr<tcVerb> MakeCool();
std::unique_ptr<tcVerb> MakeDaemons();
std::unique_ptr<tcVerb> MakeDecode();
std::unique_ptr<tcVerb> MakeDoctor();
std::unique_ptr<tcVerb> MakeFault();
std::unique_ptr<tcVerb> MakeFlat();
std::unique_ptr<tcVerb> MakeFocus();
std::unique_ptr<tcVerb> MakeGet();
std::unique_ptr<tcVerb> MakeGrab();
std::unique_ptr<tcVerb> MakeInfo();
std::unique_ptr<tcVerb> MakeItems();
std::unique_ptr<tcVerb> MakeList();
std::unique_ptr<tcVerb> MakeLog();
std::unique_ptr<tcVerb> MakeLogSink();
std::unique_ptr<tcVerb> MakePing();
std::unique_ptr<tcVerb> MakeProfile();
std::unique_ptr<tcVerb> MakePtc();
std::unique_ptr<tcVerb> MakeRecord();
std::unique_ptr<tcVerb> MakeSequence();
std::unique_ptr<tcVerb> MakeReplay();
std::unique_ptr<tcVerb> MakeSet();
std::unique_ptr<tcVerb> MakeTrigger();
std::unique_ptr<tcVerb> MakeVerify();
std::unique_ptr<tcVerb> MakeView();
std::unique_ptr<tcVerb> MakeWatch();

extern const char* const gsCaptureExamples;
extern const char* const gsCoolExamples;
extern const char* const gsDaemonsExamples;
extern const char* const gsDecodeExamples;
extern const char* const gsDoctorExamples;
extern const char* const gsFaultExamples;
extern const char* const gsFlatExamples;
extern const char* const gsFocusExamples;
extern const char* const gsGetExamples;
extern const char* const gsGrabExamples;
extern const char* const gsInfoExamples;
extern const char* const gsItemsExamples;
extern const char* const gsListExamples;
extern const char* const gsLogExamples;
extern const char* const gsLogSinkExamples;
extern const char* const gsPingExamples;
extern const char* const gsProfileExamples;
extern const char* const gsPtcExamples;
extern const char* const gsRecordExamples;
extern const char* const gsSequenceExamples;
extern const char* const gsReplayExamples;
extern const char* const gsSetExamples;
extern const char* const gsTriggerExamples;
extern const char* const gsVerifyExamples;
extern const char* const gsViewExamples;
extern const char* const gsWatchExamples;

#endif
