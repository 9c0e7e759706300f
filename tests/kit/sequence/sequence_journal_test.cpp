#include "sequence/sequence_journal.h"

#include "files_support.h"

#include <gmock/gmock.h>

#include <fstream>

namespace vxcam {

namespace {

using testing::HasSubstr;
using testing::SizeIs;

class SequenceJournalTest : public testing::Test
{
protected:
    void add(const std::string& bytes) const
    {
        std::ofstream(path_, std::ios::binary | std::ios::app) << bytes;
    }
    std::string textOfFile() const
    {
        std::ifstream file(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    template <class Call>
    static Error errorOf(Call call)
    {
        try {
            call();
        } catch (const Error& error) {
            return error;
        }
        return {ErrorKind::Timeout, "nothing was thrown"};
    }

    Folder folder_;
    const std::string path_ = folder_.path("night.journal");
};

} // namespace

TEST_F(SequenceJournalTest, KnowsInAnotherRunWhatWasDone)
{
    std::string id;
    {
        SequenceJournal journal(path_, "abc");
        journal.begin();
        journal.frame(2, "light-0001.fits", 5760);
        journal.frame(3, "light-0002.fits", 5761);
        journal.again(3);
        journal.done(4);
        journal.failed("light 2: the connection\nwas lost");
        id = journal.id();
    }
    const SequenceJournal journal(path_, "abc");
    EXPECT_EQ(journal.id(), id);
    ASSERT_THAT(journal.frames(), SizeIs(1));
    EXPECT_EQ(journal.frames().at(2).file, "light-0001.fits");
    EXPECT_EQ(journal.frames().at(2).bytes, 5760u);
    EXPECT_TRUE(journal.isDone(2));
    EXPECT_FALSE(journal.isDone(3));
    EXPECT_TRUE(journal.isDone(4));
    ASSERT_THAT(journal.failures(), SizeIs(1));
    EXPECT_EQ(journal.failures()[0].text, "light 2: the connection\\nwas lost");
    EXPECT_THAT(journal.processes(), SizeIs(1));
    EXPECT_FALSE(journal.hasEnded());
}

TEST_F(SequenceJournalTest, KnowsTheCameraThatItWasToldLast)
{
    SequenceJournal(path_, "abc").done(1); // as those that were written without one
    EXPECT_FALSE(SequenceJournal(path_, "abc").camera());
    SequenceJournal(path_, "abc").camera({{96, 64}, "17", "one with spaces"});
    {
        const SequenceJournal journal(path_, "abc");
        ASSERT_TRUE(journal.camera());
        EXPECT_EQ(journal.camera()->sensor, (Size{96, 64}));
        EXPECT_EQ(journal.camera()->serial, "17");
        EXPECT_EQ(journal.camera()->name, "one with spaces");
    }
    SequenceJournal(path_, "abc").camera({{40, 32}, "", ""});
    const SequenceJournal journal(path_, "abc");
    EXPECT_TRUE(journal.isDone(1));
    EXPECT_EQ(journal.camera()->sensor, (Size{40, 32}));
    EXPECT_EQ(journal.camera()->serial + journal.camera()->name, "");
}

TEST_F(SequenceJournalTest, RefusesACameraThatIsNone)
{
    SequenceJournal(path_, "abc").done(1);
    add("2026-01-01T00:00:00.000 camera 96\n");
    EXPECT_THAT(errorOf([&] { SequenceJournal(path_, "abc"); }).what(), HasSubstr("line 3"));
}

TEST_F(SequenceJournalTest, CutsOffWhatAPowerCutLeftOfALine)
{
    {
        SequenceJournal journal(path_, "abc");
        journal.frame(2, "light-0001.fits", 5760);
    }
    const std::string before = textOfFile();
    for (const std::string& rest :
         {std::string("2026-01-01T00:00:00.000 fra"), std::string(300, '\0')}) {
        add(rest);
        SequenceJournal journal(path_, "abc");
        EXPECT_THAT(journal.frames(), SizeIs(1));
        journal.done(7);
        EXPECT_EQ(textOfFile().rfind(before, 0), 0u);
        EXPECT_EQ(textOfFile().find('\0'), std::string::npos);
    }
    EXPECT_TRUE(SequenceJournal(path_, "abc").isDone(7));
}

TEST_F(SequenceJournalTest, RefusesLinesThatAreNone)
{
    SequenceJournal(path_, "abc").done(1);
    add("2026-01-01T00:00:00.000 frame two light.fits\n");
    const Error error = errorOf([&] { SequenceJournal(path_, "abc"); });
    EXPECT_EQ(error.kind(), ErrorKind::File);
    EXPECT_THAT(error.what(), HasSubstr("line 3 is damaged"));
    std::ofstream(path_) << "something else\n";
    EXPECT_THAT(errorOf([&] { SequenceJournal(path_, "abc"); }).what(), HasSubstr("is no journal"));
    EXPECT_EQ(textOfFile(), "something else\n");
}

TEST_F(SequenceJournalTest, LeavesFilesAloneThatAreNoBeginningOfOne)
{
    for (const char* text : {"precious", "vxcam-sequence 2", "vxcam-sequencer"}) {
        std::ofstream(path_, std::ios::binary) << text;
        const Error error = errorOf([&] { SequenceJournal(path_, "abc"); });
        EXPECT_EQ(error.kind(), ErrorKind::File);
        EXPECT_THAT(error.what(), HasSubstr("is no journal"));
        EXPECT_EQ(textOfFile(), text);
    }
}

TEST_F(SequenceJournalTest, BeginsAnewBehindAPowerCutInItsFirstLine)
{
    for (const std::string& text :
         {std::string("vxcam-"), std::string("vxcam-sequence 1 0123456789ab"), std::string(),
          std::string(300, '\0')}) {
        std::ofstream(path_, std::ios::binary) << text;
        SequenceJournal(path_, "abc").done(7);
        EXPECT_TRUE(SequenceJournal(path_, "abc").isDone(7)) << text;
    }
}

TEST_F(SequenceJournalTest, IsHadByOneAtATime)
{
    const SequenceJournal journal(path_, "abc");
    EXPECT_THAT(errorOf([&] { SequenceJournal(path_, "abc"); }).what(),
                HasSubstr("this sequence runs already"));
}

TEST_F(SequenceJournalTest, IsOfOnePlanAsSoonAsSomethingIsDone)
{
    SequenceJournal(path_, "abc").failed("no camera");
    SequenceJournal(path_, "def").done(1);
    EXPECT_EQ(errorOf([&] { SequenceJournal(path_, "abc"); }).kind(), ErrorKind::Usage);
    EXPECT_TRUE(SequenceJournal(path_, "def").isDone(1));
    EXPECT_TRUE(SequenceJournal(path_, "def").failures().empty());
}

TEST_F(SequenceJournalTest, IsNotCompleteForAnotherPlan)
{
    SequenceJournal(path_, "abc").ended();
    EXPECT_TRUE(SequenceJournal(path_, "abc").hasEnded());
    EXPECT_FALSE(SequenceJournal(path_, "def").hasEnded());
}

} // namespace vxcam
