#include "qmrimg/restoration/mem_solver.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <new>
#include <numeric>

#include "qmrimg/image/row_frame.h"
#include "qmrimg/restoration/kernels/entropy_rows.h"
#include "qmrimg/restoration/mem_restore.h"
#include "qmrimg/restoration/restoration_report.h"
#include "qmrimg/restoration/restoration_steps.h"
#include "qmrimg/store/block.h"

// The unknowns f maximise S - lambda / 2 chi^2 with S = sum(f - m - f ln(f / m)), in units in which the level m starts
// as 1. Each main iteration takes the gradient in a metric near that of the entropy, makes it conjugate to the last
// step with the curvature where it stands, and goes to the maximum on that line by a bracketed Newton search, for which
// the blurred form of the direction suffices. So an iteration costs two passes of the blurring operator, and a third
// when dark values would have fallen through 0. Lambda moves when the two gradients about balance: up while chi^2 is
// above the number of data, down below it. The level m follows the sum of the residuals, so that the model has the
// light of the data.
namespace qmr {
namespace {

constexpr int kMessagePrepare = 6158;
constexpr int kMessageIterate = 6160;
constexpr int kMessagePreprocess = 6162;

constexpr int kArrays = 8;
constexpr int kNoMemory = 2;
constexpr int kMostIterations = 500;

constexpr float kFloor = 1e-12f;        // of the unknowns
constexpr double kNothingLeft = 1e-10;  // a result at or below it is told by the code
constexpr float kStartFloor = 0.05f;
constexpr double kBalanced = 0.7;  // below it the two gradients about cancel; 0 is a maximum, 1 is far from it
constexpr double kFirstLambda = 0.3;
constexpr double kLambdaRate = 2.0;  // largest factor of one change
// The share of chi-square's own curvature in the metric. Without it stars far above the noise converge slowly; much of
// it fits the noise before the dark parts have settled.
constexpr double kDataCurvature = 0.003;
constexpr double kLevelGain = 0.2;
constexpr double kLevelStep = 0.3;  // largest change of ln m
constexpr double kLevelRange = 4.0;
constexpr double kFarthest = 1000.0;  // along a line
constexpr double kLeap = 2.0;         // largest factor that one step may raise chi-square by
constexpr int kMostHalvings = 20;

std::atomic<bool> verbose = false;

struct DataSums {
  double count = 0.0;
  double sum = 0.0;
  double square = 0.0;
  void Add(const DataSums& other) {
    count += other.count;
    sum += other.sum;
    square += other.square;
  }
};

struct Held {
  bool any = false;
  void Add(const Held& other) { any = any || other.any; }
};

// A search along a direction.
struct Line {
  double a = 0.0;
  double limit = 0.0;  // where the first value would meet 0
  double g = 0.0;      // slope there, relative to the slope at the start
  int rounds = 0;
};

class Solver {
 public:
  Solver(const MemProblem& problem, MemStopLimits& limits)
      : p_(problem),
        limits_(limits),
        w_(problem.w),
        h_(problem.h),
        n_(static_cast<std::size_t>(problem.w) * static_cast<std::size_t>(problem.h)),
        report_(problem.progress, problem.plane) {}

  int Run(float* result) {
    report_.Title(kMessagePrepare);
    if (!Allocate()) return kNoMemory;
    Scale();
    ReportHead();
    if (!report_.Show(100)) return kMemBlurCancelled;
    report_.Title(kMessagePreprocess);
    if (!Start()) return code_;
    const int most = limits_[3] > 0.0 ? static_cast<int>(std::min(limits_[3], 1e9)) : kMostIterations;
    for (int k = 1;; ++k) {
      report_.Title(kMessageIterate, k);
      if (!Iterate()) return code_;
      TellRestorationStep(p_.plane, k, chiSquare_);
      ReportIteration(k);
      // Written so that what is not a number ends the run, too.
      if (!(rmsStep_ > limits_[0]) || !(largestStep_ > limits_[1]) || !(rmsResidual_ > limits_[2]) || k >= most) {
        limits_[0] = rmsStep_;
        limits_[1] = largestStep_;
        limits_[2] = rmsResidual_;
        limits_[3] = k;
        return Finish(result);
      }
    }
  }

 private:
  bool Allocate() {
    block_ = Block(n_ * kArrays * sizeof(float), Block::Content::kZero);
    parts_ = Block(static_cast<std::size_t>(h_) * kPartBytes, Block::Content::kUndefined);
    if (!block_.Get() || !parts_.Get()) return false;
    float* const all = reinterpret_cast<float*>(block_.Get());
    f_ = all;
    blurred_ = all + n_;
    pull_ = all + 2 * n_;
    logs_ = blurredFresh_ = all + 3 * n_;
    step_ = all + 4 * n_;
    blurredStep_ = all + 5 * n_;
    work_ = all + 6 * n_;
    return true;
  }

