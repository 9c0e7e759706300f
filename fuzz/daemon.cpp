// Requests to the debug daemon.
//
// Input: requests, each behind its length in two bytes. A logger is there to be listed, set and
// redirected; between requests it logs, so that whatever consumer it got is used. A camera is there
// to be listed, with the handle 0.
#include "cam_handler.h"
#include "tcDbgd.h"
#include "tcLog.h"
#include "tcLogConsumer.h"
#include "tcPair.h"
#include "tcVXCamera.h"

#include <iostream>
#include <memory>
#include <sstream>

namespace {

constexpr int nPatienceMs = 20;
constexpr size_t nLongest = 1400; // more than a request may have

tcLog& Logger()
{
    static tcLog& log = *new tcLog("fuzz", 0);
    return log;
}

// A camera without a connection.
class tcIdleCamera : public tcVXCamera
{
public:
    tcIdleCamera() : tcVXCamera(teMonitor::eManual) {}
    int SendMessage(tsMsgHeader*) override { return eVXFailed; }
};

void MakeCamera()
{
    static const tcVXCamera& camera = *new tcIdleCamera;
    Require(camera.GetHandle() == 0, "it is the first one");
    RegisterCamHandler();
}

void Serve(const std::string& request)
{
    auto client = std::make_unique<HSocket>();
    tcPair pair(*client);
    pair.Ask(request);
    tcDbgd::StartWorkerBee(client.release());
    const std::string answer = pair.Answer();
    if (request.compare(0, 5, "ECHO:") == 0) Require(!answer.empty(), "an echo has an end of line");
    if (request.compare(0, 4, "CAM:") == 0) {
        Require(!answer.empty() && answer.back() == '\n', "CAM answers with a line");
        Require(request.size() > 5 || answer.compare(0, 9, "handle=0 ") == 0 ||
                    answer.find(": no open camera") != std::string::npos,
                "it is the camera, or none");
    }
    Logger().logError("served %zu bytes", request.size());
    Logger().logDebug(1, "with %s", answer.c_str());
}

// A LOG handler of its own for each input, so that no redirection is remembered; afterwards
// everything is as it was.
class tcFreshLogHandler
{
public:
    tcFreshLogHandler()
    {
        tcDbgd* daemon = tcDbgd::getItem();
        tcDbgdWB* builtIn = DbgdWB_logPtr;
        daemon->RemoveWB(builtIn); // of the first input; later there is none
        Require(daemon->RegisterWB(&mHandler) == 0, "the token is free");
    }
    ~tcFreshLogHandler()
    {
        Require(tcDbgd::getItem()->RemoveWB(&mHandler) == 0, "the handler is still there");
        tcLog::sbDebugEnabled = true;
        for (const auto& entry : tcLog::CopyOfMap()) {
            if (entry.second == nullptr) continue;
            entry.second->SetConsumer(nullptr);
            entry.second->setDbgLevel(0);
        }
    }
    tcFreshLogHandler(const tcFreshLogHandler&) = delete;
    tcFreshLogHandler& operator=(const tcFreshLogHandler&) = delete;

private:
    tcDbgdWB_log mHandler;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    tcDbgd::snClientPatience = nPatienceMs;
    static std::ostringstream& nowhere = *new std::ostringstream;
    std::streambuf* before = std::cout.rdbuf(nowhere.rdbuf());
    Logger();
    MakeCamera();
    const auto handler = std::make_unique<tcFreshLogHandler>();
    tcFuzzInput input(bytes, count);
    for (int i = 0; i < 12 && input.Left() > 0; ++i) {
        const std::string request = Modest(input.Text(input.U16() % nLongest));
        if (!request.empty()) Serve(request);
    }
    nowhere.str("");
    std::cout.rdbuf(before);
    return 0;
}
