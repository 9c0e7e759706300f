/* The camera interface: open cameras, send them commands, read their images. Valid C11 and C++17.
 *
 * Conventions, which the comments below do not repeat:
 *
 *  1. Handles. A camera is named by the handle that its opening returned: 0, 1, 2, ..., never used
 *     again. Every function with a handle returns -3 for one that is not open.
 *  2. Results. 0 done; -1 failed (a request of the same kind is pending, the send failed); -2 no
 *     answer in time; -3 no such camera; -4 wrong buffer size; -5 argument out of range. The enum
 *     is teVXResult in vxcamtypes.h. What a function adds to "0, -3" is in brackets behind its
 *     text.
 *  3. Waiting. "Sends": one message goes out and the call returns at once; whether the camera did
 *     it shows in a later getter or in the error callback. "Asks": the call waits for the camera's
 *     answer; normally that is the network's round trip, at worst the time-out told [-1, -2].
 *     "Tells": the answer is known already, nothing travels.
 *  4. Outputs are written only when the result is 0 and each may be null, unless a comment says
 *     otherwise. A long holds the unsigned 32-bit value of the camera.
 *  5. Callbacks run on the camera's receive thread, one at a time. While one runs, the camera's
 *     messages wait. It may send, start the next readout and abort; what asks or waits, and
 *     VXCloseCamera, return -1 there. With other cameras it may do everything. No lock is held:
 *     other threads and the callbacks of other cameras may use the camera meanwhile, and time-outs
 *     go on. Records passed to a callback are valid until it returns.
 *  6. Buffers. An image buffer has the shape [sensor rows][sensor columns] whatever the area or
 *     binning; uint16_t elements for VXReadCCDArea, 32-bit elements for the binned readouts. It
 *     must stay valid until the readout completed or VXAbortRead, a time-out or VXCloseCamera
 *     returned; after that the library does not touch it again. An image callback that runs longer
 *     still has its address; when it has returned, VXWaitCompletion returns 0.
 *  7. Threads. Functions may be called from any thread, for different cameras at the same time. Two
 *     threads that ask one camera the same thing at once: one of them gets -1. A camera
 *     may be closed while others use it: calls that wait return -1, new ones -3, and of two threads
 *     that close it one gets 0 and the other -3. A handle is -3 until its opening has returned it.
 *     A thread that is cancelled (pthread_cancel) inside a function ends that function first.
 *  8. Scarcity. Where memory or a thread cannot be had, the function fails with -1 and leaves
 *     nothing behind. Closing needs neither.
 */
#ifndef VXCAMIFACE_H
#define VXCAMIFACE_H

#include "vxcamext.h"
#include "vxcamtypes.h"
#include "vxexport.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Cameras ----------------------------------------------------------------------------- */

/* Opens the camera at a host name or an IPv4 address of four numbers and a TCP port: its handle, or
 * -1 when it cannot be reached or does not answer its hardware information within 10 s. Where it
 * ends the connection instead, as one does that serves somebody else, the opening fails at once,
 * and the error line says what the camera told last. A connection that breaks later is made anew by
 * itself, wherever the name leads by then. */
VX_EXPORT int VXOpenENetCamera(const char* address, unsigned short port);

/* Looks for cameras (about 0.5 s) and opens the one with that serial number: handle, or -1. */
VX_EXPORT int VXOpenCameraBySerialNumber(int serial);

/* Broadcasts on every IPv4 interface and fills list[max] with the cameras that answer: how many; 0
 * when there are none; -1 when the sockets cannot be set up. Takes a little over 0.5 s. */
VX_EXPORT int VXLocateEnetCameras(tsEnetData* list, int max);

/* Closes the camera within 0.5 s, ending its requests, readouts and sends; calls that wait on other
 * threads return -1. It takes longer only where a callback of the camera does not return [-1 in a
 * callback of it, and in one of a camera that waits to be closed by this one's]. */
VX_EXPORT int VXCloseCamera(int handle);

/* 0 when no request or readout is pending, else -1. */
VX_EXPORT int VXisCameraReady(int handle);

