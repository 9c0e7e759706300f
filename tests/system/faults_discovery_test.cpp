// Cameras that contradict themselves, or each other, when they are looked for.
#include "fault_support.h"
#include "tcNetworkNamespace.h"

#include <arpa/inet.h>

// A host and two cameras, each on a network of its own behind the host.
class DiscoveryFaults : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("TCLOG_SUPPRESS_ERR_CONSOLE", "1", 1);
        setenv("CONFIGFILE_PATH", "/dev/null", 1);
        if (!host.Usable()) GTEST_SKIP() << reason;
        ASSERT_TRUE(host.Connect("vx0", "10.9.1.1/24", near, "vx1", "10.9.1.2/24"));
        ASSERT_TRUE(host.Connect("vx2", "10.9.2.1/24", far, "vx3", "10.9.2.2/24"));
    }

    static std::unique_ptr<tcSimServer> Start(const tcNetworkNamespace& network, uint32_t serial,
                                              const std::vector<std::string>& faults = {})
    {
        tsSimOptions options;
        options.rows = 8;
        options.columns = 16;
        options.bind = "0.0.0.0";
        options.serial = serial;
        options.discovery = true;
        options.faults = ParseSimFaults(faults);
        auto sim = std::make_unique<tcSimServer>(options);
        network.Run([&] { sim->Start(); });
        return sim;
    }

    std::vector<tsEnetData> Locate()
    {
        std::vector<tsEnetData> found(10);
        int count = -1;
        host.Run([&] { count = VXLocateEnetCameras(found.data(), 10); });
        EXPECT_GE(count, 0);
        found.resize(static_cast<size_t>(std::max(count, 0)));
        return found;
    }
    int OpenBySerial(int serial)
    {
        int handle = -1;
        host.Run([&] { handle = VXOpenCameraBySerialNumber(serial); });
        return handle;
    }
    static std::string AddressOf(const tsEnetData& found)
    {
        return inet_ntoa(found.SourceAddr.sin_addr);
    }

    std::string reason;
    tcNetworkNamespace host{reason}, near{reason}, far{reason};
};

TEST_F(DiscoveryFaults, OfRepliesThatContradictEachOtherLeaveTheFirst)
{
    const auto sim = Start(near, 5, {"discovery-conflict"});
    std::vector<tsEnetData> found;
    EXPECT_LT(Timed([&] { found = Locate(); }), Within(3000));
    ASSERT_EQ(1u, found.size());
    EXPECT_EQ("10.9.1.2", AddressOf(found[0]));
    EXPECT_EQ(sim->Port(), found[0].Port);
    EXPECT_EQ(5u, found[0].SerialNumber);
    EXPECT_GE(sim->Statistics().faults, 1u);
    EXPECT_EQ(-1, OpenBySerial(6));
    const int handle = OpenBySerial(5);
    ASSERT_GE(handle, 0);
    BooksOf(handle);
    EXPECT_EQ(0, VXCloseCamera(handle));
}

TEST_F(DiscoveryFaults, OfTwoCamerasWithOneNumberOpenOneOfThem)
{
    const auto first = Start(near, 5), second = Start(far, 5);
    const std::vector<tsEnetData> found = Locate();
    ASSERT_EQ(2u, found.size());
    EXPECT_EQ(5u, found[0].SerialNumber);
    EXPECT_EQ(5u, found[1].SerialNumber);
    EXPECT_NE(AddressOf(found[0]), AddressOf(found[1]));
    const int handle = OpenBySerial(5);
    ASSERT_GE(handle, 0);
    EXPECT_EQ(1u, first->Statistics().connections + second->Statistics().connections);
    BooksOf(handle);
    EXPECT_EQ(0, VXCloseCamera(handle));
}
