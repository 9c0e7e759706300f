// What the tests of sequences share: a folder for one, and runs of the program in it.
#ifndef SEQUENCE_SUPPORT_H
#define SEQUENCE_SUPPORT_H

#include "grab_support.h"
#include "simulated_support.h"

inline std::string CardOf(const std::string& path, const char* word)
{
    fitsfile* file = nullptr;
    int status = 0;
    char value[FLEN_VALUE] = "";
    fits_open_diskfile(&file, path.c_str(), READONLY, &status);
    fits_read_key(file, TSTRING, word, value, nullptr, &status);
    fits_close_file(file, &status);
    EXPECT_EQ(status, 0) << path << " " << word;
    return value;
}

class tcSequenceTest : public testing::Test
{
protected:
    void Start(const std::vector<std::string>& faults = {}) { Start(Talkative(faults)); }
    void Start(const tsSimOptions& options)
    {
        mpCamera = std::make_unique<tcSimServer>(options);
        msTarget = TargetOf(*mpCamera);
    }
    void Plan(const std::string& text) const { MakeFile(mFolder.Path("night.yaml"), text); }
    std::vector<std::string> Words(const std::vector<std::string>& more = {}) const
    {
        std::vector<std::string> words = {"sequence", "night.yaml", msTarget};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }
    // A run to its end: its exit code.
    int RunOnce(const std::vector<std::string>& more = {}, rlim_t fileLimit = 0)
    {
        tcRun::tsHow how = In(mFolder);
        how.fileLimit = fileLimit;
        tcRun run(Words(more), how);
        const int code = run.Exit();
        msOutput = run.Output();
        msErrors = run.Errors();
        mDocument = run.Document();
        return code;
    }
    long Taken() const
    {
        const std::string text = FileText(mFolder.Path("night/night.journal"));
        long count = 0;
        for (size_t at = 0; (at = text.find(" frame ", at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    }
    std::vector<std::string> Frames() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(mFolder.Path("night"))) {
            const std::string name = entry.path().filename().string();
            if (name != "night.journal") names.push_back(entry.path().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    void ExpectGood(const std::vector<std::string>& files) const
    {
        std::vector<std::string> words = {"verify", "--quiet"};
        words.insert(words.end(), files.begin(), files.end());
        tcRun verifier(words);
        EXPECT_EQ(verifier.Exit(), 0) << verifier.Errors();
    }

    std::unique_ptr<tcSimServer> mpCamera;
    std::string msTarget, msOutput, msErrors;
    nlohmann::json mDocument;
    tcFolder mFolder;
};

using SequenceVerb = tcSequenceTest;

#endif
