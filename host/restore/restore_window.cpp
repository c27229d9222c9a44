#include "host/restore/restore_window.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace qmr {
namespace {

constexpr int kUnits = 100;

}  // namespace

RestoreWindow::RestoreWindow(Steps& steps, std::string name, int stages, int iterations)
    : steps_(steps), name_(std::move(name)), iterations_(iterations) {
  steps_.Begin(name_, std::int64_t{stages} * kUnits);
}

RestoreWindow::~RestoreWindow() {
  steps_.End("");
}

void RestoreWindow::AdvanceTo(std::int64_t place) {
  if (place <= done_) return;
  steps_.Advance(place - done_);
  done_ = place;
}

void RestoreWindow::Rename(int iteration) {
  std::string name = name_ + ", " + std::to_string(iteration) + " of " + std::to_string(iterations_);
  if (last_) {
    char text[48];
    std::snprintf(text, sizeof text, ", chi-square %.4g", *last_);
    name += text;
  }
  steps_.Rename(name);
}

void RestoreWindow::Send(int message, ProgressCode code, const wchar_t*) {
  if (message != kProgressMessage || code != kProgressTitle) return;
  const std::lock_guard<std::mutex> lock(mutex_);
  AdvanceTo(++stage_ * kUnits);
}

// Called from worker threads as well.
void RestoreWindow::Post(int message, ProgressCode code, int value) {
  if (message != kProgressMessage || code != kProgressPercent) return;
  const std::lock_guard<std::mutex> lock(mutex_);
  AdvanceTo(std::max<std::int64_t>(stage_, 0) * kUnits + std::clamp(value, 0, kUnits));
}

void RestoreWindow::Step(const RestorationStep& step) {
  iteration_ = step.iteration;
  last_ = step.chiSquare;
  if (!first_) first_ = last_;
  Rename(std::min(iteration_ + 1, iterations_));
}

}  // namespace qmr
