// vxcam watch: what a camera tells unasked, as it comes.
#include "arguments.h"
#include "failure.h"
#include "interrupt.h"
#include "logrecord.h"
#include "program.h"
#include "report.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/error.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <optional>

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

double Seconds(tpClock::duration duration)
{
    return std::chrono::duration<double>(duration).count();
}

// What the camera tells.
//
// Threads: filled by the kit's, emptied by the main one.
class tcArrivals
{
public:
    void Add(const vxcam::Event& event)
    {
        std::lock_guard<std::mutex> lock(mLock);
        maEvents.push_back(event);
        mChanged.notify_all();
    }
    std::optional<vxcam::Event> Take(tpMilliseconds most)
    {
        std::unique_lock<std::mutex> lock(mLock);
        mChanged.wait_for(lock, most, [this] { return !maEvents.empty(); });
        if (maEvents.empty()) return std::nullopt;
        vxcam::Event first = std::move(maEvents.front());
        maEvents.pop_front();
        return first;
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::deque<vxcam::Event> maEvents;
};

class tcWatch : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;

private:
    void Watch(vxcam::Camera& camera);
    void Tell(const vxcam::Event& event);
    void TellHeartBeat(const vxcam::Event& event);
    void TellMessage(const vxcam::Event& event);
    void TellConnection(bool isUp);
    bool Answers(vxcam::Camera& camera);
    void CheckConnection(vxcam::Camera& camera);
    void Print(const char* kind, vxcam::UtcTime time, const std::string& text,
               nlohmann::ordered_json document);
    void Summarise();
    bool IsDone() const { return mnCount > 0 && mnEvents >= mnCount; }

    tsCommonOptions mtCommon;
    std::string msFor;
    int mnCount = 0;
    bool mbJsonLines = false;

