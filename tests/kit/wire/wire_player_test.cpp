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

// Plays a recording once, as fast as can be, to one client.
class Played
{
public:
    explicit Played(const std::string& recording)
    {
        path_ = std::filesystem::temp_directory_path() /
                ("played-" + std::to_string(::getpid()) + ".vxw");
        std::ofstream(path_, std::ios::binary) << recording;
        vxcam::PlayOptions options;
        options.speed = 0;
        player_.emplace(path_.string(), options);
        thread_ =
            std::thread([this] { books_ = player_->play([this] { return stopped_.load(); }); });
        link_ = tcByteLink::Connect(player_->port());
    }
    ~Played()
    {
        stopped_ = true;
        finish();
        std::filesystem::remove(path_);
    }
    tcByteLink& link() { return link_; }
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
    std::atomic<bool> stopped_{false};
    vxcam::PlayBooks books_;
    std::thread thread_;
    tcByteLink link_;
};

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
