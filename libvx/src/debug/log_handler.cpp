// LOG: loggers over the network.
#include "HSocket.h"
#include "StringTokenizer.h"
#include "background.h"
#include "lifetime.h"
#include "replybuffer.h"
#include "tcDbgd.h"
#include "tcLog.h"
#include "tcLogConsumer.h"
#include "vxvisible.h"

#include <sys/auxv.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>

namespace {

constexpr const char* pWordSeparators = " \t";

void AnnounceLookup(const std::string& name)
{
    tcDbgd::GetLog().logDebug(5, "tcDbgdWB_Log::Looking for log name %s (%d)", name.c_str(),
                              static_cast<int>(name.size()));
}

// "name = level [consumer]" of a logger that cannot go away meanwhile.
std::string LevelAndConsumer(const std::string& name, const tcLog& log)
{
    std::string text = name + " = " + std::to_string(log.getDbgLevel());
    if (const tcHeldConsumer consumer = log.HeldConsumer())
        text.append(" [").append(vx::Visible(consumer->Description())).append("]");
    return text;
}

// One line for each registered logger, in order, made by `line`.
template <typename tLine>
std::string LinePerLogger(tLine line)
{
    const tcLogGuard guard;
    std::string text;
    for (const auto& entry : tcLog::CopyOfMap()) {
        if (!entry.second) continue;
        text += line(entry.first, *entry.second);
        text += " (" + entry.second->GetDescription() + ")\n";
    }
    return text;
}

std::array<tcLogConsumer**, 3> FieldsOf(tcLogInfo& info)
{
    return {&info.uriConsumer, &info.createdConsumer, &info.savedConsumer};
}

// Puts a consumer into a field of a record. What stood there is closed when the library owns it and
// nobody else uses it.
void Put(tcLogConsumer*& field, tcLogConsumer* consumer)
{
    tcLogConsumer* before = vx::Keep(&field, consumer);
    if (!before) return;
    if (before != consumer) vx::RetireOwned(before);
    tcLog::ReleaseConsumer(before);
}

tcHeldConsumer Kept(tcLogConsumer*& field)
{
    tcLogConsumer* consumer = vx::HoldKept(&field);
    tcHeldConsumer kept(consumer);
    tcLog::ReleaseConsumer(consumer);
    return kept;
}

// Makes a consumer the library's, or deletes it.
void Adopt(tcLogConsumer* consumer)
{
    try {
        tcLog::AdoptConsumer(consumer);
    } catch (...) {
        const bool isPermanent =
            consumer == tcLog::mpDefaultConsumer || consumer == tcLog::NullConsumer();
        if (!isPermanent) delete consumer;
        throw;
    }
}

// False when there is no such logger.
bool SetLevel(const std::string& name, int level)
{
    const tcLogGuard guard;
    tcLog* log = tcLog::FindLogPtr(name.c_str());
    if (!log) return false;
    tcDbgd::GetLog().logDebug(5, "tcDbgdWB_log::Set %s to %d", name.c_str(), level);
    log->setDbgLevel(level);
    return true;
}

// Whether the file word of SET names a file.
bool IsFile(const std::string& word)
{
    return !word.empty() && word != "-" && word != "." &&
           std::strtol(word.c_str(), nullptr, 10) == 0;
}

// What opens files or sends somewhere is not for everybody.
bool Refuses(HSocket* client, const char* what)
{
    tcDbgd* daemon = tcDbgd::getItem();
    if (daemon && daemon->Trusts(client)) return false;
    HInetAddr peer;
    if (client) peer.GetPeerName(*client);
    std::string reason = " in a program with raised privileges";
    if (getauxval(AT_SECURE) == 0)
        reason = std::string(": DBGD_ALLOW does not name ") + peer.GetIPAddr();
    tcDbgd::GetLog().logDebug(1, "tcDbgdWB_log: %s refused to %s", what, peer.GetIPAddr());
    vx::Reply(client, std::string("ERROR: ") + what + " is refused" + reason + "\n");
    return true;
}

// The consumer that the file word of SET asks for; null when it asks for nothing that can be had.
tcLogConsumer* BuildFromWord(const std::string& word)
{
    const long lines = std::strtol(word.c_str(), nullptr, 10);
    if (lines < 0 || lines > tcLogBuffer::nMaximumLines) return nullptr;
    if (lines != 0) return new tcLogBuffer(static_cast<int>(lines));
    if (word == "-") return new tcLogStream(std::cout);
    return new tcLogFile(word.c_str());
}

} // namespace

