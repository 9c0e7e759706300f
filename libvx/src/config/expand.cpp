// Replacing the $(NAME) references of a line.
#include "loadstate.h"
#include "tcConfigFile.h"
#include "vxenvironment.h"

#include <algorithm>
#include <cstdlib>

namespace {

constexpr int nMaxNestedReferences = 1000;
constexpr size_t nMaxGrowth = 1024 * 1024;
constexpr size_t nMaxGrowthFactor = 16;
constexpr size_t nMaxReported = 1024 * 1024; // of one line: every report quotes it whole
constexpr std::streamoff nMaxErrorText = 16 * 1024 * 1024;

int CountReferences(const std::string& line)
{
    int count = 0;
    for (size_t at = line.find("$("); at != std::string::npos; at = line.find("$(", at + 1)) {
        ++count;
    }
    return count;
}

// A line under expansion: what is done with, and what is still to be looked at. The latter is kept
// backwards, so that a value is put in front of it without moving it.
class tcExpansion
{
public:
    explicit tcExpansion(const std::string& line) : msRest(line.rbegin(), line.rend()) {}

    // Is done with everything before the next reference; false when there is none.
    bool Find()
    {
        const size_t at = msRest.rfind("($");
        const size_t left = at == std::string::npos ? 0 : at + 2;
        msDone.append(msRest.rbegin(), msRest.rend() - static_cast<std::ptrdiff_t>(left));
        msRest.resize(left);
        return left != 0;
    }

    // Whether the reference found has an end.
    bool HasEnd()
    {
        mnEnd = msRest.rfind(')');
        return mnEnd != std::string::npos;
    }
    std::string Name() const
    {
        return {msRest.rbegin() + 2, msRest.rend() - static_cast<std::ptrdiff_t>(mnEnd) - 1};
    }

    void Replace(const std::string& value)
    {
        msRest.resize(mnEnd);
        msRest.append(value.rbegin(), value.rend());
    }
    // Kept: a value that begins with a reference is not expanded in turn.
    void GoOn()
    {
        msDone.push_back(msRest.back());
        msRest.pop_back();
    }

    size_t Size() const { return msDone.size() + msRest.size(); }
    std::string Line() const { return msDone + std::string(msRest.rbegin(), msRest.rend()); }

private:
    std::string msDone, msRest;
    size_t mnEnd = 0;
};

} // namespace

const char* vx::FromEnvironment(const std::string& name)
{
    return name.find('\0') == std::string::npos ? vx::TrustedVariable(name.c_str()) : nullptr;
}

std::string tcConfigFile::ExpandVars(std::string line)
{
    const tGuard guard(mLock);
    const int allowed = CountReferences(line) + nMaxNestedReferences;
    const size_t room = line.size() + nMaxGrowthFactor * line.size() + nMaxGrowth;
    size_t reported = 0;
    tcExpansion expansion(line);
    for (int handled = 0; expansion.Find(); ++handled) {
        if (!expansion.HasEnd()) {
            mssErrors << CurrentFile() << ": Malformed variable found: " << expansion.Line()
                      << "\n";
            break;
        }
        const std::string name = expansion.Name();
        if (!MayMake(name.size())) break;
        const std::string value = VariableValue(name);
        if (handled >= allowed || expansion.Size() + value.size() > room) {
            mssErrors << CurrentFile() << ": Variable expansion too long: " << name << "\n";
            break;
        }
        if (!MayMake(value.size())) break;
        if (!value.empty()) {
            expansion.Replace(value);
        } else if (reported <= nMaxReported) {
            mssErrors << CurrentFile() << ": Undefined variable found: " << expansion.Line()
                      << "\n";
            reported += expansion.Size();
        }
        expansion.GoOn();
    }
    if (reported > nMaxReported)
        mssErrors << CurrentFile() << ": Too many errors in one line! some are left out\n";
    return expansion.Line();
}

// False for text that variables bring and that does not fit any more, which is reported once.
bool tcConfigFile::MayMake(size_t size)
{
    if (mpLoad == nullptr || mpLoad->TakeMadeText(size)) return true;
    ReportTooMuchText();
    return false;
}

void tcConfigFile::ReportTooMuchText()
{
    if (mpLoad->IsFirst(vx::tcLoadState::eText))
        mssErrors << CurrentFile() << ": Too much text! some variables and items are left out\n";
}

// Every error line may quote a line of the file that variables have made long. Behind the limit the
// stream takes nothing more.
void tcConfigFile::LimitErrors()
{
    if (mssErrors.tellp() <= nMaxErrorText) return;
    mssErrors << "Too many errors! the rest is left out\n";
    mssErrors.setstate(std::ios::failbit);
}

std::string tcConfigFile::VariableValue(const std::string& name)
{
    const char* const value = vx::FromEnvironment(name);
    return value != nullptr && *value != '\0' ? value : GetItemInSection(msVarSection, name, "");
}
