#include "qmrimg/image/adaptive_palette.h"

#include <algorithm>
#include <cmath>

namespace qmr {
namespace {

constexpr int kBands = 8;
constexpr int kEntries = 256;
constexpr double kBandEntries = 240.0;
constexpr std::uint32_t kCountLimit = 32000;
constexpr int kDistanceLimit = 0x10000;
// More than any distance of two colours.
constexpr int kWorstDistance = 0x2FA03;

// Middle bands hold most of what the eye tells apart.
struct BandRule {
  double weight;
  double cap;
};
constexpr BandRule kBandRules[kBands] = {{20.0, 30.0}, {28.0, 42.0}, {37.0, 55.5}, {48.0, 72.0},
                                         {45.0, 67.5}, {32.0, 48.0}, {20.0, 30.0}, {10.0, 15.0}};
constexpr double kLeastQuota = 8.0;

struct Colour {
  int r, g, b;
};

// The middle of a cell.
Colour ColourOf(std::size_t cell) {
  const auto channel = [cell](int shift) { return static_cast<int>(cell >> shift & 31) * 8 + 4; };
  return {channel(10), channel(5), channel(0)};
}

int Distance(const Colour& a, const Colour& b) {
  return (a.r - b.r) * (a.r - b.r) + (a.g - b.g) * (a.g - b.g) + (a.b - b.b) * (a.b - b.b);
}

// Lightness bands, 0 the lightest.
int BandOf(std::size_t cell) {
  const Colour c = ColourOf(cell);
  return (255 - (std::max({c.r, c.g, c.b}) + std::min({c.r, c.g, c.b})) / 2) / 32;
}

struct Cell {
  std::size_t index;
  std::uint32_t count;
  Colour colour;
  int entry = -1;
  int distance = 0;
};

// The first entry of each band; the ninth value closes the last band.
void FirstEntries(const std::vector<Cell*> (&bands)[kBands], int (&first)[kBands + 1]) {
  double roots[kBands];
  double total = 0.0;
  for (int i = 0; i < kBands; ++i) {
    double sum = 0.0;
    for (const Cell* cell : bands[i]) sum += cell->count;
    roots[i] = std::sqrt(sum);
    total += roots[i];
  }
  double quotas[kBands];
  double sum = 0.0;
  for (int i = 0; i < kBands; ++i) {
    const double wanted = std::max(roots[i] * kBandRules[i].weight / total * 8.0, kLeastQuota);
    quotas[i] = std::min(std::min(wanted, static_cast<double>(bands[i].size())), kBandRules[i].cap);
    sum += quotas[i];
  }
  double before = 0.0;
  for (int i = 0; i < kBands; ++i) {
    first[i] = static_cast<int>(before + 0.5);
    before += quotas[i] * kBandEntries / sum;
  }
  first[kBands] = static_cast<int>(before + 0.5);
}

}  // namespace

AdaptivePalette MakeAdaptivePalette(const std::vector<std::uint32_t>& counts) {
  AdaptivePalette palette{};
  palette.entryOfCell.resize(kColourCells);
  std::vector<Cell> cells;
  for (std::size_t i = 0; i < kColourCells; ++i)
    if (counts[i] > 0) cells.push_back({i, std::min(counts[i], kCountLimit), ColourOf(i)});
  if (cells.empty()) return palette;
  std::vector<Cell*> bands[kBands];
  for (Cell& cell : cells) bands[BandOf(cell.index)].push_back(&cell);
  int first[kBands + 1];
  FirstEntries(bands, first);

  std::vector<Colour> taken;
  const auto take = [&palette, &taken](Cell& cell, int entry) {
    cell.entry = entry;
    taken.push_back(cell.colour);
    palette.colours[entry] = {static_cast<BYTE>(cell.colour.b), static_cast<BYTE>(cell.colour.g),
                              static_cast<BYTE>(cell.colour.r), 0};
  };

  for (int i = 0; i < kBands; ++i) {
    // Most pixels first; of equal counts the later cell.
    std::stable_sort(bands[i].begin(), bands[i].end(), [](const Cell* a, const Cell* b) {
      return a->count != b->count ? a->count > b->count : a->index > b->index;
    });
    const auto slots = static_cast<std::size_t>(first[i + 1] - first[i]);
    for (std::size_t k = 0; k < std::min(slots, bands[i].size()); ++k)
      take(*bands[i][k], first[i] + static_cast<int>(k));
  }

  // Only entries that hold a cell count as colours here; black ones left over in a band do not.
  for (Cell& cell : cells) {
    if (cell.entry >= 0) continue;
    cell.distance = kDistanceLimit;
    for (const Colour& colour : taken) cell.distance = std::min(cell.distance, Distance(cell.colour, colour));
  }
  for (int entry = first[kBands]; entry < kEntries; ++entry) {
    const auto worst = std::max_element(cells.begin(), cells.end(),
                                        [](const Cell& a, const Cell& b) { return a.distance < b.distance; });
    if (worst->distance <= 0) break;
    const Colour colour = worst->colour;
    take(*worst, entry);
    for (Cell& cell : cells) cell.distance = std::min(cell.distance, Distance(cell.colour, colour));
  }

  for (const Cell& cell : cells) {
    int best = kWorstDistance;
    int nearest = cell.entry;
    for (int entry = 0; cell.entry < 0 && entry < kEntries; ++entry) {
      const RGBQUAD& c = palette.colours[entry];
      const int distance = Distance(cell.colour, {c.rgbRed, c.rgbGreen, c.rgbBlue});
      if (distance >= best) continue;
      best = distance;
      nearest = entry;
    }
    palette.entryOfCell[cell.index] = static_cast<std::uint8_t>(nearest);
  }
  return palette;
}

}  // namespace qmr
