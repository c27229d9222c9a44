#include "host/operations/parameters.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <optional>
#include <stdexcept>

#include "host/files/file_error.h"
#include "host/files/keyword.h"
#include "host/night/failure.h"

namespace qmr {
namespace {

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

[[noreturn]] void Refuse(const Parameter& parameter, const std::string& wanted, std::string_view got) {
  throw Failure(kExitUsage, "--" + std::string(parameter.key) + ": " + wanted + ", not '" + PrintablePath(got) + "'");
}

std::vector<std::string> Split(std::string_view text) {
  std::vector<std::string> words;
  for (;;) {
    const auto comma = text.find(',');
    words.emplace_back(TrimBlanks(text.substr(0, comma)));
    if (comma == std::string_view::npos) return words;
    text.remove_prefix(comma + 1);
  }
}

bool IsRank(const Parameter& parameter) {
  return parameter.kind == ValueKind::kRank || parameter.kind == ValueKind::kFractionalRank;
}

std::string Joined(const std::vector<std::string_view>& words) {
  std::string text;
  for (const std::string_view word : words) (text += text.empty() ? "" : ", ") += word;
  return text;
}

std::string RangeText(const Parameter& parameter) {
  return NumberText(parameter.least) + " to " + NumberText(parameter.most);
}

// The rank that a word names in a window of `count` pixels; empty when it names none.
std::optional<double> RankOf(const Parameter& parameter, std::string_view word, int count) {
  const bool whole = parameter.kind == ValueKind::kRank;
  const double last = count - 1;
  if (word == "min") return 0.0;
  if (word == "max") return last;
  if (word == "median") return static_cast<double>(count / 2);
  const bool share = word.ends_with('%');
  if (share) word.remove_suffix(1);
  std::optional<double> value = ParseNumber(word);
  if (!value || *value < 0.0) return std::nullopt;
  if (share) {
    if (*value > 100.0) return std::nullopt;
    value = *value / 100.0 * last;
    return whole ? std::round(*value) : *value;
  }
  return whole && *value != std::floor(*value) ? std::nullopt : value;
}

double ValueOf(const Parameter& parameter, std::string_view word) {
  if (parameter.mayBeNone && word == "none") return kNone;
  if (parameter.kind == ValueKind::kChoice) {
    const auto found = std::find(parameter.choices.begin(), parameter.choices.end(), word);
    if (found == parameter.choices.end()) Refuse(parameter, "one of " + Joined(parameter.choices), word);
    return static_cast<double>(found - parameter.choices.begin());
  }
  if (IsRank(parameter)) {
    // The window is not known yet; here only the form counts.
    const std::optional<double> rank = RankOf(parameter, word, std::numeric_limits<int>::max());
    if (!rank) Refuse(parameter, "a rank from 0, a share such as 25%, min, median or max", word);
    return *rank;
  }
  const bool whole = parameter.kind == ValueKind::kWhole;
  const std::optional<double> value = ParseNumber(word);
  if (!value || (whole && *value != std::floor(*value)))
    Refuse(parameter, std::string(whole ? "a whole number" : "a number") + (parameter.mayBeNone ? " or none" : ""),
           word);
  if (*value < parameter.least || *value > parameter.most) Refuse(parameter, RangeText(parameter), word);
  return *value;
}

void AddPoint(const Parameter& parameter, std::string_view word, std::vector<double>& values) {
  const auto colon = word.find(':');
  if (colon == std::string_view::npos) Refuse(parameter, "points IN:OUT", word);
  values.push_back(ValueOf(parameter, TrimBlanks(word.substr(0, colon))));
  values.push_back(ValueOf(parameter, TrimBlanks(word.substr(colon + 1))));
}

// What is wrong with a list of that length when the image is not known yet; null when nothing is.
const char* WrongLength(ValueCount count, std::size_t length) {
  const auto side = static_cast<std::size_t>(std::lround(std::sqrt(static_cast<double>(length))));
  switch (count) {
    case ValueCount::kOne:
      return length == 1 ? nullptr : "one value";
    case ValueCount::kUpToSix:
      return length <= 6 ? nullptr : "up to six values";
    case ValueCount::kTwo:
      return length == 2 ? nullptr : "two values";
    case ValueCount::kThree:
      return length == 3 ? nullptr : "three values";
    case ValueCount::kNine:
      return length == 9 ? nullptr : "nine values";
    case ValueCount::kRectangle:
      return length == 4 ? nullptr : "four values";
    case ValueCount::kLevels:
      return length % 2 == 0 ? nullptr : "two values, or two a plane";
    case ValueCount::kSquare:
      return side * side == length && side % 2 == 1 ? nullptr : "1, 9, 25, ... values, a square of odd side";
    default:
      return nullptr;
  }
}

}  // namespace

std::string NumberText(double value) {
  std::array<char, 400> digits;
  const bool plain = std::fabs(value) < 1e15 && (std::fabs(value) > 1e-6 || value == 0.0);
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value,
                                 plain ? std::chars_format::fixed : std::chars_format::general)
                       .ptr;
  return {digits.data(), end};
}