  std::ptrdiff_t At(int y) const { return static_cast<std::ptrdiff_t>(y) * w_; }
  // Of a row; no data in the padding.
  int DataCount(int y) const { return y < p_.dataHeight ? p_.dataWidth : 0; }
  const float* Data(int y) const {
    return y < p_.dataHeight ? p_.data + static_cast<std::ptrdiff_t>(y) * p_.dataWidth : nullptr;
  }

  // The sum over all rows, added in their order.
  template <class Sums, class Row>
  Sums Fold(Row&& row) {
    static_assert(sizeof(Sums) <= kPartBytes);
    std::byte* const parts = parts_.Get();
    ForRows(0, h_, [&](int y) { new (parts + static_cast<std::size_t>(y) * kPartBytes) Sums(row(y)); });
    Sums total;
    for (int y = 0; y < h_; ++y)
      total.Add(*std::launder(reinterpret_cast<Sums*>(parts + static_cast<std::size_t>(y) * kPartBytes)));
    return total;
  }

  bool Blur(float* to, float* from, int mode, int percentFrom, int percentTo) {
    p_.blur(to, from, p_.psf, work_, w_, h_, p_.psfWidth, p_.psfHeight, &mode, p_.progress, percentFrom, percentTo);
    code_ = mode;
    return mode == kMemBlurDone;
  }

  // Finds the level and the noise, and the factor that makes the level 1.
  void Scale() {
    const float* const psf = p_.psf;
    psfEnergy_ = std::inner_product(psf, psf + std::ptrdiff_t{p_.psfWidth} * p_.psfHeight, psf, 0.0);
    const DataSums sums = Fold<DataSums>([&](int y) {
      DataSums s;
      const float* const data = Data(y);
      for (int x = 0; x < DataCount(y); ++x) {
        const double v = data[x];
        if (v - v != 0.0) continue;
        s.count += 1.0;
        s.sum += v;
        s.square += v * v;
      }
      return s;
    });
    count_ = std::max(sums.count, 1.0);
    const double rms = sums.square > 0.0 ? std::sqrt(sums.square / count_) : 1.0;
    noise_ = p_.variance > 0.0 ? std::sqrt(p_.variance) : 0.0;
    // Single precision can't follow data better than that, and noise far above everything leaves nothing to restore.
    noise_ = std::clamp(noise_, rms * 1e-6, rms * 1e6);
    // Data about zero (a sky that was subtracted) have no level of their own.
    const double level = std::max({sums.sum / count_, 0.1 * noise_, rms * 1e-3});
    scale_ = 1.0 / std::clamp(level, 1e-30, 1e37);
    sigma_ = noise_ * scale_;
    lambda_ = kFirstLambda * sigma_;
  }

  double Weight() const { return lambda_ / (sigma_ * sigma_); }
  float InverseLevel() const { return static_cast<float>(std::exp(-logLevel_)); }

  // The data are the first estimate, lifted above 0.
  bool Start() {
    const float scale = static_cast<float>(scale_);
    ForRows(0, h_, [&](int y) {
      float* const f = f_ + At(y);
      const int count = DataCount(y);
      const float* const data = Data(y);
      for (int x = 0; x < count; ++x) {
        const float v = data[x] * scale;
        f[x] = v - v != 0.0f ? 1.0f : v > kStartFloor ? v : kStartFloor;
      }
      std::fill(f + count, f + w_, 1.0f);
    });
    if (!Blur(blurred_, f_, 1, 0, 100)) return false;
    Residual(0.0f);
    TellRestorationStep(p_.plane, 0, chiSquare_);
    return true;
  }

  // The residual at the model, `a` steps further along the blurred direction, in place of the pull.
  void Residual(float a) {
    const float scale = static_cast<float>(scale_);
    residual_ = Fold<ResidualSums>([&](int y) {
      return ResidualRow(blurred_ + At(y), blurredStep_ + At(y), w_, a, Data(y), scale, DataCount(y), pull_ + At(y));
    });
    chiSquare_ = residual_.square / (count_ * sigma_ * sigma_);
  }

