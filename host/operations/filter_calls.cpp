#include "host/operations/filter_calls.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <new>
#include <numeric>
#include <span>
#include <string>
#include <vector>

#include "host/night/failure.h"
#include "host/night/output.h"
#include "host/operations/picture_file.h"
#include "qmrimg/filters/filter.h"
#include "qmrimg/filters/filter_blur.h"
#include "qmrimg/filters/filter_misc.h"
#include "qmrimg/filters/filter_sharp.h"
#include "qmrimg/filters/filter_special.h"
#include "qmrimg/filters/wavelet.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/array.h"
#include "qmrimg/restoration/windowing.h"
#include "qmrimg/stacking/rttn_grdnt.h"

namespace qmr::calls {
namespace {

// The selection as arrays with an entry a plane.
struct Limits {
  std::vector<int> minOn, maxOn, brighterOn;
  std::vector<double> min, minBuf, max, maxBuf, brighter;

  explicit Limits(const Settings& settings)
      : min(settings.PerPlane("mask-min")),
        minBuf(settings.PerPlane("mask-min-buffer")),
        max(settings.PerPlane("mask-max")),
        maxBuf(settings.PerPlane("mask-max-buffer")) {
    minOn = Switches(min);
    maxOn = Switches(max);
  }
  Limits(const Settings& settings, bool keepBrighter) : Limits(settings) {
    brighterOn.assign(min.size(), keepBrighter);
    // The full strength, the only one that keeps pixels from getting darker.
    brighter.assign(min.size(), 100.0);
  }

 private:
  static std::vector<int> Switches(std::vector<double>& values) {
    std::vector<int> on;
    for (double& value : values) {
      on.push_back(!std::isnan(value));
      if (std::isnan(value)) value = 0.0;
    }
    return on;
  }
};

// Three values whatever the number of planes: what has fewer repeats its last.
std::array<double, 3> Three(const std::vector<double>& values) {
  std::array<double, 3> three;
  for (std::size_t i = 0; i < 3; ++i) three[i] = values[std::min(i, values.size() - 1)];
  return three;
}

std::vector<double> ToRaw(const OperationJob& job, std::vector<double> levels) {
  for (std::size_t p = 0; p < levels.size(); ++p) levels[p] = job.source.ToRaw(levels[p], static_cast<int>(p));
  return levels;
}

// The star detector cuts pixels off at white, where the plateau of a bright star has no peak. For its time white lies
// higher, and the thresholds, which count in ranges from black to white, are the smaller for it.
class Headroom {
 public:
  explicit Headroom(const OperationJob& job) : source_(job.source), factor_(job.settings.Number("headroom")) {
    for (int p = 0; p < source_.GetPlanes(); ++p) {
      const double black = source_.GetLevelMin(p);
      white_.push_back(source_.GetLevelMax(p));
      static_cast<CImage&>(source_).SetLevel(p, black, black + factor_ * (white_.back() - black));
    }
  }
  Headroom(const Headroom&) = delete;
  Headroom& operator=(const Headroom&) = delete;
  ~Headroom() {
    for (std::size_t p = 0; p < white_.size(); ++p) {
      const int plane = static_cast<int>(p);
      static_cast<CImage&>(source_).SetLevel(plane, source_.GetLevelMin(plane), white_[p]);
    }
  }
  std::vector<double> Scaled(std::vector<double> thresholds) const {
    for (double& threshold : thresholds) threshold /= factor_;
    return thresholds;
  }

