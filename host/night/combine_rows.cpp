#include "host/night/combine_rows.h"

#include <cstddef>

namespace qmr {
namespace {

StackRule RuleOf(CombineMethod method, double kappa) {
  StackRule rule;
  rule.kappa = kappa;
  rule.dropRejected = true;
  switch (method) {
    case CombineMethod::kMedian:
      rule.method = StackMethod::kMedian;
      break;
    case CombineMethod::kKappaSigma:
      rule.method = StackMethod::kClippedMean;
      break;
    case CombineMethod::kMinimum:
      rule.method = StackMethod::kMinimum;
      break;
    default:
      rule.method = StackMethod::kMean;
  }
  return rule;
}

// The stack's own maximum starts just above zero; on frames whose sky was taken off, a night wants the true one.
void Brightest(const FrameRows& rows, std::span<float> out) {
  for (std::size_t x = 0; x < out.size(); ++x) {
    bool any = false;
    float most = 0.0f;
    for (std::size_t i = 0; i < rows.values.size(); ++i) {
      if (!rows.valid.empty() && !rows.valid[i][x]) continue;
      const float v = rows.values[i][x];
      most = !any || v > most ? v : most;
      any = true;
    }
    out[x] = most;
  }
}

}  // namespace

RowCombiner::RowCombiner(CombineMethod method, double kappa, std::size_t frames)
    : method_(method), plan_(RuleOf(method, kappa), static_cast<int>(frames)) {}

void RowCombiner::Combine(const FrameRows& rows, std::span<float> out) {
  if (method_ == CombineMethod::kMaximum)
    Brightest(rows, out);
  else
    StackRow(plan_, rows.values.data(), rows.valid.empty() ? nullptr : rows.valid.data(), nullptr,
             static_cast<int>(out.size()), out.data());
}

}  // namespace qmr