  // Goes `a` along the direction. Where values would have fallen too far, the step is another one than was blurred:
  // then the model is blurred anew.
  bool Move(float a) {
    if (!(a > 1e-20f)) {  // the step is kept divided by `a`
      Residual(0.0f);
      return true;
    }
    const Held held = Fold<Held>([&](int y) { return Held{StepRow(f_ + At(y), step_ + At(y), w_, a, kFloor)}; });
    if (held.any) {
      if (!Blur(pull_, f_, 1, 80, 100)) return false;
      ForRows(0, p_.dataHeight,
              [&](int y) { DifferenceRow(pull_ + At(y), blurred_ + At(y), p_.dataWidth, a, blurredStep_ + At(y)); });
    }
    const double before = std::max(chiSquare_, 1.0);
    Residual(a);
    // A step that was turned aside may lead far away from the data.
    for (int i = 0; held.any && !(chiSquare_ <= kLeap * before) && i < kMostHalvings; ++i) {
      a *= 0.5f;
      ForRows(0, h_, [&](int y) { RetreatRow(f_ + At(y), step_ + At(y), w_, a, kFloor); });
      Residual(-a);
    }
    return true;
  }

  bool Iterate() {
    if (!Blur(pull_, pull_, 2, 0, 40)) return false;
    const GradientSums gradients = Fold<GradientSums>([&](int y) {
      return GradientRow(f_ + At(y), pull_ + At(y), w_, InverseLevel(), static_cast<float>(Weight()), logs_ + At(y));
    });
    const float raise = Adjust(gradients);
    const float weight = static_cast<float>(Weight());
    const float curvature = static_cast<float>(kDataCurvature * Weight() * psfEnergy_);
    ForRows(0, h_,
            [&](int y) { PreconditionRow(f_ + At(y), logs_ + At(y), w_, weight, raise, curvature, pull_ + At(y)); });
    if (!Blur(blurredFresh_, pull_, 1, 40, 80)) return false;

    float beta = Beta();
    DirectionSums direction;
    for (state_ = 0;; ++state_) {
      direction = Direct(beta);
      line_ = Search(direction);
      if (line_.a > 0.0 || state_ == 1) break;
      beta = 0.0f;  // once more along the gradient alone
    }
    if (!Move(static_cast<float>(line_.a))) return false;
    rmsStep_ = std::sqrt(direction.square / static_cast<double>(n_)) * std::fabs(line_.a) / scale_;
    largestStep_ = std::fabs(line_.a) * direction.largest / scale_;
    rmsResidual_ = std::sqrt(residual_.square / count_) / scale_;
    return true;
  }

  // Moves lambda and the level where the gradients about balance, and gives the gain of ln m.
  float Adjust(const GradientSums& g) {
    const double c = Weight();
    const double rest = g.entropy - 2.0 * c * g.cross + c * c * g.pull;
    const double both = std::sqrt(g.entropy) + c * std::sqrt(g.pull);
    if (!(std::sqrt(std::max(rest, 0.0)) < kBalanced * both)) return 0.0f;
    const double response = g.response * count_ / static_cast<double>(n_);
    double raise = response > 0.0 ? kLevelGain * residual_.sum / response : 0.0;
    raise = std::clamp(raise, -kLevelStep, kLevelStep);
    raise = std::clamp(logLevel_ + raise, -kLevelRange, kLevelRange) - logLevel_;
    logLevel_ += raise;
    lambda_ *= std::clamp(chiSquare_, 1.0 / kLambdaRate, kLambdaRate);
    return static_cast<float>(raise);
  }

  // What makes the new direction conjugate to the last one.
  float Beta() {
    const ConjugateSums sums = Fold<ConjugateSums>([&](int y) {
      return ConjugateRow(f_ + At(y), pull_ + At(y), step_ + At(y), w_, Data(y), blurredFresh_ + At(y),
                          blurredStep_ + At(y), DataCount(y));
    });
    const double last = sums.entropyLast + Weight() * sums.dataLast;
    const double beta = -(sums.entropyCross + Weight() * sums.dataCross) / last;
    return last > 0.0 && std::fabs(beta) < 1e6 ? static_cast<float>(beta) : 0.0f;
  }

  DirectionSums Direct(float beta) {
    const float scale = static_cast<float>(scale_);
    return Fold<DirectionSums>([&](int y) {
      return DirectionRow(f_ + At(y), pull_ + At(y), beta, step_ + At(y), w_, Data(y), scale, blurred_ + At(y),
                          blurredFresh_ + At(y), blurredStep_ + At(y), DataCount(y));
    });
  }