tcDbgdWB_log::tcDbgdWB_log()
    : tcDbgdWB("LOG",
               "LOG:LIST \n"
               "LOG:SET <name> <level> [file]\n"
               "LOG:GET <name>\n"
               "LOG:DUMP <name>\n"
               "LOG:ENABLE <1|0>\n"
               "   LIST lists all known debug loggers\n"
               "   SET allows setting of specified logs level\n"
               "   and file. setting a level w/o a file will close any open file\n"
               "   if file is a number, a circular buffer of that many lines will be created\n"
               "   GET will result in the level to be reported back\n"
               "   DUMP will dump the contents of a log buffer\n"
               "   ERRS will dump the contents of the error buffer\n"
               "   ENABLE turns on and off all logging globally\n")
{}

tcDbgdWB_log::~tcDbgdWB_log()
{
    for (const auto& entry : mmLogInfo) {
        Put(entry.second->uriConsumer, nullptr);
        Put(entry.second->createdConsumer, nullptr);
        Put(entry.second->savedConsumer, nullptr);
        for (tcLogConsumer** field : FieldsOf(*entry.second))
            vx::RemovePointer(field);
        delete entry.second;
    }
}

void tcDbgdWB_log::Run(HSocket* client, char* command)
{
    const auto starts = [command](const char* word) {
        return std::strncmp(command, word, std::strlen(word)) == 0;
    };
    tcDbgd::GetLog().logDebug(5, "tcDbgdWB_log:Run command = %s", command);
    // Kept: after LIST the search goes on, and ends in the line about an unknown command.
    if (starts("LIST")) List(client);
    if (starts("DIR")) return Dir(client);
    if (starts("URI")) return SetURI(client, command);
    if (starts("SET")) return Set(client, command);
    if (starts("GET")) return Get(client, command);
    if (starts("ENABLE")) return Enable(client, command);
    if (starts("DUMP")) return Dump(client, command);
    if (starts("ERRS")) return Errs(client, command);
    tcDbgd::GetLog().logDebug(5, "tcDbgdWB_log: unknown command = %s", command);
}

void tcDbgdWB_log::List(HSocket* client)
{
    vx::Reply(client, LinePerLogger(LevelAndConsumer));
}

void tcDbgdWB_log::Dir(HSocket* client)
{
    vx::Reply(client, LinePerLogger([](const std::string& name, const tcLog& log) {
                  std::string text = name + "," + std::to_string(log.getDbgLevel()) + ",";
                  const tcHeldConsumer consumer = log.HeldConsumer();
                  if (!consumer) return text + "UNK";
                  return text.append(vx::Visible(consumer->TypeName()))
                      .append(vx::Visible(consumer->Options()));
              }));
}

void tcDbgdWB_log::Get(HSocket* client, char* command)
{
    StringTokenizer words(command, pWordSeparators);
    words.nextToken();
    const std::string name = words.nextToken();
    AnnounceLookup(name);
    std::string reply = "ERROR";
    {
        const tcLogGuard guard;
        if (const tcLog* log = tcLog::FindLogPtr(name.c_str()))
            reply = LevelAndConsumer(name, *log) + "\n";
    }
    vx::Reply(client, reply);
}

void tcDbgdWB_log::Enable(HSocket*, char* command)
{
    StringTokenizer words(command, pWordSeparators);
    words.nextToken();
    if (words.hasMoreTokens())
        tcLog::sbDebugEnabled = words.nextIntToken() != 0;
    else
        tcDbgd::GetLog().logDebug(5, "Enable Command did not supply second arguement");
}

void tcDbgdWB_log::Errs(HSocket* client, char*)
{
    vx::Reply(client, tcLog::ErrorBuffer());
}

void tcDbgdWB_log::Set(HSocket* client, char* command)
{
    StringTokenizer words(command, pWordSeparators);
    words.nextToken();
    const std::string name = words.nextToken();
    AnnounceLookup(name);
    if (!words.hasMoreTokens()) {
        tcDbgd::GetLog().logDebug(5, "No level specified in Set");
        return;
    }
    const int level = words.nextIntToken();
    const std::string file = words.nextToken();
    if (IsFile(file) && Refuses(client, "LOG:SET with a file")) return;
    if (!SetLevel(name, level)) {
        vx::Reply(client, "ERROR");
        return;
    }
    if (file.empty()) return Restore(name);
    if (!IsRedirectable(name) || file == ".") return;
    if (tcLogConsumer* consumer = BuildFromWord(file))
        RedirectTo(name, consumer, false);
    else
        tcDbgd::GetLog().logDebug(5, "tcDbgdWB_log::Set cannot make a buffer of %s lines",
                                  file.c_str());
}

