// The reads of one record's rows, served a batch at a time. Within the sync's read transaction a
// batch's records are built one after the other, each reading its own rows with a statement of its
// own: on a server, one round trip per record. The sync says which records come next (when it
// reads their groups' states); the first of them to be read then reads the rows of all of them in
// one statement, and the others take their rows from there. One snapshot answers both ways, so a
// record reads exactly what its own statement would; the rows are dropped at any write and at the
// transaction's end, and outside a read transaction every read runs its own statement.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qk/recordset.h"
#include "qk/variant.h"

namespace qk::companions {

class Archive;

// A record's rows: "select * from <table> where <scope> and <id> = ?n order by <order>", the
// scope's parameters numbered first (no order: the statement asks none). The batch's read is
// "... and <id> between ? and ? order by <id>, <order>".
struct RecordRead {
  std::string_view table, scope, id, order;
};
inline constexpr RecordRead kKeyRows{"TASTIERA_PLU", "TP_BNC = ?1 and TP_SCALE = ?2", "TP_KEY",
                                     "rowid"};
inline constexpr RecordRead kLotRows{"TRACEABILITY", "TRC_BNC = ?1", "TRC_ID", "TRC_ROW"};
// A key's rows on every scale of its department: the 5000 and 2000 keys' flags, read by the
// component's own statement.
inline constexpr RecordRead kKeyRowsOfDepartment{"TASTIERA_PLU", "TP_BNC = ?1", "TP_KEY", ""};

class BatchReads {
 public:
  // The records read next: ids low..high of `table` in department `dept`.
  void expect(std::string_view table, int32_t dept, int64_t low, int64_t high);
  // Forgets the batch and its rows.
  void clear();
  // One record's rows: `scope` holds the scope's parameters (the department first), `id` the
  // record's id as its statement binds it.
  automation::RecordsetPtr read(Archive& a, const RecordRead& r,
                                const std::vector<automation::Variant>& scope,
                                const automation::Variant& id);
  // A statement of the component's own (numbered placeholders, its values) that is one of the
  // reads above: its rows, from the batch or by its own statement; nullptr for any other.
  automation::RecordsetPtr read_statement(Archive& a, const std::string& sql,
                                          const std::vector<automation::Variant>& values);
  // The rows of the records low..high, as the batch's read orders them (a block of keys).
  automation::RecordsetPtr read_range(Archive& a, const RecordRead& r,
                                      const std::vector<automation::Variant>& scope, int64_t low,
                                      int64_t high);

 private:
  struct Batch {
    std::string table;
    int32_t dept;
    int64_t low, high;
  };
  // Whether ids low..high lie in the batch (and reads are served from it); if so, its rows are
  // read for `scope` unless they were.
  bool from_batch(Archive& a, const RecordRead& r, const std::vector<automation::Variant>& scope,
                  double low, double high);

  void forget_rows();

  std::optional<Batch> batch_;
  // The rows read for the batch (none until names_ is set), by id, for the read and the scope
  // they were read with.
  std::string_view loaded_read_;
  std::vector<automation::Variant> loaded_scope_;
  std::shared_ptr<const automation::ColumnNames> names_;
  std::map<double, std::vector<std::vector<automation::Variant>>> rows_;
};

}  // namespace qk::companions
