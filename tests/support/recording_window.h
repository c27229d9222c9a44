// A host window that writes down what it is told.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "qmrimg/platform/window.h"

namespace qmr::test {

class RecordingWindow : public HostWindow {
 public:
  struct Event {
    ProgressCode code;
    std::wstring text;
    int value;
    bool hasText;
  };

  void Send(int message, ProgressCode code, const wchar_t* text) override;
  void Post(int message, ProgressCode code, int value) override;
  bool TakeEscape() override;
  void Repaint() override { ++repaints; }
  void DeliverPosted(int message) override;

  // Percentages in the order in which they were posted.
  std::vector<int> Percents() const;

  std::vector<Event> events;
  int repaints = 0;
  int delivered = 0;
  int looks = 0;
  // Esc is pressed at this look for it, counted from 1; 0 never.
  int escapeAtLook = 0;

 private:
  mutable std::mutex mutex_;
};

}  // namespace qmr::test
