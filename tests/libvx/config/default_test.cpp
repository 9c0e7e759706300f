#include "config_fixture.h"
#include "tcConfiguration.h"
#include "tcLog.h"
#include "tcLogConsumer.h"

#include <atomic>
#include <thread>
#include <vector>

namespace {

class Configuration : public ConfigTest
{
protected:
    Configuration() { Forget(); }
    ~Configuration() override { Forget(); }

    static void Forget()
    {
        tcConfiguration::CleanUpClassScopeAllocation();
        tcConfiguration::maConfigFileLocation[0] = '\0';
    }
    static int Value() { return tcConfiguration::GetInstance()->GetItemInSection("", "v", -1); }
};

} // namespace

TEST_F(Configuration, IsConfigDatInTheWorkingDirectory)
{
    Write("config.dat", "v=1\n");
    EXPECT_EQ(tcConfiguration::mpInstance.load(), nullptr);
    EXPECT_EQ(Value(), 1);
    EXPECT_EQ(tcConfiguration::GetInstance(), tcConfiguration::mpInstance.load());
    EXPECT_EQ(tcConfigFile::FindInstance("config.dat"), tcConfiguration::GetInstance());
}

TEST_F(Configuration, IsTheFileChosenBeforeTheFirstUse)
{
    Write("config.dat", "v=1\n");
    Write("chosen.cfg", "v=2\n");
    tcConfiguration::SetDefaultConfigFile("chosen.cfg");
    EXPECT_EQ(Value(), 2);
}

TEST_F(Configuration, IsTheFileOfTheEnvironmentBeforeAll)
{
    Write("chosen.cfg", "v=2\n");
    Write("env.cfg", "v=3\n");
    tcConfiguration::SetDefaultConfigFile("chosen.cfg");
    setenv("CONFIGFILE_PATH", "env.cfg", 1);
    EXPECT_EQ(Value(), 3);
}

TEST_F(Configuration, TakesAnEmptyNameOfTheEnvironmentForAName)
{
    Write("config.dat", "v=1\n");
    setenv("CONFIGFILE_PATH", "", 1);
    EXPECT_EQ(Value(), -1);
    EXPECT_EQ(tcConfigFile::FindInstance(""), tcConfiguration::GetInstance());
}

TEST_F(Configuration, IgnoresAChoiceAfterTheFirstUse)
{
    Write("config.dat", "v=1\n");
    Write("chosen.cfg", "v=2\n");
    EXPECT_EQ(Value(), 1);
    tcConfiguration::SetDefaultConfigFile("chosen.cfg");
    setenv("CONFIGFILE_PATH", "chosen.cfg", 1);
    EXPECT_EQ(Value(), 1);
    EXPECT_STREQ(tcConfiguration::maConfigFileLocation, "");
}

TEST_F(Configuration, IgnoresANullChoice)
{
    tcConfiguration::SetDefaultConfigFile("chosen.cfg");
    tcConfiguration::SetDefaultConfigFile(nullptr);
    EXPECT_STREQ(tcConfiguration::maConfigFileLocation, "chosen.cfg");
}

TEST_F(Configuration, ForgetsALongerChoiceForAShorterOne)
{
    tcConfiguration::SetDefaultConfigFile("a-long-name.cfg");
    tcConfiguration::SetDefaultConfigFile("short");
    EXPECT_STREQ(tcConfiguration::maConfigFileLocation, "short");
    tcConfiguration::SetDefaultConfigFile("");
    Write("config.dat", "v=1\n");
    EXPECT_EQ(Value(), 1);
}

TEST_F(Configuration, CutsAChosenNameTo1023Characters)
{
    tcConfiguration::SetDefaultConfigFile(std::string(2000, 'n').c_str());
    EXPECT_EQ(std::string(tcConfiguration::maConfigFileLocation), std::string(1023, 'n'));
    EXPECT_EQ(sizeof tcConfiguration::maConfigFileLocation, 1024u);
    tcConfiguration::GetInstance();
    EXPECT_EQ(tcConfigFile::FindInstance(std::string(1023, 'n').c_str()),
              tcConfiguration::GetInstance());
}

TEST_F(Configuration, IsReadAgainAfterCleanUp)
{
    Write("chosen.cfg", "v=1\n");
    tcConfiguration::SetDefaultConfigFile("chosen.cfg");
    EXPECT_EQ(Value(), 1);
    Write("chosen.cfg", "v=2\n");
    EXPECT_EQ(Value(), 1);
    tcConfiguration::CleanUpClassScopeAllocation();
    EXPECT_EQ(tcConfiguration::mpInstance.load(), nullptr);
    EXPECT_EQ(tcConfigFile::FindInstance("chosen.cfg"), nullptr);
    EXPECT_EQ(Value(), 2);
    tcConfiguration::CleanUpClassScopeAllocation();
    tcConfiguration::CleanUpClassScopeAllocation();
}

