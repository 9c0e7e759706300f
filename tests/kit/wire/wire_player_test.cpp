// Recordings of the wire as cameras.
#include "../../wire/tcByteLink.h"
#include "wire_support.h"

#include <vxcamkit/error.h>
#include <vxcamkit/wire_player.h>

#include <gmock/gmock.h>

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

namespace {

vxcam::PlayOptions fast()
{
    vxcam::PlayOptions options;
    options.speed = 0;
    return options;
}

// What it does not read fills a buffer that does not grow.
tcByteLink connected(uint16_t port)
{
    const int client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), room = 65536;
    ::setsockopt(client, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    const sockaddr_in address = tcByteLink::Loopback(port);
    EXPECT_EQ(::connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return tcByteLink(client);
}

// Plays a recording once, to one client.
class Played
{
public:
    explicit Played(const std::string& recording, const vxcam::PlayOptions& options = fast())
    {
        path_ = std::filesystem::temp_directory_path() /
                ("played-" + std::to_string(::getpid()) + ".vxw");
        std::ofstream(path_, std::ios::binary) << recording;
        player_.emplace(path_.string(), options);
        thread_ = std::thread([this] {
            books_ = player_->play([this] {
                ++asked_;
                return stopped_.load();
            });
            ended_ = true;
        });
        link_ = connected(player_->port());
    }
    ~Played()
    {
        stopped_ = true;
        finish();
        std::filesystem::remove(path_);
    }
    tcByteLink& link() { return link_; }
    void stop() { stopped_ = true; }
    int asked() const { return asked_; } // whether it is stopped
    // By itself, the client still being there.
    bool ends() const
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(8);
        while (!ended_ && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return ended_;
    }
    // Messages that come whole, until nothing comes any more.
    uint64_t drain()
    {
        uint64_t count = 0;
        while (link_.Read().Came) {
            ++count;
        }
        return count;
    }
    // The client leaves.
    vxcam::PlayBooks finish()
    {
        link_.Close();
        if (thread_.joinable()) thread_.join();
        return books_;
    }

private:
    std::filesystem::path path_;
    std::optional<vxcam::WirePlayer> player_;
    std::atomic<bool> stopped_{false}, ended_{false};
    std::atomic<int> asked_{0};
    vxcam::PlayBooks books_;
    std::thread thread_;
    tcByteLink link_;
};

constexpr uint64_t kMany = 4800; // more than the buffers of a connection hold

std::string manyMessages()
{
    const std::string message = wireMessage(0x66, std::string(8000, 'p'));
    std::string blocks;
    uint32_t number = 0;
    for (uint64_t i = 0; i < kMany; i += 480) {
        std::string records;
        for (int j = 0; j < 480; ++j) {
            records += wireRecord(2, 1, message);
        }
        blocks += wireBlock(number++, 0, 0, records, 480);
    }
    return wireHead() + blocks + wireEnd(number);
}

} // namespace

TEST(WirePlayer, SendsNothingOfMessagesThatMissingBlocksCut)
{
    const std::string first = wireMessage(0x60, low(500, 4)), cut = wireMessage(0x61, low(1, 4)),
                      last = wireMessage(0x7F, low(7, 4));
    Played played(wireHead() + wireBlock(0, 0, 0, wireRecord(2, 1, first + cut.substr(0, 10)), 1) +
                  wireBlock(2, 0, 0, wireRecord(2, 2, "tail" + last), 1) + wireEnd(3));
    EXPECT_EQ(played.link().Read().Id, 0x60u);
    const tsFrame behind = played.link().Read();
    EXPECT_EQ(behind.Id, 0x7Fu);
    EXPECT_EQ(behind.Payload, (tBytes{7, 0, 0, 0}));
    EXPECT_EQ(played.finish().played, 2u);
}

TEST(WirePlayer, EndsWithAClientThatTakesNothingAnyMore)
{
    vxcam::PlayOptions options = fast();
    options.patience = std::chrono::milliseconds(200);
    Played played(manyMessages(), options);
    ASSERT_TRUE(played.ends());
    const uint64_t whole = played.drain();
    const vxcam::PlayBooks books = played.finish();
    EXPECT_EQ(books.played, whole) << "what was torn was not played";
    EXPECT_LT(books.played, kMany);
    EXPECT_FALSE(books.isOver);
}

TEST(WirePlayer, IsStoppedWhileAClientTakesNothing)
{
    Played played(manyMessages());
    ASSERT_TRUE(played.link().Read().Came);
    played.stop();
    EXPECT_TRUE(played.ends());
    EXPECT_FALSE(played.finish().isOver);
}

TEST(WirePlayer, IsStoppedWhileMessagesFlow)
{
    Played played(manyMessages());
    ASSERT_TRUE(played.link().Read().Came);
    played.stop();
    const uint64_t rest = played.drain();
    const vxcam::PlayBooks books = played.finish();
    EXPECT_EQ(books.played, rest + 1);
    EXPECT_LT(books.played, kMany);
}

// What is due goes out together: it is asked less often than there are messages.
TEST(WirePlayer, SendsManyMessagesAtOnce)
{
    constexpr int count = 400;
    const std::string message = wireMessage(0x60, low(500, 4));
    std::string records;
    for (int i = 0; i < count; ++i) {
        records += wireRecord(2, 1, message);
    }
    Played played(wireHead() + wireBlock(0, 0, 0, records, count) + wireEnd(1));
    for (int i = 0; i < count; ++i) {
        const tsFrame one = played.link().Read();
        ASSERT_TRUE(one.Came) << i;
        EXPECT_EQ(one.Payload, (tBytes{0xF4, 1, 0, 0})) << i;
    }
    EXPECT_LT(played.asked(), count / 2);
    EXPECT_EQ(played.finish().played, uint64_t{count});
}

// Between these times lies more than a number of nanoseconds can tell.
TEST(WirePlayer, PlaysTimesThatAreNonsense)
{
    constexpr int64_t late = 5'000'000'000'000'000'000;
    const std::string first = wireMessage(0x60, low(500, 4)), second = wireMessage(0x61, low(1, 4));
    for (const double speed : {1.0, 0.001}) {
        vxcam::PlayOptions options;
        options.speed = speed;
        Played played(
            wireHead() +
                wireBlock(0, 0, 0, wireRecord(2, late, first) + wireRecord(2, -late, second), 2) +
                wireEnd(1),
            options);
        EXPECT_EQ(played.link().Read().Id, 0x60u);
        EXPECT_EQ(played.link().Read().Id, 0x61u) << "is long due";
    }
}

TEST(WirePlayer, SleepsWhileItWaitsForTheClient)
{
    using Clock = std::chrono::steady_clock;
    const std::string answer = wireMessage(0x7F, low(7, 4)), question = wireMessage(0x30, "");
    Played played(wireHead() +
                  wireBlock(0, 0, 0, wireRecord(2, 1, answer) + wireRecord(3, 2, question), 2) +
                  wireEnd(1));
    ASSERT_TRUE(played.link().Read().Came);
    const Clock::time_point begin = Clock::now();
    const int before = played.asked();
    while (played.asked() < before + 20 && Clock::now() - begin < std::chrono::seconds(10)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_GT(Clock::now() - begin, std::chrono::milliseconds(200));
}

// A question is noted when it has been handed over, with the time before that.
TEST(WirePlayer, SendsWhatCameOfAMessageBehindIt)
{
    const std::string heartbeat = wireMessage(0x69, low(0, 2) + low(250, 2) + low(200, 2)),
                      packet = wireMessage(0x66, std::string(40, 'p')),
                      command = wireMessage(0x36, std::string(12, '\0'));
    Played played(wireHead() +
                  wireBlock(0, 0, 0,
                            wireRecord(2, 10, heartbeat) + wireRecord(2, 30, packet) +
                                wireRecord(2, 31, packet) + wireRecord(3, 20, command),
                            4) +
                  wireEnd(1));
    EXPECT_EQ(played.link().Read().Id, 0x69u);
    EXPECT_TRUE(played.link().Silent(200)) << "was not asked for";
    played.link().SendBytes(tBytes(command.begin(), command.end()));
    EXPECT_EQ(played.link().Read().Id, 0x66u);
    EXPECT_EQ(played.link().Read().Id, 0x66u);
    EXPECT_EQ(played.finish().taken, 1u);
}

// The thread that notes it may have to wait for its turn, while frames come.
TEST(WirePlayer, SendsWhatCameOfAMessageThatWasNotedLongAfterIt)
{
    constexpr int packets = 3000;
    const std::string packet = wireMessage(0x66, std::string(40, 'p')),
                      property = wireMessage(0x30, std::string(8, '\0')),
                      command = wireMessage(0x36, std::string(12, '\0'));
    std::string records = wireRecord(2, 10, wireMessage(0x60, low(500, 4)));
    for (int i = 0; i < packets; ++i) {
        records += wireRecord(2, 1'000'000 + 100'000 * i, packet);
    }
    // Two threads of the client, of which the first one was the last to be noted.
    records += wireRecord(3, 500'000, property) + wireRecord(3, 20, command);
    Played played(wireHead() + wireBlock(0, 0, 0, records, packets + 3) + wireEnd(1));
    EXPECT_EQ(played.link().Read().Id, 0x60u);
    EXPECT_TRUE(played.link().Silent(200)) << "was not asked for";
    played.link().SendBytes(tBytes(command.begin(), command.end()));
    EXPECT_TRUE(played.link().Silent(200)) << "came of both";
    played.link().SendBytes(tBytes(property.begin(), property.end()));
    for (int i = 0; i < packets; ++i) {
        ASSERT_EQ(played.link().Read().Id, 0x66u) << i;
    }
    const vxcam::PlayBooks books = played.finish();
    EXPECT_EQ(books.taken, 2u);
    EXPECT_EQ(books.skipped + books.unexpected, 0u);
}
