/* What the library offers beyond the camera interface of vxcamiface.h, whose conventions hold here,
 * too. Valid C11 and C++17.
 *
 *  1. Records begin with their size in bytes. Later versions only append fields: a program may read
 *     what lies within `Size`, and one that was built earlier goes on working. A record, and what
 *     it points to, is valid until the callback returns.
 *  2. Callbacks take a pointer of the application, `user`. They run on the camera's receive thread,
 *     one at a time, in order, with no lock held, and behind the callback of vxcamiface.h for the
 *     same thing. What may be called there is told in convention 5 of vxcamiface.h. A null callback
 *     switches off. When a VXSet...Callback (or VXSetTap) returns, the callback that it replaced
 *     does not run and will not run again; only in a callback it returns without waiting for that.
 *     The tap of what is sent differs in thread and lock: see VXSetTap.
 */
#ifndef VXCAMEXT_H
#define VXCAMEXT_H

#include "vxcamtypes.h"
#include "vxexport.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One moment on two clocks, in ns; both 0 when it did not happen (yet). */
typedef struct tsMoment {
    int64_t Monotonic; /* CLOCK_MONOTONIC */
    int64_t Realtime;  /* CLOCK_REALTIME */
} tsMoment;

/* ---- Frames ------------------------------------------------------------------------------ */

/* What a readout was started as. */
typedef enum teReadoutKind {
    eReadoutArea,      /* VXReadCCDArea, VXReadCCDArea8 */
    eReadoutBinned,    /* VXReadCCDBinned */
    eReadoutMaskBinned /* VXReadCCDMaskBinned */
} teReadoutKind;

/* How a frame ended. */
typedef enum teFrameOutcome {
    eFrameComplete,   /* all its packets came, whole and inside the image */
    eFrameIncomplete, /* its last packet came; others are missing, damaged or misplaced */
    eFrameUnderrun,   /* no buffer was free at its first packet: not stored, Buffer is null */
    eFrameCut         /* its end never came: it was given up when the next frame began */
} teFrameOutcome;

/* A frame of a readout. */
typedef struct tsFrameRecord {
    uint32_t Size;
    uint32_t Kind;    /* teReadoutKind */
    uint32_t Bits;    /* of a pixel as it is stored: 8, 16 or 32 */
    uint32_t Outcome; /* teFrameOutcome */
    uint32_t Readout; /* counts the camera's readouts from 1 */
    uint32_t Frame;   /* counts the readout's frames from 1; cut ones and underruns, too */
    uint32_t IsLast;  /* 1: the readout ends with it */
    uint32_t ImageType;

    /* Pixel (row, column) of the frame, both from 0, is element
     * (FirstRow + row) * Stride + FirstColumn + column of the buffer. Pixels that did not arrive
     * are left as they were. What is told here is what the buffer has, whatever geometry the camera
     * told since the readout began. */
    void* Buffer;  /* null: the frame is not stored */
    uint64_t Room; /* elements of the buffer that the library writes to, at most */
    uint32_t Rows;
    uint32_t Columns;
    uint32_t FirstRow;
    uint32_t FirstColumn;
    uint32_t Stride;
    uint32_t Statistic; /* the camera's own figure */

    int32_t Area[4];     /* as set when the readout began, with SetCCDArea or by regions: first
                            column, first row, columns, rows; of the sensor, all 0 if not set */
    uint32_t SensorRows; /* as told when the readout began; 65535 when open */
    uint32_t SensorColumns;

    uint32_t PacketsExpected; /* = PacketsReceived + PacketsMissing */
    uint32_t PacketsReceived; /* whole ones, each number once */
    uint32_t PacketsMissing;  /* never came, or only damaged */
    /* With pixels outside the image, which are not stored, or where none of theirs belong:
     * elsewhere than asked for, or where other packets have theirs. */
    uint32_t PacketsMisplaced;
    uint32_t PacketsDamaged; /* with fewer pixels than told, or cut and finished otherwise */
    uint32_t Extra1, Extra2; /* of binned frames */
    uint32_t Reserved;
    /* Packet n is missing when bit (n - 1) % 8, from the lowest, of byte (n - 1) / 8 is set. Of
     * (PacketsExpected + 7) / 8 bytes; null when none is missing. */
    const uint8_t* MissingBits;
    /* The frame's rows, from 0 and ascending, that did not arrive whole, or may not have. Null when
     * there are none; also, though something is missing or misplaced, when it cannot be known which
     * they are. */
    const uint32_t* MissingRows;
    uint32_t MissingRowCount;

    uint32_t Exposure;     /* ms; as last set, or told by the camera, when the readout began */
    tsMoment CommandBegun; /* before the readout's command was handed to the system: the camera
                              cannot have begun earlier */
    tsMoment CommandSent;  /* when it had been handed over; FirstPacket if that was noted later */
    tsMoment FirstPacket;
    tsMoment LastPacket;
    /* Where the first packet was read behind others and so may have waited, unread for as long as
     * the process did not run: a moment at which it had not come yet. Both 0 where it was waited
     * for: then it came when FirstPacket was noted, or while the process did not run. */
    tsMoment FirstPacketAfter;
} tsFrameRecord;
static_assert(sizeof(tsFrameRecord) == 232, "record");
static_assert(offsetof(tsFrameRecord, Buffer) == 32, "record");
static_assert(offsetof(tsFrameRecord, MissingBits) == 128, "record");
static_assert(offsetof(tsFrameRecord, CommandBegun) == 152, "record");
static_assert(offsetof(tsFrameRecord, FirstPacketAfter) == 216, "record");

