// Runs the program `qmr` as a user would.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace qmr::test {

struct Outcome {
  int code = -1;  // exit code, or 128 + signal
  std::string out;
  std::string err;
};

// Starts `qmr` with the arguments and waits for its end. `interruptAfterMs` sends SIGINT after that time; 0 never.
// `loader` are words put before the program, such as the dynamic loader with its options.
Outcome RunQmr(const std::vector<std::string>& arguments, int interruptAfterMs = 0,
               const std::vector<std::string>& loader = {});

// A folder that goes away with the object.
class TemporaryFolder {
 public:
  TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder();
  std::string Path(const std::string& name = {}) const;
  // Names of what lies in it, sorted.
  std::vector<std::string> List() const;

 private:
  std::filesystem::path path_;
};

std::string ReadBytes(const std::string& path);
void WriteBytes(const std::string& path, const std::string& bytes);

}  // namespace qmr::test
