#include "program.h"

#include "arguments.h"
#include "failure.h"
#include "interrupt.h"
#include "report.h"
#include "vxvisible.h"

#include <vxcamkit/error.h>
#include <vxcamkit/new_file.h>
#include <vxcamkit/version.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <new>
#include <utility>

namespace {

constexpr const char* gsExitCodes = "Exit codes: 0 done, 1 usage, 2 no camera, 3 time-out, "
                                    "4 camera error, 5 file error, 6 command of a plan failed, "
                                    "130 interrupted.";
tcCapturing* gpCapturing = nullptr;
constexpr double gnLeastTimeScale = 0.001, gnMostTimeScale = 1e6;

std::string VersionText()
{
    return "vxcam " VXCAM_VERSION " (library " + LibraryVersionText() + ")";
}

std::string OverviewText()
{
    std::string text = "vxcam - drives cameras from the command line\n\n"
                       "Usage: vxcam VERB [OPTIONS] [TARGET]\n\nVerbs:\n";
    for (const tsVerb& verb : Verbs()) {
        text += "  " + std::string(verb.name) +
                std::string(9 - std::string(verb.name).size(), ' ') + verb.summary + "\n";
    }
    text += "\nA TARGET is HOST:PORT, serial:NUMBER, or sim for a simulated camera that lives\n"
            "as long as the command; sim is what is taken without one. Processes are named\n"
            "HOST or HOST:PORT. --flight FILE may stand before a verb.\n\n"
            "vxcam VERB --help tells about a verb, vxcam --version the version.\n\n";
    return text + gsExitCodes;
}

const tsVerb& FindVerb(const std::string& name)
{
    for (const tsVerb& verb : Verbs()) {
        if (name == verb.name) return verb;
    }
    const bool isOption = !name.empty() && name[0] == '-';
    throw tcFailure(eExitUsage, std::string(isOption ? "unknown option '" : "unknown verb '") +
                                    name + "' (vxcam --help lists the verbs)");
}

// One would write over the other.
void RequireOtherFlightFile(const tcCommandLine& line)
{
    const std::string flight = line.Given("--flight"), output = line.Given("--output");
    if (flight.empty() || output.empty()) return;
    std::error_code error;
    const auto place = [&](const std::string& path) {
        return std::filesystem::weakly_canonical(std::filesystem::absolute(path, error), error);
    };
    const bool isSame =
        place(flight) == place(output) || std::filesystem::equivalent(flight, output, error);
    if (isSame) throw tcFailure(eExitUsage, "--flight " + flight + ": is the output, too");
}

// False when the help was asked for, and printed.
bool Parse(const tsVerb& verb, tcVerb& run, const std::vector<std::string>& arguments)
{
    const std::string name = std::string("vxcam ") + verb.name;
    tcCommandLine line(name, name + " - " + verb.summary + "\n");
    run.Declare(line);
    line.AddFooter(std::string("Examples:\n") + verb.examples + "\n\n" + gsExitCodes);
    if (!line.Parse(arguments)) {
        PrintLine(line.Help());
        return false;
    }
    RequireOtherFlightFile(line);
    return true;
}

void AddError(nlohmann::ordered_json* document, int code, const std::string& text)
{
    (*document)["error"]["exit_code"] = code;
    (*document)["error"]["text"] = text;
}

// Where a document was asked for, one is printed, in a line: who reads lines gets one, too.
void PrintUsageError(const std::vector<std::string>& arguments, const std::string& text)
{
    if (std::find(arguments.begin(), arguments.end(), "--json") == arguments.end()) return;
    nlohmann::ordered_json document;
    AddError(&document, eExitUsage, text);
    try {
        PrintLine(LineText(document));
    } catch (const tcFailure&) {
        // There is a line on standard error.
    }
}

int RunVerb(const tsVerb& verb, const std::vector<std::string>& arguments)
{
    std::unique_ptr<tcVerb> run = verb.make();
    int code = eExitDone;
    std::string text;
    try {
        if (Parse(verb, *run, arguments)) run->Run();
        return run->Code();
    } catch (const tcFailure& failure) {
        code = failure.Code();
        text = failure.what();
    } catch (const vxcam::Error& error) {
        code = error.row().exitCode;
        text = run->Told(error.what());
        if (error.kind() == vxcam::ErrorKind::File && error.code() == EEXIST) {
            text += " (--force replaces it)";
        }
    } catch (const std::bad_alloc&) {
        code = eExitCamera;
        text = "not enough memory";
    }
    PrintError(text);
    if (code == eExitUsage) {
        PrintUsageError(arguments, text);
    } else if (run->WantsJson()) {
        nlohmann::ordered_json document = run->Document();
        AddError(&document, code, text);
        try {
            PrintDocument(document);
        } catch (const tcFailure&) {
            // Standard output was the trouble already, or is now one more.
        }
    }
    return code;
}

int RunHelp(const std::vector<std::string>& arguments)
{
    if (arguments.empty()) {
        PrintLine(OverviewText());
        return eExitDone;
    }
    return RunVerb(FindVerb(arguments[0]), {"--help"});
}

// --flight FILE may stand before the verb, too.
std::vector<std::string> InOrder(std::vector<std::string> arguments)
{
    const std::string name = "--flight";
    const bool isBefore = !arguments.empty() && arguments[0].rfind(name, 0) == 0;
    const bool isJoined = isBefore && arguments[0].rfind(name + "=", 0) == 0;
    if (!isJoined && (!isBefore || arguments[0] != name)) return arguments;
    const size_t words = isJoined ? 1 : 2;
    if (arguments.size() < words) throw tcFailure(eExitUsage, "--flight: its value is missing");
    const auto begin = arguments.begin();
    const auto verb = begin + static_cast<std::ptrdiff_t>(words);
    if (verb == arguments.end()) return {};
    std::rotate(begin, verb, std::find(verb, arguments.end(), "--"));
    return arguments;
}

int Dispatch(std::vector<std::string> arguments)
{
    arguments = InOrder(std::move(arguments));
    if (arguments.empty()) {
        throw tcFailure(eExitUsage, "a verb is missing (vxcam --help lists the verbs)");
    }
    const std::string first = arguments[0];
    arguments.erase(arguments.begin());
    if (first == "--help" || first == "-h" || first == "help") return RunHelp(arguments);
    if (first == "--version") {
        PrintLine(VersionText());
        return eExitDone;
    }
    return RunVerb(FindVerb(first), arguments);
}

} // namespace

