// vxcam logsink: receives what loggers send over the network.
#include "arguments.h"
#include "failure.h"
#include "program.h"
#include "report.h"
#include "tcLogOutput.h"

#include <nlohmann/json.hpp>

#include <cstdio>

const char* const gsLogSinkExamples =
    R"(  vxcam logsink                               what is sent to port 10101, until Ctrl-C
  vxcam logsink --port 4000 -o camera.log     to a file
  vxcam logsink --json --count 100 --for 1min at most 100 records, at most a minute)";

namespace {

constexpr uint16_t gnLogPort = 10101; // where loggers send when nothing else is said

class tcLogSink : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;

private:
    void TellWhere(const tcDatagrams& datagrams) const;
    void TellHowMany(const tsLogCounts& counts) const;

    tsListening mtWhere{"0.0.0.0", gnLogPort, "", ""};
    tsLogEnd mtEnd;
    std::string msFile, msDuration;
    bool mbForce = false, mbQuiet = false, mbJsonLines = false;
};

void tcLogSink::Declare(tcCommandLine& line)
{
    line.Option("--port", &mtWhere.port, "NUMBER", "UDP port to listen on; 0 takes a free one");
    line.Option("--bind", &mtWhere.address, "ADDRESS", "local address to listen on");
    line.Option("--group", &mtWhere.group, "ADDRESS", "multicast group to join");
    line.Option("--interface", &mtWhere.interface, "ADDRESS",
                "local address of the interface to join the group on, instead of all");
    line.Option("-n,--count", &mtEnd.count, "NUMBER", "end after so many records; 0: go on");
    line.Option("--for", &msDuration, "TIME", "end after this time");
    line.Option("-o,--output", &msFile, "FILE",
                "where the records go; - is standard output, as it is without");
    line.Flag("--force", &mbForce, "replace a file that exists");
    line.Flag("--json", &mbJsonLines, "one JSON object a line");
    DeclareQuiet(line, &mbQuiet);
}

void tcLogSink::TellWhere(const tcDatagrams& datagrams) const
{
    const std::string place = datagrams.Address() + ":" + std::to_string(datagrams.Port());
    if (mbQuiet) return;
    if (!mbJsonLines) return PrintLine("listening on " + place);
    PrintLine(LineText(
        {{"event", "listening"}, {"address", datagrams.Address()}, {"port", datagrams.Port()}}));
}

void tcLogSink::TellHowMany(const tsLogCounts& counts) const
{
    if (mbQuiet) return;
    if (!mbJsonLines) {
        PrintLine(std::to_string(counts.All()) + " records: " + std::to_string(counts.texts) +
                  " as text, " + std::to_string(counts.binaries) + " binary");
        return;
    }
    PrintLine(LineText({{"event", "end"}, {"text", counts.texts}, {"binary", counts.binaries}}));
}

void tcLogSink::Run()
{
    if (!msDuration.empty()) mtEnd.duration = ParseDuration(msDuration);
    tcDatagrams datagrams(mtWhere);
    tcLogOutput output(msFile, mbForce, mbJsonLines);
    TellWhere(datagrams);
    try {
        PassOn(datagrams, output, mtEnd);
    } catch (const tcFailure& failure) {
        if (failure.Code() > eExitSignal) TellHowMany(output.Counts());
        throw;
    }
    TellHowMany(output.Counts());
}

} // namespace

std::unique_ptr<tcVerb> MakeLogSink()
{
    return std::make_unique<tcLogSink>();
}
