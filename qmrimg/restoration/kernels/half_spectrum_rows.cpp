#include "qmrimg/restoration/kernels/half_spectrum_rows.h"

#include <algorithm>

#include "qmrimg/stacking/kernels/fft_butterflies.h"
#include "qmrimg/stacking/kernels/fft_tile.h"

namespace qmr {
namespace {

constexpr int kLanes = kFftLanes;
constexpr int kElement = kFftElement;
constexpr int kTile = kLanes;   // a tile is that many columns of that many lines
constexpr int kCacheLine = 16;  // floats
constexpr int kPiece = 64;      // columns of an image that are turned together, four cache lines a row
static_assert(kBandRows == 2 * kLanes);

// 16 lines of a band at one of its columns: the real or the imaginary parts of the lanes.
struct Half {
  int lane;   // where the lines stand in an element
  int first;  // the first row of the band that they belong to
  int rows;   // how many there are
};
Half HalfOf(int part, int rows) {
  const int count = std::clamp(rows - part * kLanes, 0, kLanes);
  return {part * kLanes, count > 0 ? part * kLanes : 0, count};
}

// Asks for rows of floats that are needed soon and lie so far apart that no processor guesses them; kWrite is 1 for
// rows that will be written.
template <int kWrite>
void Announce(const float* from, std::ptrdiff_t pitch, int rows, int columns) {
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < columns; x += kCacheLine) __builtin_prefetch(from + y * pitch + x, kWrite);
  }
}

// A tile of a half spectrum at its lower edge: the lines from `rows` on are zero.
void LoadEdge(const float* from, int rows, float* tile) {
  for (int j = 0; j < kTile; ++j) {
    for (int i = 0; i < kLanes; ++i) tile[j * kLanes + i] = i < rows ? from[i * kElement + j] : 0.0f;
  }
}

}  // namespace

void LoadBand(const float* image, int width, int rows, float* lanes) {
  for (int x = 0; x < width; x += kPiece) {
    const int columns = std::min(kPiece, width - x);
    Announce<0>(image + x + columns, width, rows, std::min(kPiece, width - x - columns));
    for (int part = 0; part < 2; ++part) {
      const Half half = HalfOf(part, rows);
      const float* from = image + static_cast<std::ptrdiff_t>(half.first) * width + x;
      float* to = lanes + static_cast<std::ptrdiff_t>(x) * kElement + half.lane;
      const int whole = half.rows == kLanes ? columns & ~3 : 0;
      Transpose(from, width, kLanes, whole, to, kElement);
      for (int j = whole; j < columns; ++j) {
        for (int t = 0; t < kLanes; ++t) {
          to[j * kElement + t] = t < half.rows ? from[j + static_cast<std::ptrdiff_t>(t) * width] : 0.0f;
        }
      }
    }
  }
}

void StoreBand(const float* lanes, int width, int rows, float* image) {
  for (int x = 0; x < width; x += kPiece) {
    const int columns = std::min(kPiece, width - x);
    Announce<1>(image + x + columns, width, rows, std::min(kPiece, width - x - columns));
    for (int part = 0; part < 2; ++part) {
      const Half half = HalfOf(part, rows);
      const float* from = lanes + static_cast<std::ptrdiff_t>(x) * kElement + half.lane;
      float* to = image + static_cast<std::ptrdiff_t>(half.first) * width + x;
      const int whole = half.rows == kLanes ? columns & ~3 : 0;
      Transpose(from, kElement, whole, kLanes, to, width);
      for (int t = 0; t < half.rows; ++t) {
        for (int j = whole; j < columns; ++j) to[j + static_cast<std::ptrdiff_t>(t) * width] = from[j * kElement + t];
      }
    }
  }
}

