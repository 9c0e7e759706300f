#include "faultitems.h"

#include "faultkinds.h"
#include "tcDbgItem.h"

#include <algorithm>
#include <stdexcept>

namespace {

constexpr std::chrono::milliseconds gtStep{20};
constexpr std::chrono::milliseconds gtShown{500}; // a value stays, so that who set it sees it
constexpr float gnByItself = -1;

std::string ItemName(const char* prefix, std::string name)
{
    std::replace(name.begin(), name.end(), '-', '_');
    return prefix + name;
}

} // namespace

tcFaultItems::tcFaultItems(tcSimServer& server, std::function<void(const std::string&)> complain)
    : mtServer(server), mpComplain(std::move(complain))
{
    for (size_t i = 0; i < gnSimFaultKinds; ++i) {
        const auto kind = static_cast<teSimFault>(i);
        const std::string name = ItemName("fault_", NameOf(kind));
        const int left = Left(kind);
        int* const value = tcDbgItem::AddItem(
            name, left, std::string("times: ") + KindOf(kind).effect + "; -1: always, 0: never");
        maKinds.push_back({kind, name, value, left});
    }
    for (const std::string& word : SimFaultWords()) {
        if (word == "times") continue;
        const std::string name = ItemName("with_", word);
        maWords.push_back({word, name,
                           tcDbgItem::AddItem(name, gnByItself,
                                              word + " of the fault that is set next; -1: as it "
                                                     "has it by itself")});
    }
    mpChanges = tcDbgItem::AddItem("fault_changes", 0, "faults taken over from these items");
    mtThread = std::thread([this] {
        for (; !mbStop; std::this_thread::sleep_for(gtStep)) {
            Follow();
        }
    });
}

tcFaultItems::~tcFaultItems()
{
    mbStop = true;
    mtThread.join();
}

int tcFaultItems::Left(teSimFault kind) const
{
    int64_t left = 0;
    for (const tsSimFaultState& state : mtServer.Faults()) {
        if (state.fault.kind != kind) continue;
        if (state.fault.times == 0) return -1;
        left += std::max<int64_t>(state.fault.times - state.struck, Lasts(kind) ? 1 : 0);
    }
    return static_cast<int>(std::min<int64_t>(left, 0x7FFFFFFF));
}

void tcFaultItems::Follow()
{
    for (tsKindItem& item : maKinds) {
        const int now = __atomic_load_n(item.value, __ATOMIC_RELAXED);
        if (now != item.told) {
            Change(item, now);
            continue;
        }
        const int left = Left(item.kind);
        if (left == item.told || tpClock::now() < item.until) continue;
        item.told = left;
        tcDbgItem::SetItem(item.name, left);
    }
}

void tcFaultItems::Change(tsKindItem& item, int wanted)
{
    item.told = wanted;
    item.until = tpClock::now() + gtShown;
    mtServer.Lift([&item](const tsSimFaultState& state) { return state.fault.kind == item.kind; });
    try {
        if (wanted != 0) mtServer.Inject(Made(item, wanted));
        __atomic_add_fetch(mpChanges, 1, __ATOMIC_RELAXED);
    } catch (const std::runtime_error& error) {
        item.until = {};
        mpComplain(item.name + ": " + error.what());
    }
}

tsSimFault tcFaultItems::Made(const tsKindItem& item, int times)
{
    tsSimFault fault = MakeSimFault(NameOf(item.kind));
    fault.times = std::max(times, 0);
    std::string trouble;
    for (const tsWordItem& word : maWords) {
        float value = 0;
        __atomic_load(word.value, &value, __ATOMIC_RELAXED);
        if (value == gnByItself) continue;
        tcDbgItem::SetItem(word.name, gnByItself);
        try {
            SetSimFault(&fault, word.word, static_cast<double>(value));
        } catch (const std::runtime_error& error) {
            trouble = error.what();
        }
    }
    if (!trouble.empty()) throw std::runtime_error(trouble);
    return fault;
}
