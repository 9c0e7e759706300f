// What a camera did last, and the file of it that a failure leaves.
#include "kit_support.h"

#include "record/flight_recorder.h"

#include <nlohmann/json.hpp>

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>

using namespace vxcam;
using nlohmann::json;
using testing::HasSubstr;
using Kind = FlightEntry::Kind;

namespace {

std::vector<json> linesOf(const std::string& text)
{
    std::vector<json> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(json::parse(line));
    }
    return lines;
}

// Of the first line with these fields from a place on; the number of lines where there is none.
size_t placeOf(const std::vector<json>& lines, const json& wanted, size_t from = 0)
{
    const auto fits = [&](const json& line) {
        return std::all_of(wanted.items().begin(), wanted.items().end(), [&](const auto& field) {
            return line.value(field.key(), json()) == field.value();
        });
    };
    const auto begin = lines.begin() + static_cast<std::ptrdiff_t>(std::min(from, lines.size()));
    return static_cast<size_t>(std::find_if(begin, lines.end(), fits) - lines.begin());
}

class Flight : public KitCamera
{
protected:
    void SetUp() override
    {
        KitCamera::SetUp();
        std::string pattern = (std::filesystem::temp_directory_path() / "flight-XXXXXX").string();
        folder_ = mkdtemp(pattern.data());
        file_ = folder_ / "flight.jsonl";
    }
    void TearDown() override
    {
        camera_.reset();
        std::filesystem::remove_all(folder_);
    }

    Camera& openRecorded(const std::vector<std::string>& faults)
    {
        start(faults);
        OpenOptions options;
        options.flightFile = file_;
        return camera_.emplace(Camera::open(place(), options));
    }
    std::vector<json> written() const
    {
        std::ostringstream text;
        text << std::ifstream(file_).rdbuf();
        return linesOf(text.str());
    }

    std::filesystem::path folder_, file_;
};

} // namespace

TEST(FlightRecorder, KeepsTheLastTenThousandInOrder)
{
    FlightRecorder recorder;
    for (int i = 0; i < 12345; ++i) {
        recorder.note(Kind::Note, std::to_string(i));
    }
    const std::vector<json> lines = linesOf(recorder.text());
    ASSERT_EQ(lines.size(), 10000u);
    for (size_t i = 0; i < lines.size(); ++i) {
        ASSERT_EQ(lines[i]["text"], std::to_string(i + 2345));
    }
}

TEST(FlightRecorder, CutsWhatIsLongAndWritesAnyBytes)
{
    FlightRecorder recorder;
    recorder.note(Kind::Note, std::string(1000, 'x') + "y");
    recorder.note(Kind::Note, "\xff\x01\"quoted\"");
    const std::vector<json> lines = linesOf(recorder.text());
    EXPECT_EQ(lines[0]["text"], std::string(FlightEntry::kMostBytes, 'x'));
    EXPECT_THAT(lines[1]["text"].get<std::string>(), HasSubstr("\"quoted\""));
}

TEST(FlightRecorder, TellsMissingPacketsAsRanges)
{
    const uint8_t bits[3] = {0b10001110, 0b00000001, 0b10000000}; // 2 to 4, 8 and 9, 24
    tsFrameRecord frame{};
    frame.PacketsExpected = 24;
    frame.PacketsMissing = 6;
    frame.MissingBits = bits;
    FlightRecorder recorder;
    recorder.frame(frame);
    frame.PacketsMissing = 0;
    frame.MissingBits = nullptr;
    recorder.frame(frame);
    const std::vector<uint8_t> every_other(500, 0x55);
    frame.PacketsExpected = 4000;
    frame.PacketsMissing = 2000;
    frame.MissingBits = every_other.data();
    recorder.frame(frame);
    const std::vector<json> lines = linesOf(recorder.text());
    EXPECT_EQ(lines[0]["missing_packets"], "2-4,8-9,24");
    EXPECT_EQ(lines[1].count("missing_packets"), 0u);
    EXPECT_THAT(lines[2]["missing_packets"], testing::StartsWith("1,3,5,7,"));
    EXPECT_EQ(lines[2]["missing"], 2000);
}

TEST(FlightRecorder, LeavesNoFileThatIsNotWhole)
{
    FlightRecorder recorder;
    recorder.note(Kind::Note, "something");
    EXPECT_EQ(errorOf([&] { recorder.save("/nowhere/flight.jsonl"); }).kind(), ErrorKind::File);
    EXPECT_EQ(errorOf([&] { recorder.save("/dev/null/flight"); }).kind(), ErrorKind::File);
}

// A rename would put a file in the place of a device.
TEST(FlightRecorder, ReplacesFilesAlone)
{
    std::string folder = (std::filesystem::temp_directory_path() / "vxcamXXXXXX").string();
    ASSERT_NE(::mkdtemp(folder.data()), nullptr);
    const std::string pipe = folder + "/pipe", file = folder + "/file";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    std::ofstream(file) << "before";
    FlightRecorder recorder;
    recorder.note(Kind::Note, "something");
    EXPECT_THAT(errorOf([&] { recorder.save(pipe); }).what(), HasSubstr("is no regular file"));
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
    recorder.save(file);
    EXPECT_GT(std::filesystem::file_size(file), 20u);
    std::filesystem::remove_all(folder);
}

