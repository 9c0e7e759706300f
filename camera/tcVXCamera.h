// The camera: everything an application can ask of one, apart from how its messages travel.
//
// A transport derives from tcVXCamera, hands received bytes to mpParser and supplies SendMessage.
#ifndef TCVXCAMERA_H
#define TCVXCAMERA_H

#include "tcCamParser.h"
#include "tcLog.h"
#include "vxcamext.h"
#include "vxcamtypes.h"
#include "vxexport.h"
#include "vxmessages.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

template <class Callback>
class tcCallbackSlot;
class tcLedger;
struct tsCameraFacts;
struct tsExtension;
struct tsFrameEnd;
struct tsFrameNews;
struct tsPacketFacts;
struct tsReadoutFacts;
struct tsRegion;
struct tsSpot;
enum teFrameKind : int;

// Rows and columns that an image buffer holds; not known until the camera has told them.
struct tsImageLimits {
    bool known = false;
    uint32_t rows = 2;
    uint32_t columns = 1024;
    uint64_t pixels = 0; // in all, where known
};

// A caller that sleeps until its request has ended.
struct tsRequestWaiter {
    bool ended = false;
    int result = 0;
};

// One kind of answer that can be waited for. Pending while respNeeded > respCount.
struct tsRequestItem {
    std::atomic<int32_t> respNeeded{0};
    std::atomic<int32_t> respCount{0};
    void* result1 = nullptr;           // where the answer goes; of image items, the image buffer
    void* result2 = nullptr;           // a second result, or the size of the first
    uint32_t frameLimit = 0;           // frames of the running readout (image items)
    tsImageLimits limits;              // of the image buffer, as they were when the readout started
    tsRequestWaiter* waiter = nullptr; // who sleeps for the running request, if anybody
    std::atomic<int32_t> timeout{gnImageTimeout}; // ms left, counted down by the monitor
    std::atomic<uint8_t> status{0x88};            // geItemAnswered or geItemTimedOut

    bool IsPending() const { return respNeeded > respCount; }
};
inline constexpr uint8_t gnItemAnswered = 0x88; // armed or answered
inline constexpr uint8_t gnItemTimedOut = 'U';

// Where the answer to GetBinningSequence goes; each may be null.
struct tsBinningSequenceResults {
    unsigned char* vertical;
    unsigned char* horizontal;
    unsigned char* entries;
};

// One camera: its requests, its readout and its application callbacks.
//
// Results are those of teVXResult. A setter sends one message and does not wait: 0, or -1 where the
// result of the send is handed on. A getter sends one message and waits for the answer: 0, -1 if a
// request of the same kind is pending (nothing is sent) or if called on the camera's own receive
// thread, -2 if no answer came in time (3 to 20 s, see gaItemTimeouts) or the message could not be
// sent; its outputs are written only on success, and an output pointer may be null unless stated.
//
// Threads: operations may be called from any thread; one request of a kind at a time. One receive
//   thread of the transport runs the dispatcher and all callbacks, in the order of the messages; a
//   monitor thread ends requests in time.
// Locks: mStackMutex (recursive) guards the request items, the readout and the cached answers. It
//   is held for moments only: no lock is held while a callback runs or a caller waits. A callback
//   may send setters, start readouts and abort, and do everything with other cameras; an operation
//   that waits for the callback's own camera returns -1 there. Inside mStackMutex may be taken
//   mWaitMutex, mNoOpsMutex and mAreaMutex, never the other way round.
// Owns: its parser, its default image buffer, its logger and its monitor thread.
class VX_EXPORT tcVXCamera
{
public:
    // ---- Registry: cameras by handle ---------------------------------------------------------
    // Handles count up from 0 and are not used again. Created with the first camera, never
    // destroyed.
    static std::map<unsigned, tcVXCamera*>* gpCameraMap;
    static unsigned gnCameraCount;
    static unsigned DllVersion;

    // The camera with that handle, or null. It may be closed as soon as it has been found.
    static tcVXCamera* Find(int handle);
    // A camera in use, or none: it is not deleted before it is let go. Not found are cameras that
    // are being opened or closed.
    class tcHold
    {
    public:
        explicit tcHold(int handle);
        ~tcHold();
        tcHold(const tcHold&) = delete;
        tcHold& operator=(const tcHold&) = delete;

