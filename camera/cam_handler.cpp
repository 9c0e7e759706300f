// CAM: the open cameras and their counters, for whoever looks into the process.
#include "cam_handler.h"

#include "HSocket.h"
#include "tcDbgd.h"
#include "tcVXCamera.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <iterator>
#include <string>

namespace {

struct tsFigure {
    const char* name;
    uint64_t tsStatistics::*value;
};

// In the order of the record.
constexpr tsFigure gaFigures[] = {
    {"BytesReceived", &tsStatistics::BytesReceived},
    {"BytesSent", &tsStatistics::BytesSent},
    {"MessagesReceived", &tsStatistics::MessagesReceived},
    {"MessagesBad", &tsStatistics::MessagesBad},
    {"MessagesSent", &tsStatistics::MessagesSent},
    {"BytesSkipped", &tsStatistics::BytesSkipped},
    {"ChecksumErrors", &tsStatistics::ChecksumErrors},
    {"ConnectionsLost", &tsStatistics::ConnectionsLost},
    {"Reconnects", &tsStatistics::Reconnects},
    {"HeartBeats", &tsStatistics::HeartBeats},
    {"CameraErrors", &tsStatistics::CameraErrors},
    {"RequestsSent", &tsStatistics::RequestsSent},
    {"RequestsAnswered", &tsStatistics::RequestsAnswered},
    {"RequestsTimedOut", &tsStatistics::RequestsTimedOut},
    {"RequestsFailed", &tsStatistics::RequestsFailed},
    {"RequestsPending", &tsStatistics::RequestsPending},
    {"RequestsBusy", &tsStatistics::RequestsBusy},
    {"AnswersLate", &tsStatistics::AnswersLate},
    {"FramesRequested", &tsStatistics::FramesRequested},
    {"FramesComplete", &tsStatistics::FramesComplete},
    {"FramesIncomplete", &tsStatistics::FramesIncomplete},
    {"FramesFailed", &tsStatistics::FramesFailed},
    {"FramesAborted", &tsStatistics::FramesAborted},
    {"FramesPending", &tsStatistics::FramesPending},
    {"FramesUnasked", &tsStatistics::FramesUnasked},
    {"PacketsReceived", &tsStatistics::PacketsReceived},
    {"PacketsExpected", &tsStatistics::PacketsExpected},
    {"PacketsMissing", &tsStatistics::PacketsMissing},
    {"PacketsDuplicate", &tsStatistics::PacketsDuplicate},
    {"PacketsStray", &tsStatistics::PacketsStray},
    {"PacketsShort", &tsStatistics::PacketsShort},
    {"PacketsRunning", &tsStatistics::PacketsRunning},
    {"PacketsOutside", &tsStatistics::PacketsOutside},
    {"PixelsOutside", &tsStatistics::PixelsOutside},
    {"LastFramePackets", &tsStatistics::LastFramePackets},
    {"LastFrameMissing", &tsStatistics::LastFrameMissing},
    {"FramesUnderrun", &tsStatistics::FramesUnderrun},
    {"PacketsDamaged", &tsStatistics::PacketsDamaged},
};
static_assert(std::size(gaFigures) * sizeof(uint64_t) == sizeof(tsStatistics), "all of them");

// One word: a host name may hold what the application put there.
std::string Word(std::string text)
{
    const auto isOdd = [](unsigned char c) { return std::isgraph(c) == 0; };
    std::replace_if(text.begin(), text.end(), isOdd, '?');
    return text.empty() ? "-" : text;
}

// Empty when the camera is not open any more.
std::string LineOf(int handle)
{
    tsCameraFacts facts;
    if (!tcVXCamera::Describe(handle, &facts)) return "";
    std::string line = "handle=" + std::to_string(handle) + " type=" + Word(facts.type) +
                       " address=" + Word(facts.address) + " link=" + facts.link;
    for (const tsFigure& figure : gaFigures)
        line.append(" ")
            .append(figure.name)
            .append("=")
            .append(std::to_string(facts.figures.*figure.value));
    return line + "\n";
}

std::string AllLines()
{
    std::string lines;
    for (const int handle : tcVXCamera::Handles())
        lines += LineOf(handle);
    return lines.empty() ? "no open camera\n" : lines;
}

// Of a text without blanks around it; -1 when it is none.
int HandleOf(const std::string& text)
{
    const bool isNumber =
        !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    const unsigned long long number =
        isNumber ? std::strtoull(text.c_str(), nullptr, 10) : ULLONG_MAX;
    return number > INT_MAX ? -1 : static_cast<int>(number);
}

std::string Stripped(const std::string& text)
{
    constexpr const char* blanks = " \t";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

// CAM - all open cameras; CAM:HANDLE - one of them.
class tcDbgdWB_cam : public tcDbgdWB
{
public:
    tcDbgdWB_cam()
        : tcDbgdWB("CAM", "CAM:[HANDLE]\n"
                          "   Lists the open cameras with their counters, or that one\n")
    {}

    void Run(HSocket* client, char* args) override
    {
        tcDbgd::GetLog().logDebug(5, "tcDbgdWB_cam:Run command = %s", args);
        const std::string wanted = Stripped(args);
        std::string reply = wanted.empty() ? AllLines() : LineOf(HandleOf(wanted));
        if (reply.empty()) reply = wanted + ": no open camera has this handle\n";
        if (client != nullptr) client->SendAll(reply.data(), static_cast<int>(reply.size()));
    }
};

bool Register()
{
    auto* handler = new tcDbgdWB_cam;
    if (tcDbgd::getItem()->RegisterWB(handler) == 0) return true;
    delete handler;
    return false;
}

} // namespace

void RegisterCamHandler()
try {
    static const bool sbIsOurs = Register();
    (void)sbIsOurs;
} catch (...) { // out of memory: the next camera has another try
}
