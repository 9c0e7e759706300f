/* Plain records, enums and callback types of the camera interface. Valid C11 and C++17.
 *
 * Sizes and offsets are those of a 64-bit Linux host and are checked where they matter.
 */
#ifndef VXCAMTYPES_H
#define VXCAMTYPES_H

#include <assert.h>
#include <netinet/in.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Results ------------------------------------------------------------------------------- */

/* What a camera operation returns. Opening functions return a handle (0 or more) on success. */
typedef enum teVXResult {
    eVXOk = 0,        /* done; a waiting call has its answer */
    eVXFailed = -1,   /* request of the same kind pending, open or send failed, no such transport */
    eVXTimeout = -2,  /* no answer in time */
    eVXNoCamera = -3, /* no camera with that handle (C interface only) */
    eVXSize = -4,     /* a buffer has the wrong size */
    eVXArgument = -5  /* an argument is out of range */
} teVXResult;

/* ---- Enums --------------------------------------------------------------------------------- */

/* What an external trigger does. */
typedef enum teExtTrigMode {
    eExtTrigOff = 0,      /* readouts start by command */
    eExtTrigStart = 1,    /* a trigger starts the whole readout */
    eExtTrigFrame = 2,    /* each frame waits for a trigger */
    eExtTrigExposure = 3, /* the trigger's active time is the exposure */
    eExtTrigMaxEnum = 0x7FFFFFFF
} teExtTrigMode;

/* Level of an output pin. */
typedef enum tePinState { ePinLow = 0, ePinHigh = 1, ePinMaxEnum = 0x7FFFFFFF } tePinState;

/* Shutter of a CIS sensor. */
typedef enum teCISShutterMode {
    eCISShutterRolling = 0,
    eCISShutterGlobal = 1,
    eCISShutterMaxEnum = 0x7FFFFFFF
} teCISShutterMode;

/* Which gain channel of a CIS sensor is read. */
typedef enum teCISChannelConfig {
    eCISChannelHighGain = 0,
    eCISChannelLowGain = 1,
    eCISChannelBoth = 2,
    eCISChannelMaxEnum = 0x7FFFFFFF
} teCISChannelConfig;

/* ---- Records ------------------------------------------------------------------------------- */

/* A delivered frame, as the image callback sees it. */
typedef struct tsImageData {
    int32_t ImageType;       /* kind of frame: 0 to 5; 1 for every 32-bit frame */
    int32_t Rows;            /* rows of the frame */
    int32_t Columns;         /* columns of the frame's last packet */
    int32_t AreaFirstColumn; /* current area; 0 for 32-bit frames */
    int32_t AreaFirstRow;    /* current area; 0 for 32-bit frames */
    int32_t Extra1;          /* two words of 32-bit frames, else 0 */
    int32_t Extra2;
    int32_t SensorColumns;    /* columns of the whole sensor: the stride of ImageBuffer */
    int32_t SensorRows;       /* rows of the whole sensor */
    int32_t FrameIndex;       /* frame within the readout, from 1 */
    uint32_t FramesDelivered; /* frames since the camera was opened, this one included */
    void* ImageBuffer;  /* the buffer given to the readout (or the camera's own); may be null */
    uint16_t Statistic; /* the camera's figure for the frame; 0 for 8-bit frames */
} tsImageData;

/* Start of a heartbeat; temperatures in the camera's units. A camera may send more behind it. */
typedef struct tsHeartBeatData {
    uint16_t Reserved;
    uint16_t BoardTemp;
    uint16_t CCDTemp;
} tsHeartBeatData;
static_assert(sizeof(tsHeartBeatData) == 6, "wire record");

