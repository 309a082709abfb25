// Request blocks of the totals-collecting device: an opening tag, an optional body, the closing
// tag and CR LF, for example "<READ_ARC=TOT_TRACC,ALL><END_READ_ARC>\r\n".
#pragma once

#include <string_view>

namespace qk::totals_request_format {

inline constexpr std::string_view kCrLf = "\r\n";
inline constexpr std::string_view kReadArticles = "<READ_ARC=TOT_COD_ARTICOLO,ALL>";
inline constexpr std::string_view kReadLots = "<READ_ARC=TOT_TRACC,ALL>";
inline constexpr std::string_view kReadLotArticles = "<READ_ARC=TOT_TRACC_PLU,ALL>";
inline constexpr std::string_view kEndRead = "<END_READ_ARC>";
inline constexpr std::string_view kGetNext = "<GET_NEXT>";
inline constexpr std::string_view kSetStructure = "<SET_READ_STRUCT=TOT_GEN>";
inline constexpr std::string_view kArticleFields = "<T0><T2><T4><T10><T18>";
inline constexpr std::string_view kLotArticleFields = "<T0><T2><T3><T4><T10><T18>";
inline constexpr std::string_view kEndSetStructure = "<END_SET_READ_STRUCT>";
inline constexpr std::string_view kTotalControl =
    "<OPTION_CONNECTION><TOTAL_CONTROL=true><END_OPTION_CONNECTION>";
inline constexpr std::string_view kStop = "<STOP><END_STOP>";
inline constexpr std::string_view kStatus = "<GET_STATUS><END_GET_STATUS>";
inline constexpr std::string_view kResetOpen = "<RESET_TOT=";
inline constexpr std::string_view kResetClose = "><END_RESET_TOT>";

}  // namespace qk::totals_request_format
