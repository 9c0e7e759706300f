// vxcam get and vxcam set: read and change properties, in the order in which they are named.
#include "arguments.h"
#include "failure.h"
#include "interrupt.h"
#include "logrecord.h"
#include "program.h"
#include "propertytext.h"
#include "report.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/error.h>
#include <vxcamkit/new_file.h>
#include <vxcamkit/property.h>

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <algorithm>

const char* const gsGetExamples =
    R"(  vxcam get 192.168.1.20:2000                        all properties
  vxcam get 192.168.1.20:2000 exposure gain          these two
  vxcam get serial:1207 register:0x10 parameter:9    by address and by number
  vxcam get 192.168.1.20:2000 timing-data@timing.bin a block of bytes, into a file
  vxcam get CAMERA --for-set | xargs -d '\n' vxcam set OTHER    as it is set, to another)";
const char* const gsSetExamples =
    R"(  vxcam set 192.168.1.20:2000 exposure=250ms gain=2 target-temp=-20
  vxcam set sim exposure=250ms gain=2 target-temp=-20 get         and then read all
  vxcam set sim cooling=on get ccd-temp set cooling=off           in this order
  vxcam set 192.168.1.20:2000 trigger-mode=frame area-regions=0,0,512,512
  vxcam set 192.168.1.20:2000 timing-data=@timing.bin             bytes out of a file)";

namespace {

constexpr char gcFile = '@';

// One thing to do.
struct tsStep {
    vxcam::PropertyName named;
    std::optional<vxcam::Value> asked; // to set; else to read
    std::string file;                  // where the bytes go that are read
    bool isOneOfAll = false;           // nobody asked for it by name
    std::string source = {};           // "@FILE" until it is read
};

class tcGetSet : public tcVerb
{
public:
    explicit tcGetSet(bool sets) : mbSets(sets) {}
    void Declare(tcCommandLine& line) override;
    void Run() override;
    nlohmann::ordered_json Document() const override { return mDocument; }

private:
    void ParseWords();
    void AddRead(const std::string& word);
    void AddWrite(const std::string& word);
    void AddAll();
    void CheckFiles();
    void Check(vxcam::Camera& camera) const;
    bool IsLeftOut(vxcam::Camera& camera, const tsStep& step, const vxcam::Value& told) const;
    void DoOneOfAll(vxcam::Camera& camera, const tsStep& step);
    void Do(vxcam::Camera& camera, const tsStep& step);
    void Describe(const tsStep& step, const vxcam::Value& told);
    bool IsShort(const tsStep& step, const vxcam::Value& told) const;
    void Print(const tsStep& step, const vxcam::Value& told) const;

