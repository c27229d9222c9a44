#include "host/night/develop_mosaic.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/levels/honeycomb_sites.h"
#include "qmrimg/raw/bayer_to_rgb.h"
#include "qmrimg/raw/honeycomb_to_rgb.h"

namespace qmr {
namespace {

constexpr int kFloatBits = -32;
constexpr int kIntegerResultBits = 16;

// The members that the records of both sensors have.
template <class Record>
Record MakeRecord(const MosaicLayout& layout, const Development& development, std::vector<double>& gains) {
  Record record = {};
  record.pattern = layout.number;
  record.srcBits = development.bits ? development.bits : kFloatBits;
  record.dstBits = development.bits ? kIntegerResultBits : kFloatBits;
  record.leftMargin = development.margins.left;
  record.topMargin = development.margins.top;
  record.rightMargin = development.margins.right;
  record.bottomMargin = development.margins.bottom;
  record.isMono = development.mono;
  record.autoRange = development.autoRange;
  record.useGain = !gains.empty();
  record.useKnee = development.knee;
  record.gains = gains.data();
  record.useGamma = development.gamma > 0.0;
  record.gamma = development.gamma;
  record.clip = development.clip;
  record.subtractBlack = development.black != 0.0f;
  record.blackLevel = development.black;
  return record;
}

template <class Developer, class Record>
std::unique_ptr<CVynImage> Run(std::unique_ptr<CVynImage> mosaic, const Record& record, HWND progress) {
  Developer developer;
  developer.Swap(mosaic.get());
  developer.SetProgressHandle(progress);
  if (!developer.Do(record, progress ? 1 : 0)) return nullptr;
  developer.SetProgressHandle(nullptr);
  developer.SetBayerImage(0);
  developer.SetDevelopmentImage(1);
  auto image = std::make_unique<CVynImage>();
  image->Swap(&developer);
  return image;
}

// The library leaves the first row unwritten with margins at which its bands of rows begin after it; one row less is
// cut then.
int FullTop(const MosaicLayout& layout, int top) {
  if (top == 0) return top;
  if (layout.kind == MosaicLayout::Kind::Bayer) return top % 2 ? top : top - 1;
  return HoneycombLayout::Of(layout.number).yPhase % 2 && top % 4 == 0 ? top - 1 : top;
}

std::unique_ptr<CVynImage> WithoutFirstRow(const CVynImage& image) {
  auto rest =
      std::make_unique<CVynImage>(kFloatBits, image.GetWidth(), image.GetHeight() - 1, image.GetPlanes(), 1.0, 0.0, 1);
  for (int p = 0; p < image.GetPlanes(); ++p)
    ForRows(0, rest->GetHeight(), [&](int y) {
      const auto from = ReadRow(image, y + 1, p, 0, image.GetWidth());
      std::copy(from.begin(), from.end(), WriteRow(*rest, y, p, 0, image.GetWidth()).begin());
    });
  return rest;
}

}  // namespace

DevelopMargins LeastMargins(const MosaicLayout& mosaic, int width, int height) {
  if (mosaic.kind == MosaicLayout::Kind::HoneyComb) return {4, 4 + HoneycombLayout::Of(mosaic.number).yPhase, 4, 4};
  // One more at the end of an odd size, where the last row or column is not interpolated. The first margin is odd, or
  // the first row would stay unwritten.
  const auto last = [](int size) { return size % 2 ? 4 : 3; };
  return {3, 3, last(width), last(height)};
}

std::unique_ptr<CVynImage> DevelopMosaic(std::unique_ptr<CVynImage> mosaic, const MosaicLayout& layout,
                                         const Development& development, HWND progress) {
  const DevelopMargins& margins = development.margins;
  if (margins.left + margins.right >= mosaic->GetWidth() || margins.top + margins.bottom >= mosaic->GetHeight())
    return nullptr;
  std::vector<double> gains = development.gains;
  const int top = FullTop(layout, margins.top);
  std::unique_ptr<CVynImage> image;
  if (layout.kind == MosaicLayout::Kind::Bayer) {
    auto record = MakeRecord<tagBayerStruct>(layout, development, gains);
    record.topMargin = top;
    image = Run<CImgBayerToRgb>(std::move(mosaic), record, progress);
  } else {
    FillEmptySites(*mosaic, layout, 0.0f);
    // For the range the library leaves out the masked borders of one camera, which only its whole frames have, and
    // counts the sites of the gains from within them: here they count from the first row and column.
    constexpr int kWholeFrame = 1000;
    if (!gains.empty() || std::min(mosaic->GetWidth(), mosaic->GetHeight()) < kWholeFrame)
      mosaic->GetHeader()->SetCameraModel(CString());
    auto record = MakeRecord<tagHoneyCombStruct>(layout, development, gains);
    record.topMargin = top;
    record.interpolation = static_cast<BYTE>(development.interpolation);
    image = Run<CImgHoneyCombToRgb>(std::move(mosaic), record, progress);
  }
  return image && top != margins.top ? WithoutFirstRow(*image) : std::move(image);
}

void FillEmptySites(CVynImage& image, const MosaicLayout& layout, float value) {
  if (layout.kind != MosaicLayout::Kind::HoneyComb) return;
  ForRows(0, image.GetHeight(), [&](int y) {
    const std::span<float> row = WriteRow(image, y, 0, 0, image.GetWidth());
    for (std::size_t x = SiteColour(layout.number, y, 0) < 0 ? 0 : 1; x < row.size(); x += 2) row[x] = value;
  });
}

}  // namespace qmr
