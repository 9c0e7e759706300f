// vxcam doctor: what is wrong between here and the camera.
#include "arguments.h"
#include "complaints.h"
#include "failure.h"
#include "interrupt.h"
#include "logrecord.h"
#include "program.h"
#include "reach.h"
#include "report.h"
#include "tcService.h"
#include "trips.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/discover.h>
#include <vxcamkit/error.h>

#include <nlohmann/json.hpp>

#include <cstdio>

const char* const gsDoctorExamples =
    R"(  vxcam doctor                      this program and the simulated camera
  vxcam doctor 192.168.1.20:2000    the way to a camera, and the camera
  vxcam doctor serial:1207 --json   the one with that serial number, for scripts)";

namespace {

using tpMilliseconds = std::chrono::milliseconds;

constexpr tpMilliseconds gnPatience(3000);      // for a connection
constexpr int gnWantedBuffer = 2 * 1024 * 1024; // what the library asks for
constexpr int gnKibi = 1024;
constexpr double gnSlowTrip = 20.0; // ms
constexpr int gnTrips = 100, gnLinkMessages = 64;

enum class teLevel { eFine, eAdvice, eFault };

struct tsFinding {
    std::string check;
    teLevel level;
    std::string text, advice;
    int code = eExitDone; // of a fault
};

class tcDoctor : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;
    nlohmann::ordered_json Document() const override { return mDocument; }

private:
    void Tell(const tsFinding& finding);
    void Fine(const char* check, const std::string& text);
    void Advise(const char* check, const std::string& text, const std::string& advice);
    [[noreturn]] void Fault(const char* check, int code, const std::string& text,
                            const std::string& advice);
    void CheckNetwork();
    void CheckWay();
    void CheckPort(const std::string& address, uint16_t port);
    void CheckCamera(vxcam::Camera& camera);
    void CheckBuffer(vxcam::Camera& camera);
    void CheckLink(vxcam::Camera& camera);
    void CheckTrips(vxcam::Camera& camera);
    void CheckStatistics(vxcam::Camera& camera);
    vxcam::Camera OpenChecked();
    void Examine(vxcam::Camera camera);
    void Summarise();

    tsCommonOptions mtCommon;
    vxcam::Target mtTarget;
    std::vector<vxcam::HostInterface> maInterfaces;
    std::vector<vxcam::FoundCamera> maCameras;
    int mnAdvice = 0;
    nlohmann::ordered_json mDocument;
};

void tcDoctor::Declare(tcCommandLine& line)
{
    DeclareCommon(line, &mtCommon);
    line.Flag("--json", &mbJson, "print one JSON document");
}

void tcDoctor::Tell(const tsFinding& finding)
{
    static constexpr const char* levels[] = {"ok", "advice", "fault"};
    const char* const level = levels[static_cast<size_t>(finding.level)];
    nlohmann::ordered_json entry{
        {"check", finding.check}, {"level", level}, {"text", finding.text}};
    if (!finding.advice.empty()) entry["advice"] = finding.advice;
    mDocument["findings"].push_back(entry);
    if (finding.level == teLevel::eAdvice) ++mnAdvice;
    if (mbJson || (mtCommon.quiet && finding.level == teLevel::eFine)) return;
    char head[40];
    std::snprintf(head, sizeof head, "%-7s %-15s ", level, finding.check.c_str());
    PrintLine(head + Printable(finding.text) +
              (finding.advice.empty() ? "" : "\n" + std::string(24, ' ') + finding.advice));
}

void tcDoctor::Fine(const char* check, const std::string& text)
{
    Tell({check, teLevel::eFine, text, ""});
}

void tcDoctor::Advise(const char* check, const std::string& text, const std::string& advice)
{
    Tell({check, teLevel::eAdvice, text, advice});
}

// Nothing behind a fault can be looked at.
void tcDoctor::Fault(const char* check, int code, const std::string& text,
                     const std::string& advice)
{
    Tell({check, teLevel::eFault, text, advice, code});
    throw tcFailure(code, std::string(check) + ": " + text);
}

