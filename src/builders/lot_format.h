// Traceability lots on the wire.
//   Velta:    <WRITE_ARC = TRACC,"key" >CRLF <T1 = "code"><T2 = "line 1">CRLF … <T21 = "…">CRLF
//             <END_WRITE_ARC>          deletion: <DELETE_ARC=TRACC><DEL="code"><END_DELETE_ARC>
//   3000TOP:  6 records "2099990" lot "000" | k | 51-character piece k of: code (15) then
//             ["%"]line"#" for each non-empty line (cut to 70, trimmed), whole body cut to 309
//   2000:     13 records "=0G" lot "00" | i "00" | text left in 30 (code, lines 1 to 12)
//   3000:     6 records "2099990" lot "000" | k | code (15), lines 1 to 5 (20, 34, 20, 20, 20)
//   5000:     <MSG OPE=NEW TYP=LOT REP=d ID=n MOD=m T01="code" T02="…" … T20="…" DTC=0 CAR=c />
//             or <MSG OPE=DEL TYP=LOT ID=n CAR=c />
#pragma once

#include <string_view>

namespace qk::lot_format {

inline constexpr std::string_view kCrLf = "\r\n";

// Velta: "<WRITE_ARC = TRACC,"key" >", lines as "<Tn = "value">", deletion by code.
inline constexpr std::string_view kVeltaWriteOpen = "<WRITE_ARC = TRACC,";
inline constexpr std::string_view kVeltaWriteKeyEnd = " >";
inline constexpr std::string_view kVeltaWriteClose = "<END_WRITE_ARC>";
inline constexpr std::string_view kVeltaDeleteOpen = "<DELETE_ARC=TRACC><DEL=";
inline constexpr std::string_view kVeltaDeleteClose = "><END_DELETE_ARC>";
inline constexpr std::string_view kVeltaLineOpen = "<T";
inline constexpr std::string_view kVeltaLineEquals = " = ";
inline constexpr std::string_view kVeltaLineClose = ">";
inline constexpr std::string_view kVeltaHeadsetParameter = "SEND_HEADSET";

// 5000: attribute names of the tagged message; T01 is the code, T02…T20 the lines.
inline constexpr std::string_view k5000NewOpen = "<MSG OPE=NEW TYP=LOT";
inline constexpr std::string_view k5000DeleteOpen = "<MSG OPE=DEL TYP=LOT";
inline constexpr std::string_view k5000Department = "REP", k5000Id = "ID", k5000Mode = "MOD",
                                  k5000LinePrefix = "T", k5000Dtc = "DTC", k5000Charged = "CAR";
inline constexpr std::string_view k5000DtcValue = "0";
inline constexpr int k5000LineDigits = 2;
inline constexpr std::string_view kDeleteMarker = "<TBD>";
inline constexpr int kDescriptionLines = 20;

inline constexpr int kTopCodeWidth = 15;
inline constexpr std::size_t kTopLineCut = 70;
inline constexpr std::size_t kTopBodyCut = 309;
inline constexpr std::size_t kTopFullPieces = 306;
inline constexpr int16_t kTopPiece = 51;
inline constexpr int kTopRecords = 6;

inline constexpr std::string_view kPrefix2000 = "=0G";
inline constexpr int k2000Lines = 12;
inline constexpr int k2000Width = 30;

inline constexpr int k3000Widths[6] = {15, 20, 34, 20, 20, 20};  // code, then lines 1 to 5

inline constexpr int k5000Lines = 19;

}  // namespace qk::lot_format
