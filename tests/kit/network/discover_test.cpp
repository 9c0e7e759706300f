#include "network/answers.h"

#include <gtest/gtest.h>

using namespace vxcam;

namespace {

HostInterface interfaceAt(const std::string& address, uint32_t network, uint32_t mask)
{
    return {"eth", address, network, mask};
}

const std::vector<HostInterface> kInterfaces{interfaceAt("10.1.0.1", 0x0A010000, 0xFFFF0000),
                                             interfaceAt("10.1.2.1", 0x0A010200, 0xFFFFFF00)};

} // namespace

TEST(CamerasOf, TellACameraOnceWithAllItsPaths)
{
    const auto cameras =
        camerasOf({{"10.1.2.9", 2000, 17, 5}, {"10.1.9.9", 2000, 18, 5}, {"10.1.0.9", 2000, 17, 5}},
                  kInterfaces);
    ASSERT_EQ(cameras.size(), 2u);
    EXPECT_EQ(cameras[0].serial, 17u);
    ASSERT_EQ(cameras[0].paths.size(), 2u);
    EXPECT_EQ(cameras[0].paths[0].address, "10.1.2.9");
    EXPECT_EQ(cameras[0].paths[1].address, "10.1.0.9");
    EXPECT_EQ(cameras[0].target(), "10.1.2.9:2000");
    EXPECT_EQ(cameras[1].serial, 18u);
}

TEST(CamerasOf, TellTheInterfaceOfTheMostSpecificNetwork)
{
    const auto cameras = camerasOf(
        {{"10.1.2.9", 1, 1, 0}, {"10.1.3.9", 1, 2, 0}, {"10.2.0.9", 1, 3, 0}}, kInterfaces);
    ASSERT_EQ(cameras.size(), 3u);
    EXPECT_EQ(cameras[0].paths[0].interface, "10.1.2.1");
    EXPECT_EQ(cameras[1].paths[0].interface, "10.1.0.1");
    EXPECT_EQ(cameras[2].paths[0].interface, "");
}

TEST(CamerasOf, KeepApartCamerasThatContradictEachOther)
{
    EXPECT_EQ(
        camerasOf({{"10.1.2.9", 1, 7, 0}, {"10.1.2.8", 2, 7, 0}, {"10.1.2.7", 1, 7, 9}}, {}).size(),
        3u);
}

TEST(HostInterfaces, AreToldAsText)
{
    EXPECT_EQ(textOf({{"lo", "127.0.0.1", 0, 0}, {"eth0", "10.1.0.1", 0, 0}}),
              "lo 127.0.0.1, eth0 10.1.0.1");
    EXPECT_EQ(textOf(std::vector<HostInterface>()), "no interface with an IPv4 address");
}
