#include <fcntl.h>
#include <fitsio.h>
#include <gtest/gtest.h>
#include <png.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <limits>
#include <numeric>
#include <thread>

#include "files_test_support.h"
#include "host/files/atomic_file.h"
#include "host/files/fits_checksum.h"
#include "host/files/fits_writer.h"
#include "host/files/png_writer.h"

namespace qmr::test {
namespace {

std::vector<Keyword> ManyKeywords() {
  std::string quotes;
  for (int i = 0; i < 150; ++i) quotes += i % 7 == 0 ? "'" : "q";
  return {Keyword::Text("OBJECT", "M 42", "a nebula"),
          Keyword::Text("QUOTE", "it's '' here"),
          Keyword::Text("EMPTY", ""),
          Keyword::Text("LONGTEXT", std::string(60, 'a') + " & " + std::string(170, 'b') + "'", "of a length"),
          Keyword::Text("QUOTES", quotes),
          Keyword::Text("EDGE", std::string(68, 'e')),
          Keyword::Integer("COUNT", -123456789012345678, "far below"),
          Keyword::Real("TENTH", 0.1, "not exact"),
          Keyword::Real("TINY", -2.2250738585072014e-308),
          Keyword::Real("WHOLE", 6.0),
          Keyword::Real("HUGEVAL", 1e300),
          Keyword::Logical("FLAG", false, std::string(200, 'c')),
          Keyword::Integer("A longer name", 7, "needs another form"),
          Keyword::History("a text of more than seventy-two characters that has to be spread over several lines of it"),
          Keyword::Comment("short")};
}

// Puts the pieces of a commentary text together again.
std::string Commentary(const std::vector<Keyword>& keywords, std::string_view name) {
  std::string text;
  for (const Keyword& keyword : keywords) {
    if (keyword.name == name) text += std::get<std::string>(keyword.value);
  }
  return text;
}

void ExpectSoundSums(const std::string& path) {
  fitsfile* file = nullptr;
  int status = 0;
  int dataFine = 0;
  int unitFine = 0;
  fits_open_diskfile(&file, path.c_str(), READONLY, &status);
  fits_verify_chksum(file, &dataFine, &unitFine, &status);
  fits_close_file(file, &status);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(dataFine, 1);
  EXPECT_EQ(unitFine, 1);
}

TEST(FitsWriting, FloatsAndKeywordsComeBack) {
  const TemporaryFolder folder;
  const std::string path = folder / "out[1].fits";
  std::vector<float> pixels(33 * 7 * 3);
  std::iota(pixels.begin(), pixels.end(), -50.25F);
  pixels[5] = std::numeric_limits<float>::quiet_NaN();
  pixels[6] = 1e-42F;
  pixels[7] = -std::numeric_limits<float>::max();
  const std::vector<Keyword> keywords = ManyKeywords();
  const auto rows = [&](int plane, int y) { return pixels.data() + (plane * 7 + y) * 33; };
  const FileStatus status = WriteFitsFloat(path, 33, 7, 3, rows, keywords);
  ASSERT_FALSE(status) << status->Message();
  EXPECT_EQ(folder.List().size(), 1U);
  ExpectSoundSums(path);

  const auto image = ReadImageFile(path);
  ASSERT_TRUE(image) << image.Error().Message();
  EXPECT_EQ(image->planes, 3);
  EXPECT_EQ(image->fileBits, -32);
  EXPECT_EQ(image->blankPixels, 1);
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    if (i == 5) continue;
    ASSERT_EQ(image->pixels.Floats()[i], pixels[i]) << i;
  }
  for (const Keyword& keyword : keywords) {
    if (keyword.IsCommentary()) continue;
    const Keyword* found = FindKeyword(image->keywords, keyword.name);
    ASSERT_TRUE(found) << keyword.name;
    EXPECT_EQ(found->value, keyword.value) << keyword.name;
    if (keyword.comment.size() < 20) {
      EXPECT_EQ(found->comment, keyword.comment) << keyword.name;
    }
  }
  EXPECT_EQ(Commentary(image->keywords, "HISTORY"), std::get<std::string>(keywords[13].value));
}

TEST(FitsWriting, SixteenBitsComeBackAndStructureIsTheWriters) {
  const TemporaryFolder folder;
  const std::string path = folder / "out.fits";
  std::vector<std::uint16_t> samples(65536);
  std::iota(samples.begin(), samples.end(), std::uint16_t{0});
  // Keywords as they come from an input file, structure and all.
  const std::vector<Keyword> keywords = {Keyword::Integer("BITPIX", 8),  Keyword::Integer("NAXIS1", 5),
                                         Keyword::Real("BZERO", 0.0),    Keyword::Text("CHECKSUM", "x"),
                                         Keyword::Real("EXPTIME", 30.0), Keyword::Integer("BLANK", 5)};
  ASSERT_FALSE(WriteFits16(path, 256, 256, 1, samples, keywords));
  ExpectSoundSums(path);
  const auto image = ReadImageFile(path);
  ASSERT_TRUE(image) << image.Error().Message();
  EXPECT_EQ(image->fileBits, 16);
  EXPECT_EQ(image->blankPixels, 0);
  for (std::size_t i = 0; i < samples.size(); ++i) ASSERT_EQ(image->Plane(0)[i], static_cast<float>(i));
  EXPECT_EQ(KeywordNumber(image->keywords, "EXPTIME"), 30.0);
}

TEST(FitsWriting, ImpossibleRequestsLeaveNothing) {
  const TemporaryFolder folder;
  const std::vector<std::uint16_t> samples(12);
  const std::vector<float> row(4);
  EXPECT_TRUE(WriteFits16(folder / "a.fits", 4, 4, 1, samples));
  EXPECT_TRUE(WriteFits16(folder / "a.fits", 0, 4, 1, std::span<const std::uint16_t>()));
  EXPECT_TRUE(
      WriteFitsFloat(folder / "a.fits", 4, 3, 1, [&](int, int y) { return y < 2 ? row.data() : nullptr; }).has_value());
  EXPECT_TRUE(WritePng8(folder / "a.png", 2, 2, 2, std::vector<std::uint8_t>(8)));
  EXPECT_TRUE(WritePng8(folder / "a.png", 2, 2, 1, std::vector<std::uint8_t>(5)));
  EXPECT_TRUE(folder.List().empty());
}

TEST(FitsWriting, PassesTheVerifier) {
  if (std::system("command -v fitsverify > /dev/null 2>&1") != 0) GTEST_SKIP() << "fitsverify is not installed";
  const TemporaryFolder folder;
  const std::vector<float> row(40, 1.5F);
  std::vector<Keyword> keywords = ManyKeywords();
  keywords.push_back(Keyword::Text("UMLAUT", "M\xC3\xBCller \x01\xFF", "\xE2\x82\xAC and more"));
  keywords.push_back(Keyword::Real("NOTANUM", std::nan("")));
  keywords.push_back({"NOVALUE", {}, "stands alone"});
  keywords.push_back(Keyword::Text("lower", "case"));
  ASSERT_FALSE(WriteFitsFloat(
      folder / "float.fits", 40, 9, 3, [&](int, int) { return row.data(); }, keywords));
  ASSERT_FALSE(WriteFits16(folder / "short.fits", 3, 4, 1, std::vector<std::uint16_t>(12, 9), keywords));
  for (const char* name : {"float.fits", "short.fits"}) {
    const std::string command = "fitsverify -q " + folder / name + " > " + folder / "verdict";
    const int result = std::system(command.c_str());
    EXPECT_EQ(result, 0) << ReadBytes(folder / "verdict");
    EXPECT_NE(ReadBytes(folder / "verdict").find("verification OK"), std::string::npos)
        << ReadBytes(folder / "verdict");
  }
}

TEST(FitsWriting, SumDoesNotDependOnThePieces) {
  std::string bytes;
  for (int i = 0; i < 1003; ++i) bytes += static_cast<char>(i * 89 + 200);
  const std::uint32_t whole = AddFitsSum(0, bytes.data(), bytes.size());
  for (const std::size_t step : {1U, 2U, 3U, 5U, 7U, 64U}) {
    FitsSum sum;
    for (std::size_t at = 0; at < bytes.size(); at += step)
      sum.Add(bytes.data() + at, std::min(step, bytes.size() - at));
    EXPECT_EQ(sum.Value(), whole) << step;
  }
}

// ---- PNG
// -------------------------------------------------------------------------------------------------------------

struct ReadPng {
  int width = 0, height = 0, bits = 0, channels = 0;
  std::vector<std::uint16_t> samples;
};

ReadPng ReadPngFile(const std::string& path) {
  ReadPng image;
  std::FILE* file = std::fopen(path.c_str(), "rb");
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  if (file && !setjmp(png_jmpbuf(png))) {
    png_init_io(png, file);
    png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    image = {static_cast<int>(png_get_image_width(png, info)),
             static_cast<int>(png_get_image_height(png, info)),
             png_get_bit_depth(png, info),
             png_get_channels(png, info),
             {}};
    png_bytepp rows = png_get_rows(png, info);
    for (int y = 0; y < image.height; ++y) {
      for (int i = 0; i < image.width * image.channels; ++i) {
        image.samples.push_back(image.bits == 8 ? rows[y][i]
                                                : static_cast<std::uint16_t>(rows[y][2 * i] << 8 | rows[y][2 * i + 1]));
      }
    }
  }
  png_destroy_read_struct(&png, &info, nullptr);
  if (file) std::fclose(file);
  return image;
}

TEST(PngWriting, EveryShapeComesBack) {
  const TemporaryFolder folder;
  for (const int channels : {1, 3}) {
    for (const int bits : {8, 16}) {
      const std::string path = folder / ("image" + std::to_string(channels * 100 + bits));
      std::vector<std::uint16_t> samples(static_cast<std::size_t>(19 * 11 * channels));
      for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<std::uint16_t>(i * 7919);
      if (bits == 16) {
        ASSERT_FALSE(WritePng16(path, 19, 11, channels, samples));
      } else {
        for (std::uint16_t& sample : samples) sample &= 0xFF;
        ASSERT_FALSE(WritePng8(path, 19, 11, channels, std::vector<std::uint8_t>(samples.begin(), samples.end())));
      }
      const ReadPng image = ReadPngFile(path);
      EXPECT_EQ(image.width, 19);
      EXPECT_EQ(image.height, 11);
      EXPECT_EQ(image.bits, bits);
      EXPECT_EQ(image.channels, channels);
      EXPECT_EQ(image.samples, samples);
    }
  }
  ASSERT_FALSE(WritePng(folder / "limited", 3, 1, 1, 8, [](int, std::span<std::uint16_t> row) {
    row[0] = 255;
    row[1] = 256;
    row[2] = 65535;
  }));
  EXPECT_EQ(ReadPngFile(folder / "limited").samples, (std::vector<std::uint16_t>{255, 255, 255}));
}

// ---- Files that appear whole or not at all
// ---------------------------------------------------------------------------

TEST(AtomicFiles, AppearOnlyWhenComplete) {
  const TemporaryFolder folder;
  const std::string path = folder / "result.txt";
  WriteBytes(path, "old");
  ASSERT_EQ(chmod(path.c_str(), 0640), 0);
  {
    AtomicFile file(path);
    file.Write("half of it");
    EXPECT_EQ(ReadBytes(path), "old");
    EXPECT_EQ(folder.List().size(), 2U);
  }
  EXPECT_EQ(ReadBytes(path), "old");
  EXPECT_EQ(folder.List().size(), 1U);

  std::string large(3 << 20, 'x');
  AtomicFile file(path);
  file.Write("abc");
  file.Write(large);
  file.Write("end");
  file.WriteAt(1, "B", 1);
  ASSERT_FALSE(file.Commit());
  EXPECT_TRUE(ReadBytes(path) == "aBc" + large + "end");
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640U);
  EXPECT_EQ(folder.List().size(), 1U);
}

