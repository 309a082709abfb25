// libFuzzer target: the dialect translator and the registry export reader never crash.
#include <cstdint>
#include <string>

#include "db_access/access_sql.h"
#include "qk/error.h"
#include "registry/clsRegistry.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  qk::companions::translate_access_sql(text);
  try {
    qk::companions::RegExport().parse("REGEDIT4\n" + text, "fuzz.reg");
  } catch (const qk::automation::Error&) {
  } catch (const std::exception&) {
  }
  return 0;
}
