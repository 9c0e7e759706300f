// Opening and closing cameras.
#include "kit_support.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vxcamkit/version.h>

#include <atomic>
#include <future>

using namespace vxcam;
using testing::HasSubstr;

namespace {

class Opening : public KitCamera
{};

} // namespace

TEST_F(Opening, TellsWhoTheCameraIs)
{
    options_.serial = 17;
    options_.name = "big one";
    const Camera& camera = open();
    EXPECT_EQ(camera.sensor(), (Size{kColumns, kRows}));
    EXPECT_EQ(camera.identity().name, "big one");
    EXPECT_EQ(camera.identity().serial, "17");
    EXPECT_EQ(camera.identity().bits, 16);
    EXPECT_EQ(camera.target(), place());
    EXPECT_EQ(camera.timeScale(), 1.0);
}

TEST_F(Opening, TellsNamesWithLettersBeyondAscii)
{
    const auto identityWith = [this](const std::string& name) {
        options_.name = name;
        options_.serial = 1207;
        tcSimServer sim(options_);
        return Camera::open("127.0.0.1:" + std::to_string(sim.Start())).identity();
    };
    const auto nameWith = [&](const std::string& name) {
        const Identity identity = identityWith(name);
        EXPECT_EQ(identity.serial, "1207") << name;
        return identity.name;
    };
    EXPECT_EQ(nameWith("\xC3\x9C"
                       "bercam"),
              "\xC3\x9C"
              "bercam");
    EXPECT_EQ(nameWith("\xE6\x98\x9F"), "\xE6\x98\x9F");
    EXPECT_EQ(nameWith("\xDC"
                       "bercam"),
              "\xC3\x9C"
              "bercam");            // Latin-1
    const std::string cut(30, 'x'); // a byte of the letter fits, too
    EXPECT_EQ(nameWith(cut + "\xC3\x9C"), cut);
    for (const char* none : {"",
                             "a\x01"
                             "b",
                             "\xFF\xFE\xFD", "a\xC2\x85"}) {
        const Identity identity = identityWith(none);
        EXPECT_EQ(identity.name + identity.serial, "");
    }
}

TEST_F(Opening, OpensTheSimulatedCameraInThisProcess)
{
    Camera camera = Camera::open("sim?sensor=40x30&scale=10&seed=5");
    EXPECT_EQ(camera.sensor(), (Size{40, 30}));
    EXPECT_EQ(camera.timeScale(), 10.0);
    const Frame frame = camera.grab(planOf(1, 50ms));
    EXPECT_EQ(frame.rows(), 30);
    EXPECT_EQ(frame.columns(), 40);
    ASSERT_TRUE(frame.facts().trueSum.has_value());
    EXPECT_EQ(frame.sum(), *frame.facts().trueSum);
    EXPECT_GT(frame.sum(), 0u);
}

TEST_F(Opening, RefusesImpossibleSimulatedCameras)
{
    const Error error = errorOf([] { Camera::open("sim?fault=nonsense"); });
    EXPECT_EQ(error.kind(), ErrorKind::Usage);
    EXPECT_THAT(error.what(), HasSubstr("nonsense"));
}

TEST_F(Opening, SaysThatNothingListensThere)
{
    start();
    sim_->Stop();
    const Error error = errorOf([&] { Camera::open(place()); });
    EXPECT_EQ(error.kind(), ErrorKind::NotFound);
    EXPECT_THAT(error.what(), HasSubstr(place()));
    EXPECT_THAT(error.what(), HasSubstr("refused"));
}

TEST_F(Opening, SaysThatTheHostIsNotKnown)
{
    const Error error = errorOf([] { Camera::open("no-such-host.invalid:2000"); });
    EXPECT_EQ(error.kind(), ErrorKind::NotFound);
    EXPECT_THAT(error.what(), HasSubstr("no-such-host.invalid"));
}

TEST_F(Opening, SaysWhatABusyCameraSays)
{
    open();
    const Error error = errorOf([&] { Camera::open(place()); });
    EXPECT_EQ(error.kind(), ErrorKind::Busy);
    EXPECT_THAT(error.what(), HasSubstr("in use by another client"));
    EXPECT_EQ(camera_->grab(planOf(1)).rows(), kRows) << "the one that is served goes on";
}

TEST_F(Opening, SaysThatTheCameraTurnsItAway)
{
    open({"refuse:silent=1,times=0"});
    const Error error = errorOf([&] { Camera::open(place()); });
    EXPECT_EQ(error.kind(), ErrorKind::Busy);
    EXPECT_THAT(error.what(), HasSubstr("without a word"));
}

