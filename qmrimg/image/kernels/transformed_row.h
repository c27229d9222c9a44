// Rows of an image that is moved, turned or scaled: the values of CVynImage's readers for such pixels, a piece of a row
// at a time.
#pragma once

#include "qmrimg/image/bilinear.h"

namespace qmr {

// Columns begin..end - 1.
struct ColumnRun {
  int begin;
  int end;
  int Length() const { return end - begin; }
};

// The columns first..first + count - 1 that `inside` holds for, counted from first. They must be one run.
template <class Inside>
ColumnRun RunInside(int first, int count, const Inside& inside) {
  int begin = 0;
  while (begin < count && !inside(first + begin)) ++begin;
  int end = count;
  while (end > begin && !inside(first + end - 1)) --end;
  return {begin, end};
}

// Samples 0..count - 1 that lie one after the other, each fx[i] behind its pixel and all of them fy below row0.
void BilinearRun(const float* row0, const float* row1, const double* fx, double fy, int count, float* out);

// Where a few columns of a row lie in a source, to be sampled on each of its planes.
class TransformedPiece {
 public:
  static constexpr int kMost = 256;

  // Columns left..left + count - 1 of row y, at most kMost. Gives those inside a source of this size, counted from
  // left.
  ColumnRun Place(const Placement& placement, int left, int y, int count, int width, int height);

  // Bilinear samples of the columns inside from the rows of a plane, the first of them to out[0].
  void Sample(const float* const* rows, float* out) const;

 private:
  // The cells of one axis.
  struct Cells {
    int first[kMost];
    int second[kMost];
    double fraction[kMost];

    void Find(const double* positions, int count, int size);
  };

  Cells columns_;
  Cells lines_;
  int count_ = 0;
  int level_ = 0;  // how many lie one after the other between two rows, each with the next one as its neighbour
};

}  // namespace qmr
