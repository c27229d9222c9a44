#include "qmrimg/raw/honeycomb_to_rgb.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <span>
#include <utility>

#include "qmrimg/image/kernels/level_rows.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/levels/site_medians.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/truncate.h"
#include "qmrimg/raw/kernels/honeycomb_band.h"
#include "qmrimg/raw/kernels/tone_rows.h"
#include "qmrimg/raw/mosaic_run.h"
#include "qmrimg/store/parallel.h"

namespace {

constexpr int kMessageMono = 6145;
constexpr int kMessageColour = 6178;
// No band begins in the last rows of the mosaic.
constexpr int kRowsBelow = 4;

bool IsBitChange(int srcBits, int dstBits) {
  return srcBits == 12 && dstBits == 16;
}
bool AreBits(int srcBits, int dstBits) {
  return IsBitChange(srcBits, dstBits) || (srcBits == -32 && dstBits == -32);
}

qmr::HoneycombPairs PairsOf(int interpolation) {
  if (interpolation == 2) return qmr::HoneycombPairs::kRows;
  return interpolation == 1 ? qmr::HoneycombPairs::kColumns : qmr::HoneycombPairs::kBoth;
}

}  // namespace

// What happens to the samples between the mosaic and the development, and the range of the result.
struct CImgHoneyCombToRgb::Samples {
  qmr::SampleRange range;
  int yPhase;
  bool useGain;
  // One a site of the cell that begins at the origin.
  std::array<qmr::GainCurve, 8> gains;
  qmr::HoneycombSite origin;

  // What stands for row `row` of the mosaic into the band; false when the image has no such row.
  bool Load(const CImage& mosaic, int row, qmr::HoneycombBand& band) const {
    const int y = qmr::HoneycombSourceRow(row, mosaic.GetHeight(), yPhase);
    const std::span<const float> from = qmr::ReadRow(mosaic, y, 0, 0, band.Width());
    if (static_cast<int>(from.size()) != band.Width()) return false;
    for (int q = 1 - (row & 1); q < 4; q += 2) {
      const std::span<float> quarter = band.Quarter(row, q);
      qmr::SplitQuarter(from, q, quarter.data());
      if (range.bits) qmr::ScaleBitsRow(quarter, *range.bits);
      const int site = qmr::HoneycombSiteAt(y - origin.row, q - origin.column);
      if (useGain && site >= 0) qmr::ApplyGainRow(quarter, gains[static_cast<std::size_t>(site)]);
    }
    band.CloseRow(row);
    return true;
  }
};

CImgHoneyCombToRgb::CImgHoneyCombToRgb() = default;
CImgHoneyCombToRgb::CImgHoneyCombToRgb(const CImgHoneyCombToRgb& src) : CVynImage(src) {}
CImgHoneyCombToRgb::~CImgHoneyCombToRgb() = default;

CImgHoneyCombToRgb& CImgHoneyCombToRgb::operator=(const CImgHoneyCombToRgb& src) {
  CVynImage::operator=(src);
  return *this;
}

// More patterns than there are layouts, on purpose: the others are refused after the black level was subtracted.
int CImgHoneyCombToRgb::ArgCheck(const tagHoneyCombStruct* honeycomb) const {
  return honeycomb && honeycomb->pattern >= 1 && honeycomb->pattern <= 14 && Width > 9 && Height > 9 &&
         honeycomb->interpolation >= 1 && honeycomb->interpolation <= 3 &&
         AreBits(honeycomb->srcBits, honeycomb->dstBits);
}

int CImgHoneyCombToRgb::GetCFAParam(int pattern, int* xPhase, int* yPhase) const {
  if (!xPhase || !yPhase || !qmr::HoneycombLayout::IsPattern(pattern)) return 0;
  const qmr::HoneycombLayout layout = qmr::HoneycombLayout::Of(pattern);
  *xPhase = layout.xPhase;
  *yPhase = layout.yPhase;
  return 1;
}

int CImgHoneyCombToRgb::Do(tagHoneyCombStruct honeycomb, CVynImage* src, int bProgress) {
  if (!src || !CopyImage(*src)) return 0;
  return Do(honeycomb, bProgress);
}