/* Called with each frame of a readout; not with frames that arrive while none runs. */
typedef void (*tpFrameCallback)(int handle, const tsFrameRecord* frame, void* user);
VX_EXPORT int VXSetFrameCallback(int handle, tpFrameCallback callback, void* user);

/* ---- Readouts ---------------------------------------------------------------------------- */

/* As VXReadCCDArea, 8 bits a pixel, into unsigned char[sensor rows][sensor columns]. `flags` go to
 * the camera with 0x0008 added [-1 while an area readout runs]. */
VX_EXPORT int VXReadCCDArea8(int handle, unsigned char* buffer, short frames, unsigned short flags);

/* How a readout ended. */
typedef enum teReadoutResult {
    eReadoutNone,       /* none was started */
    eReadoutRunning,    /* it has not ended */
    eReadoutComplete,   /* every frame was delivered complete */
    eReadoutIncomplete, /* it ended, but a frame was incomplete, cut, left out or an underrun */
    eReadoutTimedOut,   /* also by VXWaitCompletion */
    eReadoutAborted,
    eReadoutLinkLost, /* the connection that it was started on broke */
    eReadoutNotSent,  /* its command could not be sent */
    eReadoutClosed    /* never told: the handle of a camera that is being closed has gone (-3) */
} teReadoutResult;

/* Tells how the readout that was started last ended, or that it runs: a teReadoutResult. After
 * eReadoutLinkLost and eReadoutNotSent the readout is over, but counts as pending until it is
 * aborted, given up or times out. */
VX_EXPORT int VXReadoutResult(int handle);

/* As VXAbortRead, but nothing is sent: for a readout whose connection broke. A camera that goes on
 * with it all the same is told so by VXAbortRead. */
VX_EXPORT int VXGiveUpReadout(int handle);

/* Has readouts that are started with a null buffer store successive frames in these buffers of
 * `bytes` bytes each, in the order in which they were given (back). An area readout's frame lies
 * packed, from the buffer's first element on: Stride is the columns of the area; of regions, that
 * are read one after another, the greatest number of columns, and their rows lie below each other.
 * A binned readout's frame has the stride of the sensor. A buffer belongs to the application from
 * its frame's callbacks on until VXReturnImageBuffer. With none free at a frame's first packet the
 * frame is an underrun. A count of 0 ends this. Then, after VXCloseCamera, and after a VXAbortRead
 * or a time-out that gave a readout into them up, all buffers are the application's; those that are
 * to be used again in later readouts are given back with VXReturnImageBuffer, or all set anew [-1
 * while a readout runs; -5 for null pointers, buffers that overlap, a count outside 0 to 4096, or
 * no bytes]. */
VX_EXPORT int VXSetImageBuffers(int handle, void* const* buffers, int count, size_t bytes);

/* Gives one back, on any thread [-5 when it is none of them or is free already]. */
VX_EXPORT int VXReturnImageBuffer(int handle, void* buffer);

/* ---- What a camera tells unasked --------------------------------------------------------- */

typedef enum teLinkEvent {
    eLinkLost,    /* the connection ended */
    eLinkRestored /* it was made anew */
} teLinkEvent;

typedef struct tsLinkRecord {
    uint32_t Size;
    uint32_t Event; /* teLinkEvent */
    tsMoment Time;
    uint64_t ConnectionsLost; /* since the camera was opened */
    const char* LastWords;    /* the error that the camera told last on the connection that was
                                 lost; empty when it told none */
} tsLinkRecord;
static_assert(sizeof(tsLinkRecord) == 40, "record");

