// How operations run over rows: the only place of the library that opens parallel regions.
//
// Rows are cut into one contiguous, ascending range a thread, in the order of the thread numbers; each thread takes
// its rows one after the other. After each row the report of `target`, if there is one, advances by `units`. What a
// row throws (memory exceptions travel by pointer) reaches the caller unchanged: of several, that of the lowest
// row. Only std::bad_alloc becomes the memory exception. Rows of one call must not depend on each other's results.
#pragma once

#include <cstddef>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

#include "qmrimg/platform/exception.h"

class CVynImage;

namespace qmr {

// A reference to something callable, valid during the call that it is passed to.
template <class Signature>
class FunctionRef;

template <class Result, class... Arguments>
class FunctionRef<Result(Arguments...)> {
 public:
  template <class Callable>
  requires(!std::is_same_v<std::remove_cvref_t<Callable>, FunctionRef>)
      FunctionRef(Callable&& callable)  // NOLINT: implicit on purpose, as a parameter type
      : object_(const_cast<void*>(static_cast<const void*>(&callable))),
        call_([](void* object, Arguments... a) -> Result {
          return (*static_cast<std::remove_reference_t<Callable>*>(object))(std::forward<Arguments>(a)...);
        }) {}
  Result operator()(Arguments... arguments) const { return call_(object_, std::forward<Arguments>(arguments)...); }

 private:
  void* object_;
  Result (*call_)(void*, Arguments...);
};

// Runs `row(y)` for y in top..bottom - 1 on all threads. Nothing runs when bottom is not above top.
QMR_API void ForRows(int top, int bottom, FunctionRef<void(int)> row, CVynImage* target = nullptr, int units = 1);

// The same on the calling thread alone, for the operations that are told to run there.
QMR_API void ForRowsSerial(int top, int bottom, FunctionRef<void(int)> row, CVynImage* target = nullptr, int units = 1);

// Runs `range(first, last)` once a thread with its contiguous range of rows, for work that keeps buffers of its own
// along its rows. No report is made: the callee advances it row by row.
QMR_API void ForRowRanges(int top, int bottom, FunctionRef<void(int, int)> range);

// The same over `count` rows with a stride: first, first + step, ... below bottom, each by one thread, contiguous
// in order.
QMR_API void ForRowsStep(int first, int bottom, int step, FunctionRef<void(int)> row, CVynImage* target = nullptr,
                         int units = 1);

// One partial result a row, merged in the order of rows: the same bits for every number of threads.
template <class Partial, class Row, class Merge>
Partial FoldRows(int top, int bottom, Partial start, Row&& row, Merge&& merge, CVynImage* target = nullptr) {
  if (bottom <= top) return start;
  // Packed bits of neighbouring rows can't be written by two threads.
  static_assert(!std::is_same_v<Partial, bool>);
  const std::size_t count = static_cast<std::size_t>(static_cast<std::ptrdiff_t>(bottom) - top);
  std::vector<Partial> parts;
  try {
    parts.assign(count, start);
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  } catch (const std::length_error&) {
    AfxThrowMemoryException();
  }
  ForRows(
      top, bottom, [&](int y) { parts[static_cast<std::size_t>(static_cast<std::ptrdiff_t>(y) - top)] = row(y); },
      target);
  Partial total = start;
  for (const Partial& part : parts) total = merge(total, part);
  return total;
}

// Guards the merge of minima and maxima; nothing else.
QMR_API void InCriticalSection(FunctionRef<void()> merge);

}  // namespace qmr