const std::vector<tsVerb>& Verbs()
{
    static const std::vector<tsVerb>& verbs = *new std::vector<tsVerb>{
        {"grab", "expose, read out and save images", gsGrabExamples, MakeGrab},
        {"record", "keep frames in one file, at full rate", gsRecordExamples, MakeRecord},
        {"sequence", "take frames by a plan, through a whole night", gsSequenceExamples,
         MakeSequence},
        {"verify", "find what is wrong with records", gsVerifyExamples, MakeVerify},
        {"capture", "record all bytes between host and camera", gsCaptureExamples, MakeCapture},
        {"decode", "tell the messages in such a recording", gsDecodeExamples, MakeDecode},
        {"replay", "be the camera of such a recording", gsReplayExamples, MakeReplay},
        {"focus", "tell how sharp stars are, frame after frame", gsFocusExamples, MakeFocus},
        {"flat", "find the exposure of a level, and take flat frames", gsFlatExamples, MakeFlat},
        {"ptc", "measure gain, read noise and full well", gsPtcExamples, MakePtc},
        {"cool", "cool the sensor slowly, and warm it up again", gsCoolExamples, MakeCool},
        {"get", "read properties of a camera", gsGetExamples, MakeGet},
        {"set", "change properties of a camera", gsSetExamples, MakeSet},
        {"profile", "keep the settings of a camera in a file", gsProfileExamples, MakeProfile},
        {"info", "tell what a camera is and how it is set", gsInfoExamples, MakeInfo},
        {"doctor", "find what is wrong with a camera, or the way to it", gsDoctorExamples,
         MakeDoctor},
        {"list", "list the cameras on the network", gsListExamples, MakeList},
        {"ping", "measure how fast a camera answers", gsPingExamples, MakePing},
        {"trigger", "trigger a camera that another vxcam reads out", gsTriggerExamples,
         MakeTrigger},
        {"watch", "tell what a camera sends unasked", gsWatchExamples, MakeWatch},
        {"view", "watch and control a camera in the browser", gsViewExamples, MakeView},
        {"daemons", "find processes that can be looked into", gsDaemonsExamples, MakeDaemons},
        {"log", "read, redirect and follow the loggers of a process", gsLogExamples, MakeLog},
        {"logsink", "receive what loggers send", gsLogSinkExamples, MakeLogSink},
        {"items", "read and set the tunable values of a process", gsItemsExamples, MakeItems},
        {"fault", "let things go wrong with a simulated camera", gsFaultExamples, MakeFault},
    };
    return verbs;
}

