#include "host/files/info.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace qmr {
namespace {

using Json = nlohmann::ordered_json;

// The mean of the middle two values, or the middle one. Reorders the values.
double Median(std::vector<float>& values) {
  if (values.empty()) return 0.0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  if (values.size() % 2 == 1) return *middle;
  return (double{*middle} + double{*std::max_element(values.begin(), middle)}) / 2.0;
}

double Noise(const DecodedImage& image, int plane, std::vector<float>& scratch) {
  scratch.clear();
  for (int y = 0; y < image.height; ++y) {
    const float* row = image.Row(plane, y);
    for (int x = 2; x < image.width; ++x) {
      const float difference = std::abs(row[x] - row[x - 2]);
      if (!std::isnan(difference)) scratch.push_back(difference);
    }
  }
  return 1.4826 / std::sqrt(2.0) * Median(scratch);
}

// Header texts may hold any bytes; a terminal and JSON get printable ones.
std::string Shown(const std::string& text) {
  return PrintablePath(text);
}

std::string Number(double value) {
  std::array<char, 40> digits;
  std::snprintf(digits.data(), digits.size(), "%.7g", value);
  return digits.data();
}

struct Told {
  DecodedImage image;
  FrameFacts facts;
  MosaicLayout mosaic;
  std::vector<PlaneStatistics> statistics;
};

FileResult<Told> Tell(const std::string& path, const InfoOptions& options) {
  FileResult<DecodedImage> image = ReadImageFile(path, options.read);
  if (!image) return image.Error();
  Told told{std::move(*image), {}, {}, {}};
  told.facts = ReadFrameFacts(told.image.keywords);
  MosaicQuestion question{told.image.keywords, told.image.height, told.image.planes, std::nullopt, options.bayer};
  if (options.cameraPattern && !told.facts.model.empty()) {
    question.cameraPattern = options.cameraPattern(told.facts.maker, told.facts.model);
  }
  FileResult<MosaicLayout> mosaic = ResolveMosaic(question);
  if (!mosaic) return FileError{path, mosaic.Error().reason, mosaic.Error().kind};
  told.mosaic = *mosaic;
  for (int plane = 0; plane < told.image.planes; ++plane) told.statistics.push_back(MeasurePlane(told.image, plane));
  return told;
}

std::string SampleText(const DecodedImage& image) {
  std::string text = std::to_string(std::abs(image.fileBits));
  text += image.fileBits < 0 ? "-bit floating point" : "-bit integers";
  if (image.bscale != 1.0 || image.bzero != 0.0) {
    text += " (value = " + Number(image.bscale) + " * sample + " + Number(image.bzero) + ")";
  }
  return text;
}

void WriteText(const Told& told, std::ostream& out) {
  const auto line = [&out](const char* label, const std::string& text) {
    if (text.empty()) return;
    std::array<char, 24> head;
    std::snprintf(head.data(), head.size(), "  %-13s", label);
    out << head.data() << text << '\n';
  };
  const DecodedImage& image = told.image;
  const FrameFacts& facts = told.facts;
  out << PrintablePath(image.path) << '\n';
  std::string format = image.format;
  if (image.hdu > 1) format += ", part " + std::to_string(image.hdu);
  line("format", format);
  std::string size = std::to_string(image.width) + " x " + std::to_string(image.height) + " pixels, ";
  size += std::to_string(image.planes) + (image.planes == 1 ? " plane" : " planes");
  line("size", size);
  line("samples", SampleText(image));
  line("type", Shown(facts.imageType));
  line("object", Shown(facts.object));
  line("date", Shown(facts.date));
  if (facts.exposureSeconds) line("exposure", Number(*facts.exposureSeconds) + " s");
  if (facts.temperatureCelsius) line("temperature", Number(*facts.temperatureCelsius) + " C");
  line("camera", Shown(facts.camera));
  if (facts.iso) line("ISO", std::to_string(*facts.iso));
  if (facts.gain) line("gain", Number(*facts.gain));
  if (facts.binningX && facts.binningY) {
    line("binning", std::to_string(*facts.binningX) + " x " + std::to_string(*facts.binningY));
  }
  line("telescope", Shown(facts.telescope));
  line("filter", Shown(facts.filter));
  line("mosaic", Shown(told.mosaic.text));
  const auto number = [&](const char* name) { return KeywordNumber(image.keywords, name); };
  if (const auto black = number("PEDESTAL"), white = number("SATURATE"); image.IsCameraRaw() && black && white)
    line("levels", "black " + Number(*black) + ", white " + Number(*white));
  if (const auto red = number("WB_RED"), blue = number("WB_BLUE"); image.IsCameraRaw() && red && blue)
    line("balance", "red " + Number(*red) + ", blue " + Number(*blue) + " by the camera");
  if (image.blankPixels > 0) line("blank", std::to_string(image.blankPixels) + " pixels without a value");
  std::array<char, 160> row;
  std::snprintf(row.data(), row.size(), "  %-5s %12s %12s %12s %12s %12s %12s %9s\n", "plane", "minimum", "maximum",
                "mean", "median", "deviation", "noise", "blank");
  out << row.data();
  for (std::size_t plane = 0; plane < told.statistics.size(); ++plane) {
    const PlaneStatistics& s = told.statistics[plane];
    std::snprintf(row.data(), row.size(), "  %-5zu %12.7g %12.7g %12.7g %12.7g %12.7g %12.7g %9lld\n", plane, s.minimum,
                  s.maximum, s.mean, s.median, s.deviation, s.noise, static_cast<long long>(s.blank));
    out << row.data();
  }
}

Json ToJson(const Told& told) {
  const DecodedImage& image = told.image;
  const FrameFacts& facts = told.facts;
  const auto known = [](const auto& value) { return value ? Json(*value) : Json(); };
  const auto text = [](const std::string& value) { return value.empty() ? Json() : Json(Shown(value)); };
  Json json;
  json["file"] = PrintablePath(image.path);
  json["format"] = image.format;
  json["hdu"] = image.hdu;
  json["width"] = image.width;
  json["height"] = image.height;
  json["planes"] = image.planes;
  json["bitpix"] = image.fileBits;
  json["bscale"] = image.bscale;
  json["bzero"] = image.bzero;
  json["blankPixels"] = image.blankPixels;
  json["imageType"] = text(facts.imageType);
  json["object"] = text(facts.object);
  json["date"] = text(facts.date);
  json["exposureSeconds"] = known(facts.exposureSeconds);
  json["temperatureCelsius"] = known(facts.temperatureCelsius);
  json["camera"] = text(facts.camera);
  json["iso"] = known(facts.iso);
  json["gain"] = known(facts.gain);
  json["telescope"] = text(facts.telescope);
  json["filter"] = text(facts.filter);
  json["mosaic"] = {{"number", told.mosaic.number},
                    {"pattern", std::string(BayerLetters(told.mosaic.number))},
                    {"text", Shown(told.mosaic.text)}};
  json["statistics"] = Json::array();
  for (const PlaneStatistics& s : told.statistics) {
    // A plane without a single value has no statistics: null, not 0.
    const auto value = [&s](double v) { return s.pixels > 0 ? Json(v) : Json(); };
    json["statistics"].push_back({{"pixels", s.pixels},
                                  {"blank", s.blank},
                                  {"minimum", value(s.minimum)},
                                  {"maximum", value(s.maximum)},
                                  {"mean", value(s.mean)},
                                  {"median", value(s.median)},
                                  {"deviation", value(s.deviation)},
                                  {"noise", value(s.noise)}});
  }
  return json;
}

}  // namespace

