// Connecting and receiving. What happens when the connection breaks or ends is in
// reconnect_test.cpp and close_test.cpp.
#include "link_support.h"

#include <fcntl.h>
#include <sys/resource.h>

using testing::ElementsAre;

static std::string UserMessage(const std::string& payload)
{
    return MessageBytes(gnUserId, payload);
}

// ---- Connecting ------------------------------------------------------------------------------

TEST_F(Link, ShakesHandsByEndingNoOpsAndAskingForTheHardware)
{
    auto opened = std::async(std::launch::async, [this] { return camera->Initialize(); });
    ASSERT_TRUE(peer.Accept());
    std::string noOps = peer.ReadMessage();
    std::string hardware = peer.ReadMessage();
    // The checksums are not defined.
    ASSERT_EQ(20u, noOps.size());
    ASSERT_EQ(12u, hardware.size());
    noOps.replace(5, 3, 3, '?');
    hardware.replace(5, 3, 3, '?');
    EXPECT_EQ(std::string("\x50\xFA\x08\x00\x00???\x03\x5D\x00\x00\0\0\0\0\0\0\0\0", 20), noOps);
    EXPECT_EQ(std::string("\x50\xFA\x00\x00\x01???\x03\x34\x00\x00", 12), hardware);
    peer.Send(HardwareAnswer(16, 32));
    EXPECT_NE(0, opened.get());
}

TEST_F(Link, LearnsTheSensorFromTheHandshake)
{
    auto opened = std::async(std::launch::async, [this] { return camera->Initialize(); });
    ASSERT_TRUE(ShakeHands(peer, 1024, 1280));
    ASSERT_NE(0, opened.get());
    static tsImageData seen;
    seen = {};
    camera->SetImageDataCallback([](int, tsImageData* image) { seen = *image; });
    std::string pixels(16, '\0'); // one packet of one, its 16-bit pixel in column 0
    pixels[2] = pixels[4] = 1;
    peer.Send(MessageBytes(0x66, pixels + "ab"));
    Synchronise();
    EXPECT_EQ(1024, seen.SensorRows);
    EXPECT_EQ(1280, seen.SensorColumns);
}

TEST_F(Link, SetsTheSocketUp)
{
    Open();
    const int descriptor = peer.ClientDescriptor();
    ASSERT_GE(descriptor, 0);
    EXPECT_NE(0, IntOption(descriptor, IPPROTO_TCP, TCP_NODELAY));
    EXPECT_NE(0, IntOption(descriptor, SOL_SOCKET, SO_KEEPALIVE));
    EXPECT_EQ(3, IntOption(descriptor, IPPROTO_TCP, TCP_KEEPCNT));
    EXPECT_NE(0, fcntl(descriptor, F_GETFD) & FD_CLOEXEC);
}

TEST_F(Link, LogsItsLife)
{
    const std::string where = std::to_string(peer.Port());
    EXPECT_THAT(
        Texts(log.Debug(1, "tcVXCamera_Ethernet")),
        ElementsAre("tcVXCamera_Ethernet::tcVXCamera_Ethernet Addr 127.0.0.1, Port " + where));
    Open();
    EXPECT_EQ(1u, log.Debug(1, "tcVXCamera_Ethernet::Initialize Entered").size());
    EXPECT_TRUE(log.AwaitDebug(10, "tcVXCamera_Ethernet::MonitorThread Entered"));
    CloseCamera();
    EXPECT_EQ(1u, log.Debug(1, "tcVXCamera_Ethernet::MonitorThread Exit").size());
    EXPECT_TRUE(log.Errors().empty());
}

TEST_F(Link, FailsToInitializeWhenNobodyListens)
{
    peer.SwitchOff();
    EXPECT_EQ(0, camera->Initialize());
    EXPECT_THAT(Texts(log.Errors()),
                ElementsAre("tcVXCamera_Ethernet::Initialize could not connect"));
    EXPECT_TRUE(log.Debug(10, "tcVXCamera_Ethernet::MonitorThread Entered").empty());
    tsMsgHeader frame{};
    EXPECT_EQ(-1, camera->SendMessage(&frame));
}

