#include "host/files/png_writer.h"

#include <png.h>

#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstring>
#include <vector>

#include "host/files/atomic_file.h"

namespace qmr {
namespace {

struct PngTarget {
  AtomicFile* file = nullptr;
  std::array<char, 200> complaint{};  // plain memory, as libpng leaves its errors by longjmp
};

void OnError(png_structp png, png_const_charp message) {
  auto* target = static_cast<PngTarget*>(png_get_error_ptr(png));
  std::strncpy(target->complaint.data(), message, target->complaint.size() - 1);
  png_longjmp(png, 1);
}

void OnWarning(png_structp, png_const_charp) {}

void OnWrite(png_structp png, png_bytep data, png_size_t bytes) {
  if (!static_cast<AtomicFile*>(png_get_io_ptr(png))->Write(data, bytes)) png_error(png, "write failed");
}

void OnFlush(png_structp) {}

struct PngWriter {
  png_structp png = nullptr;
  png_infop info = nullptr;
  ~PngWriter() { png_destroy_write_struct(&png, &info); }
};

// The functions below are all that lies between setjmp and a longjmp; they hold no object with a destructor.
bool Begin(PngWriter& writer, int width, int height, int channels, int bits) {
  if (setjmp(png_jmpbuf(writer.png))) return false;
  png_set_user_limits(writer.png, 0x7FFFFFFF, 0x7FFFFFFF);
  png_set_IHDR(writer.png, writer.info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), bits,
               channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  // Noise does not compress: higher levels cost several times the time for a few parts in a hundred.
  png_set_compression_level(writer.png, 3);
  png_set_filter(writer.png, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB | PNG_FILTER_UP);
  png_write_info(writer.png, writer.info);
  return true;
}

bool WriteRow(PngWriter& writer, const unsigned char* row) {
  if (setjmp(png_jmpbuf(writer.png))) return false;
  png_write_row(writer.png, row);
  return true;
}

bool End(PngWriter& writer) {
  if (setjmp(png_jmpbuf(writer.png))) return false;
  png_write_end(writer.png, writer.info);
  return true;
}

std::size_t SampleCount(int width, int height, int channels) {
  return static_cast<std::size_t>(std::max(width, 0)) * static_cast<std::size_t>(std::max(height, 0)) *
         static_cast<std::size_t>(std::max(channels, 0));
}

template <class Sample>
FileStatus WriteWhole(const std::string& path, int width, int height, int channels, std::span<const Sample> samples) {
  if (samples.size() != SampleCount(width, height, channels)) {
    return FileError{path, "the number of samples does not fit the image's size", FileErrorKind::BadArgument};
  }
  const auto rows = [&](int y, std::span<std::uint16_t> row) {
    std::copy_n(samples.begin() + static_cast<std::ptrdiff_t>(row.size() * static_cast<std::size_t>(y)), row.size(),
                row.begin());
  };
  return WritePng(path, width, height, channels, 8 * static_cast<int>(sizeof(Sample)), rows);
}

}  // namespace

FileStatus WritePng(const std::string& path, int width, int height, int channels, int bits, const PngRowSource& rows) {
  if (width < 1 || height < 1 || (channels != 1 && channels != 3) || (bits != 8 && bits != 16)) {
    return FileError{path, "a PNG of this shape cannot be written", FileErrorKind::BadArgument};
  }
  AtomicFile file(path);
  if (!file.Good()) return file.Error();
  PngTarget target{&file};
  PngWriter writer;
  writer.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &target, OnError, OnWarning);
  if (writer.png) writer.info = png_create_info_struct(writer.png);
  if (!writer.info) return FileError{path, "not enough memory to write a PNG", FileErrorKind::CannotWrite};
  png_set_write_fn(writer.png, &file, OnWrite, OnFlush);

  const auto failure = [&]() -> FileStatus {
    if (!file.Good()) return file.Error();
    return FileError{path, std::string("cannot be written as PNG: ") + target.complaint.data(),
                     FileErrorKind::CannotWrite};
  };
  const std::size_t count = SampleCount(width, 1, channels);
  std::vector<std::uint16_t> samples(count);
  std::vector<unsigned char> bytes(count * static_cast<std::size_t>(bits / 8));
  if (!Begin(writer, width, height, channels, bits)) return failure();
  for (int y = 0; y < height; ++y) {
    rows(y, samples);
    if (bits == 8) {
      for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<unsigned char>(std::min<int>(samples[i], 255));
    } else {
      for (std::size_t i = 0; i < count; ++i) {
        bytes[2 * i] = static_cast<unsigned char>(samples[i] >> 8);
        bytes[2 * i + 1] = static_cast<unsigned char>(samples[i]);
      }
    }
    if (!WriteRow(writer, bytes.data())) return failure();
  }
  if (!End(writer)) return failure();
  return file.Commit();
}

FileStatus WritePng8(const std::string& path, int width, int height, int channels,
                     std::span<const std::uint8_t> samples) {
  return WriteWhole(path, width, height, channels, samples);
}

FileStatus WritePng16(const std::string& path, int width, int height, int channels,
                      std::span<const std::uint16_t> samples) {
  return WriteWhole(path, width, height, channels, samples);
}

}  // namespace qmr
