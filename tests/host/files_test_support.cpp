#include "files_test_support.h"

#include <zlib.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <stdexcept>

namespace qmr::test {

namespace fs = std::filesystem;

std::string FitsHeader(const std::vector<std::string>& cards) {
  std::string header;
  for (std::string card : cards) {
    card.resize(80, ' ');
    header += card;
  }
  header += "END";
  header.resize((header.size() + 2879) / 2880 * 2880, ' ');
  return header;
}

std::vector<std::string> PrimaryCards(int bitpix, const std::vector<long>& axes, std::vector<std::string> more) {
  std::vector<std::string> cards = {"SIMPLE  =                    T", "BITPIX  = " + std::to_string(bitpix),
                                    "NAXIS   = " + std::to_string(axes.size())};
  for (std::size_t i = 0; i < axes.size(); ++i) {
    cards.push_back("NAXIS" + std::to_string(i + 1) + "  = " + std::to_string(axes[i]));
  }
  cards.insert(cards.end(), more.begin(), more.end());
  return cards;
}

std::string BigEndian64(std::uint64_t bits) {
  std::string bytes;
  for (int shift = 56; shift >= 0; shift -= 8) bytes += static_cast<char>(bits >> shift & 0xFF);
  return bytes;
}

std::string BigEndian(int bitpix, double value) {
  if (bitpix == -64) return BigEndian64(std::bit_cast<std::uint64_t>(value));
  if (bitpix == -32) return BigEndian64(std::bit_cast<std::uint32_t>(static_cast<float>(value))).substr(4);
  return BigEndian64(static_cast<std::uint64_t>(static_cast<std::int64_t>(value))).substr(8 - bitpix / 8);
}

std::string Padded(std::string bytes) {
  bytes.resize((bytes.size() + 2879) / 2880 * 2880, '\0');
  return bytes;
}

std::string SmallFits(int width, int height, int planes) {
  std::string data;
  for (int i = 0; i < width * height * planes; ++i) data += BigEndian(16, i % 60000 - 32768);
  return FitsHeader(PrimaryCards(16, {width, height, planes},
                                 {"BZERO   = 32768", "BSCALE  = 1", "EXPTIME = 12.5 / seconds",
                                  "OBJECT  = 'M 42    '           / what was looked at"})) +
         Padded(data);
}

std::string Gzipped(std::string_view bytes) {
  z_stream stream{};
  if (deflateInit2(&stream, 6, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK) throw std::runtime_error("zlib");
  std::string packed(deflateBound(&stream, bytes.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  deflate(&stream, Z_FINISH);
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  return packed;
}

std::vector<float> Values(const DecodedImage& image) {
  std::vector<float> values;
  for (int plane = 0; plane < image.planes; ++plane) {
    for (const float value : image.Plane(plane)) values.push_back(std::isnan(value) ? -987654.0F : value);
  }
  return values;
}

std::optional<fs::path> DataFolder() {
  std::vector<fs::path> places;
  if (const char* named = std::getenv("QMR_DATA")) places.emplace_back(named);
#ifdef QMR_SOURCE_DIR
  places.push_back(fs::path(QMR_SOURCE_DIR) / ".." / "shared" / "data");
#endif
  std::error_code ignored;
  for (const fs::path& place : places) {
    if (fs::is_directory(place, ignored)) return place;
  }
  return std::nullopt;
}

}  // namespace qmr::test
