// A scale's TCP port for the tests, on 127.0.0.1: it reads what it is sent and keeps it, or fails
// the way a real one does (drops the connection at a chosen byte, stalls, reads slowly). A
// connection it stops reading is peeked at meanwhile: what its TCP acknowledged counts as
// received, for the sender may rightly confirm it.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace qk::testing {

class FakeScale {
 public:
  enum class Mode { Read, DropAt, StallAt, Slow };
  struct Behaviour {
    Mode mode;
    std::size_t at;  // DropAt, StallAt: the byte it stops reading at
  };

  FakeScale() : FakeScale(Behaviour{Mode::Read, 0}) {}
  // On `port`, or on a free one.
  explicit FakeScale(Behaviour b, int port = 0) : mode_(b.mode), at_(b.at) {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int one = 1;
    ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    // A small window, so that a scale that stops reading stops the sender soon.
    int small = 4096;
    ::setsockopt(listener_, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(static_cast<uint16_t>(port));
    ::bind(listener_, reinterpret_cast<sockaddr*>(&a), sizeof a);
    socklen_t len = sizeof a;
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&a), &len);
    port_ = ntohs(a.sin_port);
    ::listen(listener_, 8);
    thread_ = std::thread([this] { serve(); });
  }
  ~FakeScale() {
    stop_ = true;
    thread_.join();
    ::close(listener_);
  }
  FakeScale(const FakeScale&) = delete;
  FakeScale& operator=(const FakeScale&) = delete;

  int port() const { return port_; }
  std::string address(const std::string& options = "") const {
    return "tcp://127.0.0.1:" + std::to_string(port_) + options;
  }
  // Everything received, every connection's bytes one after the other.
  std::string received() {
    std::lock_guard<std::mutex> g(m_);
    return received_ + peeked_;
  }
  int connections() const { return connections_; }
  // From now on the scale reads everything (it came back).
  void heal() { mode_ = Mode::Read; }
  // A free port where nothing listens: connecting is refused.
  static int closed_port() {
    FakeScale s;
    return s.port();  // closed when s goes
  }

 private:
  void serve() {
    while (!stop_) {
      pollfd p{listener_, POLLIN, 0};
      if (::poll(&p, 1, 20) <= 0) continue;
      int c = ::accept(listener_, nullptr, nullptr);
      if (c < 0) continue;
      ++connections_;
      talk(c);
    }
  }

  void talk(int c) {
    char buffer[65536];
    std::size_t got = 0;
    auto last_change = std::chrono::steady_clock::now();
    while (!stop_) {
      Mode mode = mode_;
      bool reading = mode == Mode::Read || mode == Mode::Slow || got < at_;
      if (!reading) {
        // Not read any more: what waits in the queue was acknowledged by this TCP.
        ssize_t n = ::recv(c, buffer, sizeof buffer, MSG_PEEK | MSG_DONTWAIT);
        std::size_t queued = n > 0 ? static_cast<std::size_t>(n) : 0;
        {
          std::lock_guard<std::mutex> g(m_);
          if (queued != peeked_.size()) last_change = std::chrono::steady_clock::now();
          peeked_.assign(buffer, queued);
        }
        if (n == 0 || (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK)) break;  // reset
        if (mode == Mode::DropAt &&
            std::chrono::steady_clock::now() - last_change > std::chrono::milliseconds(300)) {
          linger l{1, 0};
          ::setsockopt(c, SOL_SOCKET, SO_LINGER, &l, sizeof l);
          break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        continue;
      }
      pollfd p{c, POLLIN, 0};
      if (::poll(&p, 1, 20) <= 0) continue;
      std::size_t want = mode == Mode::Slow ? 512 : sizeof buffer;
      if (mode != Mode::Read && mode != Mode::Slow) want = std::min(want, at_ - got);
      ssize_t n = ::recv(c, buffer, want, 0);
      if (n <= 0) break;
      got += static_cast<std::size_t>(n);
      std::lock_guard<std::mutex> g(m_);
      peeked_.clear();  // read now for real
      received_.append(buffer, static_cast<std::size_t>(n));
      if (mode == Mode::Slow) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    std::lock_guard<std::mutex> g(m_);
    received_ += peeked_;
    peeked_.clear();
    ::close(c);
  }

  std::atomic<Mode> mode_;
  const std::size_t at_;
  int listener_ = -1, port_ = 0;
  std::atomic<bool> stop_{false};
  std::atomic<int> connections_{0};
  std::mutex m_;
  std::string received_, peeked_;
  std::thread thread_;
};

}  // namespace qk::testing