int CImgHoneyCombToRgb::Do(tagHoneyCombStruct honeycomb, int bProgress) {
  if (!ArgCheck(&honeycomb)) return 0;
  const std::int64_t newWidth = std::int64_t{Width} - honeycomb.leftMargin - honeycomb.rightMargin;
  const std::int64_t newHeight = std::int64_t{Height} - honeycomb.topMargin - honeycomb.bottomMargin;
  const bool isInside = honeycomb.leftMargin >= 0 && honeycomb.topMargin >= 0 && honeycomb.rightMargin >= 0 &&
                        honeycomb.bottomMargin >= 0 && newWidth > 0 && newHeight > 0;
  if (!isInside || !VmImage || BitsPixel != -32 || (honeycomb.useGain && !honeycomb.gains)) return 0;
  if (honeycomb.subtractBlack) qmr::SubtractBlackLevel(*this, honeycomb.blackLevel);
  int xPhase = 0;
  int yPhase = 0;
  if (!GetCFAParam(honeycomb.pattern, &xPhase, &yPhase)) return 0;
  const int firstRow = yPhase + 4 * qmr::TruncateToInt(honeycomb.topMargin * 0.25);

  // The pixels move into the work image; bits and gains are applied to the rows as they are read.
  std::unique_ptr<CImgHoneyCombToRgb> work;
  try {
    work = std::make_unique<CImgHoneyCombToRgb>();
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
  work->Width = Width;
  work->Height = Height;
  work->SetPlanes(Planes);
  std::swap(VmImage, work->VmImage);
  if (!ChangeSize(static_cast<int>(newWidth), static_cast<int>(newHeight))) {
    std::swap(VmImage, work->VmImage);
    return 0;
  }
  if (!honeycomb.isMono && !ChangePlanes(3)) return 0;
  Samples samples{};
  std::vector<qmr::HoneycombBand> bands;
  try {
    samples = PrepareSamples(work.get(), honeycomb, yPhase);
    const int threads = CParallel::GetMaxThreads();
    bands.reserve(static_cast<std::size_t>(threads));
    for (int i = 0; i < threads; ++i)
      bands.emplace_back(work->Width, qmr::HoneycombLayout{xPhase, yPhase}, PairsOf(honeycomb.interpolation),
                         honeycomb.isMono != 0);
  } catch (const std::bad_alloc&) {
    return 0;
  } catch (CMemoryException* e) {
    e->Delete();
    return 0;
  }
  // On purpose percentages can run beyond 100: the last band advances by four rows where fewer are left, and the gamma,
  // counted once a row here, once a row and plane.
  const int units = std::max(work->Height - firstRow - kRowsBelow, 0) + (honeycomb.useGamma ? Height : 0);
  ShowProgressInit(bProgress, honeycomb.isMono ? kMessageMono : kMessageColour, units);
  const bool done = DevelopRows(*work, honeycomb, samples, firstRow, bands) &&
                    (!honeycomb.useGamma || GammaCorrect(this, &honeycomb));
  ShowProgressEnd(nullptr);
  return done;
}

CImgHoneyCombToRgb::Samples CImgHoneyCombToRgb::PrepareSamples(CImage* work, const tagHoneyCombStruct& honeycomb,
                                                               int yPhase) {
  Samples samples{};
  samples.range = qmr::RangeOfSamples(*work, *this, honeycomb.srcBits, honeycomb.dstBits, honeycomb.autoRange,
                                      [this, work](double* min, double* max) { GetMinMax(work, 0, min, max); });
  samples.yPhase = yPhase;
  samples.useGain = honeycomb.useGain != 0;
  samples.origin = qmr::HoneycombOrigin(*this);
  for (std::size_t site = 0; samples.useGain && site < 8; ++site)
    samples.gains[site] = {honeycomb.gains[site], samples.range.lo, samples.range.hi, honeycomb.useKnee != 0,
                           honeycomb.clip != 0};
  return samples;
}

// Bands of four rows are independent, so they run on all threads. With gains all of the picture comes from gained
// samples, as with the other kind of mosaic: luminance, and what the colours differ from it.
bool CImgHoneyCombToRgb::DevelopRows(const CImage& mosaic, const tagHoneyCombStruct& honeycomb, const Samples& samples,
                                     int firstRow, std::vector<qmr::HoneycombBand>& bands) {
  constexpr int kReach = qmr::HoneycombBand::kReach;
  const int end = mosaic.GetHeight() - kRowsBelow;
  const int count = end > firstRow ? (end - firstRow + 3) / 4 : 0;
  std::atomic<bool> failed = false;

  // The rows y - 1 to y + 1, of which the upper ones may be there from the row before.
  const auto add = [&](qmr::HoneycombBand& band, int y, bool isNext) {
    for (int row = isNext ? y + 1 : y - 1; row <= y + 1; ++row) {
      for (int from = isNext || row > y - 1 ? row + kReach : row - kReach; from <= row + kReach; ++from)
        if (!samples.Load(mosaic, from, band)) return false;
      band.Develop(row);
    }
    return true;
  };
  const auto write = [&](qmr::HoneycombBand& band, int y, int row) {
    if (!honeycomb.isMono) band.Synthesize(y);
    for (int p = 0; p < (honeycomb.isMono ? 1 : 3); ++p) {
      const std::span<float> out = qmr::WriteRow(*this, row, p, 0, Width);
      if (out.empty()) return false;
      if (honeycomb.isMono)
        band.CopyLuminance(y, honeycomb.leftMargin, out);
      else
        band.CopyColour(p, honeycomb.leftMargin, out);
      if (honeycomb.clip) qmr::LimitRow(out, samples.range.lo, samples.range.hi);
    }
    return true;
  };

  qmr::ForRowRanges(0, count, [&](int first, int last) {
    qmr::HoneycombBand& band = bands[static_cast<std::size_t>(CParallel::GetThreadNum())];
    bool isNext = false;
    for (int i = first; i < last; ++i) {
      for (int y = firstRow + 4 * i; y < firstRow + 4 * i + 4; ++y) {
        const int row = y - honeycomb.topMargin;
        if (row < 0 || row >= Height || failed) continue;
        if (!add(band, y, isNext) || !write(band, y, row)) failed = true;
        isNext = true;
      }
      ShowProgress(4);
    }
  });
  return !failed;
}
