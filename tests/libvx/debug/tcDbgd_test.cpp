// Handlers and modules, within the process.
#include "HSocket.h"
#include "debug_support.h"

#include <fstream>
#include <future>

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class tcSilent : public tcDbgdWB
{
public:
    explicit tcSilent(const char* token) : tcDbgdWB(token, "help") {}
    void Run(HSocket*, char*) override {}
};

// A folder that goes away with its files.
class tcFolder
{
public:
    tcFolder()
    {
        char name[] = "/tmp/modules-XXXXXX";
        msPath = mkdtemp(name);
    }
    ~tcFolder() { std::filesystem::remove_all(msPath); }
    tcFolder(const tcFolder&) = delete;
    tcFolder& operator=(const tcFolder&) = delete;

    void Write(const std::string& name) { std::ofstream(msPath + "/" + name) << "no module\n"; }
    void AddModule(const std::string& name, const char* module = VX_MODULE)
    {
        std::filesystem::copy_file(module, msPath + "/" + name);
    }

    std::string msPath;
};

// A further daemon, in the place of the process's.
tcDbgd& NewDaemon()
{
    Keep(tcDbgd::getItem());
    return *Keep(new tcDbgd);
}

} // namespace

TEST(Dbgd, IsOneForTheProcess)
{
    tcDbgd* daemon = tcDbgd::getItem();
    ASSERT_NE(nullptr, daemon);
    EXPECT_EQ(daemon, tcDbgd::getItem());
    EXPECT_EQ(daemon, DbgdPointer());
    EXPECT_EQ(daemon, tcDbgd::mpDbgd);
    EXPECT_EQ(nullptr, tcDbgd::spLoadableModulePath);
}

TEST(Dbgd, LogsThroughALoggerOfItsOwn)
{
    EXPECT_EQ("dbgd", tcDbgd::GetLog().GetName());
    EXPECT_STREQ("    dbgd", tcDbgd::GetLog().GetTag());
    EXPECT_STREQ("   Debug", tcDbgd::GetLog().GetErrorTag());
    EXPECT_EQ(0, tcDbgd::GetLog().getDbgLevel());
    EXPECT_EQ(&tcDbgd::GetLog(), tcLog::FindLogPtr("dbgd"));
}

TEST(Dbgd, HasFourHandlersFromTheStart)
{
    EXPECT_EQ("Available Tokens:\n\tECHO\n\tHELP\n\tLIST\n\tLOG\n", DbgdPointer()->List());
    EXPECT_EQ(DbgdWB_echoPtr, DbgdPointer()->GetWB("ECHO"));
    EXPECT_EQ(DbgdWB_helpPtr, DbgdPointer()->GetWB("HELP"));
    EXPECT_EQ(DbgdWB_listPtr, DbgdPointer()->GetWB("LIST"));
    EXPECT_EQ(DbgdWB_logPtr, DbgdPointer()->GetWB("LOG"));
    EXPECT_EQ("LOG", DbgdWB_logPtr->msToken);
}

TEST(Dbgd, KeepsHandlersByTheirTokensInOrder)
{
    tcSilent small("echo"), first("A"), digit("1");
    for (tcDbgdWB* handler : {&small, &first, &digit})
        EXPECT_EQ(0, DbgdPointer()->RegisterWB(handler));
    EXPECT_EQ("Available Tokens:\n\t1\n\tA\n\tECHO\n\tHELP\n\tLIST\n\tLOG\n\techo\n",
              DbgdPointer()->List());
    EXPECT_EQ(&small, DbgdPointer()->GetWB("echo"));
    EXPECT_EQ(nullptr, DbgdPointer()->GetWB("Echo"));
    EXPECT_EQ(nullptr, DbgdPointer()->GetWB(nullptr));
    for (tcDbgdWB* handler : {&small, &first, &digit})
        EXPECT_EQ(0, DbgdPointer()->RemoveWB(handler));
    EXPECT_EQ("Available Tokens:\n\tECHO\n\tHELP\n\tLIST\n\tLOG\n", DbgdPointer()->List());
}