double Rounded(double value) {
  std::array<char, 40> text;
  std::snprintf(text.data(), text.size(), "%.8g", value);
  return std::strtod(text.data(), nullptr);
}

Parameter Switch(std::string_view key, std::string_view meaning) {
  return {.key = key, .meaning = meaning, .kind = ValueKind::kSwitch};
}

std::string ValueForm(const Parameter& parameter) {
  if (parameter.kind == ValueKind::kSwitch) return {};
  const std::string one = parameter.kind == ValueKind::kChoice  ? "WORD"
                          : parameter.kind == ValueKind::kPoint ? "IN:OUT"
                          : IsRank(parameter)                   ? "RANK"
                                                                : "N";
  switch (parameter.count) {
    case ValueCount::kPlanes:
      return one + "[," + one + "," + one + "]";
    case ValueCount::kTwo:
      return one + "," + one;
    case ValueCount::kThree:
      return one + "," + one + "," + one;
    case ValueCount::kNine:
      return "RR,RG,RB,GR,GG,GB,BR,BG,BB";
    case ValueCount::kRectangle:
      return "LEFT,TOP,RIGHT,BOTTOM";
    case ValueCount::kLevels:
      return "MIN,MAX[,...]";
    case ValueCount::kOne:
      return one;
    default:
      return one + "[," + one + "...]";
  }
}

std::string Describe(const Parameter& parameter) {
  std::string text(parameter.meaning);
  if (!parameter.unit.empty()) text += ", " + std::string(parameter.unit);
  if (parameter.kind == ValueKind::kSwitch) return text;
  text += "; ";
  if (!parameter.range.empty())
    text += parameter.range;
  else if (parameter.kind == ValueKind::kChoice)
    text += Joined(parameter.choices);
  else if (IsRank(parameter))
    text += "0 to the window's pixels less 1, a share such as 25%, min, median or max";
  else
    text += RangeText(parameter);
  if (parameter.mayBeNone) text += " or none";
  if (!parameter.fallback.empty()) text += ", default " + std::string(parameter.fallback);
  if (parameter.required) text += ", must be given";
  if (parameter.count == ValueCount::kPlanes) text += "; one value or one a plane";
  if (parameter.count == ValueCount::kScales) text += "; one value or one a scale, the finest first";
  if (parameter.count == ValueCount::kUpToSix) text += "; up to six values";
  return text;
}

Settings::Settings(std::vector<const Parameter*> parameters) {
  for (const Parameter* parameter : parameters) {
    entries_.push_back({parameter, {}, {}, false});
    if (parameter->fallback.empty()) continue;
    Read(*parameter, std::string(parameter->fallback));
    entries_.back().given = false;
  }
}

void Settings::Read(const Parameter& parameter, const std::string& words) {
  const auto entry =
      std::find_if(entries_.begin(), entries_.end(), [&](const Entry& e) { return e.parameter == &parameter; });
  if (entry == entries_.end()) throw std::logic_error("a parameter of another operation");
  entry->given = true;
  entry->values.clear();
  if (parameter.kind == ValueKind::kSwitch) {
    entry->values.push_back(1.0);
    return;
  }
  entry->words = Split(words);
  if (const char* wanted = WrongLength(parameter.count, entry->words.size())) Refuse(parameter, wanted, words);
  for (const std::string& word : entry->words) {
    if (parameter.kind == ValueKind::kPoint)
      AddPoint(parameter, word, entry->values);
    else
      entry->values.push_back(ValueOf(parameter, word));
  }
}

void Settings::Set(std::string_view key, const std::vector<double>& values) {
  std::vector<double>& own = entries_[static_cast<std::size_t>(&At(key) - entries_.data())].values;
  own.clear();
  for (const double value : values) {
    if (!std::isfinite(value))
      throw Failure(kExitBadData,
                    "its infinite values leave nothing to find; --" + std::string(key) + " must be given");
    own.push_back(Rounded(value));
  }
}

