// What the component expects of the companions it creates by name. The companions live in their
// own libraries and register in the factory; the component only sees these interfaces.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "qk/export.h"
#include "qk/recordset.h"
#include "qk/variant.h"

namespace qk {

using automation::RecordsetPtr;
using automation::Variant;

inline constexpr const char* kDbAccessId = "QK_Db_Access.clsDbAccess";
inline constexpr const char* kTranslateId = "QK_Translate.clsTranslate";
inline constexpr const char* kRegistryHelperId = "QK_Registry_Utility.clsRegistry";

// The settings' application, the archive every class opens, and the project name of reports.
inline constexpr const char* kApplicationName = "Varlen System";
inline constexpr const char* kArchiveName = "Archivi.mdb";
inline constexpr const char* kProjectName = "QK_Protocol";

// "QK_Db_Access.clsDbAccess": every retrieval returns a forward-readable recordset. Arguments are
// the caller's values; their meanings are given with each builder.
class QK_API DbAccess : public virtual automation::Object {
 public:
  DbAccess() = default;
  QK_NOT_COPIED(DbAccess);
  virtual void Initialize(const Variant& database_file) = 0;
  virtual RecordsetPtr p_objRetrieveGenericRecordset(const Variant& sql) = 0;
  virtual void p_GENERIC_ExecuteQuery(const Variant& sql) = 0;
  virtual RecordsetPtr p_TASTIERA_PLU_objRetrieveGlobalData2(const Variant& bnc, const Variant& a2,
                                                             const Variant& a3) = 0;
  virtual RecordsetPtr p_TASTIERA_PLU_objRetrieveAssociatedPlu(const Variant& bnc,
                                                               const Variant& key,
                                                               const Variant& scale) = 0;
  virtual RecordsetPtr p_TASTIERA_PLU_objRetrieveBlockValues(const Variant& bnc, const Variant& key,
                                                             const Variant& scale) = 0;
  virtual void p_TASTIERA_PLU_UpdateFlagTrasm(const Variant& bnc, const Variant& key,
                                              const Variant& scale, const Variant& line,
                                              const Variant& flags) = 0;
  virtual RecordsetPtr p_BARCODE_objLoadValues(const Variant& key, const Variant& form) = 0;
  virtual RecordsetPtr p_BARCODE_objLoadForms(const Variant& key) = 0;
  virtual void p_BARCODE_UpdateFlagTrasm(const Variant& key, const Variant& form,
                                         const Variant& line, const Variant& flags) = 0;
  virtual RecordsetPtr p_TRACEABILITY_objRetrieveRows(const Variant& bnc,
                                                      const std::optional<Variant>& lot) = 0;
  virtual RecordsetPtr p_TRACEABILITY_objRetrieveVariatedRows(const Variant& bnc) = 0;
  virtual void p_TRACEABILITY_UpdateFlagTrasm(const Variant& bnc, const Variant& lot,
                                              const Variant& line, const Variant& flags) = 0;
  virtual RecordsetPtr p_ADVERTISING_objRetrieveGlobalData(const Variant& counter,
                                                           const Variant& a2) = 0;
  virtual RecordsetPtr p_ADVERTISING_objRetrieveById(const Variant& counter, const Variant& id) = 0;
  virtual void p_ADVERTISING_UpdateFlagTrasm(const Variant& counter, const Variant& id,
                                             const Variant& flags) = 0;
  virtual RecordsetPtr p_MESSAGES_objRetrieveAssociatedMessages(const Variant& counter,
                                                                const Variant& link_id) = 0;
  virtual RecordsetPtr p_ETEXT_objRetrieveDistinctGlobalData(const Variant& a1, const Variant& a2,
                                                             const Variant& counter) = 0;
  virtual RecordsetPtr p_ETEXT_objRetrieveRowsById(const Variant& id, const Variant& a2,
                                                   const Variant& counter) = 0;
  virtual RecordsetPtr p_IMMAGINI_objLoadValues(const Variant& counter, const Variant& image) = 0;
  virtual int16_t p_IMMAGINI_intRetrieveIdFromFileName(const Variant& counter,
                                                       const Variant& file_name) = 0;
  virtual RecordsetPtr p_TICKET_DETAIL_objRetrieveHierarchicalRecordset(const Variant& counter,
                                                                        const Variant& layout) = 0;
  virtual void p_TICKET_InsertValues(const Variant& counter, const Variant& layout,
                                     const Variant& a3, const Variant& a4) = 0;
  virtual void p_TICKET_DETAIL_InsertValues(const Variant& counter, const Variant& layout,
                                            const Variant& object, const Variant& property,
                                            const Variant& value) = 0;
};

// "QK_Translate.clsTranslate": set the three properties, then read the keyed strings.
class QK_API Translate : public automation::Object {
 public:
  Translate() = default;
  QK_NOT_COPIED(Translate);
  virtual void LangCode(const std::string& v) = 0;
  virtual void ApplicationName(const std::string& v) = 0;
  virtual void ModuleName(const std::string& v) = 0;
  virtual std::map<std::string, std::string> StringValues() = 0;
};

// "QK_Registry_Utility.clsRegistry": enumeration of a per-user settings branch.
class QK_API RegistryHelper : public automation::Object {
 public:
  RegistryHelper() = default;
  QK_NOT_COPIED(RegistryHelper);
  struct KeyValue {
    std::string sKey;
    std::string sValue;
  };
  static constexpr unsigned long kHkeyCurrentUser = 0x80000001;
  // Subkey names of the path; error 9 stands for an empty list, as the host's empty array does.
  virtual std::vector<std::string> EnumRegistryKeys(unsigned long hive,
                                                    const std::string& path) = 0;
  virtual std::vector<KeyValue> EnumKeyValues(unsigned long hive, const std::string& path) = 0;
};

// The optional logger hook: a host-side extension may set one (host::start, start_thread,
// set_logger). The error reporter calls WriteLog(2, project, module, procedure, description, 0,
// number) for every trapped error, whether or not a box is shown, and only while Path() is not
// empty; the host API therefore refuses a logger whose Path() is empty (error 5). WriteLog runs
// on the thread that met the error.
class QK_API Logger : public automation::Object {
 public:
  Logger() = default;
  QK_NOT_COPIED(Logger);
  virtual std::string Path() const = 0;
  virtual void WriteLog(int32_t level, const std::string& project, const std::string& module,
                        const std::string& procedure, const std::string& description, int16_t flag,
                        int32_t number) = 0;
};

}  // namespace qk
