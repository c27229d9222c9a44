#include "host/operations/geometry_calls.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "host/night/failure.h"
#include "host/night/frame.h"
#include "host/night/output.h"
#include "host/operations/blank_pixels.h"
#include "qmrimg/geometry/crop.h"
#include "qmrimg/geometry/flip.h"
#include "qmrimg/geometry/interp_method.h"
#include "qmrimg/geometry/resize.h"
#include "qmrimg/geometry/resolution.h"
#include "qmrimg/geometry/rotate.h"
#include "qmrimg/geometry/scroll.h"
#include "qmrimg/geometry/soft_binning.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace qmr::calls {
namespace {

constexpr int kQuiet = 0;
constexpr float kBlank = std::numeric_limits<float>::quiet_NaN();

void Need(int done) {
  if (!done) throw std::bad_alloc();
}

// Calls `row(span)` for all rows of one plane.
template <class Row>
void ForPlane(CVynImage& image, int plane, const Row& row) {
  ForRows(0, image.GetHeight(), [&](int y) { row(y, WriteRow(image, y, plane, 0, image.GetWidth())); });
}

// Operations that only move pixels take those without a value along.
CVynImage& SourceWithBlanks(OperationJob& job) {
  if (job.blank) job.blank->Restore(job.source);
  return job.source;
}

// An image of the source's shape that is 0 where there is a value and 1 elsewhere.
template <class Operation>
std::unique_ptr<Operation> BlankMask(const OperationJob& job) {
  auto mask = std::make_unique<Operation>();
  Need(mask->Create(job.source));
  job.blank->Restore(*mask);
  for (int p = 0; p < mask->GetPlanes(); ++p)
    ForPlane(*mask, p, [&](int, std::span<float> row) {
      for (float& v : row) v = std::isnan(v) ? 1.0f : 0.0f;
    });
  return mask;
}

// Pixels without a value where at least half of what they show has none.
void BlankWhere(const CVynImage& mask, CVynImage& image) {
  for (int p = 0; p < image.GetPlanes(); ++p)
    ForPlane(image, p, [&](int y, std::span<float> row) {
      const auto from = ReadRow(mask, y, p, 0, image.GetWidth());
      for (std::size_t x = 0; x < std::min(row.size(), from.size()); ++x)
        if (from[x] >= 0.5f) row[x] = kBlank;
    });
}

// Gives the planes other levels for the length of a scope.
class OtherLevels {
 public:
  OtherLevels(CVynImage& image, double min, double max) : image_(image) {
    for (int p = 0; p < image.GetPlanes(); ++p) {
      before_.emplace_back(image.GetLevelMin(p), image.GetLevelMax(p));
      static_cast<CImage&>(image).SetLevel(p, min, max);
    }
  }
  OtherLevels(const OtherLevels&) = delete;
  OtherLevels& operator=(const OtherLevels&) = delete;
  ~OtherLevels() {
    for (std::size_t p = 0; p < before_.size(); ++p)
      static_cast<CImage&>(image_).SetLevel(static_cast<int>(p), before_[p].first, before_[p].second);
  }

 private:
  CVynImage& image_;
  std::vector<std::pair<double, double>> before_;
};

// The weights of the Lanczos methods don't sum to exactly 1, which on a bright sky would show as a pattern: it is taken
// off before they sample and put back after it.
class SkyOff {
 public:
  SkyOff(CVynImage& image, int method) {
    if (method != kLanczos2 && method != kLanczos3) return;
    const SkyLevels found = MeasureSky(image);
    for (int p = 0; p < found.planes; ++p) {
      const float sky = static_cast<float>(found.sky[p]);
      sky_.push_back(std::isfinite(sky) ? sky : 0.0f);
    }
    Add(image, -1.0f);
  }
  void PutBack(CVynImage& image) const { Add(image, 1.0f); }

 private:
  void Add(CVynImage& image, float sign) const {
    for (std::size_t p = 0; p < sky_.size(); ++p)
      ForPlane(image, static_cast<int>(p), [&](int, std::span<float> row) {
        for (float& v : row) v += sign * sky_[p];
      });
  }