/* Version of the library: major in the high 16 bits, build in the low ones (0x00030007). */
VX_EXPORT int VXGetDllVersion(void);

/* Bytes in a block of timing data: 4356. */
VX_EXPORT int VXGetTimingDataSize(void);

/* Transports that this build does not have: -1. The device index -1 stands for the configured one.
 */
VX_EXPORT int VXOpenSerialCamera(void);
VX_EXPORT int VXOpenUSBSerialCamera(void);
VX_EXPORT int VXOpenHSUSBCamera(int deviceIndex);
VX_EXPORT int VXLocateHSUSBCameras(void);

/* ---- Callbacks --------------------------------------------------------------------------- */

/* Called with each finished frame; null switches off. */
VX_EXPORT int VXSetImageDataCallback(int handle, tpImageDataCallback callback);

/* Called with each heartbeat. */
VX_EXPORT int VXSetHeartBeatCallback(int handle, tpHeartBeatCallback callback);

/* Called with each error the camera reports. Handle -1 stores a process-wide callback instead; it
 * needs no camera and is kept for applications that ask for it, the library does not call it. */
VX_EXPORT int VXSetErrorCallback(int handle, tpErrorCallback callback);

/* Called with each message of an id of 0xC0 and above: the whole message, header included, and the
 * length of its payload. */
VX_EXPORT int VXSetUserDefinedCallback(int handle, tpUserDefinedCallback callback);

/* ---- Readout ----------------------------------------------------------------------------- */

/* Starts reading `frames` frames (0: until VXAbortRead) of the current area, 16 bits a pixel, into
 * uint16_t[sensor rows] [sensor columns]; every frame goes to the same place, so take a frame in
 * the image callback. A null buffer stands for one that the camera owns. The readout times out when
 * nothing comes for the exposure + 20 s, then 20 s between packets (see VXOverrideImageTimout) [-1
 * while one runs].
 */
VX_EXPORT int VXReadCCDArea(int handle, unsigned short* buffer, short frames, unsigned short flags);

/* The same for a binned readout, 32 bits a pixel. In spite of its type `buffer` is an array of
 * 32-bit elements, sensor rows x sensor columns of them, however wide a long is:
 *     int32_t* image = malloc(rows * columns * sizeof *image);
 *     VXReadCCDBinned(handle, (long*)image, NULL, 1, 0);
 * `maximum`, if given, is set to 0 and then follows the largest frame maximum [-1]. */
VX_EXPORT int VXReadCCDBinned(int handle, long* buffer, unsigned short* maximum, short frames,
                              unsigned short mode);

/* The same with the bins of the mask (VXSetBinMaskParam) [-1]. */
VX_EXPORT int VXReadCCDMaskBinned(int handle, long* buffer, unsigned short* maximum, short frames,
                                  unsigned short mode);

/* Waits until nothing is pending, readouts included, and no image callback runs: 0. When timeoutMs
 * (rounded up to 20) have passed, gives everything pending up; where all has come and only the
 * callback has not returned, nothing is given up [-2 both times; -1 in a callback]. */
VX_EXPORT int VXWaitCompletion(int handle, int timeoutMs);

/* Percent (0 to 100) of the running frame that has arrived; 100 when no readout runs. `frame` gets
 * the frame's index from 1. */
VX_EXPORT int VXGetReadProgress(int handle, unsigned int* frame);

/* Sends the abort and gives the readouts up at once, within 100 ms also where the camera takes no
 * messages. An image callback that runs is waited for, 0.4 s at most, and not in a callback [-1
 * when the abort could not be sent; given up all the same]. */
VX_EXPORT int VXAbortRead(int handle);

/* Time-out of readouts in ms instead of the exposure + 20 s; 0 restores that, negative means none.
 */
VX_EXPORT int VXOverrideImageTimout(int handle, int ms);

/* ---- Exposure and shutter ---------------------------------------------------------------- */

/* Sends the exposure time, in ms (low 32 bits). */
VX_EXPORT int VXSetExposure(int handle, long ms);

/* Asks for it; at worst 10 s. */
VX_EXPORT int VXGetExposureTime(int handle, long* ms);

