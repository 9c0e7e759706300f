// Recordings of the wire, as they are written: byte by byte, and from open cameras.
#include "record_support.h"
#include "wire_support.h"

#include "wire/capture_body.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/wire_capture.h>
#include <vxcamkit/wire_reader.h>

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

using vxcam::WireCapture;
using vxcam::WireKind;
using vxcam::WireReader;

namespace {

std::string textOf(const std::string& path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

void tap(const WireCapture& capture, unsigned what, int64_t steady, const std::string& bytes)
{
    tsTapRecord record{};
    record.Size = sizeof record;
    record.What = what;
    record.Time = {steady, 1'700'000'000'000'000'000 + steady};
    record.Bytes = reinterpret_cast<const uint8_t*>(bytes.data());
    record.Length = static_cast<uint32_t>(bytes.size());
    record.Event = eLinkLost;
    capture.body()->take(0, record);
}

} // namespace

TEST(WireCapture, WritesTheBytesThatItsPageTells)
{
    const vxcam::Folder folder;
    const std::string path = folder.path("run.vxw");
    WireCapture capture(path);
    tap(capture, eTapBytesSent, 1000, "ask");
    tap(capture, eTapMessagesSent, 1000, "ask");
    tap(capture, eTapBytesReceived, 2500, "answer");
    tap(capture, eTapLink, 3000, "");
    capture.finish();
    EXPECT_EQ(capture.books().sent, 3u);
    EXPECT_EQ(capture.books().received, 6u);

    std::string rest = textOf(path);
    ASSERT_EQ(rest.substr(0, wireHead().size()), wireHead());
    rest.erase(0, wireHead().size());
    // Blocks begin where time has cut them: put together, they are what was told.
    std::string records;
    uint32_t number = 0;
    while (rest.size() > 40) {
        const auto* raw = reinterpret_cast<const uint8_t*>(rest.data());
        const size_t length = raw[12] | raw[13] << 8;
        const std::string part = rest.substr(40, length);
        const auto count = static_cast<uint32_t>(raw[36]);
        int64_t steady = 0;
        std::memcpy(&steady, rest.data() + 24, sizeof steady);
        EXPECT_EQ(rest.substr(0, 40 + length),
                  wireBlock(number++, 1'700'000'000'000'000'000 + steady, steady, part, count));
        records += part;
        rest.erase(0, 40 + length);
    }
    EXPECT_EQ(records,
              wireRecord(3, 1000, "ask") + wireRecord(2, 2500, "answer") + wireRecord(4, 3000, ""));
    EXPECT_EQ(rest.size(), 40u);
    EXPECT_EQ(rest.substr(8, 8), low(number, 4) + low(0, 4)) << "the end";
}

TEST(WireCapture, KeepsOrderAndBytesOfMoreThanItsBlocksHold)
{
    const vxcam::Folder folder;
    const std::string path = folder.path("run.vxw");
    WireCapture capture(path);
    std::string all;
    for (int i = 0; i < 30; ++i) {
        std::string piece(100000, static_cast<char>(i));
        tap(capture, eTapBytesReceived, i, piece);
        all += piece;
    }
    const std::string large(3 << 20, 'L');
    tap(capture, eTapBytesReceived, 30, large);
    all += large;
    capture.finish();
    WireReader reader(path);
    std::string read;
    while (const auto record = reader.next()) {
        read += record->bytes;
    }
    EXPECT_TRUE(read == all);
    EXPECT_TRUE(reader.condition().isWhole()) << reader.condition().text();
    EXPECT_GE(reader.condition().blocks, 6u);
}

namespace {

// A recording, taken apart without the kit: where its blocks begin and end, and their records.
struct TakenApart {
    std::vector<size_t> ends; // of the blocks, in the file
    std::string received;
    bool isWhole = true; // every block stands where the one before ends, with its check values
};

TakenApart takenApart(const std::string& path)
{
    const std::string bytes = textOf(path);
    TakenApart result;
    const auto number = [&](size_t at, size_t size) {
        size_t value = 0;
        for (size_t i = size; i-- > 0;) {
            value = value << 8U | static_cast<uint8_t>(bytes[at + i]);
        }
        return value;
    };
    for (size_t at = wireHead().size(); at < bytes.size();) {
        result.isWhole = bytes.size() >= at + 40 && bytes.compare(at, 4, "VXWB") == 0 &&
                         bytes.substr(at + 4, 4) == checkOf(bytes.substr(at + 8, 32)) &&
                         number(at + 8, 4) == result.ends.size();
        const size_t end = result.isWhole ? at + 40 + number(at + 12, 4) : 0;
        result.isWhole = result.isWhole && end <= bytes.size() &&
                         bytes.substr(at + 32, 4) == checkOf(bytes.substr(at + 40, end - at - 40));
        if (!result.isWhole) break;
        for (size_t record = at + 40; record < end; record += 16 + number(record + 8, 4)) {
            if (bytes[record + 12] != 2) continue;
            result.received += bytes.substr(record + 16, number(record + 8, 4));
        }
        result.ends.push_back(at = end);
    }
    return result;
}

bool awaitBytes(const WireCapture& capture, uint64_t bytes)
{
    return vxcam::waitUntil([&] { return capture.books().fileBytes >= bytes; });
}

std::string pieceOf(size_t bytes, int number)
{
    std::string piece(bytes, '\0');
    for (size_t i = 0; i < bytes; ++i) {
        piece[i] = static_cast<char>(i * 7 + i / 251 + static_cast<size_t>(number) * 13);
    }
    return piece;
}

} // namespace

// So they go to the disk directly, and once.
TEST(WireCapture, EndsBlocksThatAreFullWhereBlocksOfTheDiskEnd)
{
    const vxcam::Folder folder;
    const std::string path = folder.path("run.vxw");
    WireCapture capture(path);
    const std::string all = pieceOf(6 << 20, 1); // at once, so that no block is cut by time
    tap(capture, eTapBytesReceived, 1, all);
    capture.finish();
    const TakenApart apart = takenApart(path);
    EXPECT_TRUE(apart.isWhole);
    EXPECT_TRUE(apart.received == all);
    const auto isOdd = [](size_t end) { return end % 4096 != 0; };
    const auto odd = std::count_if(apart.ends.begin(), apart.ends.end(), isOdd);
    EXPECT_GE(apart.ends.size(), 7u);
    EXPECT_LE(odd, 2) << "the last one, and the one that ends it";
}

// A block that was cut by time ends right before, on and behind the end of a block of the disk.
TEST(WireCapture, GoesOnBehindAnyEndOfABlock)
{
    const vxcam::Folder folder;
    const size_t heads = 16 + 40 + 16;
    for (const size_t end : {4095, 4096, 4097, 8191, 8192, 8193, 4096 + 4056, 4096 + 4057}) {
        const std::string path = folder.path(std::to_string(end) + ".vxw");
        WireCapture capture(path);
        std::string all = pieceOf(end - heads, 1);
        tap(capture, eTapBytesReceived, 1, all);
        ASSERT_TRUE(awaitBytes(capture, end));
        EXPECT_EQ(capture.books().fileBytes, end);
        EXPECT_TRUE(takenApart(path).received == all) << "though it goes on";
        for (const size_t more : {size_t{1}, size_t{5000}, size_t{2} << 20U, size_t{0}}) {
            const std::string piece = pieceOf(more, 2);
            tap(capture, eTapBytesReceived, 2, piece);
            all += piece;
            ASSERT_TRUE(awaitBytes(capture, all.size()));
        }
        capture.finish();
        const TakenApart apart = takenApart(path);
        EXPECT_TRUE(apart.isWhole) << end;
        EXPECT_TRUE(apart.received == all) << end;
        EXPECT_EQ(capture.books().fileBytes, std::filesystem::file_size(path)) << end;
        EXPECT_EQ(apart.ends.back(), std::filesystem::file_size(path)) << end;
    }
}

TEST(WireCapture, OfAKilledProgramHasAllThatWasWritten)
{
    const vxcam::Folder folder;
    const std::string path = folder.path("run.vxw");
    int ready[2] = {};
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        WireCapture capture(path);
        for (int i = 0; i < 700; ++i) {
            tap(capture, eTapBytesReceived, i, pieceOf(4099, i));
        }
        const char isThere = awaitBytes(capture, uint64_t{700} * (4099 + 16)) ? 'y' : 'n';
        if (::write(ready[1], &isThere, 1) != 1) ::_exit(1);
        const std::string piece = pieceOf(4096, 0);
        for (int i = 0; i < 20000; ++i) {
            tap(capture, eTapBytesReceived, i, piece);
        }
        ::_exit(0);
    }
    char isThere = 0;
    EXPECT_EQ(::read(ready[0], &isThere, 1), 1);
    EXPECT_EQ(isThere, 'y');
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // while it writes
    ::kill(child, SIGKILL);
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    ::close(ready[0]);
    ::close(ready[1]);
    WireReader reader(path);
    std::string received;
    while (const auto record = reader.next()) {
        received += record->bytes;
    }
    std::string all;
    for (int i = 0; i < 700; ++i) {
        all += pieceOf(4099, i);
    }
    EXPECT_TRUE(received.compare(0, all.size(), all) == 0);
    EXPECT_FALSE(reader.condition().isEnded);
    EXPECT_LE(reader.condition().damaged, 1u) << "what it was about to write";
    EXPECT_EQ(reader.condition().missing, 0u);
}

