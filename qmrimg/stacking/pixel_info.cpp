#include "qmrimg/stacking/pixel_info.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <numbers>
#include <vector>

#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/levels/kernels/equalize_rows.h"
#include "qmrimg/stacking/kernels/measure_rows.h"
#include "qmrimg/stacking/psf.h"
#include "qmrimg/store/parallel.h"

namespace {

constexpr int kOutputPlanes = 3;
constexpr int kSearchReach = 10;

void Put(double* to, int plane, double value) {
  if (to) to[plane] = value;
}

// Where results go, one entry a plane; any pointer may be null. All of them begin as 0.
struct Outputs {
  Outputs(const CVynImage& image, double* max, double* min, double* mean, double* sd, double* median)
      : planes(std::min(image.GetPlanes(), kOutputPlanes)), max(max), min(min), mean(mean), sd(sd), median(median) {
    for (double* const to : {max, min, mean, sd, median}) {
      for (int p = 0; p < planes; ++p) Put(to, p, 0.0);
    }
  }
  // Of values in ascending order.
  void PutBand(int plane, std::span<const float> band) const {
    if (band.empty()) return;
    const qmr::SortedStatistics statistics = qmr::StatisticsInOrder(band);
    Put(max, plane, band.back());
    Put(min, plane, band.front());
    Put(mean, plane, statistics.mean);
    Put(sd, plane, statistics.sd);
    Put(median, plane, band[band.size() / 2]);
  }

