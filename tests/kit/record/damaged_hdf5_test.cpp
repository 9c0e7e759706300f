// Damaged HDF5 records. A program of its own, since the HDF5 library keeps memory for what it
// cannot read, which is looked for in all others.
#include "record/verify_support.h"

#ifdef __SANITIZE_ADDRESS__
extern "C" __attribute__((visibility("default"))) const char*
__lsan_default_suppressions() // NOLINT(bugprone-reserved-identifier)
{
    return "leak:libhdf5";
}
#endif

namespace vxcam {

namespace {

bool isFoundDamaged(const std::string& path)
{
    try {
        return !verifyRecord(path).isGood();
    } catch (const Error& error) {
        EXPECT_EQ(error.kind(), ErrorKind::File) << error.what();
        return true;
    }
}

// Whichever byte it is: the HDF5 library would look again and again, for what may still be written.
void lookAtDamage(const Folder& folder, const std::string& bytes)
{
    size_t found = 0, tried = 0;
    for (size_t at = 0; at < std::min<size_t>(bytes.size(), 4096); at += 7) {
        std::string damaged = bytes;
        damaged[at] ^= 4;
        makeTextFile(folder.path("b.h5"), damaged);
        ++tried;
        if (isFoundDamaged(folder.path("b.h5"))) ++found;
    }
    EXPECT_GT(found, tried / 3);
}

} // namespace

TEST(DamagedHdf5, IsToldWithoutAWait)
{
    const Folder folder;
    makeRecord(folder.path("a.h5"));
    lookAtDamage(folder, ReadFile(folder.path("a.h5")));
}

// As one is whose writer was killed: marked as being written.
TEST(DamagedHdf5, ThatWasNotEndedIsToldWithoutAWait)
{
    const Folder folder;
    Recorder recorder(folder.path("a.h5"));
    for (int i = 1; i <= kFrames; ++i) {
        ASSERT_TRUE(recorder.write(goodFrame(i)));
    }
    ASSERT_TRUE(waitUntil([&] { return recorder.books().flushed == kFrames; }));
    const std::string bytes = ReadFile(folder.path("a.h5"));
    makeTextFile(folder.path("c.h5"), bytes);
    const Verdict running = verifyRecord(folder.path("c.h5"));
    EXPECT_EQ(findingsOf(running), "ended -1 it still runs, or its process was killed\n");
    EXPECT_EQ(running.frames, size_t{kFrames});
    makeTextFile(folder.path("c.h5"), bytes.substr(0, bytes.size() / 2));
    EXPECT_TRUE(isFoundDamaged(folder.path("c.h5")));
    lookAtDamage(folder, bytes);
}

} // namespace vxcam
