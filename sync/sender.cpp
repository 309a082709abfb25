// The persistent sender: one process per sync of a line, records framed on its standard input with
// their department, scale and family, one acknowledgement line per record on its standard output
// (docs/sync.md, "Senders").
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>

#include "qk/sync/child_process.h"
#include "qk/sync/delivery.h"
#include "seconds_text.h"

namespace qk::sync {

namespace {

// Records may run ahead of their acknowledgements up to this many: the acknowledgements of that
// many fit in a pipe, so neither side can block the other.
constexpr std::size_t kMaxUnacknowledged = 1024;
constexpr std::size_t kWriteBuffer = 64 * 1024;
constexpr double kExitPatience = 5.0;
// The longest answer line taken: an answer is "OK <n>" or "ERR <n> <text>"; anything longer is a
// sender (or a device echoing binary) that does not speak the protocol.
constexpr std::size_t kMaxAnswer = 4096;

class SenderTransport : public Transport {
 public:
  SenderTransport(std::string command, double timeout, bool one_department)
      : command_(std::move(command)), timeout_(timeout), one_department_(one_department) {}
  ~SenderTransport() override { close_sender(); }

  bool send(const Envelope& to, const std::string& bytes) override {
    if (stopped()) return false;
    if (child_.pid > 0 && to.line != at_.line) {
      if (!acknowledge_all()) return false;
      if (!close_sender()) return false;
    }
    if (child_.pid <= 0 && !start(to)) return false;
    ++sequence_;
    waiting_.push_back(sequence_);
    out_ += frame_header(sequence_, to, bytes.size());
    out_ += bytes;
    out_ += '\n';
    if (out_.size() >= kWriteBuffer && !flush_out()) return false;
    if (!read_answers(0)) return false;
    while (waiting_.size() > kMaxUnacknowledged)
      if (!flush_out() || !read_answers(timeout_)) return false;
    return true;
  }

  bool commit() override {
    if (!acknowledge_all()) return false;
    confirmed_ = 0;
    return true;
  }
  std::size_t batch() const override { return 256; }
  std::size_t confirmed() const override { return confirmed_; }
  bool finish() override {
    if (!error_.empty()) return true;  // already reported where it stopped
    return close_sender();
  }
  const std::string& error() const override { return error_; }

 private:
  bool start(const Envelope& to) {
    std::string why;
    std::vector<std::string> env = {"QK_LINE=" + std::to_string(to.line)};
    // Serving one department's line, the sender serves one scale: say which.
    if (one_department_)
      env.insert(env.end(), {"QK_DEPT=" + std::to_string(to.dept),
                             "QK_SCALE=" + std::to_string(to.scale), "QK_FAMILY=" + to.family});
    auto c = start_child(command_, env, true, &why);
    if (!c) return fail("the sender \"" + command_ + "\" could not be started (" + why + ")");
    child_ = *c;
    at_ = to;
    return true;
  }

  // Ends the current sender once everything it was sent is acknowledged; false when it then
  // exits with an error status.
  bool close_sender() {
    if (child_.pid <= 0) return true;
    bool quiet = waiting_.empty() && error_.empty();
    // A sender that failed is not waited for: it may be the one that hangs.
    int status = end_child(child_, quiet ? kExitPatience : 0.2);
    if (quiet && !(WIFEXITED(status) && WEXITSTATUS(status) == 0))
      return fail("the sender \"" + command_ + "\" " + describe_status(status) +
                  " after acknowledging every record");
    return true;
  }

  bool acknowledge_all() {
    if (!flush_out()) return false;
    while (!waiting_.empty())
      if (!read_answers(timeout_)) return false;
    return true;
  }

  bool flush_out() {
    if (out_.empty()) return true;
    if (!write_all(child_.in, out_.data(), out_.size())) {
      if (stopped()) return false;
      // It stopped reading: keep the answers it gave before, then say how it ended.
      int err = errno;
      while (!waiting_.empty() && read_answers(timeout_)) {
      }
      if (error_.empty())
        return fail("cannot write to the sender \"" + command_ + "\": " + std::strerror(err));
      return false;
    }
    out_.clear();
    return true;
  }

