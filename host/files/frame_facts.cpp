#include <array>
#include <cmath>
#include <initializer_list>
#include <limits>

#include "host/files/image_file.h"

namespace qmr {
namespace {

using Names = std::initializer_list<std::string_view>;

std::optional<double> FirstNumber(std::span<const Keyword> keywords, Names names) {
  for (const std::string_view name : names) {
    if (const auto number = KeywordNumber(keywords, name)) return number;
  }
  return std::nullopt;
}

std::string FirstText(std::span<const Keyword> keywords, Names names) {
  for (const std::string_view name : names) {
    if (auto text = KeywordText(keywords, name)) return *text;
  }
  return {};
}

std::optional<int> Whole(std::optional<double> number, int least, int most) {
  if (!number || !(*number >= least && *number <= most)) return std::nullopt;
  return static_cast<int>(std::lround(*number));
}

// Seconds, or a fraction as digital cameras write it: "1/250".
std::optional<double> ExposureSeconds(std::span<const Keyword> keywords) {
  static constexpr std::array<std::string_view, 4> kNames = {"EXPTIME", "EXPOSURE", "EXP_TIME", "EXPOSTIM"};
  for (const std::string_view name : kNames) {
    std::optional<double> seconds = KeywordNumber(keywords, name);
    if (const auto text = KeywordText(keywords, name); !seconds && text) {
      const auto slash = text->find('/');
      if (slash == std::string::npos) continue;
      const auto over = ParseNumber(std::string_view(*text).substr(0, slash));
      const auto under = ParseNumber(std::string_view(*text).substr(slash + 1));
      if (over && under && *under > 0.0) seconds = *over / *under;
    }
    if (seconds && *seconds >= 0.0) return seconds;
  }
  return std::nullopt;
}

std::optional<double> Temperature(std::span<const Keyword> keywords) {
  std::optional<double> degrees = FirstNumber(
      keywords, {"CCD-TEMP", "CCDTEMP", "CCD_TEMP", "DET-TEMP", "SENSTEMP", "TEMPERAT", "CAMTEMP", "SET-TEMP"});
  if (!degrees) return std::nullopt;
  // No camera runs above 100 degrees: such a figure is in kelvin.
  if (*degrees > 150.0 && *degrees < 400.0) *degrees -= 273.15;
  return *degrees > -273.15 && *degrees < 150.0 ? degrees : std::nullopt;
}

struct MakerForm {
  std::string_view name;  // as the maker stands in front of the model
  bool keepsName;         // whether the model of the camera lists repeats it
};
// The lists of camera identification hold bare model names, except those of Nikon.
constexpr MakerForm kMakers[] = {
    {"CANON", false},    {"NIKON CORPORATION", false}, {"NIKON", true},           {"PENTAX", false},
    {"FUJIFILM", false}, {"OLYMPUS", false},           {"KONICA MINOLTA", false}, {"SONY", false}};

void SplitCamera(FrameFacts& facts, std::span<const Keyword> keywords) {
  const std::string& camera = facts.camera;
  const std::string upper = UpperCase(camera);
  for (const MakerForm& form : kMakers) {
    if (!upper.starts_with(form.name) || upper.size() <= form.name.size() || upper[form.name.size()] != ' ') continue;
    // A word such as "Canon adapter" in front of nothing else names no model; digits or a dash do.
    const std::string_view rest = TrimBlanks(std::string_view(camera).substr(form.name.size()));
    if (rest.find_first_of("0123456789-*") == std::string_view::npos) continue;
    facts.maker = camera.substr(0, form.name.size());
    facts.model = form.keepsName ? camera : std::string(rest);
    return;
  }
  const std::string maker = FirstText(keywords, {"MAKE", "CAMMAKER"});
  const std::string model = FirstText(keywords, {"MODEL", "CAMMODEL"});
  if (maker.empty() || model.empty()) return;
  for (const MakerForm& form : kMakers) {
    if (UpperCase(maker).starts_with(form.name)) {
      facts.maker = maker;
      facts.model = model;
      return;
    }
  }
}

}  // namespace

FrameFacts ReadFrameFacts(std::span<const Keyword> keywords) {
  FrameFacts facts;
  facts.exposureSeconds = ExposureSeconds(keywords);
  facts.temperatureCelsius = Temperature(keywords);
  facts.gain = FirstNumber(keywords, {"GAIN", "CCDGAIN"});
  facts.iso = Whole(FirstNumber(keywords, {"ISOSPEED", "ISO", "ISOSPD", "PHOTOSEN"}), 1, 1 << 24);
  facts.binningX = Whole(FirstNumber(keywords, {"XBINNING", "CCDXBIN", "BINX"}), 1, 1024);
  facts.binningY = Whole(FirstNumber(keywords, {"YBINNING", "CCDYBIN", "BINY"}), 1, 1024);
  facts.camera = FirstText(keywords, {"INSTRUME", "CAMERA", "DETECTOR", "DETNAM", "MODEL"});
  facts.telescope = FirstText(keywords, {"TELESCOP"});
  facts.object = FirstText(keywords, {"OBJECT"});
  facts.filter = FirstText(keywords, {"FILTER", "FILTER1", "FILTNAM", "INSFLNAM"});
  facts.date = FirstText(keywords, {"DATE-OBS", "DATE_OBS", "DATE-BEG", "DATE"});
  facts.imageType = FirstText(keywords, {"IMAGETYP", "FRAME", "FRAMETYP", "OBSTYPE"});
  // The date alone is the older form; the time then stands beside it.
  if (facts.date.size() == 10 && facts.date.find('T') == std::string::npos) {
    if (const std::string time = FirstText(keywords, {"TIME-OBS", "UT-OBS", "UTC", "UT"}); time.find(':') == 2) {
      facts.date += "T" + time;
    }
  }
  SplitCamera(facts, keywords);
  return facts;
}

}  // namespace qmr