nlohmann::ordered_json tcVerb::Document() const
{
    return nullptr;
}

std::string tcVerb::Told(const std::string& text) const
{
    const std::string prefix = msOpened + ": ";
    return text.rfind(prefix, 0) == 0 ? text.substr(prefix.size()) : text;
}

vxcam::Camera tcVerb::OpenCamera(const tsCommonOptions& options)
{
    const vxcam::Target target = TargetOf(options);
    msOpened = target.text();
    HushLibrary(options);
    if (!options.flight.empty()) vxcam::checkNewFile(options.flight, true);
    const vxcam::WireCapture* const capture =
        gpCapturing != nullptr ? &gpCapturing->MadeCapture() : nullptr;
    tcQuickExit quickExit;
    try {
        vxcam::OpenOptions open;
        open.flightFile = options.flight;
        return capture != nullptr ? vxcam::Camera::open(target, open, *capture)
                                  : vxcam::Camera::open(target, open);
    } catch (const vxcam::Error& error) {
        const bool isSilent =
            error.kind() == vxcam::ErrorKind::Timeout || error.kind() == vxcam::ErrorKind::LinkLost;
        throw tcFailure(isSilent ? int{eExitNoCamera} : error.row().exitCode, Told(error.what()));
    }
}

void DeclareOutput(tcCommandLine& line, tsCommonOptions* options)
{
    DeclareQuiet(line, &options->quiet);
    line.Flag("-v,--verbose", &options->verbose, "let the library print its error log");
}

void DeclareTarget(tcCommandLine& line, tsCommonOptions* options)
{
    line.Operand("TARGET", &options->target,
                 "HOST:PORT, serial:NUMBER, or sim for a simulated camera")
        .Checked([](const std::string& text) { ParseTarget(text); })
        .Offers({"sim"});
}

void DeclareCommon(tcCommandLine& line, tsCommonOptions* options)
{
    DeclareTarget(line, options);
    DeclareCameraOptions(line, options);
}

void DeclareCameraOptions(tcCommandLine& line, tsCommonOptions* options)
{
    DeclareOutput(line, options);
    line.Option("--flight", &options->flight, "FILE",
                "where to write what happened to the camera, when something fails");
    const char* const group = "Simulated camera";
    line.Option("--sim-sensor", &options->simSensor, "SIZE", "columns and rows")
        .Checked([](const std::string& text) { ParseSize(text); })
        .Group(group);
    line.Option("--sim-seed", &options->simSeed, "NUMBER", "another number, another sky")
        .Group(group);
    line.Option("--sim-time-scale", &options->simTimeScale, "FACTOR",
                "10 lets its clock run 10 times as fast")
        .Within(gnLeastTimeScale, gnMostTimeScale)
        .Group(group);
}

