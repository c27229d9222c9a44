#include "host/night/output.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <memory>
#include <span>

#include "host/files/fits_writer.h"
#include "host/files/png_writer.h"
#include "host/night/failure.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/levels/auto_level.h"
#include "qmrimg/platform/bitmap_header.h"

namespace qmr {
namespace {

void Check(const FileStatus& status) {
  if (status) throw Failure(kExitCannotCreate, status->Message());
}

// Means of factor x factor blocks; what is left over at the right and below is dropped.
std::unique_ptr<CVynImage> Binned(const CVynImage& image, int factor) {
  const int width = image.GetWidth() / factor;
  const int height = image.GetHeight() / factor;
  auto small = std::make_unique<CVynImage>(-32, width, height, image.GetPlanes(), 1.0, 0.0, 1);
  for (int p = 0; p < image.GetPlanes(); ++p) {
    ForRows(0, height, [&](int y) {
      const std::span<float> to = WriteRow(*small, y, p, 0, width);
      for (int dy = 0; dy < factor; ++dy) {
        const std::span<const float> from = ReadRow(image, y * factor + dy, p, 0, image.GetWidth());
        for (std::size_t x = 0; x < to.size(); ++x)
          for (int dx = 0; dx < factor; ++dx)
            to[x] += from[x * static_cast<std::size_t>(factor) + static_cast<std::size_t>(dx)];
      }
      const float share = 1.0f / static_cast<float>(factor * factor);
      for (float& v : to) v *= share;
    });
  }
  return small;
}

}  // namespace

void WriteStack(const std::string& path, const CVynImage& image, const std::vector<Keyword>& keywords) {
  Check(WriteFitsFloat(
      path, image.GetWidth(), image.GetHeight(), image.GetPlanes(),
      [&](int plane, int y) { return static_cast<const float*>(image.GetImageAdr(0, y, plane, 1, 0, nullptr)); },
      keywords));
}

void WriteCoverage(const std::string& path, int width, int height, const std::vector<std::uint16_t>& coverage,
                   const std::vector<Keyword>& keywords) {
  Check(WriteFits16(path, width, height, 1, coverage, keywords));
}

SkyLevels MeasureSky(CVynImage& image) {
  CImgAutoLevel levels;
  levels.Swap(&image);
  SkyLevels found;
  found.planes = std::min(levels.GetPlanes(), 3);
  for (int p = 0; p < found.planes; ++p) {
    float median = 0.0f;
    levels.GetMedian(&median, 1, 0, p, nullptr);
    // The deviation below the median is the sky's: stars and nebula only add.
    double below = 0.0;
    levels.GetLevelDoubleRangeStd(median - std::max(1.0f, std::fabs(median)), median, &below, 0, p, nullptr);
    found.sky[p] = median;
    found.noise += below / found.planes;
  }
  if (!(found.noise > 0.0)) found.noise = 1.0;
  levels.Swap(&image);
  return found;
}

void SetNightLevels(CVynImage& image) {
  // Where the mode is displayed, and how many widths of the sky's noise the range spans above it.
  constexpr double kSkyShare = 0.1;
  constexpr double kSpan = 60.0;
  const SkyLevels found = MeasureSky(image);
  const double range = found.noise * kSpan;
  for (int p = 0; p < found.planes; ++p) {
    const double sky = found.sky[p];
    static_cast<CImage&>(image).SetLevel(p, sky - range * kSkyShare, sky + range * (1.0 - kSkyShare));
  }
}

void WritePreview(const std::string& path, const CVynImage& image, int longestSide, bool bottomUp) {
  const int factor = std::max(1, (std::max(image.GetWidth(), image.GetHeight()) + longestSide - 1) / longestSide);
  const std::unique_ptr<CVynImage> small = Binned(image, factor);
  SetNightLevels(*small);
  const bool colour = small->GetPlanes() >= 3;
  const HDIB dib = small->GetDib(colour ? 24 : 8);
  if (!dib) throw Failure(kExitIo, PrintablePath(path) + ": not enough memory for the picture");
  const auto* bytes = static_cast<const BYTE*>(GlobalLock(dib));
  BITMAPINFOHEADER head;
  std::memcpy(&head, bytes, sizeof head);
  const std::size_t table = colour ? 0 : 256 * sizeof(RGBQUAD);
  const std::size_t rowBytes = (static_cast<std::size_t>(head.biWidth) * head.biBitCount / 8 + 3) / 4 * 4;
  const FileStatus status =
      WritePng(path, head.biWidth, head.biHeight, colour ? 3 : 1, 8, [&](int y, std::span<std::uint16_t> row) {
        // The bitmap's rows run bottom-up.
        const int line = bottomUp ? y : head.biHeight - 1 - y;
        const BYTE* from = bytes + sizeof head + table + static_cast<std::size_t>(line) * rowBytes;
        for (int x = 0; x < head.biWidth; ++x) {
          const auto at = static_cast<std::size_t>(x);
          if (colour) {
            row[at * 3] = from[at * 3 + 2];
            row[at * 3 + 1] = from[at * 3 + 1];
            row[at * 3 + 2] = from[at * 3];
          } else {
            row[at] = from[at];
          }
        }
      });
  GlobalUnlock(dib);
  GlobalFree(dib);
  Check(status);
}

}  // namespace qmr