PlaneStatistics MeasurePlane(const DecodedImage& image, int plane) {
  PlaneStatistics statistics;
  std::vector<float> values;
  values.reserve(image.PlanePixels());
  double sum = 0.0;
  for (const float value : image.Plane(plane)) {
    if (std::isnan(value)) continue;
    values.push_back(value);
    sum += value;
  }
  statistics.pixels = static_cast<std::int64_t>(values.size());
  statistics.blank = static_cast<std::int64_t>(image.PlanePixels() - values.size());
  if (values.empty()) return statistics;
  const auto [least, greatest] = std::minmax_element(values.begin(), values.end());
  statistics.minimum = *least;
  statistics.maximum = *greatest;
  statistics.mean = sum / static_cast<double>(values.size());
  double squares = 0.0;
  for (const float value : values) squares += (value - statistics.mean) * (value - statistics.mean);
  statistics.deviation = std::sqrt(squares / static_cast<double>(values.size()));
  statistics.median = Median(values);
  statistics.noise = Noise(image, plane, values);
  return statistics;
}

int WriteInfo(const std::vector<std::string>& paths, const InfoOptions& options, std::ostream& out,
              std::ostream& errors) {
  int failed = 0;
  Json all = Json::array();
  bool first = true;
  for (const std::string& path : paths) {
    const FileResult<Told> told = Tell(path, options);
    if (!told) {
      ++failed;
      errors << told.Error().Message() << '\n';
      if (options.json) all.push_back({{"file", PrintablePath(path)}, {"error", Shown(told.Error().reason)}});
      continue;
    }
    if (options.json) {
      all.push_back(ToJson(*told));
    } else {
      if (!first) out << '\n';
      WriteText(*told, out);
      first = false;
    }
  }
  if (options.json) out << all.dump(2) << '\n';
  return failed;
}

}  // namespace qmr
