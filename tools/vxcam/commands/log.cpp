// vxcam log: the loggers of a process, through its debug daemon.
#include "arguments.h"
#include "failure.h"
#include "logrecord.h"
#include "program.h"
#include "report.h"
#include "tail.h"
#include "tcLogOutput.h"
#include "tcLogService.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <utility>

const char* const gsLogExamples =
    R"(  vxcam log 192.168.1.20 list                the loggers: name, level, where records go
  vxcam log 192.168.1.20 set VXCAM1 4 200    level 4, the last 200 records are kept ...
  vxcam log 192.168.1.20 dump VXCAM1         ... and shown
  vxcam log 192.168.1.20 set VXCAM1 0        level 0, and records go where they went before
  vxcam log 192.168.1.20:18000 tail VXCAM1 --level 4 --for 1min)";

namespace {

class tcLogVerb : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override { (this->*mpAction)(); }
    nlohmann::ordered_json Document() const override;

private:
    using tpAction = void (tcLogVerb::*)();

    tcCommandLine Action(tcCommandLine& line, const char* name, const char* summary,
                         tpAction action);
    void DeclareChanges(tcCommandLine& line);
    void DeclareTail(tcCommandLine& line);

    void List();
    void Get();
    void Set();
    void Uri();
    void Dump();
    void Errors();
    void Enable();
    void Tail();

    tcLogService Open() const;
    void Name(tcCommandLine& action);
    void Print(const tsLogger& logger) const;
    void PrintRecords(const std::vector<std::string>& records) const;
    void PrintNoted(const nlohmann::ordered_json& more) const;

    tpAction mpAction = nullptr;
    std::string msTarget, msTimeout = "5s", msName, msWhere, msUri, msSwitch, msDuration;
    int mnLevel = 0;
    size_t mnLast = 0;
    bool mbQuiet = false, mbJsonLines = false;
    tsTailChoice mtTail;
};

tcCommandLine tcLogVerb::Action(tcCommandLine& line, const char* name, const char* summary,
                                tpAction action)
{
    return line.Action(name, summary, [this, action] { mpAction = action; });
}

void tcLogVerb::Name(tcCommandLine& action)
{
    action.Operand("NAME", &msName, "the logger").Required();
}

void tcLogVerb::Declare(tcCommandLine& line)
{
    line.Operand("TARGET", &msTarget, "HOST or HOST:PORT; without a port 17020").Required();
    line.Option("--timeout", &msTimeout, "TIME", "how long the process may be silent");
    DeclareQuiet(line, &mbQuiet);
    tcCommandLine list = Action(line, "list", "list the loggers", &tcLogVerb::List);
    tcCommandLine get = Action(line, "get", "show one logger", &tcLogVerb::Get);
    tcCommandLine dump = Action(line, "dump", "show what was captured", &tcLogVerb::Dump);
    tcCommandLine errors = Action(line, "errors", "show the last errors", &tcLogVerb::Errors);
    Name(get);
    Name(dump);
    errors.Option("-n,--last", &mnLast, "NUMBER", "show only so many, the youngest; 0: all");
    for (tcCommandLine action : {list, get, dump, errors}) {
        action.Flag("--json", &mbJson, "print one JSON document");
    }
    DeclareChanges(line);
    DeclareTail(line);
}

void tcLogVerb::DeclareChanges(tcCommandLine& line)
{
    tcCommandLine set = Action(line, "set", "set a level, and where records go", &tcLogVerb::Set);
    Name(set);
    set.Operand("LEVEL", &mnLevel, "debug records up to it; -N: those of level N only").Required();
    set.Operand("WHERE", &msWhere,
                "a number of lines to keep, a file of the process, - for its standard output, "
                ". to leave it; nothing: where they went before");
    tcCommandLine uri = Action(line, "uri", "send records somewhere else", &tcLogVerb::Uri);
    Name(uri);
    uri.Operand("URI", &msUri,
                "udp:ADDRESS:PORT[:bin], buff:LINES, file:NAME, cout or null; nothing: where "
                "they went before");
    tcCommandLine enable =
        Action(line, "enable", "switch all debug records on or off", &tcLogVerb::Enable);
    enable.Operand("SWITCH", &msSwitch, "on or off")
        .OneOf({"on", "off", "1", "0"})
        .Offers({"on", "off"})
        .Required();
    for (tcCommandLine action : {set, uri, enable}) {
        action.Flag("--json", &mbJson, "print one JSON document");
    }
}

