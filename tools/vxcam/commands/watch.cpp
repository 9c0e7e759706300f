// vxcam watch: what a camera tells unasked, as it comes.
#include "failure.h"
#include "interrupt.h"
#include "logrecord.h"
#include "program.h"
#include "report.h"
#include "vxcamiface.h"

#include <vxcamkit/value.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <deque>

const char* const gsWatchExamples =
    R"(  vxcam watch 192.168.1.20:2000               until Ctrl-C
  vxcam watch sim --for 3s                    for 3 seconds
  vxcam watch serial:1207 --count 10 --json   ten events, a JSON object a line)";

namespace {

using tpClock = std::chrono::steady_clock;
using tpMilliseconds = std::chrono::milliseconds;

constexpr tpMilliseconds gnStep(100);
constexpr tpMilliseconds
    gnSilence(1500); // so long without a word, and the camera is asked something
constexpr size_t gnShownMessageBytes = 32, gnHexPrefix = 2;

std::string TimeText(std::chrono::system_clock::time_point time)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    const auto whole = std::chrono::system_clock::from_time_t(seconds);
    const auto milliseconds = std::chrono::duration_cast<tpMilliseconds>(time - whole).count();
    std::tm utc{};
    ::gmtime_r(&seconds, &utc);
    char day[32], text[48];
    std::strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &utc);
    std::snprintf(text, sizeof text, "%s.%03dZ", day, static_cast<int>(milliseconds));
    return text;
}

double Seconds(tpClock::duration duration)
{
    return std::chrono::duration<double>(duration).count();
}

// What came, and when.
struct tsArrival {
    tsCameraEvent event;
    tpClock::time_point at;
    std::chrono::system_clock::time_point clock;
};

// Threads: filled by the camera's, emptied by the main one.
class tcArrivals
{
public:
    void Add(const tsCameraEvent& event)
    {
        std::lock_guard<std::mutex> lock(mLock);
        maArrivals.push_back({event, tpClock::now(), std::chrono::system_clock::now()});
    }
    std::optional<tsArrival> Take()
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (maArrivals.empty()) return std::nullopt;
        tsArrival first = maArrivals.front();
        maArrivals.pop_front();
        return first;
    }

private:
    std::mutex mLock;
    std::deque<tsArrival> maArrivals;
};

class tcWatch : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;

private:
    void Watch(tcSession& session);
    void Tell(const tsArrival& arrival);
    void TellConnection(bool isUp);
    bool Answers(tcSession& session);
    void CheckConnection(tcSession& session);
    void Print(const char* kind, std::chrono::system_clock::time_point clock,
               const std::string& text, nlohmann::ordered_json document);
    void Summarise();
    bool IsDone() const { return mnCount > 0 && mnEvents >= mnCount; }

    tsCommonOptions mtCommon;
    std::string msFor;
    int mnCount = 0;
    bool mbJsonLines = false;

    tcArrivals mtArrivals;
    tpClock::time_point mBegin, mLastNews, mLastProbe;
    std::optional<tpClock::time_point> mLastHeartBeat;
    int mnEvents = 0, mnHeartBeats = 0, mnErrors = 0, mnMessages = 0, mnBreaks = 0;
    bool mbUp = true;
    tsStatistics mtStatistics{};
    uint64_t mnLost = 0; // connections
};

void tcWatch::Declare(tcCommandLine& line)
{
    DeclareCommon(line, &mtCommon);
    line.Option("-n,--count", &mnCount, "NUMBER", "end after so many events; 0: never")
        .Within(0, 1000000000);
    line.Option("--for", &msFor, "TIME", "end after this time");
    line.Flag("--json", &mbJsonLines, "one JSON object a line");
}

void tcWatch::Print(const char* kind, std::chrono::system_clock::time_point clock,
                    const std::string& text, nlohmann::ordered_json document)
{
    ++mnEvents;
    if (mbJsonLines) {
        nlohmann::ordered_json line{{"time", TimeText(clock)}, {"event", kind}};
        line.update(document);
        PrintLine(LineText(line));
    } else if (!mtCommon.quiet) {
        char label[16];
        std::snprintf(label, sizeof label, "  %-10s ", kind);
        PrintLine(TimeText(clock) + label + text);
    }
}

