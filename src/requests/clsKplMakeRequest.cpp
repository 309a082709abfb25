#include "qk/clsKplMakeRequest.h"

#include <functional>

#include "frame/creation.h"
#include "frame/globals.h"
#include "frame/report_error.h"
#include "requests/totals_request_format.h"

namespace qk {

namespace fmt = totals_request_format;

namespace {

constexpr const char* kClass = "clsKplMakeRequest";

// Runs the builder under its fixed label (some name another method or the project "QK").
std::string build(const char* procedure, const char* project,
                  const std::function<std::string()>& body) {
  std::string result;
  trap({procedure, kClass, project}, [&] { result = body(); });
  return result;
}

std::string block(std::initializer_list<std::string_view> parts) {
  std::string s;
  for (auto p : parts) s += p;
  return s += fmt::kCrLf;
}

}  // namespace

clsKplMakeRequest::clsKplMakeRequest() {
  run_creation_sequence(kClass, kStepLoadTranslations);
}

std::string clsKplMakeRequest::p_RX_strTrasmettiRichiestaRicezioneTotaliPlu() {
  return build("p_RX_strTrasmettiRichiestaRicezioneTotaliPlu", "QK", [] {
    return block({fmt::kReadArticles, fmt::kEndRead});
  });
}

std::string clsKplMakeRequest::p_RX_TOTALI_strTrasmettiRichiestaVariazioneStruttura() {
  return build("p_RX_TOTALI_PLU_strtrasmettiRichiestaVariazioneStruttura", kProjectName, [] {
    return block({fmt::kSetStructure, fmt::kArticleFields, fmt::kEndSetStructure});
  });
}

std::string clsKplMakeRequest::p_RX_TOTALI_LOTTIPLU_strTrasmettiRichiestaVariazioneStruttura() {
  return build("p_RX_TOTALI_LOTTIPLU_strTrasmettiRichiestaVariazioneStruttura", kProjectName, [] {
    return block({fmt::kSetStructure, fmt::kLotArticleFields, fmt::kEndSetStructure});
  });
}

std::string clsKplMakeRequest::p_RX_TOTALI_PLU_strTrasmettiRichiestaProssimoStream() {
  return build("p_RX_TOTALI_PLU_strTrasmettiRichiestaProssimoFrame", kProjectName, [] {
    return block({fmt::kReadArticles, fmt::kGetNext, fmt::kEndRead});
  });
}

std::string clsKplMakeRequest::p_RX_strTrasmettiRichiestaRicezioneTotaliLotti() {
  return build("p_RX_strTrasmettiRichiestaRicezioneTotaliPlu", "QK", [] {
    return block({fmt::kReadLots, fmt::kEndRead});
  });
}

std::string clsKplMakeRequest::p_RX_strTrasmettiRichiestaRicezioneTotaliLottiPlu() {
  return build("p_RX_strTrasmettiRichiestaRicezioneTotaliLottiPlu", "QK", [] {
    return block({fmt::kReadLotArticles, fmt::kEndRead});
  });
}

std::string clsKplMakeRequest::p_RX_TOTALI_LOTTI_strTrasmettiRichiestaProssimoStream() {
  return build("p_RX_TOTALI_PLU_strTrasmettiRichiestaProssimoFrame", kProjectName, [] {
    return block({fmt::kReadLots, fmt::kGetNext, fmt::kEndRead});
  });
}

std::string clsKplMakeRequest::p_RX_TOTALI_LOTTI_PLU_strTrasmettiRichiestaProssimoStream() {
  return build("p_RX_TOTALI_LOTTI_PLU_strTrasmettiRichiestaProssimoStream", kProjectName, [] {
    return block({fmt::kReadLotArticles, fmt::kGetNext, fmt::kEndRead});
  });
}

std::string clsKplMakeRequest::p_RX_strGetTotalControl() {
  return build("p_RX_strGetTotalControl", kProjectName, [] { return block({fmt::kTotalControl}); });
}

std::string clsKplMakeRequest::p_RX_strStopLavorazioniInCorso() {
  return build("p_RX_strStopLavorazioniInCorso", kProjectName, [] { return block({fmt::kStop}); });
}

std::string clsKplMakeRequest::p_RX_strRetrieveStatus() {
  return build("p_RX_strRetrieveStatus", kProjectName, [] { return block({fmt::kStatus}); });
}

std::string clsKplMakeRequest::p_RX_strRichiediCancellazioneTotali(std::string& strMode) {
  return build("p_RX_strRichiediCancellazioneTotali", kProjectName, [&] {
    std::string upper = strMode;
    for (char& c : upper)
      if (c >= 'a' && c <= 'z')
        c = static_cast<char>(c - 'a' + 'A');
      else if (static_cast<unsigned char>(c) >= 0xE0 && static_cast<unsigned char>(c) <= 0xFE &&
               static_cast<unsigned char>(c) != 0xF7)
        c = static_cast<char>(static_cast<unsigned char>(c) - 0x20);  // accented letters
    return block({fmt::kResetOpen, upper, fmt::kResetClose});
  });
}

}  // namespace qk
