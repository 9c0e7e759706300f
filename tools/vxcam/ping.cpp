// vxcam ping: how long the camera takes to answer.
#include "failure.h"
#include "interrupt.h"
#include "program.h"
#include "report.h"
#include "vxcamiface.h"

#include <algorithm>
#include <cstdio>

const char* const gsPingExamples =
    R"(  vxcam ping                            the simulated camera, 1000 round trips
  vxcam ping 192.168.1.20:2000 -n 100   a camera on the network
  vxcam ping sim --json                 for scripts; times in milliseconds)";

namespace {

class tcPing : public tcVerb
{
public:
    void Declare(CLI::App& app) override;
    void Run() override;

private:
    std::vector<double> Measure(tcSession& session) const;

    tsCommonOptions mtCommon;
    int mnCount = 1000;
};

void tcPing::Declare(CLI::App& app)
{
    DeclareCommon(app, &mtCommon);
    app.add_option("-n,--count", mnCount, "round trips to measure, 1 to 1000000")
        ->type_name("NUMBER")
        ->check(CLI::Range(1, 1000000))
        ->capture_default_str();
    app.add_flag("--json", mbJson, "print one JSON document");
}

// Each trip: the exposure time is asked for, and the answer has come. In milliseconds, sorted.
std::vector<double> tcPing::Measure(tcSession& session) const
{
    using tpClock = std::chrono::steady_clock;
    std::vector<double> trips;
    for (int i = 0; i < mnCount; ++i) {
        long exposure = 0;
        ThrowIfInterrupted();
        const auto start = tpClock::now();
        const int result = VXGetExposureTime(session.Handle(), &exposure);
        const std::chrono::duration<double, std::milli> trip = tpClock::now() - start;
        session.Require(result, "exposure time");
        trips.push_back(trip.count());
    }
    std::sort(trips.begin(), trips.end());
    return trips;
}

void tcPing::Run()
{
    std::unique_ptr<tcSession> session = OpenSession(&mtCommon);
    const std::string name = session->Name();
    const std::vector<double> trips = Measure(*session);
    session.reset();
    const auto percentile = [&](size_t percent) {
        return trips[(trips.size() * percent + 99) / 100 - 1];
    };
    if (mbJson) {
        nlohmann::ordered_json document;
        document["target"] = name;
        document["round_trips"] = trips.size();
        document["p50_ms"] = percentile(50);
        document["p99_ms"] = percentile(99);
        document["min_ms"] = trips.front();
        document["max_ms"] = trips.back();
        PrintDocument(document);
        return;
    }
    char text[160];
    std::snprintf(text, sizeof text,
                  ": %zu round trips, p50 %.3f ms, p99 %.3f ms, min %.3f ms, max %.3f ms",
                  trips.size(), percentile(50), percentile(99), trips.front(), trips.back());
    if (!mtCommon.quiet) PrintLine(name + text);
}

} // namespace

std::unique_ptr<tcVerb> MakePing()
{
    return std::make_unique<tcPing>();
}
