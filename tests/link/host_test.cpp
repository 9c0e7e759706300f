// Which texts name a host, and where a name leads after the camera was away. This program has a
// resolver of its own.
#include "link_support.h"
#include "vxvisible.h"

#include <dlfcn.h>
#include <map>
#include <netdb.h>

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// Names, where they lead, and how the look-ups go.
// Threads: any.
class tcResolver
{
public:
    void Lead(const std::string& name, const std::string& address)
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mmAddresses[name] = address;
    }
    void Block(bool isBlocked)
    {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mbBlocked = isBlocked;
        }
        mCondition.notify_all();
    }
    // Waits until so many look-ups have begun, or no look-up is under way.
    bool AwaitBegun(int count)
    {
        return WaitUntil([&] { return Begun() >= count; });
    }
    bool AwaitNone()
    {
        return WaitUntil([&] {
            std::lock_guard<std::mutex> lock(mMutex);
            return mnBegun == mnOver;
        });
    }
    int Begun()
    {
        std::lock_guard<std::mutex> lock(mMutex);
        return mnBegun;
    }

    // The dotted text that is to be resolved instead; empty when there is no such name.
    std::string Resolve(const std::string& name)
    {
        std::unique_lock<std::mutex> lock(mMutex);
        ++mnBegun;
        mCondition.wait(lock, [this] { return !mbBlocked; });
        ++mnOver;
        return mmAddresses[name];
    }

private:
    std::mutex mMutex;
    std::condition_variable mCondition;
    std::map<std::string, std::string> mmAddresses;
    bool mbBlocked = false;
    int mnBegun = 0, mnOver = 0;
};

tcResolver& Resolver()
{
    static tcResolver* resolver = new tcResolver; // threads may still be in it at the end
    return *resolver;
}

std::atomic<bool> sbNoThreads{false};

} // namespace

// These stand in front of the system's own for the whole program.
extern "C" VX_EXPORT int getaddrinfo(const char* name, const char* service, const addrinfo* wanted,
                                     addrinfo** found)
{
    using tFunction = int(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto real = reinterpret_cast<tFunction*>(dlsym(RTLD_NEXT, "getaddrinfo"));
    const std::string address = Resolver().Resolve(name);
    return address.empty() ? EAI_NONAME : real(address.c_str(), service, wanted, found);
}

extern "C" VX_EXPORT int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                        void* (*function)(void*), void* argument) noexcept
{
    using tFunction = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto real = reinterpret_cast<tFunction*>(dlsym(RTLD_NEXT, "pthread_create"));
    return sbNoThreads ? EAGAIN : real(thread, attributes, function, argument);
}

// ---- Texts -----------------------------------------------------------------------------------

class HostText : public testing::Test
{
protected:
    HostText() : log(CameraLog()) { log.Clear(); }

    // Whether a camera is looked for there at all.
    bool IsRefused(const std::string& text)
    {
        log.Clear();
        const int before = Resolver().Begun();
        tcVXCamera_Ethernet camera(text.c_str(), peer.Port());
        auto opened = std::async(std::launch::async, [&] { return camera.Initialize(); });
        const bool isReached = WaitUntil([&] {
            return opened.wait_for(milliseconds(0)) == std::future_status::ready ||
                   peer.Accept(milliseconds(1));
        });
        peer.Reset();
        peer.SwitchOff(); // so that a connection made anew ends, too
        while (opened.wait_for(milliseconds(0)) != std::future_status::ready)
            camera.MonitorStep();
        peer.SwitchOn();
        EXPECT_TRUE(isReached);
        EXPECT_EQ(0, opened.get());
        const std::string start = vx::Visible(text.substr(0, 100)); // long records are cut
        const std::string reason = "tcVXCamera_Ethernet::Initialize '" + start;
        const bool isRefused = !log.Errors(reason).empty();
        if (isRefused) {
            EXPECT_EQ(before, Resolver().Begun()) << text;
            EXPECT_EQ(2u, log.Errors().size()) << text;
            EXPECT_EQ(1u, log.Errors("tcVXCamera_Ethernet::Initialize could not connect").size());
        }
        return isRefused;
    }

