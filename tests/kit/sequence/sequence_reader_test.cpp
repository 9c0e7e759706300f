#include <vxcamkit/sequence.h>

#include "files_support.h"

#include <gmock/gmock.h>

#include <sys/stat.h>

namespace vxcam {

namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;

class SequenceReader : public testing::Test
{
protected:
    SequencePlan planOf(const std::string& text) const
    {
        makeTextFile(folder_.path("night.yaml"), text);
        return readSequence(folder_.path("night.yaml"));
    }
    // Of the error, without the folder.
    std::string mistakesOf(const std::string& text) const
    {
        try {
            planOf(text);
        } catch (const Error& error) {
            EXPECT_EQ(error.kind(), ErrorKind::Usage);
            std::string words = error.what();
            const std::string folder = folder_.path() + "/";
            for (size_t at = 0; (at = words.find(folder)) != std::string::npos;) {
                words.erase(at, folder.size());
            }
            return words;
        }
        return "nothing was thrown";
    }
    std::string mistakesOfStep(const std::string& step) const
    {
        return mistakesOf("steps:\n  - " + step + "\n");
    }

    Folder folder_;
};

} // namespace

TEST_F(SequenceReader, TakesEveryKindOfStep)
{
    const SequencePlan plan = planOf(R"(
target: 192.168.1.20:2000
folder: m31
sensor: [2048, 1024]
header: ["OBSERVER=Anna/who did it"]
retries: 5
link: 20min
steps:
  - temperature: {to: -20, ramp: 2, tolerance: 0.3, settle: 30s, timeout: 1h}
  - set: {fan: off}
  - lights: {count: 4, exposure: 30s, gain: 2, area: [0, 8, 64, 32], name: M31,
             dither: {every: 2, command: dither, timeout: 5s}}
  - repeat:
      times: 3
      steps:
        - darks: {count: 2, exposure: 1500ms, bits: 8}
        - wait: 2min
  - bias: {count: 10, binning: [2, 4]}
  - flats: {count: 3, exposure: 2s, level: {mean: 30000, tolerance: 0.05, least: 10ms, most: 20s}}
  - run: {command: park, may-fail: true}
  - warm-up: {ramp: 3, wait: false}
)");
    EXPECT_EQ(plan.target, "192.168.1.20:2000");
    EXPECT_EQ(plan.folder, folder_.path("m31"));
    EXPECT_EQ(plan.retries, 5);
    EXPECT_EQ(plan.link, 20min);
    ASSERT_EQ(plan.steps.size(), 8u);
    EXPECT_EQ(plan.steps[0].kind, SequenceStep::Kind::Cool);
    EXPECT_EQ(plan.steps[0].cooling.target, -20);
    EXPECT_EQ(plan.steps[0].cooling.settle, 30s);
    EXPECT_EQ(plan.steps[2].plan.exposure, 30s);
    EXPECT_EQ(plan.steps[2].plan.area, (Area{0, 8, 64, 32}));
    EXPECT_EQ(plan.steps[2].settings[0].first, "gain");
    EXPECT_EQ(plan.steps[2].dither.patience, 5s);
    EXPECT_EQ(plan.steps[3].steps[0].plan.type, FrameType::Dark);
    EXPECT_EQ(plan.steps[4].plan.kind, ReadoutKind::Binned);
    EXPECT_EQ(plan.steps[4].plan.binningX, 2);
    EXPECT_EQ(plan.steps[4].plan.binningY, 4);
    EXPECT_EQ(plan.steps[5].level.mean, 30000);
    EXPECT_TRUE(plan.steps[6].hook.mayFail);
    EXPECT_FALSE(plan.steps[7].waits);
}

TEST_F(SequenceReader, KeepsWhatATargetSaysOfASimulatedCamera)
{
    const SequencePlan plan = planOf("target: sim?scale=5&seed=3\nsteps: [{wait: 1s}]\n");
    EXPECT_EQ(plan.target, "sim?scale=5&seed=3");
}

