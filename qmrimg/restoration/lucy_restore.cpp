#include "qmrimg/restoration/lucy_restore.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <optional>
#include <utility>

#include "qmrimg/image/row_frame.h"
#include "qmrimg/restoration/kernels/lucy_rows.h"
#include "qmrimg/restoration/real_transform.h"
#include "qmrimg/restoration/restoration_report.h"
#include "qmrimg/restoration/restoration_steps.h"
#include "qmrimg/store/block.h"

namespace qmr {
namespace {

enum Code { kDone = 0, kNoMemory = 1, kCancelled = 2 };

// Each has a form for a plane behind it.
constexpr int kMessagePreparing = 6154;
constexpr int kMessageIteration = 6156;

// The normalising image is not divided by where it falls below this part of its maximum.
constexpr float kNormFloor = 0.001f;
// How far a step may be followed forward and backward when no pixel sets a limit.
constexpr double kNoLargest = 100.0;
constexpr double kNoSmallest = -100.0;
constexpr int kNewtonRounds = 20;
constexpr double kNewtonTolerance = 0.01;

std::atomic<bool> verbose = false;

__attribute__((format(printf, 1, 2))) void Say(const char* format, ...) {
  if (!verbose) return;
  va_list arguments;
  va_start(arguments, format);
  std::vprintf(format, arguments);
  va_end(arguments);
}

// Percentages at which a convolution or correlation begins, has its spectrum, and ends.
struct Span {
  int from, middle, to;
};

class Solver {
 public:
  explicit Solver(const LucyRun& run) : run_(run), report_(run.progress, run.plane) {}

  LucyOutcome Run() {
    report_.Title(kMessagePreparing);
    LucyOutcome outcome;
    outcome.code = SetUp();
    if (outcome.code == kDone) outcome.code = Prepare();
    if (outcome.code == kDone) Tell(outcome);
    int slow = 0;  // iterations running that gained little
    while (outcome.code == kDone && outcome.iterations < run_.iterations && !(run_.leastGain > 0.0 && slow == 2)) {
      const int k = outcome.iterations + 1;
      const double before = chiSquare_;
      report_.Title(kMessageIteration, k);
      outcome.code = Iterate(k);
      if (outcome.code != kDone) break;
      outcome.iterations = k;
      Tell(outcome);
      if (run_.earlierIterations > 0) Say("Total Iterations %d  ", run_.earlierIterations + k);
      Say("Iteration %d : chi-sq = %g\n", k, chiSquare_);
      if (chiSquare_ <= run_.chiLimit) {
        Say("chi-sq <= %g,  converged\n", run_.chiLimit);
        break;
      }
      slow = chiSquare_ > before * (1.0 - run_.leastGain) ? slow + 1 : 0;
    }
    if (outcome.code == kDone) CopyOut();
    return outcome;
  }

 private:
  // What a row gives to the sums over the grid; kept, so that no pass has to allocate and the sums run in the order of
  // rows whatever the number of threads.
  struct RowPart {
    LucySums sums;
    LucyRange range;
    double chi = 0.0;
    float largest = 0.0f;
  };

  void Tell(LucyOutcome& outcome) const {
    outcome.chiSquare = chiSquare_;
    TellRestorationStep(run_.plane, outcome.iterations, chiSquare_);
  }

  std::size_t Row(int y) const { return static_cast<std::size_t>(y) * width_; }
  int Left(int width) const { return (state_.paddedWidth - width) / 2; }
  int Top(int height) const { return (state_.paddedHeight - height) / 2; }
  template <class Work>
  void EachRow(Work&& work) {
    ForRows(0, state_.paddedHeight, work);
  }
  // Calls merge(part) for the part of each row, in the order of rows.
  template <class Merge>
  void EachPart(Merge&& merge) const {
    for (int y = 0; y < state_.paddedHeight; ++y) merge(parts_[y]);
  }

  LucySums TotalSums() const {
    LucySums total;
    EachPart([&](const RowPart& part) {
      total.first += part.sums.first;
      total.second += part.sums.second;
    });
    return total;
  }

