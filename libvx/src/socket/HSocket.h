// Sockets, addresses and access lists.
//
// A thin layer over the system's sockets with a few policies of its own: set-up calls answer with
// non-zero for success and 0 for failure (errno says why), receiving knows a time-out in
// milliseconds, and -2 means "time-out" everywhere. Every descriptor is close-on-exec, and writing
// to a vanished peer never raises SIGPIPE.
#ifndef HSOCKET_H
#define HSOCKET_H

#include "vxexport.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <cstdint>
#include <memory>

class HSocket;

// Anything that has a file descriptor.
class VX_EXPORT HFDObject
{
public:
    virtual ~HFDObject();

    // The descriptor, -1 when there is none.
    virtual int GetFD() = 0;

    // Waits until one of `count` objects is readable (which includes a closed or failed peer).
    // `timeoutMs` below 0 waits without limit. Returns the index of the first readable object in
    // the order given, -2 after the time-out, -1 when waiting failed (a signal, a bad descriptor).
    static int Select(int count, HFDObject** objects, int timeoutMs);
};

// An IPv4 address and port.
class VX_EXPORT HInetAddr
{
public:
    HInetAddr();

    // As Set(host, port).
    HInetAddr(const char* host, unsigned short port);

    explicit HInetAddr(const sockaddr_in& address);

    // Text of digits and dots is taken as an address, other text is resolved by name (this waits
    // for the resolver). Text that is neither, gives 255.255.255.255; null gives 0.0.0.0. Both are
    // read as the system does: "127.1" is 127.0.0.1, "010.0.0.1" is 8.0.0.1, "0x7f.1" is no name
    // but 127.0.0.1, and "0", which is 0.0.0.0, connects to this host.
    void Set(const char* host, unsigned short port);

    // `address` in network order, `port` in host order.
    void Set(unsigned int address, unsigned short port);

    // The address as dotted text, in a buffer of the calling thread that its next call overwrites.
    const char* GetIPAddr() const;

    // The address in network order.
    unsigned int GetAddr() const;

    // The port in host order.
    unsigned short GetPort() const;

    // Takes the local or the peer address of a socket; 0 when it has none.
    int GetSockName(HSocket& socket);
    int GetPeerName(HSocket& socket);

    const sockaddr_in& GetSockAddr() const { return mAddress; }
    sockaddr_in& GetSockAddr() { return mAddress; }

private:
    sockaddr_in mAddress;
};

// An address in the file system, at most 107 characters; longer paths are cut.
class VX_EXPORT HUnixAddr
{
public:
    HUnixAddr();
    explicit HUnixAddr(const char* path);

    void Set(const char* path);
    const char* GetPath() const { return mAddress.sun_path; }

    const sockaddr_un& GetSockAddr() const { return mAddress; }
    sockaddr_un& GetSockAddr() { return mAddress; }

private:
    sockaddr_un mAddress;
};

// A socket. Not copyable.
// Threads: used by one owner, except that one thread may send while another receives.
// Owns: its descriptor, closed by the destructor.
class VX_EXPORT HSocket : public HFDObject
{
public:
    HSocket();
    ~HSocket() override;
    HSocket(const HSocket&) = delete;
    HSocket& operator=(const HSocket&) = delete;

    int GetFD() override;

    // ---- Set-up: non-zero on success, 0 on failure --------------------------------------------

    // Closes what was open and makes an IPv4 socket of `type` (SOCK_STREAM or SOCK_DGRAM). Binds it
    // to `addr` (dotted text, empty means any) and `port` when `addr` is given, when `port` is not
    // 0 or when the type is datagram; prints where to, on standard output.
    int Create(unsigned short port = 0, int type = SOCK_STREAM, const char* addr = nullptr);

    // Closes what was open and makes a Unix-domain socket bound to `path`, removing the path first
    // when `unlinkFirst` is set.
    int CreateUnix(const char* path, int type, bool unlinkFirst);

    // Binds to the address of Create; prints the port and the outcome.
    int Bind();

    int Listen(int backlog);

    // Connects by TCP to a dotted address or a host name and waits for the outcome, with a receive
    // buffer of 2 MiB. After a failure the descriptor stays open and the next call tries again on
    // it; only when the socket turns out to be connected with itself it is closed.
    int Connect(const char* host, unsigned short port);

    // The same, given up when `cancel` becomes true (seen within 50 ms; errno is ECANCELED) and
    // after `timeoutMs` (ETIMEDOUT). Resolving a host name cannot be cancelled. The socket is left
    // in blocking mode, and the size of its receive buffer to the system where that does not grant
    // all of the 2 MiB.
    int Connect(const char* host, unsigned short port, const std::atomic<bool>& cancel,
                int timeoutMs = 20000);

