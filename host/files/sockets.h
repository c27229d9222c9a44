#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <utility>

namespace qmr {

/// A file descriptor that is closed on destruction.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor() { Close(); }

  int Get() const { return fd_; }
  bool Valid() const { return fd_ >= 0; }
  int Release() { return std::exchange(fd_, -1); }
  void Close();

 private:
  int fd_ = -1;
};

inline constexpr std::size_t kMaxPassed = 4;

struct SocketPair {
  Descriptor ours, theirs;
};

/// A connected pair that keeps messages apart; both ends invalid when there is none to be had.
SocketPair MakeSocketPair();

/// One message with up to kMaxPassed descriptors; false with errno set when it could not be sent.
bool SendMessage(int socket, const void* data, std::size_t bytes, std::span<const int> passed);

struct Received {
  std::ptrdiff_t bytes = -1;  ///< length of the message; 0 when the other side is gone, -1 on an error (errno)
  std::array<Descriptor, kMaxPassed> passed;
  std::size_t passedCount = 0;
};

/// Takes one message; descriptors beyond kMaxPassed are closed. A message longer than `capacity` counts as an error.
Received ReceiveMessage(int socket, void* data, std::size_t capacity, bool wait);

}  // namespace qmr