TEST_F(Link, InitializesOnASecondTryAfterNobodyListened)
{
    peer.SwitchOff();
    ASSERT_EQ(0, camera->Initialize());
    peer.SwitchOn();
    Open();
    Synchronise();
}

// The monitor's steps stand for its 100 ms each: the request for the hardware has 10 s.
static int InitializeWithoutAnAnswer(tcScriptedCamera& peer, tcVXCamera_Ethernet& camera)
{
    auto opened = std::async(std::launch::async, [&] { return camera.Initialize(); });
    EXPECT_TRUE(peer.Accept());
    EXPECT_EQ(0x5Du, IdOf(peer.ReadMessage()));
    EXPECT_EQ(0x34u, IdOf(peer.ReadMessage()));
    while (opened.wait_for(milliseconds(0)) != std::future_status::ready)
        camera.MonitorStep();
    return opened.get();
}

TEST_F(Link, FailsToInitializeWhenTheCameraDoesNotAnswer)
{
    EXPECT_EQ(0, InitializeWithoutAnAnswer(peer, *camera));
    EXPECT_TRUE(peer.SeesClose());
    EXPECT_EQ(1u, log.Debug(1, "tcVXCamera_Ethernet::MonitorThread Exit").size());
    EXPECT_THAT(Texts(log.Errors()), ElementsAre("tcVXCamera::MonitorStack Timing Out ID 4"));
}

TEST_F(Link, InitializesOnASecondTryAfterNoAnswer)
{
    ASSERT_EQ(0, InitializeWithoutAnAnswer(peer, *camera));
    Open();
    Synchronise();
}

TEST_F(Link, TakesAHostName)
{
    tcVXCamera_Ethernet named("localhost", peer.Port());
    auto opened = std::async(std::launch::async, [&] { return named.Initialize(); });
    ASSERT_TRUE(ShakeHands(peer));
    EXPECT_NE(0, opened.get());
}

TEST_F(Link, WorksWithHighDescriptors)
{
    rlimit limit{4096, 4096};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < 1200) GTEST_SKIP() << "no more than 1200 descriptors allowed";
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    std::vector<int> fillers;
    do {
        fillers.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
        ASSERT_GE(fillers.back(), 0);
    } while (fillers.back() < 1100);
    Open();
    EXPECT_GT(peer.ClientDescriptor(), 1100);
    Synchronise();
    peer.Close();
    ASSERT_TRUE(peer.Accept());
    Synchronise();
    CloseCamera();
    for (int descriptor : fillers)
        close(descriptor);
}

// ---- Receiving -------------------------------------------------------------------------------

TEST_F(Link, PutsAMessageTogetherThatIsSplitAnywhere)
{
    Open();
    const std::string message = UserMessage("payload");
    for (size_t split = 1; split < message.size(); ++split) {
        tcReceivedMessages::Clear();
        ASSERT_TRUE(peer.SendPiece(message.substr(0, split)));
        EXPECT_TRUE(tcReceivedMessages::All().empty());
        ASSERT_TRUE(peer.SendPiece(message.substr(split)));
        ASSERT_TRUE(tcReceivedMessages::Await(1));
        EXPECT_EQ(message, tcReceivedMessages::All()[0]);
    }
}

TEST_F(Link, PutsAMessageTogetherThatComesByteByByte)
{
    Open();
    const std::string message = UserMessage("payload");
    for (char byte : message)
        ASSERT_TRUE(peer.SendPiece(std::string(1, byte)));
    ASSERT_TRUE(tcReceivedMessages::Await(1));
    EXPECT_THAT(tcReceivedMessages::All(), ElementsAre(message));
}