void tcLogVerb::DeclareTail(tcCommandLine& line)
{
    tcCommandLine tail = Action(line, "tail", "show records as they come", &tcLogVerb::Tail);
    Name(tail);
    tail.Option("--level", &mtTail.level, "NUMBER", "the logger's level for this time");
    tail.Flag("--binary", &mtTail.binary, "have the records sent in binary");
    tail.Option("--address", &mtTail.address, "ADDRESS",
                "where the process sends them, instead of this host's address as it sees it");
    tail.Option("--port", &mtTail.port, "NUMBER", "UDP port they are sent to; 0 takes a free one");
    tail.Option("-n,--count", &mtTail.end.count, "NUMBER", "end after so many records; 0: go on");
    tail.Option("--for", &msDuration, "TIME", "end after this time");
    tail.Flag("--force", &mtTail.force, "also when that loses records that were captured");
    tail.Flag("--json", &mbJsonLines, "one JSON object a line");
}

nlohmann::ordered_json tcLogVerb::Document() const
{
    return {{"target", msTarget}};
}

tcLogService tcLogVerb::Open() const
{
    return {ParseEndpoint("target", msTarget, gnDaemonPort), ParseDuration(msTimeout)};
}

nlohmann::ordered_json LoggerDocument(const tsLogger& logger)
{
    return {{"name", logger.name}, {"level", logger.level}, {"consumer", logger.consumer}};
}

void tcLogVerb::PrintNoted(const nlohmann::ordered_json& more) const
{
    nlohmann::ordered_json document = Document();
    document.update(more);
    PrintDocument(document);
}

void tcLogVerb::Print(const tsLogger& logger) const
{
    if (mbJson) return PrintNoted(LoggerDocument(logger));
    if (mbQuiet) return;
    PrintLine(Printable(logger.name) + ": level " + std::to_string(logger.level) + ", to " +
              (logger.consumer.empty() ? "nothing" : Printable(logger.consumer)));
}

void tcLogVerb::List()
{
    const std::vector<tsLogger> loggers = Open().List();
    if (mbJson) {
        nlohmann::ordered_json document{{"loggers", nlohmann::ordered_json::array()}};
        for (const tsLogger& logger : loggers) {
            document["loggers"].push_back(LoggerDocument(logger));
        }
        return PrintNoted(document);
    }
    if (mbQuiet) return;
    size_t width = 0;
    for (const tsLogger& logger : loggers) {
        width = std::max(width, Printable(logger.name).size());
    }
    for (const tsLogger& logger : loggers) {
        const std::string name = Printable(logger.name);
        const std::string level = std::to_string(logger.level);
        std::string line = name;
        line.append(width - name.size() + 5 - std::min<size_t>(level.size(), 4), ' ');
        PrintLine(line.append(level).append("  ").append(Printable(logger.consumer)));
    }
}

void tcLogVerb::Get()
{
    CheckLogWord("logger", msName);
    Print(Open().Get(msName));
}

void tcLogVerb::Set()
{
    CheckLogWord("logger", msName);
    if (!msWhere.empty()) CheckLogWord("file", msWhere);
    // The process would take it for the name of a file.
    if (!msWhere.empty() && msWhere.find_first_not_of('0') == std::string::npos) {
        throw tcFailure(eExitUsage,
                        "WHERE '" + msWhere +
                            "': keep 1 line or more, or write a file's name that is no number");
    }
    const tsLogger logger = Open().Set(msName, mnLevel, msWhere);
    const long lines = std::strtol(msWhere.c_str(), nullptr, 10);
    const bool isCaptured = !msWhere.empty() && msWhere != "." && msWhere != "-";
    const std::string wanted = lines != 0 ? std::to_string(lines) + " Line Buffer" : msWhere;
    Print(logger);
    if (!isCaptured || logger.consumer == wanted) return;
    throw tcFailure(eExitCamera, "the process " + (lines != 0 ? "keeps no " + msWhere + " lines"
                                                              : "cannot write " + msWhere));
}