void DeclareQuiet(tcCommandLine& line, bool* isQuiet)
{
    line.Flag("-q,--quiet", isQuiet, "print nothing but errors");
}

// The errors that matter to the user come out as vxcam's own.
void HushLibrary(const tsCommonOptions& options)
{
    if (!options.verbose) ::setenv("TCLOG_SUPPRESS_ERR_CONSOLE", "1", 0);
}

vxcam::Target TargetOf(const tsCommonOptions& options)
{
    vxcam::Target target = ParseTarget(options.target);
    const tsCommonOptions usual;
    vxcam::SimulatorOptions& simulator = target.simulator;
    const vxcam::Size sensor = ParseSize(options.simSensor);
    if (options.simSensor != usual.simSensor) simulator.sensor = sensor;
    if (options.simSeed != usual.simSeed) simulator.seed = options.simSeed;
    if (options.simTimeScale != usual.simTimeScale) simulator.timeScale = options.simTimeScale;
    return target;
}

std::string NameOf(const vxcam::Camera& camera)
{
    const bool isSimulated = ParseTarget(camera.target()).kind == vxcam::Target::Kind::Simulator;
    return isSimulated ? "simulated camera" : camera.target();
}

std::string LibraryVersionText()
{
    const vxcam::LibraryVersion library = vxcam::libraryVersion();
    const std::string number = std::to_string(library.number) + ".";
    const std::string build = "." + std::to_string(library.build);
    std::string own = VXCAM_VERSION, end = own.substr(own.rfind('.'));
    if (own.rfind(number, 0) == 0 && end == build) return own;
    return number + std::to_string(library.build);
}

tcCapturing::tcCapturing(tpMake make) : mMake(std::move(make))
{
    gpCapturing = this;
}

tcCapturing::~tcCapturing()
{
    gpCapturing = nullptr;
}

const vxcam::WireCapture& tcCapturing::MadeCapture()
{
    if (mpCapture == nullptr) mpCapture = mMake();
    return *mpCapture;
}

void CheckVerbOn(const std::string& name)
{
    tcCommandLine line;
    const std::unique_ptr<tcVerb> verb = FindVerb(name).make();
    verb->Declare(line);
    const std::vector<tsOptionText> options = line.Options();
    const bool opensCamera = std::any_of(options.begin(), options.end(), [](const auto& option) {
        return option.names.back() == "--flight";
    });
    if (!opensCamera) throw tcFailure(eExitUsage, "vxcam " + name + " opens no camera");
}

// The target stands behind the verb, or behind its action; where the verb takes a file, behind
// that.
int RunVerbOn(const std::string& target, std::vector<std::string> words)
{
    CheckVerbOn(words.at(0));
    const tsVerb& verb = FindVerb(words[0]);
    tcCommandLine line;
    const std::unique_ptr<tcVerb> declared = verb.make();
    declared->Declare(line);
    words.erase(words.begin());
    const bool takesFile = line.HasOperand("FILE"), takesTarget = line.HasOperand("TARGET");
    const size_t at = takesFile ? words.size() : takesTarget || words.empty() ? 0 : 1;
    const bool lacksFile = takesFile && words.empty(); // as will be told
    if (!lacksFile) words.insert(words.begin() + static_cast<std::ptrdiff_t>(at), target);
    return RunVerb(verb, words);
}

int RunProgram(const std::vector<std::string>& arguments)
{
    CatchSignals();
    try {
        return Dispatch(arguments);
    } catch (const tcFailure& failure) {
        PrintError(failure.what());
        if (failure.Code() == eExitUsage) PrintUsageError(arguments, failure.what());
        return failure.Code();
    } catch (const std::exception& error) {
        PrintError(error.what());
        return eExitCamera;
    }
}