  // The maximum along the direction; a = 0 when the direction does not ascend.
  Line Search(const DirectionSums& direction) {
    constexpr int kLeast = 2, kMost = 10;
    const double c = Weight();
    Line line;
    line.limit = direction.fall > 0.0f ? std::min(1.0 / direction.fall, kFarthest) : kFarthest;
    double low = 0.0, high = kFarthest, start = 0.0;
    for (;;) {
      const float a = static_cast<float>(line.a), inverse = InverseLevel();
      const LineSums sums = Fold<LineSums>([&](int y) { return LineRow(f_ + At(y), step_ + At(y), w_, a, inverse); });
      const double slope = sums.slope + c * (direction.residual - line.a * direction.data);
      if (line.rounds == 0) {
        if (!(slope > 0.0)) return line;
        start = slope;
      }
      line.g = slope / start;
      if (line.rounds >= kLeast && !(std::fabs(line.g) >= 1e-7)) return line;
      (slope > 0.0 ? low : high) = line.a;
      double next = line.a + slope / (sums.curvature + c * direction.data);
      if (!(next > low && next < high)) next = 0.5 * (low + high);
      const double change = std::fabs(next - line.a) / next;
      line.a = next;
      ++line.rounds;
      if (line.rounds == kMost || (line.rounds >= kLeast && !(change >= 0.0001))) return line;
    }
  }

  int Finish(float* result) {
    const float back = static_cast<float>(1.0 / scale_);
    float least = 1.0f;
    for (int y = 0; y < p_.dataHeight; ++y) {
      const float* const f = f_ + At(y);
      float* const to = result + static_cast<std::ptrdiff_t>(y) * p_.dataWidth;
      for (int x = 0; x < p_.dataWidth; ++x) {
        least = std::min(least, f[x]);
        to[x] = f[x] * back;
      }
    }
    const int small = least <= kNothingLeft ? 6 : 0;
    const int restarted = state_ == 1 ? 5 : 0;
    return small && restarted ? 56 : small + restarted;
  }

  void ReportHead() const {
    if (!verbose) return;
    std::printf("maximum entropy restoration\n");
    std::printf("array dimension      %15d\n", static_cast<int>(n_));
    std::printf("number of data       %15d\n",
                static_cast<int>(static_cast<std::size_t>(p_.dataWidth) * static_cast<std::size_t>(p_.dataHeight)));
    std::printf("number of unknowns   %15d\n", static_cast<int>(n_));
    std::printf("number of work-arrays%15d\n", kArrays);
    std::printf("factor to o(1)-scale %15.8e\n", scale_);
  }

  // "low limit" is the floor of the result, "nsd" the rms residual in standard deviations of the noise.
  void ReportIteration(int k) const {
    if (!verbose) return;
    std::printf(
        "\nmain iter %20d     g function %20.12e\nsub  iter %20.1f     a value    %20.12e\n"
        "sdir iuch %20d     a limit    %20.12e\nrms step  %20.12f     low limit  %20.12e\n"
        "max step  %20.12e     lagpar     %20.12e\nrms res   %20.12e     nsd        %20.12e\n",
        k, line_.g, line_.rounds + 0.1 * state_, line_.a, state_, line_.limit, rmsStep_, kFloor / scale_, largestStep_,
        lambda_, rmsResidual_, rmsResidual_ / noise_);
  }

  static constexpr std::size_t kPartBytes = 64;

  const MemProblem& p_;
  MemStopLimits& limits_;
  const int w_, h_;
  const std::size_t n_;
  RestorationReport report_;
  int code_ = 0;

  Block block_, parts_;
  float* f_ = nullptr;
  float* blurred_ = nullptr;
  float* pull_ = nullptr;          // the residual, then its adjoint, then the new direction
  float* logs_ = nullptr;          // its place is also
  float* blurredFresh_ = nullptr;  // that of the blurred new direction
  float* step_ = nullptr;
  float* blurredStep_ = nullptr;
  float* work_ = nullptr;

  double count_ = 1.0;  // data that count
  double noise_ = 0.0;  // in data units
  double scale_ = 1.0;
  double sigma_ = 0.0;  // the noise, scaled
  double lambda_ = 0.0;
  double psfEnergy_ = 0.0;  // the sum of its squares: chi-square's curvature along one pixel
  double logLevel_ = 0.0;
  ResidualSums residual_;
  double chiSquare_ = 0.0;  // a datum
  Line line_;
  int state_ = 0;  // 1 when the last direction is the restarted one
  double rmsStep_ = 0.0, largestStep_ = 0.0, rmsResidual_ = 0.0;
};

}  // namespace

int MemSolve(const MemProblem& problem, float* result, MemStopLimits& stopLimits) {
  return Solver(problem, stopLimits).Run(result);
}

void SetMemVerbose(bool on) {
  verbose = on;
}

}  // namespace qmr
