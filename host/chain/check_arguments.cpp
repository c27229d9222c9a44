#include "host/chain/check_arguments.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

namespace qmr {
namespace {

constexpr std::size_t kNone = std::wstring_view::npos;

// A key as it is written, for all planes or for one.
struct KeyForm {
  std::wstring name;
  const CommandKey* key;
  std::optional<std::size_t> plane;
};

std::vector<KeyForm> FormsOf(const Command& command) {
  std::vector<KeyForm> forms;
  for (const CommandKey& key : command.keys) {
    if (key.alone) forms.push_back({std::wstring(key.name), &key, std::nullopt});
    for (std::size_t p = 0; p < key.planes.size(); ++p) forms.push_back({KeyOfPlane(key, p), &key, p});
  }
  return forms;
}

// The limits of the sharpening, which a key of its own switches on.
struct Limit {
  const CommandKey& key;
  const CommandKey* ramp;
};
constexpr Limit kLimits[] = {
    {command_keys::kThresholdMin, &command_keys::kThresholdMinBuf},
    {command_keys::kThresholdMax, &command_keys::kThresholdMaxBuf},
    {command_keys::kBrighter, nullptr},
};

bool IsLimit(const CommandKey& key) {
  return std::any_of(std::begin(kLimits), std::end(kLimits), [&](const Limit& l) { return l.key.name == key.name; });
}

// `KEY=value` as one would read it; the form is null for an unknown key.
struct Argument {
  std::wstring_view key;
  std::wstring_view value;
  const KeyForm* form;
};

class ArgumentChecker {
 public:
  ArgumentChecker(std::wstring_view args, const Command& command, RemarkList& remarks)
      : args_(args), command_(command), remarks_(remarks), forms_(FormsOf(command)) {}

  void Read();
  void CheckEach();
  // Keys are found within other words too. Whether any has a value.
  bool CheckFound();

 private:
  void Warn(std::wstring_view at, std::string text) { remarks_.Say(at, Weight::kWarning, std::move(text)); }
  std::wstring_view WordAt(std::size_t first) const {
    const std::wstring_view rest = args_.substr(std::min(first, args_.size()));
    return rest.substr(0, rest.find_first_of(kBlanks));
  }
  std::size_t NextAt(std::size_t first) const {
    return std::min(args_.find_first_not_of(kBlanks, first), args_.size());
  }
  // What becomes of a key whose value is not read.
  std::string WithoutValue(const Argument& argument) const;
  // Where the value is missing at `end`; gives the place to go on from.
  std::size_t SayMissing(const Argument& argument, std::size_t end);
  void SayUnknown(std::wstring_view key);
  void SayUnread(const Argument& argument);
  void CheckNumber(std::wstring_view value, KeyKind kind);
  void CheckLimit(const Argument& argument);