    tcTimedLog& log;
    tcScriptedCamera peer;
};

TEST_F(HostText, IsAnAddressOfFourNumbersAndNoOtherNumber)
{
    EXPECT_FALSE(IsRefused("127.0.0.1"));
    for (const char* text :
         {"0",          "1",           "127.1",      "127.0.1",    "2130706433", "0x7f.1",
          "0x7f000001", "0x7f.0.0.1",  "0177.0.0.1", "127.0.0.01", "127.0.0.1.", "127.0.0.256",
          "127.0.0",    "1.2.3.4.5",   "0.0.0.0",    ".",          "..",         "127.0.0.1 ",
          " 127.0.0.1", "127.0.0.1\n", "127.0.0.1 x"}) {
        EXPECT_TRUE(IsRefused(text)) << text;
    }
}

TEST_F(HostText, IsAHostName)
{
    const std::string longest(63, 'a');
    for (const std::string& text :
         {std::string("camera"), std::string("camera-2.example"), std::string("cam_era.example."),
          std::string("3com.example"), std::string("deadbeef"), std::string("k\xC3\xA4mera"),
          longest + "." + longest + "." + longest + "." + std::string(61, 'a')}) {
        Resolver().Lead(text, "127.0.0.1");
        EXPECT_FALSE(IsRefused(text)) << text;
    }
    EXPECT_FALSE(IsRefused("unknown.example"));
    for (const std::string& text :
         {std::string(), std::string("camera:4000"), std::string("127.0.0.1:4000"),
          std::string("[::1]"), std::string("::1"), std::string("tcp://camera"),
          std::string("camera/24"), std::string("cam era"), std::string("camera\n"),
          std::string(".camera"), std::string("cam..era"), longest + "a", std::string("me@camera"),
          longest + "." + longest + "." + longest + "." + std::string(62, 'a')}) {
        EXPECT_TRUE(IsRefused(text)) << text;
    }
}

// ---- Where a name leads ----------------------------------------------------------------------

class HostName : public testing::Test
{
protected:
    HostName() : log(CameraLog())
    {
        log.Clear();
        tcReceivedMessages::Clear();
        camera = std::make_unique<tcVXCamera_Ethernet>("camera.example", peer.Port());
        camera->SetUserDefinedCallback(tcReceivedMessages::Callback);
        Resolver().Lead("camera.example", "127.0.0.1");
    }
    ~HostName() override
    {
        camera.reset();
        Resolver().Block(false);
        EXPECT_TRUE(Resolver().AwaitNone());
    }

    void Open()
    {
        auto opened = std::async(std::launch::async, [this] { return camera->Initialize(); });
        ASSERT_TRUE(ShakeHands(peer));
        ASSERT_NE(0, opened.get());
        mnOpened = Resolver().Begun();
    }
    int Begun() const { return Resolver().Begun() - mnOpened; }
    bool AwaitBegun(int count) const { return Resolver().AwaitBegun(mnOpened + count); }

    void Synchronise(tcScriptedCamera& with)
    {
        ASSERT_TRUE(with.Send(MessageBytes(gnUserId, "synchronise")));
        ASSERT_TRUE(tcReceivedMessages::Await(1));
    }
    void SwitchOff()
    {
        peer.SwitchOff();
        peer.Close();
    }
    bool AwaitAttempts(size_t count) const
    {
        return log.AwaitDebug(1, "tcVXCamera_Ethernet::MonitorThread reconnecting", count);
    }

    tcTimedLog& log;
    tcScriptedCamera peer;
    std::unique_ptr<tcVXCamera_Ethernet> camera;

private:
    int mnOpened = 0; // look-ups until the camera was open
};