        tcVXCamera* operator->() const { return mpCamera; }
        tcVXCamera& operator*() const { return *mpCamera; }
        explicit operator bool() const { return mpCamera != nullptr; }

    private:
        tcVXCamera* mpCamera = nullptr;
    };
    // Closes and deletes a camera made with new. Calls in progress on other threads are ended, with
    // -1 where they wait, and waited for; so are those of its callbacks to other cameras. 0; -3 if
    // there is none; -1 on its own receive thread, and on that of another camera which is being
    // closed by this one's.
    static int Close(int handle);
    // Handles of the cameras that are open.
    static std::vector<int> Handles();
    // What is known of an open camera; false when there is none. Waits for nothing that a camera or
    // a callback may keep, nor does closing or deleting the camera wait for it.
    static bool Describe(int handle, tsCameraFacts* facts);
    // Cameras that this thread makes during its lifetime cannot be held before Opened().
    class tcOpening
    {
    public:
        tcOpening();
        ~tcOpening();
        tcOpening(const tcOpening&) = delete;
        tcOpening& operator=(const tcOpening&) = delete;
    };
    void Opened();

    // Stores and returns the library's version: major in the high 16 bits, build in the low.
    static int GetVersion();

    // Stores the process-wide error callback; returns 0.
    static int SetGlobalErrorCallback(tpErrorCallback callback);
    static std::atomic<tpErrorCallback> spGlobalErrorMsgCallBack;

    // ---- Life --------------------------------------------------------------------------------
    // Takes the next handle. Without a running monitor nothing times out by itself: whoever made
    // the camera calls MonitorStep().
    enum class teMonitor { eRun, eManual };
    explicit tcVXCamera(teMonitor monitor = teMonitor::eRun);
    tcVXCamera(const tcVXCamera&) = delete;
    tcVXCamera& operator=(const tcVXCamera&) = delete;
    virtual ~tcVXCamera();

    // The opening handshake: asks for the hardware information, learns the sensor's size and
    // allocates the default image buffer. Non-zero when the camera answered. Waits up to 10 s, but
    // not beyond the end of the connection.
    virtual int Initialize();

    int GetHandle() const { return mnHandle; }

    // What the camera has done so far; waits neither for a lock nor for a callback. `size` is that
    // of the caller's record: 0; -4 when it is smaller than the first version's, -5 for a null
    // pointer. What lies behind the figures known here is zeroed.
    int GetStatistics(tsStatistics* statistics, int size) const;
    static int CheckStatistics(const tsStatistics* statistics, int size); // the same refusals

    // ---- Callbacks: null switches off; return 0 -----------------------------------------------
    virtual int SetHeartBeatCallback(tpHeartBeatCallback callback);
    virtual int SetErrorCallback(tpErrorCallback callback);
    virtual int SetUserDefinedCallback(tpUserDefinedCallback callback);
    virtual int SetImageDataCallback(tpImageDataCallback callback);

    // As told in vxcamext.h.
    int SetFrameCallback(tpFrameCallback callback, void* user);
    int SetLinkCallback(tpLinkCallback callback, void* user);
    int SetHeartBeatRecordCallback(tpHeartBeatRecordCallback callback, void* user);
    int SetCameraErrorCallback(tpCameraErrorCallback callback, void* user);
    int SetTap(unsigned what, tpTapCallback callback, void* user);
    static int SetOpeningTap(unsigned what, tpTapCallback callback, void* user);
    void TakeOpeningTap(); // the calling thread's

    // ---- Requests ----------------------------------------------------------------------------
    // Raises an item's needed answers by `count` and starts its time-out; -1 if it is pending.
    int InitReqStackItem(int item, int count);
    // Arms the item, sends and waits for `count` answers, stored where the results point.
    int SendAndWait(tuCameraMessages* msg, int item, long* result1, long* result2, int count);
    // How long that waits at most on the calling thread, 0: up to the request's time-out; -5 for
    // less.
    static int SetPatience(int ms);
    // Ends all that wait in SendAndWait: -2.
    int GiveUpQuestions();
    // Waits until nothing is pending and no image callback runs: 0. After about timeoutMs -2, and
    // everything pending is given up as by AbortRead; when only a callback has not returned,
    // nothing is.
    virtual int WaitCompletion(int timeoutMs);
    // Answers still missing, over all items.
    int numOpsPending();
    // Asks the camera for `count` no-op messages at an interval, and renews that before they run
    // out; a count of 0 ends it. Returns the send result.
    virtual int EnableNoOps(int intervalMs, int count);
    // The monitor thread's entry, its body, and one of its steps of 100 ms.
    static void* DispatchMonitorStackThread(void* camera);
    void MonitorStack();
    void MonitorStep();

