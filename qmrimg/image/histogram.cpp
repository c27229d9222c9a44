// Histograms.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <vector>

#include "qmrimg/image/kernels/histogram_rows.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/truncate.h"
#include "qmrimg/store/parallel.h"

namespace {

constexpr int kMessageHistogram = 6166;
// Tables larger than this are counted by one thread: filling and merging them costs more than the pixels.
constexpr int kBinsPerThreadLimit = 1 << 20;

// What one histogram call counts: the sheet, its sparse grid, and how a row goes into bins.
struct Sheet {
  int left, top, right, bottom;
  bool grid = false;
  int columns = 0;
  int rows = 0;

  Sheet(const CImage& image, const CRect* pRect, int bCull) {
    left = pRect ? std::max<int>(pRect->left, 0) : 0;
    top = pRect ? std::max<int>(pRect->top, 0) : 0;
    right = pRect ? std::min<int>(pRect->right, image.GetWidth()) : image.GetWidth();
    bottom = pRect ? std::min<int>(pRect->bottom, image.GetHeight()) : image.GetHeight();
    grid = bCull && image.IsHistogramCullParam() && image.GetHistogramCull(&columns, &rows) &&
           !(columns == image.GetWidth() && rows == image.GetHeight());
  }

  // Work units of the report.
  int Units() const {
    const std::int64_t units = static_cast<std::int64_t>(bottom) - top;
    return static_cast<int>(std::max<std::int64_t>(units, std::numeric_limits<int>::min()));
  }
};

// One set of counts a thread and a histogram.
class ThreadCounts {
 public:
  ThreadCounts(int bins, int histograms) : histograms_(histograms) {
    const int threads = bins > kBinsPerThreadLimit ? 1 : CParallel::GetMaxThreads();
    try {
      for (int i = 0; i < threads * histograms; ++i) counts_.emplace_back(bins);
    } catch (const std::bad_alloc&) {
      AfxThrowMemoryException();
    }
  }
  qmr::BinCounts& Of(int thread, int histogram) {
    return counts_[static_cast<std::size_t>(thread * histograms_ + histogram)];
  }
  bool IsSerial() const { return counts_.size() == static_cast<std::size_t>(histograms_); }
  void MergeInto(int histogram, int* hist) const {
    for (std::size_t i = static_cast<std::size_t>(histogram); i < counts_.size();
         i += static_cast<std::size_t>(histograms_))
      counts_[i].MergeInto(hist);
  }

 private:
  int histograms_;
  std::vector<qmr::BinCounts> counts_;
};

// Runs `row(y, thread)` over the sheet's rows. Counts are integers, so that the result is that of one thread.
template <class Row>
void CountRows(const Sheet& sheet, const ThreadCounts& counts, CVynImage& report, Row&& row) {
  if (counts.IsSerial()) {
    qmr::ForRowsSerial(
        sheet.top, sheet.bottom, [&](int y) { row(y, 0); }, &report);
    return;
  }
  qmr::ForRows(
      sheet.top, sheet.bottom, [&](int y) { row(y, CParallel::GetThreadNum()); }, &report);
}

// Carries the counts of a sparse grid over to the whole image.
void Rescale(int* hist, int bins, std::int64_t pixels, std::int64_t samples) {
  for (int i = 0; i < bins; ++i) {
    const std::int64_t count = hist[i] * pixels / std::max<std::int64_t>(samples, 1);
    hist[i] = static_cast<int>(std::min<std::int64_t>(count, std::numeric_limits<int>::max()));
  }
}

// An empty bin becomes the smallest int, on purpose: log10(0) is minus infinity.
void TakeLogarithms(int* hist, int bins) {
  for (int i = 0; i < bins; ++i) hist[i] = qmr::TruncateToInt(std::log10(static_cast<double>(hist[i])) * 10000.0);
}

// Twice the height of a flat histogram.
int FlatHeight(const CImage& image, int bins) {
  return qmr::TruncateToInt(2.0 * image.GetHeight() * image.GetWidth() / bins);
}

}  // namespace

int CVynImage::GetHeightOfHistogram(const int* hist, int bins) const {
  return bins > 0 ? *std::max_element(hist, hist + bins) : 0;
}

