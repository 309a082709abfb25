// Advertising messages and electronic texts for the 5000 series.
//   <MSG OPE=NEW TYP=MSG ID="17" SOR="2" TIP="m" NOM="file" SEC="s" RIP="r" VEL="v"
//        MP1="text 1, 1-70" M1A="71-140" M1B="142-211" M1C="212-251" MP2=… M2C="…"/>
//   (character 141 of each text is never sent; no blank before "/>"; a message that does not
//   exist is sent with TIP=0 (unquoted) and every other value empty)
//   Example (demo message 2 of department 1):
//   <MSG OPE=NEW TYP=MSG ID="2" SOR="2" TIP="0" NOM="" SEC="3" RIP="1" VEL="1" MP1="Benvenuti!"
//        M1A="" M1B="" M1C="" MP2="" M2A="" M2B="" M2C=""/>
//   <MSG TYP=TXT2 OPE=NEW ID=12 REP=1 T01="row" T02="row" />   (T + row number in 2 digits)
#pragma once

#include <cstddef>
#include <string_view>

namespace qk::text_message_format {

inline constexpr std::string_view kAdOpen = "<MSG OPE=NEW TYP=MSG";
inline constexpr std::string_view kAdClose = "/>";  // no blank before it
inline constexpr std::string_view kId = "ID", kSource = "SOR", kMode = "TIP", kFile = "NOM",
                                  kPersistence = "SEC", kRepeat = "RIP", kRate = "VEL";
inline constexpr std::string_view kSourceValue = "2";
inline constexpr std::string_view kMissingMode = "0";

inline constexpr std::string_view kTextOpen = "<MSG TYP=TXT2 OPE=NEW";
inline constexpr std::string_view kCounter = "REP";
inline constexpr std::string_view kRowPrefix = "T";
inline constexpr int kRowDigits = 2;

struct Piece {
  std::string_view name;
  std::size_t start;  // 1-based
  std::size_t length;
};
// The four pieces of each associated text; MP1…M1C for text 1, MP2…M2C for text 2.
inline constexpr Piece kText1[4] = {
    {"MP1", 1, 70}, {"M1A", 71, 70}, {"M1B", 142, 70}, {"M1C", 212, 40}};
inline constexpr Piece kText2[4] = {
    {"MP2", 1, 70}, {"M2A", 71, 70}, {"M2B", 142, 70}, {"M2C", 212, 40}};
inline constexpr int kAssociatedTexts = 2;

}  // namespace qk::text_message_format
