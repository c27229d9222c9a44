#include "host/files/decoder_server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <vector>

#include "host/files/decoder_worker.h"
#include "host/files/handover.h"
#include "host/files/sockets.h"

namespace qmr {
namespace {

using Clock = std::chrono::steady_clock;

struct Running {
  pid_t pid = -1;
  Descriptor notice;
  Clock::time_point deadline;
  bool timedOut = false;
};

class Server {
 public:
  explicit Server(int control) : control_(control) {}

  [[noreturn]] void Run() {
    Prepare();
    for (;;) {
      pollfd watched[2] = {{control_, POLLIN, 0}, {children_.Get(), POLLIN, 0}};
      if (poll(watched, 2, MillisecondsToDeadline()) < 0 && errno != EINTR) End();
      if (watched[1].revents) Reap();
      KillLate();
      if (watched[0].revents && !TakeRequest()) End();
    }
  }

 private:
  void Prepare() {
    prctl(PR_SET_NAME, "qmr-decoders");
    // Ctrl-C reaches the whole group. The server outlives it until the program is gone or has finished in good order.
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE}) std::signal(number, SIG_IGN);
    std::signal(SIGCHLD, SIG_DFL);
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    sigprocmask(SIG_SETMASK, &child, nullptr);

    // No descriptor of the program stays behind: a pipe held open here would keep its reader waiting.
    const int nothing = open("/dev/null", O_RDWR);
    const int far = fcntl(control_, F_DUPFD_CLOEXEC, 16);
    if (nothing < 0 || far < 0) _exit(1);
    for (int stream = 0; stream < 3; ++stream) dup2(nothing, stream);
    dup2(far, 3);
    CloseFrom(4);
    control_ = 3;
    fcntl(control_, F_SETFD, FD_CLOEXEC);
    children_ = Descriptor(signalfd(-1, &child, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!children_.Valid()) _exit(1);
  }

  int MillisecondsToDeadline() const {
    int wait = -1;
    for (const Running& decoder : running_) {
      if (decoder.timedOut) continue;
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(decoder.deadline - Clock::now()).count();
      const int bounded = static_cast<int>(std::clamp<long long>(left, 0, 1000000000));
      wait = wait < 0 ? bounded : std::min(wait, bounded);
    }
    return wait;
  }

  void KillLate() {
    const auto now = Clock::now();
    for (Running& decoder : running_) {
      if (decoder.timedOut || decoder.deadline > now) continue;
      decoder.timedOut = true;
      kill(decoder.pid, SIGKILL);
    }
  }

  void Reap() {
    signalfd_siginfo told;
    while (read(children_.Get(), &told, sizeof(told)) > 0) {
    }
    int status = 0;
    for (pid_t pid = waitpid(-1, &status, WNOHANG); pid > 0; pid = waitpid(-1, &status, WNOHANG)) {
      const auto found =
          std::find_if(running_.begin(), running_.end(), [pid](const Running& r) { return r.pid == pid; });
      if (found == running_.end()) continue;
      const ExitNotice notice{kNoticeMagic, status, found->timedOut ? 1U : 0U, 0};
      SendMessage(found->notice.Get(), &notice, sizeof(notice), {});
      running_.erase(found);
    }
  }

  // False when the program has gone.
  bool TakeRequest() {
    DecodeRequest request;
    Received received = ReceiveMessage(control_, &request, sizeof(request), true);
    if (received.bytes <= 0) return false;
    if (received.bytes != sizeof(request) || request.magic != kRequestMagic || received.passedCount < 3) return true;
    auto& [file, answer, notice, buffer] = received.passed;
    const pid_t server = getpid();
    const pid_t pid = fork();
    if (pid == 0) RunDecoder(request, file.Get(), answer.Get(), buffer.Get(), server);
    if (pid < 0) {
      const ExitNotice failed{kNoticeMagic, 0, 0, errno};
      SendMessage(notice.Get(), &failed, sizeof(failed), {});
      return true;
    }
    running_.push_back(
        {pid, std::move(notice), Clock::now() + std::chrono::milliseconds(request.timeoutMilliseconds), false});
    return true;
  }

  [[noreturn]] void End() {
    for (const Running& decoder : running_) kill(decoder.pid, SIGKILL);
    while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
    }
    _exit(0);
  }

  int control_;
  Descriptor children_;
  std::vector<Running> running_;
};

}  // namespace

void RunDecoderServer(int control) {
  Server(control).Run();
}

}  // namespace qmr