  std::vector<float> sky_;
};

int Turns(const Settings& settings) {
  return static_cast<int>(std::fmod(std::fmod(settings.Number("angle") / 90.0, 4.0) + 4.0, 4.0));
}

Failure Usage(const std::string& line) {
  return {kExitUsage, line};
}

// The middles of blocks of `bin` pixels.
PixelMap BinMap(int binX, int binY) {
  return {1.0 / binX, 0.0, 0.0, 1.0 / binY, -0.5 * (binX - 1) / binX, -0.5 * (binY - 1) / binY, binX, binY};
}

// Sums become means; incomplete blocks have fewer pixels.
void DivideByCount(CVynImage& image, int binX, int binY, int width, int height) {
  const auto pixels = [](int at, int bin, int size) { return std::min(bin, size - at * bin); };
  for (int p = 0; p < image.GetPlanes(); ++p)
    ForPlane(image, p, [&](int y, std::span<float> row) {
      const float rows = static_cast<float>(pixels(y, binY, height));
      for (std::size_t x = 0; x < row.size(); ++x)
        row[x] /= rows * static_cast<float>(pixels(static_cast<int>(x), binX, width));
    });
}

// How much of each block has no value, 0 to 1.
std::unique_ptr<CImgSoftBinning> BlankShare(const OperationJob& job, int binX, int binY, bool roundUp) {
  auto mask = BlankMask<CImgSoftBinning>(job);
  Need(mask->Do(binX, binY, roundUp, 0, mask.get(), kQuiet));
  DivideByCount(*mask, binX, binY, job.source.GetWidth(), job.source.GetHeight());
  return mask;
}

Result BinBy(OperationJob& job, int binX, int binY, bool roundUp, bool mean) {
  auto image = Destination<CImgSoftBinning>(job);
  Need(image->Do(binX, binY, roundUp, !mean, &job.source, kReport));
  if (mean) DivideByCount(*image, binX, binY, job.source.GetWidth(), job.source.GetHeight());
  return image;
}

}  // namespace

// ---- Whole pixels ---------------------------------------------------------------------------------------------------

Result Crop(OperationJob& job) {
  const std::vector<double>& sides = job.settings.List("rect");
  if (sides[0] < 0.0 || sides[1] < 0.0 || sides[2] > job.source.GetWidth() || sides[3] > job.source.GetHeight())
    throw Usage("--rect: leaves the picture, which is " + SizeText(job.source));
  auto image = Destination<CImgCrop>(job);
  const CRect rect(static_cast<int>(sides[0]), static_cast<int>(sides[1]), static_cast<int>(sides[2]),
                   static_cast<int>(sides[3]));
  Need(image->Do(rect, &SourceWithBlanks(job), kReport));
  job.map = PixelMap{.dx = -sides[0], .dy = -sides[1]};
  return image;
}

Result Canvas(OperationJob& job) {
  const CVynImage& source = job.source;
  const int width = job.settings.Has("width") ? job.settings.Whole("width") : source.GetWidth();
  const int height = job.settings.Has("height") ? job.settings.Whole("height") : source.GetHeight();
  const int anchor = job.settings.Whole("anchor");
  std::vector<float> fill;
  for (const double value : job.settings.PerPlane("fill")) fill.push_back(static_cast<float>(value));
  auto image = Destination<CImgResize>(job);
  {
    // Fills are on the 256-scale: with these levels it is that of the file.
    const OtherLevels asInFile(*image, 0.0, 255.0);
    Need(image->Do(width, height, anchor, fill.data(), &SourceWithBlanks(job), kReport));
  }
  const auto offset = [](int canvas, int size, int place) {
    return place == 0 ? 0 : (canvas - size) / (place == 1 ? 2 : 1);
  };
  job.map = PixelMap{.dx = static_cast<double>(offset(width, source.GetWidth(), anchor % 3)),
                     .dy = static_cast<double>(offset(height, source.GetHeight(), anchor / 3))};
  return image;
}

Result Flip(OperationJob& job) {
  auto image = Destination<CImgFlip>(job);
  const bool leftRight = job.settings.On("horizontal"), topBottom = job.settings.On("vertical");
  CVynImage* from = &SourceWithBlanks(job);
  PixelMap map;
  if (leftRight) {
    image->Do(1, from, kReport);
    from = image.get();
    map.xx = -1.0;
    map.dx = image->GetWidth() - 1;
  }
  if (topBottom) {
    image->Do(0, from, kReport);
    map.yy = -1.0;
    map.dy = image->GetHeight() - 1;
  }
  job.map = map;
  return image;
}

