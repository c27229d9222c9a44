#include "qmrimg/drawing/draw_line.h"

#include <algorithm>
#include <cstdint>

#include "qmrimg/drawing/colour_bytes.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/row_access.h"

namespace {

constexpr double kByteMax = 255.0;

float ToLevels(double byte, const CImage& image, int plane) {
  const double min = image.GetLevelMin(plane);
  return static_cast<float>(byte / kByteMax * (image.GetLevelMax(plane) - min) + min);
}

// A line along the axis on which it is longer. Both lengths are below 2^32 and `along` is above 0.
struct Slope {
  std::uint64_t along;
  std::uint64_t across;

  struct State {
    std::int64_t moved;  // steps across
    std::int64_t error;
  };
  // What the line has come to when it draws its pixel number `k`, 0 to `along`, without the steps to there. No term
  // leaves 64 bits.
  State At(std::uint64_t k) const {
    const std::uint64_t product = across * k;
    const std::uint64_t rest = product % along;
    const bool up = 2 * rest >= along;
    const auto signedRest = static_cast<std::int64_t>(rest) - (up ? static_cast<std::int64_t>(along) : 0);
    return {static_cast<std::int64_t>(product / along) + (up ? 1 : 0),
            2 * signedRest + 2 * static_cast<std::int64_t>(across) - static_cast<std::int64_t>(along)};
  }
  // The first pixel of first..end that has moved `moved` steps or more, `end` when none has.
  std::uint64_t FirstAt(std::int64_t moved, std::uint64_t first, std::uint64_t end) const {
    while (first < end) {
      const std::uint64_t middle = first + (end - first) / 2;
      if (At(middle).moved >= moved)
        end = middle;
      else
        first = middle + 1;
    }
    return first;
  }
};

// Steps of a walk from `from` by `step` that lie in 0..size - 1: first, and one past the last.
struct Inside {
  std::int64_t first;
  std::int64_t end;
};

Inside StepsInside(std::int64_t from, int step, int size) {
  if (step > 0) return {std::max<std::int64_t>(-from, 0), size - from};
  return {std::max<std::int64_t>(from - (size - 1), 0), from + 1};
}

std::int64_t Distance(std::int64_t a, std::int64_t b) {
  return a < b ? b - a : a - b;
}

}  // namespace

CImgDrawLine::CImgDrawLine() = default;
CImgDrawLine::~CImgDrawLine() = default;

void CImgDrawLine::Do(CPoint from, CPoint to, unsigned long colour) {
  if (qmr::HasRgb(*this))
    DoColor(from, to, colour);
  else
    DoMono(from, to, colour);
}

void CImgDrawLine::DoMono(CPoint from, CPoint to, unsigned long colour) {
  const float grey = static_cast<float>(qmr::BytesOf(colour).TwiceGrey()) * 0.5f;
  const float value = ToLevels(grey, *this, 0);
  Trace(from, to, [&](int x, int y) { DrawPixel(x, y, value); });
}

void CImgDrawLine::DoColor(CPoint from, CPoint to, unsigned long colour) {
  const qmr::ColourBytes bytes = qmr::BytesOf(colour);
  const float r = ToLevels(bytes.red, *this, 0);
  const float g = ToLevels(bytes.green, *this, 1);
  const float b = ToLevels(bytes.blue, *this, 2);
  Trace(from, to, [&](int x, int y) { DrawPixel(x, y, r, g, b); });
}

// A part of the line that lies outside is left out without walking it; the rest has the pixels of the whole line.
template <class Pixel>
void CImgDrawLine::Trace(CPoint from, CPoint to, const Pixel& pixel) const {
  if (from.x == to.x) {
    if (from.x < 0 || from.x >= Width) return;
    const int last = std::min(std::max(from.y, to.y), Height - 1);
    for (int y = std::max(std::min(from.y, to.y), 0); y <= last; ++y) pixel(from.x, y);
    return;
  }
  if (from.y == to.y) {
    if (from.y < 0 || from.y >= Height) return;
    const int last = std::min(std::max(from.x, to.x), Width - 1);
    for (int x = std::max(std::min(from.x, to.x), 0); x <= last; ++x) pixel(x, from.y);
    return;
  }
  const std::int64_t dx = Distance(from.x, to.x);
  const std::int64_t dy = Distance(from.y, to.y);
  const bool steep = dx < dy;
  const int stepX = from.x < to.x ? 1 : -1;
  const int stepY = from.y < to.y ? 1 : -1;
  const std::int64_t along = steep ? dy : dx;
  const std::int64_t across = steep ? dx : dy;
  const Slope slope{static_cast<std::uint64_t>(along), static_cast<std::uint64_t>(across)};
  const Inside inside = steep ? StepsInside(from.y, stepY, Height) : StepsInside(from.x, stepX, Width);
  const Inside moves = steep ? StepsInside(from.x, stepX, Width) : StepsInside(from.y, stepY, Height);
  const std::int64_t end = std::min(inside.end, along + 1);
  if (inside.first >= end || moves.first >= moves.end) return;
  const auto first =
      slope.FirstAt(moves.first, static_cast<std::uint64_t>(inside.first), static_cast<std::uint64_t>(end));
  const auto behind = slope.FirstAt(moves.end, first, static_cast<std::uint64_t>(end));
  if (first >= behind) return;

  auto [moved, error] = slope.At(first);
  const auto start = static_cast<std::int64_t>(first);
  int x = static_cast<int>(from.x + stepX * (steep ? moved : start));
  int y = static_cast<int>(from.y + stepY * (steep ? start : moved));
  int& walking = steep ? y : x;
  int& moving = steep ? x : y;
  const int step = steep ? stepY : stepX;
  const int move = steep ? stepX : stepY;
  const int last = walking + step * static_cast<int>(behind - first - 1);
  for (; ContinueLoop(walking, last, step); walking += step) {
    pixel(x, y);
    if (error >= 0) {
      moving += move;
      error -= 2 * along;
    }
    error += 2 * across;
  }
}

void CImgDrawLine::DrawPixel(int x, int y, float v) {
  if (const std::span<float> pixel = qmr::WriteRow(*this, y, 0, x, x + 1); !pixel.empty()) pixel[0] = v;
}

void CImgDrawLine::DrawPixel(int x, int y, float r, float g, float b) {
  const float values[] = {r, g, b};
  for (int p = 0; p < 3; ++p)
    if (const std::span<float> pixel = qmr::WriteRow(*this, y, p, x, x + 1); !pixel.empty()) pixel[0] = values[p];
}

bool CImgDrawLine::ContinueLoop(int i, int end, int step) {
  return step >= 0 ? i <= end : i >= end;
}
