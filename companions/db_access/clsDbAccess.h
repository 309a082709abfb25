// "QK_Db_Access.clsDbAccess" over SQLite. Initialize("Archivi.mdb") opens the file named by the
// setting "Archive" of section "Appl", or else "Archivi.sqlite" in the installation folder; a
// missing file is an error, never a new empty archive. docs/archive.md gives every member's
// query and the meaning of the arguments the builders pass.
#pragma once

#include <memory>
#include <string>

#include "db_access/archive.h"
#include "qk/archive_changes.h"
#include "qk/archive_stores.h"
#include "qk/archive_tools.h"
#include "qk/archive_versions.h"
#include "qk/companions.h"

namespace qk::companions {

class clsDbAccess : public DbAccess,
                    public ArchiveTools,
                    public ArchiveStores,
                    public ArchiveVersions,
                    public ArchiveChanges {
 public:
  void Initialize(const Variant& database_file) override;
  RecordsetPtr p_objRetrieveGenericRecordset(const Variant& sql) override;
  void p_GENERIC_ExecuteQuery(const Variant& sql) override;
  RecordsetPtr p_TASTIERA_PLU_objRetrieveGlobalData2(const Variant& bnc, const Variant& scale,
                                                     const Variant& pending_line) override;
  RecordsetPtr p_TASTIERA_PLU_objRetrieveAssociatedPlu(const Variant& bnc, const Variant& key,
                                                       const Variant& scale) override;
  RecordsetPtr p_TASTIERA_PLU_objRetrieveBlockValues(const Variant& bnc, const Variant& key,
                                                     const Variant& scale) override;
  void p_TASTIERA_PLU_UpdateFlagTrasm(const Variant& bnc, const Variant& key, const Variant& scale,
                                      const Variant& line, const Variant& flags) override;
  RecordsetPtr p_BARCODE_objLoadValues(const Variant& key, const Variant& form) override;
  RecordsetPtr p_BARCODE_objLoadForms(const Variant& key) override;
  void p_BARCODE_UpdateFlagTrasm(const Variant& key, const Variant& form, const Variant& line,
                                 const Variant& flags) override;
  RecordsetPtr p_TRACEABILITY_objRetrieveRows(const Variant& bnc,
                                              const std::optional<Variant>& lot) override;
  RecordsetPtr p_TRACEABILITY_objRetrieveVariatedRows(const Variant& bnc) override;
  void p_TRACEABILITY_UpdateFlagTrasm(const Variant& bnc, const Variant& lot, const Variant& line,
                                      const Variant& flags) override;
  RecordsetPtr p_ADVERTISING_objRetrieveGlobalData(const Variant& counter,
                                                   const Variant& pending_line) override;
  RecordsetPtr p_ADVERTISING_objRetrieveById(const Variant& counter, const Variant& id) override;
  void p_ADVERTISING_UpdateFlagTrasm(const Variant& counter, const Variant& id,
                                     const Variant& flags) override;
  RecordsetPtr p_MESSAGES_objRetrieveAssociatedMessages(const Variant& counter,
                                                        const Variant& link_id) override;
  RecordsetPtr p_ETEXT_objRetrieveDistinctGlobalData(const Variant& id, const Variant& reserved,
                                                     const Variant& counter) override;
  RecordsetPtr p_ETEXT_objRetrieveRowsById(const Variant& id, const Variant& reserved,
                                           const Variant& counter) override;
  RecordsetPtr p_IMMAGINI_objLoadValues(const Variant& counter, const Variant& image) override;
  int16_t p_IMMAGINI_intRetrieveIdFromFileName(const Variant& counter,
                                               const Variant& file_name) override;
  RecordsetPtr p_TICKET_DETAIL_objRetrieveHierarchicalRecordset(const Variant& counter,
                                                                const Variant& layout) override;
  void p_TICKET_InsertValues(const Variant& counter, const Variant& layout,
                             const Variant& description, const Variant& replace) override;
  void p_TICKET_DETAIL_InsertValues(const Variant& counter, const Variant& layout,
                                    const Variant& object, const Variant& property,
                                    const Variant& value) override;

  // The tools' members (qk/archive_tools.h).
  std::string location() const override;
  void begin_read() override;
  void end_read() override;
  void begin_write() override;
  void commit() override;
  void rollback() override;
  std::vector<int32_t> record_ids(RecordGroup g, int32_t dept, int32_t scale, int32_t line,
                                  std::vector<std::string>* problems) override;
  RecordsetPtr group_rows(const GroupRef& ref) override;
  std::map<int32_t, GroupState> group_states(const GroupRef& scope, int32_t first, int32_t last,
                                             int32_t line) override;
  long guard_resets(const RowSnapshot* guard) override;
  bool hold_resets() override;
  void expect_resets(const GroupRef& scope, int32_t first, int32_t last) override;
  std::vector<long> write_held_resets() override;
  RecordsetPtr select_rows(const archive::Table& t, const Where& where) override;
  void insert_row(const archive::Table& t, const std::vector<std::string>& columns,
                  const std::vector<Variant>& values) override;
  void insert_rows(const archive::Table& t, const std::vector<std::string>& columns,
                   const std::vector<std::vector<Variant>>& rows) override;
  void put_rows(const archive::Table& t, const std::vector<std::string>& columns,
                const std::vector<std::vector<Variant>>& rows) override;
  long update_rows(const archive::Table& t, const Where& where,
                   const std::vector<std::string>& columns,
                   const std::vector<Variant>& values) override;
  long delete_rows(const archive::Table& t, const Where& where) override;
  long mark_pending(const archive::Table& t, const Where& where, const std::string& lines) override;
  std::unique_ptr<Lock> lock_line(int32_t line, bool wait, std::string* holder) override;
  bool wait_for_change(double seconds) override { return archive().wait_for_change(seconds); }
  void limit_to_store(const std::optional<std::string>& store) override;
  std::unique_ptr<Lock> lock_store_line(const std::string& store, int32_t line, bool wait,
                                        std::string* holder) override;
  automation::RecordsetPtr row_versions(const archive::Table& t,
                                        const std::vector<std::string>& by) override;
  void begin_new_archive(const std::string& database_file, bool replace) override;
  void publish_new_archive() override;
  void upgrade_schema(const std::string& database_file) override;

  // The opened archive (error 91 before Initialize).
  Archive& archive();

  // Where Initialize looks for the archive of that database name.
  static std::string locate(const std::string& database_file);

 private:
  // A group's rows: table, condition and its parameters.
  struct GroupSql {
    std::string table, condition;
    std::vector<Variant> params;
  };
  static GroupSql group_sql(const GroupRef& ref);
  // Stores a numeric reset's flags on the group's rows, only on the guard's unchanged rows when
  // one is set, in one transaction.
  void update_flags(const GroupRef& ref, const std::string& stored);
  // Names the records first..last of a scope as the batch whose rows are read next.
  void expect_rows(const GroupRef& scope, int32_t first, int32_t last);

  std::shared_ptr<Archive> archive_;
  std::string new_archive_name_, new_archive_path_, new_archive_target_;
};

// Registers the component under "QK_Db_Access.clsDbAccess".
void register_db_access();

// Runs "<update_set> where <condition>" (numbered placeholders, values in params); under the
// connection's reset guard for that table, only on the guard's rows whose version is unchanged,
// adding to the guard's count the rows it left alone; while the connection holds its resets, a
// guarded flag write is kept for later (see HeldResets).
void guarded_update(Archive& a, const std::string& table, const std::string& update_set,
                    const std::string& condition, const std::vector<Variant>& params);
// Runs "<update> where (<condition>)" on those of `rows` (rowid, version) whose version is
// unchanged; returns the rows it left alone (changed, added or gone).
long guarded_write(Archive& a, const std::string& table, const std::string& update,
                   const std::string& condition, const std::vector<Variant>& params,
                   const std::vector<std::pair<int64_t, int64_t>>& rows);

// Drops this thread's shared connection to a location, so that the next class opens it anew
// (an archive made again on a server).
void forget_shared_archive(const std::string& location);

// Clears position `line` (1-based) of the flags; outside the string raises error 5.
std::string clear_flag_position(std::string flags, long line);

}  // namespace qk::companions
