// vxcam capture: records all bytes between host and camera, alone or while another verb runs.
#include "arguments.h"
#include "failure.h"
#include "interrupt.h"
#include "program.h"
#include "report.h"

#include <vxcamkit/error.h>
#include <vxcamkit/new_file.h>
#include <vxcamkit/wire_capture.h>

#include <chrono>
#include <thread>

const char* const gsCaptureExamples =
    R"(  vxcam capture 192.168.1.20:2000 -o run.vxw            until Ctrl-C
  vxcam capture 192.168.1.20:2000 -o run.vxw --for 1min
  vxcam capture 192.168.1.20:2000 -o run.vxw grab -e 1s --frames 5 -o a.fits
  vxcam capture serial:1207 -o run.vxw get exposure gain)";

namespace {

constexpr std::chrono::milliseconds gnPoll(50);

class tcCapture : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;
    int Code() const override { return mnCode; }

private:
    void Wait(const vxcam::WireCapture& capture) const;
    void Finish(vxcam::WireCapture& capture) const;

    tsCommonOptions mtCommon;
    std::string msOutput, msFor;
    std::vector<std::string> maVerb;
    bool mbForce = false;
    int mnCode = eExitDone;
};

void tcCapture::Declare(tcCommandLine& line)
{
    DeclareTarget(line, &mtCommon);
    line.Option("-o,--output", &msOutput, "FILE", "where the recording goes: run.vxw").Required();
    line.Flag("--force", &mbForce, "replace a file that exists");
    line.Option("--for", &msFor, "TIME", "ends after this time; without a verb");
    DeclareOutput(line, &mtCommon);
    line.Command("[VERB ...]", &maVerb,
                 "what is done meanwhile, as it is written behind vxcam, but without the target; "
                 "without it, the camera is opened and listened to");
}

void tcCapture::Wait(const vxcam::WireCapture& capture) const
{
    using tpClock = std::chrono::steady_clock;
    const auto end =
        msFor.empty() ? tpClock::time_point::max() : tpClock::now() + ParseDuration(msFor);
    while (tpClock::now() < end && CaughtSignal() == 0 && !capture.hasFailed()) {
        std::this_thread::sleep_for(gnPoll);
    }
}

// A verb that failed has said so, and its code counts.
void tcCapture::Finish(vxcam::WireCapture& capture) const
{
    try {
        capture.finish();
    } catch (const vxcam::Error& error) {
        if (mnCode == eExitDone) throw;
        PrintWarning(error.what());
        return;
    }
    const vxcam::WireBooks books = capture.books();
    if (!maVerb.empty() || mtCommon.quiet) return;
    PrintLine(msOutput + ": " + BytesText(books.received) + " received, " + BytesText(books.sent) +
              " sent");
}

void tcCapture::Run()
{
    if (!msFor.empty()) ParseDuration(msFor);
    if (!msFor.empty() && !maVerb.empty()) {
        throw tcFailure(eExitUsage, "--for: " + maVerb[0] + " says itself when it ends");
    }
    TargetOf(mtCommon);
    if (!maVerb.empty()) CheckVerbOn(maVerb[0]);
    vxcam::checkNewFile(msOutput, mbForce);
    const tcCapturing capturing([this] {
        return std::make_unique<vxcam::WireCapture>(msOutput, mbForce, "vxcam " VXCAM_VERSION);
    });
    if (!maVerb.empty()) {
        mnCode = RunVerbOn(mtCommon.target, maVerb);
        if (capturing.Capture() != nullptr) Finish(*capturing.Capture());
        return;
    }
    vxcam::Camera camera = OpenCamera(mtCommon);
    Wait(*capturing.Capture());
    camera.close();
    Finish(*capturing.Capture());
    ThrowIfInterrupted();
}

} // namespace

std::unique_ptr<tcVerb> MakeCapture()
{
    return std::make_unique<tcCapture>();
}
