#include "py_camera.h"
#include "py_values.h"
#include "py_waits.h"

#include <vxcamkit/event.h>

#include <condition_variable>
#include <deque>
#include <mutex>

namespace vxcam::py {

namespace python = pybind11;

namespace {

constexpr size_t kMostEvents = 10000; // that wait; the oldest ones go

// From the kit's threads, which never wait for Python, to the thread that calls its handlers.
//
// Threads: any. Locks: its own, never held while calling out.
class EventLine
{
public:
    struct Item {
        int64_t camera;
        std::optional<Event> event; // nothing: the last item of the camera
    };

    void put(Item item)
    {
        const std::lock_guard<std::mutex> guard(lock_);
        if (items_.size() >= kMostEvents) {
            items_.pop_front();
            ++lost_;
        }
        items_.push_back(std::move(item));
        changed_.notify_one();
    }

    // All that wait, and how many were lost so far; none and the end when it was stopped.
    std::deque<Item> take(uint64_t* lost, bool* isEnd)
    {
        std::unique_lock<std::mutex> guard(lock_);
        changed_.wait(guard, [this] { return !items_.empty() || isStopped_; });
        *lost = lost_;
        *isEnd = isStopped_ && items_.empty();
        return std::exchange(items_, {});
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
    std::deque<Item> items_;
    uint64_t lost_ = 0;
    bool isStopped_ = false;
};

class CoreEventLine
{
public:
    CoreEventLine() : line_(std::make_shared<EventLine>()) {}
    std::shared_ptr<EventLine> use() const { return line_.use("the line of events"); }

private:
    Owned<EventLine> line_;
};

class CoreListener
{
public:
    explicit CoreListener(Subscription subscription)
        : subscription_(std::make_shared<Subscription>(std::move(subscription)))
    {}

private:
    Owned<Subscription> subscription_;
};

python::dict eventOf(const Event& event)
{
    python::dict result;
    result["kind"] = nameOf(event.kind);
    result["time_ns"] = nanoseconds(event.time.utc);
    result["ccd_temp"] = event.sensorTemperature;
    result["board_temp"] = event.boardTemperature;
    result["code"] = event.code;
    result["sub_code"] = event.subCode;
    result["readout"] = event.readout;
    result["text"] = textToPython(event.text);
    result["bytes"] =
        python::bytes(reinterpret_cast<const char*>(event.bytes.data()), event.bytes.size());
    return result;
}

python::tuple take(const CoreEventLine& self)
{
    const std::shared_ptr<EventLine> line = self.use();
    std::deque<EventLine::Item> items;
    uint64_t lost = 0;
    bool isEnd = false;
    {
        const python::gil_scoped_release released;
        items = line->take(&lost, &isEnd);
    }
    python::list events;
    for (const EventLine::Item& item : items) {
        events.append(python::make_tuple(
            item.camera, item.event ? python::object(eventOf(*item.event)) : python::none()));
    }
    return python::make_tuple(events, lost, isEnd);
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
        .def("stop", [](const CoreEventLine& self) { self.use()->stop(); });
    const python::class_<CoreListener, std::unique_ptr<CoreListener, LetGo>> listener(module,
                                                                                      "Listener");
    camera.def("listen", [](const CoreCamera& self, const CoreEventLine& to, int64_t number) {
        Subscription subscription =
            self.use()->onEvent([line = to.use(), number](const Event& event) {
                line->put({number, event});
            });
        return std::unique_ptr<CoreListener, LetGo>(new CoreListener(std::move(subscription)));
    });
}

} // namespace vxcam::py