    // ---- Dispatch ----------------------------------------------------------------------------
    // The parser's callback; `camera` is the tcVXCamera. Always true.
    static bool DispatchCallbackParser(int status, void* message, int length, unsigned checksum,
                                       void* camera);
    // One message from the camera. `message` holds header and `Length` payload bytes.
    void CallBackParser(tuCameraMessages* message, bool seqOk, bool checksumOk);
    // On the receive thread, while a message is dispatched: whether the connection broke inside it,
    // so that its end is the beginning of what came over the next one.
    bool MessageSpansConnections() const { return mpParser->SpansBreak(); }
    int64_t ArrivedAfter(const tsMsgHeader& message) const;

    // ---- Readout -----------------------------------------------------------------------------
    // Starts a readout of the current area, 16 bits a pixel; returns at once: 0, or -1 if one is
    // running. `buffer` is uint16_t[sensor rows][sensor columns], null for the camera's own.
    virtual int ReadCCDArea(unsigned short* buffer, short frames, unsigned short flags);
    // Starts a binned readout, 32 bits a pixel. `buffer` is int32_t[sensor rows][sensor columns] in
    // spite of its type, null for the camera's own; `maximum` may be null and follows the frames.
    virtual int ReadCCDBinned(long* buffer, unsigned short* maximum, short frames,
                              unsigned short mode);
    virtual int ReadCCDMaskBinned(long* buffer, unsigned short* maximum, short frames,
                                  unsigned short mode);
    // As ReadCCDArea, 8 bits a pixel. `buffer` is unsigned char[sensor rows][sensor columns].
    int ReadCCDArea8(unsigned char* buffer, short frames, unsigned short flags);
    // How the readout that was started last ended: a teReadoutResult.
    int ReadoutResult();
    // As AbortRead, and sends nothing.
    int GiveUpReadout();
    // The buffers of readouts that are started with a null buffer.
    int SetImageBuffers(void* const* buffers, int count, size_t bytes);
    int ReturnImageBuffer(void* buffer);
    // Sends the abort and gives the readouts up: their buffers are not touched again. Send result.
    // An image callback that runs meanwhile is waited for, though not inside a callback, and 0.4 s
    // at most; behind a longer one, WaitCompletion returns 0.
    virtual int AbortRead();
    // Percent of the running frame that has arrived, at most 100, and 100 if none is running;
    // `frame` gets its index from 1.
    virtual int PercentComplete(unsigned int* frame);
    // Replaces the readouts' time-out (exposure + 20 s): 0 restores it, negative means none.
    virtual int OverrideImageTimout(int ms);
    // Place one pixel packet into a buffer; 0. Pixels outside the image are not stored.
    int CompileMessage(tsPixelData32Msg* packet, long* buffer);
    int CompileMessage16(tsPixelData16Msg* packet, short* buffer);
    int CompileMessage8(tsPixelData8Msg* packet, unsigned char* buffer);
    // Pixels that were not stored so far since they were outside the image.
    uint64_t PixelsOutside() const;

    // ---- Exposure and shutter ----------------------------------------------------------------
    virtual int SetExposure(long ms);
    virtual int SetExposureEx(long exposure);
    virtual int GetExposureTime(long* ms);
    virtual int GetExposureTimeEx(long* exposure);
    virtual int SetShutterParams(long first, long second, int third);
    virtual int GetShutterParams(long* first, long* second, int* third);
    virtual int GetShutterCloseDelay(long* delay);
    virtual int SetShutterOverride(int first, int second);

