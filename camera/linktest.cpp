// Engineering: user-defined messages, the link test and the engineering command.
#include "guarded.h"
#include "tcVXCamera.h"

#include <algorithm>
#include <cstring>
#include <random>

namespace {

// What a link test sends and how often.
struct tsLinkTestPlan {
    uint32_t messages; // 0 goes on until a send fails
    uint16_t answers;  // wanted by a message that wants any
    bool onlyLast;     // only the last message wants answers
};

tsLinkTestPlan PlanOf(const tsLinkTestCmd& test)
{
    constexpr uint32_t manyAnswers = 10000;
    if (test.Mode == 0) return {test.Count, 1, false};
    if (test.Mode == 1) return {test.Count, 1, true};
    const uint32_t wanted = test.Count == 0 ? manyAnswers : test.Count;
    return {1, static_cast<uint16_t>(std::min<uint32_t>(wanted, UINT16_MAX)), false};
}

void FillPattern(const tsLinkTestCmd& test, uint8_t* data, size_t length)
{
    static thread_local std::minstd_rand random(std::random_device{}());
    for (size_t i = 0; i < length; ++i) {
        switch (test.Pattern) {
        case 1:
            data[i] = static_cast<uint8_t>(i);
            break;
        case 2:
            data[i] = i % 2 == 0 ? 0x00 : 0xFF;
            break;
        case 3:
            data[i] = static_cast<uint8_t>(random() >> 8);
            break;
        default:
            data[i] = test.SendData ? static_cast<const uint8_t*>(test.SendData)[i] : 0;
        }
    }
}

} // namespace

// Ends the attachment of a link test's record.
class tcVXCamera::tcLinkTestEnd
{
public:
    explicit tcLinkTestEnd(tcVXCamera& camera) : mCamera(camera) {}
    ~tcLinkTestEnd()
    {
        const tStackLock lock(mCamera.mStackMutex);
        mCamera.mpLinkTest = nullptr;
    }
    tcLinkTestEnd(const tcLinkTestEnd&) = delete;
    tcLinkTestEnd& operator=(const tcLinkTestEnd&) = delete;

private:
    tcVXCamera& mCamera;
};

int tcVXCamera::SendUserDefined(void* message)
{
    LogEntered("SendUserDefined");
    if (message == nullptr) return eVXArgument;
    return SendMessage(static_cast<tsMsgHeader*>(message));
}

int tcVXCamera::SendLinkTestData(tsLinkTestCmd* test)
{
    LogEntered("SendLoopbackData"); // Kept: names another operation
    if (test == nullptr) return eVXArgument;
    {
        std::lock_guard<std::recursive_mutex> lock(mStackMutex);
        if (mpLinkTest != nullptr) return eVXFailed;
        mpLinkTest = test;
    }
    const vx::tcNoCancel noCancel;
    const tcLinkTestEnd end(*this);
    return RunLinkTest(*test);
}

int tcVXCamera::RunLinkTest(tsLinkTestCmd& test)
{
    const tsLinkTestPlan plan = PlanOf(test);
    const int length = std::clamp(static_cast<int32_t>(test.DataLength), 0, gnLinkTestBytes);
    tsLinkTestMsg message{};
    message.DataLength = static_cast<uint16_t>(length);
    message.Pattern = test.Pattern;
    int result = eVXOk;
    for (uint32_t sent = 1; result == eVXOk; ++sent) {
        if (mbClosing) return eVXFailed;
        const bool isLast = sent == plan.messages;
        message.Answers = plan.onlyLast && !isLast ? 0 : plan.answers;
        FillPattern(test, message.Data, static_cast<size_t>(length));
        ++test.MessagesSent;
        const int bytes = gnLinkTestHeadBytes + length;
        if (message.Answers == 0) {
            result = SendRow(cmdSendLinkTestData.Row(), &message, bytes);
        } else {
            result = AskRow(cmdSendLinkTestData.Row(), &message, bytes, nullptr, nullptr,
                            message.Answers);
        }
        if (isLast) break;
    }
    return result;
}

int tcVXCamera::EngineeringCommand(int command, void* data)
{
    LogEntered("EngineeringCommand");
    if (data == nullptr) return eVXArgument;
    auto* words = static_cast<uint32_t*>(data);
    const auto* bytes = static_cast<const uint8_t*>(data);
    const auto* floats = static_cast<const float*>(data);
    switch (command) {
    case 100: {
        unsigned long value = 0;
        const int result = Read32Data(words[0], &value);
        if (result == eVXOk) words[1] = static_cast<uint32_t>(value);
        return result;
    }
    case 101:
        return Write32Data(words[0], words[1]);
    case 102: {
        uint16_t value = 0;
        memcpy(&value, bytes + 4, sizeof value);
        return WriteDAC(bytes[0], value, bytes[8] != 0);
    }
    case 103:
        return SendLinkTestData(static_cast<tsLinkTestCmd*>(data));
    case 104: {
        int size = sizeof(TVXCameraHardware);
        return SetCameraHardwareInfo(static_cast<TVXCameraHardware*>(data), &size);
    }
    case 105:
        return SetPID(floats[0], floats[1], floats[2]);
    case 106:
        return GetPID(static_cast<tsSetPIDCmd*>(data));
    case 107:
        return SetFilter(static_cast<tsSetFilterCmd*>(data));
    default:
        return eVXArgument;
    }
}
