// A plot with logarithmic axes.
#ifndef PLOT_H
#define PLOT_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// Of both axes; above 0.
struct tsPlotRange {
    double left = 1, right = 10, bottom = 1, top = 10;
};

// A picture of 800 x 600 grays. Letters are capitals, digits and a few signs; others stay blank.
//
// Threads: one.
class tcPlot
{
public:
    static constexpr int gnColumns = 800, gnRows = 600;

    // Draws the axes, their decades, and what they are called.
    tcPlot(const tsPlotRange& range, const std::string& across, const std::string& up);

    // A filled mark, or a hollow one. Beyond the axes there is nothing.
    void Mark(double x, double y, bool isFilled);
    void Curve(const std::function<double(double)>& value);
    void Text(int row, int column, const std::string& text);

    const std::vector<uint8_t>& Grays() const { return maGrays; } // row after row

private:
    void Dot(int row, int column, uint8_t gray);
    void DrawDecades();
    int ColumnOf(double x) const;
    int RowOf(double y) const;

    const tsPlotRange mtRange;
    std::vector<uint8_t> maGrays;
};

#endif
