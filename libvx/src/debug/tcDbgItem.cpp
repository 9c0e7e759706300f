#include "tcDbgItem.h"

#include "background.h"
#include "items.h"
#include "vxhoststreams.h"
#include "vxundying.h"
#include "vxvisible.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <memory>
#include <new>
#include <sstream>
#include <utility>
#include <vector>

std::atomic<pthread_t> tcDbgItem::mhThreadId{0};
std::atomic<bool> tcDbgItem::mbThreadDone{false};
std::atomic<unsigned short> tcDbgItem::tcDbgItemPort{7010};
std::atomic<int> tcDbgItem::snClientPatience{10000};

std::recursive_mutex& vx::ItemsLock()
{
    static tcUndying<std::recursive_mutex> room;
    static std::recursive_mutex& lock = room.Make();
    return lock;
}

tcDbgItem::tcDbgItem() : maText{}, mValue{}, meType(eNoValue), msDescription("Not Set") {}

tcDbgItem::tcDbgItem(std::string name, int& variable, int value, std::string description,
                     bool isRegistered)
    : tcDbgItem(std::move(name), value, std::move(description), isRegistered)
{
    variable = value;
}

tcDbgItem::tcDbgItem(std::string name, int value, std::string description, bool isRegistered)
    : maText{}, mValue{}, meType(eInt), msDescription(std::move(description))
{
    mValue.mnInt = value;
    if (isRegistered) Register(name);
}

tcDbgItem::tcDbgItem(std::string name, float value, std::string description, bool isRegistered)
    : maText{}, mValue{}, meType(eFloat), msDescription(std::move(description))
{
    mValue.mnFloat = value;
    if (isRegistered) Register(name);
}

tcDbgItem::tcDbgItem(const tcDbgItem& other)
    : maText{}, mValue(other.Load()), meType(other.meType), msDescription(other.msDescription)
{}

tcDbgItem& tcDbgItem::operator=(const tcDbgItem& other)
{
    if (this == &other) return *this;
    Store(other.Load().mnInt);
    meType = other.meType;
    msDescription = other.msDescription;
    return *this;
}

tcDbgItem::~tcDbgItem() = default;

tcDbgItem::tcDbgItemMap& tcDbgItem::GetMap()
{
    static vx::tcUndying<tcDbgItemMap> room;
    static tcDbgItemMap& map = room.Make();
    return map;
}

void tcDbgItem::Register(const std::string& name)
{
    const std::lock_guard<std::recursive_mutex> guard(vx::ItemsLock());
    GetMap()[name] = this;
}

// Items that others of the same name replace live on, since their values are being read. Null where
// there is no memory for it.
template <typename tNumber>
tcDbgItem* tcDbgItem::Make(const std::string& name, tNumber value, std::string&& description)
{
    static vx::tcUndying<std::vector<tcDbgItem*>> room;
    static std::vector<tcDbgItem*>& items = room.Make();
    const std::lock_guard<std::recursive_mutex> guard(vx::ItemsLock());
    auto item = std::make_unique<tcDbgItem>(name, value, std::move(description), false);
    items.push_back(nullptr);
    try {
        item->Register(name);
    } catch (const std::bad_alloc&) {
        items.pop_back();
        throw;
    }
    return items.back() = item.release();
}

tcDbgItem* tcDbgItem::FindRegistered(const std::string& name)
{
    const std::lock_guard<std::recursive_mutex> guard(vx::ItemsLock());
    const auto entry = GetMap().find(name);
    return entry == GetMap().end() ? nullptr : entry->second;
}

