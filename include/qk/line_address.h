// Where a scale line's records go, as the archive keeps it (SCALE_LINES.SL_ADDRESS):
//   tcp://HOST:PORT                     a scale's TCP port ([v6 address] in brackets)
//   serial:DEVICE[?SPEED,BITS,PARITY,STOP]   a serial line, e.g. serial:/dev/ttyUSB0?9600,8,N,1
//   file:PATH                           appended to a file (relative: in the installation folder)
//   sender:COMMAND                      a sender process (one per address, docs/sync.md)
// The options of tcp, serial and file addresses follow "?" (after a serial line's settings), joined
// by "&": timeout=SECONDS (default 30) and separator=crlf|lf|none|stx-etx (what follows each
// record; default crlf).
// "{dept}", "{scale}" and "{line}" in an address stand for the line's department, scale number
// and line number, so that one pattern can serve a whole network.
#pragma once

#include <optional>
#include <string>

#include "qk/export.h"

namespace qk {

// Serial line settings "9600,8,N,1": speed, data bits (5 to 8), parity (N, E or O), stop bits
// (1 or 2).
struct QK_API SerialSettings {
  unsigned speed = 9600;
  int data_bits = 8;
  char parity = 'N';
  int stop_bits = 1;
};
// The settings, or nullopt with the reason in *error.
QK_API std::optional<SerialSettings> parse_serial_settings(const std::string& text,
                                                           std::string* error);

// The default connect, acknowledge and answer timeout of an address, in seconds.
inline constexpr double kAddressTimeout = 30;

struct QK_API LineAddress {
  enum class Scheme { Tcp, Serial, File, Sender };
  Scheme scheme = Scheme::File;
  std::string host;  // tcp
  int port = 0;      // tcp
  std::string path;  // serial: the device; file: the file
  std::optional<SerialSettings> serial;
  std::string command;  // sender
  double timeout = kAddressTimeout;
  std::string separator = "crlf";
};

// The address with its placeholders replaced by a line's numbers.
QK_API std::string expand_line_address(const std::string& pattern, int dept, int scale, int line);
// An expanded address, or nullopt with the reason in *error (the text itself is not repeated).
QK_API std::optional<LineAddress> parse_line_address(const std::string& address,
                                                     std::string* error);
// Why a pattern (placeholders allowed) is no address, "" when it is one or is empty.
QK_API std::string line_address_problem(const std::string& pattern);

}  // namespace qk
