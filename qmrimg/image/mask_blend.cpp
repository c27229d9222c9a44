#include "qmrimg/image/mask_blend.h"

#include <algorithm>
#include <cstddef>

#include "qmrimg/image/kernels/mask_rows.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace qmr {

void BlendUnderMask(CVynImage& target, const CVynImage* src, const CVynImage* mask, int left, int right, int top,
                    int bottom, int bReverse) {
  if (!src || !mask) return;
  const float low = static_cast<float>(mask->GetLevelMin(0));
  const float high = static_cast<float>(mask->GetLevelMax(0));
  if (high == low) return;
  const MaskLevels levels = {low, 1.0f / (high - low)};
  const CRect rect(left, top, right, bottom);
  target.NormalizeRect(&rect, left, top, right, bottom);
  for (int p = 0; p < target.GetPlanes(); ++p) {
    const int plane = std::min(p, src->GetPlanes() - 1);
    ForRows(
        top, bottom,
        [&](int y) {
          const std::span<float> to = WriteRow(target, y, p, left, right);
          const std::span<const float> from = ReadRow(*src, y, plane, left, right);
          const std::span<const float> weight = ReadRow(*mask, y, 0, left, right);
          const std::size_t width = std::min({to.size(), from.size(), weight.size()});
          const std::span<float> out = to.first(width);
          if (bReverse)
            BlendRow(out, from.first(width), weight.first(width), out, levels);
          else
            BlendRow(from.first(width), out, weight.first(width), out, levels);
        },
        &target);
  }
}

}  // namespace qmr

void CVynImage::ApplyMask_Do0_x(CVynImage* src, CVynImage* mask, int left, int right, int top, int bottom,
                                int bReverse) {
  qmr::BlendUnderMask(*this, src, mask, left, right, top, bottom, bReverse);
}