TEST(WireCapture, DoesNotSplitWhatIsToldOfACamera)
{
    const vxcam::Folder folder;
    const std::string path = folder.path("run.vxw");
    {
        WireCapture capture(path, false, std::string(400000, 's'));
        for (int i = 0; i < 5; ++i) {
            EXPECT_EQ(capture.body()->addCamera("sim"), i);
        }
    }
    WireReader reader(path);
    int told = 0;
    while (const auto record = reader.next()) {
        ++told;
        EXPECT_EQ(record->bytes.substr(0, 11), "{\"target\":\"");
        EXPECT_EQ(record->bytes.back(), '}');
    }
    EXPECT_EQ(told, 5);
    WireCapture tooMuch(folder.path("other.vxw"), false, std::string(1 << 20, 's'));
    EXPECT_THROW(tooMuch.body()->addCamera("sim"), vxcam::Error);
}

TEST(WireCapture, RefusesMoreCamerasThanItCanTellApart)
{
    const vxcam::Folder folder;
    WireCapture capture(folder.path("run.vxw"));
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(capture.body()->addCamera("sim"), i);
    }
    EXPECT_THROW(capture.body()->addCamera("sim"), vxcam::Error);
    capture.finish();
    EXPECT_EQ(capture.books().cameras, 256u);
}

