// Row work of the maximum entropy solver: entropy and its gradient, chi-square, search directions and steps.
//
// Entropy is S = sum(f - m - f ln(f / m)) with a flat default level m, so that dS/df = -ln(f / m) and d2S/df2 = -1 / f.
// Logarithms are plain arithmetic, good to a few units of the last place of a float, and sums are of doubles in eight
// lanes that do not depend on the width of vectors: their bits are the same everywhere.
#pragma once

namespace qmr {

// Sums of a row about the gradients of entropy and of chi-square in the metric of the entropy, 1 / f.
struct GradientSums {
  double entropy = 0.0;   // f ln(f / m)^2
  double cross = 0.0;     // f ln(f / m) pull
  double pull = 0.0;      // f pull^2
  double response = 0.0;  // f / (1 + weight f): how far f follows ln m
  void Add(const GradientSums& other);
};

// `pull` is the residual seen through the adjoint operator, `weight` its weight against the entropy. Leaves
// ln(f / m) in `logs`.
GradientSums GradientRow(const float* f, const float* pull, int count, float inverseLevel, float weight, float* logs);

// The gradient weight * pull - (logs - raise), divided by 1 / f (the curvature of the entropy) + `curvature`, replaces
// `pull`. `raise` is what ln m has gained since the logarithms were taken.
void PreconditionRow(const float* f, const float* logs, int count, float weight, float raise, float curvature,
                     float* pull);

// Products of two directions through the curvature: 1 / f of the entropy, and the blurred directions where data are.
struct ConjugateSums {
  double entropyCross = 0.0;  // fresh last / f
  double entropyLast = 0.0;   // last^2 / f
  double dataCross = 0.0;
  double dataLast = 0.0;
  void Add(const ConjugateSums& other);
};

// Data are the first `dataCount` values of a row; those that are not finite do not count.
ConjugateSums ConjugateRow(const float* f, const float* fresh, const float* last, int count, const float* data,
                           const float* blurredFresh, const float* blurredLast, int dataCount);

struct DirectionSums {
  double square = 0.0;    // step^2
  double data = 0.0;      // blurred step^2
  double residual = 0.0;  // blurred step * residual
  float largest = 0.0f;   // |step|
  float fall = 0.0f;      // largest -step / f: 1 / fall is where the first pixel meets 0
  void Add(const DirectionSums& other);
};

// step = fresh + beta * step for a direction and its blurred form. The residual is data * scale - blurred.
DirectionSums DirectionRow(const float* f, const float* fresh, float beta, float* step, int count, const float* data,
                           float scale, const float* blurred, const float* blurredFresh, float* blurredStep,
                           int dataCount);

// Where a step may lead: a value falls to no less than a tenth of itself, and not below `floor`.
inline constexpr float kLeastShare = 0.1f;

struct LineSums {
  double slope = 0.0;      // of the entropy: -step ln(v / m), v = f + a step or where that ends
  double curvature = 0.0;  // step^2 / v of the values that have not come to an end
  void Add(const LineSums& other);
};

LineSums LineRow(const float* f, const float* step, int count, float a, float inverseLevel);

// f goes `a` steps or as far as it may; where that is less, `step` becomes what it went, divided by `a`. Gives whether
// there was one such value. `a` is above 0.
bool StepRow(float* f, float* step, int count, float a, float floor);

// f goes back `a` of the last steps, not below `floor`.
void RetreatRow(float* f, const float* step, int count, float a, float floor);

// blurredStep = (now - blurred) / a.
void DifferenceRow(const float* now, const float* blurred, int count, float a, float* blurredStep);

struct ResidualSums {
  double square = 0.0;
  double sum = 0.0;
  void Add(const ResidualSums& other);
};

// blurred += a * blurredStep where data are, and residual = data * scale - blurred, 0 in the rest of the row.
ResidualSums ResidualRow(float* blurred, const float* blurredStep, int count, float a, const float* data, float scale,
                         int dataCount, float* residual);

}  // namespace qmr
