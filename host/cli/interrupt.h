// Ctrl-C.
#pragma once

namespace qmr {

// From now on SIGINT, SIGTERM and SIGHUP remove half-written files and end the process with 130 at once. While a
// CancelScope lives they only set the flag that it reads, for work that has to tidy up more than that; a second
// signal ends the process all the same.
void InstallInterruptHandler();

class CancelScope {
 public:
  CancelScope();
  CancelScope(const CancelScope&) = delete;
  CancelScope& operator=(const CancelScope&) = delete;
  ~CancelScope();
  static bool Requested();
};

}  // namespace qmr
