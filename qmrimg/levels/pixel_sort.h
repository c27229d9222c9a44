// A list of pixels that sorts itself by value, equal values at random.
#pragma once

#include "qmrimg/platform/export.h"

struct CPixelSortEntry {
  int x;
  int y;
  float value;  // raw scale
  float key;    // random tie-break
};

// The pixels of one histogram bin.
class QMR_API CPixelSort {
 public:
  CPixelSort();
  CPixelSort(const CPixelSort&) = delete;
  CPixelSort& operator=(const CPixelSort&) = delete;
  virtual ~CPixelSort();

  // Frees what the list held and makes room for `capacity` pixels (none below 1); raises the memory exception.
  void SetCapacity(int capacity);
  // Adds a pixel with a key from rand(); pixels beyond the capacity are dropped without a word.
  void Add(int x, int y, float value);
  // Ascending by value, equal values by key; not-a-number comes last.
  void Sort();
  // Entry `index`; 0, with nothing stored, outside 0..GetCount() - 1. Pointers may be null.
  int Get(int index, int* x, int* y, float* value) const;
  int GetCount() const { return Count; }
  int GetCapacity() const { return Capacity; }

 protected:
  int Capacity = 0;
  int Count = 0;
  CPixelSortEntry* Entries = nullptr;
};
