#include "qmrimg/platform/global_memory.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <new>

namespace qmr {

struct GlobalBlock {
  void* data;
  std::size_t size;
  int locks;
};

}  // namespace qmr

namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;

// Bitmaps of whole pictures come in huge pages: the faults of small ones cost more than filling them.
void* AllocateUndefined(std::size_t bytes) {
  if (bytes < 2 * kHugePage || bytes > PTRDIFF_MAX - kHugePage) return std::malloc(bytes);
  const std::size_t whole = (bytes + kHugePage - 1) / kHugePage * kHugePage;
  void* data = std::aligned_alloc(kHugePage, whole);
  if (data) madvise(data, whole, MADV_HUGEPAGE);
  return data;
}

}  // namespace

HGLOBAL GlobalAlloc(UINT flags, std::size_t bytes) {
  void* data = (flags & GMEM_ZEROINIT) ? std::calloc(bytes ? bytes : 1, 1) : AllocateUndefined(bytes ? bytes : 1);
  if (!data) return nullptr;
  auto* block = new (std::nothrow) qmr::GlobalBlock{data, bytes, 0};
  if (!block) std::free(data);
  return block;
}

void* GlobalLock(HGLOBAL block) {
  if (!block) return nullptr;
  ++block->locks;
  return block->data;
}

int GlobalUnlock(HGLOBAL block) {
  if (!block || block->locks == 0) return 0;
  return --block->locks;
}

std::size_t GlobalSize(HGLOBAL block) {
  return block ? block->size : 0;
}

HGLOBAL GlobalFree(HGLOBAL block) {
  if (block) std::free(block->data);
  delete block;
  return nullptr;
}
