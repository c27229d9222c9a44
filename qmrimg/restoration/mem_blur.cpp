#include "qmrimg/restoration/mem_blur.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <new>
#include <vector>

#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/stacking/kernels/fft_lanes.h"
#include "qmrimg/stacking/kernels/fft_tile.h"
#include "qmrimg/store/block.h"
#include "qmrimg/store/parallel.h"

// The transform works in w x h packed floats. A row of w real values has the frequencies 0 .. w / 2, of which the first
// and the last are real: its first half holds the real parts of 0 .. w / 2 - 1, its second half the imaginary parts,
// with the real value of w / 2 in the idle place of frequency 0. The column pass then transforms the columns 1 ..
// w / 2 - 1 as complex ones; column 0 carries two real columns, and keeps the lower half of the frequencies of both:
// row v holds (0, v), row h - v holds (w / 2, v), and rows 0 and h / 2 hold the four real values that are their own
// conjugates. Both passes are unitary.
namespace qmr {
namespace {

constexpr int kLanes = FftLanes::kLanes;
constexpr int kElement = FftLanes::kElement;
constexpr double kPi = 3.14159265358979323846;

enum Direction { kForward = +1, kBackward = -1 };

class Passes {
 public:
  // Raises std::bad_alloc.
  Passes(int w, int h)
      : w_(w), h_(h), half_(w / 2), rows_(w), columns_(h), parts_(std::max(CParallel::GetMaxThreads(), 1)) {
    const std::size_t longest = static_cast<std::size_t>(std::max(w, h));
    partFloats_ = 2 * longest * kElement + std::max(rows_.WorkFloats(), columns_.WorkFloats());
    partFloats_ = (partFloats_ + kElement - 1) / kElement * kElement;
    scratch_ = Block(partFloats_ * static_cast<std::size_t>(parts_) * sizeof(float), Block::Content::kUndefined);
    if (!scratch_.Get()) throw std::bad_alloc();
  }

  // `to` may be `from`.
  void Row(const float* from, float* to, Direction direction) {
    if (w_ == 1) {
      if (to != from) std::copy_n(from, h_, to);
      return;
    }
    // Rows t and t + 16 are the real and the imaginary part of the complex line in lane t.
    Share((h_ + kElement - 1) / kElement, [&](int group, float* lanes, float* work) {
      const int y = group * kElement, count = std::min(kElement, h_ - y);
      const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(y) * w_;
      float* const packed = lanes + static_cast<std::ptrdiff_t>(w_) * kElement;
      if (direction == kForward) {
        Gather(from + at, count, lanes);
        rows_.Transform(lanes, lanes, FftSign::kMinus, work);
        Pack(lanes, packed);
        Scatter(packed, count, to + at);
      } else {
        Gather(from + at, count, packed);
        Unpack(packed, lanes);
        rows_.Transform(lanes, lanes, FftSign::kPlus, work);
        Scatter(lanes, count, to + at);
      }
    });
  }

  void Column(float* data, Direction direction) {
    if (h_ == 1) return;
    Share((half_ + kLanes - 1) / kLanes, [&](int group, float* lanes, float* work) {
      const int x = group * kLanes, count = std::min(kLanes, half_ - x);
      LoadColumns(data + x, count, lanes);
      if (x == 0 && direction == kBackward) Join(lanes, h_, 0);
      columns_.Transform(lanes, lanes, direction == kForward ? FftSign::kMinus : FftSign::kPlus, work);
      if (x == 0 && direction == kForward) Split(lanes, h_, 0);
      StoreColumns(lanes, count, data + x);
    });
  }

  // data *= spectrum, or its conjugate where `sign` is -1.
  void Product(float* data, const float* spectrum, float sign) {
    if (w_ == 1) {
      for (int y = 0; y < h_; ++y) data[y] *= spectrum[y];
      return;
    }
    ForRows(0, h_, [&](int y) {
      const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(y) * w_;
      const std::ptrdiff_t half = half_;
      float* const re = data + at;
      const float* const p = spectrum + at;
      const float re0 = re[0], im0 = re[half];
#pragma omp simd
      for (std::ptrdiff_t x = 0; x < half; ++x) {
        const float a = re[x], b = re[x + half], c = p[x], d = p[x + half] * sign;
        re[x] = a * c - b * d;
        re[x + half] = b * c + a * d;
      }
      if (y == 0 || 2 * y == h_) {
        re[0] = re0 * p[0];
        re[half] = im0 * p[half];
      }
    });
  }

