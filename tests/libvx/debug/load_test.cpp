// LOG commands while everybody logs and a camera streams. VX_LOAD_SECONDS lengthens the test.
#include "debug_support.h"
#include "tcSimServer.h"
#include "vxcamiface.h"

#include <atomic>
#include <fstream>

namespace {

constexpr int nWriters = 8;
constexpr int nClients = 4;

// An open camera that streams as fast as its connection takes the frames, to the null buffer of
// the test; its logger takes part in the commands.
class tcStreamingCamera
{
public:
    tcStreamingCamera() : mtSimulated(Options()), mnCamera(Open(mtSimulated.Start()))
    {
        EXPECT_GE(mnCamera, 0);
        EXPECT_EQ(0, VXSetImageDataCallback(mnCamera, CountFrame));
        EXPECT_EQ(0, VXSetExposure(mnCamera, 0));
        EXPECT_EQ(0, VXSetCCDArea(mnCamera, 0, 0, gnSide, gnSide));
    }
    ~tcStreamingCamera() { EXPECT_EQ(0, VXCloseCamera(mnCamera)); }
    tcStreamingCamera(const tcStreamingCamera&) = delete;
    tcStreamingCamera& operator=(const tcStreamingCamera&) = delete;

    // Readouts of 100 frames until it is over.
    void Stream(const std::atomic<bool>& isOver)
    {
        std::vector<uint16_t> image(size_t{gnSide} * gnSide);
        while (!isOver) {
            EXPECT_EQ(0, VXReadCCDArea(mnCamera, image.data(), 100, 0));
            EXPECT_EQ(0, VXWaitCompletion(mnCamera, 60000));
            ++mnReadouts;
        }
    }
    int Readouts() const { return mnReadouts; }
    static int Frames() { return gnFrames; }

private:
    static constexpr int gnSide = 256;
    static inline std::atomic<int> gnFrames{0};

    static tsSimOptions Options()
    {
        tsSimOptions options;
        options.columns = options.rows = gnSide;
        options.reuseFrame = true;
        options.heartbeatSeconds = 0.01;
        return options;
    }
    static int Open(unsigned short port) { return VXOpenENetCamera("127.0.0.1", port); }
    static void CountFrame(int, tsImageData*) { ++gnFrames; }

    tcSimServer mtSimulated;
    const int mnCamera;
    std::atomic<int> mnReadouts{0};
};

} // namespace

TEST_F(Daemon, LosesNoLineWhileFourClientsRedirectAndDump)
{
    const char* wanted = getenv("VX_LOAD_SECONDS");
    const int seconds = wanted ? atoi(wanted) : 3;
    char folder[] = "/tmp/log-load-XXXXXX";
    std::filesystem::current_path(mkdtemp(folder));
    tcLog numbered("NUMBERED", 1), target("TARGET", 1), second("SECOND", 1);
    tcLogFile file("numbered.log");
    numbered.SetConsumer(&file);
    Start();

    std::atomic<bool> isOver{false};
    std::atomic<int> requests{0};
    long counts[nWriters] = {};
    tcStreamingCamera camera;
    std::vector<std::thread> threads;
    threads.emplace_back([&] { camera.Stream(isOver); });
    for (int w = 0; w < nWriters; ++w) {
        threads.emplace_back([&, w] {
            while (!isOver) {
                numbered.logJournal("writer %d line %ld of the numbered ones", w, counts[w]++);
                target.logDebug(1, "writer %d to whatever consumer there is", w);
                second.logError("writer %d has an error", w);
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        });
    }
    for (int c = 0; c < nClients; ++c) {
        threads.emplace_back([&, c] {
            const char* script[] = {"LOG:SET TARGET 2 100",
                                    "LOG:DUMP TARGET",
                                    "LOG:SET TARGET 1",
                                    "LOG:LIST",
                                    "LOG:URI SECOND buff:50",
                                    "LOG:DUMP SECOND",
                                    "LOG:ENABLE 0",
                                    "LOG:DIR",
                                    "LOG:ENABLE 1",
                                    "LOG:URI SECOND file:second.log",
                                    "LOG:SET TARGET 3 target.log",
                                    "LOG:GET TARGET",
                                    "LOG:URI SECOND null",
                                    "LOG:URI SECOND",
                                    "LOG:SET TARGET 1",
                                    "LOG:SET VXCAM1 4 200",
                                    "LOG:DUMP VXCAM1",
                                    "LOG:URI VXCAM1 null",
                                    "LOG:SET VXCAM1 0",
                                    "LOG:ERRS"};
            const int length = sizeof script / sizeof *script;
            for (int i = c * 4; !isOver; ++i, ++requests) {
                const std::string reply = Ask(script[i % length]);
                EXPECT_TRUE(reply.empty() || reply == "ERROR" || reply.back() == '\n') << reply;
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    isOver = true;
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GT(requests, 20);
    EXPECT_GT(camera.Readouts(), 0);
    EXPECT_EQ(camera.Readouts() * 100, tcStreamingCamera::Frames());

    // Every line of every writer, once, whole and in order.
    long next[nWriters] = {}, lines = 0, written = 0;
    std::ifstream text("numbered.log");
    for (std::string line; std::getline(text, line); ++lines) {
        int writer = -1;
        long number = -1;
        int end = 0;
        const size_t at = line.find(": JNL:");
        ASSERT_NE(std::string::npos, at) << line;
        ASSERT_EQ(2, sscanf(line.c_str() + at, ": JNL:writer %d line %ld of the numbered ones%n",
                            &writer, &number, &end))
            << line;
        ASSERT_EQ(line.size(), at + static_cast<size_t>(end)) << line;
        ASSERT_TRUE(writer >= 0 && writer < nWriters) << line;
        ASSERT_EQ(next[writer]++, number) << line;
    }
    for (long count : counts)
        written += count;
    EXPECT_EQ(written, lines);
    EXPECT_GT(lines, 100);
    std::printf("%ld lines, %d requests, %d frames\n", lines, requests.load(),
                tcStreamingCamera::Frames());
    for (const char* name : {"TARGET", "SECOND", "VXCAM1"}) {
        Ask(std::string("LOG:SET ") + name + " 1");
        tcLog::FindLogPtr(name)->SetConsumer(nullptr);
    }
    numbered.SetConsumer(nullptr);
    std::filesystem::current_path("/");
    std::filesystem::remove_all(folder);
}
