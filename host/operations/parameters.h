// What an operation can be told: declared row by row, read from the user's words, checked against the declaration.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qmr {

enum class ValueKind {
  kNumber,
  kWhole,
  kRank,            // a place in a sorted window: a whole number from 0, a share of the way ("25%"), min, median or max
  kFractionalRank,  // the same, fractions allowed
  kPoint,           // a point of a curve, "IN:OUT"; two values, both in the range
  kChoice,          // one of a few words; its value is the word's number
  kSwitch           // given or not
};

// How many values a parameter takes; a list is separated by commas.
enum class ValueCount {
  kOne,
  kPlanes,   // one, or one a plane
  kScales,   // one, or one a scale of a pyramid, as many as the parameter "scales" says
  kUpToSix,  // one to six
  kTwo,      // exactly that many
  kThree,
  kNine,
  kRectangle,  // exactly four
  kLevels,     // two, or two a plane
  kSquare,     // as many as a square of odd side has
  kAny         // one or more
};

struct Parameter {
  std::string_view key;      // without the dashes
  std::string_view meaning;  // what it does, one line
  std::string_view unit = {};
  ValueKind kind = ValueKind::kNumber;
  ValueCount count = ValueCount::kOne;
  // Both ends are allowed. Ranks have their range from the window, choices and switches from their kind.
  double least = 0.0;
  double most = 0.0;
  std::string_view fallback = {};  // as the user would write it; empty: without it the parameter is not in force
  bool required = false;
  bool mayBeNone = false;      // "none" stands for a value that is not in force
  std::string_view with = {};  // the parameter without which this one means nothing
  std::vector<std::string_view> choices = {};
  std::string_view range = {};  // said instead of the range
};

Parameter Switch(std::string_view key, std::string_view meaning);

// "Width of the Gaussian, pixels; 0 to 200, default 2; one value or one a plane"
std::string Describe(const Parameter& parameter);
// What stands behind the key in a help text: "N[,N,N]". Empty for a switch.
std::string ValueForm(const Parameter& parameter);

// A number in its shortest form that reads back as itself, never with an exponent where it can be helped.
std::string NumberText(double value);
// Eight digits of it.
double Rounded(double value);

// The values of all parameters of one operation. What is wrong with the user's words is a Failure with kExitUsage that
// names the parameter.
class Settings {
 public:
  // Number of pixels in the sorted window that the settings describe for that plane.
  using RankCount = int (*)(const Settings& settings, int plane);

  // All parameters have their defaults. The rows must outlive the object.
  explicit Settings(std::vector<const Parameter*> parameters);

  // The user's words for one parameter.
  void Read(const Parameter& parameter, const std::string& words);
  // Checks what one parameter alone can't tell, and makes ranks numbers. Values may be asked for afterwards. `ranks`
  // may be null when no parameter is a rank.
  void Finish(int planes, RankCount ranks);

  // Gives a parameter values that were found, rounded to what a header line can hold, so that the line gives the same.
  void Set(std::string_view key, const std::vector<double>& values);

  int Planes() const { return planes_; }
  // Whether the parameter has any value that is not "none".
  bool Has(std::string_view key) const;
  double Number(std::string_view key) const;
  int Whole(std::string_view key) const;
  bool On(std::string_view key) const;
  // The values as they were given; a point's are two.
  const std::vector<double>& List(std::string_view key) const;
  // A value a plane, not-a-number where it is none.
  std::vector<double> PerPlane(std::string_view key) const;
  std::vector<int> PerPlaneWhole(std::string_view key) const;
  // `count` values: the one value repeated, or the list filled up with `filler`.
  std::vector<double> Repeated(std::string_view key, std::size_t count) const;

  // The command line that gives these values: "--sigma 2 --mask-min 30,none,none".
  std::string Text() const;

 private:
  struct Entry {
    const Parameter* parameter;
    std::vector<std::string> words;
    std::vector<double> values;
    bool given = false;
  };
  const Entry& At(std::string_view key) const;
  void CheckCount(const Entry& entry) const;
  void ResolveRanks(Entry& entry, RankCount ranks) const;

  std::vector<Entry> entries_;
  int planes_ = 0;
};

}  // namespace qmr