  // spectrum *= `scale`, and the phases that move the image by -dx, -dy (fractions of a pixel).
  void ShiftAndScale(float* spectrum, double dx, double dy, double scale) {
    const auto turn = [](double d, int k, int n, double* c, double* s) {
      const double t = 2.0 * kPi * d * k / n;
      *c = std::cos(t);
      *s = 2 * k == n ? 0.0 : std::sin(t);  // the highest frequency of a real image is real
    };
    ForRows(0, h_, [&](int y) {
      float* const row = spectrum + static_cast<std::ptrdiff_t>(y) * w_;
      const int v = 2 * y > h_ ? y - h_ : y;
      double yc, ys;
      turn(dy, v, h_, &yc, &ys);
      for (int x = 1; x < half_; ++x) {
        double xc, xs;
        turn(dx, x, w_, &xc, &xs);
        const double c = (xc * yc - xs * ys) * scale, s = (xc * ys + xs * yc) * scale;
        const double a = row[x], b = row[x + half_];
        row[x] = static_cast<float>(a * c - b * s);
        row[x + half_] = static_cast<float>(a * s + b * c);
      }
      const double nyquist = std::cos(kPi * dx);
      if (y == 0 || 2 * y == h_) {
        row[0] = static_cast<float>(row[0] * yc * scale);
        if (w_ > 1) row[half_] = static_cast<float>(row[half_] * nyquist * yc * scale);
        return;
      }
      // Rows beyond h / 2 hold the frequencies (w / 2, h - y).
      const bool upper = 2 * y > h_;
      const double c = yc * scale * (upper ? nyquist : 1.0), s = (upper ? -ys * nyquist : ys) * scale;
      const double a = row[0], b = row[half_];
      row[0] = static_cast<float>(a * c - b * s);
      row[half_] = static_cast<float>(a * s + b * c);
    });
  }

 private:
  // Runs `one(group, lanes, work)` for all groups, contiguous ones by one thread with a scratch of its own.
  template <class One>
  void Share(int groups, One&& one) {
    float* const scratch = reinterpret_cast<float*>(scratch_.Get());
    const int parts = std::min(parts_, groups);
    ForRows(0, parts, [&](int part) {
      float* const lanes = scratch + partFloats_ * static_cast<std::size_t>(part);
      float* const work = lanes + 2 * static_cast<std::size_t>(std::max(w_, h_)) * kElement;
      const auto first = static_cast<int>(static_cast<std::int64_t>(groups) * part / parts);
      const auto last = static_cast<int>(static_cast<std::int64_t>(groups) * (part + 1) / parts);
      for (int group = first; group < last; ++group) one(group, lanes, work);
    });
  }

  // The transform of a + i b, for real a and b, in one lane: element k becomes a's and element n - k b's. Join is
  // the way back.
  static void Split(float* lanes, int n, int lane) {
    for (int k = 1; 2 * k < n; ++k) {
      float* const p = lanes + static_cast<std::ptrdiff_t>(k) * kElement + lane;
      float* const q = lanes + static_cast<std::ptrdiff_t>(n - k) * kElement + lane;
      const float pr = p[0], pi = p[kLanes], qr = q[0], qi = q[kLanes];
      p[0] = (pr + qr) * 0.5f;
      p[kLanes] = (pi - qi) * 0.5f;
      q[0] = (pi + qi) * 0.5f;
      q[kLanes] = (qr - pr) * 0.5f;
    }
  }
  static void Join(float* lanes, int n, int lane) {
    for (int k = 1; 2 * k < n; ++k) {
      float* const p = lanes + static_cast<std::ptrdiff_t>(k) * kElement + lane;
      float* const q = lanes + static_cast<std::ptrdiff_t>(n - k) * kElement + lane;
      const float ar = p[0], ai = p[kLanes], br = q[0], bi = q[kLanes];
      p[0] = ar - bi;
      p[kLanes] = ai + br;
      q[0] = ar + bi;
      q[kLanes] = br - ai;
    }
  }

  // 32 rows to elements of 32 floats and back; rows that are not there are zero.
  void Gather(const float* rows, int count, float* lanes) const {
    const std::ptrdiff_t w = w_;
    if (count == kElement && w_ >= 4) return Transpose(rows, w, kElement, w_, lanes, kElement);
    std::fill_n(lanes, w * kElement, 0.0f);
    for (int r = 0; r < count; ++r) {
      for (std::ptrdiff_t x = 0; x < w; ++x) lanes[x * kElement + r] = rows[r * w + x];
    }
  }
  void Scatter(const float* lanes, int count, float* rows) const {
    const std::ptrdiff_t w = w_;
    if (count == kElement && w_ >= 4) return Transpose(lanes, kElement, w_, kElement, rows, w);
    for (int r = 0; r < count; ++r) {
      for (std::ptrdiff_t x = 0; x < w; ++x) rows[r * w + x] = lanes[x * kElement + r];
    }
  }