  float* Allocate(std::size_t bytes, Block::Content content) {
    Block& block = blocks_[used_++];
    block = Block(bytes, content);
    return reinterpret_cast<float*>(block.Get());
  }
  bool AllocateImages() {
    const std::size_t bytes = width_ * static_cast<std::size_t>(state_.paddedHeight) * sizeof(float);
    for (float** const image : {&state_.mask, &state_.norm, &state_.estimate, &data_})
      if (!(*image = Allocate(bytes, Block::Content::kZero))) return false;
    return true;
  }
  bool AllocateRest() {
    const std::size_t height = static_cast<std::size_t>(state_.paddedHeight);
    const std::size_t bytes = width_ * height * sizeof(float);
    transform_ = RealTransform::Create(state_.paddedWidth, state_.paddedHeight);
    if (!transform_) return false;
    const std::size_t spectrumBytes = transform_->SpectrumFloats() * sizeof(float);
    for (float** const spectrum : {&state_.psfTransform, &spectrum_})
      if (!(*spectrum = Allocate(spectrumBytes, Block::Content::kUndefined))) return false;
    for (float** const image : {&state_.blurred, &step_, &blurredStep_})
      if (!(*image = Allocate(bytes, Block::Content::kUndefined))) return false;
    if (run_.mode == LucyMode::kTurbo)
      for (float** const image : {&state_.previousStep, &state_.previousBlurredStep})
        if (!(*image = Allocate(bytes, Block::Content::kUndefined))) return false;
    parts_ = reinterpret_cast<RowPart*>(Allocate(height * sizeof(RowPart), Block::Content::kZero));
    return parts_ != nullptr;
  }

  void Embed(const float* from, int width, int height, float* to) const {
    const std::size_t left = static_cast<std::size_t>(Left(width));
    const int top = Top(height);
    ForRows(0, height, [=, this](int y) {
      std::copy_n(from + static_cast<std::size_t>(y) * static_cast<std::size_t>(width), width,
                  to + Row(top + y) + left);
    });
  }
  void CopyOut() const {
    const std::size_t left = static_cast<std::size_t>(Left(run_.width));
    const int top = Top(run_.height);
    ForRows(0, run_.height, [=, this](int y) {
      std::copy_n(state_.estimate + Row(top + y) + left, run_.width,
                  run_.data + static_cast<std::size_t>(y) * static_cast<std::size_t>(run_.width));
    });
  }

  Code SetUp() {
    state_.imageWidth = run_.width;
    state_.imageHeight = run_.height;
    state_.psfWidth = run_.psfWidth;
    state_.psfHeight = run_.psfHeight;
    state_.paddedWidth = std::max(run_.width, run_.psfWidth);
    state_.paddedHeight = std::max(run_.height, run_.psfHeight);
    state_.background = &background_;
    width_ = static_cast<std::size_t>(state_.paddedWidth);
    const double variance = run_.readNoise * run_.readNoise;
    noise_ = {run_.gain, variance / run_.gain, background_, static_cast<float>(variance)};

    if (!AllocateImages()) return kNoMemory;
    Embed(run_.data, run_.width, run_.height, data_);
    MakeMask();
    Embed(run_.psf, run_.psfWidth, run_.psfHeight, state_.norm);
    EachRow([this](int y) {
      float* const row = state_.norm + Row(y);
      for (std::size_t x = 0; x < width_; ++x) row[x] = row[x] < 0.0f ? 0.0f : row[x];
    });
    return kDone;
  }