void tcDbgdWB_log::SetURI(HSocket* client, char* command)
{
    StringTokenizer words(command, pWordSeparators);
    words.nextToken();
    const std::string name = words.nextToken();
    AnnounceLookup(name);
    {
        const tcLogGuard guard;
        if (!tcLog::FindLogPtr(name.c_str())) {
            tcDbgd::GetLog().logDebug(5, "Log %s not found!", name.c_str());
            return;
        }
    }
    const bool isOurs = IsRedirectable(name);
    const std::string rest = words.remainingString();
    const size_t start = rest.find_first_not_of(pWordSeparators);
    if (start == std::string::npos) return Restore(name);
    if (Refuses(client, "LOG:URI")) return;
    const std::string uri = rest.substr(start);
    tcDbgd::GetLog().logDebug(5, "tcDbgdWB_log::Set URI for %s to %s", name.c_str(), uri.c_str());
    if (isOurs) RedirectTo(name, tcLog::BuildConsumer(uri.c_str()), true);
}

void tcDbgdWB_log::Dump(HSocket* client, char* command)
{
    StringTokenizer words(command, pWordSeparators);
    words.nextToken();
    const std::string name = words.nextToken();
    AnnounceLookup(name);
    tcHeldConsumer consumer;
    {
        const std::lock_guard<std::recursive_mutex> guard(mhLock);
        tcLogInfo* info = FindLogInfoPtr(name.c_str());
        if (info) consumer = Kept(info->createdConsumer);
    }
    if (!consumer) {
        vx::Reply(client, "ERROR");
        return;
    }
    vx::tcReplyBuffer buffer(client);
    std::ostream os(&buffer);
    consumer->Dump(os, nullptr);
    buffer.Flush();
}

tcLogInfo* tcDbgdWB_log::FindLogInfoPtr(char const* name)
{
    const std::lock_guard<std::recursive_mutex> guard(mhLock);
    const auto entry = mmLogInfo.find(name ? name : "");
    return entry == mmLogInfo.end() ? nullptr : entry->second;
}

tcLogInfo* tcDbgdWB_log::RecordFor(const std::string& name, tcLog* log)
{
    const auto known = mmLogInfo.find(name);
    if (known != mmLogInfo.end()) return known->second;
    auto record = std::make_unique<tcLogInfo>();
    record->log = log;
    const auto entry = mmLogInfo.emplace(name, record.get()).first;
    try {
        for (tcLogConsumer** field : FieldsOf(*record))
            vx::AddPointer(field);
    } catch (...) {
        for (tcLogConsumer** field : FieldsOf(*record))
            vx::RemovePointer(field);
        mmLogInfo.erase(entry);
        throw;
    }
    return record.release();
}

// Whether the record of the name, made here if need be, belongs to the logger of that name.
bool tcDbgdWB_log::IsRedirectable(const std::string& name)
{
    const std::lock_guard<std::recursive_mutex> guard(mhLock);
    const tcLogGuard logGuard;
    tcLog* log = tcLog::FindLogPtr(name.c_str());
    return log && RecordFor(name, log)->log == log;
}

// Takes `consumer` over.
void tcDbgdWB_log::RedirectTo(const std::string& name, tcLogConsumer* consumer, bool isUri)
{
    Adopt(consumer);
    const tcHeldConsumer inUse(consumer);
    const std::lock_guard<std::recursive_mutex> guard(mhLock);
    const tcLogGuard logGuard;
    tcLog* log = tcLog::FindLogPtr(name.c_str());
    if (!log || !IsRedirectable(name)) return vx::RetireOwned(consumer);

    tcLogInfo* info = FindLogInfoPtr(name.c_str());
    const tcHeldConsumer replaced = log->ExchangeConsumer(consumer);
    // A second URI in a row, or a second file, takes the place of the first: what was there before
    // stays saved.
    const bool isSecond =
        isUri ? replaced.get() == info->uriConsumer
              : replaced.get() == info->createdConsumer && replaced.get() != info->uriConsumer;
    if (!isSecond) Put(info->savedConsumer, replaced.get());
    Put(info->createdConsumer, consumer);
    if (isUri) Put(info->uriConsumer, consumer);
}

// Undoes the redirection of a logger that is still the one that was redirected.
void tcDbgdWB_log::Restore(const std::string& name)
{
    const std::lock_guard<std::recursive_mutex> guard(mhLock);
    const tcLogGuard logGuard;
    tcLogInfo* info = FindLogInfoPtr(name.c_str());
    tcLog* log = tcLog::FindLogPtr(name.c_str());
    if (!info || !log || info->log != log || !info->createdConsumer) return;
    const tcHeldConsumer saved = Kept(info->savedConsumer);
    log->SetConsumer(saved.get());
    if (info->uriConsumer == info->createdConsumer) Put(info->uriConsumer, nullptr);
    Put(info->createdConsumer, nullptr);
    tcLogConsumer* still = vx::Keep(&info->savedConsumer, nullptr);
    if (still != saved.get()) log->SetConsumer(nullptr); // its owner has destroyed it just now
    tcLog::ReleaseConsumer(still);
}
