#include "sync.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>

#include "db_access/clsDbAccess.h"
#include "frame/encoding.h"
#include "frame/paths.h"
#include "qk/clsAbbinamentoTasti.h"
#include "qk/clsAdvertisingMessage.h"
#include "qk/clsBarCode.h"
#include "qk/clsEText.h"
#include "qk/clsImage.h"
#include "qk/clsImageKestra.h"
#include "qk/clsIva.h"
#include "qk/clsLayout.h"
#include "qk/clsSimple.h"
#include "qk/clsTraceability.h"
#include "session.h"

namespace qkp {

using qk::automation::Variant;

namespace {

// Ids of one table's records for the department, pending on the line unless full.
std::vector<long> ids(const std::string& select, const std::string& flag_column, long dept,
                      long line, bool full, std::vector<Variant> extra = {}) {
  qk::companions::clsDbAccess db;
  db.Initialize(Variant("Archivi.mdb"));
  std::string sql = select;
  std::vector<Variant> params{dept, line};
  for (auto& e : extra) params.push_back(e);
  if (!full)
    sql += " and substr(" + flag_column + ", ?2, 1) = '1'";
  else
    sql += " and ?2 = ?2";
  auto rs = db.archive().query(sql + " order by 1", params);
  std::vector<long> out;
  for (; !rs->Eof(); rs->MoveNext()) out.push_back(rs->Fields(rs->columns()[0]).to_int32());
  return out;
}

}  // namespace

std::vector<Item> collect(Kind kind, const ScaleLine& where, const FamilyForms& f,
                          const SyncScope& scope, const Variant& configured) {
  std::vector<Item> items;
  long dept = where.dept, line = where.line;
  bool full = scope.full;
  if (!takes(f, kind) || (!full && !has_flags(kind))) return items;
  int32_t reset_line = static_cast<int32_t>(line);

  switch (kind) {
    case Kind::Date: {
      bool tagged = std::string(f.date) == "5000";
      items.push_back({kind, "date and time", nullptr,
                       [tagged] {
                         qk::clsSimple s;
                         return std::vector<std::string>{tagged ? s.DataOraO5000() : s.DataOra()};
                       },
                       nullptr});
      break;
    }
    case Kind::Vat: {
      auto iva = std::make_shared<qk::clsIva>();
      iva->Initialize();
      for (int16_t p = 1; p <= iva->RecordCount(); ++p)
        items.push_back({kind, "VAT rate " + std::to_string(p), nullptr,
                         [iva, p] {
                           int16_t pos = p;
                           iva->CursorPosition(pos);
                           return std::vector<std::string>{iva->Protocol2000()};
                         },
                         nullptr});
      break;
    }
    case Kind::Barcodes: {
      if (line > 4 && !full) break;  // barcode flags have four positions
      auto bc = std::make_shared<qk::clsBarCode>();
      bc->p_varKey(Variant(static_cast<int32_t>(dept)));
      bc->p_varConfiguredLines(configured);
      for (long form :
           ids("select BC_FORM from BARCODE where BC_BNC = ?1", "BC_FLAGTRASM", dept, line, full)) {
        std::string fs = std::to_string(form);
        std::function<void()> reset;
        if (line <= 4)
          reset = [bc, fs, reset_line] {
            int32_t l = reset_line;
            bc->p_strForm(fs);
            bc->p_ResetFlagTrasm(l);
          };
        items.push_back({kind, "barcode form " + fs,
                         [bc, fs] {
                           bc->p_strForm(fs);
                           return bc->p_strFlagTrasm();
                         },
                         [bc, fs] {
                           bc->p_strForm(fs);
                           return std::vector<std::string>{bc->p_strProtocol()};
                         },
                         reset});
      }
      break;
    }
    case Kind::Keys: {
      auto keys = std::make_shared<qk::clsAbbinamentoTasti>();
      keys->p_varKey(Variant(static_cast<int32_t>(dept)));
      keys->p_strScale(std::to_string(where.scale));
      keys->p_intLine(static_cast<int16_t>(line));
      keys->p_varConfiguredLines(configured);
      std::string form = f.keys;
      if (form == "3000") {
        // One type "35" record per block of 15 keys of the line's scale.
        for (long block : ids("select distinct (TP_KEY - 1) / 15 from TASTIERA_PLU"
                              " where TP_BNC = ?1 and TP_SCALE = ?3",
                              "TP_FLAGTRASM", dept, line, full, {Variant(where.scale)})) {
          std::string first = std::to_string(block * 15 + 1);
          auto select = [keys, first] { keys->p_strScaleKey(first); };
          items.push_back({kind, "key block " + std::to_string(block),
                           [keys, select] {
                             select();
                             return keys->p_strFlagTrasm();
                           },
                           [keys, select] {
                             select();
                             return std::vector<std::string>{keys->p_strProtocol()};
                           },
                           [keys, select, reset_line] {
                             int32_t l = reset_line;
                             select();
                             keys->p_ResetFlagTrasm(l);
                           }});
        }
      } else {
        bool o50 = form == "5000";
        for (long key : ids("select distinct TP_KEY from TASTIERA_PLU where TP_BNC = ?1",
                            "TP_FLAGTRASM", dept, line, full)) {
          std::string k = std::to_string(key);
          auto select = [keys, k] { keys->p_strScaleKey(k); };
          items.push_back({kind, "key " + k,
                           [keys, select, o50] {
                             select();
                             return o50 ? keys->p_strFlagTrasm50() : keys->p_strFlagTrasm20();
                           },
                           [keys, select, o50] {
                             select();
                             return std::vector<std::string>{o50 ? keys->p_strProtocolO50()
                                                                 : keys->p_strProtocolO20()};
                           },
                           [keys, select, o50, reset_line] {
                             int32_t l = reset_line;
                             select();
                             if (o50)
                               keys->p_ResetFlagTrasm50(l);
                             else
                               keys->p_ResetFlagTrasm20(l);
                           }});
        }
      }
      break;
    }
    case Kind::Lots: {
      auto lots = std::make_shared<qk::clsTraceability>();
      lots->p_lngBnc(static_cast<int32_t>(dept));
      lots->p_varConfiguredLines(configured);
      std::string form = f.lots;
      for (long id : ids("select distinct TRC_ID from TRACEABILITY where TRC_BNC = ?1",
                         "TRC_FLAGTRASM", dept, line, full)) {
        std::string n = std::to_string(id);
        auto select = [lots, n] { lots->p_strTraceabilityId(n); };
        items.push_back({kind, "lot " + n,
                         [lots, select] {
                           select();
                           return lots->p_strFlagTrasm();
                         },
                         [lots, select, form]() -> std::vector<std::string> {
                           select();
                           if (form == "velta") return {lots->p_strProtocol()};
                           if (form == "3000top") return lots->p_3000TOP_strProtocol().items();
                           if (form == "2000") return lots->p_2000_strProtocol().items();
                           if (form == "3000") return lots->p_3000_strProtocol().items();
                           return {lots->p_5000_strProtocol()};
                         },
                         [lots, select, reset_line] {
                           int32_t l = reset_line;
                           select();
                           lots->p_ResetFlagTrasm(l);
                         }});
      }
      break;
    }
    case Kind::Ads: {
      auto ads = std::make_shared<qk::clsAdvertisingMessage>();
      int32_t counter = static_cast<int32_t>(dept);
      ads->Counter(counter);
      ads->configuredLines(configured);
      for (long id :
           ids("select Id from ADVERTISING where ADV_BNC = ?1", "FLAGTRASM", dept, line, full)) {
        int32_t n = static_cast<int32_t>(id);
        auto select = [ads, n] {
          int32_t v = n;
          ads->Id(v);
        };
        items.push_back({kind, "advertising message " + std::to_string(n),
                         [ads, select] {
                           select();
                           return ads->p_strFlagTrasm();
                         },
                         [ads, select] {
                           select();
                           return std::vector<std::string>{ads->Protocol().to_string()};
                         },
                         [ads, select, reset_line] {
                           int32_t l = reset_line;
                           select();
                           ads->p_ResetFlagTrasm(l);
                         }});
      }
      break;
    }
    case Kind::ETexts: {
      auto e = std::make_shared<qk::clsEText>();
      int32_t counter = static_cast<int32_t>(dept);
      e->Counter(counter);
      e->InitializeGlobal();
      e->GlobalMode(true);
      for (int16_t p = 1; p <= e->RecordCount(); ++p)
        items.push_back({kind, "electronic text " + std::to_string(p), nullptr,
                         [e, p] {
                           e->CursorPosition(p);
                           return std::vector<std::string>{e->Protocol().to_string()};
                         },
                         nullptr});
      break;
    }
    case Kind::Layouts: {
      auto layout = std::make_shared<qk::clsLayout>();
      layout->p_lngBnc(static_cast<int32_t>(dept));
      int16_t device = std::string(f.layouts) == "3000" ? 2 : 1;
      for (long id : ids("select TK_ID from TICKET where TK_BNC = ?1", "", dept, line, true))
        items.push_back({kind, "layout " + std::to_string(id), nullptr,
                         [layout, id, device]() -> std::vector<std::string> {
                           layout->p_lngTicketId(static_cast<int32_t>(id));
                           if (!layout->p_booRetrieveData()) return {};
                           return layout->p_strProtocol(device).items();
                         },
                         nullptr});
      break;
    }
    case Kind::Images: {
      qk::companions::clsDbAccess db;
      db.Initialize(Variant("Archivi.mdb"));
      auto rs = db.archive().query(
          "select IM_ID, IM_FILE_NAME, IM_DESCRIPTION, IM_FROM, IM_TO from IMMAGINI"
          " where IM_BNC = ?1 order by IM_ID",
          {dept});
      std::string folder = qk::with_trailing_separator(qk::component_folder()) + "images/";
      bool kestra = std::string(f.images) == "kestra";
      for (; !rs->Eof(); rs->MoveNext()) {
        long id = rs->Fields("IM_ID").to_int32();
        std::string path = folder + rs->Fields("IM_FILE_NAME").to_string();
        std::string desc = rs->Fields("IM_DESCRIPTION").to_string();
        std::string from = rs->Fields("IM_FROM").to_string(), to = rs->Fields("IM_TO").to_string();
        items.push_back({kind, "image " + std::to_string(id), nullptr,
                         [=]() -> std::vector<std::string> {
                           if (kestra) {
                             qk::clsImageKestra k;
                             k.p_varKey(Variant(static_cast<int32_t>(id)));
                             k.p_strFullPath(path);
                             return k.p_strProtocol().items();
                           }
                           qk::clsImage i;
                           i.p_varKey(Variant(static_cast<int32_t>(id)));
                           i.p_strFullPath(path);
                           i.p_strDescription(desc);
                           i.p_strFromDate(from);
                           i.p_strToDate(to);
                           return i.p_strProtocol().items();
                         },
                         nullptr});
      }
      break;
    }
  }
  return items;
}

namespace {

// Delivery of strings: appended to a file (made durable before any reset) or given to a
// command's standard input, one run per string.
class Transport {
 public:
  virtual ~Transport() = default;
  // Delivers one string; false when it could not be.
  virtual bool send(const std::string& bytes) = 0;
  // Makes what was sent durable; false when it could not be.
  virtual bool commit() = 0;
  // How many records may wait between commits.
  virtual std::size_t batch() const = 0;
};

class FileTransport : public Transport {
 public:
  FileTransport(const std::string& path, Format format) : path_(path), format_(format) {
    fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd_ < 0) error_ = "cannot open " + path + ": " + std::strerror(errno);
  }
  ~FileTransport() override {
    if (fd_ >= 0) ::close(fd_);
  }
  const std::string& error() const { return error_; }
  bool send(const std::string& bytes) override {
    std::string e = encode_one(format_, bytes);
    const char* p = e.data();
    std::size_t left = e.size();
    while (left > 0) {
      ssize_t n = ::write(fd_, p, left);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) {
        error_ = "cannot write " + path_ + ": " + std::strerror(errno);
        return false;
      }
      p += n;
      left -= static_cast<std::size_t>(n);
    }
    return true;
  }
  bool commit() override {
    if (::fsync(fd_) != 0) {
      error_ = "cannot flush " + path_ + ": " + std::strerror(errno);
      return false;
    }
    return true;
  }
  std::size_t batch() const override { return 256; }