Result Scroll(OperationJob& job) {
  auto image = Destination<CImgScroll>(job);
  image->Do(job.settings.Whole("dx"), 1, &SourceWithBlanks(job), kReport);
  // Positive shifts move up there.
  if (const int dy = job.settings.Whole("dy"); dy != 0) image->Do(-dy, 0, image.get(), kReport);
  return image;
}

// ---- Samples --------------------------------------------------------------------------------------------------------

namespace {

Result Quarters(OperationJob& job, int turns) {
  auto image = Destination<CImgRotate>(job);
  CVynImage* const from = &SourceWithBlanks(job);
  const double right = from->GetWidth() - 1, bottom = from->GetHeight() - 1;
  if (turns == 0) {
    image->Do0(from, kReport);
    job.map = PixelMap();
  } else if (turns == 2) {
    image->Do180(from, kReport);
    job.map = PixelMap{-1.0, 0.0, 0.0, -1.0, right, bottom};
  } else {
    Need(image->Do90(turns == 1, from, kReport));
    job.map = turns == 1 ? PixelMap{0.0, -1.0, 1.0, 0.0, bottom, 0.0} : PixelMap{0.0, 1.0, -1.0, 0.0, 0.0, right};
  }
  return image;
}

}  // namespace

Result Rotate(OperationJob& job) {
  if (IsRightAngle(job.settings)) return Quarters(job, Turns(job.settings));
  const double angle = job.settings.Number("angle");
  const int expand = job.settings.On("expand");
  const int method = job.settings.Whole("interpolation");
  const int width = job.source.GetWidth(), height = job.source.GetHeight();
  auto image = Destination<CImgRotate>(job);
  const auto turn = [&](CImgRotate& object, CVynImage& from, int by, int report) {
    if (!object.Do(angle, 0, &from, expand, by, report))
      throw Failure(kExitBadData, "nothing is left of a picture of " + SizeText(job.source) + " after that rotation");
  };
  {
    // The background is black of plane 0.
    const OtherLevels blackIsBlank(*image, kBlank, kBlank);
    const SkyOff sky(job.source, method);
    turn(*image, job.source, method, kReport);
    sky.PutBack(*image);
  }
  if (const std::vector<double> fill = job.settings.PerPlane("fill"); job.settings.Has("fill")) {
    for (int p = 0; p < image->GetPlanes(); ++p)
      ForPlane(*image, p, [&](int, std::span<float> row) {
        const float value = static_cast<float>(fill[static_cast<std::size_t>(p)]);
        for (float& v : row) v = std::isnan(v) ? value : v;
      });
  }
  if (job.blank) {
    const auto mask = BlankMask<CImgRotate>(job);
    const OtherLevels blackIsZero(*mask, 0.0, 255.0);
    turn(*mask, *mask, kNearest, kQuiet);
    BlankWhere(*mask, *image);
  }
  // About the pixel in the middle, which goes to the middle of the canvas.
  const double radians = angle * 3.141592653589793 / 180.0;
  const double sine = std::sin(radians), cosine = std::cos(radians);
  const int x = width / 2, y = height / 2;
  const double offsetX = (image->GetWidth() - width) * 0.5, offsetY = (image->GetHeight() - height) * 0.5;
  job.map = PixelMap{
      cosine, -sine, sine, cosine, x + offsetX - (cosine * x - sine * y), y + offsetY - (sine * x + cosine * y)};
  return image;
}

