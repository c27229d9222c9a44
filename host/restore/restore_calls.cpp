#include "host/restore/restore_calls.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "host/night/failure.h"
#include "host/restore/padded_part.h"
#include "host/restore/picture_facts.h"
#include "host/restore/restore_window.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/restoration/lucy_restore.h"
#include "qmrimg/restoration/mem_restore.h"
#include "qmrimg/restoration/wiener.h"

namespace qmr::calls {
namespace {

// How far the point-spread function reaches, in standard deviations: what lies beyond is below a float's last bits.
constexpr double kReach = 5.0;
// Noise on the scale that maximum entropy works on, whose least steps count as settled at half a unit: the same share
// of the noise for every picture.
constexpr double kMemNoise = 32.0;

int Reach(double sigma) {
  return std::max(static_cast<int>(std::ceil(kReach * sigma)), 8);
}

// A Gaussian of that reach about the middle, of sum 1.
struct Psf {
  explicit Psf(double sigma) : size(2 * Reach(sigma) + 1) {
    double sum = 0.0;
    std::vector<double> exact;
    for (int y = 0; y < size; ++y) {
      for (int x = 0; x < size; ++x) {
        const double dx = x - size / 2, dy = y - size / 2;
        exact.push_back(std::exp((dx * dx + dy * dy) / (-2.0 * sigma * sigma)));
        sum += exact.back();
      }
    }
    for (const double value : exact) values.push_back(static_cast<float>(value / sum));
  }
  int size;
  std::vector<float> values;
};

// The rectangle with what lies around it within a reach: the blur has brought light from there.
CRect WithSurroundings(const OperationJob& job, int reach) {
  const CRect& rect = job.rect;
  return {std::max(rect.left - reach, 0), std::max(rect.top - reach, 0),
          std::min(rect.right + reach, job.source.GetWidth()), std::min(rect.bottom + reach, job.source.GetHeight())};
}

// The sum above a level over the rectangle.
double FluxOf(const CVynImage& image, int plane, const CRect& rect, double level) {
  double flux = 0.0;
  for (int y = rect.top; y < rect.bottom; ++y) {
    double row = 0.0;
    for (const float v : ReadRow(image, y, plane, rect.left, rect.right)) row += v - level;
    flux += row;
  }
  return flux;
}

// One line a plane on what came of it.
void Tell(OperationJob& job, const CVynImage& result, int plane, const std::string& how) {
  if (!job.remarks || std::min(job.source.GetWidth(), job.source.GetHeight()) < kLeastSkySide) return;
  const double sky = SkyOf(job.source, plane).level;
  const double before = FluxOf(job.source, plane, job.rect, sky), after = FluxOf(result, plane, job.rect, sky);
  char text[160];
  const double percent = before != 0.0 ? (after - before) / std::abs(before) * 100.0 : 0.0;
  // No minus before a nought.
  std::snprintf(text, sizeof text, "flux above the sky %.6g -> %.6g (%+.2f %%)", before, after,
                std::abs(percent) < 0.005 ? 0.0 : percent);
  const std::string which = job.source.GetPlanes() > 1 ? "plane " + std::to_string(plane + 1) + ": " : "";
  job.remarks->push_back(which + how + text);
}

std::string StepName(const char* method, const OperationJob& job, int plane) {
  const int planes = job.source.GetPlanes();
  if (planes == 1) return method;
  return std::string(method) + " plane " + std::to_string(plane + 1) + " of " + std::to_string(planes);
}

std::string Settled(const RestoreWindow& window) {
  char text[128];
  std::snprintf(text, sizeof text, "%d iteration%s, chi-square %.4g -> %.4g, ", window.Iterations(),
                window.Iterations() == 1 ? "" : "s", window.FirstChiSquare().value_or(0.0),
                window.ChiSquare().value_or(0.0));
  return text;
}

[[noreturn]] void FailWithoutMemory() {
  throw std::bad_alloc();
}

void CheckFinite(double light) {
  if (!std::isfinite(light)) throw Failure(kExitBadData, "has values that lie too far apart to be restored");
}

// What was measured below black can't be light: it counts for nothing and stays as it is.
bool IsLight(float value, double pedestal, double tolerance) {
  return value - pedestal >= -tolerance;
}

// The light of the data over that of what was made of them: 1 for Richardson-Lucy as published, and nearly so with
// accelerated steps and for maximum entropy.
double LightKept(const OperationJob& job, PaddedPart& part, const CRect& area, int plane, double pedestal, double scale,
                 double tolerance) {
  double before = 0.0, after = 0.0;
  bool light = false;
  for (int y = area.top; y < area.bottom; ++y) {
    const std::span<const float> row = ReadRow(job.source, y, plane, area.left, area.right);
    const float* const to = &part.At(0, y - area.top);
    double given = 0.0, made = 0.0;
    for (std::size_t x = 0; x < row.size(); ++x) {
      if (!IsLight(row[x], pedestal, tolerance)) continue;
      light = true;
      given += row[x] - pedestal;
      made += to[x] * scale;
    }
    before += given;
    after += made;
  }
  if (!light) throw Failure(kExitUsage, "--pedestal: no pixel of what is restored lies above it");
  CheckFinite(after);
  return before > 0.0 && after > 0.0 ? before / after : 1.0;
}

// Puts the restored values back where there was light, with all of the light.
void Take(OperationJob& job, CVynImage& result, PaddedPart& part, const CRect& area, int plane, double pedestal,
          double scale, double tolerance) {
  scale *= LightKept(job, part, area, plane, pedestal, scale, tolerance);
  for (int y = job.rect.top; y < job.rect.bottom; ++y) {
    const std::span<float> row = WriteRow(result, y, plane, job.rect.left, job.rect.right);
    const float* const from = &part.At(job.rect.left - area.left, y - area.top);
    for (std::size_t x = 0; x < row.size(); ++x)
      if (IsLight(row[x], pedestal, tolerance)) row[x] = static_cast<float>(from[x] * scale + pedestal);
  }
}

// Marks what is no light in the part.
void Mark(const OperationJob& job, PaddedPart& part, const CRect& area, int plane, double pedestal, double tolerance,
          float mark) {
  for (int y = area.top; y < area.bottom; ++y) {
    const std::span<const float> row = ReadRow(job.source, y, plane, area.left, area.right);
    float* const to = &part.At(0, y - area.top);
    for (std::size_t x = 0; x < row.size(); ++x)
      if (!IsLight(row[x], pedestal, tolerance)) to[x] = mark;
  }
}

}  // namespace

Result RestoreByLucy(OperationJob& job) {
  constexpr double kRejectSigma = 5.0;
  auto result = Destination<CVynImage>(job);
  const double sigma = BlurOf(job.settings);
  const int iterations = job.settings.Whole("iterations"), pad = 2 * Reach(sigma);
  const CRect area = WithSurroundings(job, pad);
  const std::vector<double> pedestal = job.settings.PerPlane("pedestal"), gain = job.settings.PerPlane("gain"),
                            readNoise = job.settings.PerPlane("read-noise");
  Psf psf(sigma);
  for (int p = 0; p < job.source.GetPlanes(); ++p) {
    const auto i = static_cast<std::size_t>(p);
    // In electrons, whatever the unit of the picture.
    PaddedPart part(job.source, p, area, SmoothSize(area.Width() + pad), SmoothSize(area.Height() + pad), pedestal[i],
                    gain[i]);
    // The solver's own limit below which a pixel is left out; what lies clearly beyond it is.
    const double tolerance = kRejectSigma * readNoise[i] / gain[i];
    Mark(job, part, area, p, pedestal[i], tolerance, static_cast<float>(-2.0 * kRejectSigma * readNoise[i] - 1.0));
    RestoreWindow window(*job.steps, StepName("Lucy", job, p), iterations + 1, iterations);
    CVynImage progress;
    progress.SetProgressHandle(&window);
    LucyRun run;
    run.data = part.Data();
    run.width = part.Width();
    run.height = part.Height();
    run.psf = psf.values.data();
    run.psfWidth = run.psfHeight = psf.size;
    run.iterations = iterations;
    run.readNoise = readNoise[i];
    run.chiLimit = job.settings.Number("chi-square");
    run.leastGain = job.settings.Number("settle");
    run.rejectSigma = kRejectSigma;
    run.progress = &progress;
    {
      const WatchRestoration watch(&window);
      if (RunLucy(run).code != 0) FailWithoutMemory();
    }
    Take(job, *result, part, area, p, pedestal[i], 1.0 / gain[i], tolerance);
    Tell(job, *result, p, Settled(window));
  }
  return result;
}

Result RestoreByMem(OperationJob& job) {
  auto result = Destination<CVynImage>(job);
  const double sigma = BlurOf(job.settings);
  const int iterations = job.settings.Whole("iterations"), pad = 2 * Reach(sigma);
  const CRect area = WithSurroundings(job, pad);
  // The solver works on powers of two and takes what they have beyond the data as free; it wants a margin only where
  // that is too narrow.
  const auto size = [pad](int n) { return PowerOfTwo(n) - n >= pad ? n : n + pad; };
  const std::vector<double> pedestal = job.settings.PerPlane("pedestal"), noise = job.settings.PerPlane("noise");
  Psf psf(sigma);
  for (int p = 0; p < job.source.GetPlanes(); ++p) {
    const auto i = static_cast<std::size_t>(p);
    const double scale = kMemNoise / noise[i];
    PaddedPart part(job.source, p, area, size(area.Width()), size(area.Height()), pedestal[i], scale);
    Mark(job, part, area, p, pedestal[i], 0.0, std::numeric_limits<float>::quiet_NaN());
    constexpr int kStagesBefore = 2;
    RestoreWindow window(*job.steps, StepName("Maximum entropy", job, p), iterations + kStagesBefore, iterations);
    CVynImage progress;
    progress.SetProgressHandle(&window);
    int code;
    {
      const WatchRestoration watch(&window);
      code = MemRestore(part.Data(), part.Data(), part.Width(), part.Height(), psf.values.data(), psf.size, psf.size,
                        kMemNoise * kMemNoise, iterations, &progress, 0);
    }
    for (; code > 0; code /= 10) {
      const int digit = code % 10;
      if (digit == 2 || digit == 3 || digit == 7) FailWithoutMemory();
      if (digit != 5 && digit != 6) throw Failure(kExitBadData, "has no solution of maximum entropy");
    }
    Take(job, *result, part, area, p, pedestal[i], 1.0 / scale, 0.0);
    Tell(job, *result, p, Settled(window));
  }
  return result;
}

Result RestoreByWiener(OperationJob& job) {
  constexpr double kSqrtTwo = 1.414213562;
  auto result = Destination<CVynImage>(job);
  // What CImgWiener calls sigma.
  const double sigma = kSqrtTwo * BlurOf(job.settings), strength = job.settings.Number("strength");
  // The filter reaches farther than the blur.
  const int pad = 4 * Reach(sigma);
  const CRect area = WithSurroundings(job, pad);
  const int width = PowerOfTwo(area.Width() + pad), height = PowerOfTwo(area.Height() + pad);
  const double gain = job.settings.On("plain") ? 1.0 : WienerGain(sigma, strength, width, height);
  for (int p = 0; p < job.source.GetPlanes(); ++p) {
    // Values above black on a scale of their own, so that nothing is lost on the library's.
    const double black = job.source.GetLevelMin(p);
    PaddedPart part(job.source, p, area, width, height, black);
    CImgWiener work;
    static_cast<CVynImage&>(work) = CVynImage(-32, width, height, 1, 1.0, 0.0, 1);
    static_cast<CImage&>(work).SetLevel(0, 0.0, 255.0);
    for (int y = 0; y < height; ++y) std::copy_n(&part.At(0, y), width, WriteRow(work, y, 0, 0, width).begin());
    {
      RestoreWindow window(*job.steps, StepName("Wiener", job, p), 1, 1);
      work.SetProgressHandle(&window);
      if (!work.Do(sigma, strength, nullptr, kReport)) FailWithoutMemory();
    }
    for (int y = job.rect.top; y < job.rect.bottom; ++y) {
      const std::span<float> row = WriteRow(*result, y, p, job.rect.left, job.rect.right);
      const std::span<const float> from =
          ReadRow(work, y - area.top, 0, job.rect.left - area.left, job.rect.right - area.left);
      for (std::size_t x = 0; x < row.size(); ++x) row[x] = static_cast<float>(from[x] / gain + black);
    }
    CheckFinite(FluxOf(*result, p, job.rect, 0.0));
    Tell(job, *result, p, "");
  }
  return result;
}

}  // namespace qmr::calls