void tcWatch::Tell(const tsArrival& arrival)
{
    const tsCameraEvent& event = arrival.event;
    char text[160];
    mLastNews = arrival.at;
    if (event.kind == teCameraEvent::eHeartBeat) {
        ++mnHeartBeats;
        nlohmann::ordered_json document{{"ccd_c", event.sensor}, {"board_c", event.board}};
        std::snprintf(text, sizeof text, "sensor %.1f C, board %.1f C", event.sensor, event.board);
        std::string line = text;
        if (mLastHeartBeat) {
            const double interval = Seconds(arrival.at - *mLastHeartBeat);
            document["interval_s"] = interval;
            std::snprintf(text, sizeof text, ", after %.3f s", interval);
            line += text;
        }
        mLastHeartBeat = arrival.at;
        Print("heartbeat", arrival.clock, line, document);
    } else if (event.kind == teCameraEvent::eError) {
        ++mnErrors;
        Print("error", arrival.clock,
              std::to_string(event.code) + "-" + std::to_string(event.subCode) + ": " +
                  Printable(event.text),
              {{"code", event.code}, {"sub_code", event.subCode}, {"text", event.text}});
    } else {
        ++mnMessages;
        std::snprintf(text, sizeof text, "id 0x%02x, %zu bytes", event.id, event.bytes.size());
        const std::string hex = vxcam::Value(event.bytes).text();
        Print("message", arrival.clock,
              text +
                  (event.bytes.empty()
                       ? std::string()
                       : ": " + hex.substr(0, gnHexPrefix + 2 * gnShownMessageBytes)) +
                  (event.bytes.size() > gnShownMessageBytes ? "..." : ""),
              {{"id", event.id}, {"bytes", hex}});
    }
}

void tcWatch::TellConnection(bool isUp)
{
    mbUp = isUp;
    if (!isUp) ++mnBreaks;
    Print("connection", std::chrono::system_clock::now(),
          isUp ? "is back" : "is broken, or the camera does not answer",
          {{"state", isUp ? "back" : "broken"}});
}

// A camera that is silent is asked something.
bool tcWatch::Answers(tcSession& session)
{
    const auto now = tpClock::now();
    if (now - mLastNews < gnSilence) return true;
    if (now - mLastProbe < gnSilence) return mbUp;
    long exposure = 0;
    tcQuickExit quickExit; // a camera that is stuck takes 10 s
    const int result = VXGetExposureTime(session.Handle(), &exposure);
    mLastProbe = tpClock::now();
    return result == eVXOk;
}

void tcWatch::CheckConnection(tcSession& session)
{
    mtStatistics = {};
    VXGetStatistics(session.Handle(), &mtStatistics, sizeof mtStatistics);
    const bool isUp = mtStatistics.Reconnects >= mtStatistics.ConnectionsLost && Answers(session);
    const bool wasLost = mtStatistics.ConnectionsLost > mnLost;
    mnLost = mtStatistics.ConnectionsLost;
    if (mbUp && wasLost && isUp) TellConnection(false); // and back since the last look
    if (mbUp != isUp) TellConnection(isUp);
}

void tcWatch::Watch(tcSession& session)
{
    const auto end = msFor.empty() ? tpClock::time_point::max() : mBegin + ParseDuration(msFor);
    while (!IsDone() && CaughtSignal() == 0 && tpClock::now() < end) {
        while (std::optional<tsArrival> arrival = IsDone() ? std::nullopt : mtArrivals.Take()) {
            Tell(*arrival);
        }
        if (IsDone()) return;
        CheckConnection(session);
        if (IsDone()) return;
        const auto left = std::chrono::duration_cast<tpMilliseconds>(end - tpClock::now());
        session.WaitForNews(std::max(tpMilliseconds(1), std::min(gnStep, left)));
    }
}

void tcWatch::Summarise()
{
    const double seconds = Seconds(tpClock::now() - mBegin);
    if (mbJsonLines) {
        PrintLine(LineText({{"event", "end"},
                            {"seconds", seconds},
                            {"heartbeats", mnHeartBeats},
                            {"errors", mnErrors},
                            {"messages", mnMessages},
                            {"breaks", mnBreaks},
                            {"bytes_received", mtStatistics.BytesReceived},
                            {"messages_received", mtStatistics.MessagesReceived},
                            {"messages_bad", mtStatistics.MessagesBad},
                            {"requests_timed_out", mtStatistics.RequestsTimedOut}}));
        return;
    }
    char text[160];
    std::snprintf(text, sizeof text,
                  "%.1f s: %d heartbeats, %d errors, %d messages, connection broken %d times, "
                  "%llu bytes received",
                  seconds, mnHeartBeats, mnErrors, mnMessages, mnBreaks,
                  static_cast<unsigned long long>(mtStatistics.BytesReceived));
    if (!mtCommon.quiet) PrintLine(text);
}

void tcWatch::Run()
{
    if (!msFor.empty()) ParseDuration(msFor);
    std::unique_ptr<tcSession> session = OpenSession(&mtCommon);
    mBegin = mLastNews = mLastProbe = tpClock::now();
    session->OnEvent([this](const tsCameraEvent& event) { mtArrivals.Add(event); });
    if (!mbJsonLines && !mtCommon.quiet) PrintLine("watching " + session->Name());
    Watch(*session);
    VXGetStatistics(session->Handle(), &mtStatistics, sizeof mtStatistics);
    session->Close();
    Summarise();
    ThrowIfInterrupted();
}

} // namespace

std::unique_ptr<tcVerb> MakeWatch()
{
    return std::make_unique<tcWatch>();
}
