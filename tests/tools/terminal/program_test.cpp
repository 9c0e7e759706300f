// What holds for every verb: usage, help, versions, exit codes, standard output.
#include "program.h"

#include "propertytext.h"
#include "service_support.h"
#include "tool_support.h"
#include "vxcamiface.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <functional>

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

// A run that ends with 1, prints nothing, and says what is wrong in one line.
void ExpectUsageError(const std::vector<std::string>& arguments, const std::string& text)
{
    tcRun run(arguments);
    EXPECT_EQ(run.Exit(), 1);
    EXPECT_EQ(run.Output(), "");
    EXPECT_THAT(run.Errors(), StartsWith("vxcam: "));
    EXPECT_THAT(run.Errors(), HasSubstr(text));
    EXPECT_EQ(Lines(run.Errors()), 1) << run.Errors();
}

std::string OutputOf(const std::vector<std::string>& arguments)
{
    tcRun run(arguments);
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Errors(), "");
    return run.Output();
}

} // namespace

TEST(Program, MissingOrUnknownVerbsAreUsageErrors)
{
    ExpectUsageError({}, "a verb is missing");
    ExpectUsageError({"grub"}, "unknown verb 'grub'");
    ExpectUsageError({""}, "unknown verb ''");
    ExpectUsageError({"--nonsense"}, "unknown option '--nonsense'");
    ExpectUsageError({"help", "grub"}, "unknown verb 'grub'");
}

TEST(Program, TheFlightFileMayStandBeforeTheVerb)
{
    const tcFolder folder;
    const std::string file = folder.Path("flight.jsonl");
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"--flight", file, "grab"}, {"--flight=" + file, "grab"}}) {
        std::vector<std::string> arguments = words;
        arguments.insert(arguments.end(), {"sim?fault=half-open:frame=1,packet=5", "-e", "1ms",
                                           "--timeout", "200ms", "--sim-sensor=64x32"});
        tcRun run(arguments);
        EXPECT_EQ(run.Exit(), 3) << run.Errors();
        EXPECT_TRUE(std::filesystem::remove(file)) << words[0];
    }
    EXPECT_EQ(OutputOf({"--flight", file, "get", "sim", "gain"}), "gain=0\n");
    EXPECT_EQ(OutputOf({"--flight", file, "help", "grab"}), OutputOf({"help", "grab"}));
    ExpectUsageError({"--flight"}, "--flight: its value is missing");
    ExpectUsageError({"--flight", file}, "a verb is missing");
    ExpectUsageError({"--flight", file, "grub"}, "unknown verb 'grub'");
    ExpectUsageError({"--flights", file, "grab"}, "unknown option '--flights'");
}

TEST(Program, TheFlightFileIsNotTheOutput)
{
    const tcFolder folder;
    MakeFile(folder.Path("kept.fits"), "precious");
    std::filesystem::create_hard_link(folder.Path("kept.fits"), folder.Path("link.fits"));
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"grab", "sim", "--flight", "a.fits", "-o", "a.fits"},
             {"--flight", "./a.h5", "record", "sim", "-n", "1", "-o", "a.h5"},
             {"flat", "sim", "--flight=../x/a.fits", "-o", "../x/./a.fits"},
             {"grab", "sim", "--force", "--flight", "kept.fits", "-o", "link.fits"}}) {
        tcRun run(words, In(folder));
        EXPECT_EQ(run.Exit(), 1) << words[0];
        EXPECT_THAT(run.Errors(), HasSubstr(": is the output, too")) << words[0];
    }
    EXPECT_EQ(FileText(folder.Path("kept.fits")), "precious");
    EXPECT_EQ(folder.Names().size(), 2u);
}

TEST(Program, UnknownOptionsAndSurplusArgumentsAreUsageErrors)
{
    ExpectUsageError({"grab", "--nonsense"}, "--nonsense");
    ExpectUsageError({"grab", "sim", "surplus"}, "surplus");
    ExpectUsageError({"ping", "--exposure", "1s"}, "--exposure");
}

