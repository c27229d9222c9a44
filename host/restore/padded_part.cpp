#include "host/restore/padded_part.h"

#include <algorithm>
#include <span>

#include "qmrimg/image/row_access.h"

namespace qmr {
namespace {

// Where a line of `inside` elements that goes on mirrored has its element `at`.
int Mirrored(int at, int inside) {
  const int place = at % (2 * inside);
  return place < inside ? place : 2 * inside - 1 - place;
}

// For each place behind the line the two elements that it is mixed of.
struct Mix {
  int right, left;
  float share;  // of `left`
};
std::vector<Mix> MixesOf(int inside, int all) {
  std::vector<Mix> mixes;
  const int behind = all - inside;
  for (int i = 0; i < behind; ++i)
    mixes.push_back({Mirrored(inside + i, inside), Mirrored(behind - 1 - i, inside),
                     (static_cast<float>(i) + 0.5f) / static_cast<float>(behind)});
  return mixes;
}

}  // namespace

PaddedPart::PaddedPart(const CVynImage& image, int plane, const CRect& part, int width, int height, double offset,
                       double scale)
    : width_(width), height_(height), data_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height)) {
  const int w = part.Width(), h = part.Height();
  const std::vector<Mix> across = MixesOf(w, width), down = MixesOf(h, height);
  for (int y = 0; y < h; ++y) {
    const std::span<const float> from = ReadRow(image, part.top + y, plane, part.left, part.right);
    float* const row = &At(0, y);
    for (std::size_t x = 0; x < from.size(); ++x) row[x] = static_cast<float>((from[x] - offset) * scale);
    for (std::size_t i = 0; i < across.size(); ++i)
      row[static_cast<std::size_t>(w) + i] =
          row[across[i].right] * (1.0f - across[i].share) + row[across[i].left] * across[i].share;
  }
  for (std::size_t i = 0; i < down.size(); ++i) {
    const float* const right = &At(0, down[i].right);
    const float* const left = &At(0, down[i].left);
    float* const row = &At(0, h + static_cast<int>(i));
    for (int x = 0; x < width; ++x) row[x] = right[x] * (1.0f - down[i].share) + left[x] * down[i].share;
  }
}

int SmoothSize(int n) {
  for (;; ++n) {
    int rest = n;
    for (const int prime : {2, 3, 5})
      while (rest % prime == 0) rest /= prime;
    if (rest == 1) return n;
  }
}

int PowerOfTwo(int n) {
  int size = 1;
  while (size < n) size *= 2;
  return size;
}

}  // namespace qmr