/* The same through the extended command. */
VX_EXPORT int VXSetExposureEx(int handle, long exposure);

#ifdef __cplusplus
}
#endif

/* Asks for the exposure through the extended command; at worst 10 s. This one function has C++
 * linkage; C programs reach it under the same name. */
#ifdef __cplusplus
VX_EXPORT int VXGetExposureTimeEx(int handle, long* exposure);
#else
VX_EXPORT int VXGetExposureTimeEx(int handle, long* exposure) __asm__("_Z19VXGetExposureTimeExiPl");
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Sends three shutter parameters, the close delay first. */
VX_EXPORT int VXSetShutterParams(int handle, long first, long second, int third);

/* Asks for them; at worst 20 s. */
VX_EXPORT int VXGetShutterParams(int handle, long* first, long* second, int* third);

/* Sends the shutter override [-1]. */
VX_EXPORT int VXSetShutterOverride(int handle, int first, int second);

/* ---- Area -------------------------------------------------------------------------------- */

/* Sends the area to read, in sensor pixels (0 to 65535), and remembers it for VXReadCCDArea [-1].
 */
VX_EXPORT int VXSetCCDArea(int handle, int firstColumn, int firstRow, int columns, int rows);

/* Tells the remembered area. */
VX_EXPORT int VXGetCCDArea(int handle, int* firstColumn, int* firstRow, int* columns, int* rows);

/* Sends 0 to 16 regions: first rows, first columns, heights, widths, each int[count] [-5]. */
VX_EXPORT int VXSetAreaEx(int handle, int count, int* rows, int* columns, int* heights,
                          int* widths);

/* Asks for them; the arrays are int[16], `count` is as the camera tells it, and may be more;
 * `first` is a byte of the answer beside it. The remembered area follows the answer, and is empty
 * without one; at worst 10 s. */
VX_EXPORT int VXGetAreaEx(int handle, int* first, int* count, int* rows, int* columns, int* heights,
                          int* widths);

/* ---- Binning ----------------------------------------------------------------------------- */

/* Sends vertical binning table `index` (0 to 7): one byte a sensor row, at most 2048 [-5]. */
VX_EXPORT int VXSetBinParam(int handle, unsigned char* table, int index);

/* Sends horizontal binning table `index` (0 to 7): one byte a sensor column, at most 2048 [-5]. */
VX_EXPORT int VXSetHorBinParam(int handle, unsigned char* table, int index);

/* Asks for a vertical table; *size is the room in `table` and gets the table's length in every
 * case, 0 when no answer came; at worst 10 s [-4 too small, -5 null pointer]. */
VX_EXPORT int VXGetBinParam(int handle, int index, unsigned char* table, int* size);

/* The same for a horizontal table. */
VX_EXPORT int VXGetHorBinParam(int handle, int index, unsigned char* table, int* size);

/* Sends the mask, unsigned char[sensor rows][sensor columns], in halves of at most 512 bytes a row;
 * takes 2 ms a row. What could not be sent is not told [-1 when the camera is closed meanwhile, -5
 * null pointer]. */
VX_EXPORT int VXSetBinMaskParam(int handle, unsigned char* mask, int argument);

/* Asks for the mask, two requests a row, each at worst 10 s. `mask` needs room for 512 bytes from
 * the start of its last half-row on; `unused` is not written. */
VX_EXPORT int VXGetBinMaskParam(int handle, unsigned char* mask, int* unused, int* argument);

/* Sends 0 to 16 pairs of factors, each 0 to 7 [-1, -5]. */
VX_EXPORT int VXSetBinningSequence(int handle, unsigned char* vertical, unsigned char* horizontal,
                                   unsigned char count);

/* Asks for them; the arrays are unsigned char[16]; at worst 10 s. */
VX_EXPORT int VXGetBinningSequence(int handle, unsigned char* vertical, unsigned char* horizontal,
                                   unsigned char* count);

/* Sends the first three; the fourth does not travel [-1]. */
VX_EXPORT int VXSetSimpleBinning(int handle, int first, int second, float third, float fourth);

