// One readout: from the command to the last frame's copy in the queue.
#ifndef READOUT_H
#define READOUT_H

#include "tcFrameQueue.h"
#include "tcProgress.h"
#include "tcSession.h"

enum class teReadout { eArea, eBinned, eMaskBinned };

struct tsReadoutPlan {
    teReadout kind = teReadout::eArea;
    tsArea area; // of the sensor; the whole of it for the binned readouts
    int frames = 1;
    std::chrono::milliseconds exposure{1000}; // of the camera's clock
    std::chrono::milliseconds timeout{20000}; // of silence beyond the exposure
};

// Where in an image buffer of the sensor's shape a finished frame lies. Area readouts: at the
// area's corner, with the record's rows and columns; when a row came in several packets, which
// shows as more "rows" than the area has, with the area's. Binned readouts: from the first element;
// `firstRow`, the buffer's first row, tells whether a row came in several packets, since what lies
// beyond the record's columns is 0 before the frame. An empty area where the record makes no sense.
tsArea FrameGeometry(const tsImageData& image, const tsReadoutPlan& plan, const tsArea& sensor,
                     const uint32_t* firstRow);

// How many frames may wait for the disk: up to 8, but no more than fit into 256 MiB, and 1.
size_t QueueCapacity(const tsReadoutPlan& plan);

// Reads all frames out, in one command, into the queue, and finishes the queue. The camera is set
// up already. Returns early when `isStopped`, which is asked often, says so. Throws tcFailure: a
// signal, a camera error, a time-out; the readout is aborted then, and complete frames are in the
// queue. Memory: a buffer of the sensor's size.
void RunReadout(tcSession& session, const tsReadoutPlan& plan, tcFrameQueue& queue,
                tcProgress& progress, const std::function<bool()>& isStopped);

#endif
