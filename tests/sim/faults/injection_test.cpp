// Faults that come and go while the camera runs.
#include "RawClient.h"
#include "faultkinds.h"

#include <atomic>
#include <future>
#include <mutex>

namespace {

auto Of(teSimFault kind)
{
    return [kind](const tsSimFaultState& state) { return state.fault.kind == kind; };
}

std::string TextsOf(const std::vector<tsSimFaultState>& states)
{
    std::string text;
    for (const tsSimFaultState& state : states) {
        text += std::to_string(state.number) + " " + TextOf(state.fault) + " " +
                std::to_string(state.struck) + "; ";
    }
    return text;
}

// Whether the camera answers a question within so many milliseconds.
bool Answers(tcFaultyCamera& camera, int ms = 300)
{
    camera.Client().SendCommand(cmdGetGPIO);
    return camera.Client().Receive(ms).id == ansGPIO.id;
}

// Injects what strikes a silent connection, and waits until it has.
void Strike(tcFaultyCamera& camera, const char* fault)
{
    ASSERT_TRUE(camera.Echoes());
    const uint64_t before = camera.Server().Statistics().faults;
    camera.Server().Inject(ParseSimFault(fault));
    ASSERT_TRUE(Eventually([&] { return camera.Server().Statistics().faults == before + 1; }));
}

// The camera's thread stops at the first event of this kind and text until the client has spoken,
// so that it finds the fault and what was asked behind it at the same time.
class tcWaitsForTheClient
{
public:
    tcWaitsForTheClient(teSimEvent kind, std::string text)
        : mKind(kind), msText(std::move(text)), mSpoken(mSpeaks.get_future())
    {}

    tsSimOptions Options(const std::vector<std::string>& faults = {})
    {
        tsSimOptions options = tcFaultyCamera::Options(faults);
        options.events = [this](const tsSimEvent& event) {
            const bool isIt = event.event == mKind && event.text.find(msText) != std::string::npos;
            if (isIt && mSpoken.valid()) {
                mSpoken.wait_for(std::chrono::milliseconds(gnPatience));
                mSpoken = {};
            }
        };
        return options;
    }
    void HasSpoken() { mSpeaks.set_value(); }

private:
    const teSimEvent mKind;
    const std::string msText;
    std::promise<void> mSpeaks;
    std::future<void> mSpoken;
};

// What the camera has said to two questions by the time it has heard the second one.
size_t BytesSaidToTwoQuestions(tcFaultyCamera& camera, tcWaitsForTheClient& waits)
{
    const auto heard = [&](uint64_t commands) {
        return Eventually([&] { return camera.Server().Statistics().commands == commands; });
    };
    const uint64_t before = camera.Server().Statistics().commands;
    camera.Client().SendCommand(cmdGetGPIO);
    waits.HasSpoken();
    EXPECT_TRUE(heard(before + 1));
    camera.Client().SendCommand(cmdGetGPIO);
    EXPECT_TRUE(heard(before + 2));
    return camera.Read(1, 0).bytes.size();
}

} // namespace

TEST(SimInjection, HoldsForWhatIsAskedBehindIt)
{
    tcWaitsForTheClient waits(teSimEvent::eFault, "injected");
    tcFaultyCamera camera(waits.Options());
    ASSERT_TRUE(camera.Echoes());
    camera.Server().Inject(ParseSimFault("half-open"));
    EXPECT_EQ(BytesSaidToTwoQuestions(camera, waits), 0u);
    camera.Server().Lift(Of(teSimFault::eHalfOpen));
    EXPECT_EQ(camera.Read(32).bytes.size(), 32u) << "they were heard";
}

TEST(SimInjection, ClosesBeforeWhatIsAskedBehindIt)
{
    tcWaitsForTheClient waits(teSimEvent::eFault, "injected");
    tcFaultyCamera camera(waits.Options());
    ASSERT_TRUE(camera.Echoes());
    camera.Server().Inject(ParseSimFault("close"));
    camera.Client().SendCommand(cmdGetGPIO);
    waits.HasSpoken();
    const tsRead read = camera.Read(1);
    EXPECT_TRUE(read.bytes.empty());
    EXPECT_NE(read.end, teEnd::eNothing);
}

