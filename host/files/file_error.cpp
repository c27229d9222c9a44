#include "host/files/file_error.h"

#include <cstring>
#include <system_error>

namespace qmr {
namespace {

// Length of the valid UTF-8 sequence at the start of `text`, 0 if there is none.
std::size_t Utf8Length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned lead = byte(0);
  std::size_t length = 0;
  unsigned value = 0;
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
    value = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    value = lead & 0x0F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    value = lead & 0x07;
  }
  if (length == 0 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
    value = value << 6 | (byte(i) & 0x3F);
  }
  const bool overlong = (length == 3 && value < 0x800) || (length == 4 && value < 0x10000);
  const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
  // C1 control characters move a terminal's cursor just like the others.
  const bool control = value >= 0x80 && value <= 0x9F;
  return overlong || surrogate || control || value > 0x10FFFF ? 0 : length;
}

}  // namespace

std::string PrintablePath(std::string_view path) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string shown;
  shown.reserve(path.size());
  while (!path.empty()) {
    const auto first = static_cast<unsigned char>(path.front());
    std::size_t taken = 1;
    if (first == '\n') {
      shown += "\\n";
    } else if (first == '\t') {
      shown += "\\t";
    } else if (first == '\\') {
      shown += "\\\\";
    } else if (const std::size_t length = Utf8Length(path); length > 0 && first >= 0x20 && first != 0x7F) {
      shown += path.substr(0, length);
      taken = length;
    } else {
      shown += "\\x";
      shown += kHex[first >> 4];
      shown += kHex[first & 15];
    }
    path.remove_prefix(taken);
  }
  return shown;
}

std::string FileError::Message() const {
  return path.empty() ? reason : PrintablePath(path) + ": " + reason;
}

FileError SystemError(std::string path, FileErrorKind kind, std::string_view what, int errnoValue) {
  return {std::move(path), std::string(what) + ": " + std::generic_category().message(errnoValue), kind};
}

}  // namespace qmr