    tcArrivals mtArrivals;
    tpClock::time_point mBegin, mLastNews, mLastProbe;
    std::optional<vxcam::SteadyTime> mLastHeartBeat;
    int mnEvents = 0, mnHeartBeats = 0, mnErrors = 0, mnMessages = 0, mnBreaks = 0;
    bool mbUp = true;
    vxcam::Statistics mtStatistics;
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

void tcWatch::Print(const char* kind, vxcam::UtcTime time, const std::string& text,
                    nlohmann::ordered_json document)
{
    const std::string when = vxcam::utcText(time) + "Z";
    ++mnEvents;
    if (mbJsonLines) {
        nlohmann::ordered_json line{{"time", when}, {"event", kind}};
        line.update(document);
        PrintLine(LineText(line));
    } else if (!mtCommon.quiet) {
        char label[16];
        std::snprintf(label, sizeof label, "  %-10s ", kind);
        PrintLine(when + label + text);
    }
}

void tcWatch::TellHeartBeat(const vxcam::Event& event)
{
    char text[160];
    ++mnHeartBeats;
    nlohmann::ordered_json document{{"ccd_c", event.sensorTemperature},
                                    {"board_c", event.boardTemperature}};
    std::snprintf(text, sizeof text, "sensor %.1f C, board %.1f C", event.sensorTemperature,
                  event.boardTemperature);
    std::string line = text;
    if (mLastHeartBeat) {
        const double interval = Seconds(event.time.steady - *mLastHeartBeat);
        document["interval_s"] = interval;
        std::snprintf(text, sizeof text, ", after %.3f s", interval);
        line += text;
    }
    mLastHeartBeat = event.time.steady;
    Print("heartbeat", event.time.utc, line, document);
}

void tcWatch::TellMessage(const vxcam::Event& event)
{
    char text[160];
    ++mnMessages;
    std::snprintf(text, sizeof text, "id 0x%02x, %zu bytes", event.code, event.bytes.size());
    const std::string hex = vxcam::Value(event.bytes).text();
    Print("message", event.time.utc,
          text +
              (event.bytes.empty() ? std::string()
                                   : ": " + hex.substr(0, gnHexPrefix + 2 * gnShownMessageBytes)) +
              (event.bytes.size() > gnShownMessageBytes ? "..." : ""),
          {{"id", event.code}, {"bytes", hex}});
}

void tcWatch::Tell(const vxcam::Event& event)
{
    using vxcam::EventKind;
    if (event.kind == EventKind::Heartbeat) {
        TellHeartBeat(event);
    } else if (event.kind == EventKind::CameraError) {
        ++mnErrors;
        Print("error", event.time.utc,
              std::to_string(event.code) + "-" + std::to_string(event.subCode) + ": " +
                  Printable(event.text),
              {{"code", event.code}, {"sub_code", event.subCode}, {"text", event.text}});
    } else if (event.kind == EventKind::Message) {
        TellMessage(event);
    } else {
        return;
    }
    mLastNews = tpClock::now();
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
bool tcWatch::Answers(vxcam::Camera& camera)
{
    const auto now = tpClock::now();
    if (now - mLastNews < gnSilence) return true;
    if (now - mLastProbe < gnSilence) return mbUp;
    tcQuickExit quickExit; // a camera that is stuck takes 10 s
    bool isAnswered = true;
    try {
        camera.get("exposure");
    } catch (const vxcam::Error& error) {
        isAnswered = error.kind() == vxcam::ErrorKind::Camera; // a complaint is an answer
    }
    mLastProbe = tpClock::now();
    return isAnswered;
}

void tcWatch::CheckConnection(vxcam::Camera& camera)
{
    mtStatistics = camera.statistics();
    const bool isUp = mtStatistics.reconnects >= mtStatistics.connectionsLost && Answers(camera);
    const bool wasLost = mtStatistics.connectionsLost > mnLost;
    mnLost = mtStatistics.connectionsLost;
    if (mbUp && wasLost && isUp) TellConnection(false); // and back since the last look
    if (mbUp != isUp) TellConnection(isUp);
}

void tcWatch::Watch(vxcam::Camera& camera)
{
    const auto end = msFor.empty() ? tpClock::time_point::max() : mBegin + ParseDuration(msFor);
    while (!IsDone() && CaughtSignal() == 0 && tpClock::now() < end) {
        const auto left = std::chrono::duration_cast<tpMilliseconds>(end - tpClock::now());
        const auto most = std::max(tpMilliseconds(1), std::min(gnStep, left));
        std::optional<vxcam::Event> event = mtArrivals.Take(most);
        while (event) {
            Tell(*event);
            if (IsDone()) return;
            event = mtArrivals.Take(tpMilliseconds(0));
        }
        CheckConnection(camera);
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
                            {"bytes_received", mtStatistics.bytesReceived},
                            {"messages_received", mtStatistics.messagesReceived},
                            {"messages_bad", mtStatistics.messagesBad},
                            {"requests_timed_out", mtStatistics.requestsTimedOut}}));
        return;
    }
    char text[160];
    std::snprintf(text, sizeof text,
                  "%.1f s: %d heartbeats, %d errors, %d messages, connection broken %d times, "
                  "%llu bytes received",
                  seconds, mnHeartBeats, mnErrors, mnMessages, mnBreaks,
                  static_cast<unsigned long long>(mtStatistics.bytesReceived));
    if (!mtCommon.quiet) PrintLine(text);
}

void tcWatch::Run()
{
    if (!msFor.empty()) ParseDuration(msFor);
    vxcam::Camera camera = OpenCamera(mtCommon);
    mBegin = mLastNews = mLastProbe = tpClock::now();
    const vxcam::Subscription subscription =
        camera.onEvent([this](const vxcam::Event& event) { mtArrivals.Add(event); });
    if (!mbJsonLines && !mtCommon.quiet) PrintLine("watching " + NameOf(camera));
    Watch(camera);
    mtStatistics = camera.statistics();
    camera.close();
    Summarise();
    ThrowIfInterrupted();
}

} // namespace

std::unique_ptr<tcVerb> MakeWatch()
{
    return std::make_unique<tcWatch>();
}