void Settings::CheckCount(const Entry& entry) const {
  const std::size_t given = entry.values.size();
  const auto planes = static_cast<std::size_t>(planes_);
  std::size_t most = given;
  const char* each = "plane";
  switch (entry.parameter->count) {
    case ValueCount::kPlanes:
      most = planes;
      break;
    case ValueCount::kLevels:
      if (given == 2) return;
      most = 2 * planes;
      break;
    case ValueCount::kScales:
      most = static_cast<std::size_t>(Whole("scales"));
      each = "scale";
      break;
    default:
      return;
  }
  if (given == 1 || given == most) return;
  const std::string wanted = entry.parameter->count == ValueCount::kLevels ? "two values" : "one value";
  throw Failure(kExitUsage,
                "--" + std::string(entry.parameter->key) + ": " + wanted +
                    (most > 2 || planes > 1 ? " or " + std::to_string(most) + " (each " + each + "'s)" : "") +
                    ", not " + std::to_string(given));
}

void Settings::ResolveRanks(Entry& entry, RankCount ranks) const {
  entry.values.clear();
  for (int p = 0; p < planes_; ++p) {
    const std::string& word = entry.words[std::min(static_cast<std::size_t>(p), entry.words.size() - 1)];
    const int count = ranks(*this, p);
    const double rank = RankOf(*entry.parameter, word, count).value_or(0.0);
    if (rank > count - 1)
      Refuse(*entry.parameter,
             "0 to " + std::to_string(count - 1) + ", as the window has " + std::to_string(count) + " pixels", word);
    entry.values.push_back(rank);
  }
}

void Settings::Finish(int planes, RankCount ranks) {
  planes_ = planes;
  for (const Entry& entry : entries_) {
    const Parameter& parameter = *entry.parameter;
    if (parameter.required && entry.values.empty())
      throw Failure(kExitUsage, "--" + std::string(parameter.key) + ": must be given");
    if (entry.given && !parameter.with.empty() && !Has(parameter.with))
      throw Failure(kExitUsage,
                    "--" + std::string(parameter.key) + ": means nothing without --" + std::string(parameter.with));
    if (!entry.values.empty()) CheckCount(entry);
  }
  for (Entry& entry : entries_)
    if (IsRank(*entry.parameter)) ResolveRanks(entry, ranks);
}

const Settings::Entry& Settings::At(std::string_view key) const {
  const auto entry =
      std::find_if(entries_.begin(), entries_.end(), [&](const Entry& e) { return e.parameter->key == key; });
  if (entry == entries_.end()) throw std::logic_error("no parameter " + std::string(key));
  return *entry;
}

bool Settings::Has(std::string_view key) const {
  const std::vector<double>& values = At(key).values;
  return std::any_of(values.begin(), values.end(), [](double v) { return !std::isnan(v); });
}

double Settings::Number(std::string_view key) const {
  const std::vector<double>& values = At(key).values;
  return values.empty() ? kNone : values.front();
}

int Settings::Whole(std::string_view key) const {
  const double value = Number(key);
  return std::isnan(value) ? 0 : static_cast<int>(value);
}

bool Settings::On(std::string_view key) const {
  return !At(key).values.empty();
}

const std::vector<double>& Settings::List(std::string_view key) const {
  return At(key).values;
}

std::vector<double> Settings::Repeated(std::string_view key, std::size_t count) const {
  std::vector<double> values = At(key).values;
  values.resize(count, values.empty() ? kNone : values.back());
  return values;
}

std::vector<double> Settings::PerPlane(std::string_view key) const {
  return Repeated(key, static_cast<std::size_t>(planes_));
}

std::vector<int> Settings::PerPlaneWhole(std::string_view key) const {
  std::vector<int> whole;
  for (const double value : PerPlane(key)) whole.push_back(std::isnan(value) ? 0 : static_cast<int>(value));
  return whole;
}

std::string Settings::Text() const {
  std::string text;
  for (const Entry& entry : entries_) {
    const Parameter& parameter = *entry.parameter;
    if (entry.values.empty() || (!parameter.with.empty() && !Has(parameter.with))) continue;
    text += (text.empty() ? "--" : " --") + std::string(parameter.key);
    if (parameter.kind == ValueKind::kSwitch) continue;
    std::vector<std::string> words;
    for (const double value : entry.values) {
      if (std::isnan(value))
        words.emplace_back("none");
      else if (parameter.kind == ValueKind::kChoice)
        words.emplace_back(parameter.choices[static_cast<std::size_t>(value)]);
      else
        words.push_back(NumberText(value));
    }
    // One value stands for all planes.
    const bool same = std::all_of(words.begin(), words.end(), [&](const std::string& w) { return w == words[0]; });
    if (same && (parameter.count == ValueCount::kPlanes || IsRank(parameter))) words.resize(1);
    const bool points = parameter.kind == ValueKind::kPoint;
    for (std::size_t i = 0; i < words.size(); ++i) text += (i == 0 ? " " : points && i % 2 == 1 ? ":" : ",") + words[i];
  }
  return text;
}

}  // namespace qmr