TEST_F(Link, TakesSeveralMessagesFromOneSegment)
{
    Open();
    const std::string first = UserMessage("first"), second = UserMessage(""),
                      third = UserMessage("third");
    const std::string fourth = UserMessage("fourth");
    ASSERT_TRUE(peer.SendPiece(first + second + third + fourth.substr(0, 5)));
    ASSERT_TRUE(tcReceivedMessages::Await(3));
    EXPECT_THAT(tcReceivedMessages::All(), ElementsAre(first, second, third));
    ASSERT_TRUE(peer.SendPiece(fourth.substr(5)));
    ASSERT_TRUE(tcReceivedMessages::Await(4));
    EXPECT_EQ(fourth, tcReceivedMessages::All()[3]);
}

TEST_F(Link, FindsMessagesBetweenGarbage)
{
    Open();
    const std::string first = UserMessage("first"), second = UserMessage("second");
    ASSERT_TRUE(peer.SendPiece("garbage\x50\xFB" + first + "\x50" + second + "\xFA\x50more"));
    ASSERT_TRUE(tcReceivedMessages::Await(2));
    EXPECT_THAT(tcReceivedMessages::All(), ElementsAre(first, second));
}

TEST_F(Link, SkipsAMessageThatIsTooLong)
{
    Open();
    const std::string tooLong = UserMessage(std::string(16405, 'x'));
    const std::string longest = UserMessage(std::string(16404, 'y'));
    ASSERT_TRUE(peer.Send(tooLong + longest));
    ASSERT_TRUE(tcReceivedMessages::Await(1));
    EXPECT_THAT(tcReceivedMessages::All(), ElementsAre(longest));
}

TEST_F(Link, DropsAMessageOfAnotherVersion)
{
    Open();
    const std::string good = UserMessage("good");
    ASSERT_TRUE(peer.Send(MessageBytes(gnUserId, "old", 0, 2) +
                          MessageBytes(gnUserId, "new", 0, 0xAB) + good));
    ASSERT_TRUE(tcReceivedMessages::Await(1));
    EXPECT_THAT(tcReceivedMessages::All(), ElementsAre(good));
    EXPECT_THAT(
        Texts(log.Errors()),
        ElementsAre("CallbackParser IDD Error - Received 0x02, Expected 0x03, Dropping Message.",
                    "CallbackParser IDD Error - Received 0xAB, Expected 0x03, Dropping Message."));
}

TEST_F(Link, HandsOverPiecesOfAtMost4096BytesInOrder)
{
    Open();
    Synchronise();
    log.Clear();
    std::string payload;
    for (int i = 0; i < 5000; ++i)
        payload += LittleEndian(static_cast<uint64_t>(i), 2);
    const std::string message = UserMessage(payload);
    ASSERT_TRUE(peer.Send(message + message + message));
    ASSERT_TRUE(tcReceivedMessages::Await(4));
    EXPECT_EQ(message, tcReceivedMessages::All()[3]);

    size_t total = 0;
    for (const auto& record : log.Debug(1, "tcVXCamera_Ethernet::MonitorThread received ")) {
        int bytes = 0;
        sscanf(record.text.c_str(), "tcVXCamera_Ethernet::MonitorThread received %d bytes", &bytes);
        EXPECT_GT(bytes, 0);
        EXPECT_LE(bytes, 4096);
        total += static_cast<size_t>(bytes);
    }
    EXPECT_EQ(3 * message.size(), total);
}

TEST_F(Link, LogsEachPiece)
{
    Open();
    Synchronise();
    log.Clear();
    ASSERT_TRUE(peer.SendPiece(UserMessage("four")));
    ASSERT_TRUE(log.AwaitDebug(10, "tcVXCamera_Ethernet::MonitorThread"));
    EXPECT_THAT(Texts(log.Debug(1, "tcVXCamera_Ethernet")),
                ElementsAre("tcVXCamera_Ethernet::MonitorThread received 16 bytes"));
    EXPECT_THAT(Texts(log.Debug(10, "tcVXCamera_Ethernet")),
                ElementsAre("tcVXCamera_Ethernet::MonitorThread finished parsing 16 bytes"));
}