TEST(SimInjection, HoldsFromTheFirstQuestionOfAConnectionOn)
{
    tcWaitsForTheClient waits(teSimEvent::eConnected, "connected");
    tcFaultyCamera camera(waits.Options({"half-open:time=0"}));
    EXPECT_EQ(BytesSaidToTwoQuestions(camera, waits), 0u);
}

// What the strike ends is still in its first steps.
TEST(SimInjection, EndsAConnectionAsItBegins)
{
    tcFaultyCamera camera({"close:time=0", "reset:connection=2,time=0"});
    EXPECT_EQ(camera.Read(1).end, teEnd::eClosed);
    camera.Connect();
    EXPECT_EQ(camera.Read(1).end, teEnd::eReset);
    camera.Connect();
    EXPECT_TRUE(camera.Echoes());
    EXPECT_EQ(camera.Server().Statistics().faults, 2u);
    EXPECT_TRUE(camera.Server().Statistics().connected);
}

TEST(SimInjection, StrikesTheNextAnswerOfAConnectionWithoutFaults)
{
    tcFaultyCamera camera;
    EXPECT_TRUE(Answers(camera, gnPatience));
    EXPECT_EQ(camera.Server().Inject(ParseSimFault("no-answer")), 1u);
    EXPECT_FALSE(Answers(camera));
    EXPECT_TRUE(Answers(camera, gnPatience)) << "it was to strike once";
    EXPECT_EQ(camera.Server().Statistics().faults, 1u);
}

TEST(SimInjection, CanBeLiftedBeforeItStrikes)
{
    tcFaultyCamera camera({"no-answer:times=0"});
    EXPECT_FALSE(Answers(camera));
    EXPECT_EQ(camera.Server().Lift(Of(teSimFault::eStall)), 0u);
    EXPECT_EQ(camera.Server().Lift(Of(teSimFault::eNoAnswer)), 1u);
    EXPECT_TRUE(Answers(camera, gnPatience));
    EXPECT_TRUE(camera.Server().Faults().empty());
}

TEST(SimInjection, TellsWhatIsInForceAndHowOftenItStruck)
{
    tcFaultyCamera camera({"no-answer:id=0x7E,times=3", "close:message=99"});
    EXPECT_EQ(camera.Server().Inject(ParseSimFault("garbage:message=50,bytes=7")), 3u);
    EXPECT_FALSE(Answers(camera));
    EXPECT_EQ(TextsOf(camera.Server().Faults()),
              "1 no-answer:id=126,times=3 1; 2 close:message=99 0; 3 "
              "garbage:message=50,bytes=7 0; ");
    EXPECT_FALSE(Answers(camera));
    EXPECT_FALSE(Answers(camera));
    EXPECT_EQ(TextsOf(camera.Server().Faults()),
              "2 close:message=99 0; 3 garbage:message=50,bytes=7 0; ");
    EXPECT_EQ(camera.Server().Lift([](const tsSimFaultState& state) { return state.number == 2; }),
              1u);
    EXPECT_EQ(TextsOf(camera.Server().Faults()), "3 garbage:message=50,bytes=7 0; ");
}

TEST(SimInjection, RefusesWhatCannotBe)
{
    tcFaultyCamera camera;
    tsSimFault fault = ParseSimFault("reboot-resized");
    fault.rows = fault.columns = 16384;
    EXPECT_THROW(camera.Server().Inject(fault), std::runtime_error);
    EXPECT_TRUE(camera.Server().Faults().empty());
}

// A kind that may strike in silence does so at once.
TEST(SimInjection, ClosesASilentConnection)
{
    tcFaultyCamera camera;
    ASSERT_TRUE(camera.Echoes());
    camera.Server().Inject(ParseSimFault("close"));
    EXPECT_EQ(camera.Read(1).end, teEnd::eClosed);
    camera.Connect();
    EXPECT_TRUE(camera.Echoes()) << "once";
}

TEST(SimInjection, WaitsForAConnectionWhereThereIsNone)
{
    tcFaultyCamera camera;
    ASSERT_TRUE(camera.Echoes());
    camera.Client().Close();
    ASSERT_TRUE(Eventually([&] { return !camera.Server().Statistics().connected; }));
    camera.Server().Inject(ParseSimFault("reset"));
    camera.Connect();
    EXPECT_EQ(camera.Read(1).end, teEnd::eReset);
}

