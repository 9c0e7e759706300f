#include "wire/py_wire.h"

#include "py_values.h"
#include "py_waits.h"

#include <vxcamkit/error.h>
#include <vxcamkit/wire_messages.h>
#include <vxcamkit/wire_player.h>

#include <pybind11/stl.h>

#include <atomic>
#include <mutex>
#include <optional>
#include <thread>

namespace vxcam::py {

namespace python = pybind11;

namespace {

std::unique_ptr<CoreCapture, LetGo> capture(const python::object& given, bool overwrite,
                                            const std::string& software)
{
    const std::string path = textFromPython(given);
    auto made = interruptible([path, overwrite, software] {
        return std::make_shared<WireCapture>(path, overwrite, software);
    });
    return std::unique_ptr<CoreCapture, LetGo>(new CoreCapture(std::move(made)));
}

python::tuple booksOf(const CoreCapture& self)
{
    const WireBooks books = self.use()->books();
    return python::make_tuple(books.received, books.sent, books.cameras, books.fileBytes);
}

python::tuple conditionOf(const WireCondition& condition)
{
    return python::make_tuple(condition.isWhole(), condition.isEnded, condition.blocks,
                              condition.damaged, condition.damagedBytes, condition.missing,
                              condition.text());
}

// A recording that is played on a thread of its own. Locks: its own.
class Playing
{
public:
    struct Told {
        uint64_t plays = 0;
        PlayBooks books; // of the last one
        WireCondition condition;
        bool isOver = false; // nobody is served any more
    };

    Playing(const std::string& path, const PlayOptions& options, bool isLoop)
        : player_(std::in_place, path, options), port_(player_->port()), isLoop_(isLoop),
          thread_(startQuietly([this] { run(); }))
    {}
    ~Playing() { stop(); }
    Playing(const Playing&) = delete;
    Playing& operator=(const Playing&) = delete;

    uint16_t port() const { return port_; }

    // Throws what the playing failed with.
    Told told() const
    {
        const std::lock_guard<std::mutex> guard(lock_);
        if (failure_) std::rethrow_exception(failure_);
        return told_;
    }

    void stop()
    {
        const std::lock_guard<std::mutex> guard(stopping_);
        isStopped_ = true;
        if (thread_.joinable()) thread_.join();
        player_.reset(); // nobody connects any more
    }

private:
    void run()
    {
        try {
            do {
                const PlayBooks books = player_->play([this] { return isStopped_.load(); });
                const std::lock_guard<std::mutex> guard(lock_);
                ++told_.plays;
                told_.books = books;
                told_.condition = player_->condition();
            } while (isLoop_ && !isStopped_);
        } catch (...) {
            const std::lock_guard<std::mutex> guard(lock_);
            failure_ = std::current_exception();
        }
        const std::lock_guard<std::mutex> guard(lock_);
        told_.isOver = true;
    }

    std::optional<WirePlayer> player_;
    const uint16_t port_;
    const bool isLoop_;
    std::atomic<bool> isStopped_{false};
    mutable std::mutex lock_;
    std::mutex stopping_;
    Told told_;
    std::exception_ptr failure_;
    std::thread thread_; // the last one: it uses the others
};

class CoreReplay
{
public:
    CoreReplay(const python::object& path, uint16_t port, double speed, uint8_t camera, bool isLoop)
        : playing_(make(textFromPython(path), port, speed, camera, isLoop))
    {}

    uint16_t port() const { return playing_.look().port(); }

    // How often it was played, how the last time went, how the recording is, and whether that is
    // all.
    python::tuple told() const
    {
        const Playing::Told told = playing_.use("the replay")->told();
        const PlayBooks& books = told.books;
        return python::make_tuple(told.plays,
                                  python::make_tuple(books.played, books.taken, books.skipped,
                                                     books.unexpected, books.isOver),
                                  conditionOf(told.condition), told.isOver);
    }

    void close() const
    {
        if (playing_.isForeign()) return;
        interruptible([playing = playing_.use("the replay")] { playing->stop(); });
    }

private:
    static std::shared_ptr<Playing> make(const std::string& path, uint16_t port, double speed,
                                         uint8_t camera, bool isLoop)
    {
        PlayOptions options;
        options.port = port;
        options.speed = speed;
        options.camera = camera;
        return interruptible(
            [path, options, isLoop] { return std::make_shared<Playing>(path, options, isLoop); });
    }

    Owned<Playing> playing_;
};

// Threads: any, one after another.
class CoreEvents
{
public:
    explicit CoreEvents(const python::object& path) : events_(WireReader(textFromPython(path))) {}

    // Nothing at the end.
    python::object next()
    {
        const std::optional<WireEvent> event = read();
        if (!event) return python::none();
        const bool isMessage = event->kind == WireEvent::Kind::Message;
        const WirePiece& piece = event->piece;
        python::dict told;
        told["kind"] = nameOf(event->kind);
        told["camera"] = unsigned{event->camera};
        told["time_ns"] = nanoseconds(event->time.utc);
        told["seconds"] = std::chrono::duration<double>(event->time.steady - *begin_).count();
        told["about"] = textToPython(event->about);
        told["sent"] = piece.isSent;
        told["payload"] = isMessage ? bytesToPython(piece.payload().data(), piece.payload().size())
                                    : bytesToPython(piece.bytes.data(), piece.bytes.size());
        if (!isMessage) return std::move(told);
        python::list fields;
        for (const auto& [name, value] : wireFields(piece)) {
            fields.append(python::make_tuple(name, textToPython(value)));
        }
        told["name"] = wireName(piece);
        told["id"] = piece.id();
        told["number"] = unsigned{piece.number()};
        told["version"] = unsigned{piece.version()};
        told["taken"] = piece.isTaken();
        told["fields"] = fields;
        return std::move(told);
    }

    python::tuple condition()
    {
        const python::gil_scoped_release released;
        const std::lock_guard<std::mutex> guard(lock_);
        const WireCondition condition = events_.reader().condition();
        const python::gil_scoped_acquire held;
        return conditionOf(condition);
    }

private:
    std::optional<WireEvent> read()
    {
        const python::gil_scoped_release released;
        const std::lock_guard<std::mutex> guard(lock_);
        std::optional<WireEvent> event = events_.next();
        if (event && !begin_) begin_ = event->time.steady;
        return event;
    }

    std::mutex lock_;
    WireEvents events_;
    std::optional<SteadyTime> begin_;
};

} // namespace

void addWire(python::module_& module)
{
    python::class_<CoreCapture, std::unique_ptr<CoreCapture, LetGo>>(module, "Capture")
        .def(python::init(&capture))
        .def("finish",
             [](const CoreCapture& self) {
                 interruptible([capture = self.use()] { capture->finish(); });
             })
        .def("books", &booksOf);
    python::class_<CoreReplay, std::unique_ptr<CoreReplay, LetGo>>(module, "Replay")
        .def(python::init<const python::object&, uint16_t, double, uint8_t, bool>())
        .def("port", &CoreReplay::port)
        .def("told", &CoreReplay::told)
        .def("close", &CoreReplay::close);
    python::class_<CoreEvents>(module, "WireEvents")
        .def(python::init<const python::object&>())
        .def("next", &CoreEvents::next)
        .def("condition", &CoreEvents::condition);
}

} // namespace vxcam::py
