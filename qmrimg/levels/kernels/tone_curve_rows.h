// Rows through tone tables and through even steps.
#pragma once

#include <array>
#include <span>
#include <vector>

namespace qmr {

// The output of a table of last + 1 entries outside its domain, and for any input; 256-scale.
double ToneBeyond(const float* table, int last, double v);
double ToneNormal(double v, double indexFactor, const float* table, int last);

// One plane's way through its table and, where there is one, the master's behind it.
class ToneMap {
 public:
  // Levels on the raw scale. `second` may be null; `last` is at least 0. The tables must outlive the map.
  ToneMap(const float* first, const float* second, int last, double levelMin, double levelRange);
  // Source and destination may be one row.
  void Row(std::span<const float> src, std::span<float> dst) const;

 private:
  float Result(double t) const;

  const float* first_;
  const float* second_;
  int last_;
  double indexFactor_;
  float min_;
  float range_;
  double scale_;
  // What each entry of the first table comes to, and behind them what lies below the levels does.
  std::vector<float> results_;
};

// One plane's even steps.
class ToneSteps {
 public:
  // `tones` 1..256; levels on the raw scale.
  ToneSteps(int tones, double levelMin, double levelRange);
  void Row(std::span<const float> src, std::span<float> dst) const;

 private:
  int tones_;
  double min_;
  double scale_;
  // The steps' levels, and not-a-number behind them.
  std::array<float, 257> results_{};
};

}  // namespace qmr