int CVynImage::GetHistogram(int* hist, int bins, double min, double max, int plane, int bLog, int bHeight, int bCull,
                            const CRect* pRect, int bProgress, int msgId) {
  if (!hist || bins < 1) return 0;
  const Sheet sheet(*this, pRect, bCull);
  ShowProgressInit(bProgress, msgId ? msgId : kMessageHistogram, sheet.Units());
  std::fill_n(hist, bins, 0);
  const bool bright = plane == -1 && qmr::HasRgb(*this);
  const int from = plane == -1 ? 0 : plane;
  qmr::BrightScale levels{};
  if (bright) {
    for (int p = 0; p < 3; ++p) {
      levels.min[p] = static_cast<float>(GetLevelMin(p));
      levels.k[p] = static_cast<float>(255.0 / GetLevelRange(p));
    }
    min = To256(min, 0);
    max = To256(max, 0);
  }
  const qmr::BinScale scale(min, max, bins);
  ThreadCounts counts(bins, 1);
  if (!sheet.grid) {
    CountRows(sheet, counts, *this, [&](int y, int thread) {
      const auto row = qmr::ReadRow(*this, y, from, sheet.left, sheet.right);
      if (!bright)
        counts.Of(thread, 0).AddRow(row, scale);
      else
        counts.Of(thread, 0).AddBrightRow(row, qmr::ReadRow(*this, y, 1, sheet.left, sheet.right),
                                          qmr::ReadRow(*this, y, 2, sheet.left, sheet.right), levels, scale);
    });
    counts.MergeInto(0, hist);
  } else {
    // The grid's columns count from the rectangle's left; its other sides have no effect.
    std::int64_t samples = 0;
    qmr::ForRowsSerial(
        0, sheet.rows,
        [&](int j) {
          const int y = HistogramCullY[j];
          const auto r = qmr::ReadRow(*this, y, from, sheet.left, Width);
          const auto g = bright ? qmr::ReadRow(*this, y, 1, sheet.left, Width) : r;
          const auto b = bright ? qmr::ReadRow(*this, y, 2, sheet.left, Width) : r;
          for (int i = 0; i < sheet.columns; ++i) {
            const auto x = static_cast<std::size_t>(HistogramCullX[i]);
            if (x >= r.size()) continue;
            ++samples;
            if (bright)
              counts.Of(0, 0).AddBright(r[x], g[x], b[x], levels, scale);
            else
              counts.Of(0, 0).Add(r[x], scale);
          }
        },
        this);
    counts.MergeInto(0, hist);
    Rescale(hist, bins, static_cast<std::int64_t>(Width) * Height, samples);
  }
  if (bLog) TakeLogarithms(hist, bins);
  const int result = bHeight ? GetHeightOfHistogram(hist, bins) : FlatHeight(*this, bins);
  ShowProgressEnd(nullptr);
  return result;
}

int CVynImage::GetHistogramRGB(int* r, int* g, int* b, int bins, double min, double max, double* unused1,
                               double* unused2, int bLog, int bHeight, int bCull, const CRect* pRect, int bProgress,
                               int msgId) {
  (void)unused1;
  (void)unused2;
  if (!qmr::HasRgb(*this)) return -1;
  if (!r || !g || !b || bins < 1) return 0;
  const Sheet sheet(*this, pRect, bCull);
  ShowProgressInit(bProgress, msgId ? msgId : kMessageHistogram, sheet.Units());
  int* const hist[3] = {r, g, b};
  for (int* h : hist) std::fill_n(h, bins, 0);
  const qmr::BinScale scale(min, max, bins);
  ThreadCounts counts(bins, 3);
  std::int64_t samples = 0;
  if (!sheet.grid) {
    CountRows(sheet, counts, *this, [&](int y, int thread) {
      for (int p = 0; p < 3; ++p)
        counts.Of(thread, p).AddRow(qmr::ReadRow(*this, y, p, sheet.left, sheet.right), scale);
    });
  } else {
    // Unlike the histogram of one plane the grid counts from column 0 here.
    qmr::ForRowsSerial(
        0, sheet.rows,
        [&](int j) {
          for (int p = 0; p < 3; ++p) {
            const auto row = qmr::ReadRow(*this, HistogramCullY[j], p, 0, Width);
            for (int i = 0; i < sheet.columns; ++i) {
              const auto x = static_cast<std::size_t>(HistogramCullX[i]);
              if (x >= row.size()) continue;
              counts.Of(0, p).Add(row[x], scale);
              if (p == 0) ++samples;
            }
          }
        },
        this);
  }
  int height = std::numeric_limits<int>::min();
  for (int p = 0; p < 3; ++p) {
    counts.MergeInto(p, hist[p]);
    if (sheet.grid) Rescale(hist[p], bins, static_cast<std::int64_t>(Width) * Height, samples);
    if (bLog) TakeLogarithms(hist[p], bins);
    height = std::max(height, GetHeightOfHistogram(hist[p], bins));
  }
  ShowProgressEnd(nullptr);
  return bHeight ? height : FlatHeight(*this, bins);
}
