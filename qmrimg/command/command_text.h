// The text language of CVynImageProc: its words, and the one parser that the class and the checker of the host share.
//
// Everything is a view into the text that was given, also where it is empty, so that its place in the text is the
// distance between the two.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "qmrimg/platform/export.h"

namespace qmr {

inline constexpr std::wstring_view kBlanks = L" \t";
inline constexpr std::wstring_view kSeparators = L";\n\r";

// ---- Words ------------------------------------------------------------------------------------------------------

enum class CommandKind { kLevel, kSharp, kDigitalDevelopment, kBrightnessContrast, kHAlpha, kHAlphaAutoLevel };
enum class KeyKind { kNumber, kRadius, kMethod, kChannel };

// A key that may stand by itself, and with `_` and one of the letters of `planes` behind it for a single plane.
struct CommandKey {
  std::wstring_view name;
  std::wstring_view planes;
  KeyKind kind = KeyKind::kNumber;
  bool alone = true;
};

inline constexpr std::wstring_view kPlaneLetters = L"RGB";

namespace command_keys {
// Blue has no levels of its own.
inline constexpr CommandKey kMin{L"MIN", L"RG"};
inline constexpr CommandKey kMax{L"MAX", L"RG"};
inline constexpr CommandKey kMethod{L"METHOD", L"", KeyKind::kMethod};
inline constexpr CommandKey kRadius{L"RADIUS", kPlaneLetters, KeyKind::kRadius};
inline constexpr CommandKey kWeight{L"WEIGHT", kPlaneLetters};
inline constexpr CommandKey kThresholdMin{L"THRESHOLD_MIN", kPlaneLetters};
inline constexpr CommandKey kThresholdMinBuf{L"THRESHOLD_MIN_BUF", kPlaneLetters};
inline constexpr CommandKey kThresholdMax{L"THRESHOLD_MAX", kPlaneLetters};
inline constexpr CommandKey kThresholdMaxBuf{L"THRESHOLD_MAX_BUF", kPlaneLetters};
inline constexpr CommandKey kBrighter{L"BRIGHTER", kPlaneLetters};
inline constexpr CommandKey kMask{L"MASK", kPlaneLetters, KeyKind::kChannel, false};
inline constexpr CommandKey kAverage{L"AVERAGE", L""};
inline constexpr CommandKey kBrightness{L"BRIGHTNESS", L""};
inline constexpr CommandKey kContrast{L"CONTRAST", L""};
inline constexpr CommandKey kThreshold{L"THRESHOLD", L""};
inline constexpr CommandKey kMag{L"MAG", L""};

inline constexpr std::array kOfLevel = {kMin, kMax};
inline constexpr std::array kOfSharp = {kMethod,          kRadius,       kWeight,          kThresholdMin,
                                        kThresholdMinBuf, kThresholdMax, kThresholdMaxBuf, kBrighter};
inline constexpr std::array kOfDigitalDevelopment = {kMask};
inline constexpr std::array kOfBrightnessContrast = {kAverage, kBrightness, kContrast};
inline constexpr std::array kOfHAlpha = {kThreshold, kBrightness};
inline constexpr std::array kOfHAlphaAutoLevel = {kMag};
}  // namespace command_keys

struct Command {
  CommandKind kind;
  std::wstring_view name;
  std::span<const CommandKey> keys;
};

inline constexpr std::array<Command, 6> kCommands = {{
    {CommandKind::kLevel, L"LEVEL", command_keys::kOfLevel},
    {CommandKind::kSharp, L"SHARP", command_keys::kOfSharp},
    {CommandKind::kDigitalDevelopment, L"DIGITALDEVELOPMENT", command_keys::kOfDigitalDevelopment},
    {CommandKind::kBrightnessContrast, L"BRIGHTNESSCONTRAST", command_keys::kOfBrightnessContrast},
    {CommandKind::kHAlpha, L"HALPHA", command_keys::kOfHAlpha},
    {CommandKind::kHAlphaAutoLevel, L"HALPHAAUTOLEVEL", command_keys::kOfHAlphaAutoLevel},
}};

enum class SharpMethod { kStandard, kEdgeOnly, kUnSharpMask };

struct SharpMethodName {
  SharpMethod method;
  std::wstring_view name;
};

inline constexpr std::array<SharpMethodName, 3> kSharpMethods = {{
    {SharpMethod::kStandard, L"STANDARD"},
    {SharpMethod::kEdgeOnly, L"EDGEONLY"},
    {SharpMethod::kUnSharpMask, L"UNSHARPMASK"},
}};

inline constexpr double kLeastRadius = 0.1;
inline constexpr double kGreatestRadius = 50.0;

// Null for a word that is none.
QMR_API const Command* FindCommand(std::wstring_view name);
QMR_API const SharpMethodName* FindSharpMethod(std::wstring_view name);

// ---- Parser -----------------------------------------------------------------------------------------------------

// Takes a text apart into statements. Separators that follow each other count as one, but those at the very beginning
// have an empty statement before them.
class QMR_API StatementReader {
 public:
  explicit StatementReader(std::wstring_view text) : rest_(text) {}
  // Nothing at the end of the text.
  std::optional<std::wstring_view> Next();

 private:
  std::wstring_view rest_;
};

// The name of a statement's command, and all from the blank behind it on.
struct StatementParts {
  std::wstring_view name;
  std::wstring_view arguments;
};

// Nothing when no blank or tab follows the name: such a statement is not valid.
QMR_API std::optional<StatementParts> SplitStatement(std::wstring_view statement);

// The value that a command reads for `key`. Its data() is null when the key is absent: not there, or not followed by
// `=`, or met first as a part of something else. A value may be empty, which counts as absent for its reader.
QMR_API std::wstring_view ReadValue(std::wstring_view arguments, std::wstring_view key);

// Whether a flag's key stands anywhere, at most one blank or tab before its `=`.
QMR_API bool HasKey(std::wstring_view arguments, std::wstring_view key);

// `key` for one plane, such as RADIUS_G; its name for a plane that it has no form for.
QMR_API std::wstring KeyOfPlane(const CommandKey& key, std::size_t plane);

// Equal without regard to case, in the locale's sense; letters of ASCII are the same in every locale.
QMR_API bool SameText(std::wstring_view a, std::wstring_view b);

// Blanks and tabs at both ends taken away.
QMR_API std::wstring_view TrimBlanks(std::wstring_view text);

struct ParsedNumber {
  // Infinite beyond the range of a double.
  double value = 0.0;
  // Characters that it was read from; 0 when the text begins with no number.
  std::size_t length = 0;
};

// The number at the beginning of a text: white space, sign, digits, point and digits, exponent. The point is a point in
// every locale; hexadecimal numbers and the words for infinity and not-a-number are none.
QMR_API ParsedNumber ParseNumber(std::wstring_view text);
// The same for whole numbers, limited to int.
QMR_API int ParseInteger(std::wstring_view text);

}  // namespace qmr
