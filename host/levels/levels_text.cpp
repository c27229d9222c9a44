#include "host/levels/levels_text.h"

#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "host/files/file_error.h"

namespace qmr {

std::string LevelsTable(const LevelsReport& report) {
  std::string text = "levels from: " + report.from + "\n";
  std::array<char, 160> row;
  std::snprintf(row.data(), row.size(), "%-8s %14s %14s %14s %14s %14s %14s\n", "plane", "black", "white", "minimum",
                "maximum", "mean", "median");
  text += row.data();
  for (const PlaneLevels& p : report.planes) {
    std::snprintf(row.data(), row.size(), "%-8s %14.8g %14.8g %14.8g %14.8g %14.8g %14.8g\n", p.name.c_str(), p.black,
                  p.white, p.minimum, p.maximum, p.mean, p.median);
    text += row.data();
    if (p.blank > 0) text += "         " + std::to_string(p.blank) + " pixels without a value, which don't count\n";
  }
  for (const SameLevels& s : report.same) {
    std::snprintf(row.data(), row.size(), "the same: --method %s --%s %.6g --%s %.6g%s\n", s.method, s.lowKey, s.low,
                  s.highKey, s.high, report.planes.size() > 1 ? " --linked" : "");
    text += row.data();
  }
  return text;
}

std::string LevelsJson(const LevelsReport& report, const std::string& file) {
  nlohmann::ordered_json json;
  json["file"] = PrintablePath(file);
  json["levelsFrom"] = report.from;
  json["command"] = report.command;
  json["planes"] = nlohmann::ordered_json::array();
  for (const PlaneLevels& p : report.planes) {
    // A plane without a single value has no statistics: null, not 0.
    const auto value = [&p](double v) { return p.pixels > 0 ? nlohmann::ordered_json(v) : nlohmann::ordered_json(); };
    json["planes"].push_back({{"name", p.name},
                              {"black", p.black},
                              {"white", p.white},
                              {"pixels", p.pixels},
                              {"blank", p.blank},
                              {"minimum", value(p.minimum)},
                              {"maximum", value(p.maximum)},
                              {"mean", value(p.mean)},
                              {"median", value(p.median)}});
  }
  json["same"] = nlohmann::ordered_json::array();
  for (const SameLevels& s : report.same)
    json["same"].push_back({{"method", s.method}, {s.lowKey, s.low}, {s.highKey, s.high}});
  return json.dump(2) + "\n";
}

std::string MethodsText() {
  std::string text = "Methods\n";
  for (const LevelMethod& method : LevelMethods()) {
    text.append("\n  ").append(method.name).append("\n      ").append(method.summary);
    if (method.measures) text += method.unlinked ? "; unlinked by default" : "; linked by default";
    text += "\n";
    for (const Parameter& parameter : method.parameters)
      text.append("      --")
          .append(parameter.key)
          .append(" ")
          .append(ValueForm(parameter))
          .append("\n          ")
          .append(Describe(parameter))
          .append("\n");
  }
  return text;
}

}  // namespace qmr
