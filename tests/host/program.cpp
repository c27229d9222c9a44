#include "tests/host/program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
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

void ExpectSameBits(const std::vector<std::string>& words, const std::vector<std::vector<std::string>>& more,
                    const std::function<std::string()>& result) {
  std::string first;
  const auto check = [&](const std::vector<std::string>& added, const std::vector<std::string>& loader) {
    std::vector<std::string> all = words;
    all.insert(all.end(), added.begin(), added.end());
    const Outcome o = RunQmr(all, 0, loader);
    ASSERT_EQ(o.code, 0) << o.err;
    const std::string bytes = result();
    if (first.empty()) first = bytes;
    EXPECT_TRUE(bytes == first) << testing::PrintToString(all) << testing::PrintToString(loader);
  };
  for (const auto& added : more) check(added, {});
  const std::string loader = "/lib64/ld-linux-x86-64.so.2";
  if (!std::filesystem::exists(loader)) return;
  for (const char* level : {"x86-64-v2", "x86-64-v3", "x86-64-v4"}) check({}, {loader, "--glibc-hwcaps-mask", level});
}

}  // namespace qmr::test
