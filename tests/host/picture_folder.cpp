#include "tests/host/picture_folder.h"

#include <gmock/gmock.h>

#include <cmath>
#include <stdexcept>
#include <utility>

#include "host/files/fits_writer.h"

namespace qmr::test {

std::string PictureFolder::Write(const CVynImage& image, const std::string& name,
                                 const std::vector<Keyword>& keywords) const {
  const auto rows = [&](int plane, int y) {
    return static_cast<const float*>(image.GetImageAdr(0, y, plane, 1, 0, nullptr));
  };
  EXPECT_FALSE(WriteFitsFloat(Path(name), image.GetWidth(), image.GetHeight(), image.GetPlanes(), rows, keywords));
  return Path(name);
}

DecodedImage PictureFolder::Read(const std::string& path) {
  FileResult<DecodedImage> image = ReadImageFile(path);
  if (!image) throw std::runtime_error(image.Error().Message());
  return std::move(*image);
}

std::vector<float> PictureFolder::Bits(const DecodedImage& image) {
  std::vector<float> all;
  for (int p = 0; p < image.planes; ++p)
    for (const float v : image.Plane(p)) all.push_back(std::isnan(v) ? -12345.0f : v);
  return all;
}

void PictureFolder::ExpectRefused(const std::string& command, const std::vector<Refusal>& refusals) const {
  for (const Refusal& refusal : refusals) {
    std::vector<std::string> words = {command};
    for (const std::string& word : refusal.words) words.push_back(word == "OUT" ? Path("out.fit") : word);
    const Outcome o = RunQmr(words);
    EXPECT_EQ(o.code, refusal.code) << testing::PrintToString(words);
    EXPECT_TRUE(OneLine(o.err)) << o.err;
    EXPECT_THAT(o.err, testing::HasSubstr(refusal.says));
  }
  EXPECT_THAT(folder_.List(), testing::Not(testing::Contains("out.fit")));
}

bool OneLine(const std::string& text) {
  return text.starts_with("qmr: ") && text.find('\n') == text.size() - 1;
}

}  // namespace qmr::test
