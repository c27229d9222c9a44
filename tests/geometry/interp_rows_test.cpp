// Whole rows.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

#include "qmrimg/geometry/frame_sampler.h"
#include "qmrimg/geometry/kernels/shift_rows.h"
#include "tests/geometry/interp_reference.h"

namespace qmr::test {
namespace {

void Bind(CInterp& interp, CVynImage& image, const RowCase& row, int plane, int to256 = 0) {
  const double angle = row.degrees * 3.141592653589793 / 180.0;
  interp.SetBParam(row.shiftType, &image, row.xStart, row.xEnd, to256, kOutside, plane, std::sin(angle),
                   std::cos(angle), 1.0, 0);
}

std::vector<RowCase> Cases(int width, int height) {
  std::vector<RowCase> cases;
  const double w = width, h = height;
  for (const double y : {-1.0, -0.5, 0.0, 0.25, 1.7, h / 2 + 0.125, h - 1, h - 0.5, h, h + 2.0}) {
    for (const double shift : {0.0, 3.0, -4.0, w, -w, w + 5, -w - 5}) {
      cases.push_back({0, -shift, w - shift, y});
      for (const double fraction : {0.25, 0.7, 0.9999999}) {
        const double s = shift + fraction;
        cases.push_back({1, -s, w - s, y});
        cases.push_back({2, -s, w - s, y, 5.0});
      }
    }
    cases.push_back({1, -2.25, 8.0, y});
    for (const double degrees : {0.0, -30.0, 90.0, 135.0, 180.0, 271.0}) {
      cases.push_back({2, 0.0, w, y, degrees});
      cases.push_back({2, -3.5, w + 9.5, y, degrees});
    }
  }
  return cases;
}

class Rows : public testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    Shape(wide_, 150, 23, 3);
    FillNoise(wide_, 21, -50.0, 2000.0);
    Shape(small_, 5, 4, 3);
    FillNoise(small_, 22, -50.0, 2000.0);
    Shape(line_, 1, 3, 3);
    FillNoise(line_, 23);
    for (CVynImage* image : Images()) {
      for (int p = 0; p < 3; ++p) image->SetLevel(p, 3.0 + p, 900.0 + 7.0 * p);
    }
  }
  std::vector<CVynImage*> Images() { return {&wide_, &small_, &line_}; }
  CVynImage wide_, small_, line_;
};

TEST_P(Rows, OneLineIsThePixelsOfDo) {
  for (CVynImage* image : Images()) {
    for (const RowCase& row : Cases(image->GetWidth(), image->GetHeight())) {
      for (const int plane : {0, 2}) {
        const ReferenceRow expected = MakeReferenceRow(*image, GetParam(), plane, row, false);
        CInterp interp(GetParam());
        Bind(interp, *image, row, plane);
        GuardedLine<float> line(expected.values.size());
        interp.GetBLine(row.y, line.data());
        EXPECT_TRUE(line.guardsIntact());
        ASSERT_TRUE(SameLine(expected.values, line.values()))
            << "type " << row.shiftType << " from " << row.xStart << " to " << row.xEnd << " at " << row.y << ", "
            << row.degrees << " degrees";
      }
    }
  }
}

TEST_P(Rows, MedianRowsAreThePixelsOfDo) {
  for (CVynImage* image : Images()) {
    for (RowCase row : Cases(image->GetWidth(), image->GetHeight())) {
      row.xEnd -= 1.0;
      CInterp interp(GetParam());
      Bind(interp, *image, row, 3);
      const ReferenceRow planes[3] = {MakeReferenceRow(*image, GetParam(), 0, row, true),
                                      MakeReferenceRow(*image, GetParam(), 1, row, true),
                                      MakeReferenceRow(*image, GetParam(), 2, row, true)};
      const std::size_t count = planes[0].values.size();
      GuardedLine<double> values(3 * count);
      GuardedLine<int> valid(3 * count);
      interp.GetBLineMed(row.y, values.data(), valid.data());
      EXPECT_TRUE(values.guardsIntact());
      EXPECT_TRUE(valid.guardsIntact());
      for (std::size_t i = 0; i < 3 * count; ++i) {
        ASSERT_EQ(values.values()[i], planes[i / count].values[i % count]) << i << " from " << row.xStart;
        ASSERT_EQ(valid.values()[i], planes[i / count].valid[i % count]) << i << " from " << row.xStart;
      }
    }
  }
}

