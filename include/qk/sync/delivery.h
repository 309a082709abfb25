// Delivery of the records a sync builds: to a file or a device (a serial line), or to a command.
// A transport says whether each record was taken and when what it took is durable; the sync
// resets flags only after that.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "qk/export.h"

namespace qk {
namespace QK_API sync {

// What a record is and where it goes, for transports that address records.
struct Envelope {
  int32_t dept = 0, line = 0, scale = 0;
  std::string family, kind;
  int32_t id = 0;
};

class Transport {
 public:
  virtual ~Transport() = default;
  // Delivers one string of a record; false when it could not be (error() says why).
  virtual bool send(const Envelope& to, const std::string& bytes) = 0;
  // Makes everything sent so far durable (flushed to disk, drained to the line); false when it
  // could not be.
  virtual bool commit() = 0;
  // How many records may wait between commits.
  virtual std::size_t batch() const = 0;
  // After a failure: how many of the strings sent since the last successful commit the far end
  // confirmed (in the order sent), so that those records can still be counted and reset.
  virtual std::size_t confirmed() const { return 0; }
  // Ends what the transport started (a sender process) once everything is delivered; false when
  // that did not end cleanly (error() says why).
  virtual bool finish() { return true; }
  virtual const std::string& error() const = 0;
};

// What follows each record in a file or on a line.
enum class Separator { CrLf, Lf, None, StxEtx };
std::optional<Separator> parse_separator(const std::string& name);
// The bytes of one record with its separator.
std::string framed(Separator s, const std::string& bytes);
// The records of a capture written with any separator, one per line (LF after each): STX…ETX
// frames are taken out of their frame, CR LF and LF lines are kept as lines. Nullopt with the
// reason in *error when a frame is not closed or bytes stand between frames.
std::optional<std::string> one_per_line(const std::string& capture, std::string* error);

// Serial line settings "9600,8,N,1": speed, data bits (5 to 8), parity (N, E or O), stop bits
// (1 or 2).
struct SerialSettings {
  unsigned speed = 9600;
  int data_bits = 8;
  char parity = 'N';
  int stop_bits = 1;
};
// The settings, or nullopt with the reason in *error.
std::optional<SerialSettings> parse_serial_settings(const std::string& text, std::string* error);

// Appends to a file (created when missing, flushed to disk on commit) or writes to a device
// (never truncated; a terminal is put in raw mode, configured with the serial settings when
// given, and drained on commit). Opened at the first record, so a sync that sends nothing leaves
// no file behind.
std::unique_ptr<Transport> file_transport(const std::string& path, Separator separator,
                                          std::optional<SerialSettings> serial);

// Runs `sh -c command` once per string with the bytes on its standard input; a string is taken
// when the command exits 0. The environment carries QK_DEPT, QK_LINE, QK_SCALE, QK_FAMILY,
// QK_KIND and QK_ID of the record.
std::unique_ptr<Transport> command_transport(const std::string& command);

// A host's own delivery of one string of a record: returns once the bytes are safely delivered
// (written to the scale's line and, as far as the host can tell, taken), and throws when they
// could not be; what it throws (a std::exception's what()) is the reason delivery stopped.
using Deliver = std::function<void(const Envelope& to, const std::string& bytes)>;
// A transport over the host's function: a string is confirmed when the function returns, so a
// record is reset only after every string of it returned.
std::unique_ptr<Transport> function_transport(Deliver deliver);

// Starts `sh -c command` once for the line and frames every string on its standard input
// ("REC n dept line scale family kind id length", LF, the bytes, LF); a string is taken when the
// command answers "OK n" on its standard output. "ERR n text", another answer, an exit, or no
// answer within `timeout_seconds` stops delivery. The environment carries QK_LINE and, when the
// sync serves one department (`one_department`), QK_DEPT, QK_SCALE and QK_FAMILY.
std::unique_ptr<Transport> sender_transport(const std::string& command, double timeout_seconds,
                                            bool one_department);

}  // namespace sync
}  // namespace qk
