// The simulated camera as an application, a test or the vxcamsim program embeds it.
#ifndef TCSIMSERVER_H
#define TCSIMSERVER_H

#include "faults.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

// A moment on the host's clocks, in nanoseconds.
struct tsSimMoment {
    int64_t realtime = 0;  // CLOCK_REALTIME: since the beginning of 1970, UTC
    int64_t monotonic = 0; // CLOCK_MONOTONIC
};

// What of a frame really went out, where faults make it another than the camera meant to send.
struct tsSimSent {
    uint32_t packets = 0; // whole ones, copies included
    uint32_t lost = 0;    // packets of the frame whose pixels did not go out, as far as it has come
    // Of the frame as somebody has it who puts the pixels of each packet where it says, with zeros
    // where none came.
    uint64_t pixelSum = 0;
    uint32_t crc = 0;
    bool intact = false; // all packets went out as they were meant: once, in order, unchanged
};

// One frame the camera sent or began to send. What is said of its pixels is what the camera meant
// to send; `sent` says what became of that.
struct tsSimFrame {
    uint32_t readout = 0; // readout number since the server was built, from 1
    uint32_t frame = 0;   // frame within the readout, from 1
    uint32_t rows = 0;    // rows of pixels: of the area, or of the binned picture
    uint32_t columns = 0;
    uint32_t bits = 0;     // width of a pixel: 8, 16 or 32
    uint64_t pixelSum = 0; // of the pixels sent; of an aborted frame those that went out
    uint32_t crc = 0;      // CRC-32 of the same, as they go out: row by row, low bytes first
    uint32_t minimum = 0;  // of the whole frame, also of an aborted one
    uint32_t maximum = 0;
    uint32_t packets = 0; // sent
    uint32_t totalPackets = 0;
    double exposure = 0;    // seconds
    double temperature = 0; // of the sensor, degrees Celsius
    bool lastFrame = false; // the readout's final frame
    bool complete = false;  // set before the last packet leaves, so whoever has that sees it set
    bool aborted = false;   // ended early: AbortRead, reset, or the client left
    tsSimMoment begin, end; // of its exposure
    tsSimSent sent;         // set, as `complete` is, before the last packet leaves
};

// Counted before what is counted leaves the camera, so whoever has received it sees it counted;
// bytesSent alone is counted when the bytes are gone.
struct tsSimStatistics {
    uint64_t connections = 0;    // clients served
    uint64_t refused = 0;        // clients turned away because another one is served
    uint64_t commands = 0;       // commands accepted as well-formed, user-defined ones included
    uint64_t protocolErrors = 0; // wrong version, wrong length, unknown id, too long
    uint64_t cameraErrors = 0;   // camera error messages sent, those for protocol errors included
    uint64_t skippedBytes = 0;   // received and belonging to no frame
    uint64_t heartbeats = 0;
    uint64_t noOps = 0;
    uint64_t framesComplete = 0;
    uint64_t framesAborted = 0;
    uint64_t bytesSent = 0;
    uint64_t bytesReceived = 0;
    uint64_t discoveryReplies = 0;
    uint64_t faults = 0;    // that struck
    bool connected = false; // a client is served now
};

enum class teSimEvent {
    eListening,
    eConnected,
    eRefused,
    eDisconnected,
    eReadout, // a readout was accepted
    eFrame,   // a frame was sent whole or ended early; see `frame`
    eError,   // a camera error was sent to the client
    eFault,   // something went wrong on purpose
    eTrace    // what arrived and what was made of it
};

struct tsSimEvent {
    teSimEvent event;
    std::string text;
    tsSimFrame frame; // of eFrame
};

// What may change while the camera runs. The next picture, packet or heartbeat is as it says.
struct tsSimTunables {
    double ambient = 20.0;         // degrees Celsius
    double heartbeatSeconds = 1.0; // between heartbeats; 0: none
    bool hotPixels = true;         // as far as the camera's filter lets them through
    double lineRate = 0;           // packets a second; 0: as the socket takes
    double readNoise = 6.0;        // electrons, rms
    double sky = 50.0;             // electrons a pixel and second
    int32_t stars = -1;            // of the field; negative: as its size has them
    double defocus = 0;            // radius of a point's image in pixels
    double seeing = 0;             // full width at half maximum of the air's blur, in pixels
    double driftRows = 0;          // pixels that the stars move in a second of camera time
    double driftColumns = 0;

