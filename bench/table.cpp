#include "table.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

double Percentile(std::vector<double> samples, double percent)
{
    if (samples.empty()) return 0;
    std::sort(samples.begin(), samples.end());
    const double rank = std::ceil(percent / 100 * static_cast<double>(samples.size()));
    const auto index = static_cast<size_t>(std::max(1.0, rank)) - 1;
    return samples[std::min(index, samples.size() - 1)];
}

tsSummary Summarise(std::vector<double> samples)
{
    if (samples.empty()) return {};
    std::sort(samples.begin(), samples.end());
    const size_t middle = samples.size() / 2;
    const double median =
        samples.size() % 2 == 1 ? samples[middle] : (samples[middle - 1] + samples[middle]) / 2;
    return {median, samples.front(), samples.back()};
}

void tcTable::Add(tsRow row)
{
    mvRows.push_back(std::move(row));
}

void tcTable::Compare(const std::string& name, const std::string& what, const std::string& unit,
                      bool higherIsBetter, int repeats, const std::function<double()>& ours,
                      const std::function<double()>& reference)
{
    fprintf(stderr, "%s %s ...\n", name.c_str(), what.c_str());
    std::vector<double> first, second, ratio;
    for (int i = 0; i < repeats; ++i) {
        // Each side goes first every other time.
        if (i % 2 == 0) {
            first.push_back(ours());
            second.push_back(reference());
        } else {
            second.push_back(reference());
            first.push_back(ours());
        }
        ratio.push_back(first.back() / second.back());
    }
    Add({name, what, unit, Summarise(first), Summarise(second), Summarise(ratio), true,
         higherIsBetter});
}

void tcTable::Single(const std::string& name, const std::string& what, const std::string& unit,
                     std::vector<double> samples)
{
    tsRow row;
    row.name = name;
    row.what = what;
    row.unit = unit;
    row.ours = Summarise(std::move(samples));
    row.hasReference = false;
    Add(std::move(row));
}

void tcTable::Print(bool asJson) const
{
    if (asJson) {
        printf("[\n");
        for (size_t i = 0; i < mvRows.size(); ++i) {
            const tsRow& row = mvRows[i];
            printf("  {\"row\": \"%s\", \"what\": \"%s\", \"unit\": \"%s\", "
                   "\"ours\": [%g, %g, %g], \"reference\": [%g, %g, %g], "
                   "\"ratio\": [%g, %g, %g]}%s\n",
                   row.name.c_str(), row.what.c_str(), row.unit.c_str(), row.ours.minimum,
                   row.ours.median, row.ours.maximum, row.reference.minimum, row.reference.median,
                   row.reference.maximum, row.ratio.minimum, row.ratio.median, row.ratio.maximum,
                   i + 1 < mvRows.size() ? "," : "");
        }
        printf("]\n");
        return;
    }
    printf("%-4s %-52s %-9s %26s %26s %22s\n", "row", "what", "unit", "ours: median (min..max)",
           "reference", "ours/reference");
    for (const tsRow& row : mvRows) {
        char reference[64] = "-", ratio[64] = "-", ours[64];
        snprintf(ours, sizeof ours, "%.4g (%.4g..%.4g)", row.ours.median, row.ours.minimum,
                 row.ours.maximum);
        if (row.hasReference) {
            snprintf(reference, sizeof reference, "%.4g (%.4g..%.4g)", row.reference.median,
                     row.reference.minimum, row.reference.maximum);
            snprintf(ratio, sizeof ratio, "%.2f (%.2f..%.2f) %s", row.ratio.median,
                     row.ratio.minimum, row.ratio.maximum, row.higherIsBetter ? "+" : "-");
        }
        printf("%-4s %-52s %-9s %26s %26s %22s\n", row.name.c_str(), row.what.c_str(),
               row.unit.c_str(), ours, reference, ratio);
    }
    printf("ratio of medians sample by sample; + higher is better, - lower is better\n");
}
