#include "files_support.h"

#include <vxcamkit/new_file.h>

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <thread>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace vxcam {

namespace {

const std::string kText = "whole";

std::string refusal(const std::function<void()>& call)
{
    return refusalOf(call, ErrorKind::File);
}

FileBytes bytesOf(size_t size)
{
    FileBytes bytes(size);
    for (size_t i = 0; i < bytes.room(); ++i) {
        bytes.data()[i] = i < size ? static_cast<char>(i * 2654435761U >> 13U) : '\0';
    }
    return bytes;
}

std::string refusedWrite(const std::string& path, bool force, const std::string& text = kText)
{
    return refusal([&] { writeNewFile(path, text.data(), text.size(), force); });
}

} // namespace

TEST(NewFile, AppearsWholeAndAlone)
{
    const Folder folder;
    EXPECT_EQ(refusedWrite(folder.path("a"), false), "");
    EXPECT_EQ(ReadFile(folder.path("a")), kText);
    EXPECT_THAT(folder.names(), ElementsAre("a"));
}

TEST(NewFile, HasTheRightsThatTheUserGivesNewFiles)
{
    const Folder folder;
    const mode_t before = ::umask(027);
    EXPECT_EQ(refusedWrite(folder.path("a"), false), "");
    ::umask(before);
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status(folder.path("a")).permissions(),
              perms::owner_read | perms::owner_write | perms::group_read);
}

TEST(NewFile, ReplacesNothingWithoutForce)
{
    const Folder folder;
    makeTextFile(folder.path("a"), "before");
    EXPECT_THAT(refusedWrite(folder.path("a"), false), HasSubstr("exists already"));
    EXPECT_THAT(refusal([&] { checkNewFile(folder.path("a"), false); }),
                HasSubstr("exists already"));
    EXPECT_EQ(ReadFile(folder.path("a")), "before");
    EXPECT_THAT(folder.names(), ElementsAre("a"));
}

TEST(NewFile, ReplacesAFileWithForce)
{
    const Folder folder;
    makeTextFile(folder.path("a"), "before");
    EXPECT_EQ(refusedWrite(folder.path("a"), true), "");
    EXPECT_EQ(ReadFile(folder.path("a")), kText);
    EXPECT_THAT(folder.names(), ElementsAre("a"));
}

TEST(NewFile, DoesNotReplaceAFileThatAppearsMeanwhile)
{
    // A big file takes a while; the other one appears as soon as the hidden one is there.
    const Folder folder;
    std::thread other([&] {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (folder.names().empty() && std::chrono::steady_clock::now() < deadline) {
        }
        makeTextFile(folder.path("a"), "theirs");
    });
    const std::string big(size_t(64) << 20, 'x');
    const std::string refusal = refusedWrite(folder.path("a"), false, big);
    other.join();
    EXPECT_THAT(refusal, HasSubstr("exists already"));
    EXPECT_EQ(ReadFile(folder.path("a")), "theirs");
    EXPECT_THAT(folder.names(), ElementsAre("a"));
}

TEST(NewFile, KeepsASymbolicLinkAndWritesWhatItNames)
{
    const Folder folder;
    makeTextFile(folder.path("a"), "before");
    std::filesystem::create_symlink("a", folder.path("link"));
    EXPECT_THAT(refusedWrite(folder.path("link"), false), HasSubstr("exists already"));
    EXPECT_EQ(refusedWrite(folder.path("link"), true), "");
    EXPECT_EQ(ReadFile(folder.path("a")), kText);
    EXPECT_TRUE(std::filesystem::is_symlink(folder.path("link")));
}

TEST(NewFile, TakesALinkToNothingForAnExistingFile)
{
    const Folder folder;
    std::filesystem::create_symlink("nowhere", folder.path("link"));
    EXPECT_THAT(refusedWrite(folder.path("link"), false), HasSubstr("exists already"));
    EXPECT_EQ(refusedWrite(folder.path("link"), true), "");
    EXPECT_EQ(ReadFile(folder.path("link")), kText);
}

TEST(NewFile, NeverReplacesDevicesAndFolders)
{
    const Folder folder;
    EXPECT_THAT(refusedWrite("/dev/full", true), HasSubstr("no regular file"));
    EXPECT_THAT(refusedWrite(folder.path(), true), HasSubstr("is a folder"));
    EXPECT_THAT(refusedWrite(folder.path("x/"), true), HasSubstr("no file name"));
    EXPECT_THAT(refusedWrite("", true), HasSubstr("no file name"));
}

TEST(NewFile, NeedsAFolderThatExists)
{
    const Folder folder;
    EXPECT_THAT(refusal([&] { checkNewFile(folder.path("no/a"), false); }),
                HasSubstr("there is no folder " + folder.path("no")));
    makeTextFile(folder.path("file"), "");
    EXPECT_THAT(refusal([&] { checkNewFile(folder.path("file/a"), false); }),
                HasSubstr("Not a directory"));
    EXPECT_THAT(refusal([&] { checkNewFile(folder.path(std::string(300, 'n')), false); }),
                HasSubstr("File name too long"));
}

