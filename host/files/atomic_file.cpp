#include "host/files/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

namespace qmr {
namespace {

constexpr std::size_t kBufferBytes = std::size_t{1} << 20;

// Paths of the temporaries being written, in memory that a signal handler may read: a slot's path is complete before
// its state becomes kListed, and is not touched again until it is kFree.
constexpr int kSlots = 64;
enum SlotState : int { kFree, kClaimed, kListed };
struct PendingSlot {
  std::atomic<int> state{kFree};
  std::array<char, PATH_MAX> path;
};
std::array<PendingSlot, kSlots> pending;
static_assert(std::atomic<int>::is_always_lock_free);

int ListPending(const std::string& path) {
  if (path.size() + 1 > PATH_MAX) return -1;
  for (int i = 0; i < kSlots; ++i) {
    int expected = kFree;
    if (pending[i].state.compare_exchange_strong(expected, kClaimed)) {
      std::memcpy(pending[i].path.data(), path.c_str(), path.size() + 1);
      pending[i].state.store(kListed);
      return i;
    }
  }
  return -1;  // more writers than slots: the file is still removed by its object
}

void UnlistPending(int slot) {
  if (slot >= 0) pending[slot].state.store(kFree);
}

void IgnoreFileSizeSignal() {
  static std::once_flag once;
  std::call_once(once, [] {
    struct sigaction action {};
    if (sigaction(SIGXFSZ, nullptr, &action) == 0 && !(action.sa_flags & SA_SIGINFO) && action.sa_handler == SIG_DFL) {
      action.sa_handler = SIG_IGN;
      sigaction(SIGXFSZ, &action, nullptr);
    }
  });
}

std::string RealPath(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> real(realpath(path.c_str(), nullptr), &std::free);
  return real ? real.get() : std::string();
}

std::string FolderOf(const std::string& path) {
  const auto slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

AtomicFile::AtomicFile(std::string path) : path_(std::move(path)), target_(path_) {
  IgnoreFileSizeSignal();
  if (path_.empty() || path_.find('\0') != std::string::npos) {
    error_ = FileError{path_, "is no usable file name", FileErrorKind::BadArgument};
    return;
  }
  struct stat status {};
  const bool exists = stat(path_.c_str(), &status) == 0;
  if (exists && S_ISDIR(status.st_mode)) {
    Fail(FileErrorKind::CannotWrite, "cannot be written", EISDIR);
    return;
  }
  buffer_.resize(kBufferBytes);
  if (exists && !S_ISREG(status.st_mode)) {
    fd_ = open(path_.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    if (fd_ < 0) Fail(FileErrorKind::CannotWrite, "cannot be written", errno);
    return;
  }
  if (exists) target_ = RealPath(path_);
  if (target_.empty()) target_ = path_;

  // An absolute path, as the program may change its folder before the file is removed by the signal handler.
  std::string folder = RealPath(FolderOf(target_));
  if (folder.empty()) folder = FolderOf(target_);
  if (folder != "/") folder += '/';
  static std::atomic<unsigned> counter{0};
  for (int attempt = 0; attempt < 100 && fd_ < 0; ++attempt) {
    temporary_ = folder + ".qmr-" + std::to_string(getpid()) + "-" + std::to_string(counter++) + ".tmp";
    slot_ = ListPending(temporary_);  // before it exists, so that no moment is left uncovered
    fd_ = open(temporary_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd_ >= 0) break;
    const int reason = errno;
    UnlistPending(slot_);
    slot_ = -1;
    errno = reason;
    if (reason != EEXIST) break;
  }
  if (fd_ < 0) {
    const int reason = errno;
    temporary_.clear();
    Fail(FileErrorKind::CannotWrite, "cannot be created", reason);
    return;
  }
  // The mode is a courtesy to the owner of the older file; a file system without modes is no reason to fail.
  if (exists && fchmod(fd_, status.st_mode & 0777) != 0) errno = 0;
}

AtomicFile::~AtomicFile() {
  Discard();
}

bool AtomicFile::Fail(FileErrorKind kind, std::string_view what, int errnoValue) {
  if (!error_) error_ = SystemError(path_, kind, what, errnoValue);
  Discard();
  return false;
}

void AtomicFile::Discard() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
  if (!temporary_.empty()) unlink(temporary_.c_str());
  temporary_.clear();
  UnlistPending(slot_);
  slot_ = -1;
}

bool AtomicFile::WriteAll(const void* data, std::size_t bytes) {
  const char* next = static_cast<const char*>(data);
  while (bytes > 0) {
    const ssize_t written = write(fd_, next, bytes);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return Fail(FileErrorKind::CannotWrite, "cannot be written", written < 0 ? errno : EIO);
    next += written;
    bytes -= static_cast<std::size_t>(written);
  }
  return true;
}

bool AtomicFile::Flush() {
  const std::size_t bytes = buffered_;
  buffered_ = 0;
  return bytes == 0 || WriteAll(buffer_.data(), bytes);
}

bool AtomicFile::Write(const void* data, std::size_t bytes) {
  if (fd_ < 0) return false;
  if (bytes > buffer_.size() - buffered_ && !Flush()) return false;
  if (bytes >= buffer_.size()) return WriteAll(data, bytes);
  if (bytes > 0) std::memcpy(buffer_.data() + buffered_, data, bytes);
  buffered_ += bytes;
  return true;
}

bool AtomicFile::WriteAt(std::uint64_t offset, const void* data, std::size_t bytes) {
  if (fd_ < 0 || !Flush()) return false;
  const char* next = static_cast<const char*>(data);
  while (bytes > 0) {
    const ssize_t written = pwrite(fd_, next, bytes, static_cast<off_t>(offset));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return Fail(FileErrorKind::CannotWrite, "cannot be written", written < 0 ? errno : EIO);
    next += written;
    offset += static_cast<std::uint64_t>(written);
    bytes -= static_cast<std::size_t>(written);
  }
  return true;
}

FileStatus AtomicFile::Commit() {
  if (error_) return error_;
  if (fd_ < 0) return FileError{path_, "was already completed", FileErrorKind::BadArgument};
  if (!Flush()) return error_;
  // Devices and pipes know no fsync; EINVAL from them is no failure.
  if (fsync(fd_) != 0 && !(temporary_.empty() && (errno == EINVAL || errno == EROFS || errno == ENOTSUP))) {
    Fail(FileErrorKind::CannotWrite, "cannot be brought to the disk", errno);
    return error_;
  }
  const int closed = close(fd_);
  fd_ = -1;
  if (closed != 0 && errno != EINTR) {
    Fail(FileErrorKind::CannotWrite, "cannot be written", errno);
    return error_;
  }
  if (temporary_.empty()) return std::nullopt;
  if (rename(temporary_.c_str(), target_.c_str()) != 0) {
    Fail(FileErrorKind::CannotWrite, "cannot be put in place", errno);
    return error_;
  }
  temporary_.clear();
  UnlistPending(slot_);
  slot_ = -1;
  // The name survives a power cut only when the folder is on the disk as well; the data are, so a failure here is none.
  if (const int folder = open(FolderOf(target_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); folder >= 0) {
    fsync(folder);
    close(folder);
  }
  return std::nullopt;
}

FileStatus WriteTextFile(const std::string& path, std::string_view text) {
  AtomicFile file(path);
  file.Write(text);
  return file.Commit();
}

void RemovePendingFiles() noexcept {
  const int keptErrno = errno;
  for (PendingSlot& slot : pending) {
    if (slot.state.load() == kListed) unlink(slot.path.data());
  }
  errno = keptErrno;
}

}  // namespace qmr