    // ---- Area --------------------------------------------------------------------------------
    virtual int SetCCDArea(int firstColumn, int firstRow, int columns, int rows);
    virtual int GetCCDArea(int* firstColumn, int* firstRow, int* columns, int* rows); // no message
    // Up to 16 regions, each array int[count]; more, or a null array, gives -5.
    virtual int SetAreaEx(int count, int* rows, int* columns, int* heights, int* widths);
    // The arrays are int[16].
    virtual int GetAreaEx(int* first, int* count, int* rows, int* columns, int* heights,
                          int* widths);

    // ---- Binning -----------------------------------------------------------------------------
    // Tables 0 to 7 (-5 above): one byte for each sensor row, or column; at most 2048 are sent.
    virtual int SetBinParam(unsigned char* table, int index);
    virtual int SetHorBinParam(unsigned char* table, int index);
    // `size` holds the room in `table` and gets the table's length; -4 if it does not fit, -5 for
    // null pointers.
    virtual int GetBinParam(int index, unsigned char* table, int* size);
    virtual int GetHorBinParam(int index, unsigned char* table, int* size);
    // `mask` is unsigned char[sensor rows][sensor columns]; takes 2 ms a row.
    virtual int SetBinMaskParam(unsigned char* mask, int argument);
    // `mask` as above, with room for 512 bytes from the start of its last half-row on.
    virtual int GetBinMaskParam(unsigned char* mask, int* unused, int* argument);
    // 0 to 16 pairs of factors, each 0 to 7; else -5.
    virtual int SetBinningSequence(unsigned char* vertical, unsigned char* horizontal,
                                   unsigned char count);
    // The arrays are unsigned char[16].
    virtual int GetBinningSequence(unsigned char* vertical, unsigned char* horizontal,
                                   unsigned char* count);
    virtual int SetSimpleBinning(int first, int second, float third, float fourth);
    virtual int GetSimpleBinning(int* first, int* second, float* third, float* fourth);

    // ---- Cooling and temperatures ------------------------------------------------------------
    virtual int SetCooling(int on);
    virtual int GetCoolParam(int* cooling);
    virtual int SetCCDTargetTemp(float degrees); // what is no number gives -5
    virtual int GetCCDTargetTemp(float* degrees);
    virtual int GetCCDTemp(short* temperature);   // of the last heartbeat; no message
    virtual int GetBoardTemp(short* temperature); // of the last heartbeat; no message
    virtual int EnableFan(int on);
    virtual int SetPID(float p, float i, float d);
    virtual int GetPID(tsSetPIDCmd* pid);

    // ---- Registers, converters and the camera itself -----------------------------------------
    virtual int SetCCDOffset(unsigned short offset, bool flag); // waits for the acknowledgement
    virtual int WriteDAC(unsigned char channel, unsigned short value, bool flag);
    virtual int Write32Data(unsigned long address, unsigned long value);
    virtual int Read32Data(unsigned long address, unsigned long* value);
    virtual int CameraReset();
    virtual int ClearCCD(int first, int second); // a negative argument gives -5

    // ---- Trigger, pins, gain, filter ---------------------------------------------------------
    virtual int SetTrigger(int trigger);
    virtual int GetTrigger(int* trigger);
    virtual int SetTriggerMode(teExtTrigMode mode, int first, int second);
    virtual int GetTriggerMode(teExtTrigMode* mode, int* first, int* second);
    virtual int SetAutoTriggerReArm(int on);
    virtual int GetAutoTriggerReArm(int* on);
    virtual int SetGPIO(int pin, tePinState state);
    virtual int GetGPIO(); // the pin word itself, or -2 on failure
    virtual int SetGain(int gain);
    virtual int GetGainConfig(int* first, float* second, int* third);
    virtual int SetFilter(tsSetFilterCmd* filter);
    virtual int GetFilter(tsSetFilterCmd* filter);

    // ---- CIS sensors -------------------------------------------------------------------------
    virtual int CISSetShutterMode(teCISShutterMode mode);
    virtual int CISCalibrate(int action);
    virtual int CISSelectChannel(teCISChannelConfig channel);
    virtual int CISCalibrationState(int* state);

