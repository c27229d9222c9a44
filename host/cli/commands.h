// The subcommands of `qmr`, one source file each.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

namespace qmr {

// Adds a subcommand with its options. `run` receives what to do when the user has chosen it; its result is the exit
// code, and Failure ends it with a line.
using Run = std::function<int()>;

void AddStack(CLI::App& program, Run& run);
void AddSimulate(CLI::App& program, Run& run);
void AddFilter(CLI::App& program, Run& run);
void AddAdjust(CLI::App& program, Run& run);
void AddCompose(CLI::App& program, Run& run);
void AddSplit(CLI::App& program, Run& run);
void AddLevels(CLI::App& program, Run& run);
void AddRun(CLI::App& program, Run& run);
void AddGeometry(CLI::App& program, Run& run);
void AddMeasure(CLI::App& program, Run& run);
void AddComposite(CLI::App& program, Run& run);
void AddMosaic(CLI::App& program, Run& run);
void AddRestore(CLI::App& program, Run& run);
void AddDevelop(CLI::App& program, Run& run);
void AddAnnotate(CLI::App& program, Run& run);
void AddInfo(CLI::App& program, Run& run);

}  // namespace qmr
