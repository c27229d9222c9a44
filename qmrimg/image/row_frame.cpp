#include "qmrimg/image/row_frame.h"

#include <omp.h>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <limits>
#include <mutex>
#include <new>
#include <utility>

#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/store/parallel.h"

namespace qmr {
namespace {

// Keeps what the lowest row threw.
class FirstError {
 public:
  void Note(int row) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (row >= row_) {
      // A pointer exception that loses to another one still has to be freed.
      Discard(std::current_exception());
      return;
    }
    Discard(std::exchange(error_, std::current_exception()));
    row_ = row;
  }
  void Rethrow() const {
    if (error_) std::rethrow_exception(error_);
  }

 private:
  static void Discard(const std::exception_ptr& error) {
    if (!error) return;
    try {
      std::rethrow_exception(error);
    } catch (CException* e) {
      e->Delete();
    } catch (...) {
    }
  }

  std::mutex mutex_;
  std::exception_ptr error_;
  int row_ = std::numeric_limits<int>::max();
};

// A container that found no memory is the memory exception for the caller.
template <class Work>
void WithMemoryException(Work&& work) {
  try {
    work();
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
}

// Opens one region in which thread t of n handles the rows count * t / n .. count * (t + 1) / n - 1.
void RunRanges(int count, FunctionRef<void(int, int)> range) {
  if (count <= 0) return;
  const int threads = std::min(CParallel::GetMaxThreads(), count);
  FirstError error;
#pragma omp parallel num_threads(threads)
  {
    // The runtime may give fewer threads than asked for.
    const auto n = static_cast<std::int64_t>(omp_get_num_threads());
    const auto t = static_cast<std::int64_t>(omp_get_thread_num());
    const int first = static_cast<int>(count * t / n);
    const int last = static_cast<int>(count * (t + 1) / n);
    try {
      if (first < last) WithMemoryException([&] { range(first, last); });
    } catch (...) {
      error.Note(first);
    }
  }
  error.Rethrow();
}

}  // namespace

void ForRows(int top, int bottom, FunctionRef<void(int)> row, CVynImage* target, int units) {
  ForRowsStep(top, bottom, 1, row, target, units);
}

void ForRowsStep(int first, int bottom, int step, FunctionRef<void(int)> row, CVynImage* target, int units) {
  if (bottom <= first || step <= 0) return;
  const int count = static_cast<int>((static_cast<std::int64_t>(bottom) - first + step - 1) / step);
  RunRanges(count, [&](int from, int to) {
    for (int i = from; i < to; ++i) {
      row(first + i * step);
      if (target) target->ShowProgress(units);
    }
  });
}

void ForRowsSerial(int top, int bottom, FunctionRef<void(int)> row, CVynImage* target, int units) {
  WithMemoryException([&] {
    for (int y = top; y < bottom; ++y) {
      row(y);
      if (target) target->ShowProgress(units);
    }
  });
}

void ForRowRanges(int top, int bottom, FunctionRef<void(int, int)> range) {
  RunRanges(bottom > top ? bottom - top : 0, [&](int from, int to) { range(top + from, top + to); });
}

void InCriticalSection(FunctionRef<void()> merge) {
  static std::mutex mutex;
  const std::lock_guard<std::mutex> lock(mutex);
  merge();
}

}  // namespace qmr
