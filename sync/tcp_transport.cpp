// A scale's TCP port. A string is confirmed once the peer's TCP stack acknowledged its every byte:
// the socket's queue of unsent and unacknowledged bytes (SIOCOUTQ) has drained past it while the
// connection still stood. Bytes the local kernel merely took are not delivered.
#include <fcntl.h>
#include <linux/sockios.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

#include "qk/sync/child_process.h"
#include "qk/sync/delivery.h"
#include "seconds_text.h"

namespace qk::sync {

namespace {

using clock = std::chrono::steady_clock;

class TcpTransport : public Transport {
 public:
  TcpTransport(std::string host, int port, double timeout, Separator separator)
      : host_(std::move(host)), port_(port), timeout_(timeout), separator_(separator) {
    label_ = "tcp://" + (host_.find(':') != std::string::npos ? "[" + host_ + "]" : host_) + ":" +
             std::to_string(port_);
  }
  ~TcpTransport() override { close_socket(!error_.empty()); }

  bool send(const Envelope& to, const std::string& record) override {
    if (!error_.empty()) return false;
    // Asked to stop: the record in flight is finished, no other one is begun.
    bool same_record =
        !ends_.empty() && to.dept == last_.dept && to.kind == last_.kind && to.id == last_.id;
    if (stop_signal() != 0 && !same_record) {
      drain();
      return fail("interrupted by signal " + std::to_string(stop_signal()));
    }
    if (fd_ < 0 && !connect_socket()) return false;
    last_ = to;
    std::string bytes = framed(separator_, record);
    std::size_t done = 0;
    auto deadline = clock::now() + timeout();
    while (done < bytes.size()) {
      if (!standing()) return false;
      ssize_t w = ::send(fd_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
      if (w > 0) {
        done += static_cast<std::size_t>(w);
        written_ += static_cast<std::size_t>(w);
        deadline = clock::now() + timeout();
        continue;
      }
      if (w < 0 && errno == EINTR) continue;
      if (w < 0 && errno != EAGAIN && errno != EWOULDBLOCK) return dropped(errno);
      // The scale reads slowly: wait while it takes something within the timeout.
      if (clock::now() >= deadline)
        return fail(label_ + ": the scale took nothing for " + seconds_text(timeout_) + " s (" +
                    std::to_string(written_ - acked_) + " bytes not acknowledged)");
      if (!wait_for(POLLOUT, deadline)) return false;
    }
    ends_.push_back(written_);
    return true;
  }

  bool commit() override {
    if (!error_.empty()) return false;
    if (!drain()) return false;
    ends_.clear();
    return true;
  }
  std::size_t batch() const override { return 64; }
  // The strings since the last commit whose every byte the peer acknowledged.
  std::size_t confirmed() const override {
    return static_cast<std::size_t>(std::upper_bound(ends_.begin(), ends_.end(), acked_) -
                                    ends_.begin());
  }
  bool finish() override {
    close_socket(false);
    return true;
  }
  const std::string& error() const override { return error_; }

 private:
  std::chrono::milliseconds timeout() const {
    return std::chrono::milliseconds(static_cast<long long>(timeout_ * 1000));
  }

  bool fail(const std::string& why) {
    if (error_.empty()) error_ = why;
    // Nothing more reaches the scale after a failure: what is still queued is thrown away.
    close_socket(true);
    return false;
  }
  bool dropped(int err) {
    return fail(label_ + ": the connection was lost (" + std::strerror(err) + "); " +
                std::to_string(acked_) + " bytes were acknowledged");
  }

  bool connect_socket() {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    int rc = ::getaddrinfo(host_.c_str(), std::to_string(port_).c_str(), &hints, &found);
    if (rc != 0) return fail(label_ + ": the host is not known (" + ::gai_strerror(rc) + ")");
    std::string why = "no address";
    for (addrinfo* ai = found; ai; ai = ai->ai_next) {
      fd_ =
          ::socket(ai->ai_family, ai->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, ai->ai_protocol);
      if (fd_ < 0) {
        why = std::strerror(errno);
        continue;
      }
      auto deadline = clock::now() + timeout();
      int r = ::connect(fd_, ai->ai_addr, ai->ai_addrlen);
      int err = r == 0 ? 0 : errno;
      while (err == EINPROGRESS || err == EINTR) {
        pollfd p{fd_, POLLOUT, 0};
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock::now());
        if (left.count() <= 0) {
          err = ETIMEDOUT;
          break;
        }
        int n = ::poll(&p, 1, static_cast<int>(std::min<long long>(left.count(), 1000)));
        if (n < 0 && errno != EINTR) err = errno;
        if (n <= 0) continue;
        socklen_t len = sizeof err;
        ::getsockopt(fd_, SOL_SOCKET, SO_ERROR, &err, &len);
      }
      if (err == 0) {
        ::freeaddrinfo(found);
        return true;
      }
      why = err == ETIMEDOUT ? "no answer within " + seconds_text(timeout_) + " s"
                             : std::string(std::strerror(err));
      ::close(fd_);
      fd_ = -1;
    }
    ::freeaddrinfo(found);
    return fail(label_ + ": cannot connect (" + why + ")");
  }

