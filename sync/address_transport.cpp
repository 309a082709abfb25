// Delivery to each line's own address (SCALE_LINES.SL_ADDRESS): one transport per address, kept
// for the sync. Only one address has unconfirmed strings at a time (the last one's are made
// durable before another address gets a string), so the strings confirmed after a failure are
// those made durable before it plus those its own address confirmed.
#include <map>

#include "qk/host.h"
#include "qk/line_address.h"
#include "qk/sync/delivery.h"

namespace qk::sync {

namespace {

class AddressTransport : public Transport {
 public:
  explicit AddressTransport(const std::vector<ScaleLine>& lines) {
    for (const auto& l : lines) patterns_[{l.dept, l.line}] = l.address;
  }

  bool send(const Envelope& to, const std::string& bytes) override {
    if (!error_.empty()) return false;
    Transport* t = transport_for(to);
    if (!t) return false;
    if (t != current_ && current_ && since_commit_ > 0) {
      if (!current_->commit()) return failed(current_);
      durable_ += since_commit_;
      since_commit_ = 0;
    }
    current_ = t;
    if (!t->send(to, bytes)) return failed(t);
    ++since_commit_;
    return true;
  }
  bool commit() override {
    if (!error_.empty()) return false;
    if (current_ && since_commit_ > 0 && !current_->commit()) return failed(current_);
    durable_ = since_commit_ = 0;
    return true;
  }
  std::size_t batch() const override { return 64; }
  std::size_t confirmed() const override { return confirmed_; }
  bool finish() override {
    bool ok = true;
    for (auto& [address, t] : open_)
      if (!t->finish() && error_.empty()) {
        error_ = t->error();
        ok = false;
      }
    return ok;
  }
  const std::string& error() const override { return error_; }

 private:
  Transport* transport_for(const Envelope& to) {
    auto p = patterns_.find({to.dept, to.line});
    std::string where =
        "department " + std::to_string(to.dept) + ", line " + std::to_string(to.line);
    if (p == patterns_.end() || p->second.empty())
      return refuse(where + " has no address (give it one: qkp lines set --dept " +
                    std::to_string(to.dept) + " --line " + std::to_string(to.line) +
                    " … --to ADDRESS)");
    std::string address = expand_line_address(p->second, to.dept, to.scale, to.line);
    if (auto it = open_.find(address); it != open_.end()) return it->second.get();
    std::string why;
    auto a = parse_line_address(address, &why);
    if (!a) return refuse(where + ": the address \"" + address + "\" " + why);
    std::unique_ptr<Transport> t;
    Separator separator = parse_separator(a->separator).value_or(Separator::CrLf);
    switch (a->scheme) {
      case LineAddress::Scheme::Tcp:
        t = tcp_transport(a->host, a->port, a->timeout, separator);
        break;
      case LineAddress::Scheme::Serial:
        t = file_transport(a->path, separator, a->serial);
        break;
      case LineAddress::Scheme::File:
        t = file_transport(path_in(installation_folder(), a->path), separator, std::nullopt);
        break;
      case LineAddress::Scheme::Sender:
        t = sender_transport(a->command, a->timeout, true);
        break;
    }
    return open_.emplace(address, std::move(t)).first->second.get();
  }

  Transport* refuse(const std::string& why) {
    error_ = why;
    confirmed_ = durable_;
    // The address before this one has what it was sent: make it durable so it counts.
    if (current_ && since_commit_ > 0) {
      if (current_->commit())
        confirmed_ = durable_ + since_commit_;
      else
        confirmed_ = durable_ + current_->confirmed();
    }
    return nullptr;
  }
  bool failed(Transport* t) {
    confirmed_ = durable_ + (t == current_ ? t->confirmed() : 0);
    error_ = t->error();
    return false;
  }

  std::map<std::pair<int32_t, int32_t>, std::string> patterns_;
  std::map<std::string, std::unique_ptr<Transport>> open_;
  Transport* current_ = nullptr;
  std::size_t since_commit_ = 0, durable_ = 0, confirmed_ = 0;
  std::string error_;
};

}  // namespace

std::unique_ptr<Transport> address_transport(const std::vector<ScaleLine>& lines) {
  return std::make_unique<AddressTransport>(lines);
}

}  // namespace qk::sync
