// docs/debugging.md: every command in it is run, in order, and prints what stands there.
#include "service_support.h"

#include <regex>

namespace {

struct tsStep {
    std::string command, expected;
};

// The commands of the console blocks, each with the lines behind it.
std::vector<tsStep> StepsOf(const std::string& document)
{
    std::vector<tsStep> steps;
    std::istringstream lines(document);
    bool isConsole = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("```", 0) == 0) {
            isConsole = line == "```console";
        } else if (isConsole && line.rfind("$ ", 0) == 0) {
            steps.push_back({line.substr(2), ""});
        } else if (isConsole && !steps.empty()) {
            steps.back().expected += line + "\n";
        }
    }
    return steps;
}

std::string Replaced(const std::string& text, const char* what, const std::string& by)
{
    return std::regex_replace(text, std::regex(what), by);
}

// Times, ports of clients and what was sent so far differ from run to run; what comes from two
// processes, in order.
std::string Comparable(const std::string& text)
{
    std::string plain = Replaced(text, R"(\d{8}-\d\d:\d\d:\d\d\.\d{3,4})", "TIME");
    plain = Replaced(plain, R"(client 127\.0\.0\.1:\d+)", "client 127.0.0.1:PORT");
    plain = Replaced(plain, R"((Received|Sent)=\d+)", "$1=COUNT");
    std::vector<std::string> sorted;
    std::istringstream lines(plain);
    for (std::string line; std::getline(lines, line);) {
        sorted.push_back(line);
    }
    std::sort(sorted.begin(), sorted.end());
    std::string all;
    for (const std::string& line : sorted) {
        all += line + "\n";
    }
    return all;
}

// Lines of the shell that wait until a test holds.
std::string Awaiting(const std::string& test)
{
    return "for i in $(seq 1000); do { " + test + "; } && break; sleep 0.05; done\n";
}

// What a command that goes on in the background has to have reached before the next one.
std::string Reached(const std::string& command)
{
    std::string test = "vxcam log 127.0.0.1:17020 list | grep -q '   2  UDP'";
    if (command.rfind("vxcamsim", 0) == 0) {
        test = "vxcam items 127.0.0.1:7010 list -q 2>/dev/null && "
               "vxcam log 127.0.0.1:17020 list -q 2>/dev/null";
    } else if (command.rfind("DBGD_PORTNUM", 0) == 0) {
        test = "(exec 3<>/dev/tcp/127.0.0.1/17021 && printf CAM >&3 && "
               "grep -q handle= <&3) 2>/dev/null";
    }
    return Awaiting(test);
}

// A value that the process puts back is refused where it finds the time for that soon enough.
const std::string gsRefusal = "the process does not take";
std::string UntilRefused(const std::string& command)
{
    return Awaiting("said=$(" + command + " 2>&1); grep -q '" + gsRefusal + "' <<< \"$said\"") +
           "echo \"$said\"\n";
}

// A program of the shell that runs the steps and ends each part of its output with a line.
std::string ScriptOf(const std::vector<tsStep>& steps)
{
    std::string script = "exec 2>&1\n";
    for (const tsStep& step : steps) {
        // The process may notice a moment later that its client has gone.
        if (step.command.find(" dump ") != std::string::npos)
            script += Awaiting(step.command + " | grep -q ' disconnected$'");
        script += step.expected.find(gsRefusal) == std::string::npos ? step.command + "\n"
                                                                     : UntilRefused(step.command);
        if (step.command.back() == '&') script += Reached(step.command);
        script += "echo @@@\n";
    }
    return script + "kill %1\nwait %1\n";
}

} // namespace

TEST(DebuggingDocument, ShowsCommandsAndWhatTheyPrint)
{
    const uint16_t port = FreeTcpPort();
    std::string document = FileText(VXCAM_DEBUGGING);
    document = Replaced(document, R"(\b17020\b)", std::to_string(port));
    document = Replaced(document, R"(\b17021\b)", std::to_string(port + 3));
    document = Replaced(document, R"(\b7010\b)", std::to_string(port + 1));
    document = Replaced(document, R"(port 4000\b)", "port " + std::to_string(port + 2));
    document = Replaced(document, R"(1:4000\b)", "1:" + std::to_string(port + 2));
    document =
        Replaced(document, R"(log 127\.0\.0\.1 )", "log 127.0.0.1:" + std::to_string(port) + " ");
    document = Replaced(document, R"(items 127\.0\.0\.1 )",
                        "items 127.0.0.1:" + std::to_string(port + 1) + " ");
    const std::vector<tsStep> steps = StepsOf(document);
    ASSERT_GT(steps.size(), 15u);
    std::string script = ScriptOf(steps);
    script = Replaced(script, R"(\b17020\b)", std::to_string(port));
    script = Replaced(script, R"(\b17021\b)", std::to_string(port + 3));
    script = Replaced(script, R"(\b7010\b)", std::to_string(port + 1));

    tcFolder folder;
    tcRun::tsHow how;
    how.folder = folder.Path();
    how.program = "/bin/bash";
    const auto folderOf = [](const std::string& path) { return path.substr(0, path.rfind('/')); };
    how.environment = {{"PATH", folderOf(VXCAM_PROGRAM) + ":" + folderOf(VXCAMSIM_PROGRAM) + ":" +
                                    ::getenv("PATH")},
                       {"DBGD_ANNOUCE_GROUP", "127.0.0.1:" + std::to_string(tcUdpPort().Port())}};
    tcRun run({"-c", script}, how);
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    std::string output = run.Output();
    for (const tsStep& step : steps) {
        const size_t end = output.find("@@@\n");
        ASSERT_NE(end, std::string::npos) << step.command << "\n" << output;
        EXPECT_EQ(Comparable(output.substr(0, end)), Comparable(step.expected)) << step.command;
        output.erase(0, end + 4);
    }
}