TEST(Program, ImpossibleValuesAreUsageErrors)
{
    ExpectUsageError({"grab", "-e", "soon"}, "time 'soon'");
    ExpectUsageError({"grab", "-e"}, "--exposure");
    ExpectUsageError({"grab", "--frames", "0"}, "--frames");
    ExpectUsageError({"grab", "--frames", "32768"}, "--frames");
    ExpectUsageError({"grab", "--area", "1,2,3"}, "area '1,2,3'");
    ExpectUsageError({"grab", "--area", "0,0,1,1", "--binned"}, "--area");
    ExpectUsageError({"grab", "--binned", "--mask-binned"}, "--mask-binned");
    ExpectUsageError({"grab", "--timeout", "x"}, "time 'x'");
    ExpectUsageError({"grab", "--cool-timeout", "x"}, "time 'x'");
    ExpectUsageError({"grab", "--target-temp", "cold"}, "--target-temp");
    ExpectUsageError({"grab", "--target-temp", "-300"}, "-273");
    ExpectUsageError({"grab", "--target-temp", "nan"}, "-273");
    ExpectUsageError({"grab", "-o", "%s.fits"}, "file name '%s.fits'");
    ExpectUsageError({"grab", "-o", "same", "--preview", "same"}, "same: would be written twice");
    ExpectUsageError({"grab", "nowhere"}, "target 'nowhere'");
    ExpectUsageError({"grab", "--sim-sensor", "big"}, "size 'big'");
    ExpectUsageError({"grab", "--sim-time-scale", "0"}, "--sim-time-scale");
    ExpectUsageError({"grab", "--sim-seed", "x"}, "--sim-seed");
    ExpectUsageError({"ping", "--sim-seed", "-1"},
                     "--sim-seed: '-1' is no whole number from 0 to 18446744073709551615");
    ExpectUsageError({"ping", "--sim-seed", "18446744073709551616"}, "no whole number from 0 to");
    ExpectUsageError({"logsink", "--port", "65536"}, "'65536' is no whole number from 0 to 65535");
    ExpectUsageError({"ping", "127.0.0.1:0"}, "the port is 1 to 65535");
    ExpectUsageError({"ping", "-n", "0"}, "--count");
}

TEST(Program, UsageErrorsAreDocumentsWhereDocumentsAreAskedFor)
{
    for (const auto& arguments :
         std::vector<std::vector<std::string>>{{"grab", "--json", "--frames", "x"},
                                               {"grab", "-e", "soon", "--json"},
                                               {"ping", "nowhere", "--json"},
                                               {"set", "--json", "sim", "nonsense=1"},
                                               {"watch", "--json", "--for", "x"},
                                               {"nonsense", "--json"}}) {
        tcRun run(arguments);
        EXPECT_EQ(run.Exit(), 1);
        const nlohmann::json document = run.Document();
        EXPECT_EQ(document["error"]["exit_code"], 1) << run.Output();
        EXPECT_EQ("vxcam: " + document["error"].value("text", "") + "\n", run.Errors());
        EXPECT_EQ(Lines(run.Output()), 1) << "for those who read line by line";
    }
}

// Whatever is wrong with files, what is said first is what no file can mend.
TEST(Program, ArgumentsAreCheckedBeforeFiles)
{
    const std::string nowhere = "/nowhere/file";
    ExpectUsageError({"grab", "sim:x", "-o", nowhere}, "target 'sim:x'");
    ExpectUsageError({"grab", "-o", nowhere, "--sim-sensor", "0x5"}, "size '0x5'");
    ExpectUsageError({"profile", "load", "serial:x", nowhere}, "target 'serial:x'");
    ExpectUsageError({"set", "sim", "timing-data=@" + nowhere, "gain=high"}, "gain 'high'");
    ExpectUsageError({"get", "sim", "timing-data@" + nowhere, "gainn"}, "gainn");
}

TEST(Program, TheLastOfARepeatedOptionHolds)
{
    tcFolder folder;
    const std::string json = OutputOf(
        {"grab", "sim", "--sim-sensor", "8x8", "-e", "1h", "-o", folder.Path("first.fits"),
         "--sim-sensor", "16x4", "--exposure", "1ms", "-o", folder.Path("last.fits"), "--json"});
    EXPECT_FALSE(std::filesystem::exists(folder.Path("first.fits")));
    EXPECT_TRUE(std::filesystem::exists(folder.Path("last.fits")));
    EXPECT_EQ(nlohmann::json::parse(json)["frames"][0]["columns"], 16);
    ExpectUsageError({"grab", "sim", "sim"}, "sim");
}

TEST(Program, HelpListsEveryVerb)
{
    for (const auto& arguments :
         std::vector<std::vector<std::string>>{{"--help"}, {"-h"}, {"help"}}) {
        const std::string help = OutputOf(arguments);
        for (const tsVerb& verb : Verbs()) {
            EXPECT_THAT(help, HasSubstr(std::string("  ") + verb.name + " "));
            EXPECT_THAT(help, HasSubstr(verb.summary));
        }
    }
}

TEST(Program, EveryVerbHasAHelpWithExamplesAndExitCodes)
{
    for (const tsVerb& verb : Verbs()) {
        const std::string help = OutputOf({verb.name, "--help"});
        EXPECT_THAT(help, StartsWith(std::string("vxcam ") + verb.name + " - " + verb.summary));
        EXPECT_THAT(help, HasSubstr("Examples:\n  vxcam " + std::string(verb.name)));
        EXPECT_THAT(help, HasSubstr("Exit codes: 0 done, 1 usage"));
        EXPECT_EQ(OutputOf({"help", verb.name}), help);
    }
}

