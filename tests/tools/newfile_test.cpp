#include "newfile.h"

#include "failure.h"
#include "tool_support.h"

#include <gmock/gmock.h>

#include <functional>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const std::atomic<bool> gbNever{false};
const std::string gsText = "whole";

// The text of a file error; "" when there is none.
std::string Refusal(const std::function<void()>& call)
{
    try {
        call();
    } catch (const tcFailure& failure) {
        EXPECT_EQ(failure.Code(), eExitFile);
        return failure.what();
    }
    return "";
}

std::string RefusedWrite(const std::string& path, bool force, const std::string& text = gsText)
{
    return Refusal([&] { WriteNewFile(path, text.data(), text.size(), force, gbNever); });
}

} // namespace

TEST(NewFile, AppearsWholeAndAlone)
{
    tcFolder folder;
    EXPECT_EQ(RefusedWrite(folder.Path("a"), false), "");
    EXPECT_EQ(FileText(folder.Path("a")), gsText);
    EXPECT_THAT(folder.Names(), ElementsAre("a"));
}

TEST(NewFile, HasTheRightsThatTheUserGivesNewFiles)
{
    tcFolder folder;
    const mode_t before = ::umask(027);
    EXPECT_EQ(RefusedWrite(folder.Path("a"), false), "");
    ::umask(before);
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status(folder.Path("a")).permissions(),
              perms::owner_read | perms::owner_write | perms::group_read);
}

TEST(NewFile, ReplacesNothingWithoutForce)
{
    tcFolder folder;
    MakeFile(folder.Path("a"), "before");
    EXPECT_THAT(RefusedWrite(folder.Path("a"), false), HasSubstr("exists already"));
    EXPECT_THAT(Refusal([&] { CheckNewFile(folder.Path("a"), false); }),
                HasSubstr("exists already"));
    EXPECT_EQ(FileText(folder.Path("a")), "before");
    EXPECT_THAT(folder.Names(), ElementsAre("a"));
}

TEST(NewFile, ReplacesAFileWithForce)
{
    tcFolder folder;
    MakeFile(folder.Path("a"), "before");
    EXPECT_EQ(RefusedWrite(folder.Path("a"), true), "");
    EXPECT_EQ(FileText(folder.Path("a")), gsText);
    EXPECT_THAT(folder.Names(), ElementsAre("a"));
}

TEST(NewFile, DoesNotReplaceAFileThatAppearsMeanwhile)
{
    // A big file takes a while; the other one appears as soon as the hidden one is there.
    tcFolder folder;
    std::thread other([&] {
        WaitUntil([&] { return !folder.Names().empty(); });
        MakeFile(folder.Path("a"), "theirs");
    });
    const std::string big(size_t(64) << 20, 'x');
    const std::string refusal = RefusedWrite(folder.Path("a"), false, big);
    other.join();
    EXPECT_THAT(refusal, HasSubstr("exists already"));
    EXPECT_EQ(FileText(folder.Path("a")), "theirs");
    EXPECT_THAT(folder.Names(), ElementsAre("a"));
}

TEST(NewFile, KeepsASymbolicLinkAndWritesWhatItNames)
{
    tcFolder folder;
    MakeFile(folder.Path("a"), "before");
    std::filesystem::create_symlink("a", folder.Path("link"));
    EXPECT_THAT(RefusedWrite(folder.Path("link"), false), HasSubstr("exists already"));
    EXPECT_EQ(RefusedWrite(folder.Path("link"), true), "");
    EXPECT_EQ(FileText(folder.Path("a")), gsText);
    EXPECT_TRUE(std::filesystem::is_symlink(folder.Path("link")));
}

TEST(NewFile, TakesALinkToNothingForAnExistingFile)
{
    tcFolder folder;
    std::filesystem::create_symlink("nowhere", folder.Path("link"));
    EXPECT_THAT(RefusedWrite(folder.Path("link"), false), HasSubstr("exists already"));
    EXPECT_EQ(RefusedWrite(folder.Path("link"), true), "");
    EXPECT_EQ(FileText(folder.Path("link")), gsText);
}

TEST(NewFile, NeverReplacesDevicesAndFolders)
{
    tcFolder folder;
    EXPECT_THAT(RefusedWrite("/dev/full", true), HasSubstr("no regular file"));
    EXPECT_THAT(RefusedWrite(folder.Path(), true), HasSubstr("is a folder"));
    EXPECT_THAT(RefusedWrite(folder.Path("x/"), true), HasSubstr("no file name"));
    EXPECT_THAT(RefusedWrite("", true), HasSubstr("no file name"));
}

TEST(NewFile, NeedsAFolderThatExists)
{
    tcFolder folder;
    EXPECT_THAT(Refusal([&] { CheckNewFile(folder.Path("no/a"), false); }),
                HasSubstr("there is no folder " + folder.Path("no")));
    MakeFile(folder.Path("file"), "");
    EXPECT_THAT(Refusal([&] { CheckNewFile(folder.Path("file/a"), false); }),
                HasSubstr("Not a directory"));
    EXPECT_THAT(Refusal([&] { CheckNewFile(folder.Path(std::string(300, 'n')), false); }),
                HasSubstr("File name too long"));
}

TEST(NewFile, NeedsAFolderThatCanBeWrittenTo)
{
    // For the superuser every folder of an ordinary file system is writable; this one is not.
    EXPECT_THAT(Refusal([] { CheckNewFile("/proc/self/a", false); }), HasSubstr("/proc/self"));
}

TEST(NewFile, LeavesNothingWhenTheDiskIsFull)
{
    // Beyond the limit a write fails as on a full disk, after what still fits has been written.
    tcFolder folder;
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{3 << 20, 3 << 20};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    const std::string big(size_t(8) << 20, 'x');
    EXPECT_THAT(RefusedWrite(folder.Path("a"), false, big), HasSubstr("File too large"));
    EXPECT_THAT(folder.Names(), IsEmpty());
}

TEST(NewFile, KeepsTheFileBeforeWhenTheDiskIsFull)
{
    tcFolder folder;
    MakeFile(folder.Path("a"), "before");
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{3 << 20, 3 << 20};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    EXPECT_NE(RefusedWrite(folder.Path("a"), true, std::string(size_t(8) << 20, 'x')), "");
    EXPECT_EQ(FileText(folder.Path("a")), "before");
    EXPECT_THAT(folder.Names(), ElementsAre("a"));
}

TEST(NewFile, LeavesNothingWhenCancelled)
{
    tcFolder folder;
    const std::atomic<bool> cancelled{true};
    EXPECT_THAT(Refusal([&] {
                    WriteNewFile(folder.Path("a"), gsText.data(), gsText.size(), false, cancelled);
                }),
                HasSubstr("interrupted"));
    EXPECT_THAT(folder.Names(), IsEmpty());
}
