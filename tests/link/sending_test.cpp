// Sending.
#include "link_support.h"

#include <csignal>

using testing::ElementsAre;

TEST_F(Link, SendsExactlyTwelveBytesOfAMessageWithoutPayload)
{
    Open();
    tsMsgHeader frame{};
    frame.MsgId = 0x123456;
    EXPECT_EQ(0, camera->SendMessage(&frame));
    frame.MsgId = 0x22;
    EXPECT_EQ(0, camera->SendMessage(&frame));
    const std::string bytes = peer.Read(24);
    EXPECT_EQ(std::string("\x50\xFA\0\0\x02\0\0\0\x03\x56\x34\x12", 12), bytes.substr(0, 12));
    EXPECT_EQ(std::string("\x50\xFA\0\0\x03\0\0\0\x03\x22\0\0", 12), bytes.substr(12));
    CloseCamera();
    EXPECT_EQ("", peer.Read(1));
}

TEST_F(Link, StampsTheMessageOfTheCaller)
{
    Open();
    tsMsgHeader frame{};
    frame.Magic = 0x1111;
    frame.IDD = 9;
    frame.SeqNo = 99;
    frame.MsgId = 0x4C;
    EXPECT_EQ(0, camera->SendMessage(&frame));
    EXPECT_EQ(0xFA50, frame.Magic);
    EXPECT_EQ(3u, frame.IDD);
    EXPECT_EQ(2u, frame.SeqNo); // the third message since the opening
    EXPECT_EQ(0x4Cu, frame.MsgId);
}

TEST_F(Link, SendsWholeMessagesInSequenceFromManyThreads)
{
    constexpr int threads = 8, each = 200;
    Open();
    std::vector<std::thread> senders;
    for (int i = 0; i < threads; ++i) {
        senders.emplace_back([this, i] {
            for (int n = 0; n < each; ++n)
                EXPECT_EQ(0, camera->SetShearingParams(i, static_cast<unsigned>(n), 7, 8));
        });
    }
    std::vector<uint32_t> next(threads, 0);
    for (int i = 0; i < threads * each; ++i) {
        const std::string message = peer.ReadMessage();
        ASSERT_EQ(28u, message.size());
        ASSERT_EQ(0x49u, IdOf(message));
        ASSERT_EQ(static_cast<char>(i + 2), message[4]); // two of the handshake before
        const auto thread = static_cast<unsigned char>(message[12]);
        ASSERT_EQ(LittleEndian(next[thread]++, 4), message.substr(16, 4));
    }
    for (auto& sender : senders)
        sender.join();
}

// Until somebody who counts makes no progress any more.
static bool AwaitStall(const std::atomic<int>& count)
{
    int before = -1;
    return WaitUntil([&] {
        const int now = count;
        if (now == before) return true;
        before = now;
        std::this_thread::sleep_for(milliseconds(50));
        return false;
    });
}

// Bytes that no network buffer takes at once.
constexpr int gnManyMessages = 1500;

TEST_F(Link, CompletesShortAndInterruptedSends)
{
    peer.LimitReceiveBuffer(4096);
    Open();
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    std::atomic<bool> finished{false};
    std::thread sender([&] {
        std::string data(4356, '\0');
        for (int i = 0; i < gnManyMessages; ++i) {
            data.replace(0, 4, LittleEndian(static_cast<uint64_t>(i), 4));
            EXPECT_EQ(0, camera->SetTimingData(data.data(), static_cast<int>(data.size())));
        }
        finished = true;
    });
    std::thread interrupter([&] {
        while (!finished) {
            pthread_kill(sender.native_handle(), SIGUSR1);
            std::this_thread::sleep_for(milliseconds(1));
        }
    });
    for (int i = 0; i < gnManyMessages; ++i) {
        const std::string message = peer.ReadMessage();
        ASSERT_EQ(4368u, message.size());
        ASSERT_EQ(0x54u, IdOf(message));
        ASSERT_EQ(LittleEndian(static_cast<uint64_t>(i), 4), message.substr(12, 4));
    }
    interrupter.join();
    sender.join();
}

// One that is given up goes out whole, or not at all.
TEST_F(Link, FinishesAMessageThatWentOutInPartThoughTheTimeForItIsOver)
{
    constexpr int attempts = 200, payload = 60000;
    constexpr uint32_t last = 0x22;
    peer.LimitReceiveBuffer(4096);
    Open();
    std::atomic<int> tried{0}, sent{0};
    std::thread sender([&] {
        std::vector<char> bytes(12 + payload);
        auto* const frame = reinterpret_cast<tsMsgHeader*>(bytes.data());
        for (; tried < attempts; ++tried) {
            frame->MsgId = 0x54;
            frame->Length = payload;
            if (camera->SendMessageWithin(frame, 1) == 0) ++sent;
        }
        frame->MsgId = last;
        frame->Length = 0;
        EXPECT_EQ(0, camera->SendMessage(frame));
    });
    EXPECT_TRUE(AwaitStall(tried));
    int received = 0;
    for (std::string message; IdOf(message = peer.ReadMessage()) == 0x54; ++received) {
        ASSERT_EQ(12u + payload, message.size());
    }
    sender.join();
    EXPECT_EQ(sent, received);
    EXPECT_GT(received, 0);
    tsStatistics figures{};
    camera->GetStatistics(&figures, sizeof figures);
    EXPECT_EQ(0u, figures.ConnectionsLost);
}

TEST_F(Link, ReceivesWhileASendIsStalled)
{
    peer.LimitReceiveBuffer(4096);
    Open();
    std::atomic<int> sent{0};
    std::thread sender([&] {
        const std::string data(4356, 'd');
        for (; sent < gnManyMessages; ++sent)
            EXPECT_EQ(0, camera->SetTimingData(const_cast<char*>(data.data()), 4356));
    });
    EXPECT_TRUE(AwaitStall(sent));
    EXPECT_LT(sent, gnManyMessages);
    Synchronise();
    for (int i = 0; i < gnManyMessages; ++i)
        ASSERT_EQ(4368u, peer.ReadMessage().size());
    sender.join();
}

TEST_F(Link, ReturnsFailureWithoutASignalWhenTheCameraIsGone)
{
    Open();
    static volatile sig_atomic_t raised;
    raised = 0;
    struct sigaction action {};
    action.sa_handler = [](int) { raised = 1; };
    sigaction(SIGPIPE, &action, nullptr);
    peer.SwitchOff();
    peer.Reset();
    EXPECT_TRUE(WaitUntil([&] {
        tsMsgHeader frame{};
        return camera->SendMessage(&frame) == -1;
    }));
    for (int i = 0; i < 100; ++i) {
        tsMsgHeader frame{};
        EXPECT_EQ(-1, camera->SendMessage(&frame));
    }
    EXPECT_EQ(0, raised);
}

TEST_F(Link, EndsARequestAtOnceThatCannotBeSent)
{
    Open();
    peer.SwitchOff();
    peer.Reset();
    ASSERT_TRUE(AwaitReconnecting(1));
    long exposure = -77;
    const auto start = steady_clock::now();
    EXPECT_EQ(eVXTimeout, camera->GetExposureTime(&exposure));
    EXPECT_LT(ElapsedMs(start), 5000);
    EXPECT_EQ(-77, exposure);
    EXPECT_THAT(Texts(log.Errors("SendAndWait")),
                ElementsAre("SendAndWait could not send message 0x30"));
    EXPECT_EQ(0, camera->numOpsPending());
    EXPECT_EQ(-1, camera->SetTrigger(1));
}
