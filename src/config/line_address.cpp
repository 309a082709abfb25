#include "qk/line_address.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <sstream>
#include <string_view>
#include <vector>

namespace qk {

namespace {

// The speeds a serial line may be set to; the transport maps each to the terminal's constant.
constexpr std::array<unsigned, 9> kSerialSpeeds = {1200,  2400,  4800,   9600,  19200,
                                                   38400, 57600, 115200, 230400};

bool whole(const std::string& p, long max, long* out) {
  if (p.empty() || p.size() > 9 || p.find_first_not_of("0123456789") != std::string::npos)
    return false;
  *out = std::stol(p);
  return *out <= max;
}

constexpr std::array<std::string_view, 4> kSeparators = {"crlf", "lf", "none", "stx-etx"};

bool starts(const std::string& s, const std::string& prefix) {
  return s.compare(0, prefix.size(), prefix) == 0;
}

// The options after "?": timeout=SECONDS and separator=NAME, joined by "&"; a serial address's
// settings come first.
bool parse_options(const std::string& query, LineAddress* a, std::string* error) {
  std::stringstream in(query);
  bool first = true;
  for (std::string part; std::getline(in, part, '&'); first = false) {
    if (first && a->scheme == LineAddress::Scheme::Serial && part.find('=') == std::string::npos) {
      a->serial = parse_serial_settings(part, error);
      if (!a->serial) return false;
    } else if (starts(part, "timeout=")) {
      std::string value = part.substr(8);
      double v = 0;
      auto [end, ec] = std::from_chars(value.data(), value.data() + value.size(), v);
      if (ec != std::errc() || end != value.data() + value.size() || !(v >= 0.001 && v <= 86400)) {
        *error = "timeout \"" + value + "\" is not a number of seconds from 0.001 to 86400";
        return false;
      }
      a->timeout = v;
    } else if (starts(part, "separator=")) {
      a->separator = part.substr(10);
      if (std::find(kSeparators.begin(), kSeparators.end(), a->separator) == kSeparators.end()) {
        *error = "separator \"" + a->separator + "\" is not crlf, lf, none or stx-etx";
        return false;
      }
    } else {
      *error = "\"" + part + "\" is not timeout=SECONDS or separator=NAME";
      return false;
    }
  }
  return true;
}

}  // namespace

std::optional<SerialSettings> parse_serial_settings(const std::string& text, std::string* error) {
  std::vector<std::string> parts;
  std::stringstream in(text);
  for (std::string p; std::getline(in, p, ',');) parts.push_back(p);
  auto bad = [&](const std::string& why) -> std::optional<SerialSettings> {
    if (error)
      *error = "\"" + text + "\": " + why + " (expected SPEED,BITS,PARITY,STOP, e.g. 9600,8,N,1)";
    return std::nullopt;
  };
  if (parts.size() != 4) return bad("four values separated by commas are needed");
  SerialSettings s;
  long n = 0;
  if (!whole(parts[0], 1000000, &n) ||
      std::find(kSerialSpeeds.begin(), kSerialSpeeds.end(), n) == kSerialSpeeds.end())
    return bad("speed " + parts[0] +
               " is not one of 1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200, 230400");
  s.speed = static_cast<unsigned>(n);
  if (!whole(parts[1], 8, &n) || n < 5)
    return bad("data bits " + parts[1] + " are not 5, 6, 7 or 8");
  s.data_bits = static_cast<int>(n);
  if (parts[2].size() != 1 || std::string("NnEeOo").find(parts[2][0]) == std::string::npos)
    return bad("parity " + parts[2] + " is not N, E or O");
  s.parity = static_cast<char>(std::toupper(static_cast<unsigned char>(parts[2][0])));
  if (!whole(parts[3], 2, &n) || n < 1) return bad("stop bits " + parts[3] + " are not 1 or 2");
  s.stop_bits = static_cast<int>(n);
  return s;
}

std::string expand_line_address(const std::string& pattern, int dept, int scale, int line) {
  std::string out;
  for (std::size_t i = 0; i < pattern.size();) {
    bool replaced = false;
    for (auto [name, value] : {std::pair{"{dept}", dept}, {"{scale}", scale}, {"{line}", line}}) {
      std::string n = name;
      if (pattern.compare(i, n.size(), n) == 0) {
        out += std::to_string(value);
        i += n.size();
        replaced = true;
        break;
      }
    }
    if (!replaced) out += pattern[i++];
  }
  return out;
}

std::optional<LineAddress> parse_line_address(const std::string& address, std::string* error) {
  LineAddress a;
  std::string why;
  auto bad = [&](const std::string& text) -> std::optional<LineAddress> {
    if (error) *error = text;
    return std::nullopt;
  };
  if (starts(address, "tcp://")) {
    a.scheme = LineAddress::Scheme::Tcp;
    std::string rest = address.substr(6);
    std::size_t q = rest.find('?');
    if (q != std::string::npos) {
      if (!parse_options(rest.substr(q + 1), &a, &why)) return bad(why);
      rest.resize(q);
    }
    std::size_t colon = rest.rfind(':');
    if (colon == std::string::npos || colon == 0)
      return bad("a TCP address is tcp://HOST:PORT, such as tcp://scale-1.lan:9100");
    a.host = rest.substr(0, colon);
    if (a.host.front() == '[') {
      if (a.host.back() != ']' || a.host.size() < 3) return bad("\"" + a.host + "\" is no host");
      a.host = a.host.substr(1, a.host.size() - 2);
    }
    if (a.host.find_first_of(" /[]") != std::string::npos)
      return bad("\"" + a.host + "\" is no host");
    long port = 0;
    if (!whole(rest.substr(colon + 1), 65535, &port) || port == 0)
      return bad("port \"" + rest.substr(colon + 1) + "\" is not a number from 1 to 65535");
    a.port = static_cast<int>(port);
    return a;
  }
  if (starts(address, "serial:")) {
    a.scheme = LineAddress::Scheme::Serial;
    std::string rest = address.substr(7);
    std::size_t q = rest.find('?');
    a.path = rest.substr(0, q);
    if (a.path.empty() || a.path.front() != '/')
      return bad("a serial address names the device's full path, such as serial:/dev/ttyUSB0");
    if (q != std::string::npos && !parse_options(rest.substr(q + 1), &a, &why)) return bad(why);
    return a;
  }
  if (starts(address, "file:")) {
    a.scheme = LineAddress::Scheme::File;
    a.path = address.substr(5);
    if (std::size_t q = a.path.rfind('?'); q != std::string::npos) {
      if (!parse_options(a.path.substr(q + 1), &a, &why)) return bad(why);
      a.path.resize(q);
    }
    if (a.path.empty()) return bad("a file address names the file, such as file:line{line}.txt");
    return a;
  }
  if (starts(address, "sender:")) {
    a.scheme = LineAddress::Scheme::Sender;
    a.command = address.substr(7);
    if (a.command.find_first_not_of(' ') == std::string::npos)
      return bad("a sender address names the command, such as sender:examples/qk_sender.py");
    return a;
  }
  return bad("an address starts with tcp://, serial:, file: or sender:");
}

std::string line_address_problem(const std::string& pattern) {
  if (pattern.empty()) return "";
  std::string why;
  // Any numbers stand for the placeholders: only the pattern's form is judged.
  if (!parse_line_address(expand_line_address(pattern, 1, 1, 1), &why)) return why;
  // A misspelt placeholder would otherwise reach a host name or a file's name.
  if (!starts(pattern, "sender:")) {
    std::string expanded = expand_line_address(pattern, 1, 1, 1);
    if (expanded.find_first_of("{}") != std::string::npos)
      return "only {dept}, {scale} and {line} are replaced in an address";
  }
  return "";
}

}  // namespace qk
