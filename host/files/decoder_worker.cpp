#include "host/files/decoder_worker.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "host/files/decoder_filter.h"
#include "host/files/sockets.h"

namespace qmr {
namespace {

// Where the descriptors of a decoder stand, right behind the standard streams.
constexpr int kFile = 3;
constexpr int kAnswer = 4;
constexpr int kBuffer = 5;
// Room for keywords behind the pixels of a new memory file; a longer header makes the file grow.
constexpr std::uint64_t kTailBytes = 64 << 10;

std::uint64_t AddressSpaceInUse() {
  unsigned long long pages = 0;
  if (std::FILE* file = std::fopen("/proc/self/statm", "re")) {
    if (std::fscanf(file, "%llu", &pages) != 1) pages = 0;
    std::fclose(file);
  }
  return pages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

void Limit(int resource, std::uint64_t value) {
  rlimit current{};
  if (getrlimit(static_cast<__rlimit_resource>(resource), &current) != 0) return;
  const rlim_t wanted = current.rlim_max == RLIM_INFINITY ? value : std::min<rlim_t>(value, current.rlim_max);
  const rlimit limit{wanted, wanted};
  setrlimit(static_cast<__rlimit_resource>(resource), &limit);
}

// Puts the descriptor at its place. Called with descriptors above all places, so none is overwritten before its turn.
void Place(int fd, int place) {
  if (dup2(fd, place) < 0) _exit(1);
}

void RaiseFence(const DecodeRequest& request, int file, int answer, int buffer, int serverPid) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != serverPid) _exit(0);  // the server was gone before the line above
  prctl(PR_SET_DUMPABLE, 0);
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);

  // First out of the way of the places that they shall take.
  const int farFile = fcntl(file, F_DUPFD_CLOEXEC, 16);
  const int farAnswer = fcntl(answer, F_DUPFD_CLOEXEC, 16);
  const int farBuffer = buffer >= 0 ? fcntl(buffer, F_DUPFD_CLOEXEC, 16) : -1;
  Place(farFile, kFile);
  Place(farAnswer, kAnswer);
  if (buffer >= 0) Place(farBuffer, kBuffer);
  CloseFrom(buffer >= 0 ? kBuffer + 1 : kBuffer);

  const std::uint64_t inUse = AddressSpaceInUse();
  Limit(RLIMIT_CORE, 0);
  // The server's clock ends a decoder that waits; this ends one that computes, should the server be gone or stopped.
  Limit(RLIMIT_CPU, request.timeoutMilliseconds / 1000 + 2);
  Limit(RLIMIT_AS, inUse + request.memoryBytes);
  Limit(RLIMIT_FSIZE, request.memoryBytes);
  Limit(RLIMIT_NOFILE, 32);

  for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) std::signal(number, SIG_IGN);
  for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGXCPU, SIGPIPE, SIGCHLD}) {
    std::signal(number, SIG_DFL);
  }
  std::signal(SIGXFSZ, SIG_IGN);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  // Among other things no process can be left behind that still writes into the pixels.
  FilterSystemCalls();
}

class MemoryFileSink : public PixelSink {
 public:
  MemoryFileSink(std::uint64_t limit, std::uint64_t bufferBytes) : limit_(limit), bufferBytes_(bufferBytes) {}

