// Memory that can't be had when a test says so, for the library and the tests that are linked into this program.
#pragma once

namespace qmr::test {

// For the length of its scope allocations are counted, from 1, and the one with the number `failing` finds no memory.
// One scope at a time.
class FailingMemory {
 public:
  explicit FailingMemory(long failing);
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;
  ~FailingMemory();

  // Whether it has come to that allocation.
  bool Failed() const;
  // Allocations so far that have not been given back.
  long Live() const;
};

}  // namespace qmr::test
