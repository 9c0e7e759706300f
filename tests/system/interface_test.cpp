// Every function of the public header, called with a camera that answers and without one.
#include "interface_calls.h"
#include "system_support.h"
#include "tcNetworkNamespace.h"

#include <dlfcn.h>

#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

namespace {

// The functions that the headers declare, and whether they take a handle.
std::map<std::string, bool> Declared()
{
    std::ostringstream text;
    text << std::ifstream(VX_SOURCE_DIR "/camera/vxcamiface.h").rdbuf()
         << std::ifstream(VX_SOURCE_DIR "/camera/vxcamext.h").rdbuf();
    const std::string code =
        std::regex_replace(text.str(), std::regex(R"(/\*[^*]*\*+([^/*][^*]*\*+)*/|//[^\n]*)"), " ");
    std::map<std::string, bool> functions;
    const std::regex declaration(R"(\b(VX\w+)\s*\(\s*(int handle\b)?)");
    for (std::sregex_iterator it(code.begin(), code.end(), declaration), end; it != end; ++it)
        functions[(*it)[1]] = (*it)[2].matched;
    return functions;
}

} // namespace

TEST(InterfaceTable, HoldsEveryDeclaredFunction)
{
    std::set<std::string> declared, called;
    for (const auto& function : Declared())
        declared.insert(function.first);
    for (const tsCall& call : AllCalls())
        EXPECT_TRUE(called.insert(call.name).second) << call.name;
    EXPECT_EQ(declared, called);
    EXPECT_GE(declared.size(), 87u);
}

TEST(InterfaceTable, HoldsWhatTheLibraryExports)
{
    for (const auto& function : Declared()) {
        std::string symbol = function.first;
        if (symbol == "VXGetExposureTimeEx") symbol = "_Z19VXGetExposureTimeExiPl";
        void* address = dlsym(RTLD_DEFAULT, symbol.c_str());
        ASSERT_NE(nullptr, address) << symbol;
        Dl_info info{};
        ASSERT_NE(0, dladdr(address, &info)) << symbol;
        EXPECT_THAT(info.dli_fname, testing::HasSubstr("libvxcamiface.so")) << symbol;
        EXPECT_STREQ(symbol.c_str(), info.dli_sname);
    }
}

class Interface : public Camera
{
protected:
    Interface() : mNetwork(msReason) {}

    // In a network of its own, since discovery broadcasts.
    void SetUp() override
    {
        if (!mNetwork.Enter()) GTEST_SKIP() << msReason;
        tsSimOptions options = Options();
        options.serial = nSerial;
        options.discovery = true;
        options.heartbeatSeconds = 0;
        Open(options);
        gpSim = sim.get();
    }

    std::string msReason;
    tcNetworkNamespace mNetwork;
};

TEST_F(Interface, EveryFunctionDoesItsWork)
{
    for (const tsCall& call : AllCalls()) {
        EXPECT_EQ(call.expected, call.call(handle)) << call.name;
    }
    handle = -1;
    EXPECT_EQ(0u, sim->Statistics().protocolErrors);
    EXPECT_EQ(0u, sim->Statistics().cameraErrors);
}

TEST_F(Interface, EveryFunctionWithAHandleFindsNoCameraUnderAnother)
{
    const int closed = handle;
    EXPECT_EQ(0, Close(handle));
    handle = -1;
    const int open = VXOpenENetCamera("127.0.0.1", port);
    ASSERT_GE(open, 0);
    const std::map<std::string, bool> declared = Declared();
    int checked = 0;
    for (const tsCall& call : AllCalls()) {
        const auto function = declared.find(call.name);
        if (function == declared.end() || !function->second) continue;
        ++checked;
        for (int unknown : {closed, open + 1, -2, INT32_MIN, INT32_MAX})
            EXPECT_EQ(0u, call.call(unknown).rfind("-3:", 0)) << call.name << ' ' << unknown;
        if (function->first != "VXSetErrorCallback") {
            EXPECT_EQ(0u, call.call(-1).rfind("-3:", 0)) << call.name;
        }
    }
    EXPECT_EQ(declared.size() - Opening().size(), static_cast<size_t>(checked));
    EXPECT_EQ(0u, sim->Statistics().cameraErrors);
    EXPECT_EQ(0, VXCloseCamera(open));
}
