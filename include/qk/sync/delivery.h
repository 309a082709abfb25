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
#include "qk/line_address.h"
#include "qk/sync/network.h"

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

// Serial line settings, as a line's address gives them (qk/line_address.h).
using qk::parse_serial_settings;
using qk::SerialSettings;

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

// Connects to a scale's TCP port at the first string and keeps the connection. A string is
// confirmed once the peer's TCP acknowledged every byte of it (the socket's queue of unsent and
// unacknowledged bytes drained past it), never when the local kernel merely took it; that is not
// an acknowledgement by the scale's program. A refused, lost or reset connection, or `timeout`
// seconds without progress (connecting, writing or being acknowledged), stops delivery: the
// connection is aborted and nothing more is written. Each string is followed by the separator.
std::unique_ptr<Transport> tcp_transport(const std::string& host, int port, double timeout,
                                         Separator separator = Separator::CrLf);

// Delivers each record to its line's address (ScaleLine::address, qk/line_address.h), expanded
// for the record's department, scale and line: one transport per address, kept for the sync. A
// line without an address, or with one that cannot be used, stops delivery there.
std::unique_ptr<Transport> address_transport(const std::vector<ScaleLine>& lines);

}  // namespace sync
}  // namespace qk
