#include <vxcamkit/link_check.h>

#include "camera/camera_core.h"

#include "vxcamiface.h"

#include <algorithm>
#include <array>
#include <random>

namespace vxcam {

namespace {

constexpr int kLinkTest = 103;
constexpr uint32_t kOwnBytes = 0; // the pattern

using Block = std::array<uint8_t, LinkCheck::kMessageBytes>;

} // namespace

LinkCheck CameraCore::checkLink(int messages)
{
    const Command command(*this, "link test");
    std::mt19937 random(std::random_device{}());
    LinkCheck check;
    const auto start = std::chrono::steady_clock::now();
    for (int message = 1; message <= messages; ++message) {
        Block sent{}, received{};
        std::generate(sent.begin(), sent.end(), [&] { return static_cast<uint8_t>(random()); });
        tsLinkTestCmd test{};
        test.Pattern = kOwnBytes;
        test.Count = 1;
        test.DataLength = LinkCheck::kMessageBytes;
        test.SendData = sent.data();
        test.ReceiveBuffer = received.data();
        require(VXEngineeringCommand(handle_, kLinkTest, &test),
                "message " + std::to_string(message) + " of the link test");
        ++check.messages;
        const bool isIntact = sent == received && test.AnswersReceived == 1 &&
                              test.ReceivedBytes == LinkCheck::kMessageBytes;
        if (!isIntact) ++check.damaged;
    }
    const std::chrono::duration<double, std::micro> elapsed =
        std::chrono::steady_clock::now() - start;
    check.megabytesPerSecond = 2.0 * messages * LinkCheck::kMessageBytes / elapsed.count();
    return check;
}

} // namespace vxcam