TEST(Program, VersionNamesTheProgramAndTheLibrary)
{
    EXPECT_EQ(OutputOf({"--version"}), "vxcam 3.0.7 (library 3.0.7)\n");
}

TEST(Program, OutputThatCannotBeWrittenIsAFileError)
{
    tcRun::tsHow how;
    how.output = "/dev/full";
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {"--version"}, {"--help"}, {"grab", "--help"}, {"ping", "-n", "1", "--json"}}) {
        tcRun run(arguments, how);
        EXPECT_EQ(run.Exit(), 5);
        EXPECT_EQ(run.Errors(), "vxcam: standard output: No space left on device\n");
    }
}

// Each run has ended before the next one begins: one that loses its connection makes another, which
// would be taken for that of the next.
TEST(Program, OpensADebugPortOnlyWhenToldWhich)
{
    const int port = FreeTcpPort();
    tcRun::tsHow how;
    const auto ports = [&how](const std::function<bool(const std::set<int>&)>& isWanted) {
        tcScriptedCamera camera;
        tcRun run({"ping", "127.0.0.1:" + std::to_string(camera.Port())}, how);
        camera.Accept(); // by then a daemon would be there
        WaitUntil([&] { return isWanted(run.Ports()); });
        return run.Ports();
    };
    const auto any = [](const std::set<int>&) { return true; };
    EXPECT_EQ(ports(any), std::set<int>());

    how.environment = {{"DBGD_PORTNUM", std::to_string(port)},
                       {"DBGD_BIND", "127.0.0.1"},
                       {"DBGD_ANNOUCE_GROUP", "127.0.0.1:9"}};
    EXPECT_EQ(ports([](const std::set<int>& open) { return !open.empty(); }), std::set<int>{port});

    how.environment["DBGD_DISABLE"] = "1";
    EXPECT_EQ(ports(any), std::set<int>());
}

TEST(Program, DocumentationNamesEveryProperty)
{
    const std::string document = FileText(VXCAM_DOCUMENT);
    for (const vxcam::Property& property : vxcam::properties()) {
        std::string syntax = property.isWritable() ? SyntaxText(property) : "read only";
        for (size_t at = 0; (at = syntax.find('|', at)) != std::string::npos; at += 2) {
            syntax.insert(at, "\\"); // a bar ends the cell of a table
        }
        const std::string cell = property.isWritable() ? "`" + syntax + "`" : syntax;
        EXPECT_THAT(document, HasSubstr("\n| `" + property.fullName() + "` | " + cell + " | "));
    }
}

TEST(Program, DocumentationNamesEveryVerbAndOption)
{
    const std::string document = FileText(VXCAM_DOCUMENT);
    const auto names = [&](const std::string& text) {
        EXPECT_TRUE(document.find(text) != std::string::npos) << text;
    };
    for (const tsVerb& verb : Verbs()) {
        names("## vxcam " + std::string(verb.name) + "\n");
        tcCommandLine line;
        const std::unique_ptr<tcVerb> run = verb.make();
        run->Declare(line);
        std::vector<tcCommandLine> all = line.Actions();
        for (const tcCommandLine& action : all) {
            names("| `" + action.Name());
        }
        all.push_back(line);
        for (const tcCommandLine& one : all) {
            for (const tsOptionText& option : one.Options()) {
                names("`" + option.names.back());
            }
        }
    }
}

// Without the descriptors, a connection would get one of their numbers, and what is printed with
// it.
TEST(Program, WithoutStandardDescriptorsPrintsNothingToTheCamera)
{
    for (const char* closed : {">&-", "2>&-", "<&- >&- 2>&-"}) {
        tcScriptedCamera camera;
        tcRun::tsHow how;
        how.program = "/bin/sh";
        tcRun run({"-c", VXCAM_PROGRAM " get 127.0.0.1:" + std::to_string(camera.Port()) +
                             " exposure " + closed},
                  how);
        ASSERT_TRUE(camera.Accept());
        int exposures = 0;
        for (std::string message = camera.ReadMessage(); !message.empty();
             message = camera.ReadMessage()) {
            ASSERT_EQ(message.substr(0, 2), "\x50\xFA") << message;
            const uint32_t id = IdOf(message);
            exposures += id == 0x30 ? 1 : 0;
            if (id == 0x34) camera.Send(HardwareAnswer(4, 8));
            if (id == 0x30) camera.Send(MessageBytes(0x60, LittleEndian(5, 4)));
        }
        camera.Close();
        EXPECT_EQ(run.Exit(), 0);
        EXPECT_GE(exposures, 1) << closed;
    }
}
