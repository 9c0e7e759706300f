// F1, F2: the configuration beside inih.
#include "config_rows.h"

#include "tcConfigFile.h"

#include <ini.h>

#include <fstream>
#include <map>
#include <string>
#include <utility>

namespace {

constexpr int gnSections = 100, gnItemsEach = 1000;

const std::string& ConfigName()
{
    static const std::string name = [] {
        std::string path = "vxbench-config.dat";
        std::ofstream file(path);
        for (int section = 0; section < gnSections; ++section) {
            file << "[section" << section << "]\n";
            for (int item = 0; item < gnItemsEach; ++item) {
                file << "item" << item << " = value " << item * section << "\n";
            }
        }
        return path;
    }();
    return name;
}

using tcIniMap = std::map<std::string, std::string>;

int StoreIni(void* user, const char* section, const char* name, const char* value)
{
    (*static_cast<tcIniMap*>(user))[std::string(section).append("/").append(name)] = value;
    return 1;
}

std::pair<std::string, std::string> LookupName(unsigned i)
{
    return {"section" + std::to_string(i % gnSections),
            "item" + std::to_string(i * 7919u % gnItemsEach)};
}

} // namespace

void LoadOurs(benchmark::State& state)
{
    for (auto _ : state) {
        tcConfigFile file(ConfigName().c_str());
        benchmark::DoNotOptimize(&file);
    }
}

void LoadReference(benchmark::State& state)
{
    for (auto _ : state) {
        tcIniMap items;
        ini_parse(ConfigName().c_str(), StoreIni, &items);
        benchmark::DoNotOptimize(&items);
    }
}

void LookupOurs(benchmark::State& state)
{
    tcConfigFile file(ConfigName().c_str());
    const std::string none;
    unsigned i = 0;
    for (auto _ : state) {
        const auto [section, name] = LookupName(i++);
        benchmark::DoNotOptimize(file.GetItemInSection(section, name, none));
    }
}

void LookupReference(benchmark::State& state)
{
    tcIniMap items;
    ini_parse(ConfigName().c_str(), StoreIni, &items);
    const std::string none;
    unsigned i = 0;
    for (auto _ : state) {
        const auto [section, name] = LookupName(i++);
        auto found = items.find(std::string(section).append("/").append(name));
        std::string value = found == items.end() ? none : found->second;
        benchmark::DoNotOptimize(value);
    }
}
