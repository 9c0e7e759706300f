#include "files_support.h"

#include <vxcamkit/frame_writer.h>

#include <gmock/gmock.h>

#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <future>
#include <thread>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using namespace std::chrono_literals;

namespace vxcam {

namespace {

constexpr std::chrono::seconds kPatience(30);

Frame numbered(int number, int rows = 20)
{
    FrameFacts facts = factsOf(rows, 30);
    facts.number = number;
    return Frame(facts);
}

} // namespace

TEST(FrameWriter, WritesEveryFrameInOrder)
{
    const Folder folder;
    WriterOptions options;
    std::vector<int> seen;
    options.whenWritten = [&](const WrittenFrame& written) {
        seen.push_back(written.facts.number);
        EXPECT_TRUE(std::filesystem::exists(written.files.back().path));
    };
    FrameWriter writer(options);
    for (int number = 1; number <= 12; ++number) {
        // The first one takes long; the next ones are made meanwhile, and wait for it.
        EXPECT_TRUE(writer.write(numbered(number, number == 1 ? 300000 : 20),
                                 {{folder.path(fileName("a%02d.fits", number, 12))}}));
    }
    writer.finish();
    EXPECT_THAT(seen, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12));
    EXPECT_EQ(folder.names().size(), 12u);
    EXPECT_EQ(folder.names().back(), "a12.fits");
    EXPECT_EQ(writer.written().size(), 12u);
    EXPECT_TRUE(writer.isDone());
    EXPECT_FALSE(writer.hasFailed());
    EXPECT_FALSE(writer.write(numbered(13), {{folder.path("b.fits")}})); // it is finished
}

TEST(FrameWriter, WritesAllFilesOfAFrame)
{
    const Folder folder;
    FrameWriter writer;
    writer.write(numbered(1), {{folder.path("a.png"), FileFormat::Preview},
                               {folder.path("a.fits"), FileFormat::Fits}});
    writer.write(numbered(2), {});
    writer.finish();
    EXPECT_THAT(folder.names(), ElementsAre("a.fits", "a.png"));
    ASSERT_EQ(writer.written().size(), 2u);
    EXPECT_EQ(writer.written()[0].files.size(), 2u);
    EXPECT_EQ(ReadFile(folder.path("a.png")).substr(1, 3), "PNG");
    EXPECT_EQ(ReadFile(folder.path("a.fits")).substr(0, 6), "SIMPLE");
}

TEST(FrameWriter, TellsFactsSumAndWarnings)
{
    const Folder folder;
    FrameFacts facts = factsOf(1, 2);
    facts.cameraName = "\xC3\xA4";
    FrameWriter writer;
    writer.write(frameOf<uint16_t>(facts, {7, 8}), {{folder.path("a.fits")}});
    writer.finish();
    ASSERT_EQ(writer.written().size(), 1u);
    EXPECT_EQ(writer.written()[0].sum, 15u);
    EXPECT_EQ(writer.written()[0].facts.columns, 2);
    EXPECT_THAT(writer.written()[0].warnings, ElementsAre(HasSubstr("INSTRUME")));
}

TEST(FrameWriter, LetsAFramesBufferGoWhenItsFileIsMade)
{
    const Folder folder;
    std::promise<void> returned;
    uint16_t buffer[4] = {1, 2, 3, 4};
    FrameWriter writer;
    writer.write(
        Frame(factsOf(2, 2), std::shared_ptr<void>(buffer, [&](void*) { returned.set_value(); })),
        {{folder.path("a.fits")}});
    EXPECT_EQ(returned.get_future().wait_for(kPatience), std::future_status::ready);
    writer.finish();
}

TEST(FrameWriter, HoldsBackWhoeverIsFasterThanTheDisk)
{
    const Folder folder;
    WriterOptions options;
    options.most = 2;
    std::promise<void> go;
    std::shared_future<void> gone = go.get_future().share();
    options.whenWritten = [gone](const WrittenFrame&) { gone.wait(); };
    std::atomic<int> taken{0};
    FrameWriter writer(options);
    std::thread producer([&] {
        for (int number = 1; number <= 60; ++number) {
            writer.write(numbered(number), {{folder.path(fileName("a", number, 60))}});
            ++taken;
        }
    });
    // One is held in the callback, some lie behind it; then it stands still.
    int before = -1;
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (before != taken && std::chrono::steady_clock::now() < deadline) {
        before = taken;
        std::this_thread::sleep_for(200ms);
    }
    EXPECT_LE(taken, 20);
    go.set_value();
    producer.join();
    writer.finish();
    EXPECT_EQ(folder.names().size(), 60u);
}

