#include "host/night/frame.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <utility>

#include "host/night/develop_mosaic.h"
#include "host/night/failure.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/raw/information.h"

namespace qmr {
namespace {

std::optional<int> CameraPattern(const CVynImage& image) {
  CImgInformation camera;
  *camera.GetHeader() = *image.GetHeader();
  int pattern = 0;
  if (!camera.GetAutoCFA(&pattern)) return std::nullopt;
  return pattern;
}

// The pixels that the flat says nothing of become not-a-number.
void DropUnlitPixels(CVynImage& image, const Masters& masters) {
  for (const Masters::Pixel& pixel : masters.unlit) {
    // A flat of one plane serves all planes.
    const bool every = !masters.flat->IsColor();
    for (int p = every ? 0 : pixel.plane; p < (every ? image.GetPlanes() : pixel.plane + 1); ++p)
      image.SetPixelGrayRaw(pixel.x, pixel.y, std::numeric_limits<float>::quiet_NaN(), p);
  }
}

float MedianOf(std::vector<float>& values) {
  if (values.empty()) return 0.0f;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// Value at the given share of the sorted values.
float Quantile(std::vector<float>& values, double share) {
  if (values.empty()) return 0.0f;
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

// Every how many rows and columns statistics look, so that about a quarter of a million pixels count.
int SampleStep(const CVynImage& image) {
  const double pixels = static_cast<double>(image.GetWidth()) * image.GetHeight();
  return std::max(1, static_cast<int>(std::sqrt(pixels / 250000.0)));
}

}  // namespace

bool SameSize(const CVynImage& a, const CVynImage& b) {
  return a.GetWidth() == b.GetWidth() && a.GetHeight() == b.GetHeight();
}

std::string SizeText(const CVynImage& image) {
  return std::to_string(image.GetWidth()) + " x " + std::to_string(image.GetHeight());
}

void RepairBlankPixels(CVynImage& image, int step) {
  const int width = image.GetWidth();
  const int height = image.GetHeight();
  constexpr int kReach = 2;
  constexpr std::size_t kFewest = 3;
  struct Repair {
    int x, y;
    float value;
  };
  for (int p = 0; p < image.GetPlanes(); ++p) {
    std::vector<Repair> repairs;
    std::vector<float> good;
    for (int y = 0; y < height; ++y) {
      const std::span<const float> row = ReadRow(image, y, p, 0, width);
      for (int x = 0; x < width; ++x) {
        if (!std::isnan(row[static_cast<std::size_t>(x)])) continue;
        good.clear();
        for (int reach = 1; reach <= kReach && good.size() < kFewest; ++reach) {
          good.clear();
          for (int sy = std::max(y % step, y - reach * step); sy <= std::min(height - 1, y + reach * step);
               sy += step) {
            for (int sx = std::max(x % step, x - reach * step); sx <= std::min(width - 1, x + reach * step);
                 sx += step) {
              const float v = image.GetPixelGrayRaw(sx, sy, p);
              if (!std::isnan(v)) good.push_back(v);
            }
          }
        }
        if (good.size() >= kFewest) repairs.push_back({x, y, MedianOf(good)});
      }
    }
    // Stored only now: a repaired pixel must not serve its neighbours.
    for (const Repair& repair : repairs) image.SetPixelGrayRaw(repair.x, repair.y, repair.value, p);
  }
}

void SubtractLevel(CVynImage& image, double level) {
  const auto less = static_cast<float>(level);
  if (less == 0.0f) return;
  for (int p = 0; p < image.GetPlanes(); ++p) {
    ForRows(0, image.GetHeight(), [&](int y) {
      for (float& v : WriteRow(image, y, p, 0, image.GetWidth())) v -= less;
    });
    static_cast<CImage&>(image).SetLevel(p, image.GetLevelMin(p) - level, image.GetLevelMax(p) - level);
  }
}

std::unique_ptr<CVynImage> LoadImage(const FrameSource& source, LightFrame& frame,
                                     const std::optional<std::string>& bayer) {
  frame.path = source.path;
  frame.name = std::filesystem::path(source.path).filename().string();
  std::shared_ptr<DecodedImage> decoded = source.decoded;
  if (!decoded) {
    FileResult<DecodedImage> read = ReadImageFile(source.path);
    if (!read) throw Failure(kExitBadData, read.Error().reason);
    decoded = std::make_shared<DecodedImage>(std::move(*read));
  }
  auto image = std::make_unique<CVynImage>();
  if (const FileStatus error = FillImage(*decoded, *image)) throw Failure(kExitBadData, error->reason);
  frame.facts = ReadFrameFacts(decoded->keywords);
  frame.blankPixels = decoded->blankPixels;
  MosaicQuestion question;
  question.keywords = decoded->keywords;
  question.height = decoded->height;
  question.planes = decoded->planes;
  question.cameraPattern = CameraPattern(*image);
  question.user = bayer;
  FileResult<MosaicLayout> mosaic = ResolveMosaic(question);
  if (!mosaic) throw Failure(kExitUsage, mosaic.Error().reason);
  frame.mosaic = *mosaic;
  frame.keywords = decoded->keywords;
  if (decoded->IsCameraRaw()) {
    frame.sensorBlack = KeywordNumber(frame.keywords, "PEDESTAL");
    frame.sensorWhite = KeywordNumber(frame.keywords, "SATURATE");
  }
  return image;
}

FrameQuality MeasureQuality(CVynImage& image) {
  FrameQuality quality;
  const int step = SampleStep(image);
  std::vector<float> values, differences, gradients;
  for (int p = 0; p < std::min(image.GetPlanes(), 3); ++p) {
    values.clear();
    differences.clear();
    for (int y = 0; y < image.GetHeight(); y += step) {
      const std::span<const float> row = ReadRow(image, y, p, 0, image.GetWidth());
      for (std::size_t x = 0; x < row.size(); x += static_cast<std::size_t>(step)) {
        if (!std::isnan(row[x])) values.push_back(row[x]);
        const float difference = x + 2 < row.size() ? std::fabs(row[x + 2] - row[x]) : NAN;
        if (!std::isnan(difference)) differences.push_back(difference);
      }
    }
    quality.background[p] = MedianOf(values);
    // The median of |a - b| is 0.6745 sigma times the root of 2.
    quality.noise[p] = MedianOf(differences) / (0.6744897501960817 * std::sqrt(2.0));
  }
  // Gradients of 2 x 2 means, on rows that `step` spaces out: single hot pixels weigh little in them.
  const int plane = image.GetPlanes() >= 3 ? 1 : 0;
  for (int y = 0; y + 3 < image.GetHeight(); y += 4 * step) {
    const std::span<const float> a = ReadRow(image, y, plane, 0, image.GetWidth());
    const std::span<const float> b = ReadRow(image, y + 1, plane, 0, image.GetWidth());
    const std::span<const float> c = ReadRow(image, y + 2, plane, 0, image.GetWidth());
    const std::span<const float> d = ReadRow(image, y + 3, plane, 0, image.GetWidth());
    for (std::size_t x = 0; x + 3 < a.size(); x += 2) {
      const float here = a[x] + a[x + 1] + b[x] + b[x + 1];
      const float right = a[x + 2] + a[x + 3] + b[x + 2] + b[x + 3];
      const float below = c[x] + c[x + 1] + d[x] + d[x + 1];
      const float gradient = std::max(std::fabs(right - here), std::fabs(below - here)) * 0.25f;
      if (!std::isnan(right + below + here)) gradients.push_back(gradient);
    }
  }
  quality.sharpness = Quantile(gradients, 0.998) - Quantile(gradients, 0.5);
  return quality;
}

void PrepareLight(const FrameSource& source, const Masters& masters, const std::optional<std::string>& bayer,
                  LightFrame& frame) {
  try {
    std::unique_ptr<CVynImage> image = LoadImage(source, frame, bayer);
    if (frame.mosaic.kind == MosaicLayout::Kind::Unsupported) {
      frame.leftOut = "its colour filter layout can't be developed: " + frame.mosaic.text;
      return;
    }
    const std::pair<const CVynImage*, const char*> frames[] = {{masters.dark.get(), masters.darkKind.c_str()},
                                                               {masters.flat.get(), "flat"}};
    for (const auto& [master, kind] : frames) {
      if (master && !SameSize(*master, *image)) {
        frame.leftOut = "it is " + SizeText(*image) + ", the master " + kind + " is " + SizeText(*master);
        return;
      }
    }
    if (!masters.dark && frame.sensorBlack) SubtractLevel(*image, *frame.sensorBlack);
    if (masters.dark || masters.flat) {
      float flatMin[3], flatMax[3], flatMean[3];
      std::copy_n(masters.flatMin, 3, flatMin);
      std::copy_n(masters.flatMax, 3, flatMax);
      std::copy_n(masters.flatMean, 3, flatMean);
      image->DarkFlat(image.get(), masters.dark.get(), masters.flat.get(), flatMin, flatMax, flatMean, 0.0f, 0.0,
                      nullptr, 0);
      DropUnlitPixels(*image, masters);
    }
    FillEmptySites(*image, frame.mosaic, 0.0f);
    if (frame.blankPixels > 0 || !masters.unlit.empty()) RepairBlankPixels(*image, frame.mosaic.Cell());
    if (frame.mosaic.CanBeDeveloped()) {
      Development plain;
      plain.margins = LeastMargins(frame.mosaic, image->GetWidth(), image->GetHeight());
      image = DevelopMosaic(std::move(image), frame.mosaic, plain);
      if (!image) {
        frame.leftOut = "it is too small to be developed";
        return;
      }
    }
    frame.quality = MeasureQuality(*image);
    frame.image = std::move(image);
  } catch (const Failure& failure) {
    // A bad word of the user is no fault of the frame.
    if (failure.code == kExitUsage) throw;
    frame.leftOut = failure.what();
  } catch (CMemoryException* e) {
    e->Delete();
    frame.leftOut = "not enough memory for it";
  }
}

}  // namespace qmr
