// One client while it is served: its messages in, the camera's answers out.
#ifndef TCSIMCLIENT_H
#define TCSIMCLIENT_H

#include "tcSimCamera.h"
#include "tcSimFrameReader.h"
#include "tcSimLedger.h"
#include "tcSimOutput.h"
#include "tcSimWorker.h"

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

// Codes of the camera errors; the sub-code of a refused value is the command's id.
enum teSimErrorCode : uint8_t { eSimErrorProtocol = 1, eSimErrorBusy = 2, eSimErrorRefused = 3 };
enum teSimProtocolError : uint8_t {
    eSimWrongVersion = 1,
    eSimWrongLength = 2,
    eSimUnknownId = 3,
    eSimTooLong = 4
};
enum teSimBusy : uint8_t { eSimReadoutRunning = 1, eSimInUse = 2 };

// What all that serves a client shares. Everything but the ledger belongs to the server's thread.
struct tsSimContext {
    const tsSimOptions& options;
    tcSimCamera& camera;
    tcSimLedger& ledger;
    tcSimWorker& worker;
    asio::io_context& io;
    std::function<double()> cameraTime;
    std::function<tsSimMoment(double cameraTime)> moment; // when that is or was
    tcSimFaults& faults;
    std::function<void(const tsSimFault& how)> reboot; // ends the client, too
    std::chrono::steady_clock::duration WallTime(double cameraSeconds) const;
    tsSimTunables Tunables() const;
};

struct tsSimRequest {
    uint32_t id;
    uint16_t length;
    const uint8_t* payload;
};

// Threads: the server's.
// Owns: the connection. Lives as long as something is under way on it.
class tcSimClient : public std::enable_shared_from_this<tcSimClient>
{
public:
    tcSimClient(asio::ip::tcp::socket socket, tsSimContext& context, std::string name,
                std::function<void()> left);

    void Begin();
    // Closes the connection in order. What the client has not read yet still reaches it.
    void End();
    // The client gets a reset instead.
    void Break();
    // Whether the client has closed its side; if so, what it sent before is done and it is ended.
    bool HasLeft();

    // Faults were injected. A kind of them was lifted: what it does ends.
    void FaultsCome();
    void Relieve(teSimFault kind);

    // ---- for the handlers
    tcSimCamera& Camera() { return mtContext.camera; }
    void Answer(const tsAnswer& answer, const void* payload, size_t bytes, uint32_t times = 1);
    void Error(uint8_t code, uint8_t subCode, const std::string& text);
    void Judge(const tsSimRequest& request, const tsSimRefusal& refusal); // error if refused
    void ReadArea(const tsSimRequest& request);
    void ReadBinned(const tsSimRequest& request);
    void ReadMaskBinned(const tsSimRequest& request);
    void AbortRead(const tsSimRequest& request);
    void Reset(const tsSimRequest& request);
    void EnableNoOps(const tsSimRequest& request);
    void TestLink(const tsSimRequest& request);

private:
    void Read();
    void OnMessage(const tsMsgHeader& header, const uint8_t* payload);
    void OnTooLong(const tsMsgHeader& header);
    void ProtocolError(teSimProtocolError error, const std::string& text);
    void Trace(const std::string& text);
    void HeartBeatLater();
    void HeartBeatNow();
    void NoOpLater();
    void Leave();

    // Faults (mishaps.cpp)
    void Suffer(const tsSimFault& fault);
    void StopReading(double seconds);
    void ReadAgain();
    tcSimBadLine* BadLine();
    bool HeartBeats() const;

    // Readouts (shooting.cpp)
    template <class Request, class Plan>
    void StartReadout(const tsSimRequest& request, Plan plan);
    void Shoot();
    void WantPicture(uint32_t frame);
    void HavePicture(uint64_t shot, uint32_t frame, std::shared_ptr<tcSimPicture> picture);
    void SendPicture();
    void StopReadout(const char* why);

    asio::ip::tcp::socket mtSocket;
    tsSimContext& mtContext;
    const std::string msName;
    std::function<void()> mpLeft;
    tcSimFrameReader mtReader;
    const std::chrono::steady_clock::time_point mtBegin = std::chrono::steady_clock::now();
    std::unique_ptr<tcSimBadLine> mpLine; // from the first fault on
    tcSimOutput mtOutput;
    std::array<uint8_t, 65536> maInput;
    bool mbEnded = false, mbReading = false, mbDeaf = false;
    std::chrono::steady_clock::time_point mtHeartBeatBefore;
    asio::steady_timer mtHeartBeat, mtNoOp, mtShutter, mtDeaf;
    std::chrono::steady_clock::time_point mtHeartBeatsAgain;
    uint32_t mnNoOps = 0;
    std::chrono::milliseconds mtNoOpInterval{0};

    tsSimPlan mtPlan;
    uint64_t mnShot = 0;   // counts readouts, so that a picture that comes late is known
    uint32_t mnWanted = 0; // the frame whose picture was asked for last, with what
    tsSimTunables mtWanted;
    uint32_t mnPictureFrame = 0;
    std::shared_ptr<tcSimPicture> mpPicture; // of frame mnPictureFrame
    tsSimJob mtReusedJob;
    std::shared_ptr<tcSimPicture> mpReused;
};

// Does what a well-formed command asks (handlers.cpp).
void HandleSimCommand(tcSimClient& client, const tsSimRequest& request);

#endif