  // Transforms of a + i b in sixteen lanes, to the packed rows of the sixteen a, then of the sixteen b.
  void Pack(const float* lanes, float* packed) const {
    const std::ptrdiff_t w = w_, half = half_;
    const float scale = RowScale(), halfScale = 0.5f * scale;
    for (int r = 0; r < kElement; ++r) {
      packed[r] = lanes[r] * scale;
      packed[half * kElement + r] = lanes[half * kElement + r] * scale;
    }
    for (std::ptrdiff_t x = 1; x < half; ++x) {
      const float* const p = lanes + x * kElement;
      const float* const q = lanes + (w - x) * kElement;
      float* const re = packed + x * kElement;
      float* const im = re + half * kElement;
#pragma omp simd
      for (int t = 0; t < kLanes; ++t) {
        const float pr = p[t], pi = p[t + kLanes], qr = q[t], qi = q[t + kLanes];
        re[t] = (pr + qr) * halfScale;
        im[t] = (pi - qi) * halfScale;
        re[t + kLanes] = (pi + qi) * halfScale;
        im[t + kLanes] = (qr - pr) * halfScale;
      }
    }
  }
  void Unpack(const float* packed, float* lanes) const {
    const std::ptrdiff_t w = w_, half = half_;
    const float scale = RowScale();
    for (int r = 0; r < kElement; ++r) {
      lanes[r] = packed[r] * scale;
      lanes[half * kElement + r] = packed[half * kElement + r] * scale;
    }
    for (std::ptrdiff_t x = 1; x < half; ++x) {
      const float* const re = packed + x * kElement;
      const float* const im = re + half * kElement;
      float* const p = lanes + x * kElement;
      float* const q = lanes + (w - x) * kElement;
#pragma omp simd
      for (int t = 0; t < kLanes; ++t) {
        const float ar = re[t] * scale, ai = im[t] * scale, br = re[t + kLanes] * scale, bi = im[t + kLanes] * scale;
        p[t] = ar - bi;
        p[t + kLanes] = ai + br;
        q[t] = ar + bi;
        q[t + kLanes] = br - ai;
      }
    }
  }
  float RowScale() const {
    return static_cast<float>(1.0 / std::sqrt(static_cast<double>(w_)));
  }

  void LoadColumns(const float* first, int count, float* lanes) const {
    const std::ptrdiff_t w = w_, half = half_;
    if (count < kLanes) std::fill_n(lanes, static_cast<std::ptrdiff_t>(h_) * kElement, 0.0f);
    for (int y = 0; y < h_; ++y) {
      const float* const from = first + w * y;
      float* const re = lanes + static_cast<std::ptrdiff_t>(y) * kElement;
#pragma omp simd
      for (int t = 0; t < count; ++t) {
        re[t] = from[t];
        re[t + kLanes] = from[t + half];
      }
    }
  }

  void StoreColumns(const float* lanes, int count, float* first) const {
    const std::ptrdiff_t w = w_, half = half_;
    const float scale = static_cast<float>(1.0 / std::sqrt(static_cast<double>(h_)));
    for (int y = 0; y < h_; ++y) {
      const float* const re = lanes + static_cast<std::ptrdiff_t>(y) * kElement;
      float* const to = first + w * y;
#pragma omp simd
      for (int t = 0; t < count; ++t) {
        to[t] = re[t] * scale;
        to[t + half] = re[t + kLanes] * scale;
      }
    }
  }

