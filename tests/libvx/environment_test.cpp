// What the library takes from its environment, and what it does not in a program with raised
// rights.
#include "shell.h"
#include "tcNetworkNamespace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

const std::string gsOfEnvironment = "level 7\nconsumer placed.log\nvalue chosen\nhome there\n"
                                    "set set\nown own\nitem replaced\nmodule loaded\ntrusts yes\n";
const std::string gsOfProgram =
    "level 7\nconsumer NULL Log Device\nvalue default\n"
    "home $(VXHOME)\nset set\nown own\nitem file\nmodule none\ntrusts no\n";

// Runs the host program in a folder of its own, where every variable of the library is set.
class Environment : public ::testing::Test
{
protected:
    Environment()
    {
        std::string pattern = fs::temp_directory_path() / "vxenvironmentXXXXXX";
        msFolder = mkdtemp(pattern.data());
        chmod(msFolder.c_str(), 0777);
        fs::current_path(msFolder);
        std::ofstream("config.dat") << "!env VXSET=set\nvalue=default\nvxitem=file\n";
        std::ofstream("chosen.cfg") << "!env VXSET=set\nvalue=chosen\nvxitem=file\n";
        fs::create_directory("modules");
        fs::copy_file(VX_MODULE, "modules/module.so");
        unsetenv("RAISED");
        Set("PLACED_LOGURI", "file:placed.log");
        Set("PLACED_DEBUGLEVEL", "7");
        Set("CONFIGFILE_PATH", "chosen.cfg");
        Set("CONFIGFILE_ENV_OVERIDE", "1");
        Set("vxitem", "replaced");
        Set("VXHOME", "there");
        Set("DBGD_MODULE_PATH", "modules");
        Set("DBGD_DISABLE", "1");
    }
    ~Environment() override
    {
        fs::current_path("/");
        fs::remove_all(msFolder);
    }

    static void Set(const char* name, const char* value) { setenv(name, value, 1); }

    // Without the lines about directives.
    static std::string Run(const std::string& program)
    {
        int status = -1;
        std::string text;
        for (const std::string& line : Split(Output(program + " 2>&1", &status), '\n')) {
            if (line.rfind("line: ", 0) != 0) text += line + "\n";
        }
        EXPECT_EQ(status, 0);
        return text;
    }

    std::string msFolder;
};

} // namespace

TEST_F(Environment, NamesPlacesToPrograms)
{
    EXPECT_EQ(Run(VX_RAISED_HOST), gsOfEnvironment);
    EXPECT_TRUE(fs::exists("placed.log"));
}

TEST_F(Environment, NamesNoPlacesToProgramsWithRaisedRights)
{
    Set("RAISED", "1");
    EXPECT_EQ(Run(VX_RAISED_HOST), gsOfProgram);
    EXPECT_FALSE(fs::exists("placed.log"));
}

TEST_F(Environment, NamesNoPlacesToASetUserIdProgram)
{
    struct statvfs mount;
    if (getuid() != 0 || statvfs(".", &mount) != 0 || (mount.f_flag & ST_NOSUID) != 0)
        GTEST_SKIP() << "cannot make one here";
    if (VX_SANITIZED[0] != '\0') GTEST_SKIP() << "sanitizers do not run in one";
    fs::copy_file(VX_RAISED_HOST, "host");
    const uid_t nobody = 65534;
    ASSERT_EQ(chown("host", nobody, nobody), 0);
    ASSERT_EQ(chmod("host", 04755), 0);
    EXPECT_EQ(Run("./host"), gsOfProgram);
    EXPECT_FALSE(fs::exists("placed.log"));
}

class EnvironmentOfServices : public Environment
{
protected:
    std::string Serve()
    {
        std::string reason, text = "not run";
        const tcNetworkNamespace network(reason);
        if (!network.Usable()) return reason;
        EXPECT_TRUE(network.Execute("ip route add 239.0.0.0/8 dev lo"));
        unsetenv("DBGD_DISABLE");
        network.Run([&] { text = Run(VX_RAISED_HOST); });
        return text;
    }
};

TEST_F(EnvironmentOfServices, NamesTheirPortsAndPeers)
{
    Set("DBGD_PORTNUM", "34567");
    Set("DBGITEM_PORTNUM", "24567");
    Set("DBGD_ANNOUCE_GROUP", "127.0.0.1:7021");
    Set("DBGD_ALLOW", "nobody");
    const std::string text = Serve();
    if (text.rfind("no network", 0) == 0) GTEST_SKIP() << text;
    EXPECT_THAT(text, HasSubstr("\ndaemon 34567\nannounced as chosen\n"));
    EXPECT_THAT(text, HasSubstr("listening on port 24567..."));
    EXPECT_THAT(text, HasSubstr("DBGD_ALLOW: entry nobody ignored"));
}

TEST_F(EnvironmentOfServices, NamesNothingInProgramsWithRaisedRights)
{
    Set("RAISED", "1");
    Set("DBGD_PORTNUM", "34567");
    Set("DBGD_BIND", "nowhere");
    Set("DBGD_ALLOW", "nobody");
    Set("DBGD_ANNOUCE_GROUP", "127.0.0.1:7021");
    Set("DBGITEM_PORTNUM", "24567");
    Set("DBGITEM_BIND", "nowhere");
    Set("DBGITEM_ALLOW", "nobody");
    const std::string text = Serve();
    if (text.rfind("no network", 0) == 0) GTEST_SKIP() << text;
    EXPECT_THAT(text, HasSubstr("\ndaemon 17020\nannounced as usual\n"));
    EXPECT_THAT(text, HasSubstr("listening on port 7010..."));
    EXPECT_THAT(text, Not(HasSubstr("nowhere")));
    EXPECT_THAT(text, Not(HasSubstr("nobody")));
}
