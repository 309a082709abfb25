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

  // Asks for the totals by article: "<READ_ARC=TOT_COD_ARTICOLO,ALL><END_READ_ARC>" CR LF.
  std::string p_RX_strTrasmettiRichiestaRicezioneTotaliPlu();
  // Sets the structure of general totals read back (fields T0 T2 T4 T10 T18).
  std::string p_RX_TOTALI_strTrasmettiRichiestaVariazioneStruttura();
  // Sets the structure of totals by lot and article (fields T0 T2 T3 T4 T10 T18).
  std::string p_RX_TOTALI_LOTTIPLU_strTrasmettiRichiestaVariazioneStruttura();
  // Asks for the next stream of the totals by article.
  std::string p_RX_TOTALI_PLU_strTrasmettiRichiestaProssimoStream();
  // Asks for the totals by lot: "<READ_ARC=TOT_TRACC,ALL><END_READ_ARC>" CR LF.
  std::string p_RX_strTrasmettiRichiestaRicezioneTotaliLotti();
  // Asks for the totals by lot and article: "<READ_ARC=TOT_TRACC_PLU,ALL><END_READ_ARC>" CR LF.
  std::string p_RX_strTrasmettiRichiestaRicezioneTotaliLottiPlu();
  // Asks for the next stream of the totals by lot.
  std::string p_RX_TOTALI_LOTTI_strTrasmettiRichiestaProssimoStream();
  // Asks for the next stream of the totals by lot and article.
  std::string p_RX_TOTALI_LOTTI_PLU_strTrasmettiRichiestaProssimoStream();
  // Asks the device to take total control of the connection.
  std::string p_RX_strGetTotalControl();
  // Stops the work in progress: "<STOP><END_STOP>" CR LF.
  std::string p_RX_strStopLavorazioniInCorso();
  // Asks for the device's status: "<GET_STATUS><END_GET_STATUS>" CR LF.
  std::string p_RX_strRetrieveStatus();
  // "<RESET_TOT=" + strMode in upper case + "><END_RESET_TOT>" CR LF; nothing is checked.
  std::string p_RX_strRichiediCancellazioneTotali(std::string& strMode);
};

}  // namespace qk