  // Reads what the sender has answered, waiting up to `seconds` for each complete answer while
  // records wait for one (0: only what is there). False on an error, an ERR, a timeout, an
  // answer line longer than kMaxAnswer, or a stop request.
  bool read_answers(double seconds) {
    using clock = std::chrono::steady_clock;
    auto patience =
        std::chrono::duration_cast<clock::duration>(std::chrono::duration<double>(seconds));
    auto deadline = clock::now() + patience;
    while (true) {
      std::size_t before = waiting_.size();
      if (!take_lines()) return false;
      if (waiting_.empty()) return true;
      // Only a complete answer gives the next record its full time: a sender trickling bytes
      // without a line end does not hold the line for ever.
      if (waiting_.size() != before) deadline = clock::now() + patience;
      if (stopped()) return false;
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock::now());
      pollfd p{child_.out, POLLIN, 0};
      int r = ::poll(&p, 1, static_cast<int>(std::clamp<long long>(left.count(), 0, 1000)));
      if (r < 0 && errno == EINTR) continue;
      if (r < 0) return fail(std::string("poll: ") + std::strerror(errno));
      if (r == 0) {
        if (seconds == 0) return true;
        if (clock::now() < deadline) continue;
        return fail("the sender did not acknowledge record " + std::to_string(waiting_.front()) +
                    " within " + seconds_text(seconds) + " s (--sender-timeout)");
      }
      char buf[4096];
      ssize_t n = ::read(child_.out, buf, sizeof buf);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) {
        take_lines();
        int status = end_child(child_, kExitPatience);
        return fail("the sender \"" + command_ + "\" " + describe_status(status) +
                    " before acknowledging record " + std::to_string(waiting_.front()));
      }
      in_.append(buf, static_cast<std::size_t>(n));
    }
  }

  // Consumes the complete answer lines read so far, looking at each byte once.
  bool take_lines() {
    std::size_t from = 0;
    for (std::size_t nl; (nl = in_.find('\n', scanned_)) != std::string::npos; scanned_ = from) {
      std::string line = in_.substr(from, nl - from);
      from = nl + 1;
      if (!line.empty() && line.back() == '\r') line.pop_back();
      if (!answer(line)) return false;
    }
    in_.erase(0, from);
    scanned_ = in_.size();
    if (in_.size() > kMaxAnswer)
      return fail("the sender wrote more than " + std::to_string(kMaxAnswer) +
                  " bytes without a line end while record " +
                  (waiting_.empty() ? std::string("(none)") : std::to_string(waiting_.front())) +
                  " waited for its answer (\"OK <n>\" or \"ERR <n> <text>\")");
    return true;
  }

  // "OK [n]" or "ERR [n] text", for the oldest record waiting.
  bool answer(const std::string& line) {
    std::string word = line.substr(0, line.find(' '));
    std::string rest = line.size() > word.size() ? line.substr(word.size() + 1) : "";
    if (word != "OK" && word != "ERR")
      return fail("the sender answered \"" + line + "\", not \"OK <n>\" or \"ERR <n> <text>\"");
    std::size_t digits = rest.find_first_not_of("0123456789");
    std::string number = rest.substr(0, digits);
    if (!number.empty() && (digits == std::string::npos || rest[digits] == ' ')) {
      rest = digits == std::string::npos ? "" : rest.substr(digits + 1);
      if (number.size() > 18 || waiting_.empty() || std::stoll(number) != waiting_.front())
        return fail("the sender acknowledged record " + number + ", which was not the one " +
                    (waiting_.empty() ? std::string("(none was waiting)")
                                      : "waiting (" + std::to_string(waiting_.front()) + ")"));
    } else if (word == "OK" && !rest.empty()) {
      return fail("the sender answered \"" + line + "\", not \"OK <n>\" or \"ERR <n> <text>\"");
    }
    if (waiting_.empty())
      return fail("the sender answered \"" + line + "\" when no record was waiting");
    if (word == "ERR")
      return fail("the sender refused record " + std::to_string(waiting_.front()) + ": " +
                  (rest.empty() ? "(no reason given)" : rest));
    waiting_.pop_front();
    ++confirmed_;
    return true;
  }

  static std::string frame_header(long long n, const Envelope& to, std::size_t length) {
    return "REC " + std::to_string(n) + " " + std::to_string(to.dept) + " " +
           std::to_string(to.line) + " " + std::to_string(to.scale) + " " + to.family + " " +
           to.kind + " " + std::to_string(to.id) + " " + std::to_string(length) + "\n";
  }

  bool stopped() {
    if (stop_signal() == 0) return false;
    if (error_.empty()) error_ = "interrupted by signal " + std::to_string(stop_signal());
    return true;
  }

  bool fail(const std::string& e) {
    if (error_.empty()) error_ = e;
    return false;
  }

  std::string command_;
  double timeout_;
  bool one_department_;
  Child child_;
  Envelope at_;
  long long sequence_ = 0;
  std::deque<long long> waiting_;
  std::size_t confirmed_ = 0;
  std::string out_, in_, error_;
  std::size_t scanned_ = 0;  // bytes of in_ known to hold no line end
};

}  // namespace

std::unique_ptr<Transport> sender_transport(const std::string& command, double timeout_seconds,
                                            bool one_department) {
  return std::make_unique<SenderTransport>(command, timeout_seconds, one_department);
}

}  // namespace qk::sync
