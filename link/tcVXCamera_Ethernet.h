// A camera over one TCP connection, and the discovery of such cameras.
#ifndef TCVXCAMERA_ETHERNET_H
#define TCVXCAMERA_ETHERNET_H

#include "HSocket.h"
#include "tcVXCamera.h"
#include "vxexport.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

class tcHost;

// One local network interface with an IPv4 address.
struct tsNicInfo {
    std::string name;
    std::string description; // always empty
    std::string address;     // dotted text
};

// The IPv4 interfaces in the system's order, loopback included; empty when they cannot be listed.
VX_EXPORT std::vector<tsNicInfo> enumNics(bool unused);

// The TCP transport. A connection that the camera closes is made anew: at once, then after pauses
// that double from 10 ms to 1 s; an attempt that takes longer than 1 s is given up. The first one
// goes to the address known, the following ones to where the host's name leads by then. A camera of
// which nothing is heard, not even by the network's own questions, counts as having closed the
// connection after 6 s, or 13 s at most while commands are sent to it; one that only reads nothing
// does not.
//
// Threads: one receive thread reads the socket, parses and dispatches; it runs from Initialize to
//   destruction. SendMessage may be called from any thread.
//   Behind a failed attempt the host's name is looked up again on a thread of its own.
// Locks: mSendMutex serialises stamping and sending, and guards the socket against being closed or
//   connected meanwhile. Inside it mSocketMutex does the latter alone, for moments; it is the
//   innermost lock.
// Owns: its socket and its receive thread.
class VX_EXPORT tcVXCamera_Ethernet : public tcVXCamera
{
public:
    // Does not connect yet. `address` is a host name, or an IPv4 address of four numbers.
    tcVXCamera_Ethernet(const char* address, unsigned short port);
    // Ends the connection within 0.5 s, unless an application callback keeps the receive thread.
    ~tcVXCamera_Ethernet() override;

    // Connects (at most 20 s), starts receiving and shakes hands with the camera (at most 10 s).
    // Non-zero on success; after a failure it may be called again. What is no host name and no
    // address is refused before anything is sent.
    int Initialize() override;

    // Stamps and sends one message: 0, or -1 without a connection or when it could not be sent
    // whole. A camera that takes nothing for 5 s loses its connection, which is then made anew.
    int SendMessage(tsMsgHeader* frame) override;
    // Also gives up, without a loss of the connection, when another thread is stuck in a send.
    int SendMessageWithin(tsMsgHeader* frame, int limitMs) override;

    // The receive thread's entry and body.
    static void* DispatchMonitorThread(void* self);
    void MonitorThread();

    // Broadcasts on every IPv4 interface, waits a little over 0.5 s for answers and fills list[max]
    // with the cameras that answer, each address once: how many, or -1 when the sockets cannot be
    // set up. Datagrams that do not cease are read for 2 s at most.
    static int LocateEnetCameras(tsEnetData* list, int max);

protected:
    void Interrupt() override;

    std::chrono::milliseconds mSendLimit{5000}; // without progress

private:
    int Open();
    void AwaitLastWords();
    bool HasVanished();
    int Transmit(tsMsgHeader* frame, std::chrono::milliseconds limit, bool endsLink);
    bool AwaitRoom(std::chrono::milliseconds limit);
    int SendBytes(const char* bytes, int length, std::chrono::milliseconds limit);
    void StopReceiving();
    int Receive(char* buffer, int size);
    void TakePiece(char* bytes, int length);
    void DumpBytes(const char* bytes, int length);
    void SetConnected();
    void Disconnect();
    void Reconnect();
    bool PauseUntil(std::chrono::steady_clock::time_point time);

    unsigned short mnPort;
    std::unique_ptr<tcHost> mpHost;
    std::mutex mSendMutex;
    HSocket mSocket;
    std::mutex mSocketMutex;
    bool mbConnected = false; // changed under both mutexes
    struct tsReceiveBuffer;
    std::unique_ptr<tsReceiveBuffer> mpReceived; // by the receive thread
    std::thread mMonitorThread;
    std::atomic<bool> mbStopMonitor{false};
    std::mutex mPauseMutex;
    std::condition_variable mPauseCondition;
    std::chrono::steady_clock::time_point mConnectedSince, mUnansweredSince;
    std::chrono::milliseconds mReconnectDelay{0};
};

#endif
