// The progress protocol and the frame that operations run in.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <new>
#include <numeric>
#include <thread>
#include <vector>

#include "qmrimg/image/invert.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/messages.h"
#include "qmrimg/store/parallel.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace qmr::test {
namespace {

std::vector<int> PostsOf(int total, int units, int unit = 1) {
  RecordingWindow window;
  CVynImage image;
  image.SetProgressHandle(&window);
  image.ShowProgressInit(1, 6124, total);
  for (int i = 0; i < units; ++i) image.ShowProgress(unit);
  return window.Percents();
}

TEST(Progress, PostsAboutFiftyTimes) {
  // At counts 1, 3, 5 ...; 29 / 100 * 100 lies just below 29 and 57 / 100 * 100 below 57, and both are truncated.
  std::vector<int> odd(50);
  for (int i = 0; i < 50; ++i) odd[static_cast<std::size_t>(i)] = 2 * i + 1;
  odd[14] = 28;
  odd[28] = 56;
  EXPECT_EQ(PostsOf(100, 100), odd);
  EXPECT_EQ(PostsOf(4, 4), (std::vector<int>{25, 50, 75, 100})) << "a short report posts each unit";
  // A big unit moves the mark by one step only, so the next units post as well.
  EXPECT_EQ(PostsOf(200, 3, 100), (std::vector<int>{50, 100, 150}));
  EXPECT_TRUE(PostsOf(0, 5).empty());
  EXPECT_EQ(PostsOf(1000, 1000).size(), 50u);
}

TEST(Progress, DirectModePostsTheNumberItself) {
  RecordingWindow window;
  CVynImage image;
  image.SetProgressHandle(&window);
  image.ShowProgressInit(6162);
  image.ShowProgress(7);
  image.ShowProgress(3);
  EXPECT_EQ(window.Percents(), (std::vector<int>{7, 3}));
  EXPECT_EQ(window.events.front().text, L"最大エントロピー法(ESC：キャンセル) - 前処理中");
}

TEST(Progress, EndIsSentOnce) {
  RecordingWindow window;
  CVynImage image;
  image.SetProgressHandle(&window);
  image.ShowProgressInit(1, L"title", 10);
  image.ShowProgressEnd(0);
  image.ShowProgressEnd(0);
  ASSERT_EQ(window.events.size(), 2u);
  EXPECT_EQ(window.events[1].code, kProgressEnd);
  EXPECT_FALSE(window.events[1].hasText);
  image.ShowProgress(1);
  EXPECT_EQ(window.events.size(), 2u) << "nothing is posted behind the end";
  // Texts and headers go out whether a report is open or not.
  image.ShowProgressMsg(6169);
  image.ShowProgressSetHeader(L"header");
  image.ShowProgressClearHeader();
  ASSERT_EQ(window.events.size(), 5u);
  EXPECT_EQ(window.events[2].code, kProgressText);
  EXPECT_EQ(window.events[2].text, L"準備中...");
  EXPECT_EQ(window.events[3].code, kProgressSetHeader);
  EXPECT_EQ(window.events[4].code, kProgressClearHeader);
}

TEST(Progress, WithoutAFlagNothingGoesOutAndEscIsNotLookedFor) {
  RecordingWindow window;
  window.escapeAtLook = 1;
  CVynImage image;
  image.SetProgressHandle(&window);
  image.ShowProgressInit(0, 6124, 10);
  EXPECT_EQ(image.ShowProgress(1), 1);
  image.ShowProgressEnd(nullptr);
  EXPECT_TRUE(window.events.empty());
  EXPECT_EQ(window.looks, 0);
  // A report without a window is silent as well.
  CVynImage mute;
  mute.ShowProgressInit(1, 6124, 10);
  EXPECT_EQ(mute.ShowProgress(1), 1);
}

TEST(Progress, EscIsSeenOnTheWindowsOwnThreadOnly) {
  RecordingWindow window;
  window.escapeAtLook = 2;
  CVynImage image;
  image.SetProgressHandle(&window);
  image.ShowProgressInit(1, 6124, 10);
  EXPECT_EQ(image.ShowProgress(1), 1);
  EXPECT_EQ(window.repaints, 1);
  EXPECT_EQ(window.delivered, 1);
  EXPECT_EQ(image.ShowProgress(1), 0);
  EXPECT_EQ(window.repaints, 1) << "Esc ends the look before the repaint";
  EXPECT_EQ(image.ShowProgress(1), 1) << "a cancellation is a request, the report goes on";
  const int looks = window.looks;
  std::thread worker([&] { image.ShowProgress(1); });
  worker.join();
  EXPECT_EQ(window.looks, looks);
}

TEST(Progress, OfAnOperationCountsRowsAndPlanesAlsoWhenEmpty) {
  for (const int threads : {1, 2, 3}) {
    const Threads set(threads);
    for (const CRect rect : {CRect(0, 0, 5, 10), CRect(4, 0, 4, 10)}) {
      RecordingWindow window;
      CImgInvert image = Shaped<CImgInvert>(5, 10, 3);
      image.SetProgressHandle(&window);
      CRect argument = rect;
      image.Do(&image, &argument, 1);
      ASSERT_GE(window.events.size(), 2u);
      EXPECT_EQ(window.events.front().text, L"反転処理中...");
      EXPECT_EQ(window.events.back().code, kProgressEnd);
      std::vector<int> percents = window.Percents();
      // Each of the 30 units posts; on several threads the posts of two may be one, and not in order.
      EXPECT_LE(percents.size(), 30u);
      EXPECT_EQ(*std::max_element(percents.begin(), percents.end()), 100);
      if (threads == 1) {
        EXPECT_EQ(percents.size(), 30u);
        EXPECT_TRUE(std::is_sorted(percents.begin(), percents.end()));
      }
    }
  }
}

TEST(Messages, CoverTheirRangeOnly) {
  EXPECT_STREQ(MessageText(6100), L"String Table of KorImg");
  EXPECT_STREQ(MessageText(6120), L"中央値フィルタ処理中") << "some have no dots";
  EXPECT_STREQ(MessageText(6184), L"%.2f秒");
  EXPECT_STREQ(MessageText(6198), L"カットオフ処理中...");
  EXPECT_STREQ(MessageText(6099), L"");
  EXPECT_STREQ(MessageText(6199), L"");
  for (int id = kFirstMessage; id <= kLastMessage; ++id) EXPECT_STRNE(MessageText(id), L"") << id;
}

// ---- Frame --------------------------------------------------------------------------------------------------------

class Frame : public testing::TestWithParam<int> {
 protected:
  Frame() : threads_(GetParam()) {}