    // ---- Recording, test pattern, intervals, mirroring, shearing -------------------------------
    virtual int SetRecording(tsRecordParams* params, int unused);
    // At most 31 values (else -1), modes 0 to 6 (else -5).
    virtual int SetTestPattern(int mode, unsigned short* values, int count);
    virtual int SetImageInterval(unsigned long interval);
    virtual int GetImageIntervals(unsigned long* first, unsigned long* second, unsigned long* third,
                                  unsigned long* fourth);
    virtual int SetCCDImageMirroring(unsigned int horizontal, unsigned int vertical);
    virtual int GetCCDImageMirroring(unsigned int* horizontal, unsigned int* vertical);
    virtual int SetShearingParams(int first, unsigned int second, unsigned int third,
                                  unsigned int fourth);

    // ---- Timing data, parameters, hardware, network --------------------------------------------
    // At most 4356 bytes (-4 for another size); what is not given is sent as 0.
    virtual int SetTimingData(void* data, int size);
    // `data` has room for 4356 bytes; `size`, if given, gets 4356.
    virtual int GetTimingFileData(void* data, int* size);
    // 1 to 2048 bytes, else -5.
    virtual int SetParameter(unsigned int id, void* value, int size);
    // As above; also the camera's own status, or -5 when the answer has another size.
    virtual int GetParameter(unsigned int id, void* value, int size);
    virtual int SetCameraHardwareInfo(TVXCameraHardware* info, int* size);
    // `size` holds the room (0 gives -4 and becomes 100) and is lowered to what came.
    virtual int GetCameraHardwareInfo(TVXCameraHardware* info, int* size);
    virtual int SetNetworkConfig(TVXNetworkConfig* config);
    virtual int GetNetworkConfig(TVXNetworkConfig* config);
    virtual int GetReadoutNoise(float* first, float* second);

    // ---- Engineering -------------------------------------------------------------------------
    // Sends `message`, a tsMsgHeader with its payload, as it is; the header is stamped.
    virtual int SendUserDefined(void* message);
    // Runs a link test; waits up to 3 s for each answer.
    virtual int SendLinkTestData(tsLinkTestCmd* test);
    // 100 to 107 forward to the operations above, `data` being 32-bit words; else -5.
    virtual int EngineeringCommand(int command, void* data);

    // Logs every received chunk in hexadecimal, at debug level 15, where the transport supports it.
    void EnableByteDump(bool on) { mbByteDump = on; }

    // As SendMessage, but gives up within about `limitMs`, leaving the link as it is where it can.
    virtual int SendMessageWithin(tsMsgHeader* frame, int limitMs);

    // Stamps and sends one message of `Length` + 12 bytes: 0, or -1. Called from any thread.
    virtual int SendMessage(tsMsgHeader* frame) = 0;

protected:
    // The camera is being closed: has sends that are under way on other threads fail soon, and all
    // later ones. Called on the closing thread, before the destructor.
    virtual void Interrupt() {}
    bool IsClosing() const { return mbClosing; }
    // From BeginHandshake(), which a transport that may lose its connection calls before it
    // receives anything, until the camera has answered the opening handshake. When the connection
    // ends meanwhile, LinkLost() ends the handshake, and no other connection is to be made.
    void BeginHandshake() { mbShakingHands = true; }
    bool IsShakingHands() const { return mbShakingHands; }
    // Ends the monitor thread. A transport's destructor calls it first, since the monitor sends.
    void StopMonitor();
    // True on the thread that is dispatching a message of this camera, in a callback that is.
    bool OnReceiveThread() const;
    // The camera whose message the calling thread is dispatching, or null.
    static tcVXCamera* CallingCamera();
    // What a transport tells about its traffic: bytes read, before they are parsed, and on the same
    // thread after that; messages sent, one thread at a time; connections, on the receive thread.
    // Bytes read stay where they are, and as they are, until the parser's AddData() has returned:
    // what stands behind a packet tells whether it is whole.
    void CountReceived(const void* data, int bytes);
    // Before that: how many bytes a call read that began at `begun`, and whether there were no more
    // to read. Where it returns true, the transport tells how many there still are, if it can: at
    // `time` or later. Without all that, a packet counts as read at once when it came.
    bool NoteRead(int64_t begun, int bytes, bool isAll);
    void NoteWaiting(int64_t time, int bytes);
    void CountParsed();
    void CountSent(const tsMsgHeader* frame, int bytes, bool isWhole, const tsMoment& begun);
    void LinkLost();
    void LinkRestored();
    // What a transport tells for people: its kind and where it leads; whether it has a connection.
    void SetLink(const char* type, const std::string& address);
    void SetLinkState(bool isConnected)
    {
        mpLinkState = isConnected ? "connected" : "disconnected";
    }