TEST_P(Rows, OrderOfRowsAndCopiesDoNotMatter) {
  const RowCase row = {1, -0.3, 149.7, 0.0};
  CInterp ascending(GetParam());
  Bind(ascending, wide_, row, -1);
  std::vector<std::vector<float>> lines;
  for (int y = 0; y < 22; ++y) {
    std::vector<float> rgb(3 * 150);
    ascending.GetBLine(y + 0.7, rgb.data(), rgb.data() + 150, rgb.data() + 300);
    lines.push_back(rgb);
  }
  CInterp copy(ascending);
  CInterp assigned(4);
  assigned = ascending;
  ascending.SetBParam(0, nullptr, 0, 0, 0, 0, 0, 0, 1, 1, 0);
  for (int i = 0; i < 22; ++i) {
    const int y = i * 13 % 22;
    std::vector<float> rgb(3 * 150);
    CInterp& interp = i % 2 ? copy : assigned;
    interp.GetBLine(y + 0.7, rgb.data(), rgb.data() + 150, rgb.data() + 300);
    EXPECT_TRUE(SameLine(lines[static_cast<std::size_t>(y)], rgb)) << y;
  }
  // Another start, source or width must not meet sums of the last one.
  const RowCase next = {1, -0.6, 4.4, 1.25};
  Bind(copy, small_, next, 0);
  const ReferenceRow expected = MakeReferenceRow(small_, GetParam(), 0, next, false);
  std::vector<float> line(expected.values.size());
  copy.GetBLine(1.25, line.data());
  EXPECT_TRUE(SameLine(expected.values, line));
}

INSTANTIATE_TEST_SUITE_P(Methods, Rows, testing::Range(0, 6));

// Every row of the table of forms: `plane`, source and scale.
TEST(ThreeLines, FollowTheTable) {
  CVynImage colour = Shaped(20, 12, 3);
  CVynImage mono = Shaped(20, 12, 1);
  CVynImage two = Shaped(20, 12, 2);
  for (CVynImage* image : {&colour, &mono, &two}) {
    FillNoise(*image, 31, 0.0, 4000.0);
    for (int p = 0; p < image->GetPlanes(); ++p) image->SetLevel(p, 100.0 + 11.1 * p, 3000.0 - 77.7 * p);
  }
  for (CVynImage* image : {&colour, &mono, &two}) {
    for (const RowCase& row : {RowCase{0, -3.0, 17.0, 4.0}, {1, -3.4, 16.6, 4.3}, {2, -3.4, 16.6, 4.3, 11.0}}) {
      for (const int plane : {-1, 0, 1}) {
        for (const int to256 : {0, 1}) {
          const bool isColour = image == &colour;
          ReferenceRow planes[3];
          for (int p = 0; p < 3; ++p) planes[p] = MakeReferenceRow(*image, 1, isColour ? p : 0, row, false);
          const auto scaled = [&](int p, float v) -> double {
            if (!to256) return v;
            const int q = isColour ? p : 0;
            if (row.shiftType == 0)
              return (v - static_cast<float>(image->GetLevelMin(q))) *
                     static_cast<float>(255.0 / image->GetLevelRange(q));
            return (v - image->GetLevelMin(q)) / image->GetLevelRange(q) * 255.0;
          };
          CInterp interp(1);
          Bind(interp, *image, row, plane, to256);
          const std::size_t count = planes[0].values.size();
          ASSERT_EQ(count, 20u);
          GuardedLine<float> lines[3] = {GuardedLine<float>(count), GuardedLine<float>(count),
                                         GuardedLine<float>(count)};
          interp.GetBLine(row.y, lines[0].data(), lines[1].data(), lines[2].data());
          for (int p = 0; p < 3; ++p) EXPECT_TRUE(lines[p].guardsIntact());
          if (plane != -1) {
            EXPECT_TRUE(lines[1].untouched());
            EXPECT_TRUE(lines[2].untouched());
          }
          for (int p = 0; p < (plane == -1 ? 3 : 1); ++p) {
            std::vector<float> expected(count, kOutside);
            for (std::size_t i = 0; i < count; ++i) {
              if (!planes[0].valid[i]) continue;
              double v = scaled(p, planes[p].values[i]);
              if (plane != -1 && isColour)
                v = 0.299 * v + 0.587 * scaled(1, planes[1].values[i]) + 0.114 * scaled(2, planes[2].values[i]);
              expected[i] = static_cast<float>(v);
            }
            EXPECT_TRUE(SameLine(expected, lines[p].values()))
                << "type " << row.shiftType << " plane " << plane << " to256 " << to256 << " line " << p;
          }
        }
      }
    }
  }
}