TEST_F(SequenceReader, CountsFramesTimeAndBytes)
{
    const SequencePlan plan = planOf(R"(
steps:
  - repeat:
      times: 3
      steps:
        - lights: {count: 4, exposure: 10s, area: [0, 0, 1000, 1000],
                   dither: {every: 2, command: "true"}}
        - wait: 20s
)");
    const SequenceNeeds needs = needsOf(plan);
    EXPECT_EQ(needs.frames, 12);
    EXPECT_EQ(needs.hooks, 3); // behind the second of four frames, not behind the fourth
    EXPECT_EQ(needs.exposure, 120s);
    EXPECT_GE(needs.duration, 180s);
    EXPECT_LE(needs.duration, 185s);
    ASSERT_TRUE(needs.bytes);
    EXPECT_GE(*needs.bytes, 24000000u);
    EXPECT_LE(*needs.bytes, 24300000u);
    EXPECT_FALSE(needsOf(planOf("steps: [{bias: {count: 1}}]")).bytes);
    EXPECT_TRUE(needsOf(planOf("sensor: [8, 8]\nsteps: [{bias: {count: 1}}]")).bytes);
}

TEST_F(SequenceReader, TellsAllMistakesWithTheirLines)
{
    EXPECT_EQ(mistakesOf(R"(folder: a
colour: red
steps:
  - lights:
      count: many
      expsure: 30s
  - wait: soon
  - darks: {count: 1, exposure: 1s}
    bias: {count: 1}
)"),
              "night.yaml:2: plan: unknown key 'colour'; there are folder, header, link, retries, "
              "sensor, steps, target; "
              "night.yaml:5: count: 'many' is no whole number; "
              "night.yaml:6: lights: unknown key 'expsure'; there are area, binning, bits, count, "
              "dither, exposure, gain, name, set, timeout; "
              "night.yaml:5: lights: 'exposure' is missing; "
              "night.yaml:7: wait: time 'soon': write a number with ms, s, min or h, like 500ms; "
              "night.yaml:8: each step is one of lights, darks, bias, flats, temperature, warm-up, "
              "set, wait, run, repeat");
}

TEST_F(SequenceReader, TellsOfFramesThatAreNoMapAndOfAllOtherMistakes)
{
    EXPECT_EQ(mistakesOf(R"(steps:
  - lights: 5
  - darks: x
  - flats: [3]
  - bias: ~
  - wait: soon
)"),
              "night.yaml:2: lights: write 'KEY: VALUE' lines here; "
              "night.yaml:3: darks: write 'KEY: VALUE' lines here; "
              "night.yaml:4: flats: write 'KEY: VALUE' lines here; "
              "night.yaml:5: bias: write 'KEY: VALUE' lines here; "
              "night.yaml:6: wait: time 'soon': write a number with ms, s, min or h, like 500ms");
}

TEST_F(SequenceReader, TakesAnchorsOfStepsAndOfValues)
{
    const SequencePlan plan = planOf(R"(steps:
  - &step
    darks: &five {count: 5, exposure: 1}
  - *step
  - lights: *five
)");
    ASSERT_EQ(plan.steps.size(), 3u);
    EXPECT_EQ(plan.steps[1].plan.type, FrameType::Dark);
    EXPECT_EQ(plan.steps[1].count, 5);
    EXPECT_EQ(plan.steps[2].plan.type, FrameType::Light);
    EXPECT_EQ(plan.steps[2].plan.exposure, 1s);
    EXPECT_THAT(mistakesOf("steps:\n  - &d darks: {count: 5, exposure: 1}\n  - *d\n"),
                HasSubstr("each step is one of"));
}

TEST_F(SequenceReader, TakesSevenRepeatsInEachOther)
{
    const auto nested = [](int count) {
        std::string step = "{bias: {count: 1}}";
        for (int i = 0; i < count; ++i) {
            step = "{repeat: {times: 1, steps: [" + step + "]}}";
        }
        return "steps: [" + step + "]\n";
    };
    EXPECT_EQ(planOf(nested(7)).steps.size(), 1u);
    EXPECT_THAT(mistakesOf(nested(8)), HasSubstr("repeats are too deep in each other"));
}