  std::wstring_view args_;
  const Command& command_;
  RemarkList& remarks_;
  std::vector<KeyForm> forms_;
  std::vector<Argument> arguments_;
};

void ArgumentChecker::Read() {
  bool comment = false;
  for (std::size_t i = NextAt(0); i < args_.size(); i = NextAt(i)) {
    const std::wstring_view word = WordAt(i);
    if (!comment && (word.starts_with(L"#") || word.starts_with(L"//"))) {
      comment = true;
      Warn(word, "the language has no comments: keys behind this count");
    }
    const std::wstring_view key = word.substr(0, word.find(L'='));
    const std::size_t equals = key.size() < word.size() ? i + key.size() : NextAt(i + key.size());
    if (equals == args_.size() || args_[equals] != L'=') {
      if (!comment) Warn(word, "ignored: " + Quoted(word) + " has no '='");
      i += word.size();
      continue;
    }
    const auto form = std::find_if(forms_.begin(), forms_.end(), [&](const KeyForm& f) { return f.name == key; });
    const Argument argument{key, args_.substr(equals + 1, WordAt(equals + 1).size()),
                            form == forms_.end() ? nullptr : &*form};
    if (!comment || argument.form) arguments_.push_back(argument);
    i = equals + 1 + argument.value.size();
    if (argument.value.empty()) i = SayMissing(argument, i);
  }
}

std::string ArgumentChecker::WithoutValue(const Argument& argument) const {
  const bool on = argument.form && IsLimit(*argument.form->key) && HasKey(args_, argument.key);
  return on ? "switches its limit on, with the default value" : "counts as not given";
}

std::size_t ArgumentChecker::SayMissing(const Argument& argument, std::size_t end) {
  const std::size_t next = NextAt(end);
  const std::wstring_view word = WordAt(next);
  const std::size_t behind = NextAt(next + word.size());
  const bool isKey = word.find(L'=') != kNone || (behind < args_.size() && args_[behind] == L'=');
  if (word.empty() || isKey) {
    Warn(argument.value, Quoted(argument.key) + " has no value: it " + WithoutValue(argument));
    return end;
  }
  Warn(argument.value, "the value has to stand right behind '=': " + Quoted(word) + " is ignored, and " +
                           Quoted(argument.key) + " " + WithoutValue(argument));
  return next + word.size();
}

void ArgumentChecker::CheckEach() {
  for (const Argument& argument : arguments_) {
    if (!argument.form) {
      SayUnknown(argument.key);
      continue;
    }
    if (ReadValue(args_, argument.key).data() != argument.value.data())
      SayUnread(argument);
    else if (!argument.value.empty())
      CheckNumber(argument.value, argument.form->key->kind);
    CheckLimit(argument);
  }
}

void ArgumentChecker::SayUnknown(std::wstring_view key) {
  if (key.empty()) return Warn(key, "no key stands before '='");
  std::string text = "no such key: " + Quoted(key);
  for (const KeyForm& form : forms_) {
    if (SameText(form.name, key)) return Warn(key, text + ", keys are written in upper case: " + NarrowUtf8(form.name));
  }
  const bool plane = key.size() > 2 && key[key.size() - 2] == L'_' && kPlaneLetters.find(key.back()) != kNone;
  const auto isWhole = [&](const CommandKey& k) { return k.alone && k.name == key.substr(0, key.size() - 2); };
  if (plane && std::any_of(command_.keys.begin(), command_.keys.end(), isWhole)) {
    const std::string whole = NarrowUtf8(key.substr(0, key.size() - 2));
    text += command_.kind == CommandKind::kLevel ? ", blue takes the levels of " + whole + "_G"
                                                 : ", " + whole + " has no form for a single plane";
  } else {
    text += remarks_.Suggestion(key, forms_);
  }
  Warn(key, std::move(text));
}

// The key stands twice, or is met first where it does not count.
void ArgumentChecker::SayUnread(const Argument& argument) {
  const auto first = std::find_if(arguments_.begin(), arguments_.end(),
                                  [&](const Argument& other) { return other.key == argument.key; });
  if (&*first != &argument)
    return Warn(argument.key, "ignored: " + Quoted(argument.key) + " stands before, and the first counts");
  const std::size_t at = args_.find(argument.key);
  const std::size_t begin = args_.find_last_of(kBlanks, at) + 1;
  Warn(argument.key, Quoted(argument.key) + " is looked for from the left and met within " + Quoted(WordAt(begin)) +
                         ": it " + WithoutValue(argument) + "; write it before that word");
}

void ArgumentChecker::CheckNumber(std::wstring_view value, KeyKind kind) {
  if (kind != KeyKind::kNumber && kind != KeyKind::kRadius) return;
  const ParsedNumber number = ParseNumber(value);
  if (number.length == 0) {
    Warn(value, Quoted(value) + " is no number and counts as 0");
  } else if (number.length < value.size()) {
    const std::string hint = value[number.length] == L',' ? "; decimals stand behind a point" : "";
    Warn(value, "of " + Quoted(value) + " only " + Quoted(value.substr(0, number.length)) + " counts" + hint);
  } else if (std::isinf(number.value)) {
    Warn(value, Quoted(value) + " is beyond the range of numbers");
  }
  if (kind == KeyKind::kRadius && !(number.value >= kLeastRadius && number.value <= kGreatestRadius)) {
    Warn(value,
         std::string("a radius lies between 0.1 and 50: ") + (number.value < kLeastRadius ? "0.1" : "50") + " is used");
  }
}

void ArgumentChecker::CheckLimit(const Argument& argument) {
  const KeyForm& form = *argument.form;
  if (IsLimit(*form.key) && !HasKey(args_, argument.key))
    Warn(argument.key, "the limit stays off: at most one blank may stand between " + Quoted(argument.key) + " and '='");
  for (const Limit& limit : kLimits) {
    if (!limit.ramp || form.key->name != limit.ramp->name) continue;
    bool on = HasKey(args_, limit.key.name);
    for (std::size_t p = 0; p < kPlaneLetters.size(); ++p)
      on = on || (form.plane.value_or(p) == p && HasKey(args_, KeyOfPlane(limit.key, p)));
    if (!on) Warn(argument.key, "no effect without " + NarrowUtf8(limit.key.name) + ", whose ramp it is");
  }
}

bool ArgumentChecker::CheckFound() {
  bool any = false;
  for (const KeyForm& form : forms_) {
    const std::wstring_view value = ReadValue(args_, form.name);
    any = any || !value.empty();
    const bool stands = std::any_of(arguments_.begin(), arguments_.end(), [&](const Argument& argument) {
      return argument.form == &form && argument.value.data() == value.data();
    });
    if (value.data() && !stands)
      Warn(value, "this counts as the value of " + NarrowUtf8(form.name) + ", which ends the word before");
  }
  return any;
}

}  // namespace

bool CheckArguments(const StatementParts& parts, const Command& command, RemarkList& remarks) {
  ArgumentChecker checker(parts.arguments, command, remarks);
  checker.Read();
  checker.CheckEach();
  return checker.CheckFound();
}

}  // namespace qmr
