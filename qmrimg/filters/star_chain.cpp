// Stars found by a band-pass chain: smoothing, a Laplacian with a threshold, smoothing.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "qmrimg/filters/block_scan.h"
#include "qmrimg/filters/filter_block.h"
#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/filters/filter_special.h"
#include "qmrimg/filters/kernels/star_rows.h"
#include "qmrimg/filters/plane_values.h"
#include "qmrimg/filters/snapshot.h"
#include "qmrimg/filters/window_rows.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace {

constexpr int kMessageStarEnhance = 6173;

// What the chain does on one plane. Raw scale.
struct Chain {
  CFilterMatrix first;
  CFilterMatrix second;
  float low;
  float high;
  float limit;
};

// One thread's downward scan. Smoothed and detected rows exist beyond the image, too, each computed from the rows
// that a CFilterBlock around it reads: their sums meet the mirrored rows in reversed order.
class StarScan {
 public:
  StarScan(CVynImage& source, int plane, Chain& chain, int left, int right)
      : source_(source),
        plane_(plane),
        chain_(chain),
        width_(source.GetWidth()),
        radius_(chain.second.GetRadius()),
        left_(left),
        right_(std::min(right, width_)),
        starLeft_(std::max(left - radius_, 0)),
        starRight_(static_cast<int>(std::min<std::int64_t>(std::int64_t{right_} + radius_, width_))),
        smoothLeft_(std::max(starLeft_ - 1, 0)),
        smoothRight_(std::min(starRight_ + 1, width_)),
        scan_(source, plane, chain.first.GetRadius(), smoothLeft_, smoothRight_),
        smooth_(3 * static_cast<std::size_t>(width_)),
        stars_(width_, radius_, 0.0f),
        sums_(static_cast<std::size_t>(width_)) {
    const float* const weights = chain.second.At(-radius_, -radius_);
    skipEmpty_ = qmr::AllFinite({weights, static_cast<std::size_t>(chain.second.GetCount())});
  }

  // The smoothed stars of row `y`, columns left..right - 1; empty when the source has no such row. Rows come in
  // ascending order.
  std::span<const float> Row(int y) {
    if (right_ <= left_ || qmr::ReadRow(source_, y, plane_, left_, right_).empty()) return {};
    const std::int64_t last = std::int64_t{y} + radius_;
    for (nextStars_ = std::max(nextStars_, std::int64_t{y} - radius_); nextStars_ <= last; ++nextStars_)
      Detect(nextStars_);
    // Windows that lie inside the image sum in another form than those at its edges.
    const int inner = std::clamp(radius_, left_, right_);
    const int outer = std::clamp(width_ - radius_, inner, right_);
    Sum(y, left_, inner, qmr::SumTapsRounded);
    Sum(y, inner, outer, qmr::SumTaps);
    Sum(y, outer, right_, qmr::SumTapsRounded);
    return std::span<const float>(sums_).subspan(static_cast<std::size_t>(left_),
                                                 static_cast<std::size_t>(right_ - left_));
  }

 private:
  float* Smooth(std::int64_t y) { return smooth_.data() + ((y % 3 + 3) % 3) * width_; }

  void FillSmooth(std::int64_t y) {
    const std::span<float> row(Smooth(y) + smoothLeft_, static_cast<std::size_t>(smoothRight_ - smoothLeft_));
    if (y >= 0 && y < source_.GetHeight() && scan_.MoveTo(static_cast<int>(y))) {
      scan_.ConvolveClamped(chain_.first, chain_.low, chain_.high, row);
    } else {
      const CFilterBlock block(&source_, chain_.first.GetRadius(), 0, static_cast<int>(y), plane_, 2);
      for (int x = smoothLeft_; x < smoothRight_; ++x)
        row[static_cast<std::size_t>(x - smoothLeft_)] =
            block.ConvolveClamped(&chain_.first, x, chain_.low, chain_.high);
    }
    qmr::AbsoluteRow(row);
  }

  void Detect(std::int64_t y) {
    for (nextSmooth_ = std::max(nextSmooth_, y - 1); nextSmooth_ <= y + 1; ++nextSmooth_) FillSmooth(nextSmooth_);
    const float* const rows[3] = {Smooth(y - 1), Smooth(y), Smooth(y + 1)};
    const std::span<float> stars = stars_.Row(y);
    qmr::ResponseRow(rows, width_, starLeft_, starRight_, stars.data());
    qmr::DropBelow(stars.subspan(static_cast<std::size_t>(starLeft_), static_cast<std::size_t>(starRight_ - starLeft_)),
                   chain_.limit);
    stars_.Pad(y, starLeft_, starRight_);
    stars_.Flag(y, starLeft_, starRight_);
  }