  // 1 in the image, but for what no noise explains.
  void MakeMask() {
    double limit = noise_.constant + background_;
    if (!(run_.rejectSigma <= 0.0)) {
      limit /= run_.gain;
      limit = limit >= 0.0 ? std::sqrt(limit) * run_.rejectSigma : 0.0;
    }
    const std::size_t left = static_cast<std::size_t>(Left(run_.width));
    const std::size_t width = static_cast<std::size_t>(run_.width);
    const int top = Top(run_.height);
    ForRows(top, top + run_.height, [=, this](int y) {
      float* const data = data_ + Row(y) + left;
      float* const mask = state_.mask + Row(y) + left;
      for (std::size_t x = 0; x < width; ++x) {
        const bool bad = data[x] < -limit;
        mask[x] = bad ? 0.0f : 1.0f;
        // Without weight its value is nowhere to be seen, but for an infinite one.
        data[x] = bad ? 0.0f : data[x];
      }
    });
    if (verbose) ListRejected(limit);
  }
  void ListRejected(double limit) const {
    const int left = Left(run_.width), top = Top(run_.height);
    const bool padded = run_.width < state_.paddedWidth || run_.height < state_.paddedHeight;
    bool first = true;
    for (int y = top; y < top + run_.height; ++y) {
      for (int x = left; x < left + run_.width; ++x) {
        const std::size_t i = Row(y) + static_cast<std::size_t>(x);
        if (state_.mask[i] != 0.0f) continue;
        if (std::exchange(first, false))
          Say("List of pixels below threshold -%g (-%g sigma)\n", limit, run_.rejectSigma);
        if (padded)
          Say("pixel (%d,%d)  [%d,%d];", x + 1, y + 1, x - left + 1, y - top + 1);
        else
          Say("pixel (%d,%d);", x + 1, y + 1);
        Say(" value %g\n", run_.data[static_cast<std::size_t>(y - top) * static_cast<std::size_t>(run_.width) +
                                     static_cast<std::size_t>(x - left)]);
      }
    }
  }

  Code Prepare() {
    if (!AllocateRest()) return kNoMemory;
    MakeFirstEstimate();
    RotatePsf(step_);
    if (!Forward(step_, state_.psfTransform, 10, 25)) return kCancelled;
    // The sum of the point-spread function: it becomes 1.
    transform_->Divide(state_.psfTransform, state_.psfTransform[0]);
    if (!Filter(state_.mask, Factor::kConjugate, {30, 45, 60}, state_.norm)) return kCancelled;
    LiftNorm();
    if (!Filter(state_.estimate, Factor::kPlain, {60, 75, 90}, state_.blurred)) return kCancelled;
    EachRow([this](int y) { CompareRow(y); });
    TotalChi();
    if (!report_.Show(100)) return kCancelled;
    Say("Initial chi-sq = %g\n", chiSquare_);
    return kDone;
  }

  // Of the pixels that count; also counts them.
  double Mean() {
    EachRow([this](int y) { parts_[y].sums = MeanRow(data_ + Row(y), state_.mask + Row(y), width_); });
    const LucySums total = TotalSums();
    pixels_ = total.second;
    if (pixels_ == 0.0) return 1.0;
    const double mean = total.first / pixels_;
    return mean < 0.0 ? 1.0 : mean;
  }
  void MakeFirstEstimate() {
    const float mean = static_cast<float>(Mean());
    if (run_.firstGuess) return Embed(run_.firstGuess, run_.width, run_.height, state_.estimate);
    const int top = Top(run_.height);
    // From column 0 of the grid and not from the image's first one, on purpose: images narrower than the point-spread
    // function start from there.
    for (int y = top; y < top + run_.height; ++y) std::fill_n(state_.estimate + Row(y), run_.width, mean);
  }
  // The first of the largest elements comes to the origin.
  void RotatePsf(float* to) const {
    const float* const psf = state_.norm;
    const std::size_t height = static_cast<std::size_t>(state_.paddedHeight);
    std::size_t peak = 0;
    for (std::size_t i = 1; i < width_ * height; ++i)
      if (psf[i] > psf[peak] || std::isnan(psf[peak])) peak = i;
    const std::size_t column = peak % width_, row = peak / width_;
    for (std::size_t y = 0; y < height; ++y) {
      const float* const from = psf + (y + row) % height * width_;
      std::rotate_copy(from, from + column, from + width_, to + y * width_);
    }
  }
  void LiftNorm() {
    EachRow([this](int y) { parts_[y].largest = LargestOfRow(state_.norm + Row(y), width_); });
    float largest = parts_[0].largest;
    EachPart([&](const RowPart& part) { largest = std::max(largest, part.largest); });
    const float floor = kNormFloor * largest;
    EachRow([=, this](int y) { FloorRow(floor, state_.norm + Row(y), state_.estimate + Row(y), width_); });
  }

