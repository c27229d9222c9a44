#include "host/cli/terminal_steps.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace qmr {
namespace {

constexpr auto kRedrawAfter = std::chrono::milliseconds(100);
// Time left is guessed only when the step has run for a while.
constexpr double kGuessAfterSeconds = 0.5;
constexpr int kBarWidth = 28;

std::string Duration(double seconds) {
  const long whole = static_cast<long>(seconds + 0.5);
  char text[32];
  if (whole >= 3600)
    std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60, whole % 60);
  else
    std::snprintf(text, sizeof text, "%ld:%02ld", whole / 60, whole % 60);
  return text;
}

}  // namespace

TerminalSteps::TerminalSteps(bool quiet) : quiet_(quiet), terminal_(isatty(STDERR_FILENO) == 1) {}

TerminalSteps::~TerminalSteps() {
  const std::lock_guard<std::mutex> lock(mutex_);
  Wipe();
}

void TerminalSteps::Begin(const std::string& name, std::int64_t total) {
  const std::lock_guard<std::mutex> lock(mutex_);
  name_ = name;
  total_ = std::max<std::int64_t>(total, 1);
  done_ = 0;
  begun_ = Clock::now();
  open_ = true;
  if (terminal_ && !quiet_) Draw(begun_);
}

void TerminalSteps::Rename(const std::string& name) {
  const std::lock_guard<std::mutex> lock(mutex_);
  name_ = name;
  if (open_ && terminal_ && !quiet_) Draw(Clock::now());
}

void TerminalSteps::Advance(std::int64_t units) {
  const std::lock_guard<std::mutex> lock(mutex_);
  done_ += units;
  if (!open_ || !terminal_ || quiet_) return;
  const Clock::time_point now = Clock::now();
  if (now - drawn_ >= kRedrawAfter) Draw(now);
}

void TerminalSteps::Draw(Clock::time_point now) {
  drawn_ = now;
  const double share = std::clamp(static_cast<double>(done_) / static_cast<double>(total_), 0.0, 1.0);
  const double elapsed = std::chrono::duration<double>(now - begun_).count();
  std::string bar(static_cast<std::size_t>(share * kBarWidth), '#');
  bar.resize(kBarWidth, '.');
  std::string left;
  if (elapsed > kGuessAfterSeconds && share > 0.0) left = "  " + Duration(elapsed * (1.0 - share) / share) + " left";
  std::fprintf(stderr, "\r\033[K%-22s [%s] %3d %%%s", name_.c_str(), bar.c_str(), static_cast<int>(share * 100.0),
               left.c_str());
  std::fflush(stderr);
  shown_ = true;
}

void TerminalSteps::Wipe() {
  if (!shown_) return;
  std::fputs("\r\033[K", stderr);
  std::fflush(stderr);
  shown_ = false;
}

void TerminalSteps::End(const std::string& result) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Wipe();
  open_ = false;
  if (!quiet_ && !result.empty()) std::fprintf(stderr, "%s\n", result.c_str());
}

void TerminalSteps::Warn(const std::string& line) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const bool shown = shown_;
  Wipe();
  std::fprintf(stderr, "qmr: %s\n", line.c_str());
  if (shown && open_) Draw(Clock::now());
}

}  // namespace qmr