TEST(FrameWriter, KeepsWhatIsBeforeAFailureAndNothingBehindIt)
{
    const Folder folder;
    makeTextFile(folder.path("a3.fits"), "theirs");
    std::atomic<int> done{0};
    WriterOptions options;
    options.whenDone = [&] { ++done; };
    FrameWriter writer(options);
    for (int number = 1; number <= 9; ++number) {
        writer.write(numbered(number), {{folder.path(fileName("a%d.fits", number, 9))}});
    }
    EXPECT_THAT(refusalOf([&] { writer.finish(); }, ErrorKind::File),
                HasSubstr("a3.fits: exists already"));
    EXPECT_THAT(refusalOf([&] { writer.throwFailure(); }, ErrorKind::File), HasSubstr("a3.fits"));
    EXPECT_THAT(folder.names(), ElementsAre("a1.fits", "a2.fits", "a3.fits"));
    EXPECT_EQ(ReadFile(folder.path("a3.fits")), "theirs");
    EXPECT_EQ(writer.written().size(), 2u);
    EXPECT_TRUE(writer.hasFailed());
    EXPECT_TRUE(writer.isDone());
    EXPECT_EQ(done, 1);
    EXPECT_FALSE(writer.write(numbered(10), {{folder.path("b.fits")}}));
}

TEST(FrameWriter, EndsWaitsForRoomWhenWritingFails)
{
    WriterOptions options;
    options.most = 1;
    FrameWriter writer(options);
    bool wasRefused = false;
    for (int number = 1; number <= 100 && !wasRefused; ++number) {
        wasRefused = !writer.write(numbered(number), {{"/nowhere/a.fits"}});
    }
    EXPECT_TRUE(wasRefused);
    EXPECT_THAT(refusalOf([&] { writer.finish(); }, ErrorKind::File), HasSubstr("/nowhere"));
}

TEST(FrameWriter, LeavesNothingWhenTheDiskIsFull)
{
    const Folder folder;
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{1 << 20, 1 << 20};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    FrameWriter writer;
    writer.write(numbered(1), {{folder.path("a1.fits")}});
    writer.write(numbered(2, 100000), {{folder.path("a2.fits")}}); // 6 MB
    EXPECT_THAT(refusalOf([&] { writer.finish(); }, ErrorKind::File), HasSubstr("File too large"));
    EXPECT_THAT(folder.names(), ElementsAre("a1.fits"));
}

TEST(FrameWriter, KeepsNothingBehindAFailureThatComesLate)
{
    const Folder folder;
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{1 << 20, 1 << 20};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    WriterOptions options;
    options.most = 20;
    FrameWriter writer(options);
    for (int number = 1; number <= 5; ++number) {
        // The third one takes long, and is too large; those behind it are made meanwhile.
        writer.write(numbered(number, number == 3 ? 300000 : 20),
                     {{folder.path(fileName("a%d.fits", number, 5))}});
    }
    EXPECT_THAT(refusalOf([&] { writer.finish(); }, ErrorKind::File), HasSubstr("a3.fits"));
    EXPECT_THAT(folder.names(), ElementsAre("a1.fits", "a2.fits"));
    EXPECT_EQ(writer.written().size(), 2u);
}

TEST(FrameWriter, DropsWhatIsNotThereWhenItIsStopped)
{
    const Folder folder;
    WriterOptions options;
    options.most = 100;
    std::promise<void> first;
    std::once_flag once;
    options.whenWritten = [&](const WrittenFrame&) {
        std::call_once(once, [&] { first.set_value(); });
        std::this_thread::sleep_for(50ms);
    };
    FrameWriter writer(options);
    for (int number = 1; number <= 50; ++number) {
        writer.write(numbered(number), {{folder.path(fileName("a%02d.fits", number, 50))}});
    }
    EXPECT_EQ(first.get_future().wait_for(kPatience), std::future_status::ready);
    writer.stop();
    const size_t there = writer.written().size();
    EXPECT_LT(there, 50u);
    EXPECT_EQ(folder.names().size(), there); // whole ones, and no hidden ones
    EXPECT_FALSE(writer.hasFailed());
    EXPECT_TRUE(writer.isDone());
    writer.throwFailure();
}

TEST(FrameWriter, EndsWithoutAWord)
{
    const Folder folder;
    {
        FrameWriter writer;
        writer.write(numbered(1), {{folder.path("a.fits")}});
    }
    for (const std::string& name : folder.names()) {
        EXPECT_EQ(name, "a.fits"); // or nothing
    }
}

} // namespace vxcam
