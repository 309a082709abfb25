// Request blocks for the totals-collecting device. Each method returns one block ending in
// CR LF; a run-time error is reported under the method's fixed label and gives "".
#pragma once

#include <string>

#include "qk/export.h"

namespace qk {

class QK_API clsKplMakeRequest {
 public:
  QK_MOVE_ONLY(clsKplMakeRequest);
  // Loads the translations only: the settings store must have been created on this thread.
  clsKplMakeRequest();

  std::string p_RX_strTrasmettiRichiestaRicezioneTotaliPlu();
  std::string p_RX_TOTALI_strTrasmettiRichiestaVariazioneStruttura();
  std::string p_RX_TOTALI_LOTTIPLU_strTrasmettiRichiestaVariazioneStruttura();
  std::string p_RX_TOTALI_PLU_strTrasmettiRichiestaProssimoStream();
  std::string p_RX_strTrasmettiRichiestaRicezioneTotaliLotti();
  std::string p_RX_strTrasmettiRichiestaRicezioneTotaliLottiPlu();
  std::string p_RX_TOTALI_LOTTI_strTrasmettiRichiestaProssimoStream();
  std::string p_RX_TOTALI_LOTTI_PLU_strTrasmettiRichiestaProssimoStream();
  std::string p_RX_strGetTotalControl();
  std::string p_RX_strStopLavorazioniInCorso();
  std::string p_RX_strRetrieveStatus();
  // "<RESET_TOT=" + strMode in upper case + "><END_RESET_TOT>" CR LF; nothing is checked.
  std::string p_RX_strRichiediCancellazioneTotali(std::string& strMode);
};

}  // namespace qk