    tcLog mLog;
    std::unique_ptr<tcCamParser> mpParser;
    std::atomic<bool> mbByteDump{false};

private:
    template <class Payload>
    int Send(const tsCommand<Payload>& command, const Payload& payload)
    {
        return SendRow(command.Row(), &payload, gnPayloadBytes<Payload>);
    }
    int Send(const tsCommand<tsNoPayload>& command) { return SendRow(command.Row(), nullptr, 0); }
    template <class Payload>
    int Ask(const tsCommand<Payload>& command, const Payload& payload, void* result1,
            void* result2 = nullptr)
    {
        return AskRow(command.Row(), &payload, gnPayloadBytes<Payload>, result1, result2);
    }
    int Ask(const tsCommand<tsNoPayload>& command, void* result1, void* result2 = nullptr)
    {
        return AskRow(command.Row(), nullptr, 0, result1, result2);
    }
    int SendRow(const tsCommandRow& row, const void* payload, int length);
    int AskRow(const tsCommandRow& row, const void* payload, int length, void* result1,
               void* result2, int count = 1);

    // requests.cpp
    int WaitForEnd(const tsRequestWaiter& waiter, int item,
                   std::chrono::steady_clock::time_point deadline);
    static bool CallerIsClosing();
    enum teGivenUp { eNoAnswer, eNotSent, eClosed };
    void EndRequest(tsRequestItem& item, teGivenUp reason = eNoAnswer);
    void GiveUpItem(tsRequestItem& item, teGivenUp reason);
    void GiveUpAll();
    void EndHandshake(const char* lastWords);
    void TellMonitorToStop();
    void RenewNoOps();
    int SendNoOps(int intervalMs, int count);
    void NotifyWaiters();
    template <class Condition>
    bool WaitUntil(std::chrono::steady_clock::time_point deadline, Condition isOver);
    void AwaitDelivery();
    bool GiveUpPending(const char* operation);
    void TimeOutItem(int index);
    int ImageTimeout() const;
    int RefuseOnReceiveThread(const char* operation);

    // dispatch.cpp
    class tcDispatchScope;
    using tpHandler = void (tcVXCamera::*)(tuCameraMessages& message, tsRequestItem* item);
    struct tsHandlers;
    void Dispatch(tuCameraMessages& message, uint32_t id);
    void TellLink(teLinkEvent event, const char* words);
    void Deliver(tuCameraMessages& message, const tsAnswer& row);
    void OnExposure(tuCameraMessages& message, tsRequestItem* item);
    void OnHardware(tuCameraMessages& message, tsRequestItem* item);
    void OnTargetTemp(tuCameraMessages& message, tsRequestItem* item);
    void OnBinMask(tuCameraMessages& message, tsRequestItem* item);
    void OnBinningSequence(tuCameraMessages& message, tsRequestItem* item);
    void OnFilter(tuCameraMessages& message, tsRequestItem* item);
    void OnParameter(tuCameraMessages& message, tsRequestItem* item);
    void OnLinkTest(tuCameraMessages& message, tsRequestItem* item);
    void OnHeartBeat(tuCameraMessages& message, tsRequestItem* item);
    void OnCameraError(tuCameraMessages& message, tsRequestItem* item);
    void OnPixels16(tuCameraMessages& message, tsRequestItem* item);
    void OnPixels32(tuCameraMessages& message, tsRequestItem* item);
    void OnPixels8(tuCameraMessages& message, tsRequestItem* item);
    void CacheHardware(const TVXCameraHardware& info);

    // readout.cpp
    using tStackLock = std::unique_lock<std::recursive_mutex>;
    int ItemOf(const tsRequestItem& item) const { return static_cast<int>(&item - maItems); }
    uint32_t StartReadout(int item, teReadoutKind kind, void* buffer, unsigned short* maximum,
                          short frames, tsReadAreaMsg* command = nullptr);
    void LevelAreaItems();
    template <class Payload>
    int SendReadout(const char* operation, int item, uint32_t number,
                    const tsCommand<Payload>& command, const Payload& payload);
    int ReadArea(const char* operation, int item, void* buffer, short frames, unsigned short flags);
    void ReArmImage(tsRequestItem& item);

