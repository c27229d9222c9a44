// The photosites of a honeycomb sensor.
#pragma once

#include <array>

namespace qmr {

// Every second column of a row holds data, rows of even and odd number by turns shifted by one; the colours repeat
// every four rows and columns. The cell of the basic layout, with the numbers of its sites:
//
//            column 0   1   2   3
//     row 0         .   0   .   4
//     row 1         1   .   5   .
//     row 2         .   2   .   6
//     row 3         3   .   7   .
//
// Sites 1, 3, 5 and 7 are green; 0 and 6 have one of the other two colours, 2 and 4 the other one. Medians and
// gains of the cell are in the order of these numbers.
struct HoneycombSite {
  int row;
  int column;
};

inline constexpr int kHoneycombCell = 4;
inline constexpr std::array<HoneycombSite, 8> kHoneycombSites = {
    {{0, 1}, {1, 0}, {2, 1}, {3, 0}, {0, 3}, {1, 2}, {2, 3}, {3, 2}}};

}  // namespace qmr