TEST(NewFile, NeedsAFolderThatCanBeWrittenTo)
{
    // For the superuser every folder of an ordinary file system is writable; this one is not.
    EXPECT_THAT(refusal([] { checkNewFile("/proc/self/a", false); }), HasSubstr("/proc/self"));
}

TEST(NewFile, LeavesNothingWhenTheDiskIsFull)
{
    // Beyond the limit a write fails as on a full disk, after what still fits has been written.
    const Folder folder;
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{3 << 20, 3 << 20};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    const std::string big(size_t(8) << 20, 'x');
    EXPECT_THAT(refusedWrite(folder.path("a"), false, big), HasSubstr("File too large"));
    EXPECT_THAT(folder.names(), IsEmpty());
}

TEST(NewFile, KeepsTheFileBeforeWhenTheDiskIsFull)
{
    const Folder folder;
    makeTextFile(folder.path("a"), "before");
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{3 << 20, 3 << 20};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    EXPECT_NE(refusedWrite(folder.path("a"), true, std::string(size_t(8) << 20, 'x')), "");
    EXPECT_EQ(ReadFile(folder.path("a")), "before");
    EXPECT_THAT(folder.names(), ElementsAre("a"));
}

TEST(NewFile, LeavesNothingWhenCancelled)
{
    const Folder folder;
    const std::atomic<bool> cancelled{true};
    const auto write = [&] {
        writeNewFile(folder.path("a"), kText.data(), kText.size(), false, &cancelled);
    };
    EXPECT_THAT(refusalOf(write, ErrorKind::Aborted), HasSubstr("interrupted"));
    EXPECT_THAT(folder.names(), IsEmpty());
}

TEST(NewFile, LeavesNothingThatIsNotKept)
{
    const Folder folder;
    {
        NewFile file(folder.path("a"));
        file.write(kText.data(), kText.size());
        file.sync();
        EXPECT_EQ(folder.names().size(), 1u); // under another name
        EXPECT_NE(folder.names()[0], "a");
    }
    EXPECT_THAT(folder.names(), IsEmpty());
}

TEST(NewFile, HoldsLargeBytesExactlyWhateverTheirSize)
{
    for (const size_t size :
         {size_t(0), size_t(1), size_t(4096), size_t(1) << 20, (size_t(1) << 20) + 1,
          (size_t(8) << 20) - 1, (size_t(9) << 20) + 4097}) {
        const Folder folder;
        const FileBytes bytes = bytesOf(size);
        writeNewFile(folder.path("a"), bytes);
        EXPECT_TRUE(ReadFile(folder.path("a")) == std::string(bytes.data(), bytes.size())) << size;
        EXPECT_THAT(folder.names(), ElementsAre("a"));
    }
}

TEST(NewFile, HoldsLargeBytesWhereNoDiskIs)
{
    const std::string path = "/dev/shm/vxcam-test-" + std::to_string(::getpid());
    const FileBytes bytes = bytesOf((size_t(2) << 20) + 5);
    writeNewFile(path, bytes);
    EXPECT_TRUE(ReadFile(path) == std::string(bytes.data(), bytes.size()));
    ::unlink(path.c_str());
}

TEST(NewFile, LeavesNothingOfLargeBytesWhenTheDiskIsFull)
{
    const Folder folder;
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{(3 << 20) + 100, (3 << 20) + 100};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    const FileBytes bytes = bytesOf(size_t(8) << 20);
    EXPECT_THAT(refusal([&] { writeNewFile(folder.path("a"), bytes); }),
                HasSubstr("File too large"));
    EXPECT_THAT(folder.names(), IsEmpty());
}

TEST(Descriptor, TakesAllThatIsWritten)
{
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const std::string big(size_t(3) << 20, 'x'); // more than a pipe holds
    size_t received = 0;
    std::thread reader([&] {
        char block[65536];
        for (ssize_t count; (count = ::read(ends[0], block, sizeof block)) > 0;) {
            received += static_cast<size_t>(count);
        }
    });
    writeToDescriptor(ends[1], "output", big.data(), big.size());
    ::close(ends[1]);
    reader.join();
    ::close(ends[0]);
    EXPECT_EQ(received, big.size());
}

TEST(Descriptor, TellsThatNobodyReads)
{
    std::signal(SIGPIPE, SIG_IGN);
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::close(ends[0]);
    EXPECT_THAT(refusal([&] { writeToDescriptor(ends[1], "output", "x", 1); }),
                HasSubstr("output: Broken pipe"));
    ::close(ends[1]);
}

} // namespace vxcam