  // The transforms give false when the user has cancelled.
  bool Forward(const float* image, float* spectrum, int from, int to) {
    transform_->ForwardRows(image, spectrum);
    if (!report_.Show((from + to) / 2)) return false;
    transform_->ForwardColumns(spectrum);
    return report_.Show(to);
  }
  // Convolution of an image with the point-spread function, or with the conjugate factor its correlation. The columns
  // end the transform forward and begin the one backward in one go, so their two shares are reported together.
  bool Filter(const float* image, Factor factor, const Span& percent, float* result) {
    transform_->ForwardRows(image, spectrum_);
    if (!report_.Show((percent.from + percent.middle) / 2)) return false;
    transform_->FilterColumns(spectrum_, state_.psfTransform, factor);
    if (!report_.Show(percent.middle) || !report_.Show((percent.middle + percent.to) / 2)) return false;
    transform_->InverseRows(spectrum_, result);
    return report_.Show(percent.to);
  }

  // Compares model and data: the chi-square's part, and while the row is at hand the next iteration's ratio.
  void CompareRow(int y) {
    parts_[y].chi = ChiRow(data_ + Row(y), state_.mask + Row(y), state_.blurred + Row(y), noise_, width_);
    RatioRow(data_ + Row(y), state_.mask + Row(y), state_.blurred + Row(y), noise_, step_ + Row(y), width_);
  }
  void TotalChi() {
    double total = 0.0;
    EachPart([&](const RowPart& part) { total += part.chi; });
    chiSquare_ = total / static_cast<float>(pixels_ - 1.0);
  }

  Code Iterate(int k) {
    if (!Filter(step_, Factor::kConjugate, {0, 20, 40}, step_)) return kCancelled;
    if (run_.mode == LucyMode::kPlain) {
      EachRow([this](int y) { CorrectRow(step_ + Row(y), state_.norm + Row(y), state_.estimate + Row(y), width_); });
      if (!Filter(state_.estimate, Factor::kPlain, {40, 65, 90}, state_.blurred)) return kCancelled;
      EachRow([this](int y) { CompareRow(y); });
    } else {
      EachRow([this](int y) { StepRow(state_.estimate + Row(y), state_.norm + Row(y), step_ + Row(y), width_); });
      if (!Filter(step_, Factor::kPlain, {40, 65, 90}, blurredStep_)) return kCancelled;
      Accelerate(k);
    }
    TotalChi();
    return report_.Show(100) ? kDone : kCancelled;
  }

  // Follows the step as far as it pays, and compares. The combined step of turbo is made in the arrays of the previous
  // one, so that the bare step is still there when turbo has to be dropped.
  void Accelerate(int k) {
    bool turbo = run_.mode == LucyMode::kTurbo && k >= 2;
    if (verbose) ListNegative();
    const float beta = turbo ? Beta() : 0.0f;
    LucyRange range = Range(turbo ? state_.previousStep : step_, turbo ? &beta : nullptr);
    if (turbo && Largest(range) < 1.0) {
      turbo = false;
      range = Range(step_, nullptr);
    }
    if (run_.mode == LucyMode::kTurbo && !turbo) {
      std::swap(step_, state_.previousStep);
      std::swap(blurredStep_, state_.previousBlurredStep);
    }
    // With turbo the step to follow now stands where the next iteration looks for it.
    float* const step = run_.mode == LucyMode::kTurbo ? state_.previousStep : step_;
    float* const blurredStep = run_.mode == LucyMode::kTurbo ? state_.previousBlurredStep : blurredStep_;
    const double largest = Largest(range);
    // Forward only, unless the step is a combined one.
    const double smallest = !turbo ? 1.0 : std::isinf(range.smallest) ? kNoSmallest : range.smallest;
    const double factor = LineSearch(blurredStep, smallest, largest);
    Say("%s  CMIN = %g, CMAX = %g, C = %g\n", turbo ? "Turbo iteration      " : "Accelerated iteration", smallest,
        largest, factor);
    EachRow([=, this](int y) {
      AdvanceRow(static_cast<float>(factor), step + Row(y), state_.estimate + Row(y), width_);
      AdvanceRow(static_cast<float>(factor), blurredStep + Row(y), state_.blurred + Row(y), width_);
      CompareRow(y);
    });
  }

