// The program: its options, what it prints, how it ends.
#include "SimClient.h"
#include "listening.h"

#include <nlohmann/json.hpp>

#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <sys/wait.h>

namespace {

class tcProgram
{
public:
    explicit tcProgram(std::vector<std::string> arguments)
    {
        int output[2], errors[2];
        if (pipe(output) != 0 || pipe(errors) != 0) return;
        // Before the fork: another thread may hold the allocator's locks then.
        std::vector<char*> words{const_cast<char*>(VXCAMSIM_PROGRAM)};
        for (std::string& argument : arguments) {
            words.push_back(argument.data());
        }
        words.push_back(nullptr);
        mnProcess = fork();
        if (mnProcess == 0) {
            dup2(output[1], 1);
            dup2(errors[1], 2);
            close(output[0]);
            close(errors[0]);
            execv(VXCAMSIM_PROGRAM, words.data());
            _exit(127);
        }
        close(output[1]);
        close(errors[1]);
        mhOutput = output[0];
        mhErrors = errors[0];
    }
    ~tcProgram()
    {
        if (mnProcess > 0) {
            kill(mnProcess, SIGKILL);
            waitpid(mnProcess, nullptr, 0);
        }
        close(mhOutput);
        close(mhErrors);
    }

    std::string Line() { return Read(mhOutput, true); }
    std::string Rest() { return Read(mhOutput, false); }
    std::string Errors() { return Read(mhErrors, false); }
    std::set<int> Ports() const { return ListeningPorts(mnProcess); }
    void Signal(int number) { kill(mnProcess, number); }
    // As head does when it has what it wants.
    void StopReading()
    {
        close(mhOutput);
        mhOutput = -1;
    }
    int Exit()
    {
        int status = 0;
        if (!Eventually([&] { return waitpid(mnProcess, &status, WNOHANG) == mnProcess; })) {
            return -1;
        }
        mnProcess = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    }
    uint16_t Port()
    {
        const std::string line = Line();
        EXPECT_EQ(line.rfind("listening on 127.0.0.1:", 0), 0u) << line;
        return static_cast<uint16_t>(std::stoi(line.substr(line.rfind(':') + 1)));
    }

private:
    static std::string Read(int descriptor, bool line)
    {
        std::string text;
        pollfd state{descriptor, POLLIN, 0};
        char letter;
        while (poll(&state, 1, gnPatience) == 1 && read(descriptor, &letter, 1) == 1) {
            if (line && letter == '\n') break;
            text += letter;
        }
        return text;
    }

    pid_t mnProcess = -1;
    int mhOutput = -1, mhErrors = -1;
};

uint64_t TakeFrame(tcSimTestClient& client)
{
    client.SendCommand(cmdSetExposure, {0});
    client.SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 1, 0});
    const tsArrivedFrame frame = client.ReceiveFrame();
    EXPECT_TRUE(frame.complete);
    return frame.sum;
}

} // namespace

TEST(SimProgram, PrintsItsAddressAndALineWithThePixelSumOfEachFrame)
{
    tcProgram program({"--sensor", "40x30", "--serial", "77"});
    tcSimTestClient client(program.Port());
    auto hardware = client.Ask<TVXCameraHardware>(cmdGetCameraHardwareInfo);
    EXPECT_EQ(hardware.Columns, 40);
    EXPECT_EQ(hardware.Rows, 30);
    EXPECT_EQ(hardware.Reserved0[0], 77);
    const uint64_t sum = TakeFrame(client);
    std::string line;
    do {
        line = program.Line();
    } while (!line.empty() && line.rfind("frame ", 0) != 0);
    EXPECT_NE(line.find("40x30, 16 bits, sum " + std::to_string(sum) + ","), std::string::npos)
        << line;
    program.Signal(SIGTERM);
    EXPECT_EQ(program.Exit(), 0);
}

TEST(SimProgram, OpensADebugPortOnlyWhenToldWhich)
{
    unsetenv("DBGD_DISABLE");
    setenv("DBGD_ANNOUCE_GROUP", "127.0.0.1:9", 1);
    tcProgram untold({"--sensor", "40x30"});
    const int port = untold.Port();
    EXPECT_EQ(untold.Ports(), std::set<int>{port});
    setenv("DBGD_PORTNUM", "0", 1); // any free one
    tcProgram asked({"--sensor", "40x30"});
    asked.Port();
    EXPECT_TRUE(Eventually([&] { return asked.Ports().size() == 2; }));
}

