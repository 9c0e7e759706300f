// vxcam get and vxcam set: read and change properties, in the order in which they are named.
#include "failure.h"
#include "interrupt.h"
#include "newfile.h"
#include "program.h"
#include "properties.h"
#include "report.h"
#include "vxcamiface.h"

#include <nlohmann/json.hpp>

#include <algorithm>

const char* const gsGetExamples =
    R"(  vxcam get 192.168.1.20:2000                        all properties
  vxcam get 192.168.1.20:2000 exposure gain          these two
  vxcam get serial:1207 register:0x10 parameter:9    by address and by number
  vxcam get 192.168.1.20:2000 timing-data@timing.bin a block of bytes, into a file)";
const char* const gsSetExamples =
    R"(  vxcam set 192.168.1.20:2000 exposure=250ms gain=2 target-temp=-20
  vxcam set sim exposure=250ms gain=2 target-temp=-20 get         and then read all
  vxcam set sim cooling=on get ccd-temp set cooling=off           in this order
  vxcam set 192.168.1.20:2000 trigger-mode=frame area=0,0,512,512
  vxcam set 192.168.1.20:2000 timing-data=@timing.bin             bytes out of a file)";

namespace {

constexpr char gcFile = '@';

// One thing to do.
struct tsStep {
    tsNamed named;
    std::optional<tsSetting> asked; // to set; else to read
    std::string file;               // where the bytes go that are read
    bool isOneOfAll = false;        // nobody asked for it by name
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
    void Check(tcSession& session) const;
    void DoOneOfAll(tcSession& session, const tsStep& step);
    void Do(tcSession& session, const tsStep& step);
    void Describe(const tsStep& step, const tsSetting& told);
    void Print(const tsStep& step, const tsSetting& told) const;