// The process itself takes any port, none too, and then sends nothing.
void CheckUdpPort(const std::string& uri)
{
    std::vector<std::string> parts;
    for (size_t at = 0; (at = uri.find_first_not_of(":/", at)) != std::string::npos;) {
        const size_t end = std::min(uri.find_first_of(":/", at), uri.size());
        parts.push_back(uri.substr(at, end - at));
        at = end;
    }
    uint16_t port = 0;
    const std::string text = parts.size() > 2 ? parts[2] : "";
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error == std::errc() && rest == text.data() + text.size() && port != 0) return;
    throw tcFailure(eExitUsage,
                    "URI '" + uri + "': write udp:ADDRESS:PORT; the port is 1 to 65535");
}

void tcLogVerb::Uri()
{
    CheckLogWord("logger", msName);
    if (!msUri.empty()) CheckLogWord("URI", msUri);
    static constexpr std::pair<const char*, const char*> kinds[] = {
        {"udp", "UDP/"}, {"buff", ""}, {"file", ""}, {"cout", "Log to a stream"}, {"null", "NULL"}};
    const std::string scheme = msUri.substr(0, msUri.find_first_of(":/"));
    const auto kind = std::find_if(std::begin(kinds), std::end(kinds),
                                   [&](const auto& one) { return scheme == one.first; });
    if (!msUri.empty() && kind == std::end(kinds)) {
        throw tcFailure(eExitUsage, "URI '" + msUri +
                                        "': it begins with udp, buff, file, cout or "
                                        "null");
    }
    if (scheme == "udp") CheckUdpPort(msUri);
    tcLogService service = Open();
    service.Get(msName);
    const tsLogger logger = service.SetUri(msName, msUri);
    Print(logger);
    if (!msUri.empty() && logger.consumer.rfind(kind->second, 0) != 0) {
        throw tcFailure(eExitCamera, "the process makes nothing of " + msUri);
    }
}

void tcLogVerb::PrintRecords(const std::vector<std::string>& records) const
{
    if (mbJson) {
        nlohmann::ordered_json document{{"records", nlohmann::ordered_json::array()}};
        for (const std::string& record : records) {
            document["records"].push_back(LogLineDocument(record));
        }
        return PrintNoted(document);
    }
    for (const std::string& record : records) {
        if (!mbQuiet) PrintLine(Printable(record));
    }
}

void tcLogVerb::Dump()
{
    CheckLogWord("logger", msName);
    tcLogService service = Open();
    const std::optional<std::string> captured = service.Dump(msName);
    // What goes to a file or to another host leaves nothing here.
    const bool isKept =
        captured && (!captured->empty() || service.Consumer(msName).kind == "BUFFER");
    if (isKept) return PrintRecords(LogLinesInOrder(*captured));
    throw tcFailure(eExitCamera, "nothing of " + msName + " is being captured (vxcam log " +
                                     msTarget + " set " + msName + " LEVEL LINES begins)");
}

void tcLogVerb::Errors()
{
    std::vector<std::string> errors = Open().Errors();
    if (mnLast != 0 && errors.size() > mnLast) {
        errors.erase(errors.begin(), errors.end() - static_cast<std::ptrdiff_t>(mnLast));
    }
    PrintRecords(errors);
}

void tcLogVerb::Enable()
{
    const bool isOn = msSwitch == "on" || msSwitch == "1";
    Open().Enable(isOn);
    if (mbJson) return PrintNoted({{"enabled", isOn}});
    if (!mbQuiet) PrintLine(std::string("debug records are ") + (isOn ? "on" : "off"));
}

void tcLogVerb::Tail()
{
    CheckLogWord("logger", msName);
    if (!mtTail.address.empty()) CheckLogWord("address", mtTail.address);
    if (!msDuration.empty()) mtTail.end.duration = ParseDuration(msDuration);
    mtTail.json = mbJsonLines;
    mtTail.quiet = mbQuiet;
    tcLogService service = Open();
    TailLogger(service, msName, mtTail);
}

} // namespace

std::unique_ptr<tcVerb> MakeLog()
{
    return std::make_unique<tcLogVerb>();
}
