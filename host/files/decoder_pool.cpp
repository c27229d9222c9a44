#include "host/files/decoder_pool.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <thread>

#include "host/files/decoder_server.h"
#include "host/files/pixel_buffers.h"

namespace qmr {
namespace {

constexpr std::uint64_t kMega = std::uint64_t{1} << 20;

struct OpenedFile {
  Descriptor fd;
  std::uint64_t bytes = 0;
};

FileResult<OpenedFile> OpenForReading(const std::string& path) {
  if (path.empty() || path.find('\0') != std::string::npos) {
    return FileError{path, "is no usable file name", FileErrorKind::CannotOpen};
  }
  OpenedFile file;
  // Without O_NONBLOCK the opening of a pipe would wait for its writer.
  file.fd = Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file.fd.Valid() || fstat(file.fd.Get(), &status) != 0) {
    return SystemError(path, FileErrorKind::CannotOpen, "cannot be opened", errno);
  }
  if (S_ISDIR(status.st_mode)) return FileError{path, "is a folder", FileErrorKind::CannotOpen};
  if (!S_ISREG(status.st_mode)) return FileError{path, "is not a regular file", FileErrorKind::CannotOpen};
  if (status.st_size == 0) return FileError{path, "is empty", FileErrorKind::CannotOpen};
  file.bytes = static_cast<std::uint64_t>(status.st_size);
  return file;
}

// Room for the file, its content unpacked and its float pixels, with a floor for small files that unpack to large
// images; it is address space that is limited, so a generous figure costs nothing.
std::uint64_t MemoryLimit(std::uint64_t fileBytes, const ReadOptions& options) {
  if (options.memoryBytes > 0) return options.memoryBytes;
  std::uint64_t cap = options.memoryCap;
  if (cap == 0) {
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long pageBytes = sysconf(_SC_PAGESIZE);
    const std::uint64_t machine =
        pages > 0 && pageBytes > 0 ? static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageBytes) : 0;
    cap = std::max(machine / 2, 2048 * kMega);
  }
  return std::min(cap, 1024 * kMega + 8 * std::min(fileBytes, std::uint64_t{1} << 50));
}

std::uint32_t TimeoutMilliseconds(double seconds) {
  constexpr double kDay = 86400.0;
  const double bounded = seconds > 0.001 ? std::min(seconds, kDay) : 0.001;
  return static_cast<std::uint32_t>(std::ceil(bounded * 1000.0));
}

std::string SecondsText(std::uint32_t milliseconds) {
  std::array<char, 32> text;
  std::snprintf(text.data(), text.size(), "%.4g s", milliseconds / 1000.0);
  return text.data();
}

// Waits until the socket has something to say, signals notwithstanding.
bool WaitReadable(int fd, std::chrono::milliseconds atMost) {
  const auto end = std::chrono::steady_clock::now() + atMost;
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
    if (left <= 0) return false;
    pollfd watched{fd, POLLIN, 0};
    const int ready = poll(&watched, 1, static_cast<int>(std::min<long long>(left, 1000000000)));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
  }
}

FileError EndedBadly(const std::string& path, const ExitNotice& notice, std::uint32_t timeoutMilliseconds) {
  if (notice.forkError) {
    return SystemError(path, FileErrorKind::Internal, "no decoder process could be started", notice.forkError);
  }
  const bool signalled = WIFSIGNALED(notice.waitStatus);
  if (notice.timedOut || (signalled && WTERMSIG(notice.waitStatus) == SIGXCPU)) {
    return {path, "its decoding did not end within " + SecondsText(timeoutMilliseconds), FileErrorKind::TimedOut};
  }
  if (signalled) {
    const int number = WTERMSIG(notice.waitStatus);
    const char* name = sigabbrev_np(number);
    std::string reason = "its decoder crashed (SIG";
    reason.append(name ? name : std::to_string(number)).append(")");
    return {path, std::move(reason), FileErrorKind::Crashed};
  }
  return {path, "its decoder ended without an answer", FileErrorKind::Crashed};
}

FileErrorKind KnownKind(std::uint32_t claimed) {
  return claimed <= static_cast<std::uint32_t>(FileErrorKind::Internal) ? static_cast<FileErrorKind>(claimed)
                                                                        : FileErrorKind::Damaged;
}

}  // namespace

DecoderPool::DecoderPool(int atOnce) : free_(std::max(1, atOnce)) {}

DecoderPool::~DecoderPool() {
  StopLocked();
}

DecoderPool& DecoderPool::Shared() {
  static DecoderPool pool(std::max(2, static_cast<int>(std::thread::hardware_concurrency())));
  return pool;
}

bool DecoderPool::Start() {
  const std::lock_guard lock(mutex_);
  return server_ > 0 || StartLocked();
}

