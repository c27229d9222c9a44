#pragma once

#include <cstddef>
#include <span>

namespace qmr {

/// Memory of a mapping, given back on destruction. Bytes behind `size` up to a whole FITS block read as zeros.
class ByteMapping {
 public:
  ByteMapping() = default;
  ByteMapping(ByteMapping&& other) noexcept;
  ByteMapping& operator=(ByteMapping&& other) noexcept;
  ~ByteMapping();

  std::span<const std::byte> Bytes() const { return {static_cast<const std::byte*>(address_), size_}; }
  void* Address() const { return address_; }
  /// The size rounded up to a whole block of 2880 bytes; all of it can be read.
  std::size_t PaddedSize() const;

  /// Maps the file for reading (private, so writes never reach it). Throws DecodeFailure.
  static ByteMapping OfFile(int fd, std::size_t size);
  /// The content of a gzip file, members put together. Throws DecodeFailure when it is damaged or the memory limit ends
  /// it.
  static ByteMapping OfGzip(std::span<const std::byte> packed);

 private:
  void* address_ = nullptr;
  std::size_t size_ = 0;
  std::size_t mapped_ = 0;
};

bool LooksLikeGzip(std::span<const std::byte> bytes);

}  // namespace qmr
