#include "py_camera.h"
#include "py_values.h"
#include "py_waits.h"

#include <vxcamkit/event.h>

#include "vxcamext.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <new>

namespace vxcam::py {

namespace python = pybind11;

namespace {

// What waits; the oldest ones go when it is too much.
template <class Item>
struct Queue {
    static constexpr size_t kMost = 10000;

    std::deque<Item> items;
    uint64_t lost = 0;

    void put(Item item)
    {
        if (items.size() >= kMost) {
            items.pop_front();
            ++lost;
        }
        items.push_back(std::move(item));
    }
};

// From threads of kit and library, which never wait for Python, to the thread that calls its
// handlers.
//
// Threads: any. Locks: its own, never held while calling out.
class EventLine
{
public:
    const int forks = forksSoFar(); // when it was made

    struct Item {
        int64_t camera;
        std::optional<Event> event; // nothing: the last item of the camera
    };
    struct Line {   // of the library's log
        int handle; // of the camera; -1: of none
        std::string logger, text;
    };
    struct Taken { // and how many were lost so far; the end when it was stopped and none wait
        Queue<Item> events;
        Queue<Line> lines;
        bool isEnd = false;
    };

    void put(Item item)
    {
        const std::lock_guard<std::mutex> guard(lock_);
        waiting_.events.put(std::move(item));
        changed_.notify_one();
    }
    void log(Line line)
    {
        const std::lock_guard<std::mutex> guard(lock_);
        waiting_.lines.put(std::move(line));
        changed_.notify_one();
    }

    // Waits until something waits.
    Taken take()
    {
        std::unique_lock<std::mutex> guard(lock_);
        const auto isEmpty = [this] {
            return waiting_.events.items.empty() && waiting_.lines.items.empty();
        };
        changed_.wait(guard, [&] { return !isEmpty() || isStopped_; });
        Taken taken;
        taken.events.lost = waiting_.events.lost;
        taken.lines.lost = waiting_.lines.lost;
        taken.isEnd = isStopped_ && isEmpty();
        taken.events.items.swap(waiting_.events.items);
        taken.lines.items.swap(waiting_.lines.items);
        return taken;
    }

    void stop()
    {
        const std::lock_guard<std::mutex> guard(lock_);
        isStopped_ = true;
        changed_.notify_one();
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    Taken waiting_;
    bool isStopped_ = false;
};

// Called for each error that the library logs. What a forked child logs is printed.
int keep(const tsLoggedError* record, void* user)
{
    auto& line = *static_cast<EventLine*>(user);
    if (line.forks != forksSoFar()) return 0;
    try {
        line.log({record->Handle, record->Logger, record->Text});
    } catch (const std::bad_alloc&) {
        return 0;
    }
    return 1;
}

// When the interpreter has ended, nobody is there to be told of an opening that Ctrl-C left behind.
int drop(const tsLoggedError*, void*)
{
    return openingsUnderWay() > 0 ? 1 : 0;
}

// The line that the library's log goes to: the one that was made last, until it is stopped.
std::atomic<const EventLine*> logged{nullptr};

class CoreEventLine
{
public:
    CoreEventLine() : line_(std::make_shared<EventLine>())
    {
        const std::shared_ptr<EventLine> line = use();
        logged = line.get();
        const python::gil_scoped_release released; // somebody else's callback may wait for it
        VXSetLogCallback(&keep, line.get());
    }
    ~CoreEventLine()
    {
        if (line_.isForeign()) return;
        try {
            stop();
        } catch (...) { // it has none to stop
        }
    }
    CoreEventLine(const CoreEventLine&) = delete;
    CoreEventLine& operator=(const CoreEventLine&) = delete;

    std::shared_ptr<EventLine> use() const { return line_.use("the line of events"); }

    void stop() const
    {
        const std::shared_ptr<EventLine> line = use();
        const EventLine* own = line.get();
        if (logged.compare_exchange_strong(own, nullptr)) {
            const python::gil_scoped_release released;
            VXSetLogCallback(&drop, nullptr);
        }
        line->stop();
    }

private:
    Owned<EventLine> line_;
};

class CoreListener
{
public:
    CoreListener(Subscription subscription, std::shared_ptr<std::atomic<bool>> hearsHeartbeats)
        : subscription_(std::make_shared<Subscription>(std::move(subscription))),
          hearsHeartbeats_(std::move(hearsHeartbeats))
    {}

    void hearHeartbeats() const { *hearsHeartbeats_ = true; }

private:
    Owned<Subscription> subscription_;
    std::shared_ptr<std::atomic<bool>> hearsHeartbeats_;
};

// Heartbeats come all the time; nobody is woken up for them who has not asked for it.
std::unique_ptr<CoreListener, LetGo> listen(const CoreCamera& self, const CoreEventLine& to,
                                            int64_t number)
{
    const auto hears = std::make_shared<std::atomic<bool>>(false);
    Subscription subscription =
        self.use()->onEvent([line = to.use(), number, hears](const Event& event) {
            if (event.kind != EventKind::Heartbeat || *hears) line->put({number, event});
        });
    return std::unique_ptr<CoreListener, LetGo>(new CoreListener(std::move(subscription), hears));
}

python::dict eventOf(const Event& event)
{
    python::dict result;
    result["kind"] = nameOf(event.kind);
    result["time_ns"] = nanoseconds(event.time.utc);
    // None where an event of its kind tells none.
    const auto told = [](bool isTold, auto value) {
        return isTold ? python::cast(value) : python::none();
    };
    const bool isHeartbeat = event.kind == EventKind::Heartbeat;
    const bool isError = event.kind == EventKind::CameraError;
    result["ccd_temp"] = told(isHeartbeat, event.sensorTemperature);
    result["board_temp"] = told(isHeartbeat, event.boardTemperature);
    result["code"] = told(isError || event.kind == EventKind::Message, event.code);
    result["sub_code"] = told(isError, event.subCode);
    result["readout"] = told(event.readout > 0, event.readout);
    result["text"] = textToPython(event.text);
    result["bytes"] =
        python::bytes(reinterpret_cast<const char*>(event.bytes.data()), event.bytes.size());
    return result;
}

python::dict take(const CoreEventLine& self)
{
    const std::shared_ptr<EventLine> line = self.use();
    EventLine::Taken taken;
    {
        const python::gil_scoped_release released;
        taken = line->take();
    }
    python::list events, lines;
    for (const EventLine::Item& item : taken.events.items) {
        events.append(python::make_tuple(
            item.camera, item.event ? python::object(eventOf(*item.event)) : python::none()));
    }
    for (const EventLine::Line& told : taken.lines.items) {
        lines.append(
            python::make_tuple(told.handle, textToPython(told.logger), textToPython(told.text)));
    }
    python::dict result;
    result["events"] = events;
    result["events_lost"] = taken.events.lost;
    result["lines"] = lines;
    result["lines_lost"] = taken.lines.lost;
    result["is_end"] = taken.isEnd;
    return result;
}

} // namespace

void addEvents(python::module_& module, CameraClass& camera)
{
    python::class_<CoreEventLine>(module, "EventLine")
        .def(python::init())
        .def("take", &take)
        .def("mark",
             [](const CoreEventLine& self, int64_t number) {
                 self.use()->put({number, std::nullopt});
             })
        .def("stop", &CoreEventLine::stop);
    python::class_<CoreListener, std::unique_ptr<CoreListener, LetGo>>(module, "Listener")
        .def("hear_heartbeats", &CoreListener::hearHeartbeats);
    camera.def("listen", &listen);
}

} // namespace vxcam::py