TEST(OneLine, PlaneThatTheSourceLacksIsOutside) {
  CVynImage mono = Noise(6, 5, 1, 1);
  for (int type = 0; type < 3; ++type) {
    for (const int plane : {-1, 1, 1000}) {
      CInterp interp(0);
      Bind(interp, mono, {type, 0.0, 6.0, 2.0}, plane);
      GuardedLine<float> line(6);
      interp.GetBLine(2.0, line.data());
      EXPECT_TRUE(line.guardsIntact());
      EXPECT_TRUE(SameLine(std::vector<float>(6, kOutside), line.values()));
    }
  }
  CInterp other(0);
  Bind(other, mono, {3, 0.0, 6.0, 2.0}, 0);
  GuardedLine<float> line(6);
  other.GetBLine(2.0, line.data());
  EXPECT_TRUE(line.untouched());
}

TEST(MedianRows, FewerPlanesGivePlaneZero) {
  CVynImage mono = Noise(9, 8, 1, 4);
  CVynImage two = Noise(9, 8, 2, 5);
  for (CVynImage* image : {&mono, &two}) {
    for (const RowCase& row : {RowCase{0, 0.0, 8.0, 3.0}, {1, -0.5, 7.5, 3.5}, {2, -0.5, 7.5, 3.5, 20.0}}) {
      CInterp interp(0);
      Bind(interp, *image, row, 4);
      const ReferenceRow expected = MakeReferenceRow(*image, 0, 0, row, true);
      GuardedLine<double> values(36);
      GuardedLine<int> valid(36);
      interp.GetBLineMed(row.y, values.data(), valid.data());
      EXPECT_TRUE(values.guardsIntact());
      for (std::size_t i = 0; i < 36; ++i) {
        ASSERT_EQ(values.values()[i], expected.values[i % 9]);
        ASSERT_EQ(valid.values()[i], expected.valid[i % 9]);
      }
    }
  }
}

// Starts just below a whole number, whose ends round up to one, and ranges that
// were rounded to float.
TEST(RowLength, StaysWithinTheDestination) {
  constexpr int kWidth = 6000;
  CVynImage image = Noise(kWidth, 3, 1, 9);
  for (const double shift : {1e-15, 3.0000000000000004, 1e-9, 0.3, -0.3, -1e-15, 0.9999999999999999}) {
    for (const bool asFloat : {false, true}) {
      const double start = asFloat ? static_cast<float>(-shift) : -shift;
      const double end = asFloat ? static_cast<float>(kWidth - shift) : kWidth - shift;
      CInterp interp(1);
      interp.SetBParam(1, &image, start, end, 0, kOutside, 0, 0.0, 1.0, 1.0, 0);
      GuardedLine<float> line(kWidth);
      interp.GetBLine(1.5, line.data());
      EXPECT_TRUE(line.guardsIntact()) << shift;
      // Column 100 of the row still reads 100 - shift.
      EXPECT_NEAR(line.values()[100], CInterp(1, &image, 0).Do(100 - shift, 1.5, 0), 1e-3) << shift;
      interp.SetBParam(1, &image, start, kWidth - 1 - shift, 0, kOutside, 1, 0.0, 1.0, 1.0, 0);
      GuardedLine<double> values(kWidth);
      GuardedLine<int> valid(kWidth);
      interp.GetBLineMed(1.5, values.data(), valid.data());
      EXPECT_TRUE(values.guardsIntact()) << shift;
      EXPECT_TRUE(valid.guardsIntact()) << shift;
    }
  }
  CInterp fixed(0);
  Bind(fixed, image, {2, -2.0, 4.0, 1.0}, 0);
  fixed.SetRowWidth(9);
  GuardedLine<float> line(9);
  fixed.GetBLine(1.0, line.data());
  EXPECT_TRUE(line.guardsIntact());
  EXPECT_EQ(line.values()[8], At(image, 0, 6, 1));
}