TEST(AtomicFiles, FollowLinksAndWriteToDevices) {
  const TemporaryFolder folder;
  WriteBytes(folder / "real", "old");
  ASSERT_EQ(symlink("real", (folder / "link").c_str()), 0);
  ASSERT_FALSE(WriteTextFile(folder / "link", "new"));
  EXPECT_EQ(ReadBytes(folder / "real"), "new");
  char target[8] = {};
  EXPECT_EQ(readlink((folder / "link").c_str(), target, sizeof(target)), 4);

  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  std::string got;
  std::thread reader([&] { got = ReadBytes(folder / "pipe"); });
  EXPECT_FALSE(WriteTextFile(folder / "pipe", "through"));
  reader.join();
  EXPECT_EQ(got, "through");
  EXPECT_FALSE(WriteTextFile("/dev/null", "gone"));
}

TEST(AtomicFiles, FullDisksAndMissingFoldersAreErrorsOfOneLine) {
  const TemporaryFolder folder;
  const std::vector<std::uint16_t> samples(100 * 100);
  const auto expectFailure = [](const FileStatus& status, const char* part) {
    ASSERT_TRUE(status);
    EXPECT_EQ(status->kind, FileErrorKind::CannotWrite);
    EXPECT_NE(status->reason.find(part), std::string::npos) << status->reason;
    EXPECT_EQ(status->Message().find('\n'), std::string::npos);
  };
  expectFailure(WriteTextFile("/dev/full", "text"), "No space left");
  expectFailure(WritePng16("/dev/full", 100, 100, 1, samples), "No space left");
  expectFailure(WriteFits16(folder / "missing" + "/a.fits", 100, 100, 1, samples), "No such file");
  expectFailure(WriteFits16(folder / "", 100, 100, 1, samples), "directory");

  WriteBytes(folder / "kept.fits", "kept");
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  rlimit small = before;
  small.rlim_cur = 10000;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const FileStatus fits = WriteFits16(folder / "kept.fits", 100, 100, 1, samples);
  unsigned noise = 1;  // which does not compress below the limit
  const FileStatus png = WritePng(folder / "new.png", 300, 300, 1, 16, [&](int, std::span<std::uint16_t> row) {
    for (std::uint16_t& sample : row)
      sample = static_cast<std::uint16_t>((noise = noise * 1664525U + 1013904223U) >> 16);
  });
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  expectFailure(fits, "File too large");
  expectFailure(png, "File too large");
  EXPECT_EQ(folder.List(), std::vector<std::string>{"kept.fits"});
  EXPECT_EQ(ReadBytes(folder / "kept.fits"), "kept");
}

void OnInterrupt(int) {
  RemovePendingFiles();
  _exit(130);
}

TEST(AtomicFiles, AnInterruptedProgramLeavesNoTemporaryFile) {
  const TemporaryFolder folder;
  int pipeEnds[2];
  ASSERT_EQ(pipe(pipeEnds), 0);
  const pid_t program = fork();
  if (program == 0) {
    std::signal(SIGINT, OnInterrupt);
    AtomicFile first(folder / "a");
    AtomicFile second(folder / "b");
    AtomicFile done(folder / "c");
    first.Write("text");
    done.Write("whole");
    const bool good = !done.Commit();
    if (write(pipeEnds[1], "x", 1) != 1 || !good) _exit(1);
    for (;;) pause();
  }
  char ready = 0;
  ASSERT_EQ(read(pipeEnds[0], &ready, 1), 1);
  EXPECT_EQ(folder.List().size(), 3U);
  kill(program, SIGINT);
  int status = 0;
  waitpid(program, &status, 0);
  EXPECT_EQ(WEXITSTATUS(status), 130);
  EXPECT_EQ(folder.List(), std::vector<std::string>{"c"});
  close(pipeEnds[0]);
  close(pipeEnds[1]);
}

}  // namespace
}  // namespace qmr::test