/* Called when the connection is lost, and when it was made anew. */
typedef void (*tpLinkCallback)(int handle, const tsLinkRecord* link, void* user);
VX_EXPORT int VXSetLinkCallback(int handle, tpLinkCallback callback, void* user);

typedef struct tsHeartBeatRecord {
    uint32_t Size;
    uint32_t Bytes;         /* of the payload */
    const uint8_t* Payload; /* as it came */
    int32_t CCDTemp;        /* in the camera's units, mostly 0.1 degrees Celsius */
    int32_t BoardTemp;
    tsMoment Time;
} tsHeartBeatRecord;
static_assert(sizeof(tsHeartBeatRecord) == 40, "record");

/* Called with each heartbeat. */
typedef void (*tpHeartBeatRecordCallback)(int handle, const tsHeartBeatRecord* heartBeat,
                                          void* user);
VX_EXPORT int VXSetHeartBeatRecordCallback(int handle, tpHeartBeatRecordCallback callback,
                                           void* user);

typedef struct tsCameraErrorRecord {
    uint32_t Size;
    uint32_t Code;
    uint32_t SubCode;
    uint32_t Readout; /* that runs, counted from 1; 0 when none does */
    const char* Text; /* as it came, up to its first NUL */
    tsMoment Time;
} tsCameraErrorRecord;
static_assert(sizeof(tsCameraErrorRecord) == 40, "record");

/* Called with each error that the camera reports. */
typedef void (*tpCameraErrorCallback)(int handle, const tsCameraErrorRecord* error, void* user);
VX_EXPORT int VXSetCameraErrorCallback(int handle, tpCameraErrorCallback callback, void* user);

/* ---- All traffic ------------------------------------------------------------------------- */

enum {
    eTapBytesReceived = 1,
    eTapBytesSent = 2,
    eTapMessagesReceived = 4, /* but for pixel packets */
    eTapMessagesSent = 8,
    eTapLink = 16
};

typedef struct tsTapRecord {
    uint32_t Size;
    uint32_t What; /* one of the above */
    tsMoment Time; /* of what is sent: before it was handed to the system, so that what comes of it
                      is later, though it may be told earlier */
    const uint8_t* Bytes; /* as they travelled; of messages one, header first; null for eTapLink */
    uint32_t Length;
    uint32_t Event; /* eTapLink: teLinkEvent */
} tsTapRecord;
static_assert(sizeof(tsTapRecord) == 40, "record");

/* Called for all that `what`, a sum of the above, names: sent bytes and messages on the sending
 * thread, one after another and with the lock that orders what is sent, everything else on the
 * receive thread. It must be quick, and may not call the camera [-5 for other bits in `what`]. */
typedef void (*tpTapCallback)(int handle, const tsTapRecord* record, void* user);
VX_EXPORT int VXSetTap(int handle, unsigned what, tpTapCallback callback, void* user);

/* The same from the first byte on: the tap of each camera that the calling thread opens from now
 * on, until VXSetTap sets another one. Of a camera that does not open it is called with a handle
 * that nobody has learned, and not any more when the opening has returned. A null callback ends
 * this [-5 for other bits in `what`]. */
VX_EXPORT int VXSetOpeningTap(unsigned what, tpTapCallback callback, void* user);

/* ---- Questions --------------------------------------------------------------------------- */

/* Has each question that the calling thread asks a camera wait for `ms` at most: until it can be
 * sent, and for its answer; calls that ask several may take so long for each of them. They return
 * -2 then, as with a time-out. A question that has gone out in part is finished all the same,
 * unless the camera takes nothing for 5 s, which ends the connection. An answer that comes later is
 * dropped, or taken for that to the next question of its kind: another question between them, whose
 * answer comes behind it, keeps them apart. 0 ends this [-5 for less]. */
VX_EXPORT int VXSetPatience(int ms);

/* Ends all calls that wait for the answers to questions, on other threads or on those of callbacks:
 * they return -2, as with a time-out. For when the connection is lost, with which their answers
 * are. */
VX_EXPORT int VXGiveUpQuestions(int handle);

/* ---- Statistics -------------------------------------------------------------------------- */

/* What a camera has done since it was opened. Figures only grow, except for those that say what is
 * the case now (...Pending, PacketsRunning, LastFrame...). Later versions may add figures behind
 * the last one. In every record that VXGetStatistics fills:
 *
 *   FramesRequested = FramesComplete + FramesIncomplete + FramesFailed + FramesAborted
 *                     + FramesPending
 *   RequestsSent    = RequestsAnswered + RequestsTimedOut + RequestsFailed + RequestsPending
 *   PacketsReceived + PacketsMissing
 *                   = PacketsExpected + PacketsDuplicate + PacketsStray + PacketsShort
 *                     + PacketsRunning
 *
 * An endless readout has one frame requested beyond those that came. */
