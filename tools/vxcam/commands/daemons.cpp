// vxcam daemons: finds the processes that announce a debug daemon.
#include "announcement.h"
#include "arguments.h"
#include "failure.h"
#include "logrecord.h"
#include "program.h"
#include "report.h"
#include "tcDatagrams.h"
#include "tcService.h"

#include <vxcamkit/discover.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <tuple>

const char* const gsDaemonsExamples =
    R"(  vxcam daemons                     listens for 6 seconds; each announces itself every 5
  vxcam daemons --count 1           until the first one is found
  vxcam daemons --group 239.1.2.3:9000 --for 20s)";

namespace {

constexpr uint16_t gnGroupPort = 7020;
constexpr const char* gsGroup = "239.192.100.100";
constexpr size_t gnMostDaemons = 10000;
constexpr std::chrono::seconds gtPatience{1}; // for the answer of one
constexpr std::chrono::seconds gtTries{10};   // for those of all

struct tsDaemon {
    std::string name, address;
    uint16_t port = 0;
    int announcements = 0;
    std::optional<bool> answers = {}; // nothing when there was no time to try
};

bool Answers(const std::string& address, uint16_t port)
{
    try {
        tcService daemon({address, port}, "debug daemon", gtPatience);
        return daemon.Ask("ECHO:vxcam").rfind("vxcam", 0) == 0;
    } catch (const tcFailure& failure) {
        if (failure.Code() >= eExitSignal) throw;
        return false;
    }
}

// A daemon of this host may listen on loopback and be heard from elsewhere.
void FindWhereItAnswers(tsDaemon* daemon, const std::vector<vxcam::HostInterface>& interfaces)
{
    daemon->answers = Answers(daemon->address, daemon->port);
    const bool isOwn = std::any_of(interfaces.begin(), interfaces.end(),
                                   [&](const auto& one) { return one.address == daemon->address; });
    if (*daemon->answers || !isOwn || !Answers("127.0.0.1", daemon->port)) return;
    daemon->address = "127.0.0.1";
    daemon->answers = true;
}

// What the processes take, too.
std::string UsualGroup()
{
    const char* group = std::getenv("DBGD_ANNOUCE_GROUP");
    return group != nullptr && *group != '\0' ? group : gsGroup;
}

class tcDaemons : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;

private:
    void Listen(tcDatagrams& datagrams, std::chrono::milliseconds duration);
    void Note(const tsDatagram& datagram);
    void FindWhereTheyAnswer();
    void Print() const;
    nlohmann::ordered_json Document() const override;

    std::string msGroup = UsualGroup(), msInterface, msDuration = "6s";
    size_t mnCount = 0;
    bool mbQuiet = false;
    std::vector<tsDaemon> maDaemons;
};

void tcDaemons::Declare(tcCommandLine& line)
{
    line.Option("--group", &msGroup, "GROUP",
                "ADDRESS or ADDRESS:PORT where they announce themselves");
    line.Option("--interface", &msInterface, "ADDRESS",
                "local address of the interface to listen on, instead of all");
    line.Option("--for", &msDuration, "TIME", "how long to listen");
    line.Option("-n,--count", &mnCount, "NUMBER",
                "end when so many are found; 0: listen all the time");
    line.Flag("--json", &mbJson, "print one JSON document");
    DeclareQuiet(line, &mbQuiet);
}

void tcDaemons::Note(const tsDatagram& datagram)
{
    const auto heard = ParseAnnouncement(datagram.bytes);
    if (!heard) return;
    const auto known =
        std::find_if(maDaemons.begin(), maDaemons.end(), [&](const tsDaemon& daemon) {
            return daemon.name == heard->name && daemon.address == datagram.address &&
                   daemon.port == heard->port;
        });
    if (known != maDaemons.end()) {
        ++known->announcements;
    } else if (maDaemons.size() < gnMostDaemons) {
        maDaemons.push_back({heard->name, datagram.address, heard->port, 1});
    }
}

void tcDaemons::Listen(tcDatagrams& datagrams, std::chrono::milliseconds duration)
{
    const auto deadline = std::chrono::steady_clock::now() + duration;
    do {
        const auto datagram = datagrams.Receive(deadline);
        if (!datagram) return;
        Note(*datagram);
    } while ((mnCount == 0 || maDaemons.size() < mnCount) &&
             std::chrono::steady_clock::now() < deadline);
}

void tcDaemons::FindWhereTheyAnswer()
{
    const std::vector<vxcam::HostInterface> interfaces = vxcam::hostInterfaces();
    const auto deadline = std::chrono::steady_clock::now() + gtTries;
    std::vector<tsDaemon> found;
    for (tsDaemon& daemon : maDaemons) {
        if (std::chrono::steady_clock::now() < deadline) FindWhereItAnswers(&daemon, interfaces);
        const auto same = std::find_if(found.begin(), found.end(), [&](const tsDaemon& other) {
            return std::tie(other.address, other.port, other.name) ==
                   std::tie(daemon.address, daemon.port, daemon.name);
        });
        if (same == found.end()) {
            found.push_back(daemon);
        } else {
            same->announcements += daemon.announcements;
        }
    }
    maDaemons = found;
}

nlohmann::ordered_json tcDaemons::Document() const
{
    nlohmann::ordered_json document{{"group", msGroup},
                                    {"daemons", nlohmann::ordered_json::array()}};
    for (const tsDaemon& daemon : maDaemons) {
        document["daemons"].push_back({{"name", daemon.name},
                                       {"address", daemon.address},
                                       {"port", daemon.port},
                                       {"announcements", daemon.announcements},
                                       {"answers", nullptr}});
        if (daemon.answers) document["daemons"].back()["answers"] = *daemon.answers;
    }
    return document;
}

void tcDaemons::Print() const
{
    if (mbJson) return PrintDocument(Document());
    if (mbQuiet) return;
    for (const tsDaemon& daemon : maDaemons) {
        PrintLine(daemon.address + ":" + std::to_string(daemon.port) + "  " +
                  Printable(daemon.name) +
                  (daemon.answers.value_or(true) ? "" : " (does not answer)"));
    }
}

void tcDaemons::Run()
{
    const std::chrono::milliseconds duration = ParseDuration(msDuration);
    const tsEndpoint group = ParseEndpoint("group", msGroup, gnGroupPort);
    msGroup = group.host + ":" + std::to_string(group.port);
    tcDatagrams datagrams({"0.0.0.0", group.port, group.host, msInterface});
    Listen(datagrams, duration);
    FindWhereTheyAnswer();
    std::sort(maDaemons.begin(), maDaemons.end(), [](const tsDaemon& a, const tsDaemon& b) {
        return std::tie(a.address, a.port, a.name) < std::tie(b.address, b.port, b.name);
    });
    if (maDaemons.empty()) {
        throw tcFailure(eExitNoCamera, "no process announced itself to " + msGroup + " within " +
                                           DurationText(duration));
    }
    Print();
}

} // namespace

std::unique_ptr<tcVerb> MakeDaemons()
{
    return std::make_unique<tcDaemons>();
}