 private:
  std::string path_;
  Format format_;
  int fd_ = -1;
  std::string error_;
};

class CommandTransport : public Transport {
 public:
  explicit CommandTransport(std::string command) : command_(std::move(command)) {}
  bool send(const std::string& bytes) override {
    int in[2];
    if (::pipe2(in, O_CLOEXEC) != 0) return fail(std::string("pipe: ") + std::strerror(errno));
    pid_t pid = ::fork();
    if (pid < 0) return fail(std::string("fork: ") + std::strerror(errno));
    if (pid == 0) {
      ::dup2(in[0], 0);
      ::execl("/bin/sh", "sh", "-c", command_.c_str(), static_cast<char*>(nullptr));
      ::_exit(127);
    }
    ::close(in[0]);
    std::signal(SIGPIPE, SIG_IGN);
    const char* p = bytes.data();
    std::size_t left = bytes.size();
    while (left > 0) {
      ssize_t n = ::write(in[1], p, left);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;  // the command stopped reading; its exit status decides
      p += n;
      left -= static_cast<std::size_t>(n);
    }
    ::close(in[1]);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return true;
    return fail("\"" + command_ + "\" " +
                (WIFEXITED(status) ? "exited with status " + std::to_string(WEXITSTATUS(status))
                                   : "was killed by signal " + std::to_string(WTERMSIG(status))));
  }
  bool commit() override { return true; }
  std::size_t batch() const override { return 1; }
  const std::string& error() const { return error_; }