template <typename tNumber>
tcDbgItem::tuValue* tcDbgItem::Add(const std::string& name, tNumber value,
                                   std::string&& description)
{
    try {
        return &Make(name, value, std::move(description))->mValue;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

template <typename tNumber>
tcDbgItem::tuValue* tcDbgItem::FindOrAdd(const std::string& name, tNumber value)
{
    const std::lock_guard<std::recursive_mutex> guard(vx::ItemsLock());
    try {
        tcDbgItem* item = FindRegistered(name);
        if (!item) item = Make(name, value, "FindItem Called before AddItem!");
        return &item->mValue;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

template <typename tNumber>
void tcDbgItem::StoreByName(const std::string& name, tNumber value)
{
    if (tcDbgItem* item = FindRegistered(name)) {
        item->Store(value);
        return;
    }
    // Kept: no blank behind the name.
    vx::Print(std::cout, "Item " + vx::Visible(name) + "Not found!\n");
}

int* tcDbgItem::AddItem(std::string name, int value, std::string description)
{
    tuValue* added = Add(name, value, std::move(description));
    return added ? &added->mnInt : nullptr;
}

float* tcDbgItem::AddItem(std::string name, float value, std::string description)
{
    tuValue* added = Add(name, value, std::move(description));
    return added ? &added->mnFloat : nullptr;
}

int* tcDbgItem::AddItemRetPtr(std::string name, int value, std::string description)
{
    return AddItem(std::move(name), value, std::move(description));
}

int* tcDbgItem::FindItem(std::string name, int value)
{
    tuValue* found = FindOrAdd(name, value);
    return found ? &found->mnInt : nullptr;
}

float* tcDbgItem::FindItem(std::string name, float value)
{
    tuValue* found = FindOrAdd(name, value);
    return found ? &found->mnFloat : nullptr;
}

void tcDbgItem::SetItem(std::string name, int value)
{
    StoreByName(name, value);
}

void tcDbgItem::SetItem(std::string name, float value)
{
    StoreByName(name, value);
}

// Values change while others read them: in one piece.
void tcDbgItem::Store(int value)
{
    __atomic_store_n(&mValue.mnInt, value, __ATOMIC_RELAXED);
}

void tcDbgItem::Store(float value)
{
    int bits;
    static_assert(sizeof bits == sizeof value, "values are 32 bits wide");
    std::memcpy(&bits, &value, sizeof bits);
    Store(bits);
}

tcDbgItem::tuValue tcDbgItem::Load() const
{
    tuValue value;
    value.mnInt = __atomic_load_n(&mValue.mnInt, __ATOMIC_RELAXED);
    return value;
}

char const* tcDbgItem::c_str()
{
    std::snprintf(maText, sizeof maText, "%s", Text().c_str());
    return maText;
}

std::string tcDbgItem::Text() const
{
    char text[sizeof maText];
    const tuValue value = Load();
    switch (meType) {
    case eInt:
        std::snprintf(text, sizeof text, "%d", value.mnInt);
        return text;
    case eFloat:
        std::snprintf(text, sizeof text, "%f", static_cast<double>(value.mnFloat));
        return text;
    case eNoValue:
        break;
    }
    return "No value set!";
}

void tcDbgItem::FromStr(char const* text)
{
    if (!text) return;
    if (meType == eInt) Store(static_cast<int>(std::strtol(text, nullptr, 10)));
    if (meType == eFloat) Store(static_cast<float>(std::strtod(text, nullptr)));
}

std::string tcDbgItem::Describe() const
{
    return msDescription;
}

void tcDbgItem::Write(std::ostream& os) const
{
    if (meType == eInt)
        os << Load().mnInt;
    else if (meType == eFloat)
        os << static_cast<double>(Load().mnFloat);
    else
        os << Text();
}

std::ostream& operator<<(std::ostream& os, const tcDbgItem& item)
{
    item.Write(os);
    return os;
}

static void ListItems()
{
    std::ostringstream text;
    {
        const std::lock_guard<std::recursive_mutex> guard(vx::ItemsLock());
        for (const auto& entry : tcDbgItem::GetMap()) {
            if (!entry.second) continue;
            text << std::setw(20) << entry.first << " = " << *entry.second << " <- "
                 << entry.second->Describe() << "\n";
        }
    }
    vx::Print(std::cout, text.str());
}

extern "C" void ListDbgItems()
{
    try {
        ListItems();
    } catch (const std::exception& failure) {
        vx::ReportFailure(failure.what());
    }
}
