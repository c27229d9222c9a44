#include "qmrimg/raw/kernels/bayer_tile.h"

#include <algorithm>
#include <cstddef>

namespace qmr {
namespace {

// One plane of a tile with the means of a pixel's neighbours.
class Plane {
 public:
  Plane(float* data, const TileShape& shape) : data_(data), width_(shape.width) {}

  float& At(int row, int column) { return data_[static_cast<std::ptrdiff_t>(row) * width_ + column]; }
  float Beside(int r, int c) { return MeanOf2(At(r, c - 1), At(r, c + 1)); }
  float Stacked(int r, int c) { return MeanOf2(At(r - 1, c), At(r + 1, c)); }
  float Cross(int r, int c) { return MeanOf4(At(r, c - 1), At(r - 1, c), At(r, c + 1), At(r + 1, c)); }
  float Diagonal(int r, int c) {
    return MeanOf4(At(r - 1, c - 1), At(r - 1, c + 1), At(r + 1, c - 1), At(r + 1, c + 1));
  }

 private:
  float* data_;
  int width_;
};

std::size_t PlaneSize(const TileShape& shape) {
  return static_cast<std::size_t>(shape.width) * static_cast<std::size_t>(shape.rows);
}

// Calls `visit(row, column)` for the sites of one parity that are interpolated: neither the outermost rows nor
// columns, nor the last column of an odd width and the one before it.
template <class Visit>
void ForSites(const TileShape& shape, int rowParity, int columnParity, Visit visit) {
  const int evenWidth = shape.width & ~1;
  for (int r = 2 - rowParity; r < shape.rows - 1; r += 2)
    for (int c = 2 - columnParity; c < evenWidth - 1; c += 2) visit(r, c);
}

}  // namespace

void MakeTileColours(float* tile, const TileShape& shape) {
  const std::size_t size = PlaneSize(shape);
  for (const TilePlane plane : {kTileFirst, kTileSecond, kTileGreen}) std::copy_n(tile, size, tile + plane * size);
  Plane first(tile + kTileFirst * size, shape);
  Plane second(tile + kTileSecond * size, shape);
  Plane green(tile + kTileGreen * size, shape);
  const int fr = shape.layout.firstRow;
  const int fc = shape.layout.firstColumn;
  ForSites(shape, fr, 1 - fc, [&](int r, int c) { first.At(r, c) = first.Beside(r, c); });
  ForSites(shape, 1 - fr, fc, [&](int r, int c) { first.At(r, c) = first.Stacked(r, c); });
  ForSites(shape, 1 - fr, 1 - fc, [&](int r, int c) { first.At(r, c) = first.Diagonal(r, c); });
  ForSites(shape, 1 - fr, fc, [&](int r, int c) { second.At(r, c) = second.Beside(r, c); });
  ForSites(shape, fr, 1 - fc, [&](int r, int c) { second.At(r, c) = second.Stacked(r, c); });
  ForSites(shape, fr, fc, [&](int r, int c) { second.At(r, c) = second.Diagonal(r, c); });
  ForSites(shape, fr, fc, [&](int r, int c) { green.At(r, c) = green.Cross(r, c); });
  ForSites(shape, 1 - fr, 1 - fc, [&](int r, int c) { green.At(r, c) = green.Cross(r, c); });
}

void MakeTileLuminance(float* tile, float* buffer, const TileShape& shape, TilePlane target) {
  const std::size_t size = PlaneSize(shape);
  for (std::size_t i = 0; i < 3; ++i) std::copy_n(tile, size, buffer + i * size);
  Plane first(buffer, shape);
  Plane green(buffer + size, shape);
  Plane second(buffer + 2 * size, shape);
  const int fr = shape.layout.firstRow;
  const int fc = shape.layout.firstColumn;
  ForSites(shape, fr, fc, [&](int r, int c) { second.At(r, c) = second.Diagonal(r, c); });
  ForSites(shape, 1 - fr, 1 - fc, [&](int r, int c) { first.At(r, c) = first.Diagonal(r, c); });
  // At green sites the mean of all four neighbours, two of which the first pass has made: softer than the colours.
  for (Plane* colour : {&first, &second}) {
    ForSites(shape, fr, 1 - fc, [&](int r, int c) { colour->At(r, c) = colour->Cross(r, c); });
    ForSites(shape, 1 - fr, fc, [&](int r, int c) { colour->At(r, c) = colour->Cross(r, c); });
  }
  ForSites(shape, fr, fc, [&](int r, int c) { green.At(r, c) = green.Cross(r, c); });
  ForSites(shape, 1 - fr, 1 - fc, [&](int r, int c) { green.At(r, c) = green.Cross(r, c); });
  float* const luminance = tile + target * size;
  for (std::size_t i = 0; i < size; ++i)
    luminance[i] = BayerLuminance(buffer[i], buffer[size + i], buffer[2 * size + i]);
}

float SynthesizeTileSite(const float* tile, const TileShape& shape, TilePlane base, TilePlane reference,
                         TilePlane colour, int row, int column) {
  const std::size_t size = PlaneSize(shape);
  double sum = 0.0;
  for (int r = row - 1; r <= row + 1; ++r) {
    for (int c = column - 1; c <= column + 1; ++c) {
      const std::size_t i =
          static_cast<std::size_t>(r) * static_cast<std::size_t>(shape.width) + static_cast<std::size_t>(c);
      sum += static_cast<double>(tile[colour * size + i]) - tile[reference * size + i];
    }
  }
  const float y = tile[base * size + static_cast<std::size_t>(row) * static_cast<std::size_t>(shape.width) +
                       static_cast<std::size_t>(column)];
  return static_cast<float>(y + sum / 9.0);
}

}  // namespace qmr
