// Settings of the user.
#pragma once

#include <string>

#include "qmrimg/platform/text.h"

// Settings live in an INI file, `qmrimg/settings.ini` under $XDG_CONFIG_HOME or ~/.config. A missing file, section
// or key, and a value that is no number, give the default.
class QMR_API CRegistry {
 public:
  // Stores the setting, or `def`, in `*out` and gives 1 when the setting was found. `flag` has no effect.
  static int Read(const CString& section, const CString& key, int def, int* out, int flag);
  static int Read(const CString& section, const CString& key, double def, double* out);
};

namespace qmr {

// Reads settings from this file from now on, path as bytes; an empty path brings back the user's own file.
QMR_API void SetSettingsFile(const std::string& path);

}  // namespace qmr
