// Files for the tests of the file room: built byte by byte, so that the reader is not tested against the writer alone.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/files/image_file.h"
#include "tests/host/folder.h"

namespace qmr::test {

/// A header of cards ("NAME    = value"), END and padding.
std::string FitsHeader(const std::vector<std::string>& cards);
/// SIMPLE, BITPIX and the axes, then further cards.
std::vector<std::string> PrimaryCards(int bitpix, const std::vector<long>& axes, std::vector<std::string> more = {});
/// The sample with the most significant byte first; bitpix -32 and -64 take the value as floating point.
std::string BigEndian(int bitpix, double value);
std::string BigEndian64(std::uint64_t bits);
/// Filled with zeros to a whole block.
std::string Padded(std::string bytes);
/// A 16-bit frame with a gradient and BZERO.
std::string SmallFits(int width, int height, int planes);
std::string Gzipped(std::string_view bytes);

/// All planes of an image with not-a-number as a fixed value, so that vectors can be compared.
std::vector<float> Values(const DecodedImage& image);

/// The folder of real frames, if there is one on this machine: QMR_DATA, or shared/data beside the source tree.
std::optional<std::filesystem::path> DataFolder();

}  // namespace qmr::test