  // Most rows hold no star in reach of a tile; they would add zeros, which change no sum of values not below 0.
  template <class SumOver>
  void Sum(int y, int first, int last, SumOver sumOver) {
    while (first < last) {
      const int end = skipEmpty_ ? stars_.SameUntil(first, last) : last;
      stars_.Gather(chain_.second, y, skipEmpty_ ? first : -1, taps_);
      sumOver(taps_, static_cast<std::size_t>(first), static_cast<std::size_t>(end), sums_.data());
      first = end;
    }
  }

  CVynImage& source_;
  int plane_;
  Chain& chain_;
  int width_;
  int radius_;
  int left_;
  int right_;
  int starLeft_;
  int starRight_;
  int smoothLeft_;
  int smoothRight_;
  qmr::BlockScan scan_;
  std::vector<float> smooth_;
  qmr::WindowRows stars_;
  std::vector<float> sums_;
  std::vector<qmr::BlockTap> taps_;
  bool skipEmpty_ = false;
  // Rows not yet computed.
  std::int64_t nextSmooth_ = INT64_MIN;
  std::int64_t nextStars_ = INT64_MIN;
};

enum class Output { kAdd, kAlone, kBlend };

// `setKernels(plane, chain)` builds the two kernels.
void EnhanceStars(CVynImage& destination, qmr::FunctionRef<void(int, Chain&)> setKernels, const double* gain,
                  const double* threshold, Output output, CVynImage* source, CRect* pRect, int bProgress) {
  if (!source) return;
  int left, top, right, bottom;
  destination.NormalizeRect(pRect, left, top, right, bottom);
  destination.ShowProgressInit(bProgress, kMessageStarEnhance, (bottom - top) * destination.GetPlanes());
  qmr::Snapshot before(destination);
  CVynImage& image = before.Of(*source);
  for (int p = 0; p < std::min(destination.GetPlanes(), image.GetPlanes()); ++p) {
    Chain chain;
    setKernels(p, chain);
    chain.low = static_cast<float>(image.GetLevelMin(p));
    chain.high = static_cast<float>(image.GetLevelMax(p));
    chain.limit = qmr::StarLimit(threshold[p], image.GetLevelRange(p));
    const auto strength = static_cast<float>(gain[p]);
    qmr::ForRowRanges(top, bottom, [&](int first, int last) {
      StarScan scan(image, p, chain, left, right);
      for (int y = first; y < last; ++y) {
        const std::span<const float> stars = scan.Row(y);
        const auto [from, to] = qmr::RowPair(image, destination, y, p, left, right);
        if (!stars.empty() && output == Output::kAdd)
          qmr::AddStars(from, stars, strength, to);
        else if (!stars.empty() && output == Output::kAlone)
          qmr::StarsAlone(stars, strength, chain.low, to);
        else if (!stars.empty())
          qmr::BlendStars(from, stars, strength, chain.low, to);
        destination.ShowProgress(1);
      }
    });
  }
  destination.ShowProgressEnd(nullptr);
}

}  // namespace

void CImgFilterSpecial::StarEnhanceFilter(double sigma, double gain, double threshold, int maskOnly, CVynImage* source,
                                          CRect* pRect, int bProgress) {
  EnhanceStars(
      *this,
      [&](int, Chain& chain) {
        chain.first.SetGaussianSigma(sigma);
        chain.second.SetGaussian(1, 1.0);
      },
      qmr::ForAllPlanes(gain, *this).data(), qmr::ForAllPlanes(threshold, *this).data(),
      maskOnly ? Output::kAlone : Output::kAdd, source, pRect, bProgress);
}

void CImgFilterSpecial::StarEnhanceFilter2(double* sigma, double* gain, double* threshold, int maskOnly,
                                           CVynImage* source, CRect* pRect, int bProgress) {
  EnhanceStars(
      *this,
      [&](int p, Chain& chain) {
        chain.first.SetGaussianSigma(1.0);
        chain.second.SetGaussianSigma(sigma[p]);
      },
      gain, threshold, maskOnly ? Output::kAlone : Output::kAdd, source, pRect, bProgress);
}

void CImgFilterSpecial::StaryMask(double sigma, double gain, double threshold, int blend, CVynImage* source,
                                  CRect* pRect, int bProgress) {
  EnhanceStars(
      *this,
      [&](int, Chain& chain) {
        chain.first.SetGaussianSigma(1.0);
        chain.second.SetGaussianSigma(sigma);
      },
      qmr::ForAllPlanes(gain, *this).data(), qmr::ForAllPlanes(threshold, *this).data(),
      blend ? Output::kBlend : Output::kAlone, source, pRect, bProgress);
}
