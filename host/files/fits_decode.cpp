#include "host/files/fits_decode.h"

#include <fitsio.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>

#include "host/files/fits_header.h"
#include "host/files/fits_samples.h"

namespace qmr {
namespace {

constexpr int kMaxAxes = 9;

[[noreturn]] void FailWithStatus(int status, const std::string& what) {
  std::array<char, FLEN_STATUS> text{};
  fits_get_errstatus(status, text.data());
  if (status == MEMORY_ALLOCATION) {
    throw DecodeFailure(FileErrorKind::TooLarge, what + ": needs more memory than its decoder may use");
  }
  throw DecodeFailure(FileErrorKind::Damaged, what + ": " + text.data());
}

class FitsFile {
 public:
  FitsFile(std::span<const std::byte> bytes, std::size_t paddedSize)
      : address_(const_cast<std::byte*>(bytes.data())), size_(paddedSize) {
    // Opened from memory, so that the library never sees the path, parts of which it would take as instructions.
    int status = 0;
    if (fits_open_memfile(&file_, "image", READONLY, &address_, &size_, 0, nullptr, &status)) {
      FailWithStatus(status, "the FITS header cannot be read");
    }
  }
  FitsFile(const FitsFile&) = delete;
  FitsFile& operator=(const FitsFile&) = delete;
  ~FitsFile() {
    int status = 0;
    fits_close_file(file_, &status);
  }
  fitsfile* Get() const { return file_; }

