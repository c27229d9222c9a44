// Padded work images.
#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>

#include "qmrimg/filters/filter.h"
#include "qmrimg/filters/kernels/pattern_rows.h"
#include "qmrimg/filters/kernels/work_rows.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/messages.h"

namespace {

constexpr int kMessageDevelopmentWork = 6125;
constexpr int kMessageFilterWork = 6126;
constexpr int kMessagePreparing = 6169;
constexpr int kDefaultMargin = 2;
constexpr int kBrightnessPlane = 3;

// An image of `planes` planes with a margin around those of `source`; null when it can't be had.
std::unique_ptr<CVynImage> MakeLarger(const CVynImage& source, int margin, int planes, int bProgress) {
  const std::int64_t width = source.GetWidth() + 2 * static_cast<std::int64_t>(margin);
  const std::int64_t height = source.GetHeight() + 2 * static_cast<std::int64_t>(margin);
  constexpr std::int64_t kMost = std::numeric_limits<int>::max();
  if (width < 1 || height < 1 || width > kMost || height > kMost) return nullptr;
  const HWND window = bProgress ? source.GetProgressHandle() : nullptr;
  const wchar_t* const title = bProgress ? qmr::MessageText(kMessagePreparing) : nullptr;
  try {
    return std::make_unique<CVynImage>(-32, static_cast<int>(width), static_cast<int>(height), planes, 1.0, 0.0, 1,
                                       window, title);
  } catch (CMemoryException* e) {
    e->Delete();
  } catch (const std::bad_alloc&) {
  }
  return nullptr;
}

// The first `planes` planes of `source` into the middle of `work`, then the band around them. Rows of the source and
// rows of the work image count for the source's report.
void CopyAndMirror(CVynImage& source, CVynImage& work, int margin, int planes) {
  const int width = source.GetWidth();
  const int height = source.GetHeight();
  for (int p = 0; p < planes; ++p) {
    work.SetLevel(p, source.GetLevelMin(p), source.GetLevelMax(p));
    qmr::ForRows(
        0, height,
        [&](int y) {
          // A negative margin cuts off instead.
          const int cut = std::max(-margin, 0);
          const auto from = qmr::ReadRow(source, y, p, cut, width);
          const auto to = qmr::WriteRow(work, y + margin, p, std::max(margin, 0), work.GetWidth());
          std::copy_n(from.begin(), std::min(from.size(), to.size()), to.begin());
        },
        &source);
  }
  for (int p = 0; p < planes; ++p) {
    qmr::ForRows(
        0, work.GetHeight(),
        [&](int y) {
          const auto to = qmr::WriteRow(work, y, p, 0, work.GetWidth());
          const int inner = y - margin;
          if (inner < 0 || inner >= height) {
            const auto from = qmr::ReadRow(source, qmr::MirrorIndex(inner, height), p, 0, width);
            const auto middle = to.subspan(static_cast<std::size_t>(margin));
            std::copy_n(from.begin(), std::min(from.size(), middle.size()), middle.begin());
          }
          if (margin > 0) qmr::MirrorSides(to, margin, width);
        },
        &source);
  }
}

}  // namespace

CVynImage* CImgFilter::MakeFilterWork(int margin, int bProgress) {
  if (margin == 0) margin = kDefaultMargin;
  std::unique_ptr<CVynImage> work = MakeLarger(*this, margin, Planes, bProgress);
  if (!work) return nullptr;
  ShowProgressInit(bProgress, kMessageFilterWork, Planes * work->GetHeight() * 2);
  CopyAndMirror(*this, *work, margin, Planes);
  ShowProgressEnd(nullptr);
  return work.release();
}

CVynImage* CImgFilter::MakeDDWork(int margin, int bProgress) {
  if (margin == 0) margin = kDefaultMargin;
  const bool colour = qmr::HasRgb(*this);
  std::unique_ptr<CVynImage> work = MakeLarger(*this, margin, colour ? kBrightnessPlane + 1 : 1, bProgress);
  if (!work) return nullptr;
  const int width = work->GetWidth();
  const int height = work->GetHeight();
  ShowProgressInit(bProgress, kMessageDevelopmentWork, Planes * height * 2 + (colour ? height : 0));
  CopyAndMirror(*this, *work, margin, colour ? kBrightnessPlane : std::min(Planes, 1));
  if (colour) {
    work->SetLevel(kBrightnessPlane, GetLevelMin(0), GetLevelMax(0));
    const qmr::WorkLevels levels{work->GetLevelMin(0), work->GetLevelRange(0)};
    qmr::ForRows(
        0, height,
        [&](int y) {
          qmr::MeanBrightnessRow(qmr::ReadRow(*work, y, 0, 0, width), qmr::ReadRow(*work, y, 1, 0, width),
                                 qmr::ReadRow(*work, y, 2, 0, width),
                                 qmr::WriteRow(*work, y, kBrightnessPlane, 0, width), levels);
        },
        this);
  }
  ShowProgressEnd(nullptr);
  return work.release();
}
