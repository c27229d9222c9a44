// Planes of the Lab space.
#include <memory>

#include "qmrimg/colour/kernels/lab_rows.h"
#include "qmrimg/colour/rgb_rows.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/exception.h"

namespace {

constexpr int kMessageL = 6101;
constexpr int kMessageAb = 6102;
constexpr int kMessageLab = 6133;
constexpr float kHigh = 5000.0f;

// One row of the source, taken to L, a and b.
void ConvertRow(const CVynImage& src, int y, const qmr::LabResult& to, float high) {
  const int width = src.GetWidth();
  if (!qmr::HasRgb(src)) {
    // Colour is limited as asked, grey always to the wide range, on purpose.
    const qmr::RowLevels levels = {src.GetLevelMin(0), src.GetLevelRange(0)};
    qmr::LabRow(qmr::ReadRow(src, y, 0, 0, width), to, levels, kHigh);
    return;
  }
  qmr::LabLevels levels;
  for (int p = 0; p < 3; ++p) {
    levels.min[p] = static_cast<float>(src.GetLevelMin(p));
    levels.k[p] = static_cast<float>(255.0 / src.GetLevelRange(p));
  }
  levels.high = high;
  qmr::RgbSource from = qmr::ReadRgb(src, y, 0, width);
  qmr::CutToShortest(from);
  qmr::LabRow(from, to, levels);
}

// A new image whose rows `convert(y, result)` writes; null without memory.
template <class Convert>
CVynImage* MakePlanes(CVynImage& src, int planes, int message, const Convert& convert) {
  std::unique_ptr<CVynImage> result;
  try {
    result = std::make_unique<CVynImage>(-32, src.GetWidth(), src.GetHeight(), planes, 1.0, 0.0, 1);
  } catch (CMemoryException* e) {
    e->Delete();
    return nullptr;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  result->SetStdCtr(src.GetStdCtr());
  src.ShowProgressInit(1, message, src.GetHeight());
  qmr::ForRows(
      0, src.GetHeight(), [&](int y) { convert(y, *result); }, &src);
  src.ShowProgressEnd(nullptr);
  return result.release();
}

std::span<float> Line(CVynImage& image, int y, int plane) {
  return qmr::WriteRow(image, y, plane, 0, image.GetWidth());
}

}  // namespace

CVynImage* CVynImage::MakeLPlane() {
  CVynImage* const result = MakePlanes(*this, 1, kMessageL, [this](int y, CVynImage& to) {
    ConvertRow(*this, y, {Line(to, y, 0), {}, {}}, kHigh);
  });
  if (result) result->SetLevel(0, GetLevelMin(0), GetLevelMax(0));
  return result;
}

CVynImage* CVynImage::MakeAbPlane(int bClamp255) {
  const float high = bClamp255 ? 255.0f : kHigh;
  return MakePlanes(*this, 2, kMessageAb, [this, high](int y, CVynImage& to) {
    ConvertRow(*this, y, {{}, Line(to, y, 0), Line(to, y, 1)}, high);
  });
}

CVynImage* CVynImage::MakeLabPlane() {
  return MakePlanes(*this, 3, kMessageLab, [this](int y, CVynImage& to) {
    ConvertRow(*this, y, {Line(to, y, 0), Line(to, y, 1), Line(to, y, 2)}, kHigh);
  });
}
