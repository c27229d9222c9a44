#include "tests/host/picture_folder.h"

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

bool OneLine(const std::string& text) {
  return text.starts_with("qmr: ") && text.find('\n') == text.size() - 1;
}

}  // namespace qmr::test
