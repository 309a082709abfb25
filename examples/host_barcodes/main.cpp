// A back office's typical request, end to end: the barcode formats of one department, each sent
// on the lines where it is pending and reset for every line served.
//
//   host_barcodes INSTALLATION DEPARTMENT
//
// Prints each record once per line it would be sent to ("line 2: 189999001A06B13") and leaves
// the archive as a real send would: the served lines are no longer pending.
#include <qk/clsBarCode.h>
#include <qk/host.h>
#include <qk/registry_helper.h>
#include <qk/archive.h>
#include <qk/translations.h>

#include <cstdio>
#include <memory>
#include <string>

namespace {

// Where a real host would write to its scale line.
bool send(int line, const std::string& record) {
  std::printf("line %d: %s\n", line, qk::cp1252_to_utf8(record).c_str());
  return true;
}

// The errors the component reports, printed (a host would log them).
class PrintingLogger : public qk::Logger {
 public:
  std::string Path() const override { return "stderr"; }
  void WriteLog(int32_t, const std::string&, const std::string& module,
                const std::string& procedure, const std::string& description, int16_t,
                int32_t number) override {
    std::fprintf(stderr, "error %d in %s.%s: %s\n", number, module.c_str(), procedure.c_str(),
                 qk::cp1252_to_utf8(description).c_str());
    ++errors;
  }
  int errors = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s INSTALLATION DEPARTMENT\n", argv[0]);
    return 2;
  }
  int department = std::stoi(argv[2]);

  // Start: the companions, then the component on the installation folder.
  qk::register_archive();
  qk::register_translations();
  qk::register_registry_helper();
  auto logger = std::make_shared<PrintingLogger>();
  qk::host::StartOptions options;
  options.installation_folder = argv[1];
  options.logger = logger;
  qk::host::start(options);

  // The department's configured lines: lines 1 to 4 (a real host keeps its own table).
  auto lines = std::make_shared<qk::automation::VariantArray>(
      std::vector<std::pair<long, long>>{{0, department}, {0, 7}});
  for (long line = 0; line < 4; ++line) lines->at(department, line) = 1;

  qk::clsBarCode barcodes;
  barcodes.p_varKey(qk::automation::Variant(department));
  barcodes.p_varConfiguredLines(qk::automation::Variant(lines));
  for (barcodes.p_MoveFirst(); !barcodes.p_booEOF(); barcodes.p_MoveNext()) {
    std::string record = barcodes.p_strProtocol();
    std::string flags = barcodes.p_strFlagTrasm();
    for (int32_t line = 1; line <= static_cast<int32_t>(flags.size()); ++line) {
      if (flags[line - 1] != '1' || !send(line, record)) continue;
      barcodes.p_ResetFlagTrasm(line);  // only after a successful send
    }
  }
  return logger->errors == 0 ? 0 : 1;
}
