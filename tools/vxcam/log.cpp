// vxcam log: the loggers of a process, through its debug daemon.
#include "arguments.h"
#include "failure.h"
#include "logrecord.h"
#include "program.h"
#include "report.h"
#include "tail.h"
#include "tcLogOutput.h"
#include "tcLogService.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

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
    void Declare(CLI::App& app) override;
    void Run() override { (this->*mpAction)(); }
    nlohmann::ordered_json Document() const override;

private:
    using tpAction = void (tcLogVerb::*)();

    CLI::App* Action(CLI::App& app, const char* name, const char* summary, tpAction action);
    void DeclareChanges(CLI::App& app);
    void DeclareTail(CLI::App& app);

    void List();
    void Get();
    void Set();
    void Uri();
    void Dump();
    void Errors();
    void Enable();
    void Tail();

    tcLogService Open() const;
    void Name(CLI::App* action);
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

CLI::App* tcLogVerb::Action(CLI::App& app, const char* name, const char* summary, tpAction action)
{
    CLI::App* const declared = app.add_subcommand(name, summary);
    declared->fallthrough();
    declared->callback([this, action] { mpAction = action; });
    return declared;
}

void tcLogVerb::Name(CLI::App* action)
{
    action->add_option("NAME", msName, "the logger")->type_name("")->required();
}

void tcLogVerb::Declare(CLI::App& app)
{
    app.add_option("TARGET", msTarget, "HOST or HOST:PORT; without a port 17020")
        ->type_name("")
        ->required();
    app.add_option("--timeout", msTimeout, "how long the process may be silent")
        ->type_name("TIME")
        ->capture_default_str();
    DeclareQuiet(app, &mbQuiet);
    app.require_subcommand(1);
    CLI::App* const list = Action(app, "list", "list the loggers", &tcLogVerb::List);
    CLI::App* const get = Action(app, "get", "show one logger", &tcLogVerb::Get);
    CLI::App* const dump = Action(app, "dump", "show what was captured", &tcLogVerb::Dump);
    CLI::App* const errors = Action(app, "errors", "show the last errors", &tcLogVerb::Errors);
    for (CLI::App* named : {get, dump}) {
        Name(named);
    }
    errors->add_option("-n,--last", mnLast, "show only so many, the youngest; 0: all")
        ->type_name("NUMBER")
        ->capture_default_str();
    for (CLI::App* action : {list, get, dump, errors}) {
        action->add_flag("--json", mbJson, "print one JSON document");
    }
    DeclareChanges(app);
    DeclareTail(app);
}

void tcLogVerb::DeclareChanges(CLI::App& app)
{
    CLI::App* const set = Action(app, "set", "set a level, and where records go", &tcLogVerb::Set);
    Name(set);
    set->add_option("LEVEL", mnLevel, "debug records up to it; -N: those of level N only")
        ->type_name("")
        ->required();
    set->add_option("WHERE", msWhere,
                    "a number of lines to keep, a file of the process, - for its standard output, "
                    ". to leave it; nothing: where they went before")
        ->type_name("");
    CLI::App* const uri = Action(app, "uri", "send records somewhere else", &tcLogVerb::Uri);
    Name(uri);
    uri->add_option("URI", msUri,
                    "udp:ADDRESS:PORT[:bin], buff:LINES, file:NAME, cout or null; nothing: where "
                    "they went before")
        ->type_name("");
    CLI::App* const enable =
        Action(app, "enable", "switch all debug records on or off", &tcLogVerb::Enable);
    enable->add_option("SWITCH", msSwitch, "on or off")
        ->type_name("")
        ->check(CLI::IsMember({"on", "off", "1", "0"}))
        ->required();
    for (CLI::App* action : {set, uri, enable}) {
        action->add_flag("--json", mbJson, "print one JSON document");
    }
}

void tcLogVerb::DeclareTail(CLI::App& app)
{
    CLI::App* const tail = Action(app, "tail", "show records as they come", &tcLogVerb::Tail);
    Name(tail);
    tail->add_option("--level", mtTail.level, "the logger's level for this time")
        ->type_name("NUMBER");
    tail->add_flag("--binary", mtTail.binary, "have the records sent in binary");
    tail->add_option("--address", mtTail.address,
                     "where the process sends them, instead of this host's address as it sees it")
        ->type_name("ADDRESS");
    tail->add_option("--port", mtTail.port, "UDP port they are sent to; 0 takes a free one")
        ->type_name("NUMBER")
        ->capture_default_str();
    tail->add_option("-n,--count", mtTail.end.count, "end after so many records; 0: go on")
        ->type_name("NUMBER")
        ->capture_default_str();
    tail->add_option("--for", msDuration, "end after this time")->type_name("TIME");
    tail->add_flag("--force", mtTail.force, "also when that loses records that were captured");
    tail->add_flag("--json", mbJsonLines, "one JSON object a line");
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
    const tsLogger logger = Open().Set(msName, mnLevel, msWhere);
    const long lines = std::strtol(msWhere.c_str(), nullptr, 10);
    const bool isCaptured = !msWhere.empty() && msWhere != "." && msWhere != "-";
    const std::string wanted = lines != 0 ? std::to_string(lines) + " Line Buffer" : msWhere;
    Print(logger);
    if (!isCaptured || logger.consumer == wanted) return;
    throw tcFailure(eExitCamera, "the process " + (lines != 0 ? "keeps no " + msWhere + " lines"
                                                              : "cannot write " + msWhere));
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
    const std::optional<std::string> captured = Open().Dump(msName);
    if (captured) return PrintRecords(LogLinesInOrder(*captured));
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
