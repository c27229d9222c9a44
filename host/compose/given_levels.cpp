#include "host/compose/given_levels.h"

#include <cstddef>
#include <optional>

#include "host/night/failure.h"
#include "host/operations/parameters.h"
#include "host/operations/picture_file.h"
#include "host/words/numbers.h"

namespace qmr {

std::vector<double> ParseLevels(const std::string& option, std::string_view text) {
  const std::optional<std::vector<double>> numbers = SplitNumbers(text);
  if (!numbers || (numbers->size() != 2 && numbers->size() != 6))
    throw Failure(kExitUsage, option + ": black and white, or both of each plane, parted by commas");
  const std::vector<double>& levels = *numbers;
  for (std::size_t i = 0; i < levels.size(); i += 2)
    if (!(levels[i] < levels[i + 1])) throw Failure(kExitUsage, option + ": the first of two is the smaller one");
  return levels;
}

bool GiveLevels(CVynImage& image, const std::vector<double>& levels, const std::vector<Keyword>& keywords,
                const std::string& option) {
  if (levels.empty()) {
    if (SetKeywordLevels(image, keywords)) return true;
    SetLevelsOfFile(image, keywords);
    return false;
  }
  const auto planes = static_cast<std::size_t>(image.GetPlanes());
  if (levels.size() != 2 && levels.size() != 2 * planes)
    throw Failure(kExitUsage, option + ": two numbers, as the picture has one plane");
  for (std::size_t p = 0; p < planes; ++p) {
    const std::size_t at = levels.size() > 2 ? 2 * p : 0;
    static_cast<CImage&>(image).SetLevel(static_cast<int>(p), levels[at], levels[at + 1]);
  }
  return true;
}

std::string LevelsText(const CVynImage& image) {
  std::string text;
  for (int p = 0; p < image.GetPlanes(); ++p)
    text.append(p == 0 ? "" : ",").append(NumberText(image.GetLevelMin(p)) + "," + NumberText(image.GetLevelMax(p)));
  return text;
}

}  // namespace qmr
