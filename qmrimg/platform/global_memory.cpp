#include "qmrimg/platform/global_memory.h"

#include <cstdlib>
#include <new>

namespace qmr {

struct GlobalBlock {
  void* data;
  std::size_t size;
  int locks;
};

}  // namespace qmr

HGLOBAL GlobalAlloc(UINT flags, std::size_t bytes) {
  void* data = (flags & GMEM_ZEROINIT) ? std::calloc(bytes ? bytes : 1, 1) : std::malloc(bytes ? bytes : 1);
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
