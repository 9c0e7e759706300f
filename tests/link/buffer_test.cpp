// The receive buffer of a camera's socket, with a system that grants what the test wants.
#include "link_support.h"

#include <dlfcn.h>
#include <map>

namespace {

// Sizes of receive buffers as the system would keep them, by descriptor.
std::mutex sMutex;
std::map<int, int> smBuffers;
int snGranted = 0; // at most, in bytes

constexpr int gnWanted = 2 * 1024 * 1024;

} // namespace

// These stand in front of the system's own for the whole program.
extern "C" VX_EXPORT int setsockopt(int descriptor, int level, int name, const void* value,
                                    socklen_t size) noexcept
{
    using tFunction = int(int, int, int, const void*, socklen_t);
    static const auto real = reinterpret_cast<tFunction*>(dlsym(RTLD_NEXT, "setsockopt"));
    if (level != SOL_SOCKET || name != SO_RCVBUF) {
        return real(descriptor, level, name, value, size);
    }
    std::lock_guard<std::mutex> lock(sMutex);
    smBuffers[descriptor] = 2 * std::min(*static_cast<const int*>(value), snGranted);
    return 0;
}

extern "C" VX_EXPORT int getsockopt(int descriptor, int level, int name, void* value,
                                    socklen_t* size) noexcept
{
    using tFunction = int(int, int, int, void*, socklen_t*);
    static const auto real = reinterpret_cast<tFunction*>(dlsym(RTLD_NEXT, "getsockopt"));
    std::lock_guard<std::mutex> lock(sMutex);
    const auto kept = smBuffers.find(descriptor);
    if (level != SOL_SOCKET || name != SO_RCVBUF || kept == smBuffers.end()) {
        return real(descriptor, level, name, value, size);
    }
    *static_cast<int*>(value) = kept->second;
    return 0;
}

extern "C" VX_EXPORT int close(int descriptor)
{
    using tFunction = int(int);
    static const auto real = reinterpret_cast<tFunction*>(dlsym(RTLD_NEXT, "close"));
    {
        std::lock_guard<std::mutex> lock(sMutex);
        smBuffers.erase(descriptor);
    }
    return real(descriptor);
}

class Buffer : public Link
{
protected:
    // What the link has fixed for its connection; 0 when it left that to the system.
    int Fixed() const
    {
        const int descriptor = peer.ClientDescriptor();
        std::lock_guard<std::mutex> lock(sMutex);
        const auto kept = smBuffers.find(descriptor);
        return kept == smBuffers.end() ? 0 : kept->second;
    }
};

TEST_F(Buffer, IsTwoMebibytesWhereTheSystemGrantsAllOfIt)
{
    snGranted = gnWanted;
    Open();
    EXPECT_EQ(2 * gnWanted, Fixed());
    peer.Close();
    ASSERT_TRUE(peer.Accept());
    Synchronise();
    EXPECT_EQ(2 * gnWanted, Fixed());
}

TEST_F(Buffer, IsLeftToTheSystemWhereItGrantsLess)
{
    for (int granted : {212992, gnWanted - 1}) {
        snGranted = granted;
        camera = std::make_unique<tcVXCamera_Ethernet>("127.0.0.1", peer.Port());
        camera->SetUserDefinedCallback(tcReceivedMessages::Callback);
        Open();
        EXPECT_EQ(0, Fixed());
        peer.Close();
        ASSERT_TRUE(peer.Accept());
        Synchronise();
        EXPECT_EQ(0, Fixed());
    }
}

TEST_F(Buffer, OfASocketByItselfIsAskedForAllTheSame)
{
    snGranted = 212992;
    HSocket plain, cancellable;
    const std::atomic<bool> cancel{false};
    ASSERT_EQ(1, plain.Connect("127.0.0.1", peer.Port()));
    ASSERT_EQ(1, cancellable.Connect("127.0.0.1", peer.Port(), cancel));
    std::lock_guard<std::mutex> lock(sMutex);
    EXPECT_EQ(1u, smBuffers.count(plain.GetFD()));
    EXPECT_EQ(0u, smBuffers.count(cancellable.GetFD()));
}
