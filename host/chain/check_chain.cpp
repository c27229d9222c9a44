#include "host/chain/check_chain.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <utility>

#include "host/chain/check_arguments.h"
#include "host/chain/remark_list.h"
#include "qmrimg/command/command_text.h"
#include "qmrimg/platform/text.h"

namespace qmr {
namespace {

constexpr std::size_t kNone = std::wstring_view::npos;
constexpr wchar_t kByteOrderMark = 0xFEFF;

// Characters that look like a blank, `=` or `;` and are none to the parser.
constexpr std::wstring_view kLookAlikes = L"\u00A0\u2002\u2003\u2007\u2009\u202F\u3000\uFF1B\uFF1D";

class Checker {
 public:
  explicit Checker(std::wstring_view text) : text_(text), remarks_(text) {}

  void CheckCharacters(std::string_view utf8);
  void CheckStatements();
  std::vector<ChainRemark> Remarks() && { return std::move(remarks_).Sorted(); }

 private:
  // What an image holds: the pixels of a step, counted from 1, or those that the chain began with; and where the
  // command stands that has set its levels from its pixels.
  struct Content {
    int step = 0;
    int line = 0;
    const wchar_t* autoLevel = nullptr;
  };

  void SayInvalid(std::wstring_view statement);
  void SayUnknownCommand(std::wstring_view name);
  void CheckCommand(const StatementParts& parts, const Command& command);
  // Whether there is a method, so that the step writes pixels.
  bool CheckMethod(const StatementParts& parts);
  // Follow the images; the first gives what happens to pixels when a step swaps them and writes none.
  std::string SwapAlone();
  void SwapAndWrite(std::wstring_view at);