 private:
  void* address_;
  std::size_t size_;
  fitsfile* file_ = nullptr;
};

struct ImageUnit {
  int hdu = 0;
  int bitpix = 0;
  bool compressed = false;
  std::int64_t width = 0, height = 0, planes = 0;
  std::size_t headerStart = 0, dataStart = 0;
};

struct UnitPlace {
  std::size_t header = 0, data = 0;
};

UnitPlace PlaceOf(fitsfile* file) {
  LONGLONG header = 0, data = 0, end = 0;
  int status = 0;
  if (fits_get_hduaddrll(file, &header, &data, &end, &status)) FailWithStatus(status, "the FITS header cannot be read");
  if (header < 0 || data < header) throw DecodeFailure(FileErrorKind::Damaged, "the FITS header contradicts itself");
  return {static_cast<std::size_t>(header), static_cast<std::size_t>(data)};
}

// The first unit that holds an image of at least two axes.
ImageUnit FindImage(fitsfile* file) {
  int status = 0;
  for (int hdu = 1;; ++hdu) {
    int type = 0;
    if (fits_get_hdu_type(file, &type, &status)) FailWithStatus(status, "the FITS header cannot be read");
    if (type == IMAGE_HDU) {
      ImageUnit unit;
      int axes = 0;
      std::array<LONGLONG, kMaxAxes> sizes{};
      if (fits_get_img_paramll(file, kMaxAxes, &unit.bitpix, &axes, sizes.data(), &status)) {
        FailWithStatus(status, "the FITS header cannot be read");
      }
      static constexpr int kBits[] = {8, 16, 32, 64, -32, -64};
      if (std::find(std::begin(kBits), std::end(kBits), unit.bitpix) == std::end(kBits)) {
        throw DecodeFailure(FileErrorKind::Damaged, "BITPIX is " + std::to_string(unit.bitpix));
      }
      bool empty = axes < 2;
      for (int axis = 0; axis < std::min(axes, kMaxAxes); ++axis) empty = empty || sizes[axis] == 0;
      if (!empty) {
        if (axes > kMaxAxes) throw DecodeFailure(FileErrorKind::Unsupported, "has more than 9 axes");
        unit.hdu = hdu;
        unit.width = sizes[0];
        unit.height = sizes[1];
        unit.planes = 1;
        for (int axis = 2; axis < axes; ++axis) {
          PixelBytes(1, unit.planes, sizes[axis]);  // refuses sizes whose product would overflow
          unit.planes *= sizes[axis];
        }
        unit.compressed = fits_is_compressed_image(file, &status) != 0;
        const UnitPlace place = PlaceOf(file);
        unit.headerStart = place.header;
        unit.dataStart = place.data;
        return unit;
      }
    }
    if (fits_movrel_hdu(file, 1, nullptr, &status)) {
      if (status == END_OF_FILE) throw DecodeFailure(FileErrorKind::NoImage, "the FITS file holds no image");
      FailWithStatus(status, "the FITS file holds no image before its damaged part");
    }
  }
}

double ReadScale(fitsfile* file, const char* name, double absent) {
  int status = 0;
  double value = absent;
  if (fits_read_key(file, TDOUBLE, name, &value, nullptr, &status)) {
    if (status == KEY_NO_EXIST || status == VALUE_UNDEFINED) return absent;
    FailWithStatus(status, name);
  }
  if (!std::isfinite(value)) throw DecodeFailure(FileErrorKind::Damaged, std::string(name) + " is not a finite number");
  return value;
}

std::optional<std::int64_t> ReadBlank(fitsfile* file, int bitpix) {
  if (bitpix < 0) return std::nullopt;
  int status = 0;
  LONGLONG value = 0;
  // A BLANK that is no integer marks nothing.
  if (fits_read_key(file, TLONGLONG, "BLANK", &value, nullptr, &status)) return std::nullopt;
  return value;
}

std::string_view Cards(std::span<const std::byte> bytes, std::size_t from, std::size_t to) {
  if (from >= bytes.size()) return {};
  const std::size_t end = std::min(to, bytes.size());
  return {reinterpret_cast<const char*>(bytes.data()) + from, end - from};
}

// Entries of the image's own header, then those of the primary header that it does not repeat.
std::vector<Keyword> ReadKeywords(fitsfile* file, std::span<const std::byte> bytes, const ImageUnit& unit) {
  std::vector<Keyword> keywords = ParseFitsHeader(Cards(bytes, unit.headerStart, unit.dataStart));
  if (unit.compressed) {
    std::erase_if(keywords, [](const Keyword& keyword) { return IsStructuralKeyword(keyword.name); });
  }
  if (unit.hdu == 1) return keywords;
  int status = 0;
  if (fits_movabs_hdu(file, 1, nullptr, &status)) return keywords;
  const UnitPlace primary = PlaceOf(file);
  const std::size_t own = keywords.size();
  for (Keyword& keyword : ParseFitsHeader(Cards(bytes, primary.header, primary.data))) {
    if (IsStructuralKeyword(keyword.name) ||
        (!keyword.IsCommentary() && FindKeyword({keywords.data(), own}, keyword.name))) {
      continue;
    }
    keywords.push_back(std::move(keyword));
  }
  if (fits_movabs_hdu(file, unit.hdu, nullptr, &status)) FailWithStatus(status, "the image cannot be read");
  return keywords;
}

void RequireData(std::size_t available, std::size_t start, std::size_t needed) {
  if (start <= available && needed <= available - start) return;
  const std::size_t present = start < available ? available - start : 0;
  throw DecodeFailure(FileErrorKind::Damaged, "the image is cut off: " + std::to_string(present) + " of " +
                                                  std::to_string(needed) + " bytes are there");
}

// A compressed image is a table with a heap behind it.
std::size_t TableBytes(fitsfile* file) {
  int status = 0;
  LONGLONG rowBytes = 0, rows = 0, heap = 0;
  if (fits_read_key(file, TLONGLONG, "NAXIS1", &rowBytes, nullptr, &status) ||
      fits_read_key(file, TLONGLONG, "NAXIS2", &rows, nullptr, &status) ||
      fits_read_key(file, TLONGLONG, "PCOUNT", &heap, nullptr, &status)) {
    FailWithStatus(status, "the compressed image cannot be read");
  }
  std::size_t bytes = 0;
  if (rowBytes < 0 || rows < 0 || heap < 0 ||
      __builtin_mul_overflow(static_cast<std::size_t>(rowBytes), static_cast<std::size_t>(rows), &bytes) ||
      __builtin_add_overflow(bytes, static_cast<std::size_t>(heap), &bytes)) {
    throw DecodeFailure(FileErrorKind::Damaged, "the compressed image contradicts itself");
  }
  return bytes;
}

std::int64_t ReadByLibrary(fitsfile* file, const ImageUnit& unit, std::span<float> pixels) {
  int status = 0;
  int anyBlank = 0;
  float blank = std::numeric_limits<float>::quiet_NaN();
  // What the library might leave out must not show an earlier frame.
  std::fill(pixels.begin(), pixels.end(), blank);
  // Plain floating-point data are read without a blank value: the library would flush their smallest numbers to zero.
  void* const blankValue = unit.bitpix > 0 || unit.compressed ? &blank : nullptr;
  fits_read_img(file, TFLOAT, 1, static_cast<LONGLONG>(pixels.size()), blankValue, pixels.data(), &anyBlank, &status);
  if (status == NUM_OVERFLOW) {
    // The library limits such values to the largest float; here they count as values that cannot be had.
    for (float& value : pixels) {
      if (std::abs(value) == std::numeric_limits<float>::max()) value = blank;
    }
  } else if (status) {
    FailWithStatus(status, "the image cannot be read");
  }
  return BlankNonFinite(pixels);
}

}  // namespace

bool LooksLikeFits(std::span<const std::byte> bytes) {
  static constexpr std::string_view kStart = "SIMPLE  =";
  return bytes.size() >= kStart.size() && std::memcmp(bytes.data(), kStart.data(), kStart.size()) == 0;
}

DecodeReport DecodeFits(std::span<const std::byte> bytes, std::size_t paddedSize, PixelSink& sink,
                        bool plainLibraryPath) {
  const FitsFile fits(bytes, paddedSize);
  fitsfile* const file = fits.Get();
  const ImageUnit unit = FindImage(file);
  const std::size_t pixelCount = PixelBytes(unit.width, unit.height, unit.planes) / sizeof(float);

  DecodeReport report;
  report.width = static_cast<int>(unit.width);
  report.height = static_cast<int>(unit.height);
  report.planes = static_cast<int>(unit.planes);
  report.fileBits = unit.bitpix;
  report.hdu = unit.hdu;
  report.format = unit.compressed ? "FITS, tile-compressed" : "FITS";
  report.keywords = ReadKeywords(file, bytes, unit);
  if (!unit.compressed || unit.bitpix > 0) {
    report.bscale = ReadScale(file, "BSCALE", 1.0);
    report.bzero = ReadScale(file, "BZERO", 0.0);
  }

  // Whether the data are there is known before memory is taken for them.
  const std::size_t sampleBytes = static_cast<std::size_t>(std::abs(unit.bitpix) / 8);
  RequireData(bytes.size(), unit.dataStart, unit.compressed ? TableBytes(file) : pixelCount * sampleBytes);
  const std::span<float> pixels(sink.Allocate(unit.width, unit.height, unit.planes), pixelCount);
  if (unit.compressed || plainLibraryPath) {
    report.blankPixels = ReadByLibrary(file, unit, pixels);
  } else {
    const SampleScale scale{report.bscale, report.bzero, ReadBlank(file, unit.bitpix)};
    report.blankPixels =
        ConvertFitsSamples(unit.bitpix, bytes.subspan(unit.dataStart, pixelCount * sampleBytes), scale, pixels);
  }
  return report;
}

}  // namespace qmr
