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
    int32_t AreaFirstColumn; /* current area; 0 for 32-bit frames, and in buffers in turn */
    int32_t AreaFirstRow;    /* likewise */
    int32_t Extra1;          /* two words of 32-bit frames, else 0 */
    int32_t Extra2;
    int32_t SensorColumns;    /* columns of ImageBuffer, its stride: those of the whole sensor; of
                                 an area in buffers in turn (VXSetImageBuffers), the area's */
    int32_t SensorRows;       /* rows, likewise */
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

/* ---- Callbacks: run on the camera's receive thread ------------------------------------------- */

typedef void (*tpImageDataCallback)(int handle, tsImageData* image);
typedef void (*tpHeartBeatCallback)(int handle, tsHeartBeatData* heartbeat);
typedef void (*tpErrorCallback)(int handle, unsigned char code, unsigned char subCode, char* text);
typedef void (*tpUserDefinedCallback)(int handle, void* message, int length);

#ifdef __cplusplus
}
#endif

#endif
