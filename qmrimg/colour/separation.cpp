#include "qmrimg/colour/separation.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "qmrimg/colour/composition.h"
#include "qmrimg/image/row_access.h"

namespace {

// Every channel reports with the message of red, green and blue, on purpose.
constexpr int kMessageSeparation = 6137;

// The two planes whose mean makes a channel, and the two of its levels.
struct Channel {
  int planes[2];
  int levels[2];
};
constexpr Channel kChannels[] = {
    {{0, 0}, {0, 0}},
    {{1, 1}, {1, 1}},
    {{2, 2}, {2, 2}},
    {{2, 1}, {2, 1}},
    {{2, 0}, {2, 0}},
    // The levels of planes 2 and 0 on purpose: hosts have always shown yellow so.
    {{1, 0}, {2, 0}},
};

}  // namespace

CImgSeparation::CImgSeparation() = default;
CImgSeparation::CImgSeparation(const CImgSeparation& src) = default;
CImgSeparation::~CImgSeparation() = default;
CImgSeparation& CImgSeparation::operator=(const CImgSeparation& src) = default;

void CImgSeparation::Do(CVynImage* src, int channel, int bProgress) {
  if (!src || Planes != 1 || src->GetPlanes() != qmr::kRgbPlanes || src->GetWidth() != Width ||
      src->GetHeight() != Height)
    return;
  ShowProgressInit(bProgress, kMessageSeparation, Height);
  const bool known = channel >= 0 && channel < static_cast<int>(std::size(kChannels));
  if (known) {
    const auto& [from, to] = kChannels[channel].levels;
    const qmr::Levels levels = qmr::MeanLevels(qmr::LevelsOf(*src, from), qmr::LevelsOf(*src, to));
    SetLevel(0, levels.min, levels.max);
  }
  qmr::ForRows(
      0, Height,
      [&](int y) {
        if (!known) return;
        const auto& [first, second] = kChannels[channel].planes;
        const auto a = qmr::ReadRow(*src, y, first, 0, Width);
        const auto b = qmr::ReadRow(*src, y, second, 0, Width);
        const auto row = qmr::WriteRow(*this, y, 0, 0, Width);
        const std::size_t width = std::min({a.size(), b.size(), row.size()});
        if (first == second)
          std::copy_n(a.begin(), width, row.begin());
        else
          qmr::MeanRow(a.first(width), b.first(width), row.first(width));
      },
      this);
  ShowProgressEnd(nullptr);
}
