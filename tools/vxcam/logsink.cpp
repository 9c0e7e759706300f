// vxcam logsink: receives what loggers send over the network.
#include "arguments.h"
#include "failure.h"
#include "program.h"
#include "report.h"
#include "tcLogOutput.h"

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
    void Declare(CLI::App& app) override;
    void Run() override;

private:
    void TellWhere(const tcDatagrams& datagrams) const;
    void TellHowMany(const tsLogCounts& counts) const;

    tsListening mtWhere{"0.0.0.0", gnLogPort, "", ""};
    tsLogEnd mtEnd;
    std::string msFile, msDuration;
    bool mbForce = false, mbQuiet = false, mbJsonLines = false;
};

void tcLogSink::Declare(CLI::App& app)
{
    app.add_option("--port", mtWhere.port, "UDP port to listen on; 0 takes a free one")
        ->type_name("NUMBER")
        ->capture_default_str();
    app.add_option("--bind", mtWhere.address, "local address to listen on")
        ->type_name("ADDRESS")
        ->capture_default_str();
    app.add_option("--group", mtWhere.group, "multicast group to join")->type_name("ADDRESS");
    app.add_option("--interface", mtWhere.interface,
                   "local address of the interface to join the group on, instead of all")
        ->type_name("ADDRESS");
    app.add_option("-n,--count", mtEnd.count, "end after so many records; 0: go on")
        ->type_name("NUMBER")
        ->capture_default_str();
    app.add_option("--for", msDuration, "end after this time")->type_name("TIME");
    app.add_option("-o,--output", msFile, "where the records go, instead of standard output")
        ->type_name("FILE");
    app.add_flag("--force", mbForce, "replace a file that exists");
    app.add_flag("--json", mbJsonLines, "one JSON object a line");
    DeclareQuiet(app, &mbQuiet);
}

void tcLogSink::TellWhere(const tcDatagrams& datagrams) const
{
    const std::string place = datagrams.Address() + ":" + std::to_string(datagrams.Port());
    if (mbQuiet) return;
    if (!mbJsonLines) return PrintLine("listening on " + place);
    PrintLine(nlohmann::ordered_json{
        {"event", "listening"}, {"address", datagrams.Address()}, {"port", datagrams.Port()}}
                  .dump());
}

void tcLogSink::TellHowMany(const tsLogCounts& counts) const
{
    if (mbQuiet) return;
    if (!mbJsonLines) {
        PrintLine(std::to_string(counts.All()) + " records: " + std::to_string(counts.texts) +
                  " as text, " + std::to_string(counts.binaries) + " binary");
        return;
    }
    PrintLine(nlohmann::ordered_json{
        {"event", "end"}, {"text", counts.texts}, {"binary", counts.binaries}}
                  .dump());
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
