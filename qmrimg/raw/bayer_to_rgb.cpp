#include "qmrimg/raw/bayer_to_rgb.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <utility>

#include "qmrimg/image/kernels/level_rows.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/levels/site_medians.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/truncate.h"
#include "qmrimg/raw/kernels/bayer_band.h"
#include "qmrimg/raw/kernels/tone_rows.h"
#include "qmrimg/raw/mosaic_run.h"
#include "qmrimg/store/parallel.h"

namespace {

constexpr int kMessageMono = 6145;
constexpr int kMessageColour = 6178;
// The first row of the first band's pair, and the rows that a band has below the first row of its pair.
constexpr int kFirstRow = 3;
constexpr int kRowsBelow = 4;

bool IsBitChange(int srcBits, int dstBits) {
  return (srcBits == 12 || srcBits == 14) && dstBits == 16;
}
bool AreBits(int srcBits, int dstBits) {
  return IsBitChange(srcBits, dstBits) || (srcBits == -32 && dstBits == -32);
}

// Medians below 1.0 belong to empty sites.
double GainFor(float green, float median) {
  return median < 1.0f ? 1.0 : static_cast<double>(green / median);
}

}  // namespace

// What happens to the samples between the mosaic and the development, and the range of the result.
struct CImgBayerToRgb::Samples {
  std::optional<qmr::BitScale> bits;
  bool useGain;
  // One a site class.
  std::array<qmr::GainCurve, 4> gains;
  float lo;
  float hi;

  // Mosaic row `y` into the band; false when the image has no such row.
  bool Load(const CImage& mosaic, int y, qmr::BayerBand& band) const {
    const std::span<const float> row = qmr::ReadRow(mosaic, y, 0, 0, band.Width());
    if (static_cast<int>(row.size()) != band.Width()) return false;
    qmr::SplitBayerRow(row, band.Half(y, 0), band.Half(y, 1));
    for (int parity = 0; parity < 2; ++parity) {
      const std::span<float> half(band.Half(y, parity), band.Count());
      if (bits) qmr::ScaleBitsRow(half, *bits);
      if (useGain) qmr::ApplyGainRow(half, gains[static_cast<std::size_t>((y & 1) * 2 + parity)]);
    }
    return true;
  }
};

CImgBayerToRgb::CImgBayerToRgb() = default;
CImgBayerToRgb::CImgBayerToRgb(const CImgBayerToRgb& src) : CVynImage(src) {}
CImgBayerToRgb::~CImgBayerToRgb() = default;

CImgBayerToRgb& CImgBayerToRgb::operator=(const CImgBayerToRgb& src) {
  CVynImage::operator=(src);
  return *this;
}

int CImgBayerToRgb::ArgCheck(const tagBayerStruct* bayer) const {
  return bayer && qmr::BayerLayout::IsPattern(bayer->pattern) && Width >= 6 && Height >= 6 && bayer->leftMargin >= 3 &&
         bayer->topMargin >= 3 && bayer->rightMargin >= 3 && bayer->bottomMargin >= 3 &&
         AreBits(bayer->srcBits, bayer->dstBits);
}

int CImgBayerToRgb::Do(tagBayerStruct bayer, CVynImage* src, int bProgress) {
  if (!src || !CopyImage(*src)) return 0;
  return Do(bayer, bProgress);
}