    // placement.cpp
    struct tsPlacement;
    class tcDeliveryScope;
    class tcUnlocked;
    template <class Packet>
    struct tsPixelsOf;
    template <class Packet>
    void CountPacket(const char* operation, const Packet& packet, std::atomic<int>& expected,
                     bool announce);
    void Place(const tsPlacement& place);
    static tsSpot SpotOf(const tsPlacement& place, const tsImageLimits& limits);
    void NoteOutside(const tsPlacement& place, const tsImageLimits& limits, uint64_t pixels);
    template <class Packet>
    bool AcceptPacket(tStackLock& lock, Packet& packet);
    void CheckLastPacket();
    template <class Packet>
    void StorePacket(Packet& packet, bool isWhole, bool isHeld);
    template <class Packet>
    bool TakePacket(tStackLock& lock, const tsPacketFacts& facts, bool* isHeld);
    template <class Packet>
    void HoldPacket(const Packet& packet);
    void ForgetHeld(teFrameKind kind);
    bool TellCut(tStackLock& lock, tsRequestItem& item, const tsFrameEnd& cut);
    tsImageData DescribeFrame(const tsRequestItem& item);
    template <class Packet>
    tsImageData DescribeFrame(const tsRequestItem& item, int32_t rows, const Packet& last);
    tsFrameEnd CloseFrame(teFrameKind kind, bool completes);
    void FinishFrame(tStackLock& lock, tsRequestItem& item, bool completes, tsImageData image);
    void ReleaseImageBuffer(tsRequestItem& item);
    tsImageLimits LimitsOf(const tsRequestItem& item, const void* buffer);
    tsImageLimits ToldLimits() const;
    static tsImageLimits LimitsToRead(const tsReadoutFacts& facts, uint32_t pixelBytes);

    // statistics.cpp
    bool IsFollowedInOrder(const tsMsgHeader& message) const;

    // extension.cpp
    template <class Callback>
    int SetSlot(tcCallbackSlot<Callback>& slot, Callback callback, void* user);
    void TellHeartBeat(const tuCameraMessages& message);
    // At `time`, if it is given.
    void TellTap(unsigned what, const void* bytes, size_t length, uint32_t event = 0,
                 const tsMoment* time = nullptr);
    void TellCameraError(uint32_t code, uint32_t subCode, const char* text);

    // framerecord.cpp
    tsReadoutFacts PlanReadout(teFrameKind frames, teReadoutKind kind, bool isIntoOwn);
    void BeginReadoutFacts(teFrameKind frames, tsReadoutFacts&& facts);
    void ForgetFrames(teFrameKind frames);
    bool IsLeftover(teFrameKind frames, uint32_t number, uint32_t total);
    void BeginFrame(tsRequestItem& item);
    void NoteCommandSent(teFrameKind frames, uint32_t number, bool isSent);
    tsReadoutFacts& ReadoutOf(teFrameKind frames);
    void LoseFrames(int item);
    void EndReadoutFacts(const tsRequestItem& item, teReadoutResult how);
    bool EndFrame(tsFrameNews& news, tsRequestItem& item, const tsFrameEnd& end, bool isCut);
    void MakeNews(tsFrameNews& news, teFrameKind kind, const tsRequestItem& item,
                  const tsFrameEnd& end);
    static void TellFigures(tsFrameRecord& record, const tsImageData& image, bool isLast);
    void TellPlace(tsFrameNews& news, teFrameKind kind, const tsRequestItem& item);
    void TellMissing(tsFrameNews& news, teFrameKind kind);
    bool IsReading() const;
    bool IsInTurn(teFrameKind frames) const;
    bool IsPacked(teFrameKind frames) const;

    // settings.cpp, tables.cpp, linktest.cpp
    std::vector<tsRegion> RegionsToRead(uint16_t (&area)[4]);
    void LogEntered(const char* operation);
    template <class Variable>
    int AskWord(const tsCommand<tsNoPayload>& command, Variable* variable);
    void StoreArea(int firstColumn, int firstRow, int columns, int rows);
    void StoreAreaOfRegions(const tsSetAreaExMsg& regions, int count);
    int SetTable(const tsCommand<tsBinTableMsg>& command, unsigned char* table, int index,
                 uint32_t length);
    int GetTable(const tsCommand<tsWordMsg>& command, int index, unsigned char* table, int* size);
    class tcLinkTestEnd;
    int RunLinkTest(tsLinkTestCmd& test);

