// Private networks for tests: what is sent in one never reaches a real interface.
#ifndef TCNETWORKNAMESPACE_H
#define TCNETWORKNAMESPACE_H

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

// A network of its own with nothing in it but loopback.
// Threads: one. A thread that enters, and threads it starts from then on, use the private network.
// Owns: the network, which lives as long as this and the sockets made in it.
class tcNetworkNamespace
{
public:
    // Where the system does not allow it, Usable() is false and `reason` says why.
    explicit tcNetworkNamespace(std::string& reason)
    {
        std::thread([&] {
            if (unshare(CLONE_NEWNET) != 0) {
                reason = std::string("no network of its own: ") + strerror(errno);
                return;
            }
            if (!Command("ip link set lo up")) {
                reason = "the command ip does not work";
                return;
            }
            mhNetwork = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
        }).join();
    }
    ~tcNetworkNamespace()
    {
        if (mhBefore >= 0) {
            (void)setns(mhBefore, CLONE_NEWNET);
            close(mhBefore);
        }
        if (mhNetwork >= 0) close(mhNetwork);
    }
    tcNetworkNamespace(const tcNetworkNamespace&) = delete;
    tcNetworkNamespace& operator=(const tcNetworkNamespace&) = delete;

    bool Usable() const { return mhNetwork >= 0; }

    // Moves the calling thread into the network until this object's end.
    bool Enter()
    {
        if (!Usable()) return false;
        mhBefore = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
        return setns(mhNetwork, CLONE_NEWNET) == 0;
    }

    // Runs a function inside the network, on a thread of its own.
    void Run(const std::function<void()>& function) const
    {
        std::thread([&] {
            if (setns(mhNetwork, CLONE_NEWNET) == 0) function();
        }).join();
    }

    // Runs a shell command inside.
    bool Execute(const std::string& command) const
    {
        bool done = false;
        Run([&] { done = Command(command); });
        return done;
    }

    // A cable from here to another network: an interface here and one there, each with an address
    // and its prefix length. Datagrams pass it when this returns.
    bool Connect(const std::string& name, const std::string& address,
                 const tcNetworkNamespace& other, const std::string& otherName,
                 const std::string& otherAddress) const
    {
        const std::string there =
            "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(other.mhNetwork);
        return Execute("ip link add " + name + " type veth peer name " + otherName + " netns " +
                       there) &&
               Execute("ip addr add " + address + " dev " + name + " && ip link set " + name +
                       " up") &&
               other.Execute("ip addr add " + otherAddress + " dev " + otherName +
                             " && ip link set " + otherName + " up") &&
               Reaches(other, otherAddress.substr(0, otherAddress.find('/')));
    }

private:
    // A new cable takes a while to come up.
    bool Reaches(const tcNetworkNamespace& other, const std::string& otherAddress) const
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(9999);
        address.sin_addr.s_addr = inet_addr(otherAddress.c_str());
        const auto* target = reinterpret_cast<const sockaddr*>(&address);
        int from = -1, to = -1;
        Run([&] { from = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); });
        other.Run([&] { to = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); });
        bool arrived = false;
        if (bind(to, target, sizeof address) == 0) {
            for (int i = 0; i < 1000 && !arrived; ++i) {
                sendto(from, "", 1, 0, target, sizeof address);
                pollfd entry{to, POLLIN, 0};
                arrived = poll(&entry, 1, 10) > 0;
            }
        }
        close(from);
        close(to);
        return arrived;
    }

    static bool Command(const std::string& command)
    {
        return std::system(("{ " + command + "; } >/dev/null 2>&1").c_str()) == 0;
    }

    int mhNetwork = -1, mhBefore = -1;
};

#endif
