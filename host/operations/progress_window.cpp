#include "host/operations/progress_window.h"

#include <utility>

namespace qmr {

ProgressWindow::ProgressWindow(Steps& steps, std::string name) : steps_(steps), name_(std::move(name)) {}

void ProgressWindow::Send(int message, ProgressCode code, const wchar_t*) {
  if (message != kProgressMessage) return;
  if (code == kProgressTitle) {
    percent_ = 0;
    steps_.Begin(name_, 100);
  } else if (code == kProgressEnd) {
    steps_.End("");
  }
}

void ProgressWindow::Post(int message, ProgressCode code, int value) {
  if (message != kProgressMessage || code != kProgressPercent) return;
  // Posts of several threads may overtake one another; the bar only goes forward.
  int before = percent_.load();
  while (value > before && !percent_.compare_exchange_weak(before, value)) {
  }
  if (value > before) steps_.Advance(value - before);
}

}  // namespace qmr
