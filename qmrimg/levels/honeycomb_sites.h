// The photosites of a honeycomb sensor.
#pragma once

#include <array>
#include <cstddef>

namespace qmr {

// Every second column of a row holds data, rows of even and odd number by turns shifted by one; the colours repeat
// every four rows and columns. The cell of the basic layout, with the numbers of its sites and their colours:
//
//            column 0    1    2    3
//     row 0         .   0 B   .   4 R
//     row 1        1 G   .   5 G   .
//     row 2         .   2 R   .   6 B
//     row 3        3 G   .   7 G   .
//
// Medians and gains of the cell are in the order of these numbers.
struct HoneycombSite {
  int row;
  int column;
};

inline constexpr int kHoneycombCell = 4;
inline constexpr std::array<HoneycombSite, 8> kHoneycombSites = {
    {{0, 1}, {1, 0}, {2, 1}, {3, 0}, {0, 3}, {1, 2}, {2, 3}, {3, 2}}};
// The planes of the colours.
inline constexpr int kHoneycombRed = 0;
inline constexpr int kHoneycombGreen = 1;
inline constexpr int kHoneycombBlue = 2;
inline constexpr std::array<int, 8> kHoneycombColours = {kHoneycombBlue,  kHoneycombGreen, kHoneycombRed,
                                                         kHoneycombGreen, kHoneycombRed,   kHoneycombGreen,
                                                         kHoneycombBlue,  kHoneycombGreen};

// The number of the site at a place of the cell's grid, which may be any; -1 between the sites.
constexpr int HoneycombSiteAt(int row, int column) {
  for (std::size_t i = 0; i < kHoneycombSites.size(); ++i)
    if (kHoneycombSites[i].row == (row & 3) && kHoneycombSites[i].column == (column & 3)) return static_cast<int>(i);
  return -1;
}

// Where the cell of colours begins in the image. All layouts have sites where row + column is odd.
struct HoneycombLayout {
  int xPhase;
  int yPhase;

  static constexpr bool IsPattern(int pattern) { return pattern >= 11 && pattern <= 14; }
  static constexpr HoneycombLayout Of(int pattern) {
    constexpr HoneycombLayout kLayouts[4] = {{0, 0}, {2, 0}, {1, 1}, {3, 1}};
    return kLayouts[pattern - 11];
  }
  // The plane of the colour at a place of the image; -1 between the sites.
  constexpr int ColourAt(int row, int column) const {
    const int site = HoneycombSiteAt(row - yPhase, column - xPhase);
    return site < 0 ? -1 : kHoneycombColours[static_cast<std::size_t>(site)];
  }
  // Whether the row has red and blue sites, and not green ones.
  constexpr bool IsColourRow(int row) const { return ((row - yPhase) & 1) == 0; }
};

// What surrounds the picture on the frames of one camera. Medians and gains count their cell from the inner corner.
inline constexpr const wchar_t* kHoneycombBorderedModel = L"finepixs2pro";
inline constexpr int kHoneycombBorderColumns = 48;
inline constexpr int kHoneycombBorderRows = 30;

}  // namespace qmr
