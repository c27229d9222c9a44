#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "host/files/file_error.h"

namespace qmr {

/// Fills row y: width * channels samples, red, green, blue interleaved. Called once a row, ascending, on the calling
/// thread.
using PngRowSource = std::function<void(int y, std::span<std::uint16_t> row)>;

/// Writes a PNG of 1 (gray) or 3 (red, green, blue) channels with 8 or 16 bits a sample; samples above the largest
/// value of 8 bits are limited to it. The file appears under its name only when it is complete (see AtomicFile).
FileStatus WritePng(const std::string& path, int width, int height, int channels, int bits, const PngRowSource& rows);

/// Interleaved samples at once, exactly width * height * channels of them.
FileStatus WritePng8(const std::string& path, int width, int height, int channels,
                     std::span<const std::uint8_t> samples);
FileStatus WritePng16(const std::string& path, int width, int height, int channels,
                      std::span<const std::uint16_t> samples);

}  // namespace qmr