  const int planes;
  double *const max, *const min, *const mean, *const sd, *const median;
};

int ToInt(std::int64_t v) {
  return static_cast<int>(
      std::clamp<std::int64_t>(v, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

// The square from -before to +after about a point, `after` exclusive.
CRect Square(std::int64_t x, std::int64_t y, std::int64_t before, std::int64_t after) {
  return CRect(ToInt(x - before), ToInt(y - before), ToInt(x + after), ToInt(y + after));
}

// The part of a rectangle that lies in the image; empty for one that is reversed.
CRect Cut(const CVynImage& image, const CRect& rect) {
  CRect cut;
  int left, top, right, bottom;
  image.NormalizeRect(&rect, left, top, right, bottom);
  if (left < right && top < bottom) cut = CRect(left, top, right, bottom);
  return cut;
}

std::int64_t AreaOf(const CRect& rect) {
  return static_cast<std::int64_t>(rect.Width()) * rect.Height();
}

std::span<const float> RowOf(const CImage& image, const CRect& rect, int y, int plane) {
  return qmr::ReadRow(image, y, plane, static_cast<int>(rect.left), static_cast<int>(rect.right));
}

// Element `rank` of the sorted pixels, digit by digit of its place in the order of all values: no copy is made.
float RankedPixel(const CImage& image, const CRect& rect, int plane, std::int64_t rank) {
  constexpr int kDigits[][2] = {{21, 11}, {10, 11}, {0, 10}};
  constexpr std::size_t kCounts = std::size_t{1} << 11;
  const int top = static_cast<int>(rect.top), bottom = static_cast<int>(rect.bottom);
  std::vector<std::int64_t> counts;
  qmr::RankDigit digit = {};
  for (const auto& [shift, bits] : kDigits) {
    digit.shift = shift;
    digit.bits = bits;
    counts.assign(kCounts * static_cast<std::size_t>(CParallel::GetMaxThreads()), 0);
    qmr::ForRowRanges(top, bottom, [&](int first, int last) {
      std::int64_t* const mine = counts.data() + kCounts * static_cast<std::size_t>(CParallel::GetThreadNum());
      for (int y = first; y < last; ++y) qmr::CountDigits(RowOf(image, rect, y, plane), digit, mine);
    });
    const std::uint32_t last = (1u << bits) - 1u;
    std::uint32_t found = 0;
    for (;; ++found) {
      std::int64_t count = 0;
      for (std::size_t i = found; i < counts.size(); i += kCounts) count += counts[i];
      if (rank < count || found == last) break;
      rank -= count;
    }
    digit.known |= found << shift;
    digit.knownMask |= last << shift;
  }
  return qmr::OrderedValue(digit.known);
}

// Fractions of a sorted population kept below and above its median.
struct Fractions {
  double upper;
  double lower;
};

// Of at least one pixel.
std::span<const float> BandOf(std::span<const float> sorted, const Fractions& fractions) {
  const double n = static_cast<double>(sorted.size());
  const auto half = static_cast<std::int64_t>(sorted.size() / 2), end = static_cast<std::int64_t>(sorted.size()) - 1;
  // Truncated; what lies beyond the population, and not-a-number, has no need of its exact value.
  const auto place = [n](double v) {
    return std::isnan(v) ? std::int64_t{0} : static_cast<std::int64_t>(std::clamp(v, -1.0, n));
  };
  const std::int64_t low = std::min(half, std::max(place(n * (1.0 - fractions.lower) * 0.5), std::int64_t{0}));
  const std::int64_t reach = place(n * (1.0 + fractions.upper) * 0.5);
  // A population of two or less has no pixel behind the middle one.
  const std::int64_t high = reach > end ? end : std::min(std::max(reach, half + 1), end);
  return sorted.subspan(static_cast<std::size_t>(low), static_cast<std::size_t>(high - low + 1));
}

std::vector<float> PixelsOf(const CImage& image, const CRect& rect, int plane) {
  std::vector<float> values;
  values.reserve(static_cast<std::size_t>(AreaOf(rect)));
  for (int y = static_cast<int>(rect.top); y < rect.bottom; ++y) {
    const auto row = RowOf(image, rect, y, plane);
    values.insert(values.end(), row.begin(), row.end());
  }
  return values;
}

// As many pixels of each row as the circle is wide there, from the left edge of its square on, on purpose: the
// measures of hosts are made with this choice.
std::vector<float> PixelsOfCircle(const CVynImage& image, int x, int y, int radius, int plane) {
  const CRect box = Cut(image, Square(x, y, radius, radius));
  const auto reach = static_cast<std::int64_t>(radius) * radius;
  std::vector<float> values;
  for (int row = static_cast<int>(box.top); row < box.bottom; ++row) {
    const auto dy = static_cast<std::int64_t>(row) - y;
    std::size_t chord = 0;
    for (int column = static_cast<int>(box.left); column < box.right; ++column) {
      const auto dx = static_cast<std::int64_t>(column) - x;
      chord += dx * dx + dy * dy < reach ? 1 : 0;
    }
    const auto pixels = RowOf(image, box, row, plane);
    const auto taken = pixels.first(std::min(chord, pixels.size()));
    values.insert(values.end(), taken.begin(), taken.end());
  }
  return values;
}

// Measures each plane by its pixels in ascending order, on the calling thread. Plane after plane: the frame makes a
// lack of memory the library's exception.
template <class Gather, class Measure>
void ForSortedPlanes(int planes, const Gather& pixelsOf, const Measure& measure) {
  qmr::ForRowsSerial(0, planes, [&](int p) {
    std::vector<float> values = pixelsOf(p);
    qmr::SortAscending(values);
    if (!values.empty()) measure(p, std::span<const float>(values));
  });
}

}  // namespace

CImgPixelInfo::CImgPixelInfo() = default;
CImgPixelInfo::CImgPixelInfo(const CImgPixelInfo& src) = default;
CImgPixelInfo::~CImgPixelInfo() = default;
CImgPixelInfo& CImgPixelInfo::operator=(const CImgPixelInfo& src) = default;

void CImgPixelInfo::Calc(CRect rect, double* max, double* min, double* mean, double* sd, double* median) {
  const Outputs out(*this, max, min, mean, sd, median);
  const CRect cut = Cut(*this, rect);
  const std::int64_t area = AreaOf(cut);
  if (area == 0 || !qmr::HasFloats(*this)) return;
  const int top = static_cast<int>(cut.top), bottom = static_cast<int>(cut.bottom);
  qmr::ForRowsSerial(0, out.planes, [&](int p) {
    if (area == 1) return out.PutBand(p, RowOf(*this, cut, top, p));
    const qmr::PixelSums sums = qmr::FoldRows(
        top, bottom, qmr::PixelSums{}, [&](int y) { return qmr::SumRow(RowOf(*this, cut, y, p)); },
        [](const qmr::PixelSums& a, const qmr::PixelSums& b) { return qmr::Merge(a, b); });
    const double average = sums.sum / static_cast<double>(area);
    const double squares = qmr::FoldRows(
        top, bottom, 0.0, [&](int y) { return qmr::SumSquaredDeviations(RowOf(*this, cut, y, p), average); },
        [](double a, double b) { return a + b; });
    // Without a single number there is no extreme either.
    const bool any = sums.min <= sums.max;
    Put(max, p, any ? sums.max : average);
    Put(min, p, any ? sums.min : average);
    Put(mean, p, average);
    Put(sd, p, std::sqrt(squares / static_cast<double>(area)));
    if (median) median[p] = RankedPixel(*this, cut, p, area / 2);
  });
}

void CImgPixelInfo::Calc(CPoint pt, int size, double* max, double* min, double* mean, double* sd, double* median) {
  const std::int64_t half = size / 2;
  Calc(Square(pt.x, pt.y, half, half + 1), max, min, mean, sd, median);
}

void CImgPixelInfo::CalcSky(CRect rect, double* max, double* min, double* mean, double* sd, double* median) {
  const Outputs out(*this, max, min, mean, sd, median);
  const auto pixelsOf = [this, cut = Cut(*this, rect)](int p) { return PixelsOf(*this, cut, p); };
  ForSortedPlanes(out.planes, pixelsOf, [&](int p, std::span<const float> sorted) {
    out.PutBand(p, sorted.first(sorted.size() == 1 ? 1 : sorted.size() / 2));
  });
}

void CImgPixelInfo::CalcSky(CRect rect, double upper, double lower, double* max, double* min, double* mean, double* sd,
                            double* median) {
  const Outputs out(*this, max, min, mean, sd, median);
  const auto pixelsOf = [this, cut = Cut(*this, rect)](int p) { return PixelsOf(*this, cut, p); };
  ForSortedPlanes(out.planes, pixelsOf, [&](int p, std::span<const float> sorted) {
    out.PutBand(p, BandOf(sorted, {upper, lower}));
  });
}

void CImgPixelInfo::CalcSky(int x, int y, int radius, double upper, double lower, double* max, double* min,
                            double* mean, double* sd, double* median) {
  CalcStar(x, y, radius, upper, lower, max, min, mean, sd, median, nullptr, nullptr);
}

void CImgPixelInfo::CalcStar(int x, int y, int radius, double upper, double lower, double* max, double* min,
                             double* mean, double* sd, double* median, double* reserved, double* diameter) {
  const Outputs out(*this, max, min, mean, sd, median);
  for (int p = 0; p < out.planes; ++p) {
    Put(reserved, p, 0.0);
    Put(diameter, p, 0.0);
  }
  const auto pixelsOf = [=, this](int p) { return PixelsOfCircle(*this, x, y, radius, p); };
  ForSortedPlanes(out.planes, pixelsOf, [&](int p, std::span<const float> sorted) {
    const std::span<const float> band = BandOf(sorted, {upper, lower});
    out.PutBand(p, band);
    const double middle = band[band.size() / 2];
    const double half = (middle + sorted.back()) * 0.5;
    const auto bright = std::count_if(sorted.begin(), sorted.end(), [half](float v) { return v > half; });
    Put(diameter, p, 2.0 * std::sqrt(static_cast<double>(bright) / std::numbers::pi));
  });
}

void CImgPixelInfo::CalcFWHM(int x, int y, double* fwhm) {
  if (!fwhm) return;
  *fwhm = 0.0;
  const CRect window = Square(x, y, kSearchReach, kSearchReach);
  int peakX, peakY;
  GetMaxPixel(0, &window, peakX, peakY);
  PSF star(this);
  double psf;
  if (star.Add(CPoint(peakX, peakY)) && star.GetMeanPSF(&psf)) *fwhm = star.PsfToFwhm(psf);
}
