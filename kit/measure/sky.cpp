#include "measure/sky.h"

#include "measure/samples.h"

#include <algorithm>
#include <cmath>

namespace vxcam {

namespace {

constexpr int kTileSamples = 32; // in a row of a tile, and so many rows, at most
constexpr double kClip = 3;      // beyond so many sigmas a sample is a star's

struct Tile {
    double level = 0, noise = 0;
    bool isKnown = false;
};

// Of each tile, row after row.
struct Mesh {
    int rows = 0, columns = 0;
    std::vector<Tile> tiles;

    size_t place(int row, int column) const
    {
        return static_cast<size_t>(row) * static_cast<size_t>(columns) +
               static_cast<size_t>(column);
    }
    Tile& at(int row, int column) { return tiles[place(row, column)]; }
    const Tile& at(int row, int column) const { return tiles[place(row, column)]; }
};

Tile tileOf(std::vector<double>* samples)
{
    Tile tile;
    if (samples->empty()) return tile;
    tile.isKnown = true;
    for (int round = 0; round < 2; ++round) {
        tile.level = quantile(samples, 0.5);
        std::vector<double> distances = *samples;
        tile.noise = sigmaAround(tile.level, &distances);
        const double most = tile.level + kClip * std::max(tile.noise, 1.0);
        samples->erase(std::remove_if(samples->begin(), samples->end(),
                                      [most](double value) { return value > most; }),
                       samples->end());
    }
    return tile;
}

// The first pixel of a tile, of so many of all pixels.
int startOf(int tile, int pixels, int tiles)
{
    return static_cast<int>(static_cast<int64_t>(pixels) * tile / tiles);
}

template <class Pixel>
Mesh meshOf(const Frame& frame, int side, const std::vector<bool>& isMissing)
{
    Mesh mesh;
    mesh.rows = std::max(1, (frame.rows() + side / 2) / side);
    mesh.columns = std::max(1, (frame.columns() + side / 2) / side);
    mesh.tiles.resize(static_cast<size_t>(mesh.rows) * static_cast<size_t>(mesh.columns));
    const PixelView<Pixel> pixels = frame.pixels<Pixel>();
    const int step = std::max(1, side / kTileSamples);
    for (int row = 0; row < mesh.rows; ++row) {
        for (int column = 0; column < mesh.columns; ++column) {
            std::vector<double> samples;
            const int lastRow = startOf(row + 1, frame.rows(), mesh.rows);
            const int lastColumn = startOf(column + 1, frame.columns(), mesh.columns);
            for (int y = startOf(row, frame.rows(), mesh.rows); y < lastRow; y += step) {
                if (isMissing[static_cast<size_t>(y)]) continue;
                for (int x = startOf(column, frame.columns(), mesh.columns); x < lastColumn;
                     x += step) {
                    samples.push_back(
                        pixels[static_cast<size_t>(y) * static_cast<size_t>(frame.columns()) +
                               static_cast<size_t>(x)]);
                }
            }
            mesh.at(row, column) = tileOf(&samples);
        }
    }
    return mesh;
}

double medianOf(std::vector<double> values)
{
    return values.empty() ? 0 : quantile(&values, 0.5);
}

// What a tile's neighbours have.
std::vector<double> levelsAround(const Mesh& mesh, int row, int column)
{
    std::vector<double> levels;
    for (int y = std::max(0, row - 1); y <= std::min(mesh.rows - 1, row + 1); ++y) {
        for (int x = std::max(0, column - 1); x <= std::min(mesh.columns - 1, column + 1); ++x) {
            if ((y != row || x != column) && mesh.at(y, x).isKnown) {
                levels.push_back(mesh.at(y, x).level);
            }
        }
    }
    return levels;
}

// A tile that stands out from its neighbours, by more than they differ, is full of a star; it gets
// their level, as do tiles of which nothing is known.
Mesh smoothed(const Mesh& mesh)
{
    Mesh result = mesh;
    for (int row = 0; row < mesh.rows; ++row) {
        for (int column = 0; column < mesh.columns; ++column) {
            const std::vector<double> levels = levelsAround(mesh, row, column);
            if (levels.empty()) continue;
            const auto [least, most] = std::minmax_element(levels.begin(), levels.end());
            Tile& tile = result.at(row, column);
            const double reach = std::max(*most - *least, tile.noise);
            if (tile.isKnown && tile.level <= *most + reach) continue;
            tile.level = medianOf(levels);
        }
    }
    return result;
}

// Between which two tiles a pixel lies, and how far on the way.
struct Between {
    int first = 0, second = 0;
    float part = 0;
};

// Beyond the middles of the outer tiles it goes on as between the last two.
Between between(int pixel, int pixels, int count)
{
    const double place = (pixel + 0.5) * count / pixels - 0.5;
    const int first = std::clamp(static_cast<int>(std::floor(place)), 0, std::max(0, count - 2));
    return {first, std::min(first + 1, count - 1), static_cast<float>(place - first)};
}

template <class Pixel>
void subtract(const Frame& frame, const Mesh& mesh, SkyFree* sky)
{
    std::vector<Between> places;
    for (int column = 0; column < sky->columns; ++column) {
        places.push_back(between(column, sky->columns, mesh.columns));
    }
    std::vector<float> levels(static_cast<size_t>(mesh.columns));
    const auto columns = static_cast<size_t>(sky->columns);
    for (int row = 0; row < sky->rows; ++row) {
        if (sky->isMissing[static_cast<size_t>(row)]) continue;
        const Between rows = between(row, sky->rows, mesh.rows);
        for (int column = 0; column < mesh.columns; ++column) {
            const auto first = static_cast<float>(mesh.at(rows.first, column).level);
            const auto second = static_cast<float>(mesh.at(rows.second, column).level);
            levels[static_cast<size_t>(column)] = first + rows.part * (second - first);
        }
        const Pixel* const from = frame.pixels<Pixel>().data() + static_cast<size_t>(row) * columns;
        float* const to = sky->pixels.data() + static_cast<size_t>(row) * columns;
        for (size_t column = 0; column < columns; ++column) {
            const Between& place = places[column];
            const float first = levels[static_cast<size_t>(place.first)];
            const float second = levels[static_cast<size_t>(place.second)];
            to[column] = static_cast<float>(from[column]) - first - place.part * (second - first);
        }
    }
}

template <class Pixel>
void fill(const Frame& frame, int side, SkyFree* sky)
{
    const Mesh mesh = smoothed(meshOf<Pixel>(frame, side, sky->isMissing));
    std::vector<double> levels, noises;
    for (const Tile& tile : mesh.tiles) {
        if (!tile.isKnown) continue;
        levels.push_back(tile.level);
        noises.push_back(tile.noise);
    }
    sky->level = medianOf(std::move(levels));
    sky->noise = medianOf(std::move(noises));
    subtract<Pixel>(frame, mesh, sky);
}

} // namespace

SkyFree withoutSky(const Frame& frame, int mesh)
{
    SkyFree sky;
    sky.rows = frame.rows();
    sky.columns = frame.columns();
    sky.pixels.resize(static_cast<size_t>(sky.rows) * static_cast<size_t>(sky.columns));
    sky.isMissing.resize(static_cast<size_t>(sky.rows));
    for (const int row : frame.facts().missingRows) {
        if (row >= 0 && row < sky.rows) sky.isMissing[static_cast<size_t>(row)] = true;
    }
    if (frame.bits() == 8) {
        fill<uint8_t>(frame, mesh, &sky);
    } else if (frame.bits() == 16) {
        fill<uint16_t>(frame, mesh, &sky);
    } else {
        fill<uint32_t>(frame, mesh, &sky);
    }
    return sky;
}

} // namespace vxcam