/* Asks for all four; at worst 10 s. */
VX_EXPORT int VXGetSimpleBinning(int handle, int* first, int* second, float* third, float* fourth);

/* ---- Cooling and temperatures ------------------------------------------------------------ */

/* Sends cooling on (non-zero) or off. */
VX_EXPORT int VXSetCooling(int handle, int on);

/* Asks whether cooling is on; at worst 10 s. */
VX_EXPORT int VXGetCooling(int handle, int* on);

/* Sends the sensor's target temperature in degrees Celsius, in steps of 0.1 [-1; -5 for what is no
 * number]. */
VX_EXPORT int VXSetCCDTargetTemp(int handle, float degrees);

/* Asks for it; at worst 20 s. */
VX_EXPORT int VXGetCCDTargetTemp(int handle, float* degrees);

/* Tells the sensor temperature of the last heartbeat, in the camera's units (mostly 0.1 degrees
 * Celsius); 0 before the first. */
VX_EXPORT int VXGetCCDTemp(int handle, short* temperature);

/* The same for the board. */
VX_EXPORT int VXGetBoardTemp(int handle, short* temperature);

/* Sends the fan on (non-zero) or off [-1]. */
VX_EXPORT int VXEnableFan(int handle, int on);

/* ---- Trigger, pins, gain ----------------------------------------------------------------- */

/* Sends a trigger [-1]. */
VX_EXPORT int VXSetTrigger(int handle, int trigger);

/* Asks for the trigger's state; at worst 10 s. */
VX_EXPORT int VXGetTrigger(int handle, int* trigger);

/* Sends the external trigger's mode and its two parameters [-1]. */
VX_EXPORT int VXSetTriggerMode(int handle, teExtTrigMode mode, int first, int second);

/* Asks for them; at worst 10 s. */
VX_EXPORT int VXGetTriggerMode(int handle, teExtTrigMode* mode, int* first, int* second);

/* Sends whether the trigger is armed again by itself [-1]. */
VX_EXPORT int VXSetAutoTriggerReArm(int handle, int on);

/* Asks for it; at worst 10 s. */
VX_EXPORT int VXGetAutoTriggerReArm(int handle, int* on);

/* Sends the level of an output pin [-1]. */
VX_EXPORT int VXSetGPIO(int handle, int pin, tePinState state);

/* Asks for the pins: the pin word itself, as a signed number, or -2 for a failure of any kind (-3
 * without such a camera); at worst 10 s. */
VX_EXPORT int VXGetGPIO(int handle);

/* Sends the gain [-1]. */
VX_EXPORT int VXSetGain(int handle, int gain);

/* Asks for the gain's configuration; at worst 10 s. */
VX_EXPORT int VXGetGainConfig(int handle, int* first, float* second, int* third);

/* Sends the offset (bias) and waits for the acknowledgement, at worst 5 s [-1, -2]. */
VX_EXPORT int VXSetCCDOffset(int handle, unsigned short offset, bool flag);

/* Asks for the measured readout noise; at worst 5 s. */
VX_EXPORT int VXGetReadoutNoise(int handle, float* first, float* second);

/* ---- CIS sensors ------------------------------------------------------------------------- */

/* Sends the shutter's mode [-1]. */
VX_EXPORT int VXCISSetShutterMode(int handle, teCISShutterMode mode);

/* Sends which gain channel is read [-1]. */
VX_EXPORT int VXCISSelectChannel(int handle, teCISChannelConfig channel);

/* Sends a calibration action; 1 loads and 2 clears the calibration [-1]. */
VX_EXPORT int VXCISCalibrate(int handle, int action);
VX_EXPORT int VXCISLoadCalibration(int handle);
VX_EXPORT int VXCISClearCalibration(int handle);

/* Asks for the state of the calibration; at worst 10 s. */
VX_EXPORT int VXCISCalibrationState(int handle, int* state);

/* ---- Images: intervals, mirroring, test pattern, shearing, recording --------------------- */

/* Sends the time between images, in ms (low 32 bits) [-1]. */
VX_EXPORT int VXSetImageInterval(int handle, unsigned long interval);

