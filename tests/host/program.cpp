#include "tests/host/program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace qmr::test {

Outcome RunQmr(const std::vector<std::string>& arguments, int interruptAfterMs,
               const std::vector<std::string>& loader) {
  std::vector<std::string> words = loader;
  words.emplace_back(QMR_PROGRAM);
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);

  int out[2], err[2];
  if (pipe2(out, O_CLOEXEC) || pipe2(err, O_CLOEXEC)) throw std::runtime_error("pipe");
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("fork");
  if (child == 0) {
    dup2(out[1], STDOUT_FILENO);
    dup2(err[1], STDERR_FILENO);
    execv(argv[0], argv.data());
    _exit(127);
  }
  close(out[1]);
  close(err[1]);

  Outcome outcome;
  const auto begun = std::chrono::steady_clock::now();
  bool interrupted = interruptAfterMs == 0;
  std::array<pollfd, 2> files = {{{out[0], POLLIN, 0}, {err[0], POLLIN, 0}}};
  while (files[0].fd >= 0 || files[1].fd >= 0) {
    poll(files.data(), files.size(), interrupted ? 1000 : 5);
    const auto elapsed = std::chrono::steady_clock::now() - begun;
    if (!interrupted && elapsed >= std::chrono::milliseconds(interruptAfterMs)) {
      kill(child, SIGINT);
      interrupted = true;
    }
    for (std::size_t i = 0; i < files.size(); ++i) {
      if (files[i].fd < 0 || !(files[i].revents & (POLLIN | POLLHUP))) continue;
      std::array<char, 4096> buffer;
      const ssize_t n = read(files[i].fd, buffer.data(), buffer.size());
      if (n > 0)
        (i == 0 ? outcome.out : outcome.err).append(buffer.data(), static_cast<std::size_t>(n));
      else
        close(std::exchange(files[i].fd, -1));
    }
  }
  int status = 0;
  waitpid(child, &status, 0);
  outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return outcome;
}

TemporaryFolder::TemporaryFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "qmr-test-XXXXXX").string();
  if (!mkdtemp(name.data())) throw std::runtime_error("mkdtemp");
  path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code error;
  std::filesystem::remove_all(path_, error);
}

std::string TemporaryFolder::Path(const std::string& name) const {
  return name.empty() ? path_.string() : (path_ / name).string();
}

std::vector<std::string> TemporaryFolder::List() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(path_))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

std::string ReadBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace qmr::test
