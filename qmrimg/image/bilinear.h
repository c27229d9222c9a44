// Bilinear sampling and the place of a destination pixel in its source, each formula once. For the library's own
// sources only, like pixel_math.h.
#pragma once

#include <algorithm>

namespace qmr {

// How a source lies under a destination: shifted by (dx, dy), then turned and scaled about (cx, cy).
struct Placement {
  double dx;
  double dy;
  double sine;
  double cosine;
  double scale;
  double cx;
  double cy;
};

struct Position {
  double x;
  double y;
};

inline bool IsTurned(const Placement& p) {
  return p.cosine != 1.0 || p.sine != 0.0;
}

// The three forms of the mapping, apart for loops along a row. The vertical axis of the rotation points up.
inline Position TurnedPosition(int x, int y, const Placement& p) {
  const double u = x - p.cx - p.dx;
  const double v = p.cy - y + p.dy;
  return {(u * p.cosine - v * p.sine) * p.scale + p.cx, p.cy - (u * p.sine + v * p.cosine) * p.scale};
}
inline Position ShiftedPosition(int x, int y, const Placement& p) {
  return {x - p.dx, y - p.dy};
}
inline Position ScaledPosition(int x, int y, const Placement& p) {
  return {(x - p.cx - p.dx) * p.scale + p.cx, (y - p.cy - p.dy) * p.scale + p.cy};
}

// Where the destination pixel (x, y) lies in the source.
inline Position SourceOf(int x, int y, const Placement& p) {
  if (IsTurned(p)) return TurnedPosition(x, y, p);
  return p.scale == 1.0 ? ShiftedPosition(x, y, p) : ScaledPosition(x, y, p);
}

inline bool IsInside(const Position& at, int width, int height) {
  return 0.0 <= at.x && at.x < width && 0.0 <= at.y && at.y < height;
}

// A place between the pixels of one axis: the pixel before it, its neighbour and the distance from the pixel.
struct Cell {
  int first;
  int second;
  double fraction;
};

// From the last pixel on, a coordinate is that of the last pixel, seen from the one before. A negative coordinate is
// not clamped, nor is not-a-number: they extrapolate from pixel 0. `size` is at least 1.
inline Cell CellOf(double coordinate, int size) {
  const int last = size - 1;
  const double at = coordinate >= last ? last : coordinate;
  // Limited before the conversion, which is then defined for every value.
  const double beforeLast = std::max(size - 2, 0);
  const double pixel = at > 0.0 ? at : 0.0;
  const int first = static_cast<int>(pixel < beforeLast ? pixel : beforeLast);
  return {first, std::min(first + 1, last), at - first};
}

// Four pixels, named by column and row, about a place. An exact place takes its pixel as it is: infinite neighbours
// must not reach it.
inline float Bilinear(float p00, float p10, float p01, float p11, double fx, double fy) {
  const float value =
      static_cast<float>((1.0 - fy) * (1.0 - fx) * p00 + (fy - fy * fx) * p01 + (fx - fy * fx) * p10 + fy * fx * p11);
  return fx == 0.0 && fy == 0.0 ? p00 : value;
}

}  // namespace qmr
