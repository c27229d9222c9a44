#include "host/files/mosaic.h"

#include <array>
#include <cmath>

#include "qmrimg/levels/honeycomb_sites.h"

namespace qmr {
namespace {

// The developer's numbers, 1 to 4, by the top-left cell.
constexpr std::array<std::string_view, 5> kLetters = {"", "RGGB", "GRBG", "BGGR", "GBRG"};

MosaicLayout Bayer(int number, const std::string& source) {
  std::string text(BayerLetters(number));
  text += " " + source;
  return {MosaicLayout::Kind::Bayer, number, std::move(text)};
}

MosaicLayout HoneyComb(int number, const std::string& source) {
  return {MosaicLayout::Kind::HoneyComb, number, "honeycomb " + std::to_string(number) + " " + source};
}

// "11" to "14", also behind "HONEYCOMB", as a number; 0 for anything else.
int HoneycombNumber(std::string_view word) {
  if (word.starts_with("HONEYCOMB")) word.remove_prefix(9);
  for (const int number : {11, 12, 13, 14})
    if (word == std::to_string(number)) return number;
  return 0;
}

// The pattern seen when the cell starts `rows` further down and `columns` further right; only parities count.
int Shifted(int number, int rows, int columns) {
  const std::string_view letters = BayerLetters(number);
  std::array<char, 4> cell{};
  for (int row = 0; row < 2; ++row) {
    for (int column = 0; column < 2; ++column) {
      cell[2 * row + column] = letters[2 * ((row + rows) & 1) + ((column + columns) & 1)];
    }
  }
  return BayerNumber({cell.data(), cell.size()});
}

std::string Unquoted(std::string text) {
  std::erase_if(text, [](char c) { return c == '\'' || c == '"' || c == ' '; });
  return UpperCase(text);
}

struct Statement {
  std::string keyword, letters;
};

// What the file says of its pattern, in the order of precision.
std::optional<Statement> FindStatement(std::span<const Keyword> keywords) {
  std::optional<Statement> vague;
  for (const char* name : {"BAYERPAT", "BAYER", "COLORTYP", "CFA-PAT", "COLORTYPE"}) {
    const auto text = KeywordText(keywords, name);
    if (!text) continue;
    Statement statement{name, Unquoted(*text)};
    if (statement.letters.empty()) continue;
    // A mere yes leaves the pattern to a later keyword that may name it.
    const bool mereYes = statement.letters == "TRUE" || statement.letters == "T" || statement.letters == "1";
    if (!mereYes) return statement;
    if (!vague) vague = std::move(statement);
  }
  return vague;
}

bool Denies(const std::string& letters) {
  for (const char* no : {"NONE", "FALSE", "F", "0", "MONO", "MONOCHROME", "GRAY", "GREY", "N/A", "NO"}) {
    if (letters == no) return true;
  }
  return false;
}

int Offset(std::span<const Keyword> keywords, std::initializer_list<const char*> names) {
  for (const char* name : names) {
    const auto number = KeywordNumber(keywords, name);
    if (number && std::abs(*number) < 1e6) return static_cast<int>(std::lround(*number)) & 1;
  }
  return 0;
}

MosaicLayout FromKeywords(const MosaicQuestion& question, const Statement& statement) {
  if (Denies(statement.letters)) return {MosaicLayout::Kind::None, 0, "none, says " + statement.keyword};
  const bool mereYes = statement.letters == "TRUE" || statement.letters == "T" || statement.letters == "1";
  const int displayed = mereYes ? 1 : BayerNumber(statement.letters);
  if (displayed == 0) {
    return {MosaicLayout::Kind::Unsupported, 0,
            "unknown pattern \"" + statement.letters + "\" in " + statement.keyword};
  }
  std::string source = mereYes ? "assumed, as " + statement.keyword + " names no pattern" : "from " + statement.keyword;
  const int rowOffset = Offset(question.keywords, {"YBAYROFF", "BAYOFFY"});
  const int columnOffset = Offset(question.keywords, {"XBAYROFF", "BAYOFFX"});
  if (rowOffset || columnOffset) {
    source += ", shifted by " + std::to_string(columnOffset) + ", " + std::to_string(rowOffset);
  }
  // Displayed row of memory row 0: the last one when the file starts at the bottom.
  int firstRow = 0;
  if (const auto order = KeywordText(question.keywords, "ROWORDER"); order && Unquoted(*order) == "BOTTOM-UP") {
    firstRow = question.height - 1;
    source += ", rows bottom-up";
  }
  const int inMemory = Shifted(displayed, firstRow + rowOffset, columnOffset);
  if (inMemory != displayed && !mereYes) {
    std::string stated(" ");
    stated += BayerLetters(displayed);
    source.insert(source.find(statement.keyword) + statement.keyword.size(), stated);
  }
  return Bayer(inMemory, source);
}

MosaicLayout FromCamera(int number) {
  if (number >= 1 && number <= 4) return Bayer(number, "from the camera's model");
  if (HoneycombLayout::IsPattern(number)) return HoneyComb(number, "from the camera's model");
  return {MosaicLayout::Kind::Unsupported, number, "the camera's layout cannot be developed"};
}

}  // namespace

int BayerNumber(std::string_view letters) {
  const std::string upper = UpperCase(letters);
  for (std::size_t number = 1; number < kLetters.size(); ++number) {
    if (kLetters[number] == upper) return static_cast<int>(number);
  }
  return 0;
}

std::string_view BayerLetters(int number) {
  return number >= 1 && number < static_cast<int>(kLetters.size()) ? kLetters[static_cast<std::size_t>(number)] : "";
}

int SiteColour(int number, int row, int column) {
  if (HoneycombLayout::IsPattern(number)) return HoneycombLayout::Of(number).ColourAt(row, column);
  const std::string_view letters = BayerLetters(number);
  if (letters.empty()) return -1;
  const char letter = letters[static_cast<std::size_t>(2 * (row & 1) + (column & 1))];
  return letter == 'R' ? 0 : letter == 'G' ? 1 : 2;
}

FileResult<MosaicLayout> ResolveMosaic(const MosaicQuestion& question) {
  using Kind = MosaicLayout::Kind;
  bool named = false;
  if (question.user) {
    const std::string word = Unquoted(*question.user);
    const int number = BayerNumber(word);
    const int honeycomb = HoneycombNumber(word);
    if (number == 0 && honeycomb == 0 && word != "NONE") {
      return FileError{{},
                       "\"" + *question.user + "\" is no pattern: RGGB, BGGR, GRBG, GBRG, 11 to 14 or none",
                       FileErrorKind::BadArgument};
    }
    if (number == 0 && honeycomb == 0) return MosaicLayout{Kind::None, 0, "none by the user's word"};
    named = true;
    if (question.planes == 1)
      return honeycomb ? HoneyComb(honeycomb, "by the user's word") : Bayer(number, "by the user's word");
  }
  if (question.planes != 1) return MosaicLayout{Kind::None, 0, "none, the image has several planes", named};
  if (const auto statement = FindStatement(question.keywords)) return FromKeywords(question, *statement);
  if (question.cameraPattern) return FromCamera(*question.cameraPattern);
  return MosaicLayout{Kind::None, 0, "none known"};
}

}  // namespace qmr