    const bool mbSets; // the words up to the first `get` or `set`
    tsCommonOptions mtCommon;
    std::vector<std::string> maWords;
    bool mbForce = false;
    std::vector<tsStep> maSteps;
    nlohmann::ordered_json mDocument;
};

// What was asked for is what is told, as it is shown; of bytes, as far as they were asked for.
bool IsAsAsked(const tsShape& shape, const tsSetting& asked, const tsSetting& told)
{
    return SettingText(shape, {asked.numbers, {}}) == SettingText(shape, {told.numbers, {}}) &&
           asked.bytes.size() <= told.bytes.size() &&
           std::equal(asked.bytes.begin(), asked.bytes.end(), told.bytes.begin());
}

void tcGetSet::Declare(tcCommandLine& line)
{
    DeclareCommon(line, &mtCommon);
    line.Operand("WORDS", &maWords,
                 mbSets ? "NAME=VALUE sets; behind the word get, NAME reads"
                        : "NAME reads; behind the word set, NAME=VALUE sets");
    line.Flag("--force", &mbForce, "replace files that exist");
    line.Flag("--json", &mbJson, "print one JSON document");
    line.AddFooter(
        "Properties (a TIME is a number and ms, s, min or h; HEX two digits a byte; on is 1, "
        "off 0):\n" +
        PropertyHelp() + "\n");
}

void tcGetSet::AddAll()
{
    for (const tsProperty& property : Properties()) {
        if (property.read == nullptr || property.key != nullptr || !property.isListed) continue;
        maSteps.push_back({{&property, 0, property.name}, std::nullopt, "", true});
    }
}

void tcGetSet::AddRead(const std::string& word)
{
    const size_t at = word.find(gcFile);
    if (word.find('=') < at) {
        throw tcFailure(eExitUsage, "'" + word + "': get reads; write set in front of what is set");
    }
    tsStep step{FindProperty(word.substr(0, at)), std::nullopt, ""};
    const tsProperty& property = *step.named.property;
    if (property.read == nullptr) {
        throw tcFailure(eExitUsage, "property '" + step.named.text + "' can only be set");
    }
    if (at != std::string::npos) {
        if (!IsBlock(property.shape.fields[0])) {
            throw tcFailure(eExitUsage, "'" + word + "': only blocks of bytes go to a file");
        }
        step.file = word.substr(at + 1);
        CheckNewFile(step.file, mbForce);
    }
    maSteps.push_back(step);
}

void tcGetSet::AddWrite(const std::string& word)
{
    const size_t equals = word.find('=');
    const tsNamed named = FindProperty(word.substr(0, equals));
    if (named.property->write == nullptr) {
        throw tcFailure(eExitUsage, "property '" + named.text + "' can only be read");
    }
    if (equals == std::string::npos) {
        throw tcFailure(eExitUsage, "'" + word + "': write " + named.text + "=" +
                                        SyntaxText(named.property->shape) +
                                        ", or get in front of what is read");
    }
    maSteps.push_back(
        {named, ParseSetting(named.text, named.property->shape, word.substr(equals + 1)), ""});
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
void tcGetSet::Check(tcSession& session) const
{
    for (const tsStep& step : maSteps) {
        if (!step.asked || step.named.property->check == nullptr) continue;
        const std::string complaint = step.named.property->check(session, *step.asked);
        if (!complaint.empty()) throw tcFailure(eExitUsage, step.named.text + ": " + complaint);
    }
}

void tcGetSet::Describe(const tsStep& step, const tsSetting& told)
{
    const tsProperty& property = *step.named.property;
    const nlohmann::ordered_json value = SettingJson(property.shape, told);
    nlohmann::ordered_json entry;
    entry["action"] = step.asked ? "set" : "get";
    entry["name"] = step.named.text;
    if (step.asked) entry["asked"] = SettingJson(property.shape, *step.asked);
    entry["value"] = value;
    if (*property.shape.fields[0].unit != '\0') entry["unit"] = property.shape.fields[0].unit;
    if (step.asked) entry["confirmed"] = property.read != nullptr;
    if (!step.file.empty()) entry["file"] = step.file;
    mDocument["values"][step.named.text] = value;
    mDocument["steps"].push_back(entry);
}

void tcGetSet::Print(const tsStep& step, const tsSetting& told) const
{
    if (mbJson || mtCommon.quiet) return;
    const tsProperty& property = *step.named.property;
    std::string line = step.named.text + "=" + ShownText(property.shape, told);
    if (step.asked && property.read == nullptr) line += " (sent; the camera does not tell it)";
    if (step.asked && property.read != nullptr && !IsAsAsked(property.shape, *step.asked, told)) {
        line += " (asked for " + ShownText(property.shape, *step.asked) + ")";
    }
    if (!step.file.empty()) line += " in " + step.file;
    PrintLine(line);
}

// A camera need not know all of them.
void tcGetSet::DoOneOfAll(tcSession& session, const tsStep& step)
{
    std::string why;
    const std::optional<tsSetting> told = TryProperty(session, step.named, &why);
    Describe(step, told.value_or(tsSetting()));
    if (told) {
        Print(step, *told);
        return;
    }
    mDocument["steps"].back()["error"] = why;
    mDocument["values"][step.named.text] = mDocument["steps"].back()["value"] = nullptr;
    if (!mbJson && !mtCommon.quiet) PrintLine(step.named.text + ": " + why);
}

void tcGetSet::Do(tcSession& session, const tsStep& step)
{
    ThrowIfInterrupted();
    if (step.isOneOfAll) {
        DoOneOfAll(session, step);
        return;
    }
    const tsSetting told = step.asked ? WriteProperty(session, step.named, *step.asked)
                                      : ReadProperty(session, step.named);
    if (!step.file.empty()) {
        static const std::atomic<bool> never{false};
        WriteNewFile(step.file, told.bytes.data(), told.bytes.size(), mbForce, never);
    }
    Describe(step, told);
    Print(step, told);
}

void tcGetSet::Run()
{
    ParseTarget(mtCommon.target); // what is no target is the likelier mistake
    ParseWords();
    std::unique_ptr<tcSession> session = OpenSession(&mtCommon);
    mDocument["target"] = session->Name();
    mDocument["values"] = nlohmann::ordered_json::object();
    mDocument["steps"] = nlohmann::ordered_json::array();
    Check(*session);
    for (const tsStep& step : maSteps) {
        Do(*session, step);
    }
    session->Close();
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