/* A camera found on the network. */
typedef struct tsEnetData {
    struct sockaddr_in SourceAddr; /* where the reply came from */
    uint16_t Port;                 /* TCP port to open the camera on */
    uint16_t Unused;
    uint32_t SerialNumber;
    uint32_t CameraValue; /* passed on from the camera as it is */
} tsEnetData;
static_assert(sizeof(tsEnetData) == 28, "applications allocate arrays of it");
static_assert(offsetof(tsEnetData, SerialNumber) == 20, "layout");

/* Hardware information. */
typedef struct TVXCameraHardware {
    uint8_t Reserved0[42];
    uint16_t Rows; /* sensor rows */
    uint8_t Reserved44[2];
    uint16_t Columns; /* sensor columns */
    uint8_t Reserved48[52];
} TVXCameraHardware;
static_assert(sizeof(TVXCameraHardware) == 100, "wire record");
static_assert(offsetof(TVXCameraHardware, Rows) == 42, "wire record");
static_assert(offsetof(TVXCameraHardware, Columns) == 46, "wire record");

/* Network configuration of a camera. */
typedef struct TVXNetworkConfig {
    uint32_t Words[5];
    uint16_t Value;
} TVXNetworkConfig;
static_assert(sizeof(TVXNetworkConfig) == 24, "wire record");

/* Recording on the camera's own storage. */
typedef struct tsRecordParams {
    uint32_t Words[3];
    char Text[256]; /* sent with its last byte forced to 0 */
} tsRecordParams;
static_assert(sizeof(tsRecordParams) == 268, "wire record");

/* Parameters of the cooler's controller. */
typedef struct tsSetPIDCmd {
    float P, I, D;
} tsSetPIDCmd;
static_assert(sizeof(tsSetPIDCmd) == 12, "wire record");

/* Image filters: each off (0) or on. */
typedef struct tsSetFilterCmd {
    unsigned char First, Second;
} tsSetFilterCmd;
static_assert(sizeof(tsSetFilterCmd) == 2, "record");

/* One link test: what to send, and what came of it. */
typedef struct tsLinkTestCmd {
    uint32_t Mode;          /* 0: one answer a message; 1: one answer for all; else one message */
    uint32_t Pattern;       /* 1: 0,1,2,...; 2: 0x00,0xFF,...; 3: random; else SendData */
    uint32_t Count;         /* messages (modes 0 and 1) or answers (other modes) */
    uint32_t ReceivedBytes; /* out: sum of the lengths told by the answers */
    uint32_t Reserved;
    uint32_t MessagesSent;    /* out */
    uint32_t AnswersReceived; /* out */
    uint32_t DataLength;      /* bytes in SendData and room in ReceiveBuffer; at most 1024 travel */
    void* SendData;           /* used when Pattern is none of 1 to 3; may be null */
    void* ReceiveBuffer;      /* the last answer's data; may be null */
} tsLinkTestCmd;
static_assert(sizeof(tsLinkTestCmd) == 48, "record");
static_assert(offsetof(tsLinkTestCmd, SendData) == 32, "record");

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
    uint64_t PacketsShort;     /* with fewer pixels than they tell */
    uint64_t PacketsRunning;   /* received of the frame that runs */
    uint64_t PacketsOutside;   /* with pixels outside the image, which are not stored */
    uint64_t PixelsOutside;    /* those pixels */

    /* The frame delivered last; in the image callback, the one it is called with. */
    uint64_t LastFramePackets; /* expected */
    uint64_t LastFrameMissing;
} tsStatistics;
static_assert(sizeof(tsStatistics) == 36 * 8, "applications pass this size");

/* ---- Callbacks: run on the camera's receive thread ------------------------------------------- */

typedef void (*tpImageDataCallback)(int handle, tsImageData* image);
typedef void (*tpHeartBeatCallback)(int handle, tsHeartBeatData* heartbeat);
typedef void (*tpErrorCallback)(int handle, unsigned char code, unsigned char subCode, char* text);
typedef void (*tpUserDefinedCallback)(int handle, void* message, int length);

#ifdef __cplusplus
}
#endif

#endif
