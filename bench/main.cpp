// vxbench: measures the library against references in the same run and prints one table.
#include "rows.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iterator>
#include <sstream>

namespace {

bool IsRow(const std::string& name)
{
    return std::find(std::begin(gaRowNames), std::end(gaRowNames), name) != std::end(gaRowNames);
}

} // namespace

int main(int argc, char** argv)
try {
    tsBenchOptions options;
    tsRowChoice choice;
    bool asJson = false;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--quick") == 0) {
            options.quick = true;
            options.repeats = 2;
        } else if (strcmp(argv[i], "--json") == 0) {
            asJson = true;
        } else if (strcmp(argv[i], "--rows") == 0 && i + 1 < argc) {
            std::istringstream names(argv[++i]);
            for (std::string name; std::getline(names, name, ',');) {
                if (!IsRow(name)) {
                    fprintf(stderr, "vxbench: there is no row '%s'\n", name.c_str());
                    return 1;
                }
                choice.names.insert(name);
            }
        } else {
            fprintf(stderr, "usage: vxbench [--quick] [--json] [--rows S1,S2,...]\n");
            return 1;
        }
    }
    tcTable table;
    MeasureStreams(table, choice, options);
    MeasureLatencies(table, choice, options);
    MeasureParts(table, choice, options);
    MeasureFiles(table, choice, options);
    MeasureRecords(table, choice, options);
    MeasurePrograms(table, choice, options);
    MeasureWire(table, choice, options);
    MeasureKit(table, choice, options);
    MeasurePython(table, choice, options);
    table.Print(asJson);
    return 0;
} catch (const std::exception& error) {
    fprintf(stderr, "vxbench: %s\n", error.what());
    return 1;
}