    const bool mbSets; // the words up to the first `get` or `set`
    tsCommonOptions mtCommon;
    std::vector<std::string> maWords;
    bool mbForce = false, mbForSet = false;
    std::vector<tsStep> maSteps;
    nlohmann::ordered_json mDocument;
};

void tcGetSet::Declare(tcCommandLine& line)
{
    DeclareCommon(line, &mtCommon);
    line.Operand("WORDS", &maWords,
                 mbSets ? "NAME=VALUE sets; behind the word get, NAME reads"
                        : "NAME reads; behind the word set, NAME=VALUE sets");
    line.Flag("--force", &mbForce, "replace files that exist");
    line.Flag("--for-set", &mbForSet,
              "print what set takes, in full, and leave out the rest: all settings");
    line.Flag("--json", &mbJson, "print one JSON document");
    line.AddFooter(
        "Properties (a TIME is a number and ms, s, min or h; HEX two digits a byte; on is 1, "
        "off 0):\n" +
        PropertyHelp() + "\n");
}

void tcGetSet::AddAll()
{
    for (const vxcam::Property& property : vxcam::properties()) {
        if (!property.isReadable() || property.key != nullptr || !property.isListed) continue;
        if (mbForSet && property.nature != vxcam::Nature::Setting) continue;
        maSteps.push_back({{&property, 0, property.name}, std::nullopt, "", true});
    }
}

void tcGetSet::AddRead(const std::string& word)
{
    const size_t at = word.find(gcFile);
    if (word.find('=') < at) {
        throw tcFailure(eExitUsage, "'" + word + "': get reads; write set in front of what is set");
    }
    tsStep step{vxcam::findProperty(word.substr(0, at)), std::nullopt, ""};
    const vxcam::Property& property = *step.named.property;
    if (!property.isReadable()) {
        throw tcFailure(eExitUsage, "property '" + step.named.text + "' can only be set");
    }
    if (at != std::string::npos) {
        if (!property.field().isBlock()) {
            throw tcFailure(eExitUsage, "'" + word + "': only blocks of bytes go to a file");
        }
        step.file = word.substr(at + 1);
    }
    maSteps.push_back(step);
}

void tcGetSet::AddWrite(const std::string& word)
{
    const size_t equals = word.find('=');
    const vxcam::PropertyName named = vxcam::findProperty(word.substr(0, equals));
    if (!named.property->isWritable()) {
        throw tcFailure(eExitUsage, "property '" + named.text + "' can only be read");
    }
    if (equals == std::string::npos) {
        throw tcFailure(eExitUsage, "'" + word + "': write " + named.text + "=" +
                                        SyntaxText(*named.property) +
                                        ", or get in front of what is read");
    }
    const std::string text = word.substr(equals + 1);
    if (TakesFile(*named.property) && text.rfind(gcFile, 0) == 0) {
        maSteps.push_back({named, std::nullopt, "", false, text});
    } else {
        maSteps.push_back({named, ParseValue(named, text), ""});
    }
}

// Behind all words: what is wrong with those no file can mend.
void tcGetSet::CheckFiles()
{
    for (tsStep& step : maSteps) {
        if (!step.file.empty()) vxcam::checkNewFile(step.file, mbForce);
        if (!step.source.empty()) step.asked = ParseValue(step.named, step.source);
    }
}

// A `get` that no name follows stands for all.
void tcGetSet::ParseWords()
{
    bool sets = mbSets, isEmpty = true;
    const auto finish = [&] {
        if (isEmpty && sets) {
            throw tcFailure(eExitUsage, "nothing to set: write NAME=VALUE (vxcam set --help lists "
                                        "the properties)");
        }
        if (isEmpty) AddAll();
        isEmpty = true;
    };
    for (const std::string& word : maWords) {
        if (word == "get" || word == "set") {
            finish();
            sets = word == "set";
            continue;
        }
        sets ? AddWrite(word) : AddRead(word);
        isEmpty = false;
    }
    finish();
}

// Before anything is sent.
void tcGetSet::Check(vxcam::Camera& camera) const
{
    for (const tsStep& step : maSteps) {
        if (step.asked) camera.checked(step.named.text, *step.asked);
    }
}

void tcGetSet::Describe(const tsStep& step, const vxcam::Value& told)
{
    const vxcam::Property& property = *step.named.property;
    const nlohmann::ordered_json value = ValueJson(told);
    nlohmann::ordered_json entry;
    entry["action"] = step.asked ? "set" : "get";
    entry["name"] = step.named.text;
    if (step.asked) entry["asked"] = ValueJson(*step.asked);
    entry["value"] = value;
    if (*property.unit() != '\0') entry["unit"] = property.unit();
    if (step.asked) entry["confirmed"] = property.isReadable();
    if (!step.file.empty()) entry["file"] = step.file;
    mDocument["values"][step.named.text] = value;
    mDocument["steps"].push_back(entry);
}

// Of a block that goes to a file, and of one that would drown all the others on a terminal. Its
// line is none that set takes, nor does it look like one.
bool tcGetSet::IsShort(const tsStep& step, const vxcam::Value& told) const
{
    const bool isSeen = step.isOneOfAll && !mbForSet && ::isatty(STDOUT_FILENO) == 1;
    return !step.file.empty() || (isSeen && told.shown() != told.text());
}

void tcGetSet::Print(const tsStep& step, const vxcam::Value& told) const
{
    if (mbJson || mtCommon.quiet) return;
    const bool isReadable = step.named.property->isReadable(), isShort = IsShort(step, told);
    std::string line = step.named.text + (isShort ? ": " : "=") +
                       (isShort || step.asked ? told.shown() : told.text());
    if (step.asked && !isReadable) line += " (sent; the camera does not tell it)";
    if (step.asked && isReadable && !vxcam::isAsAsked(*step.asked, told)) {
        line += " (asked for " + step.asked->shown() + ")";
    }
    if (!step.file.empty()) line += " in " + step.file;
    PrintLine(line);
}

// Of --for-set: what set does not take, since it is only told, not known, or out of its range.
bool tcGetSet::IsLeftOut(vxcam::Camera& camera, const tsStep& step, const vxcam::Value& told) const
{
    if (!mbForSet || step.asked) return false;
    if (told.isNothing()) return true;
    try {
        camera.checked(step.named.text, told);
    } catch (const vxcam::Error&) {
        return true;
    }
    return false;
}

// A camera need not know all of them.
void tcGetSet::DoOneOfAll(vxcam::Camera& camera, const tsStep& step)
{
    std::string why;
    const std::optional<vxcam::Value> told = camera.tryGet(step.named.text, &why);
    if (IsLeftOut(camera, step, told.value_or(vxcam::Value()))) return;
    Describe(step, told.value_or(vxcam::Value()));
    if (told) {
        Print(step, *told);
        return;
    }
    why = Told(why);
    mDocument["steps"].back()["error"] = why;
    mDocument["values"][step.named.text] = mDocument["steps"].back()["value"] = nullptr;
    if (!mbJson && !mtCommon.quiet) PrintLine(step.named.text + ": " + Printable(why));
}

void tcGetSet::Do(vxcam::Camera& camera, const tsStep& step)
{
    ThrowIfInterrupted();
    if (step.isOneOfAll) {
        DoOneOfAll(camera, step);
        return;
    }
    const vxcam::Value told =
        step.asked ? camera.set(step.named.text, *step.asked) : camera.get(step.named.text);
    if (!step.file.empty()) {
        const bool isText = told.kind() == vxcam::Value::Kind::Text;
        const void* const bytes =
            isText ? static_cast<const void*>(told.toText().data()) : told.toBytes().data();
        vxcam::writeNewFile(step.file, bytes, isText ? told.toText().size() : told.toBytes().size(),
                            mbForce);
    }
    if (IsLeftOut(camera, step, told)) return;
    Describe(step, told);
    Print(step, told);
}

void tcGetSet::Run()
{
    ParseTarget(mtCommon.target); // what is no target is the likelier mistake
    ParseWords();
    CheckFiles();
    vxcam::Camera camera = OpenCamera(mtCommon);
    mDocument["target"] = NameOf(camera);
    mDocument["values"] = nlohmann::ordered_json::object();
    mDocument["steps"] = nlohmann::ordered_json::array();
    Check(camera);
    for (const tsStep& step : maSteps) {
        Do(camera, step);
    }
    camera.close();
    if (mbJson) PrintDocument(mDocument);
}

} // namespace

std::unique_ptr<tcVerb> MakeGet()
{
    return std::make_unique<tcGetSet>(false);
}

std::unique_ptr<tcVerb> MakeSet()
{
    return std::make_unique<tcGetSet>(true);
}
