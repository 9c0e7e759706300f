#include "metrics/metrics_text.h"

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>

namespace vxcam {

namespace {

using Labels = std::vector<std::pair<std::string, std::string>>;

// With no more digits than make it that number again.
std::string numberOf(double number)
{
    char text[32];
    for (int digits = 15; digits <= 17; ++digits) {
        std::snprintf(text, sizeof text, "%.*g", digits, number);
        if (std::strtod(text, nullptr) == number) break;
    }
    return text;
}

std::string labelText(const Labels& labels)
{
    std::string text;
    for (const auto& [name, value] : labels) {
        text += (text.empty() ? "{" : ",") + name + "=\"";
        for (const char letter : value) {
            if (letter == '\\' || letter == '"') text += '\\';
            text += letter == '\n' ? ' ' : letter;
        }
        text += '"';
    }
    return text.empty() ? text : text + "}";
}

// One family of figures after another.
class Page
{
public:
    void family(const std::string& name, const char* type, const char* help)
    {
        name_ = "vxcamd_" + name;
        text_ += "# HELP " + name_ + " " + help + "\n# TYPE " + name_ + " " + type + "\n";
    }
    void figure(const Labels& labels, double value, const char* ending = "")
    {
        text_ += name_ + ending + labelText(labels) + " " + numberOf(value) + "\n";
    }
    void histogram(const std::string& name, const char* help, const TimeHistogram& times)
    {
        family(name, "histogram", help);
        uint64_t count = 0;
        const auto counts = times.counts();
        for (size_t i = 0; i < TimeHistogram::kBounds.size(); ++i) {
            count += counts.at(i);
            char bound[32];
            std::snprintf(bound, sizeof bound, "%g", TimeHistogram::kBounds.at(i));
            figure({{"le", bound}}, static_cast<double>(count), "_bucket");
        }
        count += counts.back();
        figure({{"le", "+Inf"}}, static_cast<double>(count), "_bucket");
        figure({}, times.seconds(), "_sum");
        figure({}, static_cast<double>(count), "_count");
    }
    const std::string& text() const { return text_; }

private:
    std::string text_, name_;
};

// A figure of the camera's statistics.
struct Row {
    const char* name;
    const char* help;
    uint64_t Statistics::*figure;
    const char* label = nullptr; // of several rows that follow each other with one name
    const char* value = nullptr;
};

const std::vector<Row>& rows()
{
    static const std::vector<Row>& list = *new std::vector<Row>{
        {"frames_total", "frames by how they ended", &Statistics::framesComplete, "end",
         "complete"},
        {"frames_total", "", &Statistics::framesIncomplete, "end", "incomplete"},
        {"frames_total", "", &Statistics::framesFailed, "end", "failed"},
        {"frames_total", "", &Statistics::framesAborted, "end", "aborted"},
        {"received_bytes_total", "bytes from the camera", &Statistics::bytesReceived},
        {"sent_bytes_total", "bytes to the camera", &Statistics::bytesSent},
        {"links_lost_total", "connections to the camera that broke", &Statistics::connectionsLost},
        {"reconnects_total", "connections made anew", &Statistics::reconnects},
        {"heartbeats_total", "heartbeats of the camera", &Statistics::heartbeats},
        {"camera_errors_total", "errors that the camera reported", &Statistics::cameraErrors},
        {"requests_total", "questions to the camera", &Statistics::requestsSent},
        {"requests_timed_out_total", "questions without an answer in time",
         &Statistics::requestsTimedOut},
        {"packets_total", "pixel packets", &Statistics::packetsReceived},
        {"packets_missing_total", "pixel packets that never came", &Statistics::packetsMissing},
        {"messages_bad_total", "messages that made no sense", &Statistics::messagesBad},
    };
    return list;
}

struct OpenCamera {
    Labels labels;
    SharedCamera* shared = nullptr;
    std::optional<Statistics> statistics;
};

Labels with(Labels labels, const char* name, const std::string& value)
{
    labels.emplace_back(name, value);
    return labels;
}

void addCameras(const std::vector<OpenCamera>& cameras, Page* page)
{
    page->family("camera_up", "gauge", "1 while the camera is open and its link is there");
    for (const OpenCamera& camera : cameras) {
        page->figure(camera.labels, camera.shared->isLinkUp() ? 1 : 0);
    }
    std::string last;
    for (const Row& row : rows()) {
        if (last != row.name) page->family(row.name, "counter", row.help);
        last = row.name;
        for (const OpenCamera& camera : cameras) {
            if (!camera.statistics) continue;
            const double figure = static_cast<double>((*camera.statistics).*row.figure);
            page->figure(row.label != nullptr ? with(camera.labels, row.label, row.value)
                                              : camera.labels,
                         figure);
        }
    }
    page->family("heartbeat_age_seconds", "gauge",
                 "time since the camera told something of itself");
    for (const OpenCamera& camera : cameras) {
        if (const auto age = camera.shared->heartbeatAge())
            page->figure(camera.labels, age->count());
    }
    page->family("temperature_celsius", "gauge", "temperatures, as long as the camera tells them");
    for (const OpenCamera& camera : cameras) {
        const auto told = camera.shared->temperatures();
        if (!told) continue;
        page->figure(with(camera.labels, "place", "sensor"), told->sensor);
        page->figure(with(camera.labels, "place", "board"), told->board);
    }
}

void addExposures(const std::vector<OpenCamera>& cameras, Page* page)
{
    page->family("exposures_total", "counter", "exposures by how they ended");
    for (const OpenCamera& camera : cameras) {
        const std::vector<uint64_t> ends = camera.shared->exposures().ends();
        for (size_t i = 0; i < ends.size(); ++i) {
            const auto state = static_cast<ExposureState>(i);
            if (!isOver(state)) continue;
            page->figure(with(camera.labels, "end", nameOf(state)), static_cast<double>(ends[i]));
        }
    }
    page->family("exposing", "gauge", "1 while an exposure runs");
    for (const OpenCamera& camera : cameras) {
        page->figure(camera.labels, camera.shared->exposures().running() ? 1 : 0);
    }
    page->family("sequence_running", "gauge", "1 while a sequence runs");
    for (const OpenCamera& camera : cameras) {
        page->figure(camera.labels, camera.shared->sequences().isRunning() ? 1 : 0);
    }
    page->family("sequence_left_seconds", "gauge", "what the sequence that runs still takes");
    for (const OpenCamera& camera : cameras) {
        const SequenceStatus status = camera.shared->sequences().status();
        const std::chrono::duration<double> left = status.progress.left;
        if (!isOver(status.state)) page->figure(camera.labels, left.count());
    }
    page->family("lease_held", "gauge", "1 while somebody controls the camera");
    for (const OpenCamera& camera : cameras) {
        page->figure(camera.labels, camera.shared->lease().state().isHeld ? 1 : 0);
    }
}

void addServer(const Meters& meters, Page* page)
{
    page->family("http_answers_total", "counter", "answers by door and status");
    for (const auto& [key, count] : meters.answers()) {
        page->figure({{"door", key.first}, {"status", std::to_string(key.second)}},
                     static_cast<double>(count));
    }
    page->histogram("http_answer_seconds", "time to make an answer, but for ?wait",
                    meters.requestTime);
    page->family("watchers", "gauge", "WebSockets that watch");
    page->figure({}, meters.watchers);
    page->family("watcher_frames_total", "counter", "frames sent to watchers");
    page->figure({}, static_cast<double>(meters.watcherFrames));
    page->family("watcher_missed_total", "counter", "frames that watchers were too slow for");
    page->figure({}, static_cast<double>(meters.watcherMissed));
    page->family("watcher_messages_refused_total", "counter",
                 "messages of watchers that made no sense");
    page->figure({}, static_cast<double>(meters.watcherMessagesRefused));
    page->family("watcher_bytes_total", "counter", "bytes of frames sent to watchers");
    page->figure({}, static_cast<double>(meters.watcherBytes));
    page->histogram("watcher_delay_seconds",
                    "from the last packet of a frame to its pixels handed to a watcher",
                    meters.watcherDelay);
}

} // namespace

std::string metricsText(const std::vector<std::unique_ptr<SharedCamera>>& cameras,
                        const Meters& meters, const std::string& version)
{
    std::vector<OpenCamera> open;
    for (const auto& camera : cameras) {
        OpenCamera entry{{{"camera", std::to_string(camera->number())}}, camera.get(), {}};
        try {
            entry.statistics = camera->camera()->statistics();
        } catch (const Error&) {
            // Not open: there are no figures.
        }
        open.push_back(entry);
    }
    Page page;
    page.family("info", "gauge", "the server's version");
    page.figure({{"version", version}}, 1);
    addCameras(open, &page);
    addExposures(open, &page);
    addServer(meters, &page);
    return page.text();
}

} // namespace vxcam