 private:
  CVynImage& source_;
  const double factor_;
  std::vector<double> white_;
};

bool AllEqual(const std::vector<double>& values) {
  return std::all_of(values.begin(), values.end(), [&](double v) { return v == values.front(); });
}

// SharpFilter and SharpEdgeFilter take the same arguments.
using SharpForm = void (CImgFilterSharp::*)(double*, double*, int*, double*, double*, int*, double*, double*, int*,
                                            double*, CVynImage*, CRect*, int);

Result SharpenBy(SharpForm form, OperationJob& job, const char* width, const char* strength) {
  auto image = Destination<CImgFilterSharp>(job);
  std::vector<double> widths = job.settings.PerPlane(width);
  std::vector<double> strengths = job.settings.PerPlane(strength);
  Limits l(job.settings, job.settings.On("keep-brighter"));
  (image.get()->*form)(widths.data(), strengths.data(), l.minOn.data(), l.min.data(), l.minBuf.data(), l.maxOn.data(),
                       l.max.data(), l.maxBuf.data(), l.brighterOn.data(), l.brighter.data(), &job.source, &job.rect,
                       kReport);
  return image;
}

}  // namespace

// ---- Fixed patterns -------------------------------------------------------------------------------------------------

Result MedianPattern(OperationJob& job) {
  auto image = Destination<CImgFilter>(job);
  image->MedianFilter(job.settings.Whole("pattern"), &job.source, &job.rect, kReport);
  return image;
}

Result RankPattern(OperationJob& job) {
  auto image = Destination<CImgFilter>(job);
  image->MinMaxFilter(job.settings.Whole("pattern"), job.settings.Whole("rank"), &job.source, &job.rect, kReport);
  return image;
}

Result Laplacian(OperationJob& job) {
  auto image = Destination<CImgFilter>(job);
  image->LaplacianFilter(job.settings.Whole("kernel"), &job.source, &job.rect, kReport);
  return image;
}

Result UnsharpPattern(OperationJob& job) {
  auto image = Destination<CImgFilter>(job);
  const Settings& s = job.settings;
  image->UnSharpMask(s.Number("gain"), s.Whole("pattern"), s.Number("weight"), s.Number("threshold"), &job.source,
                     &job.rect, kReport);
  return image;
}

int PatternRanks(const Settings& settings, int) {
  constexpr int kPixels[] = {5, 9, 21};
  return kPixels[settings.Whole("pattern")];
}

// ---- Smoothing ------------------------------------------------------------------------------------------------------

Result Gaussian(OperationJob& job) {
  auto image = Destination<CImgFilterBlur>(job);
  std::vector<double> sigma = job.settings.PerPlane("sigma");
  Limits l(job.settings);
  image->GaussianFilter(sigma.data(), l.minOn.data(), l.min.data(), l.minBuf.data(), l.maxOn.data(), l.max.data(),
                        l.maxBuf.data(), &job.source, &job.rect, kReport);
  return image;
}

Result Mean(OperationJob& job) {
  auto image = Destination<CImgFilterBlur>(job);
  std::vector<double> radius = job.settings.PerPlane("radius");
  std::vector<double> weight = job.settings.PerPlane("weight");
  Limits l(job.settings);
  // The library's form without limits is the separable one.
  if (job.settings.Whole("shape") == 1)
    image->MeanFilter(radius.data(), weight.data(), &job.source, &job.rect, kReport);
  else
    image->MeanFilter(radius.data(), weight.data(), l.minOn.data(), l.min.data(), l.minBuf.data(), l.maxOn.data(),
                      l.max.data(), l.maxBuf.data(), &job.source, &job.rect, kReport);
  return image;
}

void CheckMean(const Settings& settings) {
  if (settings.Whole("shape") == 1 && (settings.Has("mask-min") || settings.Has("mask-max")))
    throw Failure(kExitUsage, "--shape box: takes no --mask-min and no --mask-max");
}

Result MeanKeepEdges(OperationJob& job) {
  std::vector<double> radius = job.settings.PerPlane("radius");
  std::vector<double> weight = job.settings.PerPlane("weight");
  Limits l(job.settings);
  CVynImage& source = job.source;
  // The library smooths where its edge detector's response, which has the scale of the pixels, is below 0. On a
  // picture whose sky lies above 0 that is nowhere, so that another level stands for 0 meanwhile.
  std::vector<float> zero;
  const std::vector<double> level = job.settings.PerPlane("zero");
  for (int p = 0; p < source.GetPlanes(); ++p) {
    const double at = level[static_cast<std::size_t>(p)];
    zero.push_back(std::isnan(at) ? 0.0f : static_cast<float>(source.ToRaw(at, p)));
  }
  CVynImage lowered;
  if (!lowered.CopyImage(source)) throw std::bad_alloc();
  for (int p = 0; p < source.GetPlanes(); ++p) {
    const float z = zero[static_cast<std::size_t>(p)];
    static_cast<CImage&>(lowered).SetLevel(p, source.GetLevelMin(p) - z, source.GetLevelMax(p) - z);
    ForRows(0, source.GetHeight(), [&](int y) {
      for (float& v : WriteRow(lowered, y, p, 0, source.GetWidth())) v -= z;
    });
  }
  auto image = Destination<CImgFilterBlur>({lowered, job.rect, job.settings, 0, job.progress});
  image->MeanWithoutEdgeFilter(radius.data(), weight.data(), l.minOn.data(), l.min.data(), l.minBuf.data(),
                               l.maxOn.data(), l.max.data(), l.maxBuf.data(), &lowered, &job.rect, kReport);
  for (int p = 0; p < source.GetPlanes(); ++p) {
    const float z = zero[static_cast<std::size_t>(p)];
    static_cast<CImage&>(*image).SetLevel(p, source.GetLevelMin(p), source.GetLevelMax(p));
    ForRows(0, source.GetHeight(), [&](int y) {
      const std::span<const float> before = ReadRow(lowered, y, p, 0, source.GetWidth());
      const std::span<const float> kept = ReadRow(source, y, p, 0, source.GetWidth());
      const std::span<float> row = WriteRow(*image, y, p, 0, source.GetWidth());
      // Pixels that were kept keep their last bit.
      for (std::size_t x = 0; x < row.size(); ++x) row[x] = row[x] == before[x] ? kept[x] : row[x] + z;
    });
  }
  return image;
}

Result Median(OperationJob& job) {
  auto image = Destination<CImgFilterBlur>(job);
  std::vector<double> radius = job.settings.PerPlane("radius");
  Limits l(job.settings);
  image->MedianFilter(radius.data(), l.minOn.data(), l.min.data(), l.minBuf.data(), l.maxOn.data(), l.max.data(),
                      l.maxBuf.data(), &job.source, &job.rect, kReport);
  return image;
}

// ---- Sharpening -----------------------------------------------------------------------------------------------------

Result Sharpen(OperationJob& job) {
  return SharpenBy(&CImgFilterSharp::SharpFilter, job, "radius", "weight");
}

Result SharpenEdges(OperationJob& job) {
  return SharpenBy(&CImgFilterSharp::SharpEdgeFilter, job, "radius", "weight");
}

Result Unsharp(OperationJob& job) {
  if (!job.settings.Has("threshold")) return SharpenBy(&CImgFilterSharp::UnSharpMask, job, "sigma", "gain");
  auto image = Destination<CImgFilterSharp>(job);
  std::vector<double> sigma = job.settings.PerPlane("sigma");
  std::vector<double> gain = job.settings.PerPlane("gain");
  std::vector<double> threshold = job.settings.PerPlane("threshold");
  image->UnSharpMask(sigma.data(), gain.data(), threshold.data(), &job.source, &job.rect, kReport);
  return image;
}

void CheckUnsharp(const Settings& settings) {
  if (settings.Has("threshold") &&
      (settings.Has("mask-min") || settings.Has("mask-max") || settings.On("keep-brighter")))
    throw Failure(kExitUsage, "--threshold: goes neither with --mask-min and --mask-max nor with --keep-brighter");
}

Result MultibandSharpen(OperationJob& job) {
  auto image = Destination<CImgFilterSharp>(job);
  const auto planes = static_cast<std::size_t>(job.settings.Planes());
  constexpr std::size_t kBands = 6;
  std::vector<double> sigmas = job.settings.List("sigma");
  std::vector<double> gains = job.settings.List("gain");
  // A band that is not named has no gain, and is not computed.
  sigmas.resize(kBands, 1.0);
  gains.resize(kBands, 0.0);
  std::vector<double> s[kBands], g[kBands];
  for (std::size_t band = 0; band < kBands; ++band) {
    s[band].assign(planes, sigmas[band]);
    g[band].assign(planes, gains[band]);
  }
  Limits l(job.settings, job.settings.On("keep-brighter"));
  image->SubBandUnSharpMask(s[0].data(), g[0].data(), s[1].data(), g[1].data(), s[2].data(), g[2].data(), s[3].data(),
                            g[3].data(), s[4].data(), g[4].data(), s[5].data(), g[5].data(), l.minOn.data(),
                            l.min.data(), l.minBuf.data(), l.maxOn.data(), l.max.data(), l.maxBuf.data(),
                            l.brighterOn.data(), l.brighter.data(), &job.source, &job.rect, kReport);
  return image;
}

Result Wavelet(OperationJob& job) {
  auto image = Destination<CImgWavelet>(job);
  const int scales = job.settings.Whole("scales");
  CRect size;
  image->SetDaubechyParams(job.settings.Whole("order"));
  image->CalcBufferSize(&job.rect, scales, &size);
  const int planes = job.source.GetPlanes();
  CVynImage buffer(-32, size.right, size.bottom, planes, 1.0, 0.0, 1);
  for (int p = 0; p < planes; ++p)
    static_cast<CImage&>(buffer).SetLevel(p, job.source.GetLevelMin(p), job.source.GetLevelMax(p));
  buffer.SetProgressHandle(job.progress);
  image->CopyToBuffer(&buffer, &job.source, &job.rect);
  const auto gains = [&](const char* key) {
    CArray<float, float> list;
    for (const double gain : job.settings.Repeated(key, static_cast<std::size_t>(scales)))
      list.Add(static_cast<float>(gain));
    return list;
  };
  CArray<float, float> rows = gains("row-gain");
  CArray<float, float> columns = gains("column-gain");
  CArray<float, float> diagonals = gains("diagonal-gain");
  const auto lowGain = static_cast<float>(job.settings.Number("low-gain"));
  if (!image->DoMultiResSubbandDecomposition(&buffer, scales, kReport) ||
      !image->DoMultiResSubbandComposition(&buffer, scales, lowGain, &rows, &columns, &diagonals, kReport))
    throw Failure(kExitInterrupted, "interrupted");
  image->CopyFromBuffer(image.get(), &job.rect, &buffer);
  return image;
}

void FindMiddle(CVynImage& image, Settings& settings) {
  if (!settings.Has("centre")) settings.Set("centre", {(image.GetWidth() - 1) / 2.0, (image.GetHeight() - 1) / 2.0});
}

void CheckRotationalGradient(const Settings& settings) {
  for (const char* key : {"mask-min", "mask-min-buffer", "mask-max", "mask-max-buffer"}) {
    const std::vector<double> values = settings.PerPlane(key);
    const bool none = std::all_of(values.begin(), values.end(), [](double v) { return std::isnan(v); });
    if (!none && !AllEqual(values))
      throw Failure(kExitUsage, "--" + std::string(key) + ": takes one value for all planes here");
  }
}

Result RotationalGradient(OperationJob& job) {
  auto image = Destination<CImgRttnGrdnt>(job);
  const Settings& s = job.settings;
  const std::vector<double>& centre = s.List("centre");
  const Limits l(s);
  // Without a percentage below 0 the protection is full.
  image->Do(s.Number("angle"), s.Number("strength"), centre[0], centre[1], l.minOn[0], l.min[0], l.minBuf[0],
            l.maxOn[0], l.max[0], l.maxBuf[0], s.On("keep-brighter"), 100.0, 0, &job.source, &job.rect, kReport);
  return image;
}

// ---- Digital development --------------------------------------------------------------------------------------------

void DevelopmentLevels(CVynImage& image, const Settings& settings) {
  const SkyLevels found = MeasureSky(image);
  const double height = settings.Number("black") * found.noise;
  // Where the division takes a wide bright region: knee and sky above black together.
  const double range = settings.Number("white") * (settings.Number("knee") + 1.0) * height;
  for (int p = 0; p < found.planes; ++p) {
    const double black = found.sky[p] - height;
    static_cast<CImage&>(image).SetLevel(p, black, black + range);
  }
}

Result DigitalDevelopment(OperationJob& job) {
  auto image = Destination<CImgFilterSpecial>(job);
  const Settings& s = job.settings;
  CVynImage& source = job.source;
  source.CalcMinMax();
  double level = 0.0;
  if (s.Has("level")) {
    level = source.ToRaw(s.Number("level"), 0);
  } else {
    const double black = source.GetLevelMin(0);
    level = black + s.Number("knee") * (MeasureSky(source).sky[0] - black);
  }
  // One in a hundred of the longer side suits nebulae; a few pixels are the least that leaves stars alone.
  const double byDefault = std::max(3.0, 0.01 * std::max(source.GetWidth(), source.GetHeight()));
  std::array<double, 3> radius = {byDefault, byDefault, byDefault};
  if (s.Has("radius")) radius = Three(s.PerPlane("radius"));
  std::array<double, 3> gamma = Three(s.PerPlane("gamma"));
  const bool curved = std::any_of(gamma.begin(), gamma.end(), [](double g) { return g != 1.0; });
  const bool after = curved && s.Whole("order") == 0;
  std::array<float, 3> gammaMin{}, gammaSpan{}, offset{}, multiplier{};
  image->DigitalDvlp1(&level, s.Whole("kernel"), radius.data(), s.Number("weight"), gamma.data(), s.Whole("range"),
                      &source, gammaMin.data(), gammaSpan.data(), offset.data(), multiplier.data(), after);
  // An image of one plane has but one mask.
  std::array<int, 3> mask{};
  const std::vector<int> masks = s.PerPlaneWhole("divide-by");
  for (std::size_t p = 0; p < masks.size() && masks.size() == mask.size(); ++p) {
    constexpr int kMean = 3;
    mask[p] = masks[p] == 0 ? kMean : static_cast<int>(p);
  }
  const int develop = !s.On("gamma-only");
  if (after) {
    image->DigitalDvlpGmAftrDdp(develop, gamma.data(), &source, mask.data(), gammaMin.data(), gammaSpan.data(),
                                offset.data(), multiplier.data(), &job.rect, kReport);
    return image;
  }
  image->DigitalDvlp2(develop, gamma.data(), &source, mask.data(), gammaMin.data(), gammaSpan.data(), offset.data(),
                      multiplier.data(), &job.rect, kReport);
  // The curve reaches up to the greatest value and lifts everything with it; white follows.
  const std::size_t lifted = curved && develop ? static_cast<std::size_t>(s.Planes()) : 0;
  for (std::size_t p = 0; p < std::min(lifted, multiplier.size()); ++p) {
    const int plane = static_cast<int>(p);
    const double black = image->GetLevelMin(plane);
    const double white = black + multiplier[p] / 255.0 * image->GetLevelRange(plane) * s.Number("white");
    if (white > black) static_cast<CImage&>(*image).SetLevel(plane, black, white);
  }
  return image;
}

// ---- Stars and nebulae ----------------------------------------------------------------------------------------------

Result StarSharpen(OperationJob& job) {
  auto image = Destination<CImgFilterSpecial>(job);
  const Settings& s = job.settings;
  std::vector<double> radius = s.PerPlane("radius");
  std::vector<double> rank = s.PerPlane("rank");
  std::vector<double> threshold = s.PerPlane("threshold");
  image->StarSharpFilter(radius.data(), rank.data(), threshold.data(), s.On("keep-peaks"), &job.source, &job.rect,
                         kReport);
  return image;
}

int StarRanks(const Settings& settings, int plane) {
  CImgFilterSpecial disc;
  return disc.GetStarSharpFilterNum(settings.PerPlane("radius")[static_cast<std::size_t>(plane)]);
}

Result StarEnhance(OperationJob& job) {
  auto image = Destination<CImgFilterSpecial>(job);
  const Settings& s = job.settings;
  const Headroom headroom(job);
  std::vector<double> sigma = s.PerPlane("sigma");
  std::vector<double> gain = s.PerPlane("gain");
  std::vector<double> threshold = headroom.Scaled(s.PerPlane("threshold"));
  if (s.Whole("smooth") == 1)
    image->StarEnhanceFilter(sigma[0], gain[0], threshold[0], s.On("mask-only"), &job.source, &job.rect, kReport);
  else
    image->StarEnhanceFilter2(sigma.data(), gain.data(), threshold.data(), s.On("mask-only"), &job.source, &job.rect,
                              kReport);
  return image;
}

void CheckStarEnhance(const Settings& s) {
  if (s.Whole("smooth") == 1 &&
      !(AllEqual(s.List("sigma")) && AllEqual(s.List("gain")) && AllEqual(s.List("threshold"))))
    throw Failure(kExitUsage, "--smooth before: takes one --sigma, --gain and --threshold for all planes");
}

Result StarMask(OperationJob& job) {
  auto image = Destination<CImgFilterSpecial>(job);
  const Settings& s = job.settings;
  const Headroom headroom(job);
  image->StaryMask(s.Number("sigma"), s.Number("gain"), headroom.Scaled({s.Number("threshold")})[0], s.On("blend"),
                   &job.source, &job.rect, kReport);
  return image;
}

Result NebulaSmooth(OperationJob& job) {
  auto image = Destination<CImgFilterSpecial>(job);
  const Settings& s = job.settings;
  std::vector<double> sigma = s.PerPlane("sigma");
  std::vector<double> threshold = s.PerPlane("threshold");
  std::vector<double> radius = s.PerPlane("radius");
  image->NebularSmootherFilter(sigma.data(), threshold.data(), radius.data(), s.On("mask-only"), &job.source, &job.rect,
                               kReport);
  return image;
}

// ---- Corrections ----------------------------------------------------------------------------------------------------

Result HotPixels(OperationJob& job) {
  auto image = Destination<CImgFilterMisc>(job);
  const Settings& s = job.settings;
  const bool cool = s.Has("cool");
  const bool hot = s.Has("hot");
  image->NoiseCut(s.Number("radius"), cool, cool ? s.Number("cool") : 0.0, hot, hot ? s.Number("hot") : 0.0,
                  &job.source, &job.rect, kReport);
  return image;
}

Result HotPixelsMosaic(OperationJob& job) {
  auto image = Destination<CImgFilterMisc>(job);
  const Settings& s = job.settings;
  const bool cool = s.Has("cool");
  const bool hot = s.Has("hot");
  image->CFANoiseCut(job.mosaic, cool, cool ? s.Number("cool") : 0.0, hot, hot ? s.Number("hot") : 0.0, &job.source,
                     &job.rect, kReport);
  return image;
}

Result BackgroundSmooth(OperationJob& job) {
  auto image = Destination<CImgFilterMisc>(job);
  const Settings& s = job.settings;
  std::vector<double> level = ToRaw(job, s.PerPlane("level"));
  std::vector<double> buffer = s.PerPlane("buffer");
  std::vector<double> sigma = s.PerPlane("sigma");
  // The other kernel type gives the same Gaussian, and its weight is not read.
  image->BkgSmooth(level.data(), buffer.data(), 0, sigma.data(), 1.0, &job.source, &job.rect, kReport);
  return image;
}

Result FalseColour(OperationJob& job) {
  auto image = Destination<CImgFilterMisc>(job);
  const Settings& s = job.settings;
  const std::vector<double>& ratio = s.List("ratio");
  image->FalseColorCut(static_cast<int>(ratio[0]), static_cast<int>(ratio[1]), static_cast<int>(ratio[2]),
                       s.Number("tolerance"), s.Number("strength"), &job.source, &job.rect, kReport);
  return image;
}

Result GuideError(OperationJob& job) {
  auto image = Destination<CImgFilterMisc>(job);
  const Settings& s = job.settings;
  image->GuideErrorCanceller(s.Number("length"), s.Number("angle"), s.Number("weight"), s.Number("mix"), &job.source,
                             &job.rect, kReport);
  return image;
}

Result Rank(OperationJob& job) {
  auto image = Destination<CImgFilterMisc>(job);
  std::vector<double> radius = job.settings.PerPlane("radius");
  std::vector<int> rank = job.settings.PerPlaneWhole("rank");
  image->MinMaxFilter(radius.data(), rank.data(), &job.source, &job.rect, kReport);
  return image;
}

int DiscRanks(const Settings& settings, int plane) {
  CImgFilterMisc disc;
  return disc.GetMinMaxFilterNmax(settings.PerPlane("radius")[static_cast<std::size_t>(plane)]);
}

Result Convolve(OperationJob& job) {
  auto image = Destination<CImgFilterMisc>(job);
  std::vector<double> kernel = job.settings.List("kernel");
  if (job.settings.On("normalise")) {
    const double sum = std::accumulate(kernel.begin(), kernel.end(), 0.0);
    for (double& value : kernel) value /= sum;
  }
  const int side = static_cast<int>(std::lround(std::sqrt(static_cast<double>(kernel.size()))));
  const auto planes = static_cast<std::size_t>(job.settings.Planes());
  std::vector<int> radius(planes, side / 2);
  std::vector<double*> kernels(planes, kernel.data());
  Limits l(job.settings, job.settings.On("keep-brighter"));
  image->Custom(radius.data(), kernels.data(), l.minOn.data(), l.min.data(), l.minBuf.data(), l.maxOn.data(),
                l.max.data(), l.maxBuf.data(), l.brighterOn.data(), l.brighter.data(), &job.source, &job.rect, kReport);
  return image;
}

void CheckConvolve(const Settings& settings) {
  const std::vector<double>& kernel = settings.List("kernel");
  if (settings.On("normalise") && std::accumulate(kernel.begin(), kernel.end(), 0.0) == 0.0)
    throw Failure(kExitUsage, "--normalise: the values of --kernel add up to 0");
}

Result Contour(OperationJob& job) {
  auto image = Destination<CImgFilterMisc>(job);
  image->ContourFilter(job.settings.Whole("steps"), job.settings.On("no-clamp"), &job.source, &job.rect, kReport);
  return image;
}

Result Window(OperationJob& job) {
  constexpr int kRaisedCosine = 0;
  const int width = job.rect.Width(), height = job.rect.Height();
  auto image = Destination<CVynImage>(job);
  // The window lies about the middle of its source, which is the rectangle.
  CImgWindowing part;
  static_cast<CVynImage&>(part) = CVynImage(-32, width, height, image->GetPlanes(), 1.0, 0.0, 1);
  part.PixelBlt(0, 0, width, height, &job.source, job.rect.left, job.rect.top, 0);
  part.SetProgressHandle(job.progress);
  part.Do(kRaisedCosine, job.settings.Number("radius"), &part, kReport);
  image->PixelBlt(job.rect.left, job.rect.top, width, height, &part, 0, 0, 0);
  return image;
}

void FindWindow(CVynImage& image, Settings& settings) {
  if (settings.Has("radius")) return;
  const CRect rect = RectangleOf(settings, image);
  settings.Set("radius", {std::max(std::min(rect.Width(), rect.Height()) / 2.0, 1.0)});
}

}  // namespace qmr::calls