void tcDoctor::CheckNetwork()
{
    maInterfaces = vxcam::hostInterfaces();
    if (maInterfaces.empty()) {
        Advise("interfaces", "no interface with an IPv4 address is up",
               "bring one up, for example: ip link set lo up");
    } else {
        Fine("interfaces", vxcam::textOf(maInterfaces));
    }
    try {
        tcQuickExit quickExit;
        maCameras = vxcam::discover();
    } catch (const vxcam::Error& error) {
        Advise("discovery", error.what(), "UDP ports 52112 to 52116 must be free on each of them");
        return;
    }
    std::string text;
    for (const vxcam::FoundCamera& camera : maCameras) {
        text += (text.empty() ? "" : ", ") + std::string("serial:") +
                std::to_string(camera.serial) + " at " + camera.target();
    }
    Fine("discovery", text.empty() ? "no camera answers" : text);
}

// From the target to an address and a port that takes connections.
void tcDoctor::CheckWay()
{
    if (mtTarget.kind == vxcam::Target::Kind::Simulator) return;
    if (mtTarget.kind == vxcam::Target::Kind::Serial) {
        for (const vxcam::FoundCamera& camera : maCameras) {
            if (camera.serial != mtTarget.serial) continue;
            Fine("serial number", mtCommon.target + " is " + camera.target());
            CheckPort(camera.paths.front().address, camera.port);
            return;
        }
        Fault("serial number", eExitNoCamera, "no camera with it answers",
              "broadcasts pass no router: if the camera is in another network, use HOST:PORT");
    }
    std::string address;
    try {
        address = AddressText(ResolveHost(mtTarget.host));
    } catch (const tcFailure& failure) {
        Fault("name", failure.Code(), failure.what(),
              "check the spelling and the name service, or use the address");
    }
    Fine("name", mtTarget.host + " is " + address);
    CheckPort(address, mtTarget.port);
}

void tcDoctor::CheckPort(const std::string& address, uint16_t port)
{
    const std::string place = address + ":" + std::to_string(port);
    const tsReach reach = TryPort(ResolveHost(address), port, gnPatience);
    switch (reach.outcome) {
    case teReach::eReached:
        Fine("port", place + " takes connections, from here by way of " + reach.ownAddress);
        return;
    case teReach::eRefused:
        Fault("port", eExitNoCamera, place + ": connection refused: nothing listens there",
              "check the port number (vxcam list tells it), and that the camera has started up");
    case teReach::eUnreachable:
        Fault("port", eExitNoCamera, place + ": unreachable: " + reach.detail,
              "check cable, address and netmask: there is no way to it from " +
                  vxcam::textOf(maInterfaces));
    case teReach::eTimeout:
        Fault("port", eExitNoCamera, place + ": time-out: nobody answers within 3 s",
              "check that the camera is on, its address, and firewalls between");
    case teReach::eInUse:
        Fault("camera", eExitNoCamera,
              place + ": in use: the camera says \"" + Printable(reach.detail) + "\"",
              "end the program that uses it, on this host or another; a camera serves one");
    case teReach::eOther:
        break;
    }
    Fault("port", eExitNoCamera, place + ": " + reach.detail, "ask whoever runs this host");
}

void tcDoctor::CheckCamera(vxcam::Camera& camera)
{
    const vxcam::Size sensor = camera.sensor();
    const vxcam::Identity& identity = camera.identity();
    const bool isKnown = !identity.name.empty();
    std::string text = "answers; " + std::to_string(sensor.columns) + " x " +
                       std::to_string(sensor.rows) + " pixels";
    if (isKnown) text += ", " + identity.name + ", serial number " + identity.serial;
    Fine("camera", text);
    Fine("versions", "vxcam " VXCAM_VERSION ", library " + LibraryVersionText() +
                         (isKnown ? ", camera " + identity.version : ""));
    if (!camera.get("ccd-temp").isNothing()) {
        Fine("heartbeat", "comes");
    } else {
        Advise("heartbeat", "none comes within 1.5 s",
               "temperatures are unknown without one; see how often the camera sends it");
    }
}

