#include <vxcamkit/error.h>

#include <gtest/gtest.h>

#include <set>

using vxcam::Error;
using vxcam::ErrorKind;

TEST(ErrorTable, HasARowForEachKindInOrder)
{
    const auto& rows = vxcam::errorTable();
    ASSERT_EQ(rows.size(), static_cast<size_t>(ErrorKind::Aborted) + 1);
    std::set<std::string> names;
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(rows[i].kind, static_cast<ErrorKind>(i));
        EXPECT_TRUE(names.insert(rows[i].name).second) << rows[i].name;
    }
}

TEST(ErrorTable, TellsEachEcosystemItsWord)
{
    struct Expected {
        ErrorKind kind;
        int exitCode;
        const char* python;
        int http, alpaca;
    };
    const Expected expected[] = {
        {ErrorKind::Usage, 1, "UsageError", 400, 0x401},
        {ErrorKind::NotFound, 2, "NotFoundError", 503, 0x407},
        {ErrorKind::Busy, 2, "BusyError", 503, 0x407},
        {ErrorKind::Timeout, 3, "CameraTimeout", 504, 0x500},
        {ErrorKind::LinkLost, 3, "LinkLost", 503, 0x501},
        {ErrorKind::Camera, 4, "CameraError", 502, 0x502},
        {ErrorKind::Incomplete, 4, "IncompleteFrame", 502, 0x503},
        {ErrorKind::File, 5, "OSError", 500, 0},
        {ErrorKind::Aborted, 4, "Aborted", 409, 0x40E},
    };
    for (const Expected& one : expected) {
        const vxcam::ErrorRow& row = vxcam::rowOf(one.kind);
        EXPECT_EQ(row.exitCode, one.exitCode) << row.name;
        EXPECT_STREQ(row.python, one.python);
        EXPECT_EQ(row.http, one.http) << row.name;
        EXPECT_EQ(row.alpaca, one.alpaca) << row.name;
    }
}

TEST(Error, CarriesKindCodesAndText)
{
    const Error error(ErrorKind::Camera, "gain: the camera refused", 7, 3);
    EXPECT_STREQ(error.what(), "gain: the camera refused");
    EXPECT_EQ(error.kind(), ErrorKind::Camera);
    EXPECT_STREQ(error.row().name, "camera-error");
    EXPECT_EQ(error.code(), 7);
    EXPECT_EQ(error.subCode(), 3);
}

TEST(Error, TellsInOneLineWhateverACameraSent)
{
    EXPECT_STREQ(Error(ErrorKind::Camera, "one\ntwo\t\x1b[31m\x7f").what(),
                 "one\\ntwo\\t\\x1b[31m\\x7f");
    EXPECT_STREQ(Error(ErrorKind::Camera, "-5 \xc2\xb0"
                                          "C")
                     .what(),
                 "-5 \xc2\xb0"
                 "C");
}