    bool Drifts() const { return driftRows != 0 || driftColumns != 0; }
};
bool operator==(const tsSimTunables& first, const tsSimTunables& second);

struct tsSimOptions {
    uint16_t columns = 2048; // of the sensor; limits: docs/simulator.md
    uint16_t rows = 2048;
    std::string bind = "127.0.0.1"; // IPv4 address to listen on
    uint16_t port = 0;              // 0: any free port
    uint32_t serial = 1;
    std::string name = "vxcamsim"; // at most 31 bytes reach the hardware information
    uint64_t seed = 1;             // same seed and same history of commands: same frames
    double timeScale = 1.0;        // camera time by wall-clock time: 10 makes it ten times as fast
    double lineRate = 0;           // packets a second of wall-clock time; 0: as the socket takes
    double heartbeatSeconds = 1.0; // wall-clock time between heartbeats; 0: none
    double ambient = 20.0;         // degrees Celsius; where the sensor starts
    double defocus = 0, seeing = 0, driftRows = 0, driftColumns = 0; // as in tsSimTunables
    bool reuseFrame = false;        // send the first frame again instead of making new ones
    bool discovery = false;         // answer discovery requests on UDP
    uint16_t discoveryPort = 52112; // 0: any free port
    std::vector<tsSimFault> faults; // what goes wrong; made by ParseSimFault and its like
    uint64_t faultSeed = 1;         // of what the faults leave to chance
    // Called on the server's thread, which does nothing else meanwhile; may be empty. It may call
    // everything but Stop.
    std::function<void(const tsSimEvent&)> events;
    bool trace = false; // also raise eTrace events
    // Asked on the server's thread again and again; the values must be possible ones. May be empty:
    // then nothing changes.
    std::function<tsSimTunables()> tunables;
};

// A camera that listens on TCP.
//
// Threads: Start, Stop and the destructor on one thread; the rest on any. The
//   server runs two threads of its own: one for all that is spoken, one that makes pictures.
// Owns: the threads, the sockets and the camera's state, which survives clients that come and go.
class tcSimServer
{
public:
    // Throws std::runtime_error, saying which option is impossible and why.
    explicit tcSimServer(tsSimOptions options);
    ~tcSimServer();
    tcSimServer(const tcSimServer&) = delete;
    tcSimServer& operator=(const tcSimServer&) = delete;

    // Listens and returns the port. Throws std::system_error (a std::runtime_error) when the
    // address or port cannot be had. Starting twice is an error; starting after Stop is not.
    uint16_t Start();

    // Ends a readout, closes all connections and joins the threads. Harmless when not started.
    void Stop();

    // Of the TCP listener and of the discovery socket; 0 before Start.
    uint16_t Port() const;
    uint16_t DiscoveryPort() const;

    tsSimStatistics Statistics() const;

    // One more fault, for what leaves from now on; its number. One of a kind that may strike a
    // silent connection, given no place and to strike once, strikes before anything is heard that
    // the client says later, or as the next connection begins. Throws std::runtime_error for a
    // fault that cannot be.
    uint32_t Inject(const tsSimFault& fault);
    // Takes back the faults that `which` chooses, also those of the options, and ends within a
    // moment what they do to the connection, the cooler and the heartbeats; how many they were.
    // `which` may not call the server.
    size_t Lift(const std::function<bool(const tsSimFaultState&)>& which);
    // Those that can still strike, and those whose effect lasts.
    std::vector<tsSimFaultState> Faults() const;

    // The most recent frames, at most 64, oldest first.
    std::vector<tsSimFrame> Frames() const;

private:
    class tcImplementation;
    std::unique_ptr<tcImplementation> mpImplementation;
};

#endif