pid_t DecoderPool::ServerPid() const {
  const std::lock_guard lock(mutex_);
  return server_;
}

bool DecoderPool::StartLocked() {
  SocketPair pair = MakeSocketPair();
  if (!pair.ours.Valid()) return false;
  const pid_t pid = fork();
  if (pid < 0) return false;
  if (pid == 0) RunDecoderServer(pair.theirs.Get());
  control_ = std::move(pair.ours);
  server_ = pid;
  owner_ = getpid();
  return true;
}

void DecoderPool::StopLocked() {
  control_ = Descriptor();
  if (server_ > 0 && owner_ == getpid()) {
    // Decoders of the server have asked to be killed when it ends.
    kill(server_, SIGKILL);
    while (waitpid(server_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  server_ = -1;
}

pid_t DecoderPool::Send(const DecodeRequest& request, std::span<const int> passed) {
  const std::lock_guard lock(mutex_);
  if (server_ > 0 && SendMessage(control_.Get(), &request, sizeof(request), passed)) return server_;
  StopLocked();
  return StartLocked() && SendMessage(control_.Get(), &request, sizeof(request), passed) ? server_ : -1;
}

void DecoderPool::Replace(pid_t lost) {
  const std::lock_guard lock(mutex_);
  if (server_ == lost) StopLocked();
}

FileResult<DecodedImage> DecoderPool::Decode(const std::string& path, const ReadOptions& options) {
  FileResult<OpenedFile> file = OpenForReading(path);
  if (!file) return file.Error();

  DecodeRequest request;
  request.magic = kRequestMagic;
  request.fault = options.fault;
  request.fileBytes = file->bytes;
  request.memoryBytes = MemoryLimit(file->bytes, options);
  request.timeoutMilliseconds = TimeoutMilliseconds(options.timeoutSeconds);
  request.plainLibraryPath = options.plainLibraryPath ? 1 : 0;

  struct Turn {
    explicit Turn(DecoderPool& owner) : pool(owner) {
      std::unique_lock lock(pool.mutex_);
      pool.turn_.wait(lock, [this] { return pool.free_ > 0; });
      --pool.free_;
    }
    ~Turn() {
      const std::lock_guard lock(pool.mutex_);
      ++pool.free_;
      pool.turn_.notify_one();
    }
    DecoderPool& pool;
  } turn(*this);

  // Two tries, as the server may have been killed from outside between two files.
  for (int attempt = 0; attempt < 2; ++attempt) {
    SocketPair answer = MakeSocketPair();
    SocketPair end = MakeSocketPair();
    PixelMapping buffer = pixel_buffers::Take();
    request.bufferBytes = buffer.Bytes();
    const std::array<int, 4> passed = {file->fd.Get(), answer.theirs.Get(), end.theirs.Get(), buffer.Memory()};
    const bool ready = answer.ours.Valid() && end.ours.Valid();
    const pid_t server = ready ? Send(request, {passed.data(), buffer.Bytes() ? 4U : 3U}) : -1;
    if (server < 0) {
      return FileError{path, "no decoder process could be started", FileErrorKind::Internal};
    }
    // Ours must be the only ends left, so that the server's death is seen.
    answer.theirs.Close();
    end.theirs.Close();

    ExitNotice notice;
    const std::chrono::milliseconds patience(std::int64_t{request.timeoutMilliseconds} + 10000);
    if (!WaitReadable(end.ours.Get(), patience)) {
      buffer.Discard();  // somebody may still write into it
      return FileError{path, "its decoder could not be ended", FileErrorKind::TimedOut};
    }
    const Received ended = ReceiveMessage(end.ours.Get(), &notice, sizeof(notice), true);
    if (ended.bytes != sizeof(notice) || notice.magic != kNoticeMagic) {
      buffer.Discard();
      Replace(server);
      continue;
    }

    // The decoder has ended, so nobody changes what it left. Its answer counts only if it ended in good order.
    Handover handover;
    Received left;
    if (WIFEXITED(notice.waitStatus) && WEXITSTATUS(notice.waitStatus) == 0 && !notice.forkError) {
      left = ReceiveMessage(answer.ours.Get(), &handover, sizeof(handover), false);
    }
    if (left.bytes != sizeof(handover) || handover.magic != kHandoverMagic) {
      return EndedBadly(path, notice, request.timeoutMilliseconds);
    }
    if (handover.failed) return FileError{path, TextOf(handover), KnownKind(handover.errorKind)};
    auto image = AcceptImage(handover, left.passed[0], buffer);
    if (!image) return FileError{path, "its decoder gave an answer that cannot be true", FileErrorKind::Crashed};
    image->path = path;
    return std::move(*image);
  }
  return FileError{path, "its decoder was lost", FileErrorKind::Internal};
}

}  // namespace qmr