/* Asks for the four intervals; at worst 20 s. */
VX_EXPORT int VXGetImageIntervals(int handle, unsigned long* first, unsigned long* second,
                                  unsigned long* third, unsigned long* fourth);

/* Sends the mirroring, 0 or 1 each [-1]. */
VX_EXPORT int VXSetCCDImageMirroring(int handle, unsigned int horizontal, unsigned int vertical);

/* Asks for it; at worst 10 s. */
VX_EXPORT int VXGetCCDImageMirroring(int handle, unsigned int* horizontal, unsigned int* vertical);

/* Sends a test pattern, mode 0 to 6 (-5 otherwise), with 0 to 31 values (-1 otherwise) [-1, -5]. */
VX_EXPORT int VXSetTestPattern(int handle, int mode, unsigned short* values, int count);

/* Sends the shearing parameters [-1]. */
VX_EXPORT int VXSetShearingParams(int handle, int first, unsigned int second, unsigned int third,
                                  unsigned int fourth);

/* Sends the recording parameters; -5 for a null pointer [-1, -5]. */
VX_EXPORT int VXSetRecording(int handle, tsRecordParams* params, int unused);

/* ---- Blocks of data ---------------------------------------------------------------------- */

/* Sends a block of timing data of up to 4356 bytes, filled up with 0 [-1; -4 for another size; -5].
 */
VX_EXPORT int VXSetTimingData(int handle, void* data, int size);

/* Asks for it; `data` has room for 4356 bytes, `size` gets 4356; at worst 10 s. */
VX_EXPORT int VXGetTimingData(int handle, void* data, int* size);

/* Sends parameter `id`, 1 to 2048 bytes [-1, -5]. */
VX_EXPORT int VXSetParameter(int handle, unsigned int id, void* value, int size);

/* Asks for parameter `id` of exactly `size` bytes; at worst 10 s [-5 when the size is out of range
 * or not the parameter's; any status that the camera gives instead of a value]. */
VX_EXPORT int VXGetParameter(int handle, unsigned int id, void* value, int size);

/* Asks for the hardware information; *size is the room in `info`, lowered to what came; at worst 10
 * s
 * [-4 when *size is 0, which then becomes 100]. */
VX_EXPORT int VXGetCameraHardwareInfo(int handle, TVXCameraHardware* info, int* size);

/* Sends the first *size bytes of it, at most 100; *size is lowered to 100 [-5 null pointer]. */
VX_EXPORT int VXSetCameraHardwareInfo(int handle, TVXCameraHardware* info, int* size);

/* Asks for the network configuration; at worst 10 s. */
VX_EXPORT int VXGetCameraNetworkConfig(int handle, TVXNetworkConfig* config);

/* Sends it [-5 null pointer]. */
VX_EXPORT int VXSetCameraNetworkConfig(int handle, TVXNetworkConfig* config);

/* ---- The camera itself ------------------------------------------------------------------- */

/* Sends the clearing of the sensor; a negative argument gives -5, only the first travels [-5]. */
VX_EXPORT int VXClearCCD(int handle, int first, int second);

/* Sends the reset. */
VX_EXPORT int VXCameraReset(int handle);

/* Sends a message of the application's own: a 12-byte header, of which the length (u16 at 2,
 * payload bytes) and the id (24 bits at 9) are set, and the payload behind it. The rest of the
 * header is filled in [-1; -5 null pointer]. */
VX_EXPORT int VXSendUserDefined(int handle, void* message);

/* Engineering access; `data` holds 32-bit words. 100 reads register data[0] into data[1]; 101
 * writes data[1] to it; 102 writes a converter (channel byte 0, value u16 at byte 4, flag byte 8);
 * 103 runs a link test (tsLinkTestCmd); 104 sends 100 bytes of hardware information; 105 sends
 * three floats to the cooler's controller, 106 asks for them (tsSetPIDCmd); 107 sends filters
 * (tsSetFilterCmd). Results are those of the operation [-5 for another command or a null pointer].
 */
VX_EXPORT int VXEngineeringCommand(int handle, int command, void* data);

#ifdef __cplusplus
}
#endif

#endif