  float* Allocate(std::int64_t width, std::int64_t height, std::int64_t planes) override {
    pixelBytes_ = PixelBytes(width, height, planes);
    if (pixelBytes_ > limit_) throw TooLarge(width, height, planes);
    // A buffer much larger than the image would keep its memory from a better use.
    reused_ = pixelBytes_ <= bufferBytes_ && pixelBytes_ >= bufferBytes_ / 4;
    memory_ = reused_ ? kBuffer : memfd_create("qmr-pixels", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (memory_ < 0 || (!reused_ && ftruncate(memory_, static_cast<off_t>(pixelBytes_ + kTailBytes)) != 0)) {
      throw TooLarge(width, height, planes);
    }
    void* address =
        mmap(nullptr, pixelBytes_, PROT_READ | PROT_WRITE, MAP_SHARED | (reused_ ? MAP_POPULATE : 0), memory_, 0);
    if (address == MAP_FAILED) throw TooLarge(width, height, planes);
    return static_cast<float*>(address);
  }

  bool Append(const std::string& bytes) {
    return pwrite(memory_, bytes.data(), bytes.size(), static_cast<off_t>(pixelBytes_)) ==
           static_cast<ssize_t>(bytes.size());
  }
  /// Buffers that are used again have their seal.
  bool Seal() { return reused_ || fcntl(memory_, F_ADD_SEALS, F_SEAL_SHRINK) == 0; }
  int Memory() const { return memory_; }
  bool Reused() const { return reused_; }

 private:
  DecodeFailure TooLarge(std::int64_t width, std::int64_t height, std::int64_t planes) const {
    return {FileErrorKind::TooLarge, "an image of " + std::to_string(width) + " x " + std::to_string(height) + " x " +
                                         std::to_string(planes) + " pixels needs more than the " +
                                         std::to_string(limit_ >> 20) + " MB that its decoder may use"};
  }

  std::uint64_t limit_;
  std::uint64_t bufferBytes_;
  std::size_t pixelBytes_ = 0;
  int memory_ = -1;  // ends with the process
  bool reused_ = false;
};

int CountOpenFiles() {
  int count = -1;  // the folder itself
  if (DIR* folder = opendir("/proc/self/fd")) {
    while (const dirent* entry = readdir(folder)) count += entry->d_name[0] != '.';
    closedir(folder);
  }
  return count;
}

void CommitFault(DecoderFault fault, PixelSink& sink) {
  switch (fault) {
    case DecoderFault::Crash:
      raise(SIGSEGV);
      break;
    case DecoderFault::Abort:
      std::abort();
    case DecoderFault::Hang:
      for (;;) pause();
    case DecoderFault::Spin:
      for (volatile unsigned turns = 0;;) turns = turns + 1;
    case DecoderFault::Hoard:
      for (std::vector<std::vector<char>> hoard;;) hoard.emplace_back(std::size_t{16} << 20, 'x');
    case DecoderFault::HugePixels:
      sink.Allocate(100000, 100000, 3);
      break;
    case DecoderFault::Silent:
      _exit(0);
    case DecoderFault::Fork:
      if (const pid_t pid = fork(); pid >= 0) _exit(0);
      throw DecodeFailure(FileErrorKind::Internal, "no process started");
    case DecoderFault::CountOpenFiles:
      throw DecodeFailure(FileErrorKind::Internal, "open files: " + std::to_string(CountOpenFiles()));
    default:
      break;
  }
}

void SendFailure(FileErrorKind kind, std::string_view reason) {
  Handover handover;
  handover.magic = kHandoverMagic;
  handover.failed = 1;
  handover.errorKind = static_cast<std::uint32_t>(kind);
  SetText(handover, reason);
  SendMessage(kAnswer, &handover, sizeof(handover), {});
}

void SendImage(const DecodeReport& report, MemoryFileSink& sink, DecoderFault fault) {
  std::string keywords = PackKeywords(report.keywords);
  if (keywords.size() > kMaxKeywordBytes) throw DecodeFailure(FileErrorKind::Unsupported, "the header is too long");
  if (fault == DecoderFault::LieKeywords) keywords.assign(100, '\xFF');
  if (!sink.Append(keywords)) throw DecodeFailure(FileErrorKind::TooLarge, "the header needs too much memory");
  if (fault != DecoderFault::UnsealedPixels && !sink.Seal()) _exit(1);
  Handover handover;
  handover.magic = kHandoverMagic;
  handover.width = report.width;
  handover.height = report.height;
  handover.planes = report.planes;
  handover.fileBits = report.fileBits;
  handover.hdu = report.hdu;
  handover.bscale = report.bscale;
  handover.bzero = report.bzero;
  handover.blankPixels = report.blankPixels;
  handover.keywordBytes = keywords.size();
  if (fault == DecoderFault::LieSize) handover.height *= 1000;
  SetText(handover, report.format);
  handover.reusedBuffer = sink.Reused() ? 1 : 0;
  const int memory = sink.Memory();
  SendMessage(kAnswer, &handover, sizeof(handover), {&memory, sink.Reused() ? std::size_t{0} : std::size_t{1}});
}

}  // namespace

void CloseFrom(int first) {
  if (close_range(static_cast<unsigned>(first), ~0U, 0) == 0) return;
  const long most = sysconf(_SC_OPEN_MAX);
  for (int fd = first; fd < (most > 0 ? most : 1024); ++fd) close(fd);
}

void RunDecoder(const DecodeRequest& request, int file, int answer, int buffer, int serverPid) {
  RaiseFence(request, file, answer, buffer, serverPid);
  try {
    MemoryFileSink sink(request.memoryBytes, buffer >= 0 ? request.bufferBytes : 0);
    CommitFault(request.fault, sink);
    const DecodeReport report =
        DecodeImage(kFile, static_cast<std::size_t>(request.fileBytes), sink, request.plainLibraryPath != 0);
    SendImage(report, sink, request.fault);
  } catch (const DecodeFailure& failure) {
    SendFailure(failure.Kind(), failure.what());
  } catch (const std::bad_alloc&) {
    SendFailure(FileErrorKind::TooLarge, "needs more memory than its decoder may use");
  } catch (const std::exception& failure) {
    SendFailure(FileErrorKind::Damaged, failure.what());
  }
  _exit(0);
}

}  // namespace qmr
