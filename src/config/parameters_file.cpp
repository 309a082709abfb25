#include "config/clsConfigurationPrs.h"
#include "qk/parameters.h"

namespace qk {

ParametersFile::ParametersFile() : impl_(std::make_unique<clsConfigurationPrs>()) {}
ParametersFile::~ParametersFile() = default;

std::string ParametersFile::file_name() const {
  return impl_->file_name();
}
std::string ParametersFile::velta(const std::string& name) {
  std::string n = name;
  return impl_->RetrieveVeltaGeneralParameter(n);
}
std::string ParametersFile::orvatop(const std::string& name) {
  std::string n = name;
  return impl_->RetrieveOrvaTopGeneralParameter(n);
}
std::string ParametersFile::common(const std::string& name) {
  std::string n = name;
  return impl_->RetrieveCommonGeneralParameter(n);
}
std::string ParametersFile::archive(const std::string& key) {
  return impl_->RetrieveArchiveInUse(key);
}
std::vector<std::string> ParametersFile::conversion_table() {
  return impl_->RetrieveConvertionTable().items();
}
std::vector<std::string> ParametersFile::barcode_natures() {
  return impl_->RetrieveBarcodeNature().items();
}
std::vector<std::string> ParametersFile::scanner() {
  return impl_->RetrieveBarcodeCommSettings().items();
}
void ParametersFile::set_scanner(int16_t port, const std::string& settings) {
  impl_->SaveBarcodeCommSettings(port, settings);
}
std::vector<std::string> ParametersFile::application_identifier(const std::string& ai) {
  return impl_->RetrieveApplicationIdentifier(ai).items();
}
void ParametersFile::set_application_identifier(const std::string& ai, const std::string& contents,
                                                const std::string& format,
                                                const std::string& coupling, bool only_values) {
  impl_->SaveApplicationIdentifier(ai, contents, format, coupling, only_values);
}
void ParametersFile::delete_application_identifier(const std::string& ai) {
  impl_->DeleteApplicationIdentifier(ai);
}
int ParametersFile::timeout(const std::string& name) {
  return impl_->RetrieveTimeout(name);
}
bool ParametersFile::trim_values() {
  return impl_->TrimValues();
}
bool ParametersFile::show_2000() {
  return impl_->ShowOrva2000();
}

}  // namespace qk
