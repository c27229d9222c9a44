#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/files/file_error.h"
#include "host/files/keyword.h"

class CVynImage;

namespace qmr {

/// A memory file with pixels in it, mapped. On destruction the memory goes to a small shelf for the next frame.
class PixelMapping {
 public:
  PixelMapping() = default;
  PixelMapping(PixelMapping&& other) noexcept;
  PixelMapping& operator=(PixelMapping&& other) noexcept;
  PixelMapping(const PixelMapping&) = delete;
  PixelMapping& operator=(const PixelMapping&) = delete;
  ~PixelMapping();

  /// Maps the first `bytes` of the memory file and takes its descriptor over. Invalid (Bytes() is 0, the descriptor
  /// stays the caller's) when it can't be mapped.
  static PixelMapping OfMemory(int memory, std::size_t bytes);

  float* Floats() const { return static_cast<float*>(address_); }
  std::size_t Bytes() const { return bytes_; }
  int Memory() const { return memory_; }
  /// Gives the memory back to the system at once.
  void Discard() noexcept;

 private:
  void* address_ = nullptr;
  std::size_t bytes_ = 0;
  int memory_ = -1;
};

/// How the format of what a digital camera's raw file holds begins.
inline constexpr const char* kCameraRawFormat = "camera raw";

/// One image as its file holds it. Row 0 is the first row of the file; rows and planes follow one another without gaps.
/// Values are physical (BSCALE and BZERO applied). Blank integers, infinities and values that a float cannot hold are
/// not-a-number: pixels that are not to be used, counted in blankPixels.
struct DecodedImage {
  std::string path;
  std::string format;  ///< "FITS", "FITS, tile-compressed", "FITS, gzip", "camera raw", "camera raw, DNG" ...
  int width = 0;
  int height = 0;
  int planes = 0;
  int fileBits = 0;  ///< BITPIX: 8, 16, 32, 64 integers, -32 and -64 floating point
  int hdu = 1;       ///< the part of the file that held the image, from 1
  double bscale = 1.0;
  double bzero = 0.0;
  std::int64_t blankPixels = 0;
  /// Entries of the image's own header, then those of the primary header that it does not repeat.
  std::vector<Keyword> keywords;
  PixelMapping pixels;

  /// Told by the content: keywords alone may be those of a FITS made of such a file.
  bool IsCameraRaw() const { return format.starts_with(kCameraRawFormat); }
  std::size_t PlanePixels() const { return static_cast<std::size_t>(width) * static_cast<std::size_t>(height); }
  std::span<float> Plane(int plane) { return {pixels.Floats() + PlanePixels() * plane, PlanePixels()}; }
  std::span<const float> Plane(int plane) const { return {pixels.Floats() + PlanePixels() * plane, PlanePixels()}; }
  const float* Row(int plane, int y) const { return Plane(plane).data() + static_cast<std::size_t>(width) * y; }
};

/// What a decoder process does wrong on purpose; for tests of the fence around it.
enum class DecoderFault : std::uint32_t {
  None,
  Crash,
  Abort,
  Hang,
  Spin,
  Hoard,
  HugePixels,
  Silent,
  LieSize,
  LieKeywords,
  UnsealedPixels,
  CountOpenFiles,
  Fork
};

struct ReadOptions {
  /// Memory that the decoder may use on top of an empty process, pixels included. 0: from the file's size, at most
  /// memoryCap.
  std::uint64_t memoryBytes = 0;
  /// Limit of the default above; 0: half of the machine's memory, at least 2 GiB.
  std::uint64_t memoryCap = 0;
  double timeoutSeconds = 60.0;   ///< by the clock on the wall; a file that takes longer is an error
  bool plainLibraryPath = false;  ///< read samples through the FITS library even where the direct way applies
  DecoderFault fault = DecoderFault::None;
};

/// Reads the first image in a file. The format is told by the content, not by the name. The file is decoded in a
/// process of its own with limits on memory and time; whatever the content does to that process, the result is an
/// image or the error of this one file. Safe to call from several threads at once.
FileResult<DecodedImage> ReadImageFile(const std::string& path, const ReadOptions& options = {});

/// Starts the small process that starts the decoders. Call it first thing in main, before threads and large memory
/// exist; without the call it starts with the first file. Returns false when no process can be had.
bool StartDecoders();

/// Makes `image` a -32 image of the pixels, header and origin fields from the keywords. The levels run from the least
/// to the greatest value of all planes together (a little above the least when all are equal, 0 to 1 when there is
/// none). Images of one or three planes only. On an error the image is left as it was.
FileStatus FillImage(const DecodedImage& decoded, CVynImage& image);

/// What the headers of the field's programs say of a frame, whatever keyword they say it by.
struct FrameFacts {
  std::optional<double> exposureSeconds;
  std::optional<double> temperatureCelsius;
  std::optional<double> gain;
  std::optional<int> iso;
  std::optional<int> binningX, binningY;
  std::string camera;  ///< INSTRUME and its like, as written
  std::string maker;   ///< camera maker when the camera is a digital camera of a known maker, otherwise empty
  std::string model;   ///< its model in the form that camera identification expects, otherwise empty
  std::string telescope, object, filter, date;
  std::string imageType;  ///< IMAGETYP as written
};

FrameFacts ReadFrameFacts(std::span<const Keyword> keywords);

}  // namespace qmr
