#include "host/files/decode.h"

#include "host/files/fits_decode.h"
#include "host/files/gzip.h"
#include "host/files/raw_decode.h"

namespace qmr {

std::size_t PixelBytes(std::int64_t width, std::int64_t height, std::int64_t planes) {
  constexpr std::int64_t kMaxSide = std::int64_t{1} << 24;
  constexpr std::int64_t kMaxPixels = std::int64_t{1} << 40;
  const auto bad = [](std::int64_t side) { return side < 1 || side > kMaxSide; };
  if (bad(width) || bad(height) || bad(planes) || width * height > kMaxPixels / planes) {
    throw DecodeFailure(FileErrorKind::Unsupported, "an image of " + std::to_string(width) + " x " +
                                                        std::to_string(height) + " x " + std::to_string(planes) +
                                                        " pixels cannot be read");
  }
  return static_cast<std::size_t>(width * height * planes) * sizeof(float);
}

DecodeReport DecodeImage(int fd, std::size_t size, PixelSink& sink, bool plainLibraryPath) {
  ByteMapping content = ByteMapping::OfFile(fd, size);
  const bool packed = LooksLikeGzip(content.Bytes());
  if (packed) content = ByteMapping::OfGzip(content.Bytes());
  const std::span<const std::byte> bytes = content.Bytes();
  const bool fits = LooksLikeFits(bytes);
  if (!fits && !LooksLikeCameraRaw(bytes)) {
    throw DecodeFailure(FileErrorKind::NotRecognised, packed ? "not a FITS or camera raw file inside the gzip file"
                                                             : "not a FITS or camera raw file");
  }
  DecodeReport report =
      fits ? DecodeFits(bytes, content.PaddedSize(), sink, plainLibraryPath) : DecodeCameraRaw(bytes, sink);
  if (packed) report.format += ", gzip";
  return report;
}

}  // namespace qmr
