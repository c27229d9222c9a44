#include "host/files/gzip.h"

#include <sys/mman.h>
#include <zlib.h>

#include <algorithm>
#include <climits>
#include <utility>

#include "host/files/decode.h"

namespace qmr {
namespace {

constexpr std::size_t kPage = 4096;
constexpr std::size_t kFitsBlock = 2880;

std::size_t RoundUp(std::size_t size, std::size_t step) {
  return (size + step - 1) / step * step;
}

struct Inflater {
  z_stream stream{};
  Inflater() {
    if (inflateInit2(&stream, 15 + 16) != Z_OK) throw DecodeFailure(FileErrorKind::TooLarge, "not enough memory");
  }
  ~Inflater() { inflateEnd(&stream); }
};

}  // namespace

ByteMapping::ByteMapping(ByteMapping&& other) noexcept {
  *this = std::move(other);
}

ByteMapping& ByteMapping::operator=(ByteMapping&& other) noexcept {
  std::swap(address_, other.address_);
  std::swap(size_, other.size_);
  std::swap(mapped_, other.mapped_);
  return *this;
}

ByteMapping::~ByteMapping() {
  if (address_) munmap(address_, mapped_);
}

std::size_t ByteMapping::PaddedSize() const {
  return RoundUp(size_, kFitsBlock);
}

ByteMapping ByteMapping::OfFile(int fd, std::size_t size) {
  ByteMapping mapping;
  // Anonymous zeros first, the file over them: the padding behind a file that ends early can then be read.
  const std::size_t bytes = RoundUp(RoundUp(size, kFitsBlock), kPage);
  void* zeros = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (zeros == MAP_FAILED) throw DecodeFailure(FileErrorKind::TooLarge, "the file is larger than its decoder may use");
  mapping.address_ = zeros;
  mapping.mapped_ = bytes;
  if (mmap(zeros, RoundUp(size, kPage), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED | MAP_NORESERVE, fd, 0) ==
      MAP_FAILED) {
    throw DecodeFailure(FileErrorKind::CannotOpen, "cannot be read");
  }
  mapping.size_ = size;
  return mapping;
}

bool LooksLikeGzip(std::span<const std::byte> bytes) {
  return bytes.size() >= 18 && bytes[0] == std::byte{0x1F} && bytes[1] == std::byte{0x8B} && bytes[2] == std::byte{8};
}

ByteMapping ByteMapping::OfGzip(std::span<const std::byte> packed) {
  ByteMapping mapping;
  std::size_t capacity = RoundUp(std::max<std::size_t>(packed.size() * 3, 1 << 20), kPage);
  const auto outOfMemory = [] {
    return DecodeFailure(FileErrorKind::TooLarge, "unpacks to more than its decoder may use");
  };
  void* room = mmap(nullptr, capacity, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (room == MAP_FAILED) throw outOfMemory();
  mapping.address_ = room;
  mapping.mapped_ = capacity;

  Inflater inflater;
  z_stream& stream = inflater.stream;
  std::size_t taken = 0;
  for (bool done = false; !done;) {
    // One block stays free for the padding.
    if (mapping.size_ + kFitsBlock >= capacity) {
      void* grown = mremap(mapping.address_, capacity, capacity * 2, MREMAP_MAYMOVE);
      if (grown == MAP_FAILED) throw outOfMemory();
      mapping.address_ = grown;
      mapping.mapped_ = capacity *= 2;
    }
    const std::size_t free = capacity - kFitsBlock - mapping.size_;
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<std::byte*>(packed.data() + taken));
    stream.avail_in = static_cast<uInt>(std::min<std::size_t>(packed.size() - taken, UINT_MAX));
    stream.next_out = static_cast<Bytef*>(mapping.address_) + mapping.size_;
    stream.avail_out = static_cast<uInt>(std::min<std::size_t>(free, UINT_MAX));
    const uInt givenIn = stream.avail_in;
    const uInt givenOut = stream.avail_out;
    const int result = inflate(&stream, Z_NO_FLUSH);
    taken += givenIn - stream.avail_in;
    mapping.size_ += givenOut - stream.avail_out;
    if (result == Z_STREAM_END) {
      done = !LooksLikeGzip(packed.subspan(taken));
      if (!done && inflateReset(&stream) != Z_OK) done = true;
    } else if (result == Z_MEM_ERROR) {
      throw outOfMemory();
    } else if (result != Z_OK && !(result == Z_BUF_ERROR && stream.avail_out == 0)) {
      throw DecodeFailure(FileErrorKind::Damaged,
                          taken == packed.size() ? "the compressed data end early" : "the compressed data are damaged");
    } else if (stream.avail_in == 0 && taken == packed.size() && stream.avail_out != 0) {
      throw DecodeFailure(FileErrorKind::Damaged, "the compressed data end early");
    }
  }
  return mapping;
}

}  // namespace qmr
