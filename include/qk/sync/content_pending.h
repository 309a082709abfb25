// Records without flags (VAT rates, electronic texts, layouts, images) are pending on a line by
// content: when the rows they are built from changed since their last confirmed delivery there
// (QK_DELIVERED), or when no delivery to the line's present scale is on record. The rows are
// compared by their count and highest ROW_VERSION, read once per kind for the whole archive.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <tuple>

#include "qk/archive_versions.h"
#include "qk/export.h"
#include "qk/families.h"
#include "qk/sync/network.h"

namespace qk {
namespace QK_API sync {

class ContentPending {
 public:
  // Nothing is read until asked.
  explicit ContentPending(ArchiveTools& a);
  // Whether the archive tells row versions; without them such records go only with a full sync.
  bool available() const { return versions_ != nullptr; }

  // The records of the kind in the line's department that are pending on the line, each with
  // why ("never sent", "changed since 2026-11-20 14:02"); empty when the kind has no flags-free
  // content or everything is as last delivered.
  std::map<int32_t, std::string> pending(const ScaleLine& where, Kind k);
  // What the record's rows are now ("rows:version"; "" when unknown): kept with its delivery.
  std::string rows_of(Kind k, int32_t dept, int32_t id);

 private:
  struct Versions {
    std::map<std::pair<int32_t, int32_t>, std::string> records;  // (dept, id)
    std::map<int32_t, std::string> departments;  // what every record of a department reads too
    std::string whole;                           // a table read whole (VAT rates)
    int32_t whole_rows = 0;
  };
  struct Delivered {
    std::string store, family, rows, time;
    int32_t scale = 0;
  };
  const Versions& versions(Kind k);
  const std::map<std::tuple<int32_t, std::string, int32_t>, Delivered>& delivered(int32_t line);

  ArchiveTools& a_;
  ArchiveVersions* versions_;
  std::map<Kind, Versions> kinds_;
  std::map<int32_t, std::map<std::tuple<int32_t, std::string, int32_t>, Delivered>> lines_;
};

// A record without flags confirmed on a line, as its delivery is kept.
struct DeliveredRecord {
  ScaleLine where;
  Kind kind;
  int32_t id;
  std::string rows, hash;
};
// Records without flags were confirmed: their deliveries are kept, in the caller's write
// transaction (one statement for them all where the archive can).
void record_delivered(ArchiveTools& a, const std::vector<DeliveredRecord>& records,
                      const std::string& time, const std::string& run);
// Forgets what was delivered to a department's line (of one kind, one record): it is pending
// again, "never sent". Returns the records forgotten.
long forget_delivered(ArchiveTools& a, int32_t dept, int32_t line, std::optional<Kind> k = {},
                      std::optional<int32_t> id = {});

}  // namespace sync
}  // namespace qk
