// Progress on standard error.
#pragma once

#include <chrono>
#include <mutex>
#include <string>

#include "host/night/steps.h"

namespace qmr {

// On a terminal one line that moves, with the time left; elsewhere one line a finished step. Quiet shows warnings only.
class TerminalSteps : public Steps {
 public:
  explicit TerminalSteps(bool quiet);
  ~TerminalSteps() override;

  void Begin(const std::string& name, std::int64_t total) override;
  void Rename(const std::string& name) override;
  void Advance(std::int64_t units) override;
  void End(const std::string& result) override;
  void Warn(const std::string& line) override;

 private:
  using Clock = std::chrono::steady_clock;
  void Draw(Clock::time_point now);
  void Wipe();

  const bool quiet_;
  const bool terminal_;
  std::mutex mutex_;
  std::string name_;
  std::int64_t total_ = 0;
  std::int64_t done_ = 0;
  Clock::time_point begun_;
  Clock::time_point drawn_;
  bool open_ = false;   // a step is under way
  bool shown_ = false;  // its line stands on the terminal
};

}  // namespace qmr