    struct tsRegistry;
    void EnterRegistry();
    void LeaveRegistry();

    std::unique_ptr<tsExtension> mpExtension;
    int mnHandle = -1;
    int mnHolds = 0;        // under the registry's mutex
    bool mbOpening = false; // likewise
    // Likewise, where a callback closes a camera: the one that its receive thread is closing, and
    // the one whose receive thread is closing this one.
    tcVXCamera* mpClosing = nullptr;
    tcVXCamera* mpCloser = nullptr;
    std::atomic<bool> mbClosing{false};
    std::string msLinkType, msLinkAddress; // likewise
    std::atomic<const char*> mpLinkState{"unknown"};

    // Requests. Waiting callers sleep on mWaitCondition; mWaitMutex guards their records.
    std::recursive_mutex mStackMutex;
    tsRequestItem maItems[gnItems];
    std::mutex mWaitMutex;
    std::condition_variable mWaitCondition;
    uint64_t mnNotifications = 0;               // under mWaitMutex
    std::atomic<uint32_t> mnDeliveriesBegun{0}; // of frames; more than ended while a callback runs
    std::atomic<uint32_t> mnDeliveriesEnded{0};

    // Monitor
    std::mutex mMonitorMutex;
    std::condition_variable mMonitorCondition;
    std::thread mMonitorThread;
    bool mbStopMonitor = false;
    bool mbMonitorRunning = false;
    std::mutex mNoOpsMutex;
    int mnNoOpsCount = 0;
    int mnNoOpsInterval = 0;
    int64_t mnNoOpsCountdown = 0;

    // Callbacks
    std::atomic<tpHeartBeatCallback> mpHeartBeatCallback{nullptr};
    std::atomic<tpErrorCallback> mpErrorCallback{nullptr};
    std::atomic<tpUserDefinedCallback> mpUserDefinedCallback{nullptr};
    std::atomic<tpImageDataCallback> mpImageDataCallback{nullptr};

    // What the camera told
    std::atomic<int64_t> mnExposure{0}; // ms
    std::atomic<uint16_t> mnCCDTemp{0};
    std::atomic<uint16_t> mnBoardTemp{0};
    std::atomic<uint8_t> mnLastSeqNo{0};
    TVXCameraHardware mtHardware{};
    std::atomic<uint32_t> mnRows{2};
    std::atomic<uint32_t> mnColumns{1024};
    std::atomic<bool> mbGeometryKnown{false}; // told, and neither is 65535
    std::atomic<bool> mbGeometryTold{false};
    std::atomic<bool> mbShakingHands{false};

    // Current area
    std::mutex mAreaMutex;
    int maArea[4] = {0, 0, 0, 0}; // first column, first row, columns, rows

    // Readout
    struct tsFree {
        void operator()(uint32_t* buffer) const { free(buffer); }
    };
    std::unique_ptr<uint32_t[], tsFree> mpDefaultBuffer;
    tsImageLimits mtDefaultLimits; // of it
    std::atomic<int> mnImageTimeoutOverride{0};
    std::atomic<int> mnExpectedPackets16{-1}; // 16-bit and 8-bit frames
    std::atomic<int> mnExpectedPackets32{-1};
    std::atomic<int> mnPacketsReceived{0};
    std::atomic<uint32_t> mnFrameIndex{1};
    std::atomic<uint32_t> mnFramesDelivered{0};
    bool mbOutsideReported = false;        // in the current frame
    bool mbPlacedOutside = false;          // some pixels of the packet placed last
    uint32_t mnSkippedAtPacket = 0;        // what the parser had skipped when the last pixels came
    std::atomic<bool> mbReadsBytes{false}; // a readout of 8 bits runs
    uint32_t mnReadoutSerial = 0;          // counts StartReadout calls

    tsLinkTestCmd* mpLinkTest = nullptr;

    // Statistics
    std::unique_ptr<tcLedger> mpLedger;
    uint32_t mnSkippedSeen = 0, mnChecksumErrorsSeen = 0; // by the parser
};

#endif