TEST(Dbgd, LogsWhatBecomesOfHandlers)
{
    tcDaemonRecords log(1);
    tcSilent handler("NEW"), second("NEW");
    EXPECT_EQ(0, DbgdPointer()->RegisterWB(&handler));
    EXPECT_EQ(-1, DbgdPointer()->RegisterWB(&second));
    EXPECT_EQ(&handler, DbgdPointer()->GetWB("NEW"));
    EXPECT_EQ(0, DbgdPointer()->RemoveWB(&handler));
    EXPECT_EQ(-1, DbgdPointer()->RemoveWB(&handler));
    EXPECT_EQ(nullptr, DbgdPointer()->GetWB("NEW"));
    EXPECT_EQ(-1, DbgdPointer()->RegisterWB(nullptr));
    EXPECT_EQ(-1, DbgdPointer()->RemoveWB(nullptr));
    EXPECT_THAT(log.Texts(),
                ElementsAre("1 tcDbgd::RegisterWB registered NEW token handler",
                            "ERR tcDbgd::RegisterWB unable to register NEW token handler",
                            "1 tcDbgd::GetWB looking for NEW ,length = 3",
                            "1 tcDbgd::GetWB found worker bee for NEW",
                            "1 tcDbgd::RemoveWB removing NEW token handler",
                            "ERR tcDbgd::RemoveWB unable to remove NEW token handler",
                            "1 tcDbgd::GetWB looking for NEW ,length = 3",
                            "1 tcDbgd::GetWB didn't find NEW"));
}

TEST(Dbgd, RemovesWhicheverHandlerStandsUnderTheToken)
{
    tcSilent handler("NEW"), second("NEW");
    EXPECT_EQ(0, DbgdPointer()->RegisterWB(&handler));
    EXPECT_EQ(0, DbgdPointer()->RemoveWB(&second));
    EXPECT_EQ(nullptr, DbgdPointer()->GetWB("NEW"));
}

TEST(Dbgd, RemovesAHandlerOnlyWhenNobodyElseUsesIt)
{
    tcSilent handler("NEW");
    DbgdPointer()->RegisterWB(&handler);
    std::promise<void> held;
    std::atomic<bool> released{false};
    std::thread user([&] {
        const tcDbgd::tcHeldWB use = DbgdPointer()->HoldWB("NEW");
        EXPECT_TRUE(use);
        held.set_value();
        EXPECT_TRUE(
            Eventually([] { return DbgdPointer()->List().find("NEW") == std::string::npos; }));
        released = true;
    });
    held.get_future().wait();
    EXPECT_EQ(0, DbgdPointer()->RemoveWB(&handler));
    EXPECT_TRUE(released);
    user.join();
}

TEST(Dbgd, LetsAHandlerRemoveItself)
{
    int shortest = 1000; // a second is what others are waited for
    for (int i = 0; i < 3; ++i) {
        tcSilent handler("NEW");
        DbgdPointer()->RegisterWB(&handler);
        const tcDbgd::tcHeldWB use = DbgdPointer()->HoldWB("NEW");
        const auto start = tcClock::now();
        EXPECT_EQ(0, DbgdPointer()->RemoveWB(&handler));
        shortest = std::min(shortest, ElapsedMs(start));
    }
    EXPECT_LT(shortest, 900);
}

TEST(Dbgd, CanBeDestroyedAndBuiltAnew)
{
    tcDbgd& second = NewDaemon();
    EXPECT_EQ(&second, tcDbgd::getItem());
    EXPECT_EQ("Available Tokens:\n", second.List());
    tcSilent handler("MINE");
    EXPECT_EQ(0, second.RegisterWB(&handler));
    tcDaemonRecords log(1);
    delete &second;
    EXPECT_THAT(log.Texts(), IsEmpty()) << "no server runs that could be stopped";
    EXPECT_EQ(nullptr, tcDbgd::mpDbgd);
    EXPECT_EQ("MINE", handler.msToken); // the handlers stay their owners'
    EXPECT_EQ("Available Tokens:\n", tcDbgd::getItem()->List());
}

TEST(Dbgd, WorksWithoutAServerWhenThatIsSwitchedOff)
{
    ASSERT_NE(nullptr, getenv("DBGD_DISABLE"));
    const int threads = CountThreads(), descriptors = CountDescriptors();
    DbgdPointer()->StartServer();
    EXPECT_EQ(0, DbgdPointer()->GetPort());
    EXPECT_EQ(threads, CountThreads());
    EXPECT_EQ(descriptors, CountDescriptors());

    HSocket listener, client, peer;
    listener.Create();
    listener.Listen(1);
    ASSERT_TRUE(client.Connect("127.0.0.1", listener.GetLocalPort()));
    ASSERT_TRUE(listener.Accept(&peer, 5000));
    char nothing[] = "";
    DbgdWB_listPtr->Run(&peer, nothing);
    char text[100] = {};
    client.Receive(text, sizeof text, 5000);
    EXPECT_STREQ("Available Tokens:\n\tECHO\n\tHELP\n\tLIST\n\tLOG\n", text);
}