TEST(SimProgram, EndsCleanlyOnInterruptWithAClientConnected)
{
    tcProgram program({"--sensor", "40x30"});
    tcSimTestClient client(program.Port());
    client.Settle();
    program.Signal(SIGINT);
    EXPECT_EQ(program.Exit(), 0);
    EXPECT_EQ(client.Receive().id, 0u);
    EXPECT_TRUE(client.mbEnded);
}

TEST(SimProgram, PrintsEventsAsJsonLines)
{
    tcProgram program({"--sensor", "40x30", "--json", "--once"});
    auto listening = nlohmann::json::parse(program.Line());
    EXPECT_EQ(listening["event"], "listening");
    uint64_t sum = 0;
    {
        tcSimTestClient client(listening["port"].get<uint16_t>());
        sum = TakeFrame(client);
    }
    EXPECT_EQ(program.Exit(), 0) << "once: it ends with its client";
    std::istringstream rest(program.Rest());
    int frames = 0;
    for (std::string line; std::getline(rest, line);) {
        auto event = nlohmann::json::parse(line);
        if (event["event"] != "frame") continue;
        ++frames;
        EXPECT_EQ(event["sum"].get<uint64_t>(), sum);
        EXPECT_EQ(event["rows"], 30);
        EXPECT_EQ(event["complete"], true);
        EXPECT_EQ(event["sentSum"].get<uint64_t>(), sum);
        EXPECT_EQ(event["sentCrc"], event["crc"]);
        EXPECT_EQ(event["sentPackets"], 30);
        EXPECT_EQ(event["sentLost"], 0);
        EXPECT_EQ(event["intact"], true);
        const auto begin = event["beginRealtime"].get<int64_t>();
        EXPECT_EQ(event["endRealtime"], begin) << "an exposure of no length";
        EXPECT_LE(std::abs(begin / 1000000000 - time(nullptr)), 60);
        EXPECT_EQ(event["endMonotonic"], event["beginMonotonic"]);
    }
    EXPECT_EQ(frames, 1);
}

TEST(SimProgram, IsQuietWhenToldSo)
{
    tcProgram program({"--sensor", "40x30", "--quiet", "--once"});
    {
        tcSimTestClient client(program.Port());
        TakeFrame(client);
    }
    EXPECT_EQ(program.Exit(), 0);
    EXPECT_EQ(program.Rest(), "");
}

TEST(SimProgram, TracesWhatItReceives)
{
    tcProgram program({"--sensor", "40x30", "--trace", "--once"});
    {
        tcSimTestClient client(program.Port());
        client.SendCommand(cmdSetGain, {9});
        client.Settle();
    }
    EXPECT_EQ(program.Exit(), 0);
    EXPECT_NE(program.Rest().find("SetGain"), std::string::npos);
    EXPECT_NE(program.Errors().find("gain 9 is above 7"), std::string::npos);
}

TEST(SimProgram, RefusesUnknownOptionsAndImpossibleValues)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--colour"}, "colour"},
        {{"--sensor", "large"}, "sensor"},
        {{"--sensor", "0x10"}, "sensor"},
        {{"--sensor", "20000x10"}, "sensor"},
        {{"--sensor", "10x10x"}, "sensor"},
        {{"--port", "70000"}, "port"},
        {{"--time-scale", "-1"}, "time scale"},
        {{"--line-rate", "fast"}, "line-rate"},
        {{"--bind", "nowhere"}, "nowhere"},
        {{"--json", "--quiet"}, "json"},
        {{"--fault", "stal"}, "--fault stal: there is no fault 'stal'"},
        {{"--fault", "stall:speed=1"}, "takes no 'speed'"},
        {{"--scenario", "nowhere.json"}, "cannot read the scenario nowhere.json"},
        {{"extra"}, "extra"}};
    for (const auto& [arguments, part] : cases) {
        tcProgram program(arguments);
        EXPECT_EQ(program.Exit(), 1) << arguments[0];
        EXPECT_NE(program.Errors().find(part), std::string::npos) << arguments[0];
    }
}

TEST(SimProgram, TellsWhenThePortIsTaken)
{
    tcProgram first({"--sensor", "40x30"});
    const std::string port = std::to_string(first.Port());
    tcProgram second({"--sensor", "40x30", "--port", port});
    EXPECT_EQ(second.Exit(), 2);
    EXPECT_NE(second.Errors().find("127.0.0.1:" + port + ": Address already in use"),
              std::string::npos);
}

TEST(SimProgram, ExplainsItself)
{
    tcProgram program({"--help"});
    EXPECT_EQ(program.Exit(), 0);
    const std::string text = program.Rest();
    EXPECT_NE(text.find("--same-frame"), std::string::npos);
    EXPECT_NE(text.find("discovery-conflict:port=-1,serial=-1"), std::string::npos);
}

