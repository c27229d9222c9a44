#include "qmrimg/levels/pixel_sort.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <tuple>
#include <utility>

#include "qmrimg/levels/kernels/equalize_rows.h"
#include "qmrimg/platform/exception.h"

CPixelSort::CPixelSort() = default;

CPixelSort::~CPixelSort() {
  delete[] Entries;
}

void CPixelSort::SetCapacity(int capacity) {
  delete[] std::exchange(Entries, nullptr);
  Capacity = Count = 0;
  if (capacity < 1) return;
  Entries = new (std::nothrow) CPixelSortEntry[static_cast<std::size_t>(capacity)];
  if (!Entries) AfxThrowMemoryException();
  Capacity = capacity;
}

void CPixelSort::Add(int x, int y, float value) {
  if (Count >= Capacity) return;
  Entries[Count++] = {x, y, value, static_cast<float>(std::rand())};
}

void CPixelSort::Sort() {
  std::sort(Entries, Entries + Count, [](const CPixelSortEntry& a, const CPixelSortEntry& b) {
    return std::make_tuple(qmr::ValueOrder(a.value), a.key) < std::make_tuple(qmr::ValueOrder(b.value), b.key);
  });
}

int CPixelSort::Get(int index, int* x, int* y, float* value) const {
  if (index < 0 || index >= Count) return 0;
  const CPixelSortEntry& entry = Entries[index];
  if (x) *x = entry.x;
  if (y) *y = entry.y;
  if (value) *value = entry.value;
  return 1;
}
