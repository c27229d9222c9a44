// Memory of whole planes: aligned, huge pages where they help, a temporary file where memory does not suffice.
#pragma once

#include <cstddef>

#include "qmrimg/platform/export.h"

namespace qmr {

// One contiguous stretch of memory that starts on a 64-byte boundary. Movable, not copyable.
class QMR_API Block {
 public:
  enum class Content { kZero, kUndefined };

  Block() = default;
  // `Get()` is null when the memory can't be had.
  Block(std::size_t bytes, Content content);
  Block(Block&& other) noexcept;
  Block& operator=(Block&& other) noexcept;
  ~Block();

  std::byte* Get() const { return data_; }
  std::size_t Size() const { return size_; }

 private:
  void Release();

  std::byte* data_ = nullptr;
  std::size_t size_ = 0;
  // The length that was mapped, 0 for a small block from the heap; released mappings go back to a pool.
  std::size_t mapped_ = 0;
  bool file_ = false;
};

// Blocks that would bring the total of all blocks above `bytes` lie in unlinked temporary files (in $TMPDIR, else
// /var/tmp) mapped into memory, so that a night larger than the machine still runs. 0 brings back the default,
// three quarters of the machine's memory.
QMR_API void SetStoreMemoryLimit(std::size_t bytes);

// Gives the memory of the pool of released blocks back to the system.
QMR_API void TrimStorePool();

}  // namespace qmr