TEST_F(Opening, SaysThatWhatListensIsNoCamera)
{
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(listener, 8), 0);
    socklen_t size = sizeof address;
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    const std::string where = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    const Error error = errorOf([&] { Camera::open(where); });
    EXPECT_EQ(error.kind(), ErrorKind::Timeout);
    EXPECT_THAT(error.what(), HasSubstr("does not answer like a camera"));
    ::close(listener);
}

TEST_F(Opening, FindsACameraByItsSerialNumber)
{
    options_.discovery = true;
    options_.serial = 4711;
    start();
    Camera camera = Camera::open("serial:4711");
    EXPECT_EQ(camera.identity().serial, "4711");
    const Error error = errorOf([] { Camera::open("serial:4712"); });
    EXPECT_EQ(error.kind(), ErrorKind::NotFound);
    EXPECT_THAT(error.what(), HasSubstr("found: 4711"));
}

TEST_F(Opening, ChecksTheLink)
{
    Camera& camera = open();
    EXPECT_EQ(camera.address(), place());
    const LinkCheck check = camera.checkLink(8);
    EXPECT_EQ(check.messages, 8);
    EXPECT_EQ(check.damaged, 0);
    EXPECT_GT(check.megabytesPerSecond, 0);
    const LibraryVersion version = libraryVersion();
    EXPECT_EQ(version.number, 3);
    EXPECT_EQ(version.build, 7);
}

TEST_F(Opening, FindsDamageOnTheLink)
{
    open({"flip-payload:message=2,id=0x74"});
    const LinkCheck check = camera_->checkLink(8);
    EXPECT_EQ(check.messages, 8);
    EXPECT_EQ(check.damaged, 1);
}

TEST_F(Opening, MakesRoomForTheNextAtOnce)
{
    start();
    for (int i = 0; i < 20; ++i) {
        Camera camera = Camera::open(place());
        EXPECT_EQ(camera.grab(planOf(1)).rows(), kRows);
    }
}

TEST_F(Opening, ClosingEndsAWaitingConsumer)
{
    Camera& camera = open();
    Stream stream = camera.stream(planOf(1, 1h));
    std::promise<void> isWaiting;
    auto error = std::async(std::launch::async, [&] {
        isWaiting.set_value();
        return errorOf([&] { stream.next(); });
    });
    isWaiting.get_future().wait();
    EXPECT_LT(timeOf([&] { camera.close(); }), kPromptly);
    EXPECT_EQ(error.get().kind(), ErrorKind::Aborted);
    EXPECT_EQ(stream.end(), ReadoutEnd::Closed);
    EXPECT_EQ(errorOf([&] { camera.grab(); }).kind(), ErrorKind::Aborted);
    EXPECT_EQ(camera.handle(), -1);
    camera.close();
}

TEST_F(Opening, TellsTemperaturesAndStatistics)
{
    options_.heartbeatSeconds = 0.01;
    options_.ambient = 12;
    Camera& camera = open();
    std::promise<Event> told;
    std::atomic<bool> isTold{false};
    const Subscription subscription = camera.onEvent([&](const Event& event) {
        if (event.kind == EventKind::Heartbeat && !isTold.exchange(true)) told.set_value(event);
    });
    const Event event = told.get_future().get();
    EXPECT_NEAR(event.sensorTemperature, 12, 0.2);
    EXPECT_NEAR(event.boardTemperature, 17, 1);
    EXPECT_TRUE(event.time.known);
    EXPECT_GT(camera.statistics().heartbeats, 0u);
    const Frame frame = camera.grab(planOf(1));
    ASSERT_TRUE(frame.facts().sensorTemperature.has_value());
    EXPECT_NEAR(*frame.facts().sensorTemperature, 12, 0.2);
    EXPECT_EQ(camera.statistics().framesComplete, 1u);
}

TEST_F(Opening, MayCloseTheCameraInAHandler)
{
    options_.heartbeatSeconds = 0.01;
    start();
    std::promise<void> isClosed;
    std::optional<Camera> camera(Camera::open(place()));
    std::atomic<bool> isFirst{true};
    const Subscription subscription = camera->onEvent([&](const Event&) {
        if (!isFirst.exchange(false)) return;
        camera.reset();
        isClosed.set_value();
    });
    EXPECT_EQ(isClosed.get_future().wait_for(kPatience), std::future_status::ready);
}
