// Texts that nobody would write, some of them found by the fuzzer.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "host/chain/check_chain.h"
#include "qmrimg/command/vyn_image_proc.h"
#include "tests/command/corpus_text.h"
#include "tests/support/images.h"

namespace {

TEST(CommandCorpus, RunsAsTheCheckerSaysForAllThreads) {
  for (const auto& entry : std::filesystem::directory_iterator(QMR_COMMAND_CORPUS)) {
    SCOPED_TRACE(entry.path());
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    ASSERT_TRUE(file);
    const qmr::test::CorpusText text = qmr::test::ReadCorpusText(bytes);
    const bool runs = qmr::ChainRuns(qmr::CheckChain(text.utf8));
    for (const int planes : {1, 3}) {
      EXPECT_TRUE(qmr::test::SameForAllThreads([&] {
        CVynImage image;
        qmr::test::Shape(image, 13, 9, planes);
        qmr::test::FillNoise(image, 7, -20.0, 280.0);
        EXPECT_EQ(CVynImageProc().Do(&image, CString(text.wide), 0) != 0, runs);
        return qmr::test::Bytes(image);
      }));
    }
  }
}

}  // namespace
