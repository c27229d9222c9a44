// Hot and cool pixels of undeveloped frames, found by the four nearest pixels of their own colour.
#pragma once

#include <cstdint>

namespace qmr {

// The steps from a pixel to its four neighbours, each at most 2.
struct CfaPoints {
  int dx[4];
  int dy[4];
};

// Rows y - 2 to y + 2 around a row, from column 0, edges already mirrored. Columns are clamped to 0..width - 1.
struct CfaWindow {
  const float* rows[5];
  int width;
};

// What the pixels of even and of odd columns are compared with; null for columns without a pixel to look at.
struct CfaColumns {
  const CfaPoints* points[2];
};

// Limits of |neighbour / pixel - 1|.
struct CfaLimits {
  bool coolOn;
  double cool;
  bool hotOn;
  double hot;
};

enum class CfaVerdict { kKeep, kCool, kHot };

struct CfaFinding {
  CfaVerdict verdict;
  // The neighbour to replace the pixel with.
  float neighbour;
};

// out[x - left] = pixel x of the centre row, in the columns with a pixel to look at, for left..right - 1.
void CopyCfaRow(const CfaWindow& window, int left, int right, const CfaColumns& columns, float* out);

// marks[x - left] = 1 where JudgeCfaPixel may find something, 0 where it surely does not, for left..right - 1.
void MarkCfaRow(const CfaWindow& window, int left, int right, const CfaColumns& columns, const CfaLimits& limits,
                std::uint8_t* marks);

// Cool: below all four neighbours and further away from the lowest than the limit. Hot: above all four, and further
// away from the highest. Not-a-number counts as the highest.
CfaFinding JudgeCfaPixel(const CfaWindow& window, int x, const CfaPoints& points, const CfaLimits& limits);

// The ring of next neighbours against the ring two steps away: |near / far - 1| > threshold for a cool pixel, not
// more than 1 - threshold for a hot one. Rows and columns are those from 2 before to 2 behind the pixel.
bool CompareCfaRings(const float* const (&rows)[5], const int (&columns)[5], bool bayer, bool hot, double threshold);

}  // namespace qmr
