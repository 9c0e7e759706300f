// Samples of a figure and the table of all figures.
#ifndef BENCH_TABLE_H
#define BENCH_TABLE_H

#include <functional>
#include <string>
#include <vector>

struct tsSummary {
    double median = 0, minimum = 0, maximum = 0;
};

tsSummary Summarise(std::vector<double> samples);

// Percentile of unsorted samples, `percent` from 0 to 100.
double Percentile(std::vector<double> samples, double percent);

// How a row is measured.
struct tsBenchOptions {
    bool quick = false; // check the instruments, not the figures
    int repeats = 7;    // samples of each side
};

// One row: ours against a reference, in the same unit.
struct tsRow {
    std::string name;
    std::string what;
    std::string unit;
    tsSummary ours, reference, ratio; // ratio is ours / reference, sample by sample
    bool hasReference = true;
    bool higherIsBetter = false;
};

class tcTable
{
public:
    void Add(tsRow row);

    // Samples both sides in turn, so that both see the same weather.
    void Compare(const std::string& name, const std::string& what, const std::string& unit,
                 bool higherIsBetter, int repeats, const std::function<double()>& ours,
                 const std::function<double()>& reference);
    void Single(const std::string& name, const std::string& what, const std::string& unit,
                std::vector<double> samples);

    void Print(bool asJson) const;

private:
    std::vector<tsRow> mvRows;
};

#endif
