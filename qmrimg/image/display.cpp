// Rendering into the host's bitmap.
#include <algorithm>

#include "qmrimg/image/dib.h"
#include "qmrimg/image/kernels/display_rows.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/vyn_image.h"

namespace {

struct Area {
  int left, top, right, bottom;
};

// From the bitmap's size; a left or top beyond it starts at the last column or row.
Area AreaOf(const CMemoryDIB& dib, const CRect* pRect) {
  const int width = dib.GetWidth();
  const int height = dib.GetHeight();
  if (!pRect) return {0, 0, width, height};
  return {std::clamp<int>(pRect->left, 0, width - 1), std::clamp<int>(pRect->top, 0, height - 1),
          std::clamp<int>(pRect->right, 0, width), std::clamp<int>(pRect->bottom, 0, height)};
}

}  // namespace

void CVynImage::ToDIB(CMemoryDIB* dib, const CRect* pRect, int unused) {
  (void)unused;
  if (!dib || dib->GetWidth() <= 0 || dib->GetHeight() <= 0) return;
  const int bits = dib->GetBitCount();
  if (bits != 8 && bits != 16 && bits != 24 && bits != 32) return;
  const Area area = AreaOf(*dib, pRect);
  const bool rgb = qmr::HasRgb(*this);
  const qmr::DisplayLevels levels[3] = {qmr::DisplayLevelsOf(*this, 0), qmr::DisplayLevelsOf(*this, 1),
                                        qmr::DisplayLevelsOf(*this, 2)};
  qmr::ForRows(area.top, area.bottom, [&](int y) {
    const auto r = qmr::ReadRow(*this, y, 0, area.left, area.right);
    const auto g = rgb ? qmr::ReadRow(*this, y, 1, area.left, area.right) : r;
    const auto b = rgb ? qmr::ReadRow(*this, y, 2, area.left, area.right) : r;
    std::uint32_t words[qmr::kDisplayChunk];
    for (std::size_t x = 0; x < r.size(); x += qmr::kDisplayChunk) {
      const std::size_t count = std::min(qmr::kDisplayChunk, r.size() - x);
      if (rgb)
        qmr::RgbWords(r.data() + x, g.data() + x, b.data() + x, count, levels, words);
      else
        qmr::GrayWords(r.data() + x, count, levels[0], words);
      const int column = area.left + static_cast<int>(x);
      switch (bits) {
        case 8:
          if (rgb)
            qmr::StoreRgb8(words, count, dib->GetImageAdr8(column, y));
          else
            qmr::StoreGray8(words, count, dib->GetImageAdr8(column, y));
          break;
        case 16:
          qmr::StoreDithered16(words, count, column + y, dib->GetImageAdr16(column, y));
          break;
        case 24:
          qmr::Store24(words, count, dib->GetImageAdr24(column, y));
          break;
        default:
          qmr::Store32(words, count, dib->GetImageAdr32(column, y));
      }
    }
  });
}
