#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>

#include "host/files/image_file.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/exception.h"

namespace qmr {
namespace {

CString Wide(const std::string& text) {
  return CString(WidenUtf8(text));
}

struct Range {
  float least = std::numeric_limits<float>::infinity();
  float greatest = -std::numeric_limits<float>::infinity();
};

// Copies the row and widens the range; comparisons are false for not-a-number.
void CopyRow(const float* from, float* to, int width, Range& range) {
  float least = range.least;
  float greatest = range.greatest;
  for (int x = 0; x < width; ++x) {
    const float value = from[x];
    to[x] = value;
    least = value < least ? value : least;
    greatest = value > greatest ? value : greatest;
  }
  range = {least, greatest};
}

void SetLevels(CVynImage& image, const Range& range) {
  double least = 0.0;
  double greatest = 1.0;
  if (range.least <= range.greatest) {
    least = range.least;
    // A flat image gets a range above 0, as the 256-scale divides by it.
    greatest = range.greatest > range.least ? double{range.greatest} : least + std::max(1.0, std::abs(least) * 1e-6);
  }
  // The same for all planes: levels of their own would shift the colours.
  for (int plane = 0; plane < image.GetPlanes(); ++plane) image.CImage::SetLevel(plane, least, greatest);
}

void FillHeader(const DecodedImage& decoded, CHeader& header) {
  const FrameFacts facts = ReadFrameFacts(decoded.keywords);
  header = CHeader();
  if (facts.exposureSeconds) header.SetExposureTime(*facts.exposureSeconds);
  if (facts.temperatureCelsius) header.SetCoolingTemperature(*facts.temperatureCelsius);
  if (facts.iso) header.SetISO(static_cast<WORD>(std::min(*facts.iso, 65535)));
  header.SetDetector(Wide(facts.camera));
  // A camera model makes the image one of a digital camera; without it, it is one of an astronomical camera.
  header.SetCameraMaker(Wide(facts.maker));
  header.SetCameraModel(Wide(facts.model));
}

}  // namespace

FileStatus FillImage(const DecodedImage& decoded, CVynImage& image) {
  const auto refuse = [&](std::string reason) {
    return FileError{decoded.path, std::move(reason), FileErrorKind::Unsupported};
  };
  if (decoded.planes != 1 && decoded.planes != 3) {
    return refuse("has " + std::to_string(decoded.planes) + " planes; an image has one or three");
  }
  if (decoded.PlanePixels() * static_cast<std::size_t>(decoded.planes) >
      static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    return refuse("has more pixels than an image can hold");
  }
  const FileError noMemory{decoded.path, "not enough memory for its pixels", FileErrorKind::TooLarge};
  try {
    CVynImage filled(-32, decoded.width, decoded.height, decoded.planes, 1.0, 0.0, 1);
    Range range;
    for (int plane = 0; plane < decoded.planes; ++plane) {
      for (int y = 0; y < decoded.height; ++y) {
        auto* row = static_cast<float*>(filled.GetImageAdr(0, y, plane, 0, 0, nullptr));
        if (!row) return noMemory;
        CopyRow(decoded.Row(plane, y), row, decoded.width, range);
      }
    }
    SetLevels(filled, range);
    filled.SetOwnLevel(1);
    filled.SetOrgFileName(Wide(decoded.path));
    filled.SetOrgBitsPixel(decoded.fileBits);
    filled.SetOrgPlanes(decoded.planes);
    filled.SetOrgWidth(decoded.width);
    filled.SetOrgHeight(decoded.height);
    filled.SetRawImageBits(std::abs(decoded.fileBits));
    FillHeader(decoded, *filled.GetHeader());
    static_cast<CImage&>(image).Swap(&filled);
    return std::nullopt;
  } catch (CMemoryException* exception) {
    exception->Delete();
    return noMemory;
  } catch (const std::bad_alloc&) {
    return noMemory;
  }
}

}  // namespace qmr