void tcDoctor::CheckBuffer(vxcam::Camera& camera)
{
    const int granted = GrantedReceiveBuffer(ParseTarget(camera.address()).port);
    const int most = MostReceiveBuffer();
    const std::string limit = "net.core.rmem_max is " + std::to_string(most);
    const std::string size = std::to_string(granted / gnKibi) + " KiB";
    if (granted == 0) {
        Fine("receive buffer", "not known");
    } else if (granted >= gnWantedBuffer) {
        Fine("receive buffer", size + " granted (" + limit + ")");
    } else {
        Fine("receive buffer", "tuned by the system, now " + size + " (" + limit + ")");
    }
}

void tcDoctor::CheckLink(vxcam::Camera& camera)
{
    vxcam::LinkCheck check;
    try {
        tcQuickExit quickExit;
        check = camera.checkLink(gnLinkMessages);
    } catch (const vxcam::Error& error) {
        Fault("link", error.row().exitCode, Told(error.what()),
              "the connection stalls, or this camera has no link test");
    }
    if (check.damaged > 0) {
        Fault("link", eExitCamera,
              std::to_string(check.damaged) + " of " + std::to_string(check.messages) +
                  " messages come back damaged",
              "look for what changes data between here and the camera");
    }
    char text[96];
    std::snprintf(text, sizeof text, "%d x %d random bytes come back intact, %.1f MB/s",
                  check.messages, vxcam::LinkCheck::kMessageBytes, check.megabytesPerSecond);
    Fine("link", text);
}

void tcDoctor::CheckTrips(vxcam::Camera& camera)
{
    const std::vector<double> trips = MeasureTrips(camera, gnTrips);
    const double median = Percentile(trips, 50);
    char text[96];
    std::snprintf(text, sizeof text, "%d round trips, p50 %.3f ms, p99 %.3f ms", gnTrips, median,
                  Percentile(trips, 99));
    if (median <= gnSlowTrip) {
        Fine("round trip", text);
    } else {
        Advise("round trip", text, "every command waits so long: look for load, or a long way");
    }
}

// Of this session.
void tcDoctor::CheckStatistics(vxcam::Camera& camera)
{
    const vxcam::Statistics statistics = camera.statistics();
    const std::string text = std::to_string(statistics.messagesSent) + " messages sent, " +
                             std::to_string(statistics.messagesReceived) + " received, " +
                             std::to_string(statistics.messagesBad) + " bad, " +
                             std::to_string(statistics.bytesSkipped) +
                             " bytes between them, connection lost " +
                             std::to_string(statistics.connectionsLost) + " times";
    if (statistics.messagesBad + statistics.bytesSkipped + statistics.connectionsLost == 0) {
        Fine("traffic", text);
    } else {
        Advise("traffic", text, "the way to the camera is not clean: look at cables and switches");
    }
}

void tcDoctor::Summarise()
{
    if (mbJson) {
        PrintDocument(mDocument);
    } else if (!mtCommon.quiet) {
        PrintLine(mnAdvice == 0 ? "nothing wrong"
                                : "nothing wrong; " + std::to_string(mnAdvice) + " to look at");
    }
}

vxcam::Camera tcDoctor::OpenChecked()
{
    try {
        return OpenCamera(mtCommon);
    } catch (const tcFailure& failure) {
        if (failure.Code() == eExitUsage) throw;
        Fault("camera", failure.Code(), failure.what(),
              "the port takes connections, but no camera answers: is it the right port?");
    }
}

void tcDoctor::Examine(vxcam::Camera camera)
{
    const tcComplaints complaints(camera);
    CheckCamera(camera);
    CheckBuffer(camera);
    CheckLink(camera);
    CheckTrips(camera);
    CheckStatistics(camera);
    if (const auto complaint = complaints.First()) {
        Fault("camera", eExitCamera, *complaint, "see the camera's manual");
    }
}

void tcDoctor::Run()
{
    mtTarget = ParseTarget(mtCommon.target);
    mDocument["target"] = mtCommon.target;
    mDocument["findings"] = nlohmann::ordered_json::array();
    HushLibrary(mtCommon);
    CheckNetwork();
    CheckWay();
    Examine(OpenChecked());
    Summarise();
}

} // namespace

std::unique_ptr<tcVerb> MakeDoctor()
{
    return std::make_unique<tcDoctor>();
}
