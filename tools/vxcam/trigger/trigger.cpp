// vxcam trigger: the software trigger of a camera that another run of vxcam reads out.
#include "arguments.h"
#include "failure.h"
#include "interrupt.h"
#include "program.h"
#include "report.h"
#include "tcTriggerHook.h"

#include <algorithm>
#include <thread>

const char* const gsTriggerExamples =
    R"(  vxcam trigger 192.168.1.20:2000           the vxcam grab that has it takes a frame
  vxcam trigger 192.168.1.20:2000 --for 2s  it is active for that time)";

namespace {

using tpClock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds gnStep(20);

class tcTrigger : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;

private:
    std::string msTarget, msDuration;
    bool mbQuiet = false;
};

void tcTrigger::Declare(tcCommandLine& line)
{
    line.Operand("TARGET", &msTarget, "the camera, as it was given to vxcam grab").Required();
    line.Option("--for", &msDuration, "TIME", "how long the trigger is active; else it is a pulse");
    DeclareQuiet(line, &mbQuiet);
}

void tcTrigger::Run()
{
    const std::string text = msDuration.empty() ? "0" : msDuration;
    const std::chrono::milliseconds duration = ParseDuration(text);
    const vxcam::Target target = ParseTarget(msTarget);
    if (target.kind == vxcam::Target::Kind::Simulator) {
        throw tcFailure(eExitUsage, "target '" + msTarget + "': waits for no trigger");
    }
    tcTriggerCall call(target.text());
    call.Set(true);
    const auto end = tpClock::now() + duration;
    for (auto now = tpClock::now(); now < end; now = tpClock::now()) {
        ThrowIfInterrupted();
        std::this_thread::sleep_for(std::min<tpClock::duration>(end - now, gnStep));
    }
    call.Set(false);
    if (!mbQuiet) PrintLine(target.text() + ": triggered");
}

} // namespace

std::unique_ptr<tcVerb> MakeTrigger()
{
    return std::make_unique<tcTrigger>();
}
