#include "host/composite/sample_match.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <span>
#include <vector>

#include "host/composite/placement.h"
#include "host/night/registration/binned_image.h"
#include "host/night/registration/luminance.h"
#include "qmrimg/filters/filter_blur.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/stacking/matching.h"

namespace qmr {
namespace {

std::unique_ptr<CVynImage> Blurred(CVynImage& image, double sigma) {
  auto blurred = std::make_unique<CImgFilterBlur>();
  static_cast<CVynImage&>(*blurred) = image;
  blurred->GaussianFilter(sigma, &image, nullptr, 0);
  return blurred;
}

// Matching compares the means of its images, which must not be 0.
constexpr double kMeanOfDetail = 100.0;

// What matching is to see: brightness without spikes and slopes of the sky, in units of its deviation. Noise draws a
// match towards the middles between pixels, where interpolation takes it away; the light blur leaves less of it.
std::unique_ptr<CVynImage> Detail(const CVynImage& image) {
  const BinnedImage calm = Bin(Luminance(image), 1);
  auto brightness = EmptyImage(calm.width, calm.height, 1);
  for (int y = 0; y < calm.height; ++y)
    std::copy_n(calm.Row(y), calm.width, WriteRow(*brightness, y, 0, 0, calm.width).begin());
  constexpr double kFine = 1.5;
  constexpr double kCoarse = 12.0;
  std::unique_ptr<CVynImage> detail = Blurred(*brightness, kFine);
  const std::unique_ptr<CVynImage> broad = Blurred(*brightness, kCoarse);
  std::vector<float> sizes;
  sizes.reserve(calm.pixels.size());
  for (int y = 0; y < calm.height; ++y) {
    const std::span<float> row = WriteRow(*detail, y, 0, 0, calm.width);
    const std::span<const float> slope = ReadRow(*broad, y, 0, 0, calm.width);
    for (std::size_t x = 0; x < row.size(); ++x) {
      row[x] -= slope[x];
      sizes.push_back(std::abs(row[x]));
    }
  }
  // What is far above the noise grows no further, lest the shape of one bright star decide.
  const auto middle = sizes.begin() + static_cast<std::ptrdiff_t>(sizes.size() / 2);
  std::nth_element(sizes.begin(), middle, sizes.end());
  constexpr double kKnee = 60.0;  // in such medians
  const double knee = *middle > 0.0f ? kKnee * *middle : std::numeric_limits<double>::infinity();
  double sum = 0.0, squares = 0.0;
  for (int y = 0; y < calm.height; ++y) {
    for (float& v : WriteRow(*detail, y, 0, 0, calm.width)) {
      v = static_cast<float>(v / (1.0 + std::abs(v) / knee));
      sum += v;
      squares += static_cast<double>(v) * v;
    }
  }
  const double count = static_cast<double>(calm.width) * calm.height;
  const double mean = sum / count;
  const double variance = squares / count - mean * mean;
  const double unit = variance > 0.0 ? 1.0 / std::sqrt(variance) : 0.0;
  for (int y = 0; y < calm.height; ++y)
    for (float& v : WriteRow(*detail, y, 0, 0, calm.width)) v = static_cast<float>(kMeanOfDetail + (v - mean) * unit);
  return detail;
}

// How the details of a field go with those of a sample that lies on it: field = mean + gain (sample - sample's mean).
struct Likeness {
  double gain = 1.0;
  double mean = 0.0, meanOfSample = 0.0;
  double correlation = 0.0;
};

Likeness Compare(const CVynImage& field, CVynImage& sample, double x, double y) {
  constexpr int kBilinear = 0;
  const LibraryGeometry place{x, y, 0.0};
  const CRect box = Intersection(FrameMap(place, sample.GetWidth(), sample.GetHeight()).Box(),
                                 CRect(0, 0, field.GetWidth(), field.GetHeight()));
  if (IsEmpty(box)) return {};
  const std::unique_ptr<CVynImage> laid = LayOut(sample, place, box, 1, kBilinear);
  double sums[5] = {};
  for (int row = box.top; row < box.bottom; ++row) {
    const std::span<const float> p = ReadRow(field, row, 0, box.left, box.right);
    const std::span<const float> q = ReadRow(*laid, row - box.top, 0, 0, box.Width());
    for (std::size_t i = 0; i < p.size(); ++i) {
      const double u = p[i] - kMeanOfDetail, v = q[i] - kMeanOfDetail;
      sums[0] += u;
      sums[1] += v;
      sums[2] += u * u;
      sums[3] += v * v;
      sums[4] += u * v;
    }
  }
  const double count = static_cast<double>(box.Width()) * box.Height();
  const double field2 = sums[2] - sums[0] * sums[0] / count;
  const double sample2 = sums[3] - sums[1] * sums[1] / count;
  const double product = sums[4] - sums[0] * sums[1] / count;
  if (!(field2 > 0.0 && sample2 > 0.0)) return {};
  return {product / sample2, kMeanOfDetail + sums[0] / count, kMeanOfDetail + sums[1] / count,
          product / std::sqrt(field2 * sample2)};
}

void MakeLike(CVynImage& sample, const Likeness& likeness) {
  for (int y = 0; y < sample.GetHeight(); ++y)
    for (float& v : WriteRow(sample, y, 0, 0, sample.GetWidth()))
      v = static_cast<float>(likeness.mean + (v - likeness.meanOfSample) * likeness.gain);
}

// The place of the sample on the field as the library finds it, starting from (x, y). False where it finds none.
bool Search(const CVynImage& field, CVynImage& sample, int range, double& x, double& y) {
  CImgMatching matching;
  matching.Swap(Cut(field, CRect(0, 0, field.GetWidth(), field.GetHeight())).get());
  return matching.Do(&sample, &x, &y, 2 * range, 1, 0) != 0;
}

CRect Grown(const CRect& r, int by) {
  return {r.left - by, r.top - by, r.right + by, r.bottom + by};
}

CRect Moved(const CRect& r, int x, int y) {
  return {r.left + x, r.top + y, r.right + x, r.bottom + y};
}

}  // namespace

std::optional<SampleMatch> MatchSample(const CVynImage& below, const CVynImage& above, const CRect& part, int range) {
  // The blurs reach that far.
  constexpr int kReach = 40;
  const CRect seen = Intersection(Grown(part, range + kReach), CRect(0, 0, below.GetWidth(), below.GetHeight()));
  const CRect inSeen = Moved(part, -seen.left, -seen.top);
  const std::unique_ptr<CVynImage> sample = Cut(*Detail(*Cut(above, seen)), inSeen);
  const std::unique_ptr<CVynImage> field = Cut(*Detail(*Cut(below, seen)), Grown(inSeen, range));
  double x = range;
  double y = range;
  if (!Search(*field, *sample, range, x, y)) return std::nullopt;
  Likeness likeness = Compare(*field, *sample, x, y);
  // A sample whose details are stronger than the field's fits best where interpolation blurs it, half way between
  // pixels. So they are made alike where the sample was found, and the last pixel is searched again.
  constexpr int kRounds = 2;
  for (int round = 0; round < kRounds && likeness.correlation > 0.0; ++round) {
    MakeLike(*sample, likeness);
    constexpr int kNear = 2;
    const CRect near = Intersection(Grown(Moved(CRect(0, 0, part.Width(), part.Height()),
                                                static_cast<int>(std::lround(x)), static_cast<int>(std::lround(y))),
                                          kNear),
                                    CRect(0, 0, field->GetWidth(), field->GetHeight()));
    double nearX = std::round(x) - near.left;
    double nearY = std::round(y) - near.top;
    if (!Search(*Cut(*field, near), *sample, 1, nearX, nearY)) break;
    x = near.left + nearX;
    y = near.top + nearY;
    likeness = Compare(*field, *sample, x, y);
  }
  return SampleMatch{x - range, y - range, likeness.correlation};
}

}  // namespace qmr
