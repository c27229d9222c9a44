// The progress of an iterative restoration, as one step of a run.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "host/night/steps.h"
#include "qmrimg/platform/window.h"
#include "qmrimg/restoration/restoration_steps.h"

namespace qmr {

// Each title that the library sends begins a stage of a hundred units; it tells the number of an iteration, and the
// solver tells chi-square beside. One step of that name in all: it ends with the object.
class RestoreWindow : public HostWindow, public RestorationSteps {
 public:
  // `stages` that come at most, `iterations` among them.
  RestoreWindow(Steps& steps, std::string name, int stages, int iterations);
  ~RestoreWindow() override;

  void Send(int message, ProgressCode code, const wchar_t* text) override;
  void Post(int message, ProgressCode code, int value) override;
  bool TakeEscape() override { return false; }
  void Repaint() override {}
  void DeliverPosted(int) override {}
  void Step(const RestorationStep& step) override;

  // What the solver has told; nothing before.
  int Iterations() const { return iteration_; }
  std::optional<double> FirstChiSquare() const { return first_; }
  std::optional<double> ChiSquare() const { return last_; }

 private:
  void AdvanceTo(std::int64_t place);
  void Rename(int iteration);

  Steps& steps_;
  const std::string name_;
  const int iterations_;
  std::mutex mutex_;
  std::int64_t stage_ = -1, done_ = 0;
  int iteration_ = 0;
  std::optional<double> first_, last_;
};

}  // namespace qmr