typedef struct tsStatistics {
    /* Link. A message is a header with its payload. */
    uint64_t BytesReceived;
    uint64_t BytesSent;
    uint64_t MessagesReceived; /* whole ones */
    uint64_t MessagesBad;      /* too long, with a wrong check sum, or cut by a lost connection */
    uint64_t MessagesSent;
    uint64_t BytesSkipped; /* between messages, which ought to be none */
    uint64_t ChecksumErrors;
    uint64_t ConnectionsLost;
    uint64_t Reconnects; /* connections made anew */
    uint64_t HeartBeats;
    uint64_t CameraErrors; /* reported by the camera */

    /* Requests: what asks and waits for an answer. */
    uint64_t RequestsSent;
    uint64_t RequestsAnswered;
    uint64_t RequestsTimedOut;
    uint64_t RequestsFailed; /* could not be sent, or given up by closing */
    uint64_t RequestsPending;
    uint64_t RequestsBusy; /* refused since one of the kind was pending; readouts, too */
    uint64_t AnswersLate;  /* nobody waited for them (any more) */

    /* Frames of readouts. */
    uint64_t FramesRequested;
    uint64_t FramesComplete;   /* delivered with all their packets */
    uint64_t FramesIncomplete; /* delivered without some of their packets */
    uint64_t FramesFailed;     /* not delivered: timed out, cut short or left out by the camera */
    uint64_t FramesAborted;    /* not delivered: given up by VXAbortRead or by closing */
    uint64_t FramesPending;
    uint64_t FramesUnasked; /* delivered beyond those that were requested */

    /* Pixel packets, of which a frame has a known number. */
    uint64_t PacketsReceived;
    uint64_t PacketsExpected;  /* of the frames that ended; of aborted ones, those that came */
    uint64_t PacketsMissing;   /* expected, never received whole */
    uint64_t PacketsDuplicate; /* received again within a frame */
    uint64_t PacketsStray;     /* with a number that the frame does not have */
    uint64_t PacketsShort;     /* with fewer pixels than they tell, or damaged */
    uint64_t PacketsRunning;   /* received of the frame that runs */
    uint64_t PacketsOutside;   /* with pixels outside the image, which are not stored */
    uint64_t PixelsOutside;    /* those pixels */

    /* The frame delivered last; in the image callback, the one it is called with. */
    uint64_t LastFramePackets; /* expected */
    uint64_t LastFrameMissing;

    /* Parts of figures above. */
    uint64_t FramesUnderrun; /* of FramesFailed: no buffer was free (VXSetImageBuffers) */
    uint64_t PacketsDamaged; /* of PacketsShort: cut, by a lost connection or by the camera, and
                                finished with bytes of the next messages */
} tsStatistics;
static_assert(sizeof(tsStatistics) == 38 * 8, "applications pass this size");

/* Tells what the camera has done since it was opened (tsStatistics): traffic, requests, frames and
 * packets, and how each of them ended. A frame is delivered when the packet with its last number
 * comes; where packets of it are missing by then, that is logged as an error and told here. `size`
 * is sizeof *statistics; figures behind those known here are set to 0. Never waits, and may be
 * called in a callback [-4 for a size below that of the record's first version, -5 for a null
 * pointer; both are looked at first]. The debug daemon's command CAM tells the same. */
VX_EXPORT int VXGetStatistics(int handle, tsStatistics* statistics, int size);

/* ---- The log ----------------------------------------------------------------------------- */

/* An error that the library logs. */
typedef struct tsLoggedError {
    uint32_t Size;
    int32_t Handle;      /* of the camera, maybe of one that does not open; -1: of none */
    int32_t ErrorNumber; /* the system's; 0 when there is none */
    uint32_t Reserved;
    const char* Logger; /* as TCLOG's variables call it */
    const char* Text;
    tsMoment Time;
} tsLoggedError;
static_assert(sizeof(tsLoggedError) == 48, "record");

/* Called with each error of the whole process that would be printed on standard error, or is not
 * since TCLOG_SUPPRESS_ERR_CONSOLE is set: on the thread that logs it, one at a time, in part with
 * locks held. It must be quick, and may not call the library; what it logs is printed. Where it
 * returns 0 the error is printed as without it, else it is not. A process has one; the last one set
 * counts, also in a child that it forks. */
typedef int (*tpLogCallback)(const tsLoggedError* record, void* user);
VX_EXPORT int VXSetLogCallback(tpLogCallback callback, void* user);

#ifdef __cplusplus
}
#endif

#endif
