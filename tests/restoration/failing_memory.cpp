// The linker leads calls of the wrapped functions here.
#include "tests/restoration/failing_memory.h"

#include <sys/mman.h>

#include <atomic>
#include <cstddef>
#include <new>

#include "qmrimg/store/block.h"

namespace {

// The pool of planes starts empty, with room for its list of idle ones: what it keeps is no leak.
void EmptyPool() {
  constexpr std::size_t kPooled = std::size_t{2} << 20;
  {
    qmr::Block blocks[16];
    for (qmr::Block& block : blocks) block = qmr::Block(kPooled, qmr::Block::Content::kUndefined);
  }
  qmr::TrimStorePool();
}

std::atomic<bool> counting = false;
std::atomic<bool> remap = false;
std::atomic<long> toGo = 0;
std::atomic<long> live = 0;

bool Fails() {
  return counting && --toGo == 0;
}
void* Counted(void* made) {
  if (counting && made) ++live;
  return made;
}
void Released(const void* gone) {
  if (counting && gone) --live;
}

}  // namespace

extern "C" {

void* __real__Znwm(std::size_t bytes);
void __real__ZdlPv(void* memory);
void __real__ZdlPvm(void* memory, std::size_t bytes);
void* __real_aligned_alloc(std::size_t alignment, std::size_t bytes);
void __real_free(void* memory);
void* __real_mmap(void* where, std::size_t bytes, int protection, int flags, int file, off_t offset);
int __real_munmap(void* memory, std::size_t bytes);

void* __wrap__Znwm(std::size_t bytes) {
  if (Fails()) throw std::bad_alloc();
  return Counted(__real__Znwm(bytes));
}
void __wrap__ZdlPv(void* memory) {
  Released(memory);
  __real__ZdlPv(memory);
}
void __wrap__ZdlPvm(void* memory, std::size_t bytes) {
  Released(memory);
  __real__ZdlPvm(memory, bytes);
}
void* __wrap_aligned_alloc(std::size_t alignment, std::size_t bytes) {
  return Fails() ? nullptr : Counted(__real_aligned_alloc(alignment, bytes));
}
void __wrap_free(void* memory) {
  Released(memory);
  __real_free(memory);
}
void* __wrap_mmap(void* where, std::size_t bytes, int protection, int flags, int file, off_t offset) {
  // A mapping is tried twice: the second try fails like the first.
  if (remap.exchange(false)) return MAP_FAILED;
  if (Fails()) {
    remap = true;
    return MAP_FAILED;
  }
  return Counted(__real_mmap(where, bytes, protection, flags, file, offset));
}
int __wrap_munmap(void* memory, std::size_t bytes) {
  Released(memory);
  return __real_munmap(memory, bytes);
}

}  // extern "C"

namespace qmr::test {

FailingMemory::FailingMemory(long failing) {
  EmptyPool();
  toGo = failing;
  live = 0;
  counting = true;
}
FailingMemory::~FailingMemory() {
  counting = false;
  remap = false;
}
bool FailingMemory::Failed() const {
  return toGo <= 0;
}
long FailingMemory::Live() const {
  TrimStorePool();
  return live;
}

}  // namespace qmr::test
