#include "tests/support/recording_window.h"

namespace qmr::test {

void RecordingWindow::Send(int message, ProgressCode code, const wchar_t* text) {
  if (message != kProgressMessage) return;
  const std::lock_guard<std::mutex> lock(mutex_);
  events.push_back({code, text ? text : L"", 0, text != nullptr});
}

void RecordingWindow::Post(int message, ProgressCode code, int value) {
  if (message != kProgressMessage) return;
  const std::lock_guard<std::mutex> lock(mutex_);
  events.push_back({code, L"", value, false});
}

bool RecordingWindow::TakeEscape() {
  return ++looks == escapeAtLook;
}

void RecordingWindow::DeliverPosted(int message) {
  if (message == kProgressMessage) ++delivered;
}

std::vector<int> RecordingWindow::Percents() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<int> percents;
  for (const Event& e : events)
    if (e.code == kProgressPercent) percents.push_back(e.value);
  return percents;
}

}  // namespace qmr::test