TEST(DbgdModules, AreLoadedFromTheirFolder)
{
    tcDaemonRecords log(3);
    tcFolder folder;
    folder.AddModule("a module.so");
    folder.Write("notes.txt");
    folder.Write("so");
    folder.Write(".so");
    setenv("DBGD_MODULE_PATH", (folder.msPath + "/").c_str(), 1);
    tcDbgd& daemon = NewDaemon();
    EXPECT_EQ("Available Tokens:\n\tPROC\n", daemon.List());

    std::vector<std::string> texts = log.Texts();
    ASSERT_FALSE(texts.empty());
    EXPECT_EQ("1 dbgd: scanning directory " + folder.msPath + " for loadable modules...\n",
              texts.front());
    const std::string path = folder.msPath + "/a module.so";
    EXPECT_THAT(texts, Contains("3 Found file: " + path));
    EXPECT_THAT(texts, Contains("3 Found file: " + folder.msPath + "/notes.txt"));
    EXPECT_THAT(texts, Contains("1 loading module " + path));
    EXPECT_THAT(texts, Contains("1 tcDbgd::RegisterWB registered PROC token handler"));
    EXPECT_THAT(texts, Not(Contains(HasSubstr("loading module " + folder.msPath + "/notes"))));
    EXPECT_THAT(texts, Not(Contains("1 loading module " + folder.msPath + "/so")));
    EXPECT_THAT(texts, Not(Contains("1 loading module " + folder.msPath + "/.so")));
    EXPECT_THAT(texts, Not(Contains(HasSubstr("Error"))));
}

TEST(DbgdModules, ThatCannotBeLoadedAreSkipped)
{
    tcDaemonRecords log(1);
    tcFolder folder;
    folder.Write("broken.so");
    std::filesystem::create_directory(folder.msPath + "/folder.so");
    folder.AddModule("whole.so");
    setenv("DBGD_MODULE_PATH", folder.msPath.c_str(), 1);
    EXPECT_EQ("Available Tokens:\n\tPROC\n", NewDaemon().List());
    const std::vector<std::string> texts = log.Texts();
    for (const char* name : {"/broken.so", "/folder.so"}) {
        const std::string path = folder.msPath + name;
        EXPECT_THAT(texts, Contains("1 loading module " + path));
        EXPECT_THAT(texts,
                    Contains(HasSubstr("ERR Error Loading module " + path + ": " + path + ":")));
    }
}

TEST(DbgdModules, AreBoundWholeWhenTheyAreLoaded)
{
    tcDaemonRecords log(1);
    tcFolder folder;
    folder.AddModule("unresolved.so", VX_UNRESOLVED_MODULE);
    setenv("DBGD_MODULE_PATH", folder.msPath.c_str(), 1);
    NewDaemon();
    const std::string path = folder.msPath + "/unresolved.so";
    EXPECT_THAT(log.Texts(), Contains("ERR Error Loading module " + path + ": " + path +
                                      ": undefined symbol: NobodyHasThis"));
}

TEST(DbgdModules, AreLoadedFromTheFolderOfTheProgramWhenNoneIsSet)
{
    tcFolder folder, other;
    folder.AddModule("module.so");
    const std::string path = folder.msPath;
    tcDbgd::spLoadableModulePath = path.c_str();
    setenv("DBGD_MODULE_PATH", other.msPath.c_str(), 1);
    EXPECT_EQ("Available Tokens:\n", NewDaemon().List());
    unsetenv("DBGD_MODULE_PATH");
    EXPECT_EQ("Available Tokens:\n\tPROC\n", NewDaemon().List());
}

TEST(DbgdModules, FolderThatCannotBeReadIsReported)
{
    setenv("DBGD_MODULE_PATH", "/nowhere/at/all/", 1);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ("Available Tokens:\n", NewDaemon().List());
    EXPECT_EQ("/nowhere/at/all: No such file or directory\n",
              ::testing::internal::GetCapturedStderr());
}

TEST(DbgdModules, LongPathsAreCut)
{
    const std::string path = "/nowhere/" + std::string(240, 'x') + "/" + std::string(50, 'y');
    setenv("DBGD_MODULE_PATH", path.c_str(), 1);
    ::testing::internal::CaptureStderr();
    NewDaemon();
    EXPECT_EQ(path.substr(0, 255) + ": No such file or directory\n",
              ::testing::internal::GetCapturedStderr());
}