TEST(SimInjection, LiftsSilenceAndWhatWaitedComes)
{
    tcFaultyCamera camera;
    Strike(camera, "half-open");
    EXPECT_FALSE(Answers(camera));
    EXPECT_EQ(TextsOf(camera.Server().Faults()), "1 half-open:time=0 1; ") << "its effect lasts";
    EXPECT_EQ(camera.Server().Lift(Of(teSimFault::eHalfOpen)), 1u);
    EXPECT_EQ(camera.Client().Receive().id, ansGPIO.id);
    EXPECT_TRUE(Answers(camera, gnPatience));
}

TEST(SimInjection, LiftsAStallAtOnce)
{
    tcFaultyCamera camera;
    camera.Server().Inject(ParseSimFault("stall:seconds=1000,message=1"));
    EXPECT_FALSE(Answers(camera));
    // It has struck, and is on nobody's list any more; what it does ends all the same.
    camera.Server().Inject(ParseSimFault("stall:message=99"));
    camera.Server().Lift(Of(teSimFault::eStall));
    EXPECT_EQ(camera.Client().Receive().id, ansGPIO.id);
}

TEST(SimInjection, LiftsADrip)
{
    tcFaultyCamera camera;
    Strike(camera, "drip:rate=1");
    camera.Client().SendCommand(cmdGetGPIO);
    tpBytes answer = camera.Read(16, 300).bytes;
    EXPECT_LT(answer.size(), 16u);
    camera.Server().Lift(Of(teSimFault::eDrip));
    const tpBytes rest = camera.Read(16 - answer.size()).bytes;
    answer.insert(answer.end(), rest.begin(), rest.end());
    EXPECT_EQ(answer.size(), 16u);
    EXPECT_TRUE(Answers(camera, gnPatience));
}

TEST(SimInjection, LiftsDeafness)
{
    tcFaultyCamera camera;
    Strike(camera, "stop-reading");
    EXPECT_TRUE(Answers(camera, gnPatience)) << "what is being read already is taken";
    EXPECT_FALSE(Answers(camera));
    camera.Server().Lift(Of(teSimFault::eStopReading));
    EXPECT_EQ(camera.Client().Receive().id, ansGPIO.id);
    EXPECT_TRUE(Answers(camera, gnPatience));
}

TEST(SimInjection, LiftsTheSilenceOfTheHeart)
{
    tsSimOptions options = tcFaultyCamera::Options();
    options.heartbeatSeconds = 0.005;
    tcFaultyCamera camera(options);
    EXPECT_EQ(camera.Client().Receive().id, ansHeartBeat.id);
    camera.Server().Inject(ParseSimFault("heartbeat-stop"));
    EXPECT_TRUE(Eventually([&] { return camera.Client().Receive(200).id == 0; }));
    camera.Server().Lift(Of(teSimFault::eHeartbeatStop));
    EXPECT_EQ(camera.Client().Receive().id, ansHeartBeat.id);
}

TEST(SimInjection, RepairsTheCooler)
{
    tsSimOptions options = tcFaultyCamera::Options();
    options.timeScale = 10000;
    options.heartbeatSeconds = 0.01;
    tcFaultyCamera camera(options);
    camera.Client().SendCommand(cmdSetCooling, {1});
    camera.Client().SendCommand(cmdSetCCDTargetTemp, {-100});
    const auto temperature = [&] {
        const auto beat = camera.Client().Await(ansHeartBeat.id).As<tsHeartBeatData>();
        return static_cast<int16_t>(beat.CCDTemp);
    };
    EXPECT_TRUE(Eventually([&] { return temperature() == -100; }));
    camera.Server().Inject(ParseSimFault("cooler-failure"));
    EXPECT_TRUE(Eventually([&] { return temperature() == 200; }));
    camera.Server().Lift(Of(teSimFault::eCoolerFailure));
    EXPECT_TRUE(Eventually([&] { return temperature() == -100; }));
}