int CImgBayerToRgb::Do(tagBayerStruct bayer, int bProgress) {
  if (!ArgCheck(&bayer)) return 0;
  const std::int64_t newWidth = std::int64_t{Width} - bayer.rightMargin - bayer.leftMargin;
  const std::int64_t newHeight = std::int64_t{Height} - bayer.bottomMargin - bayer.topMargin;
  if (newWidth <= 0 || newHeight <= 0 || !VmImage || BitsPixel != -32 || (bayer.useGain && !bayer.gains)) return 0;

  const int step = qmr::TruncateToInt(Height / 100.0);
  const int gammaUnits = bayer.useGamma ? static_cast<int>(newHeight) * 3 : 0;
  ShowProgressInit(bProgress, bayer.isMono ? kMessageMono : kMessageColour, Height - 7 + step * 10 + gammaUnits);
  if (bayer.subtractBlack) qmr::SubtractBlackLevel(*this, bayer.blackLevel);
  ShowProgress(step);

  // The pixels move into the work image; bits and gains are applied to the rows as they are read.
  std::unique_ptr<CImgBayerToRgb> work;
  try {
    work = std::make_unique<CImgBayerToRgb>();
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
  work->Width = Width;
  work->Height = Height;
  work->SetPlanes(Planes);
  for (int i = 0; i < 3; ++i) ShowProgress(step);
  std::swap(VmImage, work->VmImage);
  const Samples samples = PrepareSamples(work.get(), bayer);
  ShowProgress(step);
  if (!ChangeSize(static_cast<int>(newWidth), static_cast<int>(newHeight))) {
    std::swap(VmImage, work->VmImage);
    return 0;
  }
  ShowProgress(step);
  if (!bayer.isMono) {
    if (!ChangePlanes(3)) return 0;
    SetOrgPlanes(3);
  }
  std::vector<qmr::BayerBand> bands;
  try {
    const int threads = CParallel::GetMaxThreads();
    bands.reserve(static_cast<std::size_t>(threads));
    for (int i = 0; i < threads; ++i)
      bands.emplace_back(work->Width, qmr::BayerLayout::Of(bayer.pattern), bayer.isMono != 0);
  } catch (const std::bad_alloc&) {
    return 0;
  }
  for (int i = 0; i < 4; ++i) ShowProgress(step);

  const bool done = DevelopRows(*work, bayer, samples, bands) && (!bayer.useGamma || GammaCorrect(this, &bayer));
  ShowProgressEnd(nullptr);
  return done;
}

CImgBayerToRgb::Samples CImgBayerToRgb::PrepareSamples(CImage* work, const tagBayerStruct& bayer) {
  Samples samples{};
  const qmr::SampleRange range =
      qmr::RangeOfSamples(*work, *this, bayer.srcBits, bayer.dstBits, bayer.autoRange,
                          [work](double* min, double* max) { work->GetMinMax(0, min, max); });
  samples.bits = range.bits;
  samples.lo = range.lo;
  samples.hi = range.hi;
  samples.useGain = bayer.useGain != 0;
  for (std::size_t site = 0; samples.useGain && site < 4; ++site)
    samples.gains[site] = {bayer.gains[site], samples.lo, samples.hi, bayer.useKnee != 0, bayer.clip != 0};
  return samples;
}

bool CImgBayerToRgb::DevelopRows(const CImage& mosaic, const tagBayerStruct& bayer, const Samples& samples,
                                 std::vector<qmr::BayerBand>& bands) {
  const int height = mosaic.GetHeight();
  const int pairs = height - kRowsBelow > kFirstRow ? (height - kRowsBelow - kFirstRow + 1) / 2 : 0;
  const int top = bayer.topMargin / 2 * 2 + 1;
  const int bottom = (height - bayer.bottomMargin) / 2 * 2 - 1;
  std::atomic<bool> failed = false;

  const auto addRow = [&](qmr::BayerBand& band, int y) {
    if (!samples.Load(mosaic, y + 2, band)) return false;
    band.AddDiagonals(y + 1);
    band.AddSites(y);
    return true;
  };
  // The rows y - 1 to y + 2, of which the upper two may be there from the pair before.
  const auto addPair = [&](qmr::BayerBand& band, int y, bool isNext) {
    if (!isNext) {
      for (int row = y - kFirstRow; row <= y; ++row)
        if (!samples.Load(mosaic, row, band)) return false;
      band.AddDiagonals(y - 2);
      band.AddDiagonals(y - 1);
      if (!addRow(band, y - 1) || !addRow(band, y)) return false;
    }
    return addRow(band, y + 1) && addRow(band, y + 2);
  };
  const auto write = [&](qmr::BayerBand& band, int y) {
    const int row = y - bayer.topMargin;
    if (row < 0 || row >= Height) return true;
    for (int p = 0; p < (bayer.isMono ? 1 : 3); ++p) {
      const std::span<float> out = qmr::WriteRow(*this, row, p, 0, Width);
      if (out.empty()) return false;
      if (bayer.isMono)
        band.CopyLuminance(y, bayer.leftMargin, out);
      else
        band.Synthesize(y, p, bayer.leftMargin, out);
      if (bayer.clip) qmr::LimitRow(out, samples.lo, samples.hi);
    }
    return true;
  };

  qmr::ForRowRanges(0, pairs, [&](int first, int last) {
    qmr::BayerBand& band = bands[static_cast<std::size_t>(CParallel::GetThreadNum())];
    bool isNext = false;
    for (int i = first; i < last; ++i) {
      const int y = kFirstRow + 2 * i;
      if (y >= top && y <= bottom && !failed) {
        if (!addPair(band, y, isNext) || !write(band, y) || !write(band, y + 1)) failed = true;
        isNext = true;
      }
      ShowProgress(2);
    }
  });
  return !failed;
}

int CImgBayerToRgb::GetGain(int pattern, double* gains) {
  return GetGain(this, pattern, gains);
}

int CImgBayerToRgb::GetGain(CImage* image, int pattern, double* gains) {
  if (!image || image->GetBitsPixel() != -32 || !gains || !qmr::BayerLayout::IsPattern(pattern)) return 0;
  float medians[4] = {1.0f, 1.0f, 1.0f, 1.0f};
  qmr::MedianBayer(*image, medians, 1);
  // Green stands at the sites of mixed parity with patterns 1 and 3, at those of equal parity with 2 and 4.
  const bool isMixed = pattern % 2 != 0;
  const int green0 = isMixed ? 1 : 0;
  const int green1 = isMixed ? 2 : 3;
  const float green = (medians[green1] + medians[green0]) * 0.5f;
  for (int site = 0; site < 4; ++site)
    gains[site] = site == green0 || site == green1 ? 1.0 : GainFor(green, medians[site]);
  return 1;
}

int CImgBayerToRgb::GammaCorrect(CImage* image, tagBayerStruct* bayer) {
  return bayer ? qmr::CorrectGamma(this, image, bayer->dstBits, bayer->gamma) : 0;
}
