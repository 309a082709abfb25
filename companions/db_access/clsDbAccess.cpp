#include "db_access/clsDbAccess.h"

#include <sys/stat.h>

#include <cctype>
#include <map>

#include "db_access/access_sql.h"
#include "db_access/pg_archive.h"
#include "qk/archive.h"
#include "qk/error.h"
#include "qk/host.h"

namespace qk::companions {

using automation::MemoryRecordset;
using automation::raise;

namespace {

// Connections are shared by the instances of one thread, so that every class creation does not
// reopen the file; a file replaced on disk (other device or inode) gets a fresh connection.
struct CachedArchive {
  std::shared_ptr<Archive> archive;
  dev_t dev;
  ino_t ino;
};

thread_local std::map<std::string, CachedArchive> cache;

std::shared_ptr<Archive> shared_archive(const std::string& path) {
  struct stat st {};
  bool exists = Archive::is_server(path) || ::stat(path.c_str(), &st) == 0;
  auto it = cache.find(path);
  // A server connection that was lost is opened anew by the next object that asks.
  if (it != cache.end() && exists && it->second.dev == st.st_dev && it->second.ino == st.st_ino &&
      it->second.archive->lost().empty())
    return it->second.archive;
  auto a = Archive::open(path);
  cache[path] = {a, st.st_dev, st.st_ino};
  return a;
}

std::string sql_text(const Variant& v) {
  return v.to_string();
}

// The block of a key is (key - 1) \ 15, an integer division that truncates toward zero.
long first_key_of_block(long key) {
  return (key - 1) / kKeysPerBlock * kKeysPerBlock + 1;
}

}  // namespace

void forget_shared_archive(const std::string& location) {
  cache.erase(location);
}

std::string clear_flag_position(std::string flags, long line) {
  if (line < 1 || line > static_cast<long>(flags.size())) raise(automation::kInvalidProcedureCall);
  flags[static_cast<std::size_t>(line - 1)] = '0';
  return flags;
}

std::string clsDbAccess::locate(const std::string& database_file) {
  // A server URI or the absolute path of a SQLite file names one archive whatever the settings
  // say (the tools' copy between two archives).
  if (Archive::is_server(database_file) ||
      (database_file.starts_with('/') && database_file.ends_with(".sqlite")))
    return database_file;
  std::string folder = installation_folder();
  std::string configured = host::setting("Appl", "Archive");
  if (Archive::is_server(configured)) return configured;
  if (!configured.empty()) return path_in(folder, configured);
  std::string name = database_file;
  auto dot = name.rfind('.');
  if (dot != std::string::npos) name = name.substr(0, dot);
  return path_in(folder, name + ".sqlite");
}

void clsDbAccess::Initialize(const Variant& database_file) {
  std::string path = locate(database_file.to_string());
  try {
    archive_ = shared_archive(path);
  } catch (const automation::Error& e) {
    if (e.number() != automation::kFileNotFound) throw;
    if (path == database_file.to_string())
      automation::raise(automation::kFileNotFound,
                        "File not found: the archive " + path + " does not exist");
    // Say which settings made the path, and how to change them.
    std::string folder = host::setting("Appl", "Path");
    std::string archive = host::setting("Appl", "Archive");
    std::string why = "File not found: the archive " + path + " does not exist. ";
    why += folder.empty() ? "Its folder is the installation folder"
                          : "Its folder comes from the setting Path (\"" + folder + "\")";
    if (!archive.empty()) why += " and its name from the setting Archive (\"" + archive + "\")";
    why += " in " + host::settings_file() +
           ". Change them with \"qkp settings set Appl Path FOLDER\" (or Archive FILE), or "
           "create an archive with \"qkp init\".";
    automation::raise(automation::kFileNotFound, why);
  }
}

Archive& clsDbAccess::archive() {
  if (!archive_) raise(automation::kObjectNotSet);
  return *archive_;
}

RecordsetPtr clsDbAccess::p_objRetrieveGenericRecordset(const Variant& sql) {
  auto p = parameterize(translate_access_sql(sql_text(sql)));
  std::string text = cp1252_to_utf8(p.sql);
  Archive& a = archive();
  if (auto rows = a.batch_reads.read_statement(a, text, p.values)) return rows;
  return a.query(text, p.values);
}

void clsDbAccess::p_GENERIC_ExecuteQuery(const Variant& sql) {
  Archive& a = archive();
  Archive::Transaction t(a);
  auto p = parameterize(translate_access_sql(sql_text(sql)));
  std::string text = cp1252_to_utf8(p.sql);
  // Under a reset guard, the component's own reset statement ("update T set … where …") runs
  // on the guard's unchanged rows only; under a store limit its flags change only the store's
  // lines.
  if (a.reset_guard || a.store_limit) {
    std::string lowered = text;
    for (char& c : lowered) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    auto start = lowered.find_first_not_of(' ');
    auto set = lowered.find(" set ");
    auto where = lowered.rfind(" where ");
    if (start != std::string::npos && lowered.compare(start, 7, "update ") == 0 &&
        set != std::string::npos && where != std::string::npos && set < where) {
      std::string table = text.substr(start + 7, set - start - 7);
      while (!table.empty() && table.back() == ' ') table.pop_back();
      guarded_update(a, table, "update " + table + text.substr(set, where - set),
                     text.substr(where + 7), p.values);
      t.commit();
      return;
    }
  }
  a.execute(text, p.values);
  t.commit();
}

RecordsetPtr clsDbAccess::p_TASTIERA_PLU_objRetrieveGlobalData2(const Variant& bnc,
                                                                const Variant& scale,
                                                                const Variant& pending_line) {
  long s = scale.to_int32(), line = pending_line.to_int32();
  return archive().query(
      "select TP_KEY from TASTIERA_PLU where TP_BNC = ?1 and (?2 = 0 or TP_SCALE = ?2)"
      " and (?3 = 0 or substr(TP_FLAGTRASM, ?3, 1) = '1') group by TP_KEY order by TP_KEY",
      {bnc.to_int32(), s, line});
}

RecordsetPtr clsDbAccess::p_TASTIERA_PLU_objRetrieveAssociatedPlu(const Variant& bnc,
                                                                  const Variant& key,
                                                                  const Variant& scale) {
  Archive& a = archive();
  return a.batch_reads.read(a, kKeyRows, {bnc.to_int32(), scale.to_int32()}, key.to_int32());
}

RecordsetPtr clsDbAccess::p_TASTIERA_PLU_objRetrieveBlockValues(const Variant& bnc,
                                                                const Variant& key,
                                                                const Variant& scale) {
  long k = key.to_int32();
  long first = first_key_of_block(k);
  Archive& a = archive();
  return a.batch_reads.read_range(a, kKeyRows, {bnc.to_int32(), scale.to_int32()}, first,
                                  first + kKeysPerBlock - 1);
}

void clsDbAccess::p_TASTIERA_PLU_UpdateFlagTrasm(const Variant& bnc, const Variant& key,
                                                 const Variant& scale, const Variant& line,
                                                 const Variant& flags) {
  std::string stored = clear_flag_position(flags.to_string(), line.to_int32());
  int32_t block = static_cast<int32_t>((key.to_int32() - 1L) / kKeysPerBlock);
  update_flags({RecordGroup::KeyBlock, bnc.to_int32(), scale.to_int32(), block}, stored);
}

RecordsetPtr clsDbAccess::p_BARCODE_objLoadValues(const Variant& key, const Variant& form) {
  return archive().query("select * from BARCODE where BC_BNC = ?1 and BC_FORM = ?2",
                         {key.to_int32(), form.to_int32()});
}

RecordsetPtr clsDbAccess::p_BARCODE_objLoadForms(const Variant& key) {
  return archive().query("select BC_FORM from BARCODE where BC_BNC = ?1 order by BC_FORM",
                         {key.to_int32()});
}

void clsDbAccess::p_BARCODE_UpdateFlagTrasm(const Variant& key, const Variant& form,
                                            const Variant& line, const Variant& flags) {
  std::string stored = clear_flag_position(flags.to_string(), line.to_int32());
  update_flags({RecordGroup::BarcodeForm, key.to_int32(), 0, form.to_int32()}, stored);
}

RecordsetPtr clsDbAccess::p_TRACEABILITY_objRetrieveRows(const Variant& bnc,
                                                         const std::optional<Variant>& lot) {
  if (!lot)
    return archive().query(
        "select * from TRACEABILITY where TRC_BNC = ?1 and TRC_ROW = "
        "(select min(TRC_ROW) from TRACEABILITY t where t.TRC_BNC = TRACEABILITY.TRC_BNC and "
        "t.TRC_ID = TRACEABILITY.TRC_ID) order by TRC_ID",
        {bnc.to_int32()});
  Archive& a = archive();
  return a.batch_reads.read(a, kLotRows, {bnc.to_int32()}, lot->to_double());
}

RecordsetPtr clsDbAccess::p_TRACEABILITY_objRetrieveVariatedRows(const Variant& bnc) {
  return archive().query(
      "select * from TRACEABILITY where TRC_BNC = ?1 and TRC_ROW = "
      "(select min(TRC_ROW) from TRACEABILITY t where t.TRC_BNC = TRACEABILITY.TRC_BNC and "
      "t.TRC_ID = TRACEABILITY.TRC_ID) and instr(TRC_FLAGTRASM, '1') > 0 order by TRC_ID",
      {bnc.to_int32()});
}

void clsDbAccess::p_TRACEABILITY_UpdateFlagTrasm(const Variant& bnc, const Variant& lot,
                                                 const Variant& line, const Variant& flags) {
  std::string stored = clear_flag_position(flags.to_string(), line.to_int32());
  update_flags({RecordGroup::Lot, bnc.to_int32(), 0, lot.to_int32()}, stored);
}

RecordsetPtr clsDbAccess::p_ADVERTISING_objRetrieveGlobalData(const Variant& counter,
                                                              const Variant& pending_line) {
  return archive().query(
      "select * from ADVERTISING where ADV_BNC = ?1"
      " and (?2 = 0 or substr(FLAGTRASM, ?2, 1) = '1') order by Id",
      {counter.to_int32(), pending_line.to_int32()});
}

RecordsetPtr clsDbAccess::p_ADVERTISING_objRetrieveById(const Variant& counter, const Variant& id) {
  return archive().query("select * from ADVERTISING where ADV_BNC = ?1 and Id = ?2",
                         {counter.to_int32(), id.to_int32()});
}

void clsDbAccess::p_ADVERTISING_UpdateFlagTrasm(const Variant& counter, const Variant& id,
                                                const Variant& flags) {
  update_flags({RecordGroup::Ad, counter.to_int32(), 0, id.to_int32()}, flags.to_string());
}

RecordsetPtr clsDbAccess::p_MESSAGES_objRetrieveAssociatedMessages(const Variant& counter,
                                                                   const Variant& link_id) {
  if (link_id.is_null())
    return std::make_shared<MemoryRecordset>(std::vector<std::string>{"MESSAGE"});
  return archive().query(
      "select * from MESSAGES where MSG_BNC = ?1 and MSG_LNK_ID = ?2 order by MSG_ROW",
      {counter.to_int32(), link_id.to_int32()});
}

RecordsetPtr clsDbAccess::p_ETEXT_objRetrieveDistinctGlobalData(const Variant& id, const Variant&,
                                                                const Variant& counter) {
  return archive().query(
      "select distinct Id from ETEXT where ET_BNC = ?1 and (?2 = 0 or Id = ?2) order by Id",
      {counter.to_int32(), id.to_int32()});
}

RecordsetPtr clsDbAccess::p_ETEXT_objRetrieveRowsById(const Variant& id, const Variant&,
                                                      const Variant& counter) {
  return archive().query("select * from ETEXT where ET_BNC = ?1 and Id = ?2 order by Row",
                         {counter.to_int32(), id.to_int32()});
}

RecordsetPtr clsDbAccess::p_IMMAGINI_objLoadValues(const Variant& counter, const Variant& image) {
  return archive().query("select * from IMMAGINI where IM_BNC = ?1 and IM_ID = ?2",
                         {counter.to_int32(), image.to_int32()});
}

int16_t clsDbAccess::p_IMMAGINI_intRetrieveIdFromFileName(const Variant& counter,
                                                          const Variant& file_name) {
  auto rs = archive().query(
      "select IM_ID from IMMAGINI where IM_BNC = ?1 and IM_FILE_NAME = ?2 order by IM_ID",
      {counter.to_int32(), file_name.to_string()});
  return rs->Eof() ? 0 : rs->Fields("IM_ID").to_int16();
}

RecordsetPtr clsDbAccess::p_TICKET_DETAIL_objRetrieveHierarchicalRecordset(const Variant& counter,
                                                                           const Variant& layout) {
  Archive& a = archive();
  long bnc = counter.to_int32(), id = layout.to_int32();
  auto heads = a.query(
      "select TK_BNC, TK_ID, TK_DESCRIPTION from TICKET"
      " where TK_BNC = ?1 and TK_ID = ?2",
      {bnc, id});
  auto layouts = std::make_shared<MemoryRecordset>(
      std::vector<std::string>{"TK_BNC", "TK_ID", "TK_DESCRIPTION", "object"});
  for (heads->MoveFirst(); !heads->Eof(); heads->MoveNext()) {
    auto objects_rows = a.query(
        "select TD_OBJ, OBJ_TYPE from TICKET_DETAIL where TD_BNC = ?1 and TD_ID = ?2"
        " order by TD_OBJ",
        {bnc, id});
    auto props = a.query(
        "select TD_OBJ, Id, value from TICKET_PROPERTY where TD_BNC = ?1 and TD_ID = ?2"
        " order by TD_OBJ, Id",
        {bnc, id});
    std::map<long, std::shared_ptr<MemoryRecordset>> by_object;
    for (props->MoveFirst(); !props->Eof(); props->MoveNext()) {
      auto& p = by_object[props->Fields("TD_OBJ").to_int32()];
      if (!p) p = std::make_shared<MemoryRecordset>(std::vector<std::string>{"Id", "value"});
      p->add_row({props->Fields("Id"), props->Fields("value")});
    }
    auto objects = std::make_shared<MemoryRecordset>(
        std::vector<std::string>{"TD_OBJ", "OBJ_TYPE", "Property"});
    for (objects_rows->MoveFirst(); !objects_rows->Eof(); objects_rows->MoveNext()) {
      auto& p = by_object[objects_rows->Fields("TD_OBJ").to_int32()];
      if (!p) p = std::make_shared<MemoryRecordset>(std::vector<std::string>{"Id", "value"});
      objects->add_row({objects_rows->Fields("TD_OBJ"), objects_rows->Fields("OBJ_TYPE"),
                        Variant(automation::ObjectPtr(p))});
    }
    layouts->add_row({heads->Fields("TK_BNC"), heads->Fields("TK_ID"),
                      heads->Fields("TK_DESCRIPTION"), Variant(automation::ObjectPtr(objects))});
  }
  return layouts;
}

void clsDbAccess::p_TICKET_InsertValues(const Variant& counter, const Variant& layout,
                                        const Variant& description, const Variant& replace) {
  Archive& a = archive();
  Archive::Transaction t(a);
  std::vector<Variant> key{counter.to_int32(), layout.to_int32()};
  if (replace.to_bool()) {
    a.execute("delete from TICKET_PROPERTY where TD_BNC = ?1 and TD_ID = ?2", key);
    a.execute("delete from TICKET_DETAIL where TD_BNC = ?1 and TD_ID = ?2", key);
  }
  a.execute(
      "insert into TICKET (TK_BNC, TK_ID, TK_DESCRIPTION) values (?1, ?2, ?3)"
      " on conflict (TK_BNC, TK_ID) do update set TK_DESCRIPTION = excluded.TK_DESCRIPTION",
      {key[0], key[1], description.to_string()});
  t.commit();
}

void clsDbAccess::p_TICKET_DETAIL_InsertValues(const Variant& counter, const Variant& layout,
                                               const Variant& object, const Variant& property,
                                               const Variant& value) {
  Archive& a = archive();
  Archive::Transaction t(a);
  std::vector<Variant> key{counter.to_int32(), layout.to_int32(), object.to_int32()};
  if (property.is_string() && property.to_string() == "OBJ_TYPE") {
    a.execute(
        "insert into TICKET_DETAIL (TD_BNC, TD_ID, TD_OBJ, OBJ_TYPE) values (?1,?2,?3,?4)"
        " on conflict (TD_BNC, TD_ID, TD_OBJ) do update set OBJ_TYPE = excluded.OBJ_TYPE",
        {key[0], key[1], key[2], value.to_int32()});
  } else {
    a.execute(
        "insert into TICKET_PROPERTY (TD_BNC, TD_ID, TD_OBJ, Id, value)"
        " values (?1, ?2, ?3, ?4, ?5)"
        " on conflict (TD_BNC, TD_ID, TD_OBJ, Id) do update set value = excluded.value",
        {key[0], key[1], key[2], property.to_int32(), value.to_string()});
  }
  t.commit();
}

void register_db_access() {
  automation::register_component(kDbAccessId, [] { return std::make_shared<clsDbAccess>(); });
}

}  // namespace qk::companions

namespace qk {
void register_archive() {
  companions::register_db_access();
}
void register_sqlite_archive() {
  register_archive();
}
int archive_schema_version(const std::string& database_file) {
  return companions::Archive::open(companions::clsDbAccess::locate(database_file), true)
      ->schema_version();
}
void open_archives_read_only(bool read_only) {
  companions::request_read_only(read_only);
}
std::string shown_location(const std::string& location) {
  return companions::PgArchive::shown(location);
}
}  // namespace qk