TEST(RowLength, SurvivesAnyRange) {
  CVynImage image = Noise(8, 8, 3, 9);
  const double inf = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (int type = 0; type < 3; ++type) {
    for (const double start : {-1e300, -3e9, 1e300, nan, inf, -inf}) {
      for (const double y : {0.0, nan, inf, -1e300}) {
        CInterp interp(3);
        interp.SetBParam(type, &image, start, 5.0, 0, kOutside, 3, nan, 0.5, 1.0, 0);
        interp.SetRowWidth(8);
        GuardedLine<double> values(24);
        GuardedLine<int> valid(24);
        interp.GetBLineMed(y, values.data(), valid.data());
        EXPECT_TRUE(values.guardsIntact());
        EXPECT_TRUE(valid.guardsIntact());
      }
    }
  }
  CInterp unbound(3);
  GuardedLine<float> line(1);
  unbound.GetBLine(0.0, line.data());
  EXPECT_TRUE(line.guardsIntact());
}

TEST(ShiftSegmentsTest, ArePositionsOneByOne) {
  for (const double start : {0.0, 0.1, 0.3, 1.0 / 3.0, 0.9999999999999999, 0.49999999999999994, 5e-324, 1.0}) {
    ShiftSegments segments;
    segments.Accumulate(start, 5000);
    double x = start;
    int i = 0;
    for (const ShiftSegment& s : segments) {
      ASSERT_EQ(s.first, i);
      for (int k = 0; k < s.count; ++k, ++i, x += 1.0) ASSERT_EQ(s.column + k + s.fraction, x) << start;
    }
    EXPECT_EQ(i, 5000);
    for (const int column : {0, 1, 7, 1023}) {
      segments.Add(column, start, 3000);
      i = 0;
      for (const ShiftSegment& s : segments) {
        for (int k = 0; k < s.count; ++k, ++i) ASSERT_EQ(s.column + k + s.fraction, (column + i) + start) << start;
      }
      EXPECT_EQ(i, 3000);
    }
  }
}

// The rows in float, plane by plane, are those in double with one flag a
// column.
TEST(FrameSamplerTest, BothFormsAreTheSame) {
  constexpr int kColumns = 40;
  CVynImage frame = Noise(kColumns, 30, 3, 41);
  for (const FramePlacement& place : {FramePlacement{3.0, -2.0, 0.0, 0}, {3.25, -2.5, 0.0, 0}, {1.5, 0.75, 7.0, 0}}) {
    FrameSampler sampler(1, &frame, place, kColumns, 3);
    for (int y = 0; y < 30; ++y) {
      std::vector<float> rows[3] = {std::vector<float>(kColumns), std::vector<float>(kColumns),
                                    std::vector<float>(kColumns)};
      float* const lines[3] = {rows[0].data(), rows[1].data(), rows[2].data()};
      std::vector<std::uint8_t> valid(kColumns);
      std::vector<double> values(3 * kColumns);
      std::vector<int> flags(3 * kColumns);
      sampler.Row(y, lines, valid.data());
      sampler.Row(y, values.data(), flags.data());
      for (std::size_t i = 0; i < 3 * kColumns; ++i) {
        ASSERT_EQ(flags[i], valid[i % kColumns]) << i << ", " << y;
        ASSERT_EQ(rows[i / kColumns][i % kColumns], flags[i] ? values[i] : 0.0) << i << ", " << y;
      }
    }
  }
}

}  // namespace
}  // namespace qmr::test
