// A folder of pictures to run the program on.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/files/image_file.h"
#include "qmrimg/image/vyn_image.h"
#include "tests/host/program.h"

namespace qmr::test {

class PictureFolder : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path(name); }
  // Writes a 32-bit FITS under that name and gives its path.
  std::string Write(const CVynImage& image, const std::string& name, const std::vector<Keyword>& keywords = {}) const;
  // Fails the test where the file can't be read.
  static DecodedImage Read(const std::string& path);

  // Bits of all pixels, not-a-number ones alike.
  static std::vector<float> Bits(const DecodedImage& image);

  // Words behind a command, the exit code that they get, and a part of the one line that says why. "OUT" is a file that
  // does not come to be.
  struct Refusal {
    std::vector<std::string> words;
    int code;
    const char* says;
  };
  void ExpectRefused(const std::string& command, const std::vector<Refusal>& refusals) const;

  TemporaryFolder folder_;
};

// The program's message: one line that begins with its name.
bool OneLine(const std::string& text);

}  // namespace qmr::test
