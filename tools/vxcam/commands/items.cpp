// vxcam items: the tunable values of a process, through its item server.
#include "arguments.h"
#include "failure.h"
#include "itemreplies.h"
#include "logrecord.h"
#include "program.h"
#include "report.h"
#include "tcService.h"

#include <nlohmann/json.hpp>

#include <fnmatch.h>

#include <algorithm>
#include <iterator>
#include <thread>

const char* const gsItemsExamples =
    R"(  vxcam items 192.168.1.20 list            name, value and meaning of each
  vxcam items 192.168.1.20 list 's*' gain  those with such names
  vxcam items 192.168.1.20:7011 get sky
  vxcam items 192.168.1.20 set sky 200)";

namespace {

constexpr size_t gnLongestRequest = 1024;
constexpr std::chrono::milliseconds gtSettling{100}; // for a process that puts a value back

class tcItems : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;
    nlohmann::ordered_json Document() const override { return {{"target", msTarget}}; }

private:
    void List();
    void Get();
    void Set();

    std::string Ask(const std::string& request) const;
    std::vector<tsItem> AllItems() const;
    std::vector<tsItem> Chosen() const;
    tsItem Find(const std::string& name) const;
    std::string Value(const std::string& name) const;
    void Print(const tsItem& item) const;

    void (tcItems::*mpAction)() = nullptr;
    std::string msTarget, msTimeout = "5s", msName, msValue;
    std::vector<std::string> maPatterns;
    bool mbQuiet = false;
    mutable std::optional<tcService> mtService;
};

nlohmann::ordered_json ItemDocument(const tsItem& item)
{
    return {
        {"name", item.name}, {"value", ItemNumber(item.value)}, {"description", item.description}};
}

void tcItems::Declare(tcCommandLine& line)
{
    line.Operand("TARGET", &msTarget, "HOST or HOST:PORT; without a port 7010").Required();
    line.Option("--timeout", &msTimeout, "TIME", "how long the process may be silent");
    line.Flag("--json", &mbJson, "print one JSON document");
    DeclareQuiet(line, &mbQuiet);
    const auto action = [&](const char* name, const char* summary, void (tcItems::*run)()) {
        return line.Action(name, summary, [this, run] { mpAction = run; });
    };
    tcCommandLine list = action("list", "list the items", &tcItems::List);
    list.Operand("PATTERN", &maPatterns,
                 "only items with such a name; *, ? and [...] stand for what they do in the shell");
    const tcCommandLine get = action("get", "show one item", &tcItems::Get);
    tcCommandLine set = action("set", "give an item another value", &tcItems::Set);
    for (tcCommandLine named : {get, set}) {
        named.Operand("NAME", &msName, "the item").Required();
    }
    set.Operand("VALUE", &msValue, "a number, without a fraction for a whole-numbered item")
        .Required();
}

void tcItems::Run()
{
    const bool isName = msName.find_first_of(std::string("=\0", 2)) == std::string::npos;
    const bool isValue = msValue.empty() || IsItemNumber(msValue);
    if (!isName) throw tcFailure(eExitUsage, "item '" + Printable(msName) + "': no '=' in a name");
    if (!isValue) throw tcFailure(eExitUsage, "value '" + Printable(msValue) + "' is no number");
    mtService.emplace(ParseEndpoint("target", msTarget, gnItemPort), "item server",
                      ParseDuration(msTimeout));
    (this->*mpAction)();
}

std::string tcItems::Ask(const std::string& request) const
{
    if (request.size() <= gnLongestRequest) return mtService->Ask(request);
    throw tcFailure(eExitUsage, "the request would be longer than 1024 bytes");
}

std::vector<tsItem> tcItems::AllItems() const
{
    const std::string reply = Ask("LIST");
    if (auto items = ParseItems(reply)) return *items;
    throw tcFailure(eExitNoCamera, mtService->Name() + " does not answer LIST as an item server " +
                                       "does: '" + Printable(reply.substr(0, 60)) + "'");
}

// Those that a pattern names; without patterns all.
std::vector<tsItem> tcItems::Chosen() const
{
    std::vector<tsItem> chosen, items = AllItems();
    if (maPatterns.empty()) return items;
    const auto isMeant = [this](const tsItem& item) {
        return std::any_of(maPatterns.begin(), maPatterns.end(), [&](const std::string& pattern) {
            return ::fnmatch(pattern.c_str(), item.name.c_str(), 0) == 0;
        });
    };
    std::copy_if(items.begin(), items.end(), std::back_inserter(chosen), isMeant);
    if (!chosen.empty()) return chosen;
    throw tcFailure(eExitCamera,
                    "none of the " + std::to_string(items.size()) + " items has such a name");
}

tsItem tcItems::Find(const std::string& name) const
{
    const std::vector<tsItem> items = AllItems();
    const auto found = std::find_if(items.begin(), items.end(),
                                    [&](const tsItem& item) { return item.name == name; });
    if (found != items.end()) return *found;
    throw tcFailure(eExitCamera, "there is no item " + Printable(name) + " (" +
                                     std::to_string(items.size()) + " others)");
}

std::string tcItems::Value(const std::string& name) const
{
    const std::string reply = Ask("GET:" + name);
    if (!reply.empty() && reply.back() == '\0') return reply.substr(0, reply.size() - 1);
    throw tcFailure(eExitNoCamera, mtService->Name() + " does not answer GET as an item server " +
                                       "does: '" + Printable(reply.substr(0, 60)) + "'");
}

void tcItems::Print(const tsItem& item) const
{
    if (mbJson) {
        nlohmann::ordered_json document = Document();
        document.update(ItemDocument(item));
        return PrintDocument(document);
    }
    if (!mbQuiet) PrintLine(Printable(item.name) + " = " + Printable(item.value));
}

void tcItems::List()
{
    const std::vector<tsItem> items = Chosen();
    if (mbJson) {
        nlohmann::ordered_json document = Document();
        document["items"] = nlohmann::ordered_json::array();
        for (const tsItem& item : items) {
            document["items"].push_back(ItemDocument(item));
        }
        return PrintDocument(document);
    }
    if (mbQuiet) return;
    size_t names = 0, values = 0;
    for (const tsItem& item : items) {
        names = std::max(names, Printable(item.name).size());
        values = std::max(values, Printable(item.value).size());
    }
    for (const tsItem& item : items) {
        const std::string name = Printable(item.name), value = Printable(item.value);
        std::string line = name;
        line.append(names - name.size() + 2 + values - value.size(), ' ');
        PrintLine(line.append(value).append("  ").append(Printable(item.description)));
    }
}

void tcItems::Get()
{
    tsItem item = Find(msName);
    item.value = Value(msName);
    Print(item);
}

void tcItems::Set()
{
    tsItem item = Find(msName);
    if (!FitsItem(item.value, msValue)) {
        throw tcFailure(eExitUsage,
                        Printable(msName) + " takes whole numbers of 32 bits, not " + msValue);
    }
    const std::string before = item.value;
    Ask("SET:" + msName + "=" + msValue);
    item.value = Value(msName);
    if (SameItemValue(item.value, msValue)) {
        std::this_thread::sleep_for(gtSettling);
        item.value = Value(msName);
    }
    Print(item);
    if (SameItemValue(item.value, msValue)) return;
    throw tcFailure(eExitCamera, "the process does not take " + msValue + ": " + Printable(msName) +
                                     " is " + Printable(item.value));
}

} // namespace

std::unique_ptr<tcVerb> MakeItems()
{
    return std::make_unique<tcItems>();
}
