// Where a long run tells how far it is.
#pragma once

#include <cstdint>
#include <string>

namespace qmr {

class Steps {
 public:
  virtual ~Steps() = default;
  // A step begins, of `total` units of work.
  virtual void Begin(const std::string& name, std::int64_t total) = 0;
  // The step under way is called this from now on.
  virtual void Rename(const std::string&) {}
  // `units` more are done. Callable from any thread.
  virtual void Advance(std::int64_t units) = 0;
  // The step is done; `result` is one line that says what came of it.
  virtual void End(const std::string& result) = 0;
  // One line beside the steps: something that the user should know.
  virtual void Warn(const std::string& line) = 0;
};

}  // namespace qmr
