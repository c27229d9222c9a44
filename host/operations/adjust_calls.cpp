#include "host/operations/adjust_calls.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include "host/night/failure.h"
#include "host/operations/monotone_curve.h"
#include "qmrimg/colour/color_balance.h"
#include "qmrimg/colour/color_correct.h"
#include "qmrimg/colour/false_color.h"
#include "qmrimg/colour/lab_color_enhance.h"
#include "qmrimg/image/invert.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/levels/auto_stretch.h"
#include "qmrimg/levels/bright.h"
#include "qmrimg/levels/calculation.h"
#include "qmrimg/levels/cut_off.h"
#include "qmrimg/levels/expansion.h"
#include "qmrimg/levels/hst_eql.h"
#include "qmrimg/levels/normalize.h"
#include "qmrimg/levels/reduce_tone.h"
#include "qmrimg/levels/tone_curve.h"

namespace qmr::calls {
namespace {

std::vector<float> Floats(const std::vector<double>& values) {
  return {values.begin(), values.end()};
}

// Copies rows of one plane into another image's.
void CopyPlane(const CVynImage& from, int fromPlane, CVynImage& to, int toPlane) {
  ForRows(0, from.GetHeight(), [&](int y) {
    const auto row = ReadRow(from, y, fromPlane, 0, from.GetWidth());
    std::copy(row.begin(), row.end(), WriteRow(to, y, toPlane, 0, to.GetWidth()).begin());
  });
}

std::string Joined(const std::vector<std::string_view>& keys) {
  std::string text;
  for (const std::string_view key : keys) text.append(text.empty() ? "--" : ", --").append(key);
  return text;
}

}  // namespace

// ---- Point ----------------------------------------------------------------------------------------------------------

Result Brightness(OperationJob& job) {
  auto image = Destination<CImgBright>(job);
  std::vector<float> brightness = Floats(job.settings.PerPlane("brightness"));
  std::vector<float> contrast = Floats(job.settings.PerPlane("contrast"));
  image->Do(brightness.data(), contrast.data(), job.settings.Number("average"), &job.source, &job.rect, kReport);
  return image;
}

namespace {

// In the order of the library's modes.
const std::vector<std::string_view> kArithmetic = {"add", "subtract", "multiply", "divide"};

}  // namespace

Result Calculate(OperationJob& job) {
  auto image = Destination<CImgCalculation>(job);
  for (std::size_t mode = 0; mode < kArithmetic.size(); ++mode)
    if (job.settings.Has(kArithmetic[mode]))
      image->Do(job.settings.Number(kArithmetic[mode]), static_cast<int>(mode), job.settings.On("clamp"), &job.source,
                &job.rect, kReport);
  return image;
}

void CheckCalculate(const Settings& settings) {
  const auto given =
      std::count_if(kArithmetic.begin(), kArithmetic.end(), [&](std::string_view key) { return settings.Has(key); });
  if (given != 1) throw Failure(kExitUsage, "calculate: wants one of " + Joined(kArithmetic));
  // Float pixels, float constants: what rounds to 0 divides by 0.
  if (settings.Has("divide") && static_cast<float>(settings.Number("divide")) == 0.0f)
    throw Failure(kExitUsage, "--divide: not by 0");
}

Result CutOff(OperationJob& job) {
  auto image = Destination<CVynImage>(job);
  const std::vector<double> low = job.settings.PerPlane("low");
  const std::vector<double> high = job.settings.PerPlane("high");
  // The library has one pair of values for all planes, of which each has levels of its own here.
  for (int p = 0; p < job.source.GetPlanes(); ++p) {
    CVynImage plane(-32, job.source.GetWidth(), job.source.GetHeight(), 1, 1.0, 0.0, 1);
    static_cast<CImage&>(plane).SetLevel(0, job.source.GetLevelMin(p), job.source.GetLevelMax(p));
    CopyPlane(job.source, p, plane, 0);
    CImgCutOff cut;
    cut.Swap(&plane);
    cut.SetProgressHandle(job.progress);
    const auto raw = [&](double level) { return static_cast<float>(job.source.ToRaw(level, p)); };
    cut.Do(&cut, raw(low[static_cast<std::size_t>(p)]), raw(high[static_cast<std::size_t>(p)]), &job.rect, kReport);
    CopyPlane(cut, 0, *image, p);
  }
  return image;
}

Result Normalise(OperationJob& job) {
  auto image = Destination<CImgNormalize>(job);
  std::vector<float> mean = Floats(job.settings.PerPlane("mean"));
  std::vector<float> sigma = Floats(job.settings.PerPlane("sigma"));
  image->Do(&job.source, job.settings.Has("mean") ? mean.data() : nullptr,
            job.settings.Has("sigma") ? sigma.data() : nullptr, kReport);
  return image;
}

void CheckNormalise(const Settings& settings) {
  if (settings.Planes() == 1 && !settings.Has("mean") && !settings.Has("sigma"))
    throw Failure(kExitUsage, "normalise: wants --mean or --sigma where the picture has one plane");
}

Result Invert(OperationJob& job) {
  auto image = Destination<CImgInvert>(job);
  image->Do(&job.source, &job.rect, kReport);
  return image;
}

// ---- Tone -----------------------------------------------------------------------------------------------------------

namespace {

// Steps of a hundredth of a level: finer than a 16-bit picture of the range would need for noise not to show them.
constexpr int kCurveEntries = 16384;

// A table of the library from points on the 256-scale.
std::vector<float> CurveTable(const std::vector<double>& points) {
  std::vector<double> x, y;
  if (points.empty() || points.front() > 0.0) {
    x.push_back(0.0);
    y.push_back(0.0);
  }
  for (std::size_t i = 0; i + 1 < points.size(); i += 2) {
    x.push_back(points[i]);
    y.push_back(points[i + 1]);
  }
  if (x.back() < 255.0) {
    x.push_back(255.0);
    y.push_back(255.0);
  }
  const bool endsWhite = y.back() == 255.0;
  const MonotoneCurve curve(std::move(x), std::move(y));
  std::vector<float> table(kCurveEntries);
  for (std::size_t i = 0; i < table.size(); ++i)
    table[i] = static_cast<float>(curve.At(static_cast<double>(i) * 255.0 / (kCurveEntries - 1)) / 255.0);
  // The library's line above white joins the curve only where that ends at white; another end is made level.
  if (!endsWhite) table[kCurveEntries - 2] = table[kCurveEntries - 1];
  return table;
}

constexpr std::array kCurves = {"points", "red", "green", "blue"};

}  // namespace

Result ToneCurve(OperationJob& job) {
  auto image = Destination<CImgToneCurve>(job);
  std::array<std::vector<float>, kCurves.size()> curves;
  std::array<float*, kCurves.size()> tables{};
  for (std::size_t i = 0; i < kCurves.size(); ++i) {
    curves[i] = CurveTable(job.settings.List(kCurves[i]));
    tables[i] = curves[i].data();
  }
  image->Do(tables.data(), kCurveEntries, &job.source, &job.rect, kReport, 0);
  return image;
}

void CheckToneCurve(const Settings& settings) {
  for (const char* key : kCurves) {
    const std::vector<double>& points = settings.List(key);
    for (std::size_t i = 2; i < points.size(); i += 2)
      if (!(points[i - 2] < points[i]))
        throw Failure(kExitUsage, "--" + std::string(key) + ": the points' first numbers ascend");
    for (std::size_t i = 0; i < points.size(); i += 2)
      if (points[i] > 255.0) throw Failure(kExitUsage, "--" + std::string(key) + ": first numbers are 0 to 255");
    if (settings.Planes() < 3 && key != kCurves[0] && settings.Has(key))
      throw Failure(kExitUsage, "--" + std::string(key) + ": the picture has one plane; --points is its curve");
  }
}

Result HAlpha(OperationJob& job) {
  auto image = Destination<CImgToneCurve>(job);
  const Settings& s = job.settings;
  image->DoHAlpha(s.Number("knee") / 255.0, s.Number("knee-output") / 255.0, &job.source, &job.rect, kReport);
  if (!s.Has("auto-level")) return image;
  image->DoHAlphaLevel(s.Number("auto-level"), &job.source);
  for (int p = 0; p < image->GetPlanes(); ++p)
    if (!(image->GetLevelMin(p) < image->GetLevelMax(p)))
      throw Failure(kExitUsage, "--auto-level: white would not lie above black, the least pixel, which is " +
                                    NumberText(image->GetLevelMin(p)) + " (greatest " +
                                    NumberText(job.source.GetMaxPixel(0)) + ")");
  return image;
}

Result Equalise(OperationJob& job) {
  auto image = Destination<CImgHstEql>(job);
  CVynImage& source = job.source;
  std::vector<std::pair<double, double>> levels;
  for (int p = 0; p < source.GetPlanes(); ++p) levels.emplace_back(source.GetLevelMin(p), source.GetLevelMax(p));
  std::srand(static_cast<unsigned>(job.settings.Whole("seed")));
  image->Do(&source);
  // The operation leaves the ends of the new histogram in the source.
  for (int p = 0; p < source.GetPlanes(); ++p) {
    const auto [black, white] = levels[static_cast<std::size_t>(p)];
    if (source.GetLevelMin(p) < source.GetLevelMax(p))
      static_cast<CImage&>(*image).SetLevel(p, source.GetLevelMin(p), source.GetLevelMax(p));
    static_cast<CImage&>(source).SetLevel(p, black, white);
  }
  return image;
}

Result Posterise(OperationJob& job) {
  auto image = Destination<CImgReduceTone>(job);
  image->Do(job.settings.Whole("tones"), &job.source, &job.rect, kReport);
  return image;
}

// ---- Colour ---------------------------------------------------------------------------------------------------------

Result Balance(OperationJob& job) {
  auto image = Destination<CImgColorBalance>(job);
  const Settings& s = job.settings;
  image->Do(s.Number("red"), s.Number("green"), s.Number("blue"), &job.source, &job.rect, kReport);
  return image;
}

Result WhiteBalance(OperationJob& job) {
  auto image = Destination<CImgAutoStretch>(job);
  std::vector<double> gain = job.settings.PerPlane("gain");
  // Each plane about its sky, which stays.
  std::vector<double> sky = job.settings.List("sky");
  std::vector<double> white = job.settings.List("white");
  image->DoStretch(&job.source, gain.data(), sky.data(), white.data(), sky.data(), &job.rect);
  return image;
}

Result CorrectColour(OperationJob& job) {
  const Settings& s = job.settings;
  tagMATRIX matrix;
  for (std::size_t i = 0; i < 9; ++i) matrix.m[i / 3][i % 3] = s.List("matrix")[i];
  constexpr int kZero = 0, kMinimum = 1, kValue = 2;
  auto image = Destination<CImgColorCorrect>(job);
  if (s.Whole("scale") == 0) {
    image->Do(&matrix, s.Number("strength"), kZero, 0.0f, 0, &job.source, &job.rect, kReport);
    return image;
  }
  const int mode = s.On("offset-minimum") ? kMinimum : s.Has("offset") ? kValue : kZero;
  const auto offset = static_cast<float>(s.Has("offset") ? s.Number("offset") : 0.0);
  image->Do(&matrix, s.Number("strength"), mode, offset, 0, kReport);
  // This form knows no rectangle.
  auto result = Destination<CVynImage>(job);
  result->PixelBlt(job.rect.left, job.rect.top, job.rect.Width(), job.rect.Height(), image.get(), job.rect.left,
                   job.rect.top, 0);
  return result;
}

void CheckCorrectColour(const Settings& settings) {
  const bool minimum = settings.On("offset-minimum");
  if (settings.Whole("scale") == 0 && (minimum || settings.Has("offset")))
    throw Failure(kExitUsage, "--offset, --offset-minimum: mean nothing without --scale file");
  if (minimum && settings.Has("offset")) throw Failure(kExitUsage, "--offset: does not go with --offset-minimum");
}

Result Saturation(OperationJob& job) {
  auto image = Destination<CImgLabColorEnhance>(job);
  const Settings& s = job.settings;
  job.source.SetProgressHandle(job.progress);
  const std::unique_ptr<CVynImage> lab(job.source.MakeLabPlane());
  job.source.SetProgressHandle(nullptr);
  if (!lab) throw std::bad_alloc();
  const auto gain = [&](const char* key) { return s.Number(s.Has(key) ? key : "gain"); };
  image->Do(lab.get(), gain("red"), gain("green"), gain("yellow"), gain("blue"), &job.rect, kReport);
  return image;
}

Result PseudoColour(OperationJob& job) {
  auto image = Destination<CImgFalseColor>(job);
  const Settings& s = job.settings;
  if (!image->ToColor(&job.source, kReport)) throw std::bad_alloc();
  const auto raw = [&](const char* key) { return job.source.ToRaw(s.Number(key), 0); };
  image->Do(raw("low"), raw("high"), s.Whole("palette"), s.Whole("repeat"), &job.source, &job.rect, kReport);
  return image;
}

void CheckPseudoColour(const Settings& settings) {
  if (!(settings.Number("low") < settings.Number("high"))) throw Failure(kExitUsage, "--low: must be below --high");
}

Result Grey(OperationJob& job) {
  auto image = Destination<CVynImage>(job);
  if (!image->ToGray(&job.source, kReport)) throw std::bad_alloc();
  return image;
}

// ---- Planets --------------------------------------------------------------------------------------------------------

Result PlanetMap(OperationJob& job) {
  const Settings& s = job.settings;
  const int width = s.Whole("map-width");
  CVynImage map(-32, width, width / 2, job.source.GetPlanes(), 1.0, 0.0, 1);
  auto image = std::make_unique<CImgExpansion>();
  image->Swap(&map);
  image->SetProgressHandle(job.progress);
  const std::vector<double>& centre = s.List("centre");
  // The library's angle about the level axis leans the upper pole back.
  image->Do(&job.source, centre[0], centre[1], s.Number("radius"), -s.Number("latitude"), s.Number("lean"),
            s.Number("polar-scale"), s.On("grid"), nullptr, kReport);
  return image;
}

}  // namespace qmr::calls