TEST(WireCapture, CanBeReadWhileItRuns)
{
    const vxcam::Folder folder;
    const std::string path = folder.path("run.vxw");
    WireCapture capture(path);
    tap(capture, eTapBytesSent, 1, "now");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    size_t records = 0;
    while (records == 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        WireReader reader(path);
        while (reader.next()) {
            ++records;
        }
        EXPECT_FALSE(reader.condition().isEnded);
    }
    EXPECT_EQ(records, 1u);
}

TEST(WireCapture, RefusesFilesThatItCannotMake)
{
    const vxcam::Folder folder;
    std::ofstream(folder.path("there.vxw")) << "mine";
    EXPECT_THROW(WireCapture(folder.path("there.vxw")), vxcam::Error);
    EXPECT_EQ(textOf(folder.path("there.vxw")), "mine");
    EXPECT_NO_THROW(WireCapture(folder.path("there.vxw"), true));
    EXPECT_THROW(WireCapture("/dev/full"), vxcam::Error);
    EXPECT_THROW(WireCapture("/nowhere/run.vxw"), vxcam::Error);
}

// A limit for files stands in for a disk that is full.
TEST(WireCapture, OfAFullDiskStaysReadableAndLetsTheCameraGoOn)
{
    const vxcam::Folder folder;
    const std::string path = folder.path("run.vxw");
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit usual{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &usual), 0);
    const rlimit limit{(rlim_t{5} << 20U) + 1000, usual.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    WireCapture capture(path);
    const std::string piece(size_t{1} << 19U, 'x');
    for (int i = 0; i < 400; ++i) {
        tap(capture, eTapBytesReceived, i, piece);
    }
    try {
        capture.finish();
        ADD_FAILURE() << "the file is larger than it can be";
    } catch (const vxcam::Error& error) {
        EXPECT_EQ(error.kind(), vxcam::ErrorKind::File);
        EXPECT_EQ(error.code(), EFBIG);
    }
    EXPECT_TRUE(capture.hasFailed());
    WireReader reader(path);
    size_t records = 0;
    while (reader.next()) {
        ++records;
    }
    EXPECT_GE(records, 3u);
    EXPECT_EQ(reader.condition().damaged, 0u);
    EXPECT_FALSE(reader.condition().isEnded);
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &usual), 0);
}

TEST(WireCapture, HasEveryByteOfACameraFromTheFirstOn)
{
    const vxcam::Folder folder;
    const std::string path = folder.path("run.vxw");
    vxcam::WireBooks books;
    {
        WireCapture capture(path, false, "a test");
        const vxcam::Target target = vxcam::Target::parse("sim?sensor=64x32&heartbeat=0");
        vxcam::Camera camera = vxcam::Camera::open(target, {}, capture);
        vxcam::Plan plan;
        plan.exposure = std::chrono::milliseconds(1);
        camera.grab(plan);
        EXPECT_TRUE(vxcam::waitUntil([&] { // the kit has some more to say to the camera
            const vxcam::Statistics counted = camera.statistics();
            books = capture.books();
            return books.received == counted.bytesReceived && books.sent == counted.bytesSent;
        }));
        camera.close();
        capture.finish();
        books = capture.books();
        EXPECT_EQ(books.cameras, 1u);
    }
    WireReader reader(path);
    std::string received, sent, about;
    while (const auto record = reader.next()) {
        if (record->kind == WireKind::About) about += record->bytes;
        if (record->kind == WireKind::Received) received += record->bytes;
        if (record->kind == WireKind::Sent) sent += record->bytes;
    }
    EXPECT_EQ(about, R"({"target":"sim","software":"a test"})");
    EXPECT_EQ(received.size(), books.received);
    EXPECT_EQ(sent.size(), books.sent);
    EXPECT_GT(received.size(), 32u * (28u + 2u * 64u));
    EXPECT_EQ(received.substr(0, 2), "\x50\xFA");
    EXPECT_EQ(sent.substr(0, 2), "\x50\xFA");
}
