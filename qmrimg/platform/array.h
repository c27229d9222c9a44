// Growable array.
#pragma once

#include <cstddef>
#include <new>
#include <stdexcept>
#include <vector>

#include "qmrimg/platform/exception.h"

// Elements are value-initialised when the array grows. An index outside the array raises the invalid-argument
// exception, lack of memory the memory exception.
template <class Type, class Argument = const Type&>
class CArray {
 public:
  int GetSize() const { return static_cast<int>(items_.size()); }
  int GetCount() const { return GetSize(); }
  bool IsEmpty() const { return items_.empty(); }
  // `growBy` is a hint only.
  void SetSize(int size, int growBy = -1) {
    (void)growBy;
    if (size < 0) AfxThrowInvalidArgException();
    Guard([&] { items_.resize(static_cast<std::size_t>(size)); });
  }
  void RemoveAll() { items_.clear(); }
  int Add(Argument item) {
    Guard([&] { items_.push_back(item); });
    return GetSize() - 1;
  }
  Type& ElementAt(int index) {
    Check(index);
    return items_[static_cast<std::size_t>(index)];
  }
  const Type& GetAt(int index) const {
    Check(index);
    return items_[static_cast<std::size_t>(index)];
  }
  void SetAt(int index, Argument item) { ElementAt(index) = item; }
  Type& operator[](int index) { return ElementAt(index); }
  const Type& operator[](int index) const { return GetAt(index); }

 private:
  void Check(int index) const {
    if (index < 0 || index >= GetSize()) AfxThrowInvalidArgException();
  }
  template <class Grow>
  static void Guard(Grow&& grow) {
    try {
      grow();
    } catch (const std::bad_alloc&) {
      AfxThrowMemoryException();
    } catch (const std::length_error&) {
      AfxThrowMemoryException();
    }
  }
  std::vector<Type> items_;
};