 private:
  Threads threads_;
};

TEST_P(Frame, VisitsEachRowOnceInAscendingRanges) {
  for (const auto& [top, bottom, step] : {std::array{0, 17, 1}, {-3, 4, 1}, {2, 2, 1}, {5, 1, 1}, {1, 18, 4}}) {
    std::vector<std::atomic<int>> visits(40);
    std::vector<int> last(64, -100);
    std::atomic<bool> ascending{true};
    ForRowsStep(top, bottom, step, [&](int y) {
      ++visits[static_cast<std::size_t>(y + 10)];
      int& mine = last[static_cast<std::size_t>(CParallel::GetThreadNum())];
      if (y <= mine) ascending = false;
      mine = y;
    });
    for (int y = -10; y < 30; ++y)
      EXPECT_EQ(visits[static_cast<std::size_t>(y + 10)], y >= top && y < bottom && (y - top) % step == 0) << y;
    EXPECT_TRUE(ascending);
  }
}

TEST_P(Frame, BringsTheFirstErrorToTheCaller) {
  for (int round = 0; round < 20; ++round) {
    EXPECT_TRUE(Raises<CMemoryException>([] {
      ForRows(0, 50, [](int y) {
        if (y % 10 == 3) AfxThrowMemoryException();
      });
    }));
  }
}

TEST_P(Frame, TurnsLackOfMemoryIntoTheMemoryException) {
  const auto fail = [](int y) {
    if (y == 7) throw std::bad_alloc();
  };
  EXPECT_TRUE(Raises<CMemoryException>([&] { ForRows(0, 20, fail); }));
  EXPECT_TRUE(Raises<CMemoryException>([&] { ForRowsSerial(0, 20, fail); }));
  EXPECT_TRUE(Raises<CMemoryException>([] { ForRowRanges(0, 20, [](int, int) { throw std::bad_alloc(); }); }));
  const auto part = [](int) -> double { throw std::bad_alloc(); };
  EXPECT_TRUE(Raises<CMemoryException>([&] { FoldRows(0, 20, 0.0, part, [](double a, double) { return a; }); }));
}

TEST_P(Frame, FoldsInTheOrderOfRows) {
  // Sums whose order shows: big numbers that cancel, and small ones that are lost in between.
  const auto value = [](int y) { return y % 3 == 0 ? 1e16 : y % 3 == 1 ? 1.0 : -1e16; };
  double expected = 0.0;
  for (int y = 0; y < 100; ++y) expected += value(y);
  EXPECT_EQ(FoldRows(0, 100, 0.0, value, [](double a, double b) { return a + b; }), expected);
  EXPECT_EQ(FoldRows(5, 5, 42.0, value, [](double a, double b) { return a + b; }), 42.0);
}

INSTANTIATE_TEST_SUITE_P(ThreadCounts, Frame, testing::Values(1, 2, 7, 16));

}  // namespace
}  // namespace qmr::test