TEST(SimProgram, DoesWhatAScenarioAndFaultsSay)
{
    const std::string path = "vxcamsim." + std::to_string(getpid()) + ".json";
    std::ofstream(path) << R"({"faults": [{"kind": "no-answer", "id": 96}]})";
    tcProgram program({"--sensor", "40x30", "--heartbeat", "0", "--scenario", path, "--fault",
                       "duplicate-answer:message=2", "--fault", "wrong-version:message=3"});
    {
        tcSimTestClient client(program.Port());
        client.SendCommand(cmdGetExposureTime);
        client.SendCommand(cmdGetGPIO);
        client.SendCommand(cmdGetTrigger);
        EXPECT_EQ(client.Receive().id, ansGPIO.id);
        EXPECT_EQ(client.Receive().id, ansGPIO.id);
        const tsReceived last = client.Receive();
        EXPECT_EQ(last.id, ansTrigger.id);
        EXPECT_EQ(last.version, 2);
    }
    program.Signal(SIGTERM);
    EXPECT_EQ(program.Exit(), 0);
    const std::string said = program.Rest();
    EXPECT_NE(said.find("fault: no-answer"), std::string::npos) << said;
    EXPECT_NE(said.find("fault: duplicate-answer"), std::string::npos) << said;
    EXPECT_NE(said.find("fault: wrong-version"), std::string::npos) << said;
    unlink(path.c_str());
}

TEST(SimProgram, WithoutStandardDescriptorsServesAndPrintsNowhere)
{
    // A port that is free: the program cannot tell which it took.
    uint16_t port = 0;
    {
        tcProgram first({"--sensor", "40x30"});
        port = first.Port();
    }
    const pid_t process = fork();
    if (process == 0) {
        for (int i = 0; i < 3; ++i)
            close(i);
        execl(VXCAMSIM_PROGRAM, VXCAMSIM_PROGRAM, "--sensor", "40x30", "--port",
              std::to_string(port).c_str(), nullptr);
        _exit(127);
    }
    {
        std::unique_ptr<tcSimTestClient> client;
        EXPECT_TRUE(Eventually([&] {
            client = std::make_unique<tcSimTestClient>(port);
            return client->Connected();
        }));
        TakeFrame(*client);
        for (const char* number : {"0", "1", "2"}) {
            char target[64] = "";
            const std::string link = "/proc/" + std::to_string(process) + "/fd/" + number;
            EXPECT_GT(readlink(link.c_str(), target, sizeof target - 1), 0);
            EXPECT_STREQ(target, "/dev/null");
        }
    }
    kill(process, SIGTERM);
    int status = -1;
    waitpid(process, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(SimProgram, EndsWithACodeOfItsOwnWhenNobodyReadsItsOutput)
{
    tcProgram program({"--sensor", "40x30"});
    program.Port();
    program.StopReading();
    EXPECT_EQ(program.Exit(), 3) << "at once, without a client";
    EXPECT_EQ(program.Errors(), "");
}

TEST(SimProgram, EndsWithThatCodeWhenItsOutputIsFull)
{
    const int status = std::system("timeout 20 " VXCAMSIM_PROGRAM " --sensor 40x30 >/dev/full");
    EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST(SimProgram, StopsInOrderWhenNobodyReadsItsOutput)
{
    tcProgram program({"--sensor", "40x30"});
    tcSimTestClient client(program.Port());
    client.Settle();
    program.StopReading();
    EXPECT_EQ(program.Exit(), 3);
    EXPECT_EQ(client.Receive().id, 0u);
    EXPECT_TRUE(client.mbEnded);
}

TEST(SimProgram, TellsItsVersion)
{
    tcProgram program({"--version"});
    EXPECT_EQ(program.Exit(), 0);
    const std::string text = program.Rest();
    EXPECT_EQ(text.rfind("vxcamsim 3.", 0), 0u) << text;
}

TEST(SimProgram, TakesADriftOfColumnsAndRows)
{
    for (const char* wrong : {"1", "1,", "1,2,3", "fast,2", "101,0"}) {
        tcProgram program({"--sensor", "40x30", "--drift", wrong});
        EXPECT_EQ(program.Exit(), 1) << wrong;
        EXPECT_NE(program.Errors().find("drift"), std::string::npos) << wrong;
    }
    tcProgram program({"--sensor", "40x30", "--drift", "-0.5,2"});
    EXPECT_NE(program.Port(), 0);
}
