// Runs chains of commands that nobody would write, and compares what the library does with what the checker says.
//
// The input is as the files of tests/command/corpus. Its length chooses the image; most runs have one without pixels,
// where everything is read and nothing filtered, and are fast.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "host/chain/check_chain.h"
#include "qmrimg/command/vyn_image_proc.h"
#include "qmrimg/store/parallel.h"
#include "tests/command/corpus_text.h"

namespace {

CVynImage MakeImage(int width, int height, int planes) {
  CVynImage image(-32, width, height, planes, 1.0, 0.0, 0);
  for (int p = 0; p < planes; ++p) {
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) image.SetPixelGrayRaw(x, y, static_cast<float>(31 * p + 37 * y + 53 * x), p);
    }
  }
  return image;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qmr::SetMaxThreads(1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const CVynImage mono = MakeImage(3, 2, 1);
  static const CVynImage colour = MakeImage(4, 3, 3);
  static const CVynImage none;
  const qmr::test::CorpusText text =
      qmr::test::ReadCorpusText(std::string_view(reinterpret_cast<const char*>(data), size));
  const std::size_t kind = size % 64;
  CVynImage image(kind == 0 ? mono : kind == 1 ? colour : none);
  const int result = CVynImageProc().Do(&image, CString(text.wide), 0);
  if (qmr::ChainRuns(qmr::CheckChain(text.utf8)) != (result != 0)) {
    std::fprintf(stderr, "the library gives %d, and the checker says otherwise\n", result);
    std::abort();
  }
  return 0;
}
