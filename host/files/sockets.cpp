#include "host/files/sockets.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace qmr {

void Descriptor::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

SocketPair MakeSocketPair() {
  int ends[2] = {-1, -1};
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return {};
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

bool SendMessage(int socket, const void* data, std::size_t bytes, std::span<const int> passed) {
  iovec part{const_cast<void*>(data), bytes};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * kMaxPassed)]{};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  if (!passed.empty()) {
    message.msg_control = control;
    message.msg_controllen = CMSG_SPACE(passed.size_bytes());
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(passed.size_bytes());
    std::memcpy(CMSG_DATA(header), passed.data(), passed.size_bytes());
  }
  ssize_t sent = 0;
  do {
    sent = sendmsg(socket, &message, MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  return sent == static_cast<ssize_t>(bytes);
}

Received ReceiveMessage(int socket, void* data, std::size_t capacity, bool wait) {
  Received received;
  iovec part{data, capacity};
  // Room for one more than wanted, as the padding of the buffer may let it through; it is closed below.
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * (kMaxPassed + 1))]{};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof(control);
  do {
    received.bytes = recvmsg(socket, &message, MSG_CMSG_CLOEXEC | (wait ? 0 : MSG_DONTWAIT));
  } while (received.bytes < 0 && errno == EINTR);
  if (received.bytes < 0) return received;
  for (cmsghdr* header = CMSG_FIRSTHDR(&message); header; header = CMSG_NXTHDR(&message, header)) {
    if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
    const std::size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (std::size_t i = 0; i < count; ++i) {
      int fd = -1;
      std::memcpy(&fd, CMSG_DATA(header) + i * sizeof(int), sizeof(int));
      Descriptor taken(fd);
      if (received.passedCount < kMaxPassed) received.passed[received.passedCount++] = std::move(taken);
    }
  }
  if (message.msg_flags & MSG_TRUNC) {
    received.bytes = -1;
    errno = EMSGSIZE;
  }
  return received;
}

}  // namespace qmr
