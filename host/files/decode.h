#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/files/file_error.h"
#include "host/files/keyword.h"

namespace qmr {

/// What a decoder throws: it becomes the error of its file.
class DecodeFailure : public std::runtime_error {
 public:
  DecodeFailure(FileErrorKind kind, const std::string& reason) : std::runtime_error(reason), kind_(kind) {}
  FileErrorKind Kind() const { return kind_; }

 private:
  FileErrorKind kind_;
};

/// Where a decoder puts its pixels: the caller sees nothing else of it.
class PixelSink {
 public:
  virtual ~PixelSink() = default;
  /// Room for planes * height * width floats of no defined content; the decoder writes them all. Called once. Throws
  /// DecodeFailure when there is too little.
  virtual float* Allocate(std::int64_t width, std::int64_t height, std::int64_t planes) = 0;
};

/// What a decoder tells besides the pixels.
struct DecodeReport {
  int width = 0, height = 0, planes = 0;
  int fileBits = 0;
  int hdu = 1;
  double bscale = 1.0, bzero = 0.0;
  std::int64_t blankPixels = 0;
  std::string format;
  std::vector<Keyword> keywords;
};

/// Recognises the format by the content and decodes the first image. Runs in a decoder process: the libraries inside
/// may crash on hostile content. `plainLibraryPath` as in ReadOptions. Throws DecodeFailure.
DecodeReport DecodeImage(int fd, std::size_t size, PixelSink& sink, bool plainLibraryPath);

/// Bytes of so many float pixels; throws DecodeFailure when a size is below 1, above 2^24 or the product beyond 2^42.
std::size_t PixelBytes(std::int64_t width, std::int64_t height, std::int64_t planes);

}  // namespace qmr