    // Connects to a Unix-domain stream socket, after closing what was open.
    int Connect(const char* path);

    // Waits for a client (`timeoutMs` below 0: without limit) and hands its descriptor to `client`.
    // 0 after the time-out, for a null client and for any failure.
    int Accept(HSocket* client, int timeoutMs = -1);

    int Shutdown(int how);

    // Succeeds also when nothing is open.
    int Close();

    // ---- Options: non-zero on success, 0 on failure -------------------------------------------

    int SetAsBroadcasting();
    int SetAsNoLinger();
    int SetAsKeepAlive();
    int DisableNagle(int on = 1);
    int SetRecvBufferSize(int size);
    int SetSendBufferSize(int size);
    // Asks for all of the size or for nothing: where the system grants less, its own tuning of the
    // buffer goes further than a fixed size would, and goes on; 0 then.
    int SetWholeRecvBufferSize(int size);
    int SetTos(int tos);

    // Values of the options; 0 when they cannot be read.
    int GetRecvBufferSize();
    int GetSendBufferSize();
    int GetTos();

    // Peer and local address (network order) and port (host order); 0 when there is none.
    unsigned int GetRemoteIP();
    unsigned short GetRemotePort();
    unsigned int GetLocalIP();
    unsigned short GetLocalPort();

    // The first address of a host as dotted text, null when the name does not resolve. The text is
    // in one buffer of the process: neither it nor the call is for several threads at once.
    static const char* GetIPAddrByName(const char* name);

    // ---- Data transfer: bytes, 0 when the peer has closed, -1 error, -2 time-out --------------

    // Sends what fits at once; a negative length sends the string without its terminator. Works on
    // descriptors that are no sockets, too.
    int Send(const char* data, int length);

    // Sends everything, waiting as long as it takes. Returns the length, or -1.
    int SendAll(const char* data, int length);

    // The same within `timeoutMs` for all of it; -1 after that (errno is ETIMEDOUT), with any part
    // of it sent. For servers, whose clients may not read.
    int SendAll(const char* data, int length, int timeoutMs);

    int SendTo(const char* data, int length, const HInetAddr& to);
    int SendTo(const char* data, int length, const HUnixAddr& to);

    // With a time-out of 1 ms or more waits at most that long; without one waits for data, and then
    // descriptors that are no sockets are read, too (unless flags is MSG_PEEK).
    int Receive(char* buffer, int size, int timeoutMs = 0, int flags = 0);

    int ReceiveFrom(char* buffer, int size, HInetAddr& from, int timeoutMs = 0);
    int ReceiveFrom(char* buffer, int size, int flags, HInetAddr& from);
    int ReceiveFrom(char* buffer, int size, int flags, HUnixAddr& from);

    // As HFDObject::Select, over an array of sockets.
    static int Select(int count, HSocket* sockets, int timeoutMs);

private:
    int PrepareConnect(const char* host, unsigned short port, sockaddr_in& address);
    int ConnectCancellable(const sockaddr_in& address, const std::atomic<bool>& cancel,
                           int timeoutMs);
    int RefuseSelfConnection();
    int SendReady(const char* data, int length, int timeoutMs);
    int SetOption(int level, int name, int value);
    int GetOption(int level, int name);

    int mhDescriptor;
    unsigned short mnPort;
    sockaddr_in mAddress;
    std::unique_ptr<HUnixAddr> mpUnixAddress;
};

// A list of at most 32 addresses and masks, deciding who may connect.
class VX_EXPORT HInetAddrList
{
public:
    HInetAddrList();

    // Adds an address with a mask in dotted text or as a prefix length; null means this address
    // only. "address/mask" in the first argument replaces the second. Prefix length 0 accepts every
    // address. 0 when the address is no dotted text or the list is full.
    int Add(const char* address, const char* mask = nullptr);

    // Non-zero when an entry accepts the address (network order); an empty list accepts none.
    int Check(unsigned int address) const;
    int Check(const HInetAddr& address) const;

    // The same for the peer of a socket; 0 when it has none.
    int CheckRemote(HSocket* socket) const;

    int GetCount() const { return mnCount; }

private:
    static constexpr int nCapacity = 32;

    struct tsEntry {
        uint32_t mnAddress;
        uint32_t mnMask;
    };

    tsEntry maEntries[nCapacity];
    int mnCount;
};

// Prepares the process for using sockets. Nothing is needed on this platform.
class VX_EXPORT HSocketLibrary
{
public:
    HSocketLibrary();
    ~HSocketLibrary();
};

#endif
