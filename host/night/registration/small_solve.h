// Normal equations of a few unknowns.
#pragma once

#include <array>
#include <cmath>

namespace qmr {

template <int kMax>
struct SmallSystem {
  std::array<std::array<double, kMax>, kMax> matrix{};  // symmetric; the lower half is filled in
  std::array<double, kMax> right{};
  std::array<double, kMax> solution{};
  std::array<std::array<double, kMax>, kMax> inverse{};

  // Solution and inverse for the first `n` unknowns; false when the matrix isn't positive definite.
  bool Solve(int n) {
    std::array<std::array<double, kMax>, kMax> l{};
    for (int i = 0; i < n; ++i) {
      for (int j = 0; j <= i; ++j) {
        double sum = matrix[i][j];
        for (int k = 0; k < j; ++k) sum -= l[i][k] * l[j][k];
        if (i != j) {
          l[i][j] = sum / l[j][j];
        } else if (sum > 1e-10 * matrix[i][i]) {
          l[i][i] = std::sqrt(sum);
        } else {
          return false;
        }
      }
    }
    for (int column = 0; column < n; ++column) {
      std::array<double, kMax> x{};
      for (int i = 0; i < n; ++i) {
        double sum = i == column ? 1.0 : 0.0;
        for (int k = 0; k < i; ++k) sum -= l[i][k] * x[k];
        x[i] = sum / l[i][i];
      }
      for (int i = n - 1; i >= 0; --i) {
        double sum = x[i];
        for (int k = i + 1; k < n; ++k) sum -= l[k][i] * x[k];
        x[i] = sum / l[i][i];
      }
      for (int i = 0; i < n; ++i) inverse[i][column] = x[i];
    }
    for (int i = 0; i < n; ++i) {
      solution[i] = 0.0;
      for (int k = 0; k < n; ++k) solution[i] += inverse[i][k] * right[k];
    }
    return true;
  }
};

}  // namespace qmr
