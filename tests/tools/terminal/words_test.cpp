// Words of a camera, whatever bytes it sends: they neither write on the terminal nor forge lines.
#include "service_support.h"
#include "tcSimServer.h"

using testing::HasSubstr;

namespace {

constexpr const char* gsSent = "spy\x1b[2J\xc2\x9b\rx\nvxcam: fine";
constexpr const char* gsShown = "spy\\x1b[2J\\xc2\\x9b\\rx\\nvxcam: fine";

// What a run prints, on both ways.
std::string AllOf(const std::vector<std::string>& arguments)
{
    tcRun run(arguments);
    run.Exit();
    return run.Output() + run.Errors();
}

void ExpectNoControls(const std::string& text)
{
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        EXPECT_TRUE(byte == '\n' || (byte >= ' ' && byte != 0x7F)) << text;
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 'x');
        EXPECT_FALSE(byte == 0xC2 && next < 0xA0) << text;
    }
}

} // namespace

// A name with such bytes is none: the hardware information is laid out in another way.
TEST(Words, OfACamerasNameCannotWriteOnTheTerminal)
{
    tsSimOptions options;
    options.name = gsSent;
    options.columns = options.rows = 16;
    options.heartbeatSeconds = 0.1;
    tcSimServer camera(options);
    const std::string target = "127.0.0.1:" + std::to_string(camera.Start());
    for (const char* verb : {"info", "doctor", "get"}) {
        ExpectNoControls(AllOf({verb, target}));
        ExpectNoControls(AllOf({verb, target, "--json"}));
    }
}

TEST(Words, OfACamerasComplaintAreShown)
{
    const std::string answer = MessageBytes(0x60, LittleEndian(5, 4));
    const std::string complaint = MessageBytes(0x75, std::string("\3\1") + gsSent + '\0');
    const tcActor camera({{0x30, complaint + answer}});
    const std::string text = AllOf({"get", camera.Target(), "exposure"});
    EXPECT_THAT(text, HasSubstr("3-1: spy\\x1b[2J\\xc2\\x9b\\"));
    EXPECT_EQ(Lines(text), 1) << text;
    ExpectNoControls(text);
    const std::string json = AllOf({"get", camera.Target(), "exposure", "--json"});
    EXPECT_THAT(json, HasSubstr("3-1: spy\\"));
    ExpectNoControls(json);
    const std::string watched = AllOf({"watch", camera.Target(), "--count", "1"});
    EXPECT_THAT(watched, HasSubstr("3-1: " + std::string(gsShown) + "\n"));
    ExpectNoControls(watched);
}

TEST(Words, OfTheCommandLineAreShown)
{
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {gsSent}, {"help", gsSent}, {"grab", gsSent}, {"log", "127.0.0.1", "list", gsSent}}) {
        const std::string text = AllOf(arguments);
        EXPECT_THAT(text, HasSubstr(gsShown));
        EXPECT_EQ(Lines(text), 1) << text;
        ExpectNoControls(text);
    }
}
