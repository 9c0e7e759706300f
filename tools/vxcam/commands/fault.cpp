// vxcam fault: what goes wrong with a simulated camera, through its item server.
#include "arguments.h"
#include "failure.h"
#include "faultkinds.h"
#include "faults.h"
#include "itemreplies.h"
#include "logrecord.h"
#include "program.h"
#include "report.h"
#include "tcService.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <thread>

const char* const gsFaultExamples =
    R"(  vxcam fault 127.0.0.1:7010                        what may go wrong now
  vxcam fault 127.0.0.1:7010 no-answer:times=3      the next three answers do not come
  vxcam fault 127.0.0.1:7010 drip:rate=100 stall    more at once
  vxcam fault 127.0.0.1:7010 --lift drip            from now on it is well again
  vxcam fault 127.0.0.1:7010 --lift                 with everything)";

namespace {

constexpr std::chrono::milliseconds gtStep{10};
constexpr const char* gsChanges = "fault_changes";
constexpr const char* gsPrefix = "fault_";

class tcFault : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;
    nlohmann::ordered_json Document() const override { return {{"target", msTarget}}; }

private:
    std::string Get(const std::string& name) const;
    void Set(const std::string& name, double value) const;
    void Take(const std::string& name, int times) const;
    void Inject(const tsSimFault& fault) const;
    std::vector<tsItem> InForce() const;
    void Lift() const;
    void Print() const;

    std::string msTarget, msTimeout = "5s";
    std::vector<std::string> maKinds;
    bool mbLift = false, mbQuiet = false;
    std::chrono::milliseconds mtTimeout{0};
    mutable std::optional<tcService> mtService;
};

// "close-header" is the item "fault_close_header".
std::string ItemOf(std::string kind)
{
    std::replace(kind.begin(), kind.end(), '-', '_');
    return gsPrefix + kind;
}

std::string KindOfItem(const std::string& name)
{
    std::string kind = name.substr(std::string(gsPrefix).size());
    std::replace(kind.begin(), kind.end(), '_', '-');
    return kind;
}

std::vector<std::string> Kinds()
{
    std::vector<std::string> kinds;
    for (size_t i = 0; i < gnSimFaultKinds; ++i) {
        kinds.emplace_back(NameOf(static_cast<teSimFault>(i)));
    }
    return kinds;
}

tsSimFault Parsed(const std::string& text)
{
    try {
        return ParseSimFault(text);
    } catch (const std::runtime_error& error) {
        throw tcFailure(eExitUsage, Printable(text) + ": " + Printable(error.what()));
    }
}

// Items hold numbers of 32 bits.
void CheckThatItTravels(const std::string& name, double value)
{
    const auto travelled = static_cast<double>(static_cast<float>(value));
    const bool isWhole = value == static_cast<double>(static_cast<int64_t>(value));
    if (!isWhole || travelled == value) return;
    throw tcFailure(eExitUsage, name + " is too large a number to be told while the camera runs");
}

void tcFault::Declare(tcCommandLine& line)
{
    line.Operand("TARGET", &msTarget,
                 "HOST or HOST:PORT, as vxcamsim --item-port has it; without a port 7010")
        .Required();
    line.Operand("KIND", &maKinds,
                 "KIND[:NAME=VALUE[,NAME=VALUE]...], as vxcamsim --help explains them; without "
                 "one, those that may strike are listed")
        .Offers(Kinds());
    line.Flag("--lift", &mbLift, "take the faults of these kinds back; without a kind, all");
    line.Option("--timeout", &msTimeout, "TIME", "how long the camera may be silent");
    line.Flag("--json", &mbJson, "print one JSON document");
    DeclareQuiet(line, &mbQuiet);
}

void tcFault::Run()
{
    std::vector<tsSimFault> faults;
    for (const std::string& text : maKinds) {
        faults.push_back(Parsed(text));
        for (const auto& [name, value] : NumbersOf(faults.back())) {
            CheckThatItTravels(name, value);
        }
    }
    mtTimeout = ParseDuration(msTimeout);
    mtService.emplace(ParseEndpoint("target", msTarget, gnItemPort), "item server", mtTimeout);
    if (mbLift) {
        Lift();
    } else {
        for (const tsSimFault& fault : faults) {
            Inject(fault);
        }
    }
    if (mbJson || (maKinds.empty() && !mbLift)) Print();
}

std::string tcFault::Get(const std::string& name) const
{
    const std::string reply = mtService->Ask("GET:" + name);
    if (!reply.empty() && reply.back() == '\0') return reply.substr(0, reply.size() - 1);
    throw tcFailure(eExitCamera, mtService->Name() + " has no item " + name +
                                     ": it is not that of a simulated camera");
}

void tcFault::Set(const std::string& name, double value) const
{
    char text[64];
    std::snprintf(text, sizeof text, "%.9f", value);
    mtService->Ask("SET:" + name + "=" + text);
}

// Waits until the camera has taken it over.
void tcFault::Take(const std::string& name, int times) const
{
    const std::string before = Get(gsChanges);
    mtService->Ask("SET:" + name + "=" + std::to_string(times));
    const auto deadline = std::chrono::steady_clock::now() + mtTimeout;
    while (Get(gsChanges) == before) {
        if (std::chrono::steady_clock::now() > deadline) {
            throw tcFailure(eExitTimeout, "the camera does not take over " + name);
        }
        std::this_thread::sleep_for(gtStep);
    }
}

// What is in force of the kind gives way.
void tcFault::Inject(const tsSimFault& fault) const
{
    const std::string name = ItemOf(NameOf(fault.kind));
    const int times = fault.times == 0 ? -1 : static_cast<int>(fault.times);
    if (Get(name) == std::to_string(times)) Take(name, 0);
    for (const auto& [word, value] : NumbersOf(fault)) {
        if (word != "times") Set("with_" + word, value);
    }
    Take(name, times);
}

std::vector<tsItem> tcFault::InForce() const
{
    Get(gsChanges);
    const auto items = ParseItems(mtService->Ask("LIST"));
    if (!items) throw tcFailure(eExitNoCamera, mtService->Name() + " does not answer LIST");
    std::vector<tsItem> faults;
    for (const tsItem& item : *items) {
        const bool isFault = item.name.rfind(gsPrefix, 0) == 0 && item.name != gsChanges;
        if (isFault && item.value != "0") faults.push_back(item);
    }
    return faults;
}

void tcFault::Lift() const
{
    std::vector<std::string> names;
    for (const std::string& text : maKinds) {
        names.push_back(ItemOf(NameOf(Parsed(text).kind)));
    }
    for (const tsItem& item : InForce()) {
        const bool isMeant =
            names.empty() || std::find(names.begin(), names.end(), item.name) != names.end();
        if (isMeant) Take(item.name, 0);
    }
}

void tcFault::Print() const
{
    nlohmann::ordered_json document = Document();
    document["faults"] = nlohmann::ordered_json::array();
    for (const tsItem& item : InForce()) {
        const std::string kind = KindOfItem(item.name);
        document["faults"].push_back({{"kind", kind}, {"times", ItemNumber(item.value)}});
        if (mbJson || mbQuiet) continue;
        const std::string times =
            item.value == "-1" ? "always" : item.value + (item.value == "1" ? " time" : " times");
        std::string line = kind;
        line.append(kind.size() < 20 ? 20 - kind.size() : 1, ' ').append(times);
        PrintLine(line);
    }
    if (mbJson) PrintDocument(document);
}

} // namespace

std::unique_ptr<tcVerb> MakeFault()
{
    return std::make_unique<tcFault>();
}
