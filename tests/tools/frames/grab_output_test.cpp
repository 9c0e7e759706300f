// Pictures on standard output.
#include "grab_support.h"

#include <sys/ioctl.h>
#include <sys/stat.h>

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const std::vector<std::string> gaPiped{"grab", "-e", "1ms", "--sim-sensor", "300x200", "-o", "-"};

std::vector<std::string> Piped(const std::vector<std::string>& more)
{
    std::vector<std::string> words = gaPiped;
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

void ExpectUsage(tcRun& run, const std::string& why)
{
    EXPECT_EQ(run.Exit(), 1);
    EXPECT_THAT(run.Errors(), HasSubstr(why));
}

} // namespace

TEST(GrabOutput, ADashIsAFitsFileOnStandardOutputAndNothingElse)
{
    tcFolder folder, named;
    tcRun::tsHow how = In(folder);
    how.output = named.Path("piped.fits");
    tcRun run(gaPiped, how);
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Errors(), "");
    EXPECT_THAT(folder.Names(), IsEmpty());
    ExpectVerified(how.output);

    // The same picture, from a file that was written by name.
    tcRun other({"grab", "-e", "1ms", "--sim-sensor", "300x200", "-o", "file.fits"}, In(named));
    EXPECT_EQ(other.Exit(), 0) << other.Errors();
    EXPECT_EQ(FileText(how.output).size(), FileText(named.Path("file.fits")).size());
    EXPECT_EQ(ReadFits(how.output).sum, ReadFits(named.Path("file.fits")).sum);
}

TEST(GrabOutput, APreviewStillGoesToItsFileAndWarningsToStandardError)
{
    tcFolder folder;
    tcRun run(Piped({"--preview", "look.png", "--header", "OBSERVER=Zoë"}), In(folder));
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_THAT(folder.Names(), testing::ElementsAre("look.png"));
    EXPECT_EQ(run.Output().substr(0, 9), "SIMPLE  =");
    EXPECT_EQ(run.Output().size() % 2880, 0u);
    EXPECT_THAT(run.Errors(), testing::StartsWith("vxcam: warning: standard output: "));
}

TEST(GrabOutput, WhatDoesNotGoWithItIsRefused)
{
    tcFolder folder;
    tcRun several(Piped({"--frames", "2"}), In(folder));
    ExpectUsage(several, "standard output takes one frame");
    EXPECT_EQ(several.Output(), "");
    tcRun json(Piped({"--json"}), In(folder));
    ExpectUsage(json, "standard output is where --json prints");
    tcRun preview({"grab", "--preview", "-"}, In(folder));
    ExpectUsage(preview, "standard output takes FITS files alone");
    EXPECT_THAT(folder.Names(), IsEmpty());
}

TEST(GrabOutput, TerminalsGetNoPixels)
{
    int terminal = -1, far = -1;
    char name[128] = "";
    ASSERT_EQ(::openpty(&terminal, &far, name, nullptr, nullptr), 0);
    tcRun::tsHow how;
    how.output = name;
    tcRun run(gaPiped, how);
    ExpectUsage(run, "standard output is a terminal");
    ::close(terminal);
    ::close(far);
}

TEST(GrabOutput, WhatTakesNoMoreIsAFileError)
{
    tcRun::tsHow how;
    how.output = "/dev/full";
    tcRun run(gaPiped, how);
    EXPECT_EQ(run.Exit(), 5);
    EXPECT_EQ(run.Errors(), "vxcam: standard output: No space left on device\n");
}

TEST(GrabOutput, CtrlCEndsItBehindAPipeThatNobodyReads)
{
    tcFolder folder;
    tcRun::tsHow how = In(folder);
    how.output = folder.Path("pipe");
    ASSERT_EQ(::mkfifo(how.output.c_str(), 0600), 0);
    const int pipe = ::open(how.output.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(pipe, 0);
    const int room = ::fcntl(pipe, F_GETPIPE_SZ);
    tcRun run({"grab", "-e", "1ms", "--sim-sensor", "512x512", "-o", "-"}, how);
    EXPECT_TRUE(WaitUntil(
        [&] {
            int waiting = 0;
            return ::ioctl(pipe, FIONREAD, &waiting) == 0 && waiting == room;
        },
        gnRunPatience));
    run.Signal(SIGINT);
    EXPECT_EQ(run.Exit(), 130);
    ::close(pipe);
}
