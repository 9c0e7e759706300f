// vxcam replay: a recording of the wire as a camera.
#include "failure.h"
#include "interrupt.h"
#include "program.h"
#include "report.h"

#include <vxcamkit/wire_player.h>

#include <cmath>
#include <cstdlib>

const char* const gsReplayExamples =
    R"(  vxcam replay run.vxw                        on a free port, which it prints
  vxcam replay run.vxw --port 2000 --loop     for one client after the other
  vxcam replay run.vxw --speed max            as fast as the client takes it)";

namespace {

class tcReplay : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;

private:
    double Speed() const;
    void Print(const vxcam::PlayBooks& books) const;
    void Judge(const vxcam::WireCondition& condition) const;

    std::string msFile, msSpeed = "1";
    uint16_t mnPort = 0;
    bool mbLoop = false, mbQuiet = false;
};

void tcReplay::Declare(tcCommandLine& line)
{
    line.Operand("FILE", &msFile, "recording that vxcam capture made").Required();
    line.Option("--port", &mnPort, "NUMBER", "TCP port on loopback; 0 takes a free one");
    line.Option("--speed", &msSpeed, "FACTOR", "10 is ten times as fast; max: without waiting");
    line.Flag("--loop", &mbLoop, "for one client after the other, until Ctrl-C");
    DeclareQuiet(line, &mbQuiet);
}

double tcReplay::Speed() const
{
    if (msSpeed == "max") return 0;
    char* end = nullptr;
    const double speed = std::strtod(msSpeed.c_str(), &end);
    constexpr double least = 0.001, most = 1e6;
    if (!msSpeed.empty() && *end == '\0' && speed >= least && speed <= most) return speed;
    throw tcFailure(eExitUsage,
                    "speed '" + msSpeed + "': write a number from 0.001 to 1000000, or max");
}

void tcReplay::Print(const vxcam::PlayBooks& books) const
{
    if (mbQuiet) return;
    PrintLine(std::to_string(books.played) + " messages sent, " + std::to_string(books.taken) +
              " taken as recorded, " + std::to_string(books.skipped) + " left out by the client, " +
              std::to_string(books.unexpected) + " unexpected; " +
              (books.isOver ? "to the end" : "not to the end"));
}

void tcReplay::Judge(const vxcam::WireCondition& condition) const
{
    if (condition.isWhole()) return;
    const std::string text = msFile + ": " + condition.text();
    if (!mbLoop) throw tcFailure(eExitCamera, text);
    PrintWarning(text);
}

void tcReplay::Run()
{
    vxcam::PlayOptions options;
    options.port = mnPort;
    options.speed = Speed();
    vxcam::WirePlayer player(msFile, options);
    if (!mbQuiet)
        PrintLine("replaying " + msFile + " at 127.0.0.1:" + std::to_string(player.port()));
    do {
        const vxcam::PlayBooks books = player.play([] { return CaughtSignal() != 0; });
        Print(books);
        ThrowIfInterrupted();
        if (books.isOver) Judge(player.condition());
    } while (mbLoop);
}

} // namespace

std::unique_ptr<tcVerb> MakeReplay()
{
    return std::make_unique<tcReplay>();
}
