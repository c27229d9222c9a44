#include "qmrimg/store/block.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace qmr {
namespace {

constexpr std::size_t kSmallPage = 4096;
constexpr std::size_t kHugePage = std::size_t{2} << 20;
// Smaller blocks come from the heap: they serve as work rows, too, where a mapping would cost more than the work.
constexpr std::size_t kLeastMapping = std::size_t{64} << 10;
constexpr std::size_t kAlignment = 64;

struct Mapping {
  std::byte* data = nullptr;
  std::size_t bytes = 0;
};

// The pool keeps released planes, so that a chain of operations pays for page faults once: a fresh plane costs
// several times the work done in it.
struct Pool {
  std::mutex mutex;
  std::vector<Mapping> idle;
  std::size_t idleBytes = 0;
  std::size_t usedBytes = 0;
  std::size_t limit = 0;
};

// Never destroyed: images with static lifetime may outlive any order of destruction.
Pool& ThePool() {
  static Pool* const pool = new Pool;
  return *pool;
}

std::size_t PhysicalMemory() {
  const long pages = sysconf(_SC_PHYS_PAGES);
  const long page = sysconf(_SC_PAGESIZE);
  return pages > 0 && page > 0 ? static_cast<std::size_t>(pages) * static_cast<std::size_t>(page)
                               : std::size_t{4} << 30;
}

std::size_t RoundUp(std::size_t bytes, std::size_t to) {
  return (bytes + to - 1) / to * to;
}

std::byte* MapAnonymous(std::size_t bytes) {
  // One huge page more, so that the block can start on a boundary that the kernel can back with huge pages.
  const bool huge = bytes >= 2 * kHugePage;
  const std::size_t length = huge ? bytes + kHugePage : bytes;
  void* raw = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) return nullptr;
  auto* data = static_cast<std::byte*>(raw);
  if (huge) {
    const auto address = reinterpret_cast<std::uintptr_t>(data);
    const std::size_t lead = RoundUp(address, kHugePage) - address;
    if (lead) munmap(data, lead);
    if (kHugePage - lead) munmap(data + lead + bytes, kHugePage - lead);
    data += lead;
    madvise(data, bytes, MADV_HUGEPAGE);
  }
  return data;
}

std::byte* MapFile(std::size_t bytes) {
  const char* folder = std::getenv("TMPDIR");
  const std::string place = folder && *folder ? folder : "/var/tmp";
  int file = open(place.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (file < 0) {
    std::string name = place + "/qmrimg-XXXXXX";
    file = mkostemp(name.data(), O_CLOEXEC);
    if (file < 0) return nullptr;
    unlink(name.c_str());
  }
  // The space is reserved now: a full disk must be an error here and not a bus error at some later store.
  void* raw = MAP_FAILED;
  if (posix_fallocate(file, 0, static_cast<off_t>(bytes)) == 0)
    raw = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  return raw == MAP_FAILED ? nullptr : static_cast<std::byte*>(raw);
}

// An idle mapping of exactly this size, or an empty one. The caller holds the lock.
Mapping TakeIdle(Pool& pool, std::size_t bytes) {
  const auto found =
      std::find_if(pool.idle.rbegin(), pool.idle.rend(), [bytes](const Mapping& m) { return m.bytes == bytes; });
  if (found == pool.idle.rend()) return {};
  const Mapping mapping = *found;
  pool.idle.erase(std::next(found).base());
  pool.idleBytes -= bytes;
  return mapping;
}

void DropIdle(Pool& pool) {
  for (const Mapping& m : pool.idle) munmap(m.data, m.bytes);
  pool.idle.clear();
  pool.idleBytes = 0;
}

}  // namespace

Block::Block(std::size_t bytes, Content content) : size_(bytes) {
  if (bytes == 0 || bytes > (std::size_t{1} << 46)) {
    size_ = 0;
    return;
  }
  if (bytes < kLeastMapping) {
    data_ = static_cast<std::byte*>(std::aligned_alloc(kAlignment, RoundUp(bytes, kAlignment)));
    if (!data_) size_ = 0;
    if (data_ && content == Content::kZero) std::memset(data_, 0, size_);
    return;
  }
  mapped_ = RoundUp(bytes, bytes >= 2 * kHugePage ? kHugePage : kSmallPage);
  Pool& pool = ThePool();
  bool reused = false;
  {
    const std::lock_guard<std::mutex> lock(pool.mutex);
    const std::size_t limit = pool.limit ? pool.limit : PhysicalMemory() / 4 * 3;
    file_ = mapped_ > limit || pool.usedBytes > limit - mapped_;
    if (!file_) {
      data_ = TakeIdle(pool, mapped_).data;
      reused = data_ != nullptr;
      if (!reused && pool.usedBytes + pool.idleBytes + mapped_ > limit) DropIdle(pool);
      pool.usedBytes += mapped_;
    }
  }
  if (reused) {
    if (content == Content::kZero) std::memset(data_, 0, size_);
    return;
  }
  data_ = file_ ? MapFile(mapped_) : MapAnonymous(mapped_);
  if (!data_ && !file_) {
    // The process may have less room than the machine: what lies idle goes first.
    TrimStorePool();
    data_ = MapAnonymous(mapped_);
  }
  if (!data_) {
    if (!file_) {
      const std::lock_guard<std::mutex> lock(pool.mutex);
      pool.usedBytes -= mapped_;
    }
    size_ = mapped_ = 0;
    file_ = false;
  }
}

Block::Block(Block&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)),
      size_(std::exchange(other.size_, 0)),
      mapped_(std::exchange(other.mapped_, 0)),
      file_(std::exchange(other.file_, false)) {}

Block& Block::operator=(Block&& other) noexcept {
  if (this != &other) {
    Release();
    data_ = std::exchange(other.data_, nullptr);
    size_ = std::exchange(other.size_, 0);
    mapped_ = std::exchange(other.mapped_, 0);
    file_ = std::exchange(other.file_, false);
  }
  return *this;
}

Block::~Block() {
  Release();
}

void Block::Release() {
  if (!data_) return;
  if (mapped_ == 0) {
    std::free(data_);
  } else if (file_) {
    munmap(data_, mapped_);
  } else {
    Pool& pool = ThePool();
    const std::lock_guard<std::mutex> lock(pool.mutex);
    pool.usedBytes -= mapped_;
    const std::size_t limit = (pool.limit ? pool.limit : PhysicalMemory() / 4 * 3) / 4;
    bool keep = mapped_ >= kHugePage && pool.idleBytes + mapped_ <= limit;
    if (keep) {
      try {
        pool.idle.push_back({data_, mapped_});
        pool.idleBytes += mapped_;
      } catch (...) {
        keep = false;
      }
    }
    if (!keep) munmap(data_, mapped_);
  }
  data_ = nullptr;
  size_ = mapped_ = 0;
  file_ = false;
}

void SetStoreMemoryLimit(std::size_t bytes) {
  Pool& pool = ThePool();
  const std::lock_guard<std::mutex> lock(pool.mutex);
  pool.limit = bytes;
}

void TrimStorePool() {
  Pool& pool = ThePool();
  const std::lock_guard<std::mutex> lock(pool.mutex);
  DropIdle(pool);
}

}  // namespace qmr
