#include "plot.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>

namespace {

constexpr uint8_t gnPaper = 255, gnInk = 0, gnGrid = 215, gnCurve = 120;
constexpr int gnLeft = 90, gnRight = 770, gnTop = 50, gnBottom = 540;
constexpr int gnLetterRows = 7, gnLetterColumns = 5, gnAdvance = 12, gnScale = 2;
constexpr int gnMarkRadius = 4;

// Row after row, the left pixel in the highest of five bits.
using tpLetter = std::array<uint8_t, gnLetterRows>;

const std::map<char, tpLetter>& Letters()
{
    static const std::map<char, tpLetter>& letters = *new std::map<char, tpLetter>{
        {'0', {14, 17, 19, 21, 25, 17, 14}}, {'1', {4, 12, 4, 4, 4, 4, 14}},
        {'2', {14, 17, 1, 6, 8, 16, 31}},    {'3', {14, 17, 1, 6, 1, 17, 14}},
        {'4', {2, 6, 10, 18, 31, 2, 2}},     {'5', {31, 16, 30, 1, 1, 17, 14}},
        {'6', {6, 8, 16, 30, 17, 17, 14}},   {'7', {31, 1, 2, 2, 4, 4, 4}},
        {'8', {14, 17, 17, 14, 17, 17, 14}}, {'9', {14, 17, 17, 15, 1, 2, 12}},
        {'A', {4, 10, 17, 17, 31, 17, 17}},  {'C', {14, 17, 16, 16, 16, 17, 14}},
        {'D', {30, 17, 17, 17, 17, 17, 30}}, {'E', {31, 16, 16, 30, 16, 16, 31}},
        {'F', {31, 16, 16, 30, 16, 16, 16}}, {'G', {14, 17, 16, 23, 17, 17, 14}},
        {'I', {14, 4, 4, 4, 4, 4, 14}},      {'L', {16, 16, 16, 16, 16, 16, 31}},
        {'N', {17, 25, 25, 21, 19, 19, 17}}, {'O', {14, 17, 17, 17, 17, 17, 14}},
        {'R', {30, 17, 17, 30, 20, 18, 17}}, {'S', {14, 17, 16, 14, 1, 17, 14}},
        {'U', {17, 17, 17, 17, 17, 17, 14}}, {'V', {17, 17, 17, 17, 10, 10, 4}},
        {'W', {17, 17, 17, 21, 21, 27, 17}}, {'.', {0, 0, 0, 0, 0, 12, 12}},
        {'-', {0, 0, 0, 14, 0, 0, 0}},       {'/', {1, 1, 2, 4, 8, 16, 16}},
        {'^', {4, 10, 17, 0, 0, 0, 0}},      {',', {0, 0, 0, 0, 12, 4, 8}}};
    return letters;
}

double PartOf(double value, double first, double last)
{
    return (std::log10(value) - std::log10(first)) / (std::log10(last) - std::log10(first));
}

} // namespace

tcPlot::tcPlot(const tsPlotRange& range, const std::string& across, const std::string& up)
    : mtRange(range), maGrays(size_t{gnRows} * gnColumns, gnPaper)
{
    DrawDecades();
    for (int column = gnLeft; column <= gnRight; ++column) {
        Dot(gnBottom, column, gnInk);
    }
    for (int row = gnTop; row <= gnBottom; ++row) {
        Dot(row, gnLeft, gnInk);
    }
    const int width = static_cast<int>(across.size()) * gnAdvance;
    Text(gnBottom + 36, gnRight - width, across);
    Text(gnTop - 30, gnLeft, up);
}

void tcPlot::Dot(int row, int column, uint8_t gray)
{
    if (row < 0 || row >= gnRows || column < 0 || column >= gnColumns) return;
    maGrays[static_cast<size_t>(row) * gnColumns + static_cast<size_t>(column)] = gray;
}

int tcPlot::ColumnOf(double x) const
{
    const double part = PartOf(x, mtRange.left, mtRange.right);
    return gnLeft + static_cast<int>(std::lround(part * (gnRight - gnLeft)));
}

int tcPlot::RowOf(double y) const
{
    const double part = PartOf(y, mtRange.bottom, mtRange.top);
    return gnBottom - static_cast<int>(std::lround(part * (gnBottom - gnTop)));
}

void tcPlot::DrawDecades()
{
    const auto each = [](double first, double last, const auto& draw) {
        for (int power = static_cast<int>(std::ceil(std::log10(first) - 1e-9));
             power <= std::log10(last) + 1e-9; ++power) {
            draw(std::pow(10.0, power), "10^" + std::to_string(power));
        }
    };
    each(mtRange.left, mtRange.right, [this](double x, const std::string& name) {
        const int column = ColumnOf(x);
        for (int row = gnTop; row < gnBottom; ++row) {
            Dot(row, column, gnGrid);
        }
        Text(gnBottom + 10, column - 2 * gnAdvance, name);
    });
    each(mtRange.bottom, mtRange.top, [this](double y, const std::string& name) {
        const int row = RowOf(y);
        for (int column = gnLeft + 1; column <= gnRight; ++column) {
            Dot(row, column, gnGrid);
        }
        Text(row - gnLetterRows, gnLeft - 10 - static_cast<int>(name.size()) * gnAdvance, name);
    });
}

void tcPlot::Mark(double x, double y, bool isFilled)
{
    if (!(x >= mtRange.left && x <= mtRange.right && y >= mtRange.bottom && y <= mtRange.top)) {
        return;
    }
    const int middle = RowOf(y), centre = ColumnOf(x);
    for (int row = -gnMarkRadius; row <= gnMarkRadius; ++row) {
        for (int column = -gnMarkRadius; column <= gnMarkRadius; ++column) {
            const bool isEdge = std::max(std::abs(row), std::abs(column)) == gnMarkRadius;
            if (isFilled || isEdge) Dot(middle + row, centre + column, gnInk);
        }
    }
}

void tcPlot::Curve(const std::function<double(double)>& value)
{
    for (int column = gnLeft + 1; column <= gnRight; ++column) {
        const double part = static_cast<double>(column - gnLeft) / (gnRight - gnLeft);
        const double y = value(mtRange.left * std::pow(mtRange.right / mtRange.left, part));
        if (!(y >= mtRange.bottom && y <= mtRange.top)) continue;
        Dot(RowOf(y), column, gnCurve);
        Dot(RowOf(y) - 1, column, gnCurve);
    }
}

void tcPlot::Text(int row, int column, const std::string& text)
{
    for (const char c : text) {
        const auto letter = Letters().find(c);
        for (int i = 0; letter != Letters().end() && i < gnLetterRows * gnLetterColumns; ++i) {
            const int y = i / gnLetterColumns, x = i % gnLetterColumns;
            const unsigned bits = letter->second[static_cast<size_t>(y)];
            if (((bits >> (gnLetterColumns - 1 - x)) & 1U) == 0) continue;
            for (int part = 0; part < gnScale * gnScale; ++part) {
                Dot(row + y * gnScale + part / gnScale, column + x * gnScale + part % gnScale,
                    gnInk);
            }
        }
        column += gnAdvance;
    }
}