TEST_F(Link, LeavesTheCallersVariableAloneWhenTheAnswerIsLate)
{
    Open();
    long exposure = -77;
    auto result =
        std::async(std::launch::async, [&] { return camera->GetExposureTime(&exposure); });
    ASSERT_EQ(0x30u, IdOf(peer.ReadMessage()));
    while (result.wait_for(milliseconds(0)) != std::future_status::ready)
        camera->MonitorStep();
    EXPECT_EQ(eVXTimeout, result.get());
    ASSERT_TRUE(peer.Send(MessageBytes(0x60, LittleEndian(1234, 4))));
    Synchronise();
    EXPECT_EQ(-77, exposure);
    EXPECT_EQ(0, camera->numOpsPending());

    result = std::async(std::launch::async, [&] { return camera->GetExposureTime(&exposure); });
    ASSERT_EQ(0x30u, IdOf(peer.ReadMessage()));
    ASSERT_TRUE(peer.Send(MessageBytes(0x60, LittleEndian(4321, 4))));
    EXPECT_EQ(0, result.get());
    EXPECT_EQ(4321, exposure);
}

// ---- The byte dump ---------------------------------------------------------------------------

TEST_F(Link, DumpsAPieceOf100BytesInSevenLinesWithoutItsLastByte)
{
    Open();
    Synchronise();
    camera->EnableByteDump(true);
    log.Clear();
    std::string piece(100, '\0');
    for (int i = 0; i < 100; ++i)
        piece[static_cast<size_t>(i)] = static_cast<char>(i + 1);
    ASSERT_TRUE(peer.SendPiece(piece));
    ASSERT_TRUE(log.AwaitDebug(10, "tcVXCamera_Ethernet::MonitorThread finished"));
    const auto lines = Texts(log.Debug(15, "0x"));
    ASSERT_EQ(7u, lines.size());
    EXPECT_EQ("0x00000000 -[ 1][ 2][ 3][ 4][ 5][ 6][ 7][ 8][ 9][ A][ B][ C][ D][ E][ F][10]",
              lines[0]);
    EXPECT_EQ("0x00000050 -[51][52][53][54][55][56][57][58][59][5A][5B][5C][5D][5E][5F][60]",
              lines[5]);
    EXPECT_EQ("0x00000060 -[61][62][63]", lines[6]);
}

TEST_F(Link, DumpsNothingOfAPieceOfOneByte)
{
    Open();
    Synchronise();
    camera->EnableByteDump(true);
    log.Clear();
    ASSERT_TRUE(peer.SendPiece("x"));
    ASSERT_TRUE(log.AwaitDebug(10, "tcVXCamera_Ethernet::MonitorThread finished"));
    EXPECT_TRUE(log.Debug(15, "0x").empty());
}

TEST_F(Link, DumpsOneLineOfAPieceOf17Bytes)
{
    Open();
    Synchronise();
    camera->EnableByteDump(true);
    log.Clear();
    ASSERT_TRUE(peer.SendPiece(std::string(16, '\xFE') + "x"));
    ASSERT_TRUE(log.AwaitDebug(10, "tcVXCamera_Ethernet::MonitorThread finished"));
    EXPECT_THAT(
        Texts(log.Debug(15, "0x")),
        ElementsAre("0x00000000 -[FE][FE][FE][FE][FE][FE][FE][FE][FE][FE][FE][FE][FE][FE][FE]"
                    "[FE]"));
}

TEST_F(Link, DumpsNothingUnlessAsked)
{
    Open();
    log.Clear();
    ASSERT_TRUE(peer.SendPiece(std::string(100, 'x')));
    ASSERT_TRUE(log.AwaitDebug(10, "tcVXCamera_Ethernet::MonitorThread finished"));
    EXPECT_TRUE(log.Debug(15, "0x").empty());
}
