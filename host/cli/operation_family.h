// A table of operations as a command with one subcommand each.
#pragma once

#include <CLI/CLI.hpp>

#include "host/cli/commands.h"
#include "host/operations/operation.h"

namespace qmr {

// The family must outlive the program.
void AddFamily(CLI::App& program, const OperationFamily& family, Run& run);

}  // namespace qmr
