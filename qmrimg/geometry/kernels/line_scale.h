// Scale and brightness of sampled lines.
#pragma once

namespace qmr {

// 256-scale in float with a prepared gain: the rows of a shift by whole pixels.
void ScaleLineFloat(float* line, int count, float min, float gain);
// 256-scale in double, stored as float: interpolated rows. The two may differ in the last bit, on purpose.
void ScaleLineDouble(float* line, int count, double min, double range);

struct LineLevels {
  double min[3];
  double range[3];
};

// 0.299 r + 0.587 g + 0.114 b in double, stored as float; `out` may be one of the lines.
void BrightnessLine(const float* r, const float* g, const float* b, int count, float* out);
// The same on lines that are taken to the 256-scale in double first.
void Brightness256Line(const float* r, const float* g, const float* b, int count, const LineLevels& levels, float* out);

void WidenLine(const float* line, int count, double* out);

}  // namespace qmr
