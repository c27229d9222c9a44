// What holds for every operation, whatever it does to a pixel.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace qmr::test {

inline constexpr float kUntouched = -7.0f;

// An operation of a class with its parameters bound.
template <class Image>
using Operation = std::function<void(Image& result, CVynImage* source, CRect* rect, int progress)>;

// Untouched pixels, and the levels of another image.
template <class Image>
Image Blank(const CVynImage& like, int width, int height) {
  Image image = Shaped<Image>(width, height, like.GetPlanes());
  Fill(image, [](int, int, int) { return kUntouched; });
  for (int p = 0; p < like.GetPlanes(); ++p)
    static_cast<CImage&>(image).SetLevel(p, like.GetLevelMin(p), like.GetLevelMax(p));
  return image;
}

// The same bits for all threads, in place and into a larger result, of which the rest stays; nothing is made of nothing
// or of samples that are no floats; the rows from the fifth on are reported in so many units, in steps of a fiftieth.
template <class Image>
void ExpectOperationRules(CVynImage& source, const wchar_t* title, int units, const Operation<Image>& run) {
  const int width = source.GetWidth(), height = source.GetHeight();
  Image itself;
  itself.CopyImage(source);
  run(itself, &itself, nullptr, 0);
  EXPECT_FALSE(SamePixels(source, itself)) << "does nothing";
  EXPECT_TRUE(SameForAllThreads([&] {
    Image other;
    other.CopyImage(source);
    run(other, &source, nullptr, 0);
    EXPECT_TRUE(SamePixels(itself, other)) << "in place";
    return Bytes(other);
  }));

  Image exact = Blank<Image>(source, width, height), larger = Blank<Image>(source, width + 3, height + 4);
  run(exact, &source, nullptr, 0);
  run(larger, &source, nullptr, 0);
  CVynImage expected(larger);
  Fill(expected, [&](int p, int x, int y) { return x < width && y < height ? At(exact, p, x, y) : kUntouched; });
  EXPECT_TRUE(SamePixels(expected, larger)) << "larger result";

  Image result = Blank<Image>(source, width, height);
  const CVynImage before(result);
  RecordingWindow window;
  result.SetProgressHandle(&window);
  CVynImage bytes(8, width, height, source.GetPlanes(), 1.0, 0.0, 1), empty;
  run(result, nullptr, nullptr, 1);
  run(result, &bytes, nullptr, 0);
  run(result, &empty, nullptr, 0);
  EXPECT_TRUE(SamePixels(before, result));
  EXPECT_TRUE(window.events.empty());

  const Threads one(1);
  Image reporting = Blank<Image>(source, width, height);
  reporting.SetProgressHandle(&window);
  CRect lower(0, 5, width, height);
  run(reporting, &source, &lower, 1);
  const int step = std::max(units / 50, 1), posts = (units + step - 1) / step;
  ASSERT_EQ(window.Percents().size(), static_cast<std::size_t>(posts));
  EXPECT_EQ(window.Percents().back(), ((posts - 1) * step + 1) * 100 / units);
  EXPECT_EQ(window.events.front().text, title);
  EXPECT_EQ(window.events.back().code, kProgressEnd);
}

}  // namespace qmr::test
