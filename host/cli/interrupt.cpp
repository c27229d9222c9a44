#include "host/cli/interrupt.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <initializer_list>

#include "host/files/atomic_file.h"
#include "host/night/failure.h"

namespace qmr {
namespace {

std::atomic<int> scopes{0};
std::atomic<bool> requested{false};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

void OnSignal(int) {
  if (scopes.load() > 0 && !requested.exchange(true)) return;
  RemovePendingFiles();
  constexpr char kLine[] = "\nqmr: interrupted\n";
  [[maybe_unused]] const auto written = write(STDERR_FILENO, kLine, sizeof kLine - 1);
  _exit(kExitInterrupted);
}

}  // namespace

void InstallInterruptHandler() {
  struct sigaction action = {};
  action.sa_handler = OnSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
}

CancelScope::CancelScope() {
  ++scopes;
}
CancelScope::~CancelScope() {
  --scopes;
}
bool CancelScope::Requested() {
  return requested.load();
}

}  // namespace qmr
