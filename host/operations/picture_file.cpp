#include "host/operations/picture_file.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

#include "host/files/atomic_file.h"
#include "host/files/png_writer.h"
#include "host/night/failure.h"
#include "host/night/keywords.h"
#include "host/night/output.h"
#include "host/operations/parameters.h"
#include "host/version.h"
#include "qmrimg/image/row_access.h"

namespace qmr {
namespace {

bool EndsIn(const std::string& path, std::initializer_list<std::string_view> endings) {
  const std::string upper = UpperCase(path);
  return std::any_of(endings.begin(), endings.end(), [&](std::string_view e) { return upper.ends_with(e); });
}

bool IsPng(const std::string& path) {
  return EndsIn(path, {".PNG"});
}

// Where the first card of a text ends: before a parameter, after a comma, before a word, or wherever it is full. Cards
// lose the blanks at their ends, so no part ends in one.
std::size_t CardEnd(std::string_view text, std::size_t room) {
  for (const std::string_view mark : {std::string_view(" --"), std::string_view(","), std::string_view(" ")}) {
    const std::size_t behind = mark == "," ? 1 : 0;
    for (std::size_t at = text.rfind(mark, room - 1); at != std::string_view::npos && at > 0;
         at = text.rfind(mark, at - 1))
      if (text[at + behind - 1] != ' ') return at + behind;
  }
  const std::size_t end = text.find_last_not_of(' ', room - 1) + 1;
  return end == 0 ? room : end;
}

// One card where it fits, else several, which give the text again one behind the other.
void AddHistory(std::string_view text, std::vector<Keyword>& keywords) {
  constexpr std::size_t kRoom = 72;
  while (text.size() > kRoom) {
    const std::size_t end = CardEnd(text, kRoom);
    keywords.push_back(Keyword::History(std::string(text.substr(0, end))));
    text.remove_prefix(end);
  }
  keywords.push_back(Keyword::History(std::string(text)));
}

void WriteFitsPicture(const std::string& path, const CVynImage& image, const std::vector<Keyword>& from,
                      const std::string& command) {
  std::vector<Keyword> keywords;
  for (const Keyword& keyword : from)
    if (keyword.name != "PROGRAM") keywords.push_back(keyword);
  keywords.push_back(Keyword::Text("PROGRAM", std::string("qmrimg ") + kVersion, "program that wrote this file"));
  AddHistory(command, keywords);
  WriteStack(path, image, keywords);
}

// 16 bits, black to white of each plane's levels.
void WritePngPicture(const std::string& path, const CVynImage& image, bool bottomUp) {
  const int planes = image.GetPlanes() >= 3 ? 3 : 1;
  const int height = image.GetHeight();
  constexpr double kWhite = 65535.0;
  const FileStatus status =
      WritePng(path, image.GetWidth(), height, planes, 16, [&](int y, std::span<std::uint16_t> samples) {
        for (int p = 0; p < planes; ++p) {
          const std::span<const float> row = ReadRow(image, bottomUp ? height - 1 - y : y, p, 0, image.GetWidth());
          const double black = image.GetLevelMin(p);
          const double scale = kWhite / image.GetLevelRange(p);
          for (std::size_t x = 0; x < row.size(); ++x) {
            const double value = (row[x] - black) * scale;
            // False for not-a-number, which is black.
            samples[x * static_cast<std::size_t>(planes) + static_cast<std::size_t>(p)] =
                value > 0.0 ? static_cast<std::uint16_t>(std::min(value, kWhite) + 0.5) : std::uint16_t{0};
          }
        }
      });
  if (status) throw Failure(kExitCannotCreate, status->Message());
}

// "CBLACK", "CBLACK2", "CBLACK3"
std::string LevelKeyword(std::string_view name, int plane) {
  return std::string(name) + (plane == 0 ? std::string() : std::to_string(plane + 1));
}

// The world coordinates of the standard with their alternates ("CRVAL1A"), and the distortions in use beside it.
bool IsSkyKeyword(std::string_view name) {
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  if (!name.empty() && name.find_first_of("0123456789") != std::string_view::npos && !isDigit(name.back()))
    name.remove_suffix(1);
  for (const std::string_view whole : {"A_ORDER", "B_ORDER", "AP_ORDER", "BP_ORDER", "A_DMAX", "B_DMAX", "WCSAXES",
                                       "WCSNAME", "LONPOLE", "LATPOLE", "RADESYS", "EQUINOX"})
    if (name.starts_with(whole) && name.size() <= whole.size() + 1) return true;
  for (const std::string_view axis : {"CTYPE", "CUNIT", "CRVAL", "CRPIX", "CDELT", "CROTA", "CRDER", "CSYER"})
    if (name.starts_with(axis) && std::all_of(name.begin() + axis.size(), name.end(), isDigit)) return true;
  for (const std::string_view pair : {"CD", "PC", "PV", "PS", "A_", "B_", "AP_", "BP_"}) {
    if (!name.starts_with(pair)) continue;
    const std::string_view indices = name.substr(pair.size());
    const auto bar = indices.find('_');
    if (bar == std::string_view::npos || bar == 0 || bar + 1 == indices.size()) continue;
    if (std::all_of(indices.begin(), indices.end(), [&](char c) { return isDigit(c) || c == '_'; })) return true;
  }
  return false;
}

}  // namespace

void CheckOutput(const std::string& path, bool force) {
  if (!IsPng(path) && !EndsIn(path, {".FIT", ".FITS", ".FTS"}))
    throw Failure(kExitUsage, PrintablePath(path) + ": an output ends in .fit, .fits, .fts or .png");
  std::error_code error;
  if (!force && std::filesystem::exists(path, error))
    throw Failure(kExitCannotCreate, PrintablePath(path) + ": exists; --force replaces it");
  const AtomicFile probe(path);
  if (!probe.Good()) throw Failure(kExitCannotCreate, probe.Error()->Message());
}

LightFrame LoadPicture(const std::string& path, const std::optional<std::string>& bayer) {
  const std::string name = PrintablePath(path);
  std::error_code error;
  if (!std::filesystem::exists(path, error)) throw Failure(kExitNoInput, name + ": no such file");
  FileResult<DecodedImage> read = ReadImageFile(path);
  if (!read) throw Failure(kExitBadData, read.Error().Message());
  LightFrame frame;
  FrameSource source{path, std::make_shared<DecodedImage>(std::move(*read))};
  try {
    frame.image = LoadImage(source, frame, bayer);
  } catch (const Failure& failure) {
    if (failure.code == kExitUsage) throw;
    throw Failure(failure.code, name + ": " + failure.what());
  }
  if (frame.mosaic.namedInVain)
    throw Failure(kExitBadData,
                  name + ": has several planes, so it is developed already: it holds no mosaic for --bayer to name");
  return frame;
}

void RoundLevels(CVynImage& image) {
  for (int p = 0; p < image.GetPlanes(); ++p) {
    const double black = Rounded(image.GetLevelMin(p));
    const double white = Rounded(image.GetLevelMax(p));
    if (black < white) static_cast<CImage&>(image).SetLevel(p, black, white);
  }
}

bool SetKeywordLevels(CVynImage& image, const std::vector<Keyword>& keywords) {
  const auto set = [&](int plane, int from) {
    const auto black = KeywordNumber(keywords, LevelKeyword("CBLACK", from));
    const auto white = KeywordNumber(keywords, LevelKeyword("CWHITE", from));
    if (!black || !white || !(*black < *white)) return false;
    static_cast<CImage&>(image).SetLevel(plane, *black, *white);
    return true;
  };
  if (!set(0, 0)) return false;
  for (int p = 1; p < image.GetPlanes(); ++p)
    if (!set(p, p)) set(p, 0);
  return true;
}

std::string SetLevelsOfFile(CVynImage& image, const std::vector<Keyword>& keywords) {
  if (SetKeywordLevels(image, keywords)) return "CBLACK and CWHITE";
  SetNightLevels(image);
  RoundLevels(image);
  return "the sky";
}

void RefuseMosaic(const LightFrame& frame) {
  if (frame.mosaic.kind == MosaicLayout::Kind::None) return;
  throw Failure(kExitBadData, PrintablePath(frame.path) + ": holds an undeveloped mosaic (" + frame.mosaic.text +
                                  "); develop it first with qmr develop, or say --bayer none to take it as it lies");
}

CRect RectangleOf(const Settings& settings, const CVynImage& image) {
  CRect rect(0, 0, image.GetWidth(), image.GetHeight());
  if (!settings.Has("rect")) return rect;
  const std::vector<double>& sides = settings.List("rect");
  const auto cut = [](double v, int size) { return static_cast<int>(std::clamp(v, 0.0, static_cast<double>(size))); };
  rect = CRect(cut(sides[0], image.GetWidth()), cut(sides[1], image.GetHeight()), cut(sides[2], image.GetWidth()),
               cut(sides[3], image.GetHeight()));
  if (rect.Width() <= 0 || rect.Height() <= 0)
    throw Failure(kExitUsage, "--rect: holds no pixel of the image, which is " + SizeText(image));
  return rect;
}

void DropLevelKeywords(std::vector<Keyword>& keywords) {
  std::erase_if(keywords,
                [](const Keyword& k) { return k.name.starts_with("CBLACK") || k.name.starts_with("CWHITE"); });
}

void SetLevelKeywords(std::vector<Keyword>& keywords, const CVynImage& image) {
  DropLevelKeywords(keywords);
  const double black = image.GetLevelMin(0);
  const double white = image.GetLevelMax(0);
  for (int p = 0; p < image.GetPlanes(); ++p) {
    if (p > 0 && image.GetLevelMin(p) == black && image.GetLevelMax(p) == white) continue;
    const std::string of = p == 0 ? std::string() : ", plane " + std::to_string(p + 1);
    keywords.push_back(Keyword::Real(LevelKeyword("CBLACK", p), image.GetLevelMin(p), "value shown black" + of));
    keywords.push_back(Keyword::Real(LevelKeyword("CWHITE", p), image.GetLevelMax(p), "value shown white" + of));
  }
}

void DropSkyKeywords(std::vector<Keyword>& keywords) {
  std::erase_if(keywords, [](const Keyword& k) { return IsSkyKeyword(k.name); });
}

void WritePicture(const std::string& path, const CVynImage& image, const std::vector<Keyword>& keywords,
                  const std::string& command) {
  if (IsPng(path))
    WritePngPicture(path, image, IsBottomUp(keywords));
  else
    WriteFitsPicture(path, image, keywords, command);
}

}  // namespace qmr