  int w_;
  int h_;
  int half_;
  FftLanes rows_;
  FftLanes columns_;
  int parts_;
  std::size_t partFloats_;
  Block scratch_;
};

struct BlurState {
  int log2W = -1;
  int log2H = -1;
  std::int64_t count = -1;  // w * h + 1
  int sizeStands = -1;
  int spectrumStands = -1;
  std::unique_ptr<Passes> passes;
};

// One state a thread, so that restorations on several threads stay out of each other's way.
thread_local BlurState blurState;

int Log2(int n) {
  return n < 1 ? 0 : static_cast<int>(std::floor(std::log(n) / std::log(2.0) + 0.5));
}

bool StandsFor(const BlurState& state, int w, int h) {
  return w > 0 && h > 0 && std::max(w, h) <= FftLanes::kLongest && std::int64_t{1} << state.log2W == w &&
         std::int64_t{1} << state.log2H == h && std::int64_t{w} * h + 1 == state.count;
}

int Wrap(int i, int n) {
  const int r = i % n;
  return r < 0 ? r + n : r;
}

// The PSF on the grid, its centroid within half a pixel of the origin.
void LayPsf(const float* psf, int psfWidth, int psfHeight, float* grid, int w, int h, double* dx, double* dy) {
  double sum = 0.0, sumX = 0.0, sumY = 0.0;
  for (int y = 0; y < psfHeight; ++y) {
    for (int x = 0; x < psfWidth; ++x) {
      const double v = psf[static_cast<std::ptrdiff_t>(y) * psfWidth + x];
      sum += v;
      sumX += v * x;
      sumY += v * y;
    }
  }
  // A PSF with negative parts may have its centroid anywhere: then the middle serves.
  double cx = sumX / sum, cy = sumY / sum;
  if (!(cx >= 0.0 && cx < psfWidth)) cx = 0.5 * psfWidth;
  if (!(cy >= 0.0 && cy < psfHeight)) cy = 0.5 * psfHeight;
  const int left = static_cast<int>(std::lround(cx)), top = static_cast<int>(std::lround(cy));
  *dx = cx - left;
  *dy = cy - top;
  std::fill_n(grid, static_cast<std::ptrdiff_t>(w) * h, 0.0f);
  for (int y = 0; y < psfHeight; ++y) {
    float* const row = grid + static_cast<std::ptrdiff_t>(Wrap(y - top, h)) * w;
    const float* const from = psf + static_cast<std::ptrdiff_t>(y) * psfWidth;
    for (int x = 0; x < psfWidth; ++x) row[Wrap(x - left, w)] += from[x];
  }
}

}  // namespace

std::size_t MemBlurWorkFloats(int w, int h) {
  return 2 * static_cast<std::size_t>(w) * static_cast<std::size_t>(h);
}

void MemBlur(float* output, float* input, float* psf, float* work, int w, int h, int psfWidth, int psfHeight, int* mode,
             CVynImage* progress, int progressFrom, int progressTo) {
  constexpr float kSigns[] = {1.0f, -1.0f, 1.0f};  // of modes 1 to 3

  BlurState& state = blurState;
  if (*mode < 0) {
    state = BlurState();
    *mode = kMemBlurDone;
    return;
  }
  if (*mode == 0 || *mode > 3) {
    *mode = kMemBlurRefused;
    return;
  }
  const float sign = kSigns[*mode - 1];
  if (state.sizeStands < 0) {
    state.log2W = Log2(w);
    state.log2H = Log2(h);
    state.count = std::int64_t{w} * h + 1;
    state.sizeStands = 1;
  }
  if (!StandsFor(state, w, h)) {
    *mode = kMemBlurRefused;
    return;
  }
  if (!state.passes) {
    try {
      // A grid of one column is a row of its memory.
      state.passes = std::make_unique<Passes>(w == 1 ? h : w, w == 1 ? 1 : h);
    } catch (const std::bad_alloc&) {
      *mode = kMemBlurNoPass;
      return;
    }
  }
  Passes& passes = *state.passes;
  float* const data = work + static_cast<std::ptrdiff_t>(w) * h;
  if (state.spectrumStands < 0) {
    double dx, dy;
    LayPsf(psf, psfWidth, psfHeight, work, w, h, &dx, &dy);
    if (w == 1) std::swap(dx, dy);
    passes.Row(work, work, kForward);
    passes.Column(work, kForward);
    passes.ShiftAndScale(work, dx, dy, std::sqrt(static_cast<double>(w) * h));
    state.spectrumStands = 1;
  }

  int step = 0;
  const auto goOn = [&] {
    ++step;
    if (!progress) return true;
    const int percent = progressFrom + static_cast<int>(std::int64_t{progressTo - progressFrom} * step / 6);
    if (progress->ShowProgress(percent)) return true;
    *mode = kMemBlurCancelled;
    return false;
  };
  passes.Row(input, data, kForward);
  if (!goOn()) return;
  passes.Column(data, kForward);
  if (!goOn()) return;
  passes.Product(data, work, sign);
  if (!goOn()) return;
  passes.Column(data, kBackward);
  if (!goOn()) return;
  passes.Row(data, output, kBackward);
  if (!goOn()) return;
  *mode = kMemBlurDone;
}

}  // namespace qmr
