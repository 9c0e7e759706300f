#include "tail.h"

#include "failure.h"
#include "interrupt.h"
#include "logrecord.h"
#include "report.h"

#include <exception>
#include <utility>

namespace {

// How to put back what a redirection of this daemon did; nothing when there is none.
struct tsRedirection {
    std::string where; // of SET
    std::string uri;   // of URI
};

// The redirection that made this consumer. `text` is the consumer in words.
tsRedirection RedirectionTo(const tsLogConsumer& consumer, const std::string& text)
{
    const std::vector<std::string>& settings = consumer.settings;
    const std::string first = settings.empty() ? "" : settings[0];
    if (consumer.kind == "UDP" && settings.size() >= 2) {
        const bool isBinary = text.rfind("UDP/bin", 0) == 0;
        return {"", "udp:" + first + ":" + settings[1] + (isBinary ? ":bin" : ":txt") +
                        (settings.size() > 2 ? ":" + settings[2] : "")};
    }
    if (consumer.kind == "BUFFER" || consumer.kind == "FILE") return {first, ""};
    if (consumer.kind == "STREAM") return {"-", ""};
    return {"", "null"};
}

// A logger while its records come here.
// Owns: the redirection, undone by Restore or by the destructor.
class tcRedirected
{
public:
    tcRedirected(tcLogService& service, const std::string& name, bool force)
        : mtService(service), msName(name), mtBefore(service.Get(name))
    {
        const std::optional<std::string> captured = service.Dump(name);
        if (!captured) return;
        if (!captured->empty() && !force) {
            throw tcFailure(eExitCamera, name + " is being captured (" + mtBefore.consumer +
                                             "), and its records would be lost: dump them first, "
                                             "or use --force");
        }
        mtRedirection = RedirectionTo(service.Consumer(name), mtBefore.consumer);
    }
    ~tcRedirected()
    {
        try {
            Restore();
        } catch (const std::exception&) {
            // Another failure is on its way, which says more.
        }
    }
    tcRedirected(const tcRedirected&) = delete;
    tcRedirected& operator=(const tcRedirected&) = delete;

    // An earlier redirection is undone first: the daemon remembers only one.
    void Start(const std::string& uri, std::optional<int> level)
    {
        mbChanged = true;
        if (mtRedirection) mtService.Set(msName, mtBefore.level, "");
        msConsumer = mtService.SetUri(msName, uri).consumer;
        if (level) mtService.Set(msName, *level, ".");
        if (msConsumer.rfind("UDP/", 0) == 0) return;
        throw tcFailure(eExitCamera, "the process makes nothing of " + uri);
    }
    void Check()
    {
        const tsLogger now = mtService.Get(msName);
        if (now.consumer == msConsumer) return;
        mbChanged = false; // whoever redirected it has the say
        throw tcFailure(eExitCamera,
                        "somebody redirected " + msName + " to " + Printable(now.consumer));
    }
    void Restore()
    {
        if (!std::exchange(mbChanged, false)) return;
        mtService.Service().SetInterruptible(false);
        tsLogger now = mtService.SetUri(msName, "");
        now = mtService.Set(msName, mtBefore.level, ".");
        if (mtRedirection && !mtRedirection->where.empty()) {
            now = mtService.Set(msName, mtBefore.level, mtRedirection->where);
        } else if (mtRedirection) {
            now = mtService.SetUri(msName, mtRedirection->uri);
        }
        mtService.Service().SetInterruptible(true);
        if (now.consumer == mtBefore.consumer) return;
        throw tcFailure(eExitCamera, msName + " is not as it was: its records go to " +
                                         Printable(now.consumer) + ", not to " +
                                         Printable(mtBefore.consumer));
    }

private:
    tcLogService& mtService;
    const std::string msName;
    const tsLogger mtBefore;
    std::optional<tsRedirection> mtRedirection;
    std::string msConsumer;
    bool mbChanged = false;
};

} // namespace

void TailLogger(tcLogService& service, const std::string& name, const tsTailChoice& choice)
{
    tcRedirected logger(service, name, choice.force);
    tcDatagrams datagrams({"0.0.0.0", choice.port, "", ""});
    tcLogOutput output("", false, choice.json);
    const std::string address =
        choice.address.empty() ? service.Service().OwnAddress() : choice.address;
    const std::string uri =
        "udp:" + address + ":" + std::to_string(datagrams.Port()) + (choice.binary ? ":bin" : "");
    logger.Start(uri, choice.level);
    PassOn(datagrams, output, choice.end, [&] { logger.Check(); });
    logger.Restore();
}
