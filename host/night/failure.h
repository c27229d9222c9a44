// What ends a run, with the exit code that tells why.
#pragma once

#include <stdexcept>
#include <string>

namespace qmr {

enum ExitCode {
  kExitDone = 0,
  kExitUsage = 64,         // a bad option or argument
  kExitBadData = 65,       // input that can't be used
  kExitNoInput = 66,       // no such file or folder, nothing in it
  kExitCannotCreate = 73,  // the output can't be written
  kExitIo = 74,            // reading, writing or memory failed on the way
  kExitInterrupted = 130,  // Ctrl-C
};

// One line for the user and the exit code.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode exitCode, const std::string& line) : std::runtime_error(line), code(exitCode) {}
  ExitCode code;
};

}  // namespace qmr