  void ListNegative() const {
    for (std::size_t i = 0; i < Row(state_.paddedHeight); ++i)
      if (state_.estimate[i] < 0.0f) Say("Negative pixel (%d): %g\n", static_cast<int>(i + 1), state_.estimate[i]);
  }

  // How much of the previous step makes the new one conjugate to it.
  float Beta() {
    EachRow([this](int y) {
      parts_[y].sums = ConjugateRow(blurredStep_ + Row(y), state_.previousBlurredStep + Row(y), state_.mask + Row(y),
                                    data_ + Row(y), state_.estimate + Row(y), noise_, width_);
    });
    const LucySums total = TotalSums();
    const double beta = -total.first / total.second;
    return std::isfinite(beta) ? static_cast<float>(beta) : 0.0f;
  }

  // With `beta` the bare steps are combined with the previous ones first.
  LucyRange Range(float* step, const float* beta) {
    EachRow([=, this](int y) {
      if (beta) {
        CombineRow(step_ + Row(y), *beta, state_.previousStep + Row(y), width_);
        CombineRow(blurredStep_ + Row(y), *beta, state_.previousBlurredStep + Row(y), width_);
      }
      parts_[y].range = RangeRow(state_.estimate + Row(y), step + Row(y), width_);
    });
    LucyRange range;
    EachPart([&](const RowPart& part) {
      range.largest = std::min(range.largest, part.range.largest);
      range.smallest = std::max(range.smallest, part.range.smallest);
    });
    return range;
  }
  static double Largest(const LucyRange& range) { return std::isinf(range.largest) ? kNoLargest : range.largest; }

  // Newton's search for the best multiple of the step, kept within the limits by halves.
  double LineSearch(const float* blurredStep, double smallest, double largest) {
    double factor = 1.0;
    for (int round = 0; round < kNewtonRounds; ++round) {
      EachRow([=, this](int y) {
        parts_[y].sums = NewtonRow(data_ + Row(y), state_.mask + Row(y), state_.blurred + Row(y), blurredStep + Row(y),
                                   static_cast<float>(factor), noise_, width_);
      });
      const LucySums total = TotalSums();
      double change = total.second != 0.0 ? total.first / total.second : 0.0;
      if (factor + change >= largest)
        change = (largest - factor) * 0.5;
      else if (factor + change <= smallest)
        change = (smallest - factor) * 0.5;
      factor += change;
      if (std::fabs(change) <= kNewtonTolerance) break;
    }
    return factor;
  }

  const LucyRun& run_;
  LucyState state_ = {};
  RestorationReport report_;
  std::optional<RealTransform> transform_;
  LucyNoise noise_ = {};
  double chiSquare_ = 0.0;
  double pixels_ = 0.0;  // that count
  float background_ = 0.0f;
  std::size_t width_ = 0;

  float* data_ = nullptr;  // the image on the grid
  float* step_ = nullptr;  // ratio, correction and step of an iteration, one after the other
  float* blurredStep_ = nullptr;
  float* spectrum_ = nullptr;
  RowPart* parts_ = nullptr;
  Block blocks_[12];
  std::size_t used_ = 0;
};

}  // namespace

void SetLucyVerbose(bool on) {
  verbose = on;
}

LucyOutcome RunLucy(const LucyRun& run) {
  if (!run.data || !run.psf || run.width < 1 || run.height < 1 || run.psfWidth < 1 || run.psfHeight < 1) return {};
  return Solver(run).Run();
}

}  // namespace qmr

int LucyRestore(float* data, int w, int h, float* psf, int psfWidth, int psfHeight, float* firstGuess, int iterations,
                double gain, double readNoise, double chiLimit, double rejectSigma, CVynImage* progress, int plane) {
  qmr::LucyRun run;
  run.data = data;
  run.width = w;
  run.height = h;
  run.psf = psf;
  run.psfWidth = psfWidth;
  run.psfHeight = psfHeight;
  run.firstGuess = firstGuess;
  run.iterations = iterations;
  run.gain = gain;
  run.readNoise = readNoise;
  run.chiLimit = chiLimit;
  run.rejectSigma = rejectSigma;
  run.progress = progress;
  run.plane = plane;
  return qmr::RunLucy(run).code;
}
