// vxcam verify: whether records are what they say.
#include "arguments.h"
#include "failure.h"
#include "interrupt.h"
#include "program.h"
#include "report.h"

#include <vxcamkit/error.h>
#include <vxcamkit/verify.h>

#include <nlohmann/json.hpp>

const char* const gsVerifyExamples =
    R"(  vxcam verify night.h5                     each frame, and the file
  vxcam verify *.fits --json                for scripts
  vxcam verify sim.raw --truth sent.jsonl   with what vxcamsim --json printed)";

namespace {

constexpr size_t gnMostPrinted = 20; // findings of a file

class tcVerify : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;
    nlohmann::ordered_json Document() const override { return mDocument; }

private:
    void Take(const vxcam::Verdict& verdict);
    void TakeUnread(const std::string& path, const vxcam::Error& error);
    void Verify(const std::string& path, const vxcam::VerifyOptions& options);
    void Print(const vxcam::Verdict& verdict) const;

    std::vector<std::string> maFiles;
    std::string msTruth;
    std::string msBefore; // the file that was looked at last
    bool mbQuiet = false;
    size_t mnBad = 0;
    size_t mnUnread = 0;
    nlohmann::ordered_json mDocument = nlohmann::ordered_json::object();
};

void tcVerify::Declare(tcCommandLine& line)
{
    line.Operand("FILE", &maFiles, "record, or FITS file of a frame").Required();
    line.Option("--truth", &msTruth, "FILE", "what the simulated camera printed with --json");
    DeclareQuiet(line, &mbQuiet);
    line.Flag("--json", &mbJson, "print one JSON document");
}

void tcVerify::Take(const vxcam::Verdict& verdict)
{
    if (!verdict.isGood()) ++mnBad;
    nlohmann::ordered_json file;
    file["file"] = verdict.path;
    file["format"] = verdict.format;
    file["frames"] = verdict.frames;
    file["incomplete"] = verdict.incomplete;
    file["ended"] = verdict.ended;
    file["good"] = verdict.isGood();
    file["findings"] = nlohmann::ordered_json::array();
    for (const vxcam::Finding& finding : verdict.findings) {
        nlohmann::ordered_json one;
        one["check"] = finding.check;
        one["frame"] = nullptr;
        if (finding.frame >= 0) one["frame"] = finding.frame;
        one["text"] = finding.text;
        file["findings"].push_back(one);
    }
    mDocument["files"].push_back(file);
}

void tcVerify::Print(const vxcam::Verdict& verdict) const
{
    const std::string marked =
        verdict.incomplete > 0 ? " (" + std::to_string(verdict.incomplete) + " marked incomplete)"
                               : "";
    PrintLine(verdict.path + ": " + verdict.format + ", " + CountText(verdict.frames, "frame") +
              marked + ", " + verdict.ended + ": " +
              (verdict.isGood() ? "good" : CountText(verdict.findings.size(), "finding")));
    size_t printed = 0;
    for (const vxcam::Finding& finding : verdict.findings) {
        if (++printed > gnMostPrinted) {
            PrintLine("  ...");
            return;
        }
        const std::string where =
            finding.frame >= 0 ? "frame " + std::to_string(finding.frame) : "file";
        PrintLine("  " + finding.check +
                  std::string(9 - std::min<size_t>(finding.check.size(), 8), ' ') + where + ": " +
                  finding.text);
    }
}

// Of several files, one that cannot be read does not keep the others from being looked at.
void tcVerify::TakeUnread(const std::string& path, const vxcam::Error& error)
{
    ++mnUnread;
    PrintError(error.what());
    mDocument["files"].push_back({{"file", path}, {"good", false}, {"error", error.what()}});
}

void tcVerify::Verify(const std::string& path, const vxcam::VerifyOptions& options)
{
    try {
        vxcam::Verdict verdict;
        {
            const tcQuickExit quickExit; // also from calls of other libraries
            verdict = vxcam::verifyRecord(path, options);
        }
        const std::vector<vxcam::Finding> order = vxcam::verifyOrder(path, msBefore);
        verdict.findings.insert(verdict.findings.end(), order.begin(), order.end());
        Take(verdict);
        if (!mbJson && !mbQuiet) Print(verdict);
    } catch (const vxcam::Error& error) {
        if (maFiles.size() == 1) throw;
        TakeUnread(path, error);
    }
}

void tcVerify::Run()
{
    vxcam::VerifyOptions options;
    options.truth = msTruth;
    mDocument["files"] = nlohmann::ordered_json::array();
    for (const std::string& path : maFiles) {
        ThrowIfInterrupted();
        Verify(path, options);
        msBefore = path;
    }
    const std::string all = " of " + std::to_string(maFiles.size()) + " files ";
    if (mnUnread > 0) {
        throw tcFailure(eExitFile, std::to_string(mnUnread) + all + "could not be read" +
                                       (mnBad > 0 ? ", " + std::to_string(mnBad) + all +
                                                        "are not as they should be"
                                                  : ""));
    }
    if (mnBad > 0) {
        throw tcFailure(eExitCamera, std::to_string(mnBad) + all + "are not as they should be");
    }
    if (mbJson) PrintDocument(mDocument);
}

} // namespace

std::unique_ptr<tcVerb> MakeVerify()
{
    return std::make_unique<tcVerify>();
}