TEST_F(Flight, TellsCommandsAnswersAndFramesInOrder)
{
    Camera& camera = open();
    camera.set("gain", 3);
    camera.grab(planOf(1, 5ms));
    const auto isEnded = [&] {
        const std::vector<json> lines = linesOf(camera.flight());
        return placeOf(lines, {{"event", "ended"}}) < lines.size();
    };
    ASSERT_TRUE(waitUntil(isEnded));
    const std::vector<json> lines = linesOf(camera.flight());
    const size_t set = placeOf(lines, {{"event", "sent"}, {"id", "0x2a"}, {"payload", "03000000"}});
    const size_t answer = placeOf(lines, {{"event", "received"}, {"length", 4}}, set);
    const size_t started = placeOf(lines, {{"event", "started"}}, answer);
    const size_t frame = placeOf(lines, {{"event", "frame"}}, started);
    const size_t ended = placeOf(lines, {{"event", "ended"}, {"text", "complete"}}, frame);
    ASSERT_LT(ended, lines.size());
    EXPECT_THAT(lines[started]["text"].get<std::string>(), HasSubstr("area, light, frames 1"));
    EXPECT_EQ(lines[frame]["packets"], kRows);
    EXPECT_EQ(lines[frame]["missing"], 0);
    for (size_t i = 1; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i]["utc"].get<std::string>().size(), 26u) << lines[i];
    }
}

TEST_F(Flight, IsWrittenWhenAFrameIsIncomplete)
{
    Camera& camera = openRecorded({"missing-packet:readout=2,frame=1,packet=11"});
    camera.grab(planOf(1));
    EXPECT_FALSE(std::filesystem::exists(file_)) << "nothing has failed";
    EXPECT_THROW(camera.grab(planOf(1)), IncompleteFrame);
    ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(file_); }));
    const std::vector<json> lines = written();
    EXPECT_LT(placeOf(lines, {{"event", "frame"}, {"missing_packets", "11"}}), lines.size());
    EXPECT_LT(placeOf(lines, {{"event", "ended"}, {"text", "incomplete"}}), lines.size());
}

TEST_F(Flight, IsWrittenWhenTheLinkIsLostOrTheCameraComplains)
{
    Camera& camera =
        openRecorded({"error-storm:readout=1,frame=1,packet=1,count=1,code=9,subcode=4",
                      "reset:readout=2,frame=1,packet=10"});
    EXPECT_EQ(errorOf([&] { camera.grab(planOf(1)); }).kind(), ErrorKind::Camera);
    const auto has = [&](const json& wanted) {
        return waitUntil([&] {
            const std::vector<json> lines = written();
            return placeOf(lines, wanted) < lines.size();
        });
    };
    EXPECT_TRUE(has({{"event", "error"}, {"code", 9}, {"sub_code", 4}}));
    EXPECT_EQ(errorOf([&] { camera.grab(planOf(1)); }).kind(), ErrorKind::LinkLost);
    EXPECT_TRUE(has({{"event", "link"}, {"text", "lost"}}));
}

TEST_F(Flight, OfAFailureJustBeforeTheEndIsWritten)
{
    Camera& camera = openRecorded(
        {"missing-packet:readout=1,frame=1,packet=3", "missing-packet:readout=2,frame=1,packet=5"});
    EXPECT_THROW(camera.grab(planOf(1)), IncompleteFrame);
    ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(file_); }));
    EXPECT_THROW(camera.grab(planOf(1)), IncompleteFrame); // within a second
    camera.close();
    const std::vector<json> lines = written();
    EXPECT_LT(placeOf(lines, {{"event", "frame"}, {"missing_packets", "5"}}), lines.size());
}

TEST_F(Flight, ADiskThatTakesItsTimeDelaysNoFailure)
{
    // Opening it for writing waits for a reader.
    const std::string disk = file_.string() + ".part";
    ASSERT_EQ(::mkfifo(disk.c_str(), 0600), 0);
    Camera& camera = openRecorded({"missing-packet:readout=1,frame=1,packet=3",
                                   "stall:readout=2,frame=1,packet=30,seconds=60"});
    EXPECT_THROW(camera.grab(planOf(1)), IncompleteFrame);
    auto second = std::async(std::launch::async, [&] {
        Plan plan = planOf(1);
        plan.timeout = 100ms;
        return errorOf([&] { camera.grab(plan); }).kind();
    });
    const bool isTold = second.wait_for(kPatience) == std::future_status::ready;
    EXPECT_TRUE(isTold);
    std::ifstream reader(disk); // the disk goes on
    std::ostringstream text;
    text << reader.rdbuf();
    EXPECT_EQ(second.get(), ErrorKind::Timeout);
    EXPECT_THAT(text.str(), HasSubstr("incomplete"));
}

TEST_F(Flight, IsNotWrittenWhereNothingFailedOrItIsNotWanted)
{
    Camera& camera = openRecorded({});
    camera.grab(planOf(1));
    {
        Stream stream = camera.stream(planOf(1, 1h));
        stream.stop();
    }
    camera.close();
    EXPECT_TRUE(std::filesystem::is_empty(folder_));
}