TEST_F(HostName, IsFollowedToAnotherAddress)
{
    tcScriptedCamera elsewhere(peer.Port(), 8, "127.0.0.2");
    Open();
    Resolver().Lead("camera.example", "127.0.0.2");
    SwitchOff();
    ASSERT_TRUE(elsewhere.Accept(Within(milliseconds(2000))));
    Synchronise(elsewhere);
    // And that is the address known from now on.
    Resolver().Lead("camera.example", "");
    const int before = Resolver().Begun();
    elsewhere.Close();
    ASSERT_TRUE(elsewhere.Accept());
    EXPECT_EQ(before, Resolver().Begun());
}

TEST_F(HostName, IsLookedUpUntilItLeadsToTheCamera)
{
    tcScriptedCamera nobody(peer.Port(), 8, "127.0.0.2"), there(peer.Port(), 8, "127.0.0.3");
    nobody.SwitchOff();
    Open();
    Resolver().Lead("camera.example", "");
    SwitchOff();
    ASSERT_TRUE(AwaitBegun(2));
    Resolver().Lead("camera.example", "127.0.0.2");
    ASSERT_TRUE(AwaitBegun(5));
    Resolver().Lead("camera.example", "127.0.0.3");
    ASSERT_TRUE(there.Accept(Within(milliseconds(5000))));
    Synchronise(there);
}

TEST_F(HostName, IsNotLookedUpWhenTheCameraIsBackAtTheAddressKnown)
{
    tcScriptedCamera elsewhere(peer.Port(), 8, "127.0.0.2");
    Open();
    Resolver().Lead("camera.example", "127.0.0.2");
    peer.Close();
    ASSERT_TRUE(peer.Accept());
    Synchronise(peer);
    EXPECT_EQ(0, Begun());
}

TEST_F(HostName, ThatIsUnknownMeanwhileLeavesTheAddressKnown)
{
    Open();
    Resolver().Lead("camera.example", "");
    SwitchOff();
    ASSERT_TRUE(AwaitBegun(3));
    peer.SwitchOn();
    ASSERT_TRUE(peer.Accept());
    Synchronise(peer);
}

TEST_F(HostName, ThatTheResolverKeepsHoldsUpNeitherThePaceNorTheReturn)
{
    Open();
    Resolver().Block(true);
    SwitchOff();
    ASSERT_TRUE(AwaitBegun(1));
    ASSERT_TRUE(AwaitAttempts(6));
    const auto attempts = log.Debug(1, "tcVXCamera_Ethernet::MonitorThread reconnecting");
    // 10, 20 ... 160
    EXPECT_LT(attempts[5].time - attempts[0].time, milliseconds(310) + Within(milliseconds(1000)));
    EXPECT_EQ(1, Begun()); // one at a time
    peer.SwitchOn();
    ASSERT_TRUE(peer.Accept(Within(milliseconds(2500))));
    Synchronise(peer);
}

TEST_F(HostName, ThatTheResolverKeepsHoldsUpNoClosing)
{
    Open();
    Resolver().Block(true);
    SwitchOff();
    ASSERT_TRUE(AwaitBegun(1));
    const auto start = steady_clock::now();
    camera.reset();
    EXPECT_LT(ElapsedMs(start), gnCloseLimit);
}

TEST_F(HostName, IsNotFollowedWithoutAThreadForIt)
{
    Open();
    SwitchOff();
    sbNoThreads = true;
    ASSERT_TRUE(AwaitAttempts(5));
    sbNoThreads = false;
    peer.SwitchOn();
    ASSERT_TRUE(peer.Accept());
    Synchronise(peer);
}

TEST(HostAddress, IsNeverLookedUp)
{
    tcTimedLog& log = CameraLog();
    tcScriptedCamera peer;
    const int before = Resolver().Begun();
    tcVXCamera_Ethernet camera("127.0.0.1", peer.Port());
    auto opened = std::async(std::launch::async, [&] { return camera.Initialize(); });
    ASSERT_TRUE(ShakeHands(peer));
    ASSERT_NE(0, opened.get());
    log.Clear();
    peer.SwitchOff();
    peer.Close();
    ASSERT_TRUE(log.AwaitDebug(1, "tcVXCamera_Ethernet::MonitorThread reconnecting", 5));
    EXPECT_EQ(before, Resolver().Begun());
}
