#include "host/files/fits_checksum.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace qmr {
namespace {

std::uint32_t BigEndian(const unsigned char* bytes) {
  return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 | std::uint32_t{bytes[2]} << 8 | bytes[3];
}

std::uint32_t Fold(std::uint64_t sum) {
  while (sum >> 32) sum = (sum & 0xFFFFFFFFU) + (sum >> 32);
  return static_cast<std::uint32_t>(sum);
}

}  // namespace

void FitsSum::Add(const void* data, std::size_t bytes) {
  const auto* next = static_cast<const unsigned char*>(data);
  if (partialBytes_ > 0) {
    const std::size_t taken = std::min(bytes, 4 - partialBytes_);
    std::copy_n(next, taken, partial_ + partialBytes_);
    partialBytes_ += taken;
    next += taken;
    bytes -= taken;
    if (partialBytes_ < 4) return;
    words_ += BigEndian(partial_);
    partialBytes_ = 0;
  }
  // 2^32 words would be needed to overflow 64 bits; one call never brings that many before the fold.
  const std::size_t whole = bytes / 4;
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < whole; ++i) sum += BigEndian(next + 4 * i);
  words_ = std::uint64_t{Fold(words_)} + Fold(sum);
  partialBytes_ = bytes % 4;
  std::copy_n(next + 4 * whole, partialBytes_, partial_);
}

std::uint32_t FitsSum::Value() const {
  std::array<unsigned char, 4> last{};
  std::copy_n(partial_, partialBytes_, last.begin());
  return Fold(words_ + BigEndian(last.data()));
}

std::uint32_t AddFitsSum(std::uint32_t sum, const void* data, std::size_t bytes) {
  FitsSum more;
  more.Add(data, bytes);
  return Fold(std::uint64_t{sum} + more.Value());
}

std::string EncodeFitsSum(std::uint32_t total) {
  // Each byte of the complement is cut into four nearly equal parts, offset into the printable range and kept off
  // punctuation by moving pairs apart, which leaves their sum as it is.
  static constexpr std::string_view kPunctuation = ":;<=>?@[\\]^_`";
  const std::uint32_t value = ~total;
  std::string code(16, ' ');
  for (int byte = 0; byte < 4; ++byte) {
    const int part = static_cast<int>(value >> (24 - 8 * byte) & 0xFF);
    std::array<int, 4> parts;
    parts.fill(part / 4 + '0');
    parts[0] += part % 4;
    for (bool moved = true; moved;) {
      moved = false;
      for (int pair = 0; pair < 4; pair += 2) {
        const auto bad = [](int c) { return kPunctuation.find(static_cast<char>(c)) != std::string_view::npos; };
        if (bad(parts[pair]) || bad(parts[pair + 1])) {
          ++parts[pair];
          --parts[pair + 1];
          moved = true;
        }
      }
    }
    for (int i = 0; i < 4; ++i) code[4 * i + byte] = static_cast<char>(parts[i]);
  }
  // The value starts in column 12 of its card, so its characters stand one place to the right.
  std::rotate(code.rbegin(), code.rbegin() + 1, code.rend());
  return code;
}

}  // namespace qmr