TEST(SimInjection, StrikesInTheMidstOfAFrame)
{
    tsSimOptions options = tcFaultyCamera::Options();
    options.rows = 100;
    options.lineRate = 200;
    tcFaultyCamera camera(options);
    camera.Client().SendCommand(cmdSetExposure, {0});
    camera.Client().SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 1, 0});
    ASSERT_EQ(camera.Client().Receive().id, ansPixels16.id);
    camera.Server().Inject(ParseSimFault("missing-packet:packet=90"));
    std::vector<unsigned> numbers{1};
    while (numbers.back() != 100) {
        const tsReceived packet = camera.Client().Receive();
        ASSERT_EQ(packet.id, ansPixels16.id);
        numbers.push_back(WordAt(packet.payload, 2));
    }
    EXPECT_EQ(numbers.size(), 99u);
    EXPECT_EQ(std::count(numbers.begin(), numbers.end(), 90u), 0);
    const tsSimFrame frame = camera.Server().Frames().back();
    EXPECT_EQ(frame.sent.packets, 99u);
    EXPECT_EQ(frame.sent.lost, 1u);
    EXPECT_FALSE(frame.sent.intact);
}

TEST(SimInjection, CountsTheBytesThatWentOutBefore)
{
    tcFaultyCamera camera;
    ASSERT_TRUE(Answers(camera, gnPatience)); // 16 bytes
    camera.Server().Inject(ParseSimFault("close:byte=21"));
    camera.Client().SendCommand(cmdGetGPIO);
    const tsRead read = camera.Read(100);
    EXPECT_EQ(read.bytes.size(), 5u);
    EXPECT_EQ(read.end, teEnd::eClosed);
}

TEST(SimInjection, IsAnEvent)
{
    std::mutex mutex;
    std::string said;
    tsSimOptions options = tcFaultyCamera::Options();
    tcSimServer* server = nullptr;
    options.events = [&](const tsSimEvent& event) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (event.event == teSimEvent::eFault) said += event.text + "; ";
        // From the server's own thread, too.
        if (event.event == teSimEvent::eFrame) server->Inject(ParseSimFault("no-answer:id=0x7E"));
    };
    tcFaultyCamera camera(options);
    server = &camera.Server();
    camera.Client().SendCommand(cmdSetExposure, {0});
    camera.Client().SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 1, 0});
    ASSERT_TRUE(camera.Client().ReceiveFrame().complete);
    ASSERT_TRUE(camera.Echoes());
    EXPECT_FALSE(Answers(camera));
    server->Inject(ParseSimFault("close:message=77"));
    server->Lift(Of(teSimFault::eClose));
    ASSERT_TRUE(Eventually([&] {
        const std::lock_guard<std::mutex> lock(mutex);
        return said.find("lifted") != std::string::npos;
    }));
    EXPECT_EQ(said, "fault injected: no-answer:id=126; fault: no-answer; fault injected: "
                    "close:message=77; fault lifted: close:message=77; ");
}

TEST(SimInjection, MayComeFromManyThreadsWhileTheCameraIsUsedAndStops)
{
    tsSimOptions options = tcFaultyCamera::Options();
    options.heartbeatSeconds = 0.001;
    tcSimServer server(options);
    server.Start();
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            while (!stop) {
                server.Inject(ParseSimFault("garbage:times=0,chance=0.5"));
                server.Inject(ParseSimFault("heartbeat-stop"));
                server.Faults();
                server.Lift([](const tsSimFaultState&) { return true; });
            }
        });
    }
    for (int i = 0; i < 20; ++i) {
        tcSimTestClient client(server.Port());
        client.Send(0x1234, {1});
        tpBytes got = ReadBytes(client.Descriptor(), 13).bytes;
        EXPECT_EQ(got.size(), 13u);
        server.Stop();
        server.Start();
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    server.Lift([](const tsSimFaultState&) { return true; });
    EXPECT_TRUE(server.Faults().empty());
}

TEST(SimFaultText, SaysWhatParsingReads)
{
    for (size_t i = 0; i < gnSimFaultKinds; ++i) {
        const std::string name = NameOf(static_cast<teSimFault>(i));
        EXPECT_EQ(TextOf(ParseSimFault(name)), name);
    }
    for (const char* text :
         {"stall:readout=1,packet=20,seconds=0.5", "no-answer:id=96,times=3",
          "flip-payload:byte=123456789012345,chance=0.001,times=0,count=2,bit=7",
          "outside:row=-1,column=5", "reboot-resized:time=1.25,seconds=0.1,rows=30,columns=40"}) {
        EXPECT_EQ(TextOf(ParseSimFault(text)), text);
    }
}