  std::wstring_view text_;
  RemarkList remarks_;
  Content image_;
  Content temp_;
  int steps_ = 0;
  // The last command that sets levels from pixels, unless levels were given behind it.
  std::wstring_view autoLevel_;
};

void Checker::CheckCharacters(std::string_view utf8) {
  const std::size_t nul = text_.find(L'\0');
  if (nul != kNone)
    remarks_.Say(text_.substr(nul), Weight::kError, "a NUL character, where other programs take the text to end");
  std::size_t byte = 0;
  for (std::size_t i = 0; i < text_.size(); ++i) {
    const std::string encoded = NarrowUtf8(text_.substr(i, 1));
    if (!utf8.substr(byte).starts_with(encoded))
      return remarks_.Say(text_.substr(i), Weight::kError, "the text is no UTF-8 here");
    byte += encoded.size();
  }
}

void Checker::CheckStatements() {
  StatementReader statements(text_);
  while (const auto statement = statements.Next()) {
    const std::size_t alike = statement->find_first_of(kLookAlikes);
    if (alike != kNone) {
      char code[16];
      std::snprintf(code, sizeof code, "U+%04X", static_cast<unsigned>((*statement)[alike]));
      remarks_.Say(statement->substr(alike), Weight::kWarning,
                   std::string(code) + " is not the blank, '=' or ';' that it looks like");
    }
    const auto parts = SplitStatement(*statement);
    const Command* command = parts ? FindCommand(parts->name) : nullptr;
    if (!parts)
      SayInvalid(*statement);
    else if (!command)
      SayUnknownCommand(parts->name);
    else
      CheckCommand(*parts, *command);
  }
  if (image_.autoLevel != autoLevel_.data())
    remarks_.Say(autoLevel_, Weight::kWarning,
                 "the result does not get these levels, the steps behind leave them in the other image; LEVEL and a "
                 "blank right behind give them to both");
}

void Checker::SayInvalid(std::wstring_view statement) {
  const std::wstring_view word = TrimBlanks(statement);
  if (word.empty())
    return remarks_.Say(statement, Weight::kEnd,
                        statement.empty() ? "the run ends here: a text must not begin with a separator"
                                          : "the run ends here: a statement of blanks alone");
  std::string text = "the run ends here: a blank has to follow the name of a command, ";
  if (word.find(L'=') != kNone)
    text += "and arguments stand in its statement, with no separator before them";
  else
    text += "also where it has no arguments";
  if (word.find(L'=') == kNone && !FindCommand(word))
    text += "; nor is " + Quoted(word) + " a command" + remarks_.Suggestion(word, kCommands);
  remarks_.Say(word, Weight::kEnd, std::move(text));
}

void Checker::SayUnknownCommand(std::wstring_view name) {
  std::string text = "no such command: " + Quoted(name);
  std::string suggestion;
  if (name.front() == kByteOrderMark)
    text = "a byte order mark begins the text and counts as a part of the name";
  else if (name.starts_with(L"#") || name.starts_with(L"//"))
    text = "the language has no comments: this is an unknown command";
  else
    suggestion = remarks_.Suggestion(name, kCommands);
  remarks_.Say(name, Weight::kError, text + SwapAlone() + suggestion);
}

void Checker::CheckCommand(const StatementParts& parts, const Command& command) {
  const bool given = CheckArguments(parts, command, remarks_);
  switch (command.kind) {
    case CommandKind::kLevel:
      // Without values both images get the levels of the first.
      temp_.autoLevel = image_.autoLevel;
      if (given) {
        image_.autoLevel = temp_.autoLevel = nullptr;
        autoLevel_ = {};
      }
      return;
    case CommandKind::kSharp:
      if (!CheckMethod(parts)) return;
      break;
    case CommandKind::kDigitalDevelopment:
      remarks_.Say(parts.name, Weight::kError, "DIGITALDEVELOPMENT develops nothing" + SwapAlone());
      return;
    case CommandKind::kHAlphaAutoLevel: {
      if (!given) remarks_.Say(parts.name, Weight::kWarning, "without MAG the maximum of the levels becomes 0");
      const std::string effect = SwapAlone();
      if (!effect.empty()) remarks_.Say(parts.name, Weight::kWarning, "HALPHAAUTOLEVEL writes no pixels" + effect);
      autoLevel_ = parts.name;
      image_.autoLevel = autoLevel_.data();
      return;
    }
    case CommandKind::kBrightnessContrast:
    case CommandKind::kHAlpha:
      break;
  }
  SwapAndWrite(parts.name);
}

bool Checker::CheckMethod(const StatementParts& parts) {
  const std::wstring_view method = ReadValue(parts.arguments, command_keys::kMethod.name);
  if (FindSharpMethod(method)) return true;
  if (method.empty())
    remarks_.Say(parts.name, Weight::kError, "SHARP without METHOD does nothing" + SwapAlone());
  else
    remarks_.Say(method, Weight::kError,
                 "no such METHOD: " + Quoted(method) + SwapAlone() + remarks_.Suggestion(method, kSharpMethods));
  return false;
}

std::string Checker::SwapAlone() {
  std::swap(image_, temp_);
  if (image_.step == temp_.step) return {};
  const bool back = image_.step < temp_.step;
  return std::string("; it ") + (back ? "takes back" : "brings back") + " the step of line " +
         std::to_string(back ? temp_.line : image_.line);
}

void Checker::SwapAndWrite(std::wstring_view at) {
  std::swap(image_, temp_);
  image_.step = ++steps_;
  image_.line = remarks_.LineOf(at);
}

}  // namespace

std::vector<ChainRemark> CheckChain(std::string_view utf8) {
  const std::wstring text = WidenUtf8(utf8);
  Checker checker(text);
  checker.CheckCharacters(utf8);
  checker.CheckStatements();
  return std::move(checker).Remarks();
}

bool ChainRuns(const std::vector<ChainRemark>& remarks) {
  return std::none_of(remarks.begin(), remarks.end(), [](const ChainRemark& remark) { return remark.ends; });
}

}  // namespace qmr