void SplitBand(const float* lanes, int width, int rows, float scale, float* spectrum, std::size_t blockFloats) {
  const float h = 0.5f * scale;
  // The real and imaginary parts of the first and of the second rows of the lanes, a frequency a row.
  alignas(64) float tiles[4][kTile * kLanes];
  alignas(64) float turned[kTile * kTile];
  for (int u = 0; u <= width / 2; u += kTile, spectrum += blockFloats) {
    if (u + kTile <= width / 2) Announce<1>(spectrum + blockFloats, kElement, rows, kElement);
    const int count = std::min(kTile, width / 2 + 1 - u);
    for (int i = 0; i < count; ++i) {
      const float* z = lanes + static_cast<std::ptrdiff_t>(u + i) * kElement;
      const float* m = lanes + static_cast<std::ptrdiff_t>(u + i == 0 ? 0 : width - u - i) * kElement;
      float* xr = tiles[0] + i * kLanes;
      float* xi = tiles[1] + i * kLanes;
      float* yr = tiles[2] + i * kLanes;
      float* yi = tiles[3] + i * kLanes;
#pragma omp simd
      for (int t = 0; t < kLanes; ++t) {
        xr[t] = (z[t] + m[t]) * h;
        xi[t] = (z[t + kLanes] - m[t + kLanes]) * h;
        yr[t] = (z[t + kLanes] + m[t + kLanes]) * h;
        yi[t] = (m[t] - z[t]) * h;
      }
    }
    for (float* tile : tiles) std::fill(tile + count * kLanes, tile + kTile * kLanes, 0.0f);
    for (int part = 0; part < 2; ++part) {
      const Half half = HalfOf(part, rows);
      float* to = spectrum + static_cast<std::ptrdiff_t>(half.first) * kElement;
      for (int side = 0; side < 2; ++side, to += kLanes) {
        if (half.rows == kLanes) {
          Transpose(tiles[2 * part + side], kLanes, kTile, kLanes, to, kElement);
          continue;
        }
        Transpose(tiles[2 * part + side], kLanes, kTile, kLanes, turned, kTile);
        for (int t = 0; t < half.rows; ++t) std::copy_n(turned + t * kTile, kTile, to + t * kElement);
      }
    }
  }
}

void MergeBand(const float* spectrum, std::size_t blockFloats, int width, int rows, float* lanes) {
  alignas(64) float tiles[4][kTile * kLanes];
  for (int u = 0; u <= width / 2; u += kTile, spectrum += blockFloats) {
    if (u + kTile <= width / 2) Announce<0>(spectrum + blockFloats, kElement, rows, kElement);
    for (int part = 0; part < 2; ++part) {
      const Half half = HalfOf(part, rows);
      const float* from = spectrum + static_cast<std::ptrdiff_t>(half.first) * kElement;
      for (int side = 0; side < 2; ++side, from += kLanes) {
        if (half.rows == kLanes) {
          Transpose(from, kElement, kLanes, kTile, tiles[2 * part + side], kLanes);
        } else {
          LoadEdge(from, half.rows, tiles[2 * part + side]);
        }
      }
    }
    const int count = std::min(kTile, width / 2 + 1 - u);
    for (int i = 0; i < count; ++i) {
      const int mirror = u + i == 0 ? 0 : width - u - i;
      float* z = lanes + static_cast<std::ptrdiff_t>(u + i) * kElement;
      float* m = lanes + static_cast<std::ptrdiff_t>(mirror) * kElement;
      const float* xr = tiles[0] + i * kLanes;
      const float* xi = tiles[1] + i * kLanes;
      const float* yr = tiles[2] + i * kLanes;
      const float* yi = tiles[3] + i * kLanes;
      if (mirror == u + i) {
        std::copy_n(xr, kLanes, z);
        std::copy_n(yr, kLanes, z + kLanes);
        continue;
      }
#pragma omp simd
      for (int t = 0; t < kLanes; ++t) {
        z[t] = xr[t] - yi[t];
        z[t + kLanes] = xi[t] + yr[t];
        m[t] = xr[t] + yi[t];
        m[t + kLanes] = yr[t] - xi[t];
      }
    }
  }
}

void MultiplyBlock(float* a, const float* b, std::size_t rows, bool conjugate) {
  const float sign = conjugate ? -1.0f : 1.0f;
  for (std::size_t y = 0; y < rows; ++y, a += kElement, b += kElement) {
#pragma omp simd
    for (int t = 0; t < kLanes; ++t) {
      const float ar = a[t], ai = a[t + kLanes], br = b[t], bi = sign * b[t + kLanes];
      a[t] = ar * br - ai * bi;
      a[t + kLanes] = ar * bi + ai * br;
    }
  }
}

void DivideBlock(float* a, std::size_t rows, float divisor) {
  const std::size_t count = rows * kElement;
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) a[i] /= divisor;
}

}  // namespace qmr
