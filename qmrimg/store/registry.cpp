#include "qmrimg/store/registry.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>

namespace qmr {
namespace {

std::mutex settingsMutex;
std::string settingsPath;

std::string SettingsFile() {
  const std::lock_guard<std::mutex> lock(settingsMutex);
  if (!settingsPath.empty()) return settingsPath;
  if (const char* config = std::getenv("XDG_CONFIG_HOME"); config && *config)
    return std::string(config) + "/qmrimg/settings.ini";
  if (const char* home = std::getenv("HOME"); home && *home) return std::string(home) + "/.config/qmrimg/settings.ini";
  return {};
}

std::string Trimmed(const std::string& text) {
  const auto first = text.find_first_not_of(" \t\r");
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// The text behind `key =` in `[section]`, names compared without case.
std::optional<std::string> Find(const CString& section, const CString& key) {
  const std::string path = SettingsFile();
  if (path.empty()) return std::nullopt;
  std::ifstream file(path);
  bool inSection = false;
  for (std::string line; std::getline(file, line);) {
    line = Trimmed(line);
    if (line.empty() || line[0] == ';' || line[0] == '#') continue;
    if (line[0] == '[') {
      const auto end = line.find(']');
      const std::string name = Trimmed(line.substr(1, end == std::string::npos ? end : end - 1));
      inSection = section.CompareNoCase(WidenUtf8(name).c_str()) == 0;
      continue;
    }
    const auto equals = line.find('=');
    if (!inSection || equals == std::string::npos) continue;
    if (key.CompareNoCase(WidenUtf8(Trimmed(line.substr(0, equals))).c_str()) == 0)
      return Trimmed(line.substr(equals + 1));
  }
  return std::nullopt;
}

// Stores the number that is all of `text`, whatever the locale; 0 when there is none.
template <class Number>
int Parse(const std::string& text, Number* out) {
  const char* first = text.data();
  const char* const last = first + text.size();
  if (first != last && *first == '+') ++first;
  Number value{};
  const auto [end, error] = std::from_chars(first, last, value);
  if (error != std::errc() || end != last || !std::isfinite(static_cast<double>(value))) return 0;
  *out = value;
  return 1;
}

}  // namespace

void SetSettingsFile(const std::string& path) {
  const std::lock_guard<std::mutex> lock(settingsMutex);
  settingsPath = path;
}

}  // namespace qmr

int CRegistry::Read(const CString& section, const CString& key, int def, int* out, int flag) {
  (void)flag;
  *out = def;
  const auto text = qmr::Find(section, key);
  if (!text) return 0;
  return qmr::Parse(*text, out);
}

int CRegistry::Read(const CString& section, const CString& key, double def, double* out) {
  *out = def;
  const auto text = qmr::Find(section, key);
  if (!text) return 0;
  return qmr::Parse(*text, out);
}
