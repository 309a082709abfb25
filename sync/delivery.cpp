#include "qk/sync/delivery.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sstream>
#include <vector>

#include "qk/sync/child_process.h"

namespace qk::sync {

namespace {

constexpr char kStx = 0x02, kEtx = 0x03;

speed_t speed_constant(unsigned speed) {
  switch (speed) {
    case 1200:
      return B1200;
    case 2400:
      return B2400;
    case 4800:
      return B4800;
    case 9600:
      return B9600;
    case 19200:
      return B19200;
    case 38400:
      return B38400;
    case 57600:
      return B57600;
    case 115200:
      return B115200;
    case 230400:
      return B230400;
  }
  return 0;
}

class FileTransport : public Transport {
 public:
  FileTransport(std::string path, Separator s, std::optional<SerialSettings> serial)
      : path_(std::move(path)), separator_(s), serial_(serial) {}
  ~FileTransport() override {
    if (fd_ >= 0) ::close(fd_);
  }
  bool send(const Envelope&, const std::string& bytes) override {
    if (fd_ < 0 && !open()) return false;
    if (stop_signal() != 0) {
      error_ = "interrupted by signal " + std::to_string(stop_signal());
      return false;
    }
    // A file gets a batch in one write at the commit that makes it durable anyway; a line or a
    // pipe gets every record as it comes, for the far end is reading.
    pending_ += framed(separator_, bytes);
    if (!regular_ && !flush()) return false;
    return true;
  }
  bool commit() override {
    if (fd_ < 0) return true;
    if (!flush()) return false;
    if (terminal_) {
      if (::tcdrain(fd_) != 0) return fail("cannot drain");
    } else if (regular_ && ::fdatasync(fd_) != 0) {
      return fail("cannot flush");
    }
    return true;
  }
  // A regular file's commit waits for the disk: fewer, larger batches. At most one batch is
  // sent again after a crash.
  std::size_t batch() const override { return regular_ ? 1024 : 256; }
  const std::string& error() const override { return error_; }

 private:
  bool open() {
    struct stat st {};
    bool exists = ::stat(path_.c_str(), &st) == 0;
    regular_ = !exists || S_ISREG(st.st_mode);
    // A device or a pipe is written as it is: never created, truncated or appended to.
    int flags =
        regular_ ? O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC : O_WRONLY | O_NOCTTY | O_CLOEXEC;
    fd_ = ::open(path_.c_str(), flags, 0644);
    if (fd_ < 0) return fail("cannot open");
    terminal_ = ::isatty(fd_);
    if (terminal_) return configure_line();
    if (serial_) {
      error_ = path_ + " is not a serial line, so --serial-settings cannot apply";
      return false;
    }
    return true;
  }
  // Raw mode, so that the line driver neither translates nor swallows a byte.
  bool configure_line() {
    termios t{};
    if (::tcgetattr(fd_, &t) != 0) return fail("cannot read the line settings of");
    ::cfmakeraw(&t);
    if (serial_) {
      speed_t sp = speed_constant(serial_->speed);
      ::cfsetispeed(&t, sp);
      ::cfsetospeed(&t, sp);
      t.c_cflag &= ~(CSIZE | PARENB | PARODD | CSTOPB);
      t.c_cflag |= serial_->data_bits == 5   ? CS5
                   : serial_->data_bits == 6 ? CS6
                   : serial_->data_bits == 7 ? CS7
                                             : CS8;
      if (serial_->parity != 'N') t.c_cflag |= PARENB | (serial_->parity == 'O' ? PARODD : 0);
      if (serial_->stop_bits == 2) t.c_cflag |= CSTOPB;
      t.c_cflag |= CLOCAL | CREAD;
    }
    if (::tcsetattr(fd_, TCSANOW, &t) != 0) return fail("cannot configure");
    return true;
  }
  bool fail(const char* what) {
    error_ = std::string(what) + " " + path_ + ": " + std::strerror(errno);
    return false;
  }
  bool flush() {
    bool ok = write_all(fd_, pending_.data(), pending_.size());
    pending_.clear();
    return ok || fail("cannot write to");
  }