TEST_F(SequenceReader, RefusesValuesThatCannotBe)
{
    EXPECT_THAT(mistakesOfStep("lights: {count: 0, exposure: 1s}"),
                HasSubstr("night.yaml:2: count: '0': 1 to 1000000"));
    EXPECT_THAT(mistakesOfStep("lights: {count: 1, exposure: -1s}"), HasSubstr("exposure: "));
    EXPECT_THAT(mistakesOfStep("lights: {count: 1, exposure: 1s, gain: much}"), HasSubstr("gain"));
    EXPECT_THAT(mistakesOfStep("lights: {count: 1, exposure: 1s, name: ../a}"),
                HasSubstr("name: '../a': up to 64 letters"));
    EXPECT_THAT(mistakesOfStep("lights: {count: 1, exposure: 1s, bits: 12}"), HasSubstr("8 or 16"));
    EXPECT_THAT(mistakesOfStep("lights: {count: 1, exposure: 1s, area: [0, 0, 0, 5]}"),
                HasSubstr("area: '0': 1 to 65535"));
    EXPECT_THAT(mistakesOfStep("darks: {count: 1, exposure: 1s, binning: 2, area: [0, 0, 5, 5]}"),
                HasSubstr("area and binning exclude each other"));
    EXPECT_THAT(mistakesOfStep("flats: {count: 1, level: {tolerance: 0.1}}"),
                HasSubstr("level: 'mean' is missing"));
    EXPECT_THAT(mistakesOfStep("set: {gian: 2}"), HasSubstr("gian"));
    EXPECT_THAT(mistakesOfStep("set: {ccd-temp: 2}"), HasSubstr("can only be read"));
    EXPECT_THAT(mistakesOfStep("temperature: {ramp: 2}"), HasSubstr("'to' is missing"));
    EXPECT_THAT(mistakesOfStep("temperature: {to: cold}"), HasSubstr("'cold' is no number"));
    EXPECT_THAT(mistakesOfStep("run: {timeout: 1s}"), HasSubstr("'command' is missing"));
    EXPECT_THAT(mistakesOfStep("run: {command: a, may-fail: perhaps}"), HasSubstr("true or false"));
    EXPECT_THAT(mistakesOfStep("run: {command: a, timeout: 0s}"),
                HasSubstr("timeout: '0s' leaves no time; give more than 0"));
    EXPECT_THAT(mistakesOfStep("bias: {count: 2, dither: {command: a, timeout: 0}}"),
                HasSubstr("timeout: '0' leaves no time"));
    EXPECT_THAT(mistakesOfStep("bias: {count: 1, count: 2}"), HasSubstr("'count' is there twice"));
    EXPECT_THAT(mistakesOfStep("repeat: {times: 2}"), HasSubstr("'steps' is missing"));
    EXPECT_THAT(mistakesOfStep("repeat: {times: 1000000, steps: [{bias: {count: 2}}]}"),
                HasSubstr("more than 1000000 things to do"));
    EXPECT_THAT(mistakesOf("sensor: [64, 64]\nsteps:\n"
                           "  - lights: {count: 1, exposure: 1s, area: [60, 0, 5, 5]}\n"),
                HasSubstr("night.yaml:3: the area reaches beyond the sensor of 64 x 64"));
}

TEST_F(SequenceReader, RefusesWhatIsThereTwice)
{
    EXPECT_THAT(mistakesOf("header: [\"A=1\", \"A=2\"]\nsteps: [{wait: 1s}]\n"),
                HasSubstr("night.yaml:1: header: the word A is there already"));
    EXPECT_THAT(mistakesOf("header: [\"SEQID=1\"]\nsteps: [{wait: 1s}]\n"),
                HasSubstr("header: the word SEQID is there already"));
    EXPECT_THAT(mistakesOfStep("set: {gain: 2, gain: 3}"),
                HasSubstr("night.yaml:2: set: 'gain' is there twice"));
}

TEST_F(SequenceReader, RefusesLevelsThatNoFrameReaches)
{
    EXPECT_THAT(mistakesOfStep("flats: {count: 1, level: {mean: 65535}}"),
                HasSubstr("flats: level: 'mean' is less than 65535 of 16 bits"));
    EXPECT_THAT(mistakesOfStep("flats: {count: 1, bits: 8, level: {mean: 300}}"),
                HasSubstr("'mean' is less than 255 of 8 bits"));
    EXPECT_EQ(planOf("steps: [{flats: {count: 1, binning: 2, level: {mean: 90000}}}]\n")
                  .steps[0]
                  .level.mean,
              90000);
}

TEST_F(SequenceReader, TellsEachMistakeOnce)
{
    EXPECT_EQ(mistakesOfStep("lights: {count: 1, exposure: -1s}"),
              "night.yaml:2: exposure: time '-1s': it cannot be negative");
    EXPECT_EQ(mistakesOfStep("flats: {count: 1, level: {mean: 30000, least: 2s, most: 1s}}"),
              "night.yaml:2: level: 'least' is longer than 'most'");
    EXPECT_EQ(mistakesOfStep("run: {command: [a]}"), "night.yaml:2: command: write one value here");
}