  // Whether the connection still stands; reads and drops what the scale says meanwhile. A scale
  // that closed or reset it has lost what it had not acknowledged.
  bool standing() {
    char buffer[4096];
    for (;;) {
      ssize_t r = ::recv(fd_, buffer, sizeof buffer, MSG_DONTWAIT);
      if (r > 0) continue;
      if (r == 0)
        return fail(label_ + ": the scale closed the connection; " + std::to_string(acked_) +
                    " bytes were acknowledged");
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) break;
      return dropped(errno);
    }
    tcp_info info{};
    socklen_t len = sizeof info;
    if (::getsockopt(fd_, IPPROTO_TCP, TCP_INFO, &info, &len) != 0) return dropped(errno);
    if (info.tcpi_state != TCP_ESTABLISHED) return dropped(ECONNRESET);
    return true;
  }

  // Reads how far the peer acknowledged. The queue's length is believed only while the
  // connection stands after reading it: a reset empties the queue without delivering it.
  bool update_acked() {
    int queued = 0;
    if (::ioctl(fd_, SIOCOUTQ, &queued) != 0) return dropped(errno);
    if (!standing()) return false;
    acked_ = written_ - std::min<std::size_t>(written_, static_cast<std::size_t>(queued));
    return true;
  }

  // Waits until the peer acknowledged everything written, while it keeps acknowledging within
  // the timeout.
  bool drain() {
    if (fd_ < 0) return error_.empty();
    auto deadline = clock::now() + timeout();
    for (;;) {
      std::size_t before = acked_;
      if (!update_acked()) return false;
      if (acked_ == written_) return true;
      if (acked_ != before) deadline = clock::now() + timeout();
      if (clock::now() >= deadline)
        return fail(label_ + ": the scale's side acknowledged nothing for " +
                    seconds_text(timeout_) + " s (" + std::to_string(written_ - acked_) +
                    " bytes not acknowledged)");
      // Acknowledgements raise no event of their own: look again shortly, or when the scale
      // sends or closes.
      pollfd p{fd_, POLLIN | POLLRDHUP, 0};
      ::poll(&p, 1, 2);
    }
  }

  bool wait_for(short events, clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock::now());
    pollfd p{fd_, static_cast<short>(events | POLLRDHUP), 0};
    int n = ::poll(&p, 1, static_cast<int>(std::clamp<long long>(left.count(), 0, 1000)));
    if (n < 0 && errno != EINTR) return dropped(errno);
    if (!update_acked()) return false;
    return true;
  }

  void close_socket(bool abort) {
    if (fd_ < 0) return;
    if (abort) {
      linger l{1, 0};
      ::setsockopt(fd_, SOL_SOCKET, SO_LINGER, &l, sizeof l);
    }
    ::close(fd_);
    fd_ = -1;
  }

  std::string host_, label_, error_;
  int port_;
  double timeout_;
  Separator separator_;
  int fd_ = -1;
  std::size_t written_ = 0, acked_ = 0;
  std::vector<std::size_t> ends_;  // where each string since the last commit ends
  Envelope last_;
};

}  // namespace

std::unique_ptr<Transport> tcp_transport(const std::string& host, int port, double timeout,
                                         Separator separator) {
  return std::make_unique<TcpTransport>(host, port, timeout, separator);
}

}  // namespace qk::sync
