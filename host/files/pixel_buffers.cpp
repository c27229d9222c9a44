#include "host/files/pixel_buffers.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

namespace qmr {

namespace {

constexpr std::size_t kMostBuffers = 4;
constexpr std::size_t kMostBytes = std::size_t{1} << 30;
// Keywords lie behind the pixels; a file that has grown beyond that was tampered with and would only waste memory.
constexpr std::size_t kTailBytes = std::size_t{1} << 20;

struct Shelf {
  std::mutex mutex;
  std::vector<PixelMapping> buffers;
  std::size_t bytes = 0;
};

// Lives until the process ends, as images in static storage may come back after everything else.
Shelf& TheShelf() {
  static Shelf* shelf = [] {
    auto* made = new Shelf;
    made->buffers.reserve(kMostBuffers);
    return made;
  }();
  return *shelf;
}

}  // namespace

namespace pixel_buffers {

PixelMapping Take() {
  Shelf& shelf = TheShelf();
  const std::lock_guard lock(shelf.mutex);
  if (shelf.buffers.empty()) return {};
  PixelMapping buffer = std::move(shelf.buffers.back());
  shelf.buffers.pop_back();
  shelf.bytes -= buffer.Bytes();
  return buffer;
}

void Keep(PixelMapping& buffer) noexcept {
  struct stat status {};
  if (fstat(buffer.Memory(), &status) == 0 && static_cast<std::size_t>(status.st_size) <= buffer.Bytes() + kTailBytes &&
      buffer.Bytes() <= kMostBytes) {
    Shelf& shelf = TheShelf();
    const std::lock_guard lock(shelf.mutex);
    // The oldest ones make room, so that the shelf follows a change of frame size.
    while (!shelf.buffers.empty() &&
           (shelf.buffers.size() == kMostBuffers || shelf.bytes + buffer.Bytes() > kMostBytes)) {
      shelf.bytes -= shelf.buffers.front().Bytes();
      shelf.buffers.front().Discard();
      shelf.buffers.erase(shelf.buffers.begin());
    }
    shelf.bytes += buffer.Bytes();
    shelf.buffers.push_back(std::move(buffer));
  }
  buffer.Discard();
}

}  // namespace pixel_buffers

PixelMapping::PixelMapping(PixelMapping&& other) noexcept
    : address_(std::exchange(other.address_, nullptr)),
      bytes_(std::exchange(other.bytes_, 0)),
      memory_(std::exchange(other.memory_, -1)) {}

PixelMapping& PixelMapping::operator=(PixelMapping&& other) noexcept {
  std::swap(address_, other.address_);
  std::swap(bytes_, other.bytes_);
  std::swap(memory_, other.memory_);
  return *this;
}

PixelMapping::~PixelMapping() {
  if (address_) pixel_buffers::Keep(*this);
}

PixelMapping PixelMapping::OfMemory(int memory, std::size_t bytes) {
  PixelMapping mapping;
  void* address = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, memory, 0);
  if (address == MAP_FAILED) return mapping;
  mapping.address_ = address;
  mapping.bytes_ = bytes;
  mapping.memory_ = memory;
  return mapping;
}

void PixelMapping::Discard() noexcept {
  if (address_) munmap(address_, bytes_);
  if (memory_ >= 0) close(memory_);
  address_ = nullptr;
  bytes_ = 0;
  memory_ = -1;
}

}  // namespace qmr
