#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace qmr {

/// The ones' complement sum of FITS (standard, version 4.0, appendix J): big-endian 32-bit words with end-around carry.
/// Bytes may come in pieces of any length; a last word is filled with zeros.
class FitsSum {
 public:
  void Add(const void* data, std::size_t bytes);
  std::uint32_t Value() const;

 private:
  std::uint64_t words_ = 0;     // folded to 32 bits by Value()
  unsigned char partial_[4]{};  // a word that the pieces so far have left unfinished
  std::size_t partialBytes_ = 0;
};

/// The sum carried on over whole words.
std::uint32_t AddFitsSum(std::uint32_t sum, const void* data, std::size_t bytes);

/// The 16 characters that bring the sum of a header, in which they replace zeros, to -0.
std::string EncodeFitsSum(std::uint32_t total);

}  // namespace qmr
