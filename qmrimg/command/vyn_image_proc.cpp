#include "qmrimg/command/vyn_image_proc.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qmrimg/command/command_text.h"
#include "qmrimg/filters/selection.h"
#include "qmrimg/filters/sharp_run.h"
#include "qmrimg/levels/bright_run.h"
#include "qmrimg/levels/tone_curve_run.h"

namespace {

using qmr::CommandKey;
using qmr::CommandKind;

std::wstring_view View(const CString& text) {
  return {text.GetString(), static_cast<std::size_t>(text.GetLength())};
}

CString Text(std::wstring_view text) {
  return CString(std::wstring(text));
}

double NumberOr(std::wstring_view args, std::wstring_view key, double def) {
  const std::wstring_view value = qmr::ReadValue(args, key);
  return value.empty() ? def : qmr::ParseNumber(value).value;
}

// The value of one plane: of its own key, else of the key for all planes.
double NumberOfPlane(std::wstring_view args, const CommandKey& key, int plane, double def) {
  const std::size_t p = static_cast<std::size_t>(plane);
  const double shared = NumberOr(args, key.name, def);
  return p < key.planes.size() ? NumberOr(args, qmr::KeyOfPlane(key, p), shared) : shared;
}

int HasKeyOfPlane(std::wstring_view args, const CommandKey& key, int plane) {
  return qmr::HasKey(args, key.name) || qmr::HasKey(args, qmr::KeyOfPlane(key, static_cast<std::size_t>(plane)));
}

bool SameShape(const CVynImage& a, const CVynImage& b) {
  return a.GetWidth() == b.GetWidth() && a.GetHeight() == b.GetHeight() && a.GetPlanes() == b.GetPlanes() &&
         a.GetBitsPixel() == b.GetBitsPixel();
}

}  // namespace

CVynImageProc::CVynImageProc() = default;
CVynImageProc::CVynImageProc(const CVynImageProc& src) = default;
CVynImageProc& CVynImageProc::operator=(const CVynImageProc& src) = default;
CVynImageProc::~CVynImageProc() = default;

void CVynImageProc::SetImagePtr(CVynImage* image, CVynImage* temp) {
  ProcImage = image;
  if (temp) ProcTemp = temp;
}

int CVynImageProc::Do(CVynImage* image, CString text, int bProgress) {
  if (!image) return 0;
  // Whatever the run throws, no engine and no field may be left that refers to the temporary image.
  struct Run {
    Run(CVynImageProc& proc, CVynImage& image) : proc(proc), temp(image) {
      proc.ProcImage = &image;
      proc.ProcTemp = &temp;
    }
    ~Run() {
      if (proc.ProcImage) proc.ProcImage->ClearFilterProc();
      proc.ProcTemp = nullptr;
    }
    CVynImageProc& proc;
    CVynImage temp;
  };
  Run run(*this, *image);
  return Do(std::move(text), bProgress);
}

int CVynImageProc::Do(CString text, int bProgress) {
  if (!ProcImage || !ProcTemp || !SameShape(*ProcImage, *ProcTemp)) return 0;
  // In the order of CommandKind.
  static constexpr int (CVynImageProc::*kSteps[])(CString, int) = {nullptr,
                                                                   &CVynImageProc::Sharp,
                                                                   &CVynImageProc::DigitalDevelopment,
                                                                   &CVynImageProc::BrightnessContrast,
                                                                   &CVynImageProc::HAlpha,
                                                                   &CVynImageProc::HAlphaAutoLevel};
  static_assert(std::size(kSteps) == qmr::kCommands.size());
  qmr::StatementReader statements(View(text));
  while (const auto statement = statements.Next()) {
    const auto parts = qmr::SplitStatement(*statement);
    if (!parts) return 0;
    ProcImage->ClearFilterProc();
    ProcTemp->ClearFilterProc();
    const CString args = Text(parts->arguments);
    const qmr::Command* command = qmr::FindCommand(parts->name);
    if (command && command->kind == CommandKind::kLevel) {
      Level(args);
      continue;
    }
    // Also before a name that is unknown, on purpose: see the header.
    ProcImage->Swap(ProcTemp);
    if (!command) continue;
    int done = 0;
    try {
      done = (this->*kSteps[static_cast<std::size_t>(command->kind)])(args, bProgress);
    } catch (...) {
      // The newest pixels stand in the working image again.
      ProcImage->Swap(ProcTemp);
      throw;
    }
    if (!done) return 0;
  }
  return 1;
}

int CVynImageProc::SpritCmd(CString statement, CString& name, CString& args) {
  const auto parts = qmr::SplitStatement(View(statement));
  if (!parts) return 0;
  name = Text(parts->name);
  args = Text(parts->arguments);
  return 1;
}

int CVynImageProc::Same(CString a, CString b) {
  return qmr::SameText(View(a), View(b));
}

int CVynImageProc::find(CString args, CString key) {
  return qmr::HasKey(View(args), View(key));
}

CString CVynImageProc::atos(CString args, CString key) {
  return Text(qmr::ReadValue(View(args), View(key)));
}

int CVynImageProc::atoi(CString args, CString key, int def) {
  const std::wstring_view value = qmr::ReadValue(View(args), View(key));
  return value.empty() ? def : qmr::ParseInteger(value);
}

