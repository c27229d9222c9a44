// Progress reports of the library, as steps of a run.
#pragma once

#include <atomic>
#include <string>

#include "host/night/steps.h"
#include "qmrimg/platform/window.h"

namespace qmr {

// Each report is a step of that name. Operations are not stopped from here: a signal ends the process at once, and no
// file is half-written then.
class ProgressWindow : public HostWindow {
 public:
  ProgressWindow(Steps& steps, std::string name);

  void Send(int message, ProgressCode code, const wchar_t* text) override;
  void Post(int message, ProgressCode code, int value) override;
  bool TakeEscape() override { return false; }
  void Repaint() override {}
  void DeliverPosted(int) override {}

 private:
  Steps& steps_;
  const std::string name_;
  std::atomic<int> percent_{0};
};

}  // namespace qmr
