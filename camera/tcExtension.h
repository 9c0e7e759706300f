// What a camera keeps for vxcamext.h.
#ifndef TCEXTENSION_H
#define TCEXTENSION_H

#include "tcArrivals.h"
#include "tcBufferTurn.h"
#include "tcCallbackSlot.h"
#include "tcFrameAccount.h"
#include "tcLedger.h"
#include "tcPacking.h"
#include "tcVXCamera.h"

#include <cstring>
#include <vector>

// The frames that a readout item is about.
inline teFrameKind KindOf(int item)
{
    return item == eItemImage32 ? eFrame32 : item == eItemImage8 ? eFrame8 : eFrame16;
}

// One readout, as it was when it was started.
struct tsReadoutFacts {
    uint32_t number = 0; // of the camera's readouts, from 1; 0: there was none
    bool runs = false;
    teReadoutKind kind = eReadoutArea;
    int32_t area[4] = {};
    uint16_t command[4] = {};      // the area, as the readout's command tells it
    std::vector<tsRegion> regions; // what is read, in the order in which it is sent; empty if open
    tsImageLimits sensor;          // as told
    uint32_t exposure = 0;         // ms
    uint32_t frames = 0;           // that ended so far, in whichever way
    tsMoment commandBegun{}, commandSent{};

    // Of a readout into buffers in turn.
    bool isInTurn = false;
    size_t bufferBytes = 0; // of each
    tcPacking packing;
    bool hasBegunFrame = false; // whose buffer has been taken, unless there was none
    bool isUnderrun = false;    // there was none
};

// The rest of a frame whose readout was given up, which may arrive in the next one.
struct tsLeftover {
    uint32_t last = 0;   // number seen of it; 0: there is none
    uint32_t total = 0;  // packets it has
    bool goesOn = false; // some of the rest has come
};

// The pixel packet that came last.
struct tsLastPacket {
    teFrameKind kind = eFrame16;
    bool mayBeCut = false; // its bytes look so; it counts as whole so far
};

// The bytes that the parser is given, or was given last.
struct tsReceived {
    const uint8_t* bytes = nullptr;
    uint32_t length = 0;
    uint32_t bytesBefore = 0; // that it had been given
};

// Whether the camera counts all its messages in one sequence, and none is missing: only then does a
// number tell that there was no message before it. Seen of one connection, from its beginning.
class tcMessageOrder
{
public:
    void Note(const tsMsgHeader& message)
    {
        if (message.SeqNo != mnExpected) mbBroken = mnExpected != gnNumbers;
        mnExpected = (message.SeqNo + 1U) % gnNumbers;
    }
    // Other messages than pixels.
    void NoteKind(uint32_t id) { (id == ansHeartBeat.id ? mbHadHeartBeat : mbHadOther) = true; }
    // What comes unasked, and what answers, were counted like the packets.
    bool IsKept() const { return mbHadHeartBeat && mbHadOther && !mbBroken; }

private:
    static constexpr uint32_t gnNumbers = 256;
    uint32_t mnExpected = gnNumbers; // which no message has
    bool mbHadHeartBeat = false, mbHadOther = false, mbBroken = false;
};

// A packet whose frame is not known yet.
struct tsHeldPacket {
    bool isHeld = false;
    tsArrival arrival{};
    uint8_t bytes[gnLargestMessage] = {};
};

// A frame's record with what it points to.
struct tsFrameNews {
    tsFrameRecord record{};
    std::vector<uint8_t> missingBits;
    std::vector<uint32_t> missingRows;
};

// How the readout that was started last ended.
// Threads: one writes at a time, with the camera's request lock; any may call Result().
class tcReadoutEnd
{
public:
    void Begin(uint32_t number)
    {
        mnNumber = number;
        mbFlawed = false;
        mnResult = eReadoutRunning;
    }
    // A frame of it was not delivered complete.
    void NoteFlaw(uint32_t number)
    {
        if (number == mnNumber) mbFlawed = true;
    }
    // It ended, unless it had ended before.
    void End(uint32_t number, teReadoutResult how)
    {
        if (number != mnNumber || mnResult != eReadoutRunning) return;
        mnResult = how == eReadoutComplete && mbFlawed ? eReadoutIncomplete : how;
    }
    uint32_t Number() const { return mnNumber; }
    int Result() const { return mnResult; }

private:
    uint32_t mnNumber = 0;
    bool mbFlawed = false;
    std::atomic<int> mnResult{eReadoutNone};
};

// What a camera told, or its first 1023 bytes: kept where there is always room for it.
class tcWords
{
public:
    void Set(const char* text)
    {
        const size_t length = strnlen(text, sizeof maText - 1);
        memcpy(maText, text, length);
        maText[length] = '\0';
    }
    const char* Text() const { return maText; }

private:
    char maText[1024] = {};
};

// Threads: the callbacks as told there; everything else is used with the camera's request lock.
struct tsExtension {
    tcCallbackSlot<tpFrameCallback> frameCallback;
    tcCallbackSlot<tpLinkCallback> linkCallback;
    tcCallbackSlot<tpHeartBeatRecordCallback> heartBeatCallback;
    tcCallbackSlot<tpCameraErrorCallback> errorCallback;
    tcCallbackSlot<tpTapCallback> tap;
    std::atomic<unsigned> tapped{0}; // what it is called for

    tsReadoutFacts readouts[eFrameKinds]; // by the frames that they were started for
    tcFrameAccount frames[eFrameKinds];
    tsReceived received;  // by the receive thread, as it is used
    tcArrivals arrivals;  // likewise
    uint32_t readEnd = 0; // position behind what was read last
    tcMessageOrder order; // of this connection; by the receive thread
    tsLastPacket lastPacket;
    tsLeftover leftovers[eFrameKinds];
    tcBufferTurn buffers;
    std::unique_ptr<tsHeldPacket> held[eFrameKinds]; // of readouts into buffers in turn
    tcReadoutEnd readoutEnd;
    std::vector<tsRegion> regions; // that were set instead of an area; with the area's lock
    tcWords lastWords;             // the error that the camera told last on this connection
};

#endif