 private:
  bool fail(const std::string& e) {
    error_ = e;
    return false;
  }
  std::string command_;
  std::string error_;
};

struct Tally {
  long records = 0, failed = 0;
  long long bytes = 0;
};

}  // namespace

bool run_sync(const SyncOptions& o) {
  auto start = std::chrono::steady_clock::now();
  std::vector<ScaleLine> network = read_network();
  Variant configured = configured_lines(network);
  std::unique_ptr<Transport> transport;
  std::function<std::string()> transport_error;
  if (!o.out_file.empty()) {
    auto t = std::make_unique<FileTransport>(o.out_file, o.format);
    if (!t->error().empty()) {
      fail(t->error());
      return false;
    }
    transport_error = [p = t.get()] { return p->error(); };
    transport = std::move(t);
  } else {
    auto t = std::make_unique<CommandTransport>(o.exec);
    transport_error = [p = t.get()] { return p->error(); };
    transport = std::move(t);
  }
  bool terminal = ::isatty(2);
  std::map<Kind, Tally> tally;
  bool ok = true, any_line = false;
  for (const ScaleLine& where : network) {
    if (where.line != o.scope.line || (o.scope.dept >= 0 && where.dept != o.scope.dept)) continue;
    any_line = true;
    const FamilyForms* forms = forms_of(where.family);
    if (!forms) {
      fail("department " + std::to_string(where.dept) + " line " + std::to_string(where.line) +
           ": unknown family " + where.family);
      ok = false;
      continue;
    }
    // Records delivered but not yet durable wait here for their reset.
    std::vector<std::function<void()>> waiting;
    qk::companions::clsDbAccess db;
    db.Initialize(Variant("Archivi.mdb"));
    auto commit = [&] {
      if (!transport->commit()) return false;
      // The resets of a batch in one transaction: a crash before it commits only means the
      // batch is sent again.
      qk::companions::Archive::Transaction t(db.archive());
      for (auto& r : waiting) r();
      t.commit();
      waiting.clear();
      return true;
    };
    bool line_ok = true;
    // Without --full the date goes first only when something is pending for the line.
    std::vector<std::vector<Item>> all;
    std::size_t pending = 0;
    for (Kind k : kKinds) {
      all.push_back(collect(k, where, *forms, o.scope, configured));
      if (has_flags(k)) pending += all.back().size();
    }
    if (!o.scope.full && pending == 0) continue;
    if (!o.scope.full && forms->date)
      all[0] = collect(Kind::Date, where, *forms, {0, -1, true}, configured);
    for (auto& kind_items : all) {
      for (Item& item : kind_items) {
        std::vector<std::string> strings = item.build();
        std::erase(strings, std::string());
        Tally& t = tally[item.kind];
        if (strings.empty()) {
          // Reported by the class; left pending and counted.
          ++t.failed;
          ok = false;
          std::fprintf(stderr,
                       "qkp: department %ld line %ld: %s could not be built, left pending\n",
                       where.dept, where.line, item.label.c_str());
          continue;
        }
        for (const auto& s : strings) {
          if (!transport->send(s)) {
            line_ok = false;
            break;
          }
          t.bytes += static_cast<long long>(s.size());
        }
        if (!line_ok) break;
        ++t.records;
        if (item.reset) waiting.push_back(item.reset);
        if (waiting.size() >= transport->batch() && !commit()) {
          line_ok = false;
          break;
        }
        if (terminal) {
          long n = 0;
          for (auto& [k, v] : tally) n += v.records;
          if (n % 200 == 0)
            std::fprintf(stderr, "\rqkp: department %ld line %ld: %ld records sent", where.dept,
                         where.line, n);
        }
      }
      if (!line_ok) break;
    }
    if (line_ok && !commit()) line_ok = false;
    if (!line_ok) {
      if (terminal) std::fprintf(stderr, "\n");
      fail("department " + std::to_string(where.dept) + " line " + std::to_string(where.line) +
           ": delivery stopped (" + transport_error() + "); what was not delivered stays pending");
      ok = false;
    }
  }
  if (!any_line) {
    fail("no department configures line " + std::to_string(o.scope.line) +
         (o.scope.dept >= 0 ? " in department " + std::to_string(o.scope.dept) : ""));
    return false;
  }
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (terminal) std::fprintf(stderr, "\n");
  long records = 0;
  long long bytes = 0;
  for (auto& [k, t] : tally) {
    std::fprintf(stderr, "qkp: %-9s %6ld records %9lld bytes%s\n", kind_name(k), t.records, t.bytes,
                 t.failed ? (" " + std::to_string(t.failed) + " failed").c_str() : "");
    records += t.records;
    bytes += t.bytes;
  }
  std::fprintf(stderr, "qkp: sync of line %ld: %ld records, %lld bytes in %.3f s\n", o.scope.line,
               records, bytes, seconds);
  return ok;
}

}  // namespace qkp
