#include "qmrimg/levels/bright.h"

#include "qmrimg/levels/bright_run.h"
#include "qmrimg/levels/point_run.h"
#include "qmrimg/store/parallel.h"

namespace {

constexpr int kMessageBright = 6115;

qmr::BrightLevels LevelsOf(const CVynImage& image, int plane, float brightness, float contrast, float average) {
  const double range = static_cast<float>(image.GetLevelRange(plane));
  return {static_cast<float>(image.GetLevelMin(plane)),
          static_cast<float>(255.0 / range),
          static_cast<float>(range / 255.0),
          average,
          static_cast<float>(contrast * 0.00390625),
          brightness};
}

void BrightPlanes(CVynImage& target, const float* brightness, const float* contrast, float average,
                  const CVynImage& source, const qmr::PointArea& area, qmr::Stores stores) {
  for (int p = 0; p < target.GetPlanes(); ++p) {
    const float b = brightness ? brightness[p] : 0.0f;
    const float c = contrast ? contrast[p] : 0.0f;
    const bool copy = b == 0.0f && c == 0.0f;
    const qmr::BrightLevels levels = LevelsOf(target, p, b, c, average);
    qmr::ForPointRows(target, source, p, area, stores, [&](std::span<const float> from, std::span<float> to) {
      if (copy)
        qmr::CopyRow(from, to, area.left, stores);
      else
        qmr::BrightRow(from, to, area.left, stores, levels);
    });
  }
}

}  // namespace

void qmr::RunBright(CVynImage& target, const float* brightness, const float* contrast, double average,
                    CVynImage* source, const CRect* pRect, int bProgress) {
  if (!source) return;
  const PointArea area = AreaOf(target, pRect);
  target.ShowProgressInit(bProgress, kMessageBright, RowUnits(area.bottom - area.top, target.GetPlanes()));
  BrightPlanes(target, brightness, contrast, static_cast<float>(average), *source, area,
               CKorSys::SIMD() & 2 ? Stores::kStreaming : Stores::kPlain);
  target.ShowProgressEnd(nullptr);
}

CImgBright::CImgBright() = default;
CImgBright::CImgBright(const CImgBright& src) : CVynImage(src) {}
CImgBright::~CImgBright() = default;

CImgBright& CImgBright::operator=(const CImgBright& src) {
  CVynImage::operator=(src);
  return *this;
}

void CImgBright::Do(float* brightness, float* contrast, double average, CVynImage* source, CRect* pRect,
                    int bProgress) {
  qmr::RunBright(*this, brightness, contrast, average, source, pRect, bProgress);
}

void CImgBright::DoBright(float* brightness, float* contrast, float average, CVynImage* source, int left, int right,
                          int top, int bottom) {
  BrightPlanes(*this, brightness, contrast, average, *source, {left, right, top, bottom}, qmr::Stores::kPlain);
}

void CImgBright::DoBright_x(float* brightness, float* contrast, float average, CVynImage* source, int left, int right,
                            int top, int bottom) {
  BrightPlanes(*this, brightness, contrast, average, *source, {left, right, top, bottom}, qmr::Stores::kStreaming);
}

float CImgBright::BrightPixel(float value, float levelMin, float toScale, float fromScale, float average,
                              float contrastFactor, float brightness) const {
  return qmr::BrightPixel(value, {levelMin, toScale, fromScale, average, contrastFactor, brightness});
}
