#include <fitsio.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <numeric>

#include "files_test_support.h"
#include "host/files/fits_header.h"

namespace qmr::test {
namespace {

constexpr float kBlank = -987654.0F;  // what Values() gives for not-a-number

FileResult<DecodedImage> ReadAs(const std::string& bytes, const ReadOptions& options = {}) {
  const TemporaryFolder folder;
  WriteBytes(folder / "image.fits", bytes);
  return ReadImageFile(folder / "image.fits", options);
}

std::string Reason(const FileResult<DecodedImage>& result) {
  return result ? "an image" : result.Error().reason;
}

// ---- Real files with oddities, against values measured by another reader --------------------------------------------

TEST(OddFits, AgreeWithMeasuredTruth) {
  const auto data = DataFolder();
  if (!data || !exists(*data / "fits-odd-a")) GTEST_SKIP() << "no folder of real frames (QMR_DATA)";
  const auto truth = nlohmann::json::parse(ReadBytes(*data / "fits-odd-a" / "truth.json"));
  for (const auto& file : truth["files"]) {
    const std::string name = file["file"];
    SCOPED_TRACE(name);
    const auto image = ReadImageFile(*data / "fits-odd-a" / name);
    ASSERT_TRUE(image) << image.Error().Message();
    const auto unit =
        std::find_if(file["hdus"].begin(), file["hdus"].end(), [](const auto& hdu) { return hdu.contains("shape"); });
    ASSERT_NE(unit, file["hdus"].end());
    const std::vector<int> shape = (*unit)["shape"];
    EXPECT_EQ(image->width, shape.back());
    EXPECT_EQ(image->height, shape[shape.size() - 2]);
    EXPECT_EQ(image->planes, shape.size() > 2 ? shape[0] : 1);
    EXPECT_EQ(image->fileBits, (*unit)["BITPIX"]);
    const std::vector<float> values = Values(*image);
    EXPECT_EQ(static_cast<long>(values.size()) - image->blankPixels, (*unit)["finite"]);
    if ((*unit)["finite"] == 0) continue;
    const auto near = [&](double value, const char* key) {
      const double wanted = (*unit)[key];
      EXPECT_NEAR(value, wanted, 6e-5 + std::abs(wanted) * 1e-7) << key;
    };
    near(*std::min_element(values.begin(), values.end()), "min");
    near(*std::max_element(values.begin(), values.end()), "max");
    near(std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size()), "mean");
    near(values.front(), "first");
    near(values.back(), "last");
  }
}

// ---- The direct way against the library's own
// ------------------------------------------------------------------------

struct Scaling {
  const char* name;
  std::vector<std::string> cards;
};

class EverySampleType : public testing::TestWithParam<int> {};

TEST_P(EverySampleType, DirectWayEqualsLibrary) {
  const int bitpix = GetParam();
  const std::vector<Scaling> scalings = {{"plain", {}},
                                         {"unsigned16", {"BZERO   = 32768", "BSCALE  = 1"}},
                                         {"fraction", {"BZERO   = -1.25E3", "BSCALE  = 0.0457763671875"}},
                                         {"unsigned32", {"BZERO   = 2147483648"}},
                                         {"negative", {"BSCALE  = -3.0", "BZERO   = 0.1"}},
                                         {"zero scale", {"BSCALE  = 0.0", "BZERO   = 7.0"}},
                                         {"blank", {"BLANK   = 100"}},
                                         {"blank and offset", {"BLANK   = 100", "BZERO   = 32768"}}};
  // 37 * 11 * 2 samples: no multiple of a vector, and the extremes of the type among them.
  std::string data;
  unsigned state = 12345;
  for (int i = 0; i < 37 * 11 * 2; ++i) {
    state = state * 1664525U + 1013904223U;
    double value = static_cast<int>(state >> 8) - (1 << 23);
    if (bitpix == 8) value = state >> 24;
    if (bitpix == 16) value = static_cast<int>(state >> 16) - 32768;
    if (bitpix < 0) value *= 1.0 / 256.0;
    if (i % 50 == 0) value = 100;
    if (i == 1 && bitpix == 64) value = 1e18;
    data += BigEndian(bitpix, value);
  }
  for (const Scaling& scaling : scalings) {
    SCOPED_TRACE(scaling.name);
    const std::string bytes = FitsHeader(PrimaryCards(bitpix, {37, 11, 2}, scaling.cards)) + Padded(data);
    ReadOptions byLibrary;
    byLibrary.plainLibraryPath = true;
    const auto direct = ReadAs(bytes);
    const auto library = ReadAs(bytes, byLibrary);
    ASSERT_TRUE(direct) << Reason(direct);
    ASSERT_TRUE(library) << Reason(library);
    EXPECT_EQ(Values(*direct), Values(*library));
    EXPECT_EQ(direct->blankPixels, library->blankPixels);
    const bool blanks = scaling.cards.size() > 0 && scaling.cards[0].starts_with("BLANK") && bitpix > 0;
    EXPECT_EQ(direct->blankPixels > 0, blanks);
  }
}

INSTANTIATE_TEST_SUITE_P(Bitpix, EverySampleType, testing::Values(8, 16, 32, 64, -32, -64));

TEST(Samples, ValuesThatNoFloatHoldsAreBlank) {
  const double infinity = std::numeric_limits<double>::infinity();
  for (const int bitpix : {-32, -64}) {
    std::string data;
    for (const double value : {1.5, infinity, -infinity, std::nan(""), 1e-42, 3e38}) data += BigEndian(bitpix, value);
    data += BigEndian(bitpix, bitpix == -64 ? 1e300 : infinity);
    const auto image = ReadAs(FitsHeader(PrimaryCards(bitpix, {7, 1})) + Padded(data));
    ASSERT_TRUE(image) << Reason(image);
    // The smallest numbers are kept, unlike in readers that flush them to zero.
    EXPECT_EQ(Values(*image), (std::vector<float>{1.5F, kBlank, kBlank, kBlank, 1e-42F, 3e38F, kBlank}));
    EXPECT_EQ(image->blankPixels, 4);
  }
}

TEST(Samples, Unsigned64AreRoundedOnce) {
  // Just above the middle between two floats; a double in between would land on the middle and then round to even.
  const std::uint64_t sample = (std::uint64_t{1} << 63) + (std::uint64_t{1} << 39) + 1;
  const auto image = ReadAs(FitsHeader(PrimaryCards(64, {1, 1}, {"BZERO   = 9223372036854775808"})) +
                            Padded(BigEndian64(sample ^ std::uint64_t{1} << 63)));
  ASSERT_TRUE(image) << Reason(image);
  EXPECT_EQ(image->Plane(0)[0], std::nextafter(9223372036854775808.0F, 1e30F));
}

// ---- Containers
// ------------------------------------------------------------------------------------------------------

TEST(Containers, FirstImageAmongUnitsWithInheritedKeywords) {
  std::string extension = FitsHeader({"XTENSION= 'IMAGE   '", "BITPIX  = 8", "NAXIS   = 2", "NAXIS1  = 3",
                                      "NAXIS2  = 2", "PCOUNT  = 0", "GCOUNT  = 1", "FILTER  = 'Ha'"}) +
                          Padded(std::string("\1\2\3\4\5\6"));
  const std::string bytes = FitsHeader(PrimaryCards(8, {}, {"EXPTIME = 30.0", "FILTER  = 'none'"})) + extension;
  const auto image = ReadAs(bytes);
  ASSERT_TRUE(image) << Reason(image);
  EXPECT_EQ(image->hdu, 2);
  EXPECT_EQ(Values(*image), (std::vector<float>{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(KeywordText(image->keywords, "FILTER"), "Ha");
  EXPECT_EQ(KeywordNumber(image->keywords, "EXPTIME"), 30.0);
  EXPECT_FALSE(FindKeyword(image->keywords, "SIMPLE"));

  const auto none = ReadAs(FitsHeader(PrimaryCards(8, {}, {"EXPTIME = 30.0"})));
  ASSERT_FALSE(none);
  EXPECT_EQ(none.Error().kind, FileErrorKind::NoImage);
}

TEST(Containers, GzipInOneAndSeveralMembers) {
  const std::string plain = SmallFits(50, 40, 3);
  const auto wanted = ReadAs(plain);
  ASSERT_TRUE(wanted) << Reason(wanted);
  for (const std::string& packed :
       {Gzipped(plain), Gzipped(plain.substr(0, 3001)) + Gzipped(plain.substr(3001)), Gzipped(plain) + "trailing"}) {
    const auto image = ReadAs(packed);
    ASSERT_TRUE(image) << Reason(image);
    EXPECT_EQ(Values(*image), Values(*wanted));
    EXPECT_EQ(image->format, "FITS, gzip");
  }
  const std::string whole = Gzipped(plain);
  const auto cut = ReadAs(whole.substr(0, whole.size() / 2));
  ASSERT_FALSE(cut);
  EXPECT_EQ(cut.Error().reason, "the compressed data end early");
  const auto other = ReadAs(Gzipped(std::string(5000, 'x')));
  ASSERT_FALSE(other);
  EXPECT_EQ(other.Error().kind, FileErrorKind::NotRecognised);
}

TEST(Containers, GzipThatUnpacksWithoutEndIsRefused) {
  ReadOptions options;
  options.memoryBytes = std::uint64_t{32} << 20;
  const auto image = ReadAs(Gzipped(SmallFits(8, 8, 1) + std::string(std::size_t{100} << 20, '\0')), options);
  ASSERT_FALSE(image);
  EXPECT_EQ(image.Error().kind, FileErrorKind::TooLarge) << image.Error().reason;
}

// Writes a tile-compressed image of 16-bit integers or floats with the library.
std::string Compressed(const TemporaryFolder& folder, int method, int bitpix) {
  const std::string path = folder / "compressed.fits";
  fitsfile* file = nullptr;
  int status = 0;
  long axes[2] = {60, 50};
  fits_create_file(&file, ("!" + path).c_str(), &status);
  fits_set_compression_type(file, method, &status);
  long tile[2] = {60, 10};
  fits_set_tile_dim(file, 2, tile, &status);
  if (bitpix < 0) fits_set_quantize_level(file, 0.0F, &status);
  fits_create_img(file, bitpix, 2, axes, &status);
  // The library compresses samples of the image's own type only.
  std::vector<float> floats(60 * 50);
  for (std::size_t i = 0; i < floats.size(); ++i) floats[i] = static_cast<float>((i * 37) % 1000);
  std::vector<short> shorts(floats.begin(), floats.end());
  std::vector<int> ints(floats.begin(), floats.end());
  if (bitpix == 16) fits_write_img(file, TSHORT, 1, 60 * 50, shorts.data(), &status);
  if (bitpix == 32) fits_write_img(file, TINT, 1, 60 * 50, ints.data(), &status);
  if (bitpix == -32) fits_write_img(file, TFLOAT, 1, 60 * 50, floats.data(), &status);
  double exposure = 2.5;
  fits_write_key(file, TDOUBLE, "EXPTIME", &exposure, "seconds", &status);
  fits_close_file(file, &status);
  EXPECT_EQ(status, 0);
  return path;
}

TEST(Containers, TileCompression) {
  const TemporaryFolder folder;
  for (const auto& [method, bitpix] : {std::pair{RICE_1, 16}, {GZIP_1, 32}, {GZIP_2, -32}, {HCOMPRESS_1, 16}}) {
    const std::string path = Compressed(folder, method, bitpix);
    const auto image = ReadImageFile(path);
    ASSERT_TRUE(image) << method << ": " << image.Error().Message();
    EXPECT_EQ(image->format, "FITS, tile-compressed");
    EXPECT_EQ(image->fileBits, bitpix);
    EXPECT_EQ(image->width, 60);
    for (std::size_t i = 0; i < image->PlanePixels(); ++i) ASSERT_EQ(image->Plane(0)[i], (i * 37) % 1000);
    EXPECT_EQ(KeywordNumber(image->keywords, "EXPTIME"), 2.5);
    EXPECT_FALSE(FindKeyword(image->keywords, "ZCMPTYPE"));

    std::string bytes = ReadBytes(path);
    WriteBytes(path, bytes.substr(0, bytes.size() - 2880));
    EXPECT_FALSE(ReadImageFile(path)) << "cut off";
  }
}

// ---- Damaged files
// ---------------------------------------------------------------------------------------------------

TEST(Damaged, TruncationIsAnErrorAndMissingPaddingIsNot) {
  const std::string whole = SmallFits(50, 40, 1);
  const std::size_t end = 2880 + 50 * 40 * 2;
  const auto wanted = ReadAs(whole);
  ASSERT_TRUE(wanted);
  const auto unpadded = ReadAs(whole.substr(0, end));
  ASSERT_TRUE(unpadded) << Reason(unpadded);
  EXPECT_EQ(Values(*unpadded), Values(*wanted));
  for (const std::size_t length : {end - 1, std::size_t{2880}, std::size_t{2879}, std::size_t{81}, std::size_t{9}}) {
    const auto cut = ReadAs(whole.substr(0, length));
    ASSERT_FALSE(cut) << length;
    EXPECT_EQ(cut.Error().kind, FileErrorKind::Damaged) << length << ": " << cut.Error().reason;
  }
}

TEST(Damaged, HeadersThatLieAreErrors) {
  const std::string data = Padded(std::string(3000, 'd'));
  for (const auto& axes : std::vector<std::vector<long>>{{-5, 10},
                                                         {1000000000000, 1000000000000},
                                                         {4294967296, 4294967296},
                                                         {2147483647, 2147483647, 2147483647},
                                                         {10000000, 10000000},
                                                         {16777216, 3},
                                                         {9223372036854775807, 2},
                                                         {2, 2, 3000000000, 3000000000}}) {
    const auto image = ReadAs(FitsHeader(PrimaryCards(16, axes)) + data);
    EXPECT_FALSE(image) << axes[0];
  }
  EXPECT_FALSE(ReadAs(FitsHeader(PrimaryCards(17, {10, 10})) + data));
  EXPECT_FALSE(ReadAs(FitsHeader(PrimaryCards(16, {10, 10}, {"BSCALE  = 'abc'"})) + data));
}

TEST(Damaged, HeaderPaddedWithNullBytes) {
  std::string bytes = SmallFits(20, 10, 1);
  const auto wanted = ReadAs(bytes);
  const std::size_t end = bytes.find("END") + 3;
  std::fill(bytes.begin() + static_cast<long>(end), bytes.begin() + 2880, '\0');
  const auto image = ReadAs(bytes);
  ASSERT_TRUE(image) << Reason(image);
  EXPECT_EQ(Values(*image), Values(*wanted));
}

TEST(Damaged, OtherContentIsTold) {
  EXPECT_EQ(Reason(ReadAs("\x89PNG\r\n\x1a\n and so on")), "not a FITS or camera raw file");
  EXPECT_EQ(Reason(ReadAs("x")), "not a FITS or camera raw file");
  EXPECT_EQ(Reason(ReadAs("")), "is empty");
  EXPECT_EQ(Reason(ReadImageFile("/")), "is a folder");
  EXPECT_EQ(Reason(ReadImageFile("/dev/zero")), "is not a regular file");
  const auto missing = ReadImageFile("/no/such\nfile");
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.Error().Message(), "/no/such\\nfile: cannot be opened: No such file or directory");
}

// ---- Header cards
// ----------------------------------------------------------------------------------------------------

TEST(HeaderCards, ValuesOfEveryKind) {
  const std::string header = FitsHeader(
      {"INTEGER =                  -42 / whole", "REAL    = 1.5D2", "SHORT   = 6.", "YES     =                    T",
       "TEXT    = 'it''s / one '  / two", "BIGNUM  = 123456789012345678901", "EMPTY   =", "NOSPACE =7",
       "HIERARCH ESO det  temp = -10.5 / cold", "COMMENT = 'kept as it is'", "HISTORY first", "LONG    = 'one &'",
       "CONTINUE  'two&' / a", "CONTINUE  ' three' / b", "CONTINUE  'of nothing'", "WORDS   = 3 4",
       std::string("NUL\0    = 1", 12)});
  const std::vector<Keyword> keywords = ParseFitsHeader(header);
  const auto value = [&](const char* name) {
    const Keyword* keyword = FindKeyword(keywords, name);
    return keyword ? keyword->value : KeywordValue(std::string("(missing)"));
  };
  EXPECT_EQ(value("INTEGER"), KeywordValue(std::int64_t{-42}));
  EXPECT_EQ(value("REAL"), KeywordValue(150.0));
  EXPECT_EQ(value("SHORT"), KeywordValue(6.0));
  EXPECT_EQ(value("yes"), KeywordValue(true));
  EXPECT_EQ(value("TEXT"), KeywordValue(std::string("it's / one")));
  EXPECT_EQ(FindKeyword(keywords, "TEXT")->comment, "two");
  EXPECT_EQ(value("BIGNUM"), KeywordValue(123456789012345678901.0));
  EXPECT_EQ(value("EMPTY"), KeywordValue());
  EXPECT_EQ(value("NOSPACE"), KeywordValue(std::int64_t{7}));
  EXPECT_EQ(value("ESO DET  TEMP"), KeywordValue(-10.5));
  EXPECT_EQ(value("LONG"), KeywordValue(std::string("one two three")));
  EXPECT_EQ(value("WORDS"), KeywordValue(std::string("3 4")));
  EXPECT_EQ(value("NUL"), KeywordValue(std::int64_t{1}));
  EXPECT_EQ(value("HISTORY"), KeywordValue(std::string("first")));
}

TEST(HeaderCards, NumbersInTexts) {
  EXPECT_EQ(ParseNumber(" 40 "), 40.0);
  EXPECT_EQ(ParseNumber("+1.5d-1"), 0.15);
  for (const char* text : {"", "inf", "nan", "1,5", "0x10", "+-1", "1e999", "12 s", "--1"}) {
    EXPECT_FALSE(ParseNumber(text)) << text;
  }
}

}  // namespace
}  // namespace qmr::test