TEST_F(SequenceReader, RefusesFilesThatAreNoPlan)
{
    EXPECT_THAT(mistakesOf("steps: [}\n"), HasSubstr("night.yaml:1: "));
    EXPECT_THAT(mistakesOf("- a\n- b\n"), HasSubstr("night.yaml:1: plan: write 'KEY: VALUE'"));
    EXPECT_THAT(mistakesOf(""), HasSubstr("night.yaml: one plan is expected"));
    EXPECT_THAT(mistakesOf("steps: [bias]\n---\nsteps: [bias]\n"), HasSubstr("one plan is"));
    EXPECT_THAT(mistakesOf(", a"), HasSubstr("one plan is expected")); // no document has an end
    EXPECT_THAT(mistakesOf("folder: a\n"), HasSubstr("'steps' is missing"));
    EXPECT_THAT(mistakesOf("steps: []\n"), HasSubstr("steps: write a list"));
    try {
        readSequence(folder_.path("none.yaml"));
        FAIL() << "nothing was thrown";
    } catch (const Error& error) {
        EXPECT_EQ(error.kind(), ErrorKind::File);
    }
}

TEST_F(SequenceReader, WaitsForNoWriterOfAPipe)
{
    const std::string pipe = folder_.path("pipe.yaml");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& path : {pipe, folder_.path()}) {
        try {
            readSequence(path);
            FAIL() << "nothing was thrown";
        } catch (const Error& error) {
            EXPECT_EQ(error.kind(), ErrorKind::File);
            EXPECT_EQ(error.what(), path + ": is no regular file");
        }
    }
}

TEST_F(SequenceReader, ReadsATextThatStandsInNoFile)
{
    const SequencePlan plan = parseSequence("steps: [{bias: {count: 3}}]\n", "a/night.yaml");
    EXPECT_EQ(plan.path, "a/night.yaml");
    EXPECT_EQ(plan.folder, "a/night");
    EXPECT_EQ(plan.mark, planOf("steps: [{bias: {count: 3}}]\n").mark);
}

TEST_F(SequenceReader, TellsTheLineOfEachMistake)
{
    const auto linesOf = [](const std::string& text) {
        std::vector<int> lines;
        try {
            parseSequence(text, "night.yaml");
        } catch (const SequenceError& error) {
            for (const SequenceMistake& mistake : error.mistakes()) {
                lines.push_back(mistake.line);
                EXPECT_THAT(error.what(), HasSubstr(mistake.text));
            }
        }
        return lines;
    };
    using testing::ElementsAre;
    EXPECT_THAT(linesOf("retries: x\nsteps:\n  - bias: {count: 0}\n  - wait: x\n"),
                ElementsAre(1, 3, 4));
    EXPECT_THAT(linesOf("steps:\n  - wait: ]\n"), ElementsAre(2));
    EXPECT_THAT(linesOf("sensor: [8, 8]\nsteps:\n  - bias: {count: 1, area: [0, 0, 9, 9]}\n"),
                ElementsAre(3));
    EXPECT_THAT(linesOf(""), ElementsAre(0));
    EXPECT_THAT(linesOf(std::string((1 << 20) + 1, '#')), ElementsAre(0));
}

// A plan of a few hundred bytes that would take years to read.
TEST_F(SequenceReader, RefusesListsOfListsOfLists)
{
    std::string text = "steps:\n  - &r0 {repeat: {times: 1, steps: [{wait: 1s}]}}\n";
    for (int depth = 1; depth <= 7; ++depth) {
        text += "  - &r" + std::to_string(depth) + " {repeat: {times: 1, steps: [";
        for (int i = 0; i < 20; ++i) {
            text += "*r" + std::to_string(depth - 1) + (i < 19 ? ", " : "]}}\n");
        }
    }
    EXPECT_THAT(mistakesOf(text), HasSubstr("at most 100000 steps"));
}

TEST_F(SequenceReader, RefusesControlCharactersInTheNameOfTheFolder)
{
    EXPECT_THAT(mistakesOf("folder: \"a\\0b\"\nsteps: [{bias: {count: 1}}]\n"),
                HasSubstr("night.yaml:1: folder: control characters"));
}

TEST_F(SequenceReader, RefusesWhatIsTooDeep)
{
    EXPECT_THAT(mistakesOf("steps: " + std::string(100000, '[')), HasSubstr("night.yaml:"));
}

TEST_F(SequenceReader, MarksPlansByWhatTheySay)
{
    const std::string mark = planOf("steps: [{bias: {count: 3}}]\n").mark;
    EXPECT_EQ(planOf("# a remark\nsteps:   [{bias: {count: 3}}]\n").mark, mark);
    EXPECT_NE(planOf("steps: [{bias: {count: 4}}]\n").mark, mark);
}

} // namespace vxcam