double CVynImageProc::atof(CString args, CString key, double def) {
  return NumberOr(View(args), View(key), def);
}

int CVynImageProc::atob(CString args, CString key, int def) {
  const std::wstring_view value = qmr::ReadValue(View(args), View(key));
  return value.empty() ? def : qmr::SameText(qmr::TrimBlanks(value), L"TRUE");
}

int CVynImageProc::Level(CString args) {
  using namespace qmr::command_keys;
  const std::wstring_view a = View(args);
  const double min = NumberOr(a, kMin.name, ProcImage->GetLevelMin(0));
  const double max = NumberOr(a, kMax.name, ProcImage->GetLevelMax(0));
  // Two planes count as one here.
  if (ProcImage->GetPlanes() < 3) {
    ProcImage->SetLevel(0, min, max);
    ProcTemp->SetLevel(0, min, max);
    return 1;
  }
  for (int p = 0; p < 3; ++p) {
    // On purpose blue takes the keys of green, and its maximum in the temporary image that of the whole image.
    const std::size_t letter = static_cast<std::size_t>(std::min(p, 1));
    const double planeMin = NumberOr(a, qmr::KeyOfPlane(kMin, letter), ProcImage->GetLevelMin(p));
    const double planeMax = NumberOr(a, qmr::KeyOfPlane(kMax, letter), ProcImage->GetLevelMax(p));
    ProcImage->SetLevel(p, planeMin, planeMax);
    ProcTemp->SetLevel(p, planeMin, p == 2 ? max : planeMax);
  }
  return 1;
}

int CVynImageProc::Sharp(CString args, int bProgress) {
  using namespace qmr::command_keys;
  const std::wstring_view a = View(args);
  const qmr::SharpMethodName* method = qmr::FindSharpMethod(qmr::ReadValue(a, kMethod.name));
  if (!method) return 1;
  std::vector<double> radius, weight;
  std::vector<qmr::SharpenLimits> limits;
  // Planes beyond the third take the values for all planes. An image without planes gets one entry, which nobody reads.
  for (int p = 0; p < std::max(ProcImage->GetPlanes(), 1); ++p) {
    const auto number = [&](const CommandKey& key, double def) { return NumberOfPlane(a, key, p, def); };
    const auto given = [&](const CommandKey& key) { return HasKeyOfPlane(a, key, p); };
    radius.push_back(std::clamp(number(kRadius, 1.0), qmr::kLeastRadius, qmr::kGreatestRadius));
    weight.push_back(number(kWeight, 1.0));
    // A threshold key without a value has the level on the raw scale, on purpose.
    limits.push_back(
        {{given(kThresholdMin), number(kThresholdMin, ProcImage->GetLevelMin(p)), number(kThresholdMinBuf, 0.0),
          given(kThresholdMax), number(kThresholdMax, ProcImage->GetLevelMax(p)), number(kThresholdMaxBuf, 0.0)},
         given(kBrighter),
         number(kBrighter, 0.0)});
  }
  if (method->method == qmr::SharpMethod::kUnSharpMask) {
    qmr::RunUnSharpMask(*ProcImage, radius.data(), weight.data(), nullptr, limits.data(), ProcTemp, nullptr, bProgress);
  } else {
    qmr::RunSharpen(*ProcImage, method->method == qmr::SharpMethod::kEdgeOnly, radius.data(), weight.data(),
                    limits.data(), ProcTemp, nullptr, bProgress);
  }
  return 1;
}

int CVynImageProc::DigitalDevelopment(CString, int) {
  // On purpose: the command has keys for the mask planes and develops nothing.
  return 1;
}

int CVynImageProc::BrightnessContrast(CString args, int bProgress) {
  using namespace qmr::command_keys;
  const std::wstring_view a = View(args);
  // The mean is that of the image before the last step, on purpose.
  const auto mean = [&]() -> double {
    if (ProcImage->GetPlanes() < 3) return ProcImage->GetAvrGray256f(0);
    const float sum = ProcImage->GetAvrGray256f(0) + ProcImage->GetAvrGray256f(1) + ProcImage->GetAvrGray256f(2);
    return sum / 3.0;
  };
  const std::wstring_view average = qmr::ReadValue(a, kAverage.name);
  const std::size_t planes = static_cast<std::size_t>(std::max(ProcImage->GetPlanes(), 1));
  const std::vector<float> brightness(planes, static_cast<float>(NumberOr(a, kBrightness.name, 0.0)));
  const std::vector<float> contrast(planes, static_cast<float>(NumberOr(a, kContrast.name, 0.0)));
  qmr::RunBright(*ProcImage, brightness.data(), contrast.data(),
                 average.empty() ? mean() : qmr::ParseNumber(average).value, ProcTemp, nullptr, bProgress);
  return 1;
}

int CVynImageProc::HAlpha(CString args, int bProgress) {
  using namespace qmr::command_keys;
  const std::wstring_view a = View(args);
  qmr::RunHAlpha(*ProcImage, NumberOr(a, kThreshold.name, 0.0), NumberOr(a, kBrightness.name, 0.0), ProcTemp, nullptr,
                 bProgress);
  return 1;
}

int CVynImageProc::HAlphaAutoLevel(CString args, int) {
  qmr::RunHAlphaLevel(*ProcImage, NumberOr(View(args), qmr::command_keys::kMag.name, 0.0), ProcTemp);
  return 1;
}