namespace {

struct Size {
  int width, height;
};

// One side alone, or a factor, keeps the proportions.
Size NewSize(const Settings& settings, const CVynImage& source) {
  const double scale = settings.Has("scale")   ? settings.Number("scale")
                       : settings.Has("width") ? settings.Number("width") / source.GetWidth()
                                               : settings.Number("height") / source.GetHeight();
  const auto side = [&](const char* key, int old) {
    return std::max(settings.Has(key) ? settings.Number(key) : std::floor(old * scale + 0.5), 1.0);
  };
  const double width = side("width", source.GetWidth()), height = side("height", source.GetHeight());
  if (width > kLongestSide || height > kLongestSide)
    throw Usage("the result would be " + NumberText(width) + " x " + NumberText(height) + " pixels; a side has up to " +
                NumberText(kLongestSide));
  return {static_cast<int>(width), static_cast<int>(height)};
}

// The words of --interpolation of `resize`: the first ones are those of the library's sampler.
constexpr int kOwnBilinear = kNearest + 1;
constexpr int kOwnBicubic = kNearest + 2;

}  // namespace

Result Resize(OperationJob& job) {
  const auto [width, height] = NewSize(job.settings, job.source);
  const int method = job.settings.Whole("interpolation");
  const int binX = std::max(1, job.source.GetWidth() / width), binY = std::max(1, job.source.GetHeight() / height);
  // Samples alone would leave most of a picture out that gets much smaller.
  const bool average = (binX > 1 || binY > 1) && method != kNearest && !job.settings.On("no-average");
  const Result averaged = average ? BinBy(job, binX, binY, false, true) : nullptr;
  CVynImage& from = averaged ? *averaged : job.source;

  auto image = std::make_unique<CImgResolution>();
  Need(image->CopyImage(from));
  image->SetProgressHandle(job.progress);
  if (method == kOwnBilinear) {
    Need(image->Bilinear(&from, width, height, kReport));
  } else if (method == kOwnBicubic) {
    Need(image->Bicubic(&from, width, height, kReport));
  } else {
    const SkyOff sky(from, method);
    Need(image->DoChange(&from, width, height, method, kReport));
    sky.PutBack(*image);
  }
  if (job.blank) {
    CImgResolution mask;
    if (averaged)
      mask.Swap(BlankShare(job, binX, binY, false).get());
    else
      mask.Swap(BlankMask<CVynImage>(job).get());
    Need(mask.DoChange(&mask, width, height, kNearest, kQuiet));
    BlankWhere(mask, *image);
  }
  const PixelMap scaled = {.xx = static_cast<double>(width) / from.GetWidth(),
                           .yy = static_cast<double>(height) / from.GetHeight()};
  job.map = averaged ? Joined(BinMap(binX, binY), scaled) : scaled;
  return image;
}

Result Bin(OperationJob& job) {
  const std::vector<double>& factors = job.settings.List("factor");
  const int binX = static_cast<int>(factors.front()), binY = static_cast<int>(factors.back());
  const bool roundUp = job.settings.On("round-up");
  if (!roundUp && (binX > job.source.GetWidth() || binY > job.source.GetHeight()))
    throw Usage("--factor: a block is larger than the picture, which is " + SizeText(job.source));
  Result image = BinBy(job, binX, binY, roundUp, job.settings.On("mean"));
  if (job.blank) BlankWhere(*BlankShare(job, binX, binY, roundUp), *image);
  job.map = BinMap(binX, binY);
  return image;
}

// ---- Checks ---------------------------------------------------------------------------------------------------------

void CheckCrop(const Settings& settings) {
  const std::vector<double>& sides = settings.List("rect");
  if (!(sides[0] < sides[2] && sides[1] < sides[3])) throw Usage("--rect: holds no pixel; left,top,right,bottom");
}

void CheckCanvas(const Settings& settings) {
  if (!settings.Has("width") && !settings.Has("height")) throw Usage("give --width, --height or both");
}

void CheckResize(const Settings& settings) {
  const bool side = settings.Has("width") || settings.Has("height");
  if (side == settings.Has("scale")) throw Usage("give --scale, or --width, --height or both");
}

void CheckFlip(const Settings& settings) {
  if (!settings.On("horizontal") && !settings.On("vertical")) throw Usage("give --horizontal, --vertical or both");
}

void CheckBin(const Settings& settings) {
  if (settings.List("factor").size() > 2) throw Usage("--factor: one number, or one for columns and one for rows");
}

bool MovesWholePixels(const Settings&) {
  return true;
}

bool IsRightAngle(const Settings& settings) {
  return std::fmod(settings.Number("angle"), 90.0) == 0.0;
}

}  // namespace qmr::calls