TEST_F(Configuration, GivesDefaultsWithoutAFile)
{
    EXPECT_EQ(Value(), -1);
    std::ostringstream text;
    text << *tcConfiguration::GetInstance();
    EXPECT_NE(text.str().find("#-- Errors found loading config \n"
                              "#-- Error opening config.dat : No such file or directory\n"),
              std::string::npos);
}

TEST_F(Configuration, IsOneForConcurrentFirstCalls)
{
    Write("config.dat", "v=1\n");
    for (int round = 0; round < 20; ++round) {
        tcConfiguration::CleanUpClassScopeAllocation();
        std::vector<tcConfiguration*> seen(8);
        std::vector<std::thread> threads;
        for (tcConfiguration*& instance : seen) {
            threads.emplace_back([&instance] { instance = tcConfiguration::GetInstance(); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        for (tcConfiguration* instance : seen) {
            EXPECT_EQ(instance, seen[0]);
        }
        EXPECT_NE(seen[0], nullptr);
    }
}

TEST_F(Configuration, IsDumpedByTestCfg)
{
    const std::time_t start = std::time(nullptr);
    Write("config.dat", "v=1\n");
    tcCapturedOutput output;
    EXPECT_EQ(TestCfg(), 0);
    std::ostringstream expected;
    tcConfiguration::GetInstance()->Dump(expected);
    EXPECT_EQ(WithoutTime(output.Text(), start), WithoutTime(expected.str(), start));
    EXPECT_NE(output.Text().find("\n/v = 1\n"), std::string::npos);
}

// Asks for what is missing, sets, walks, and makes objects and destroys them.
static void UseConfiguration(std::atomic<int>& waiting, int thread, int items)
{
    --waiting;
    while (waiting != 0)
        std::this_thread::yield();
    const std::string name = std::to_string(thread);
    tcConfigFile& file = *tcConfiguration::GetInstance();
    for (int i = 0; i < items; ++i) {
        file.GetItemInSection("missing", std::to_string(i), 1);
        file.SetItemInSection("all", std::to_string(i), i);
        if (i % 100 != 0) continue;
        file.Validate();
        tcConfigFile::tIterator item = file.Iterator();
        for (int step = 0; step < 100 && !file.Key(item).empty(); ++step)
            file.NextItem(item);
        tcConfigFile::FindInstance(name.c_str());
        const tcConfigFile another(name.c_str());
    }
}

TEST_F(Configuration, ChangesTheEnvironmentWhileOthersLog)
{
    const tcCapturedOutput output;
    std::ofstream file("env.cfg");
    for (int i = 0; i < 3000; ++i)
        file << "!env VXTEST" << i << "=" << i << "\n";
    file.close();
    std::atomic<bool> isOver{false};
    std::vector<std::thread> writers;
    for (int i = 0; i < 3; ++i)
        writers.emplace_back([&] {
            tcLogFile nothing("/dev/null");
            tcLog log("WHILE", 1);
            log.SetConsumer(&nothing);
            while (!isOver)
                log.logDebug(1, "a line");
            log.SetConsumer(nullptr);
        });
    for (int i = 0; i < 3; ++i)
        tcConfigFile("env.cfg");
    isOver = true;
    for (std::thread& writer : writers)
        writer.join();
    EXPECT_STREQ("2999", getenv("VXTEST2999"));
}

TEST_F(Configuration, IsListedWhileOthersAreMade)
{
    const tcCapturedOutput output;
    std::atomic<bool> isOver{false};
    std::thread maker([&] {
        for (int i = 0; i < 300; ++i)
            tcConfigFile(("made" + std::to_string(i)).c_str());
        isOver = true;
    });
    while (!isOver)
        ListConfigs(false);
    maker.join();
}

TEST_F(Configuration, IsAskedAndChangedByManyThreadsAtOnce)
{
    constexpr int threadCount = 4, items = 1000;
    for (int round = 0; round < 30; ++round) {
        std::atomic<int> waiting{threadCount};
        std::vector<std::thread> threads;
        for (int i = 0; i < threadCount; ++i) {
            threads.emplace_back(UseConfiguration, std::ref(waiting), i, items);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        int count = 0;
        tcConfigFile& file = *tcConfiguration::GetInstance();
        for (auto item = file.Iterator(); !file.Key(item).empty(); file.NextItem(item)) {
            ++count;
        }
        ASSERT_EQ(count, 2 * items);
        Forget();
    }
}
