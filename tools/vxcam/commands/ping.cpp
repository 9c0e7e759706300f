// vxcam ping: how long the camera takes to answer.
#include "program.h"
#include "report.h"
#include "trips.h"

#include <nlohmann/json.hpp>

#include <cstdio>

const char* const gsPingExamples =
    R"(  vxcam ping                            the simulated camera, 1000 round trips
  vxcam ping 192.168.1.20:2000 -n 100   a camera on the network
  vxcam ping sim --json                 for scripts; times in milliseconds)";

namespace {

class tcPing : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;

private:
    tsCommonOptions mtCommon;
    int mnCount = 1000;
};

void tcPing::Declare(tcCommandLine& line)
{
    DeclareCommon(line, &mtCommon);
    line.Option("-n,--count", &mnCount, "NUMBER", "round trips to measure, 1 to 1000000")
        .Within(1, 1000000);
    line.Flag("--json", &mbJson, "print one JSON document");
}

void tcPing::Run()
{
    vxcam::Camera camera = OpenCamera(mtCommon);
    const std::string name = NameOf(camera);
    const std::vector<double> trips = MeasureTrips(camera, mnCount);
    camera.close();
    if (mbJson) {
        nlohmann::ordered_json document;
        document["target"] = name;
        document["round_trips"] = trips.size();
        document["p50_ms"] = Percentile(trips, 50);
        document["p99_ms"] = Percentile(trips, 99);
        document["min_ms"] = trips.front();
        document["max_ms"] = trips.back();
        PrintDocument(document);
        return;
    }
    char text[160];
    std::snprintf(
        text, sizeof text, ": %zu round trips, p50 %.3f ms, p99 %.3f ms, min %.3f ms, max %.3f ms",
        trips.size(), Percentile(trips, 50), Percentile(trips, 99), trips.front(), trips.back());
    if (!mtCommon.quiet) PrintLine(name + text);
}

} // namespace

std::unique_ptr<tcVerb> MakePing()
{
    return std::make_unique<tcPing>();
}