  std::string path_;
  Separator separator_;
  std::optional<SerialSettings> serial_;
  int fd_ = -1;
  bool regular_ = true, terminal_ = false;
  std::string pending_;  // framed records not yet written
  std::string error_;
};

class CommandTransport : public Transport {
 public:
  explicit CommandTransport(std::string command) : command_(std::move(command)) {}
  bool send(const Envelope& to, const std::string& bytes) override {
    if (stop_signal() != 0) return fail("interrupted by signal " + std::to_string(stop_signal()));
    std::string why;
    auto child =
        start_child(command_,
                    {"QK_DEPT=" + std::to_string(to.dept), "QK_LINE=" + std::to_string(to.line),
                     "QK_SCALE=" + std::to_string(to.scale), "QK_FAMILY=" + to.family,
                     "QK_KIND=" + to.kind, "QK_ID=" + std::to_string(to.id)},
                    false, &why);
    if (!child) return fail("\"" + command_ + "\" could not be started (" + why + ")");
    write_all(child->in, bytes.data(),
              bytes.size());  // one that stops reading is judged by its status
    int status = end_child(*child, -1);
    if (stop_signal() != 0) return fail("interrupted by signal " + std::to_string(stop_signal()));
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return true;
    return fail("\"" + command_ + "\" " + describe_status(status));
  }
  bool commit() override { return true; }
  std::size_t batch() const override { return 1; }
  const std::string& error() const override { return error_; }

 private:
  bool fail(const std::string& e) {
    error_ = e;
    return false;
  }
  std::string command_;
  std::string error_;
};

}  // namespace

std::optional<Separator> parse_separator(const std::string& name) {
  if (name == "crlf") return Separator::CrLf;
  if (name == "lf") return Separator::Lf;
  if (name == "none") return Separator::None;
  if (name == "stx-etx") return Separator::StxEtx;
  return std::nullopt;
}

std::string framed(Separator s, const std::string& bytes) {
  switch (s) {
    case Separator::CrLf:
      return bytes + "\r\n";
    case Separator::Lf:
      return bytes + "\n";
    case Separator::None:
      return bytes;
    case Separator::StxEtx:
      return kStx + bytes + kEtx;
  }
  return bytes;
}

std::optional<std::string> one_per_line(const std::string& capture, std::string* error) {
  if (capture.empty() || capture[0] != kStx) return capture;
  std::string out;
  for (std::size_t at = 0; at < capture.size();) {
    if (capture[at] == '\r' || capture[at] == '\n') {  // a line end after a frame
      ++at;
      continue;
    }
    if (capture[at] != kStx) {
      *error = "byte " + std::to_string(at + 1) + " stands outside an STX…ETX frame";
      return std::nullopt;
    }
    auto end = capture.find(kEtx, at + 1);
    if (end == std::string::npos) {
      *error = "the frame at byte " + std::to_string(at + 1) + " has no ETX";
      return std::nullopt;
    }
    out += capture.substr(at + 1, end - at - 1) + "\n";
    at = end + 1;
  }
  return out;
}

std::unique_ptr<Transport> file_transport(const std::string& path, Separator separator,
                                          std::optional<SerialSettings> serial) {
  return std::make_unique<FileTransport>(path, separator, serial);
}

std::unique_ptr<Transport> command_transport(const std::string& command) {
  return std::make_unique<CommandTransport>(command);
}

namespace {

class FunctionTransport : public Transport {
 public:
  explicit FunctionTransport(Deliver deliver) : deliver_(std::move(deliver)) {}
  bool send(const Envelope& to, const std::string& bytes) override {
    try {
      deliver_(to, bytes);
      ++confirmed_;
      return true;
    } catch (const std::exception& e) {
      error_ = *e.what() ? e.what() : "the delivery function failed";
    } catch (...) {
      error_ = "the delivery function failed";
    }
    return false;
  }
  // Every string is confirmed when the function returns: the resets of a batch are written
  // together, and after a failure those that returned still count.
  bool commit() override {
    confirmed_ = 0;
    return true;
  }
  std::size_t batch() const override { return 256; }
  std::size_t confirmed() const override { return confirmed_; }
  const std::string& error() const override { return error_; }

 private:
  Deliver deliver_;
  std::size_t confirmed_ = 0;
  std::string error_;
};

}  // namespace

std::unique_ptr<Transport> function_transport(Deliver deliver) {
  return std::make_unique<FunctionTransport>(std::move(deliver));
}

}  // namespace qk::sync
