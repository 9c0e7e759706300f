/* Takes frames into buffers in turn: each is looked at while the next one comes, and nothing is
 * copied. Tells of each frame whether it is complete, and when it came.
 *
 *     cc -std=c11 frames.c $(pkg-config --cflags --libs vxcamiface) -o frames
 *     ./frames HOST PORT FRAMES
 */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <vxcamext.h>
#include <vxcamiface.h>

enum { kBuffers = 4 };

struct counts {
    unsigned complete, incomplete, lost;
};

/* Runs on the camera's receive thread. A program that takes long hands the buffer to a thread of
 * its own, which gives it back later. */
static void on_frame(int camera, const tsFrameRecord* frame, void* user)
{
    struct counts* counts = user;
    if (frame->Buffer == NULL) { /* no buffer was free */
        ++counts->lost;
        return;
    }
    const uint16_t* pixels = frame->Buffer;
    uint64_t sum = 0;
    for (uint32_t row = 0; row < frame->Rows; ++row) {
        const uint16_t* line = pixels + (size_t)(frame->FirstRow + row) * frame->Stride;
        for (uint32_t column = 0; column < frame->Columns; ++column) {
            sum += line[frame->FirstColumn + column];
        }
    }
    printf("frame %" PRIu32 ": %" PRIu32 " x %" PRIu32 ", sum %" PRIu64 ", %" PRIu32 " of %" PRIu32
           " packets, %.3f ms after the command\n",
           frame->Frame, frame->Columns, frame->Rows, sum, frame->PacketsReceived,
           frame->PacketsExpected,
           (double)(frame->LastPacket.Monotonic - frame->CommandSent.Monotonic) / 1e6);
    if (frame->Outcome == eFrameComplete) {
        ++counts->complete;
    } else {
        ++counts->incomplete;
    }
    VXReturnImageBuffer(camera, frame->Buffer);
}

int main(int argc, char** argv)
{
    if (argc != 4) {
        fprintf(stderr, "usage: frames HOST PORT FRAMES\n");
        return 1;
    }
    const short frames = (short)atoi(argv[3]);
    int camera = VXOpenENetCamera(argv[1], (unsigned short)atoi(argv[2]));
    TVXCameraHardware info;
    int size = sizeof info;
    if (camera < 0 || VXGetCameraHardwareInfo(camera, &info, &size) != 0) return 2;

    void* buffers[kBuffers];
    const size_t bytes = (size_t)info.Rows * info.Columns * sizeof(uint16_t);
    for (int i = 0; i < kBuffers; ++i) {
        buffers[i] = malloc(bytes);
    }
    struct counts counts = {0, 0, 0};
    VXSetFrameCallback(camera, on_frame, &counts);
    VXSetImageBuffers(camera, buffers, kBuffers, bytes);
    VXSetCCDArea(camera, 0, 0, info.Columns, info.Rows);
    VXSetExposure(camera, 10); /* ms */
    VXReadCCDArea(camera, NULL, frames, 0);
    const int result = VXWaitCompletion(camera, 60000);
    const int how = VXReadoutResult(camera);
    VXCloseCamera(camera); /* behind it the buffers are ours */
    for (int i = 0; i < kBuffers; ++i) {
        free(buffers[i]);
    }
    printf("%u complete, %u incomplete, %u lost\n", counts.complete, counts.incomplete,
           counts.lost);
    return result == 0 && how == eReadoutComplete ? 0 : 3;
}
