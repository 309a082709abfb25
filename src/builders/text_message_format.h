// Advertising messages and electronic texts for the 5000 series.
//   <MSG OPE=NEW TYP=MSG ID="17" SOR="2" TIP="m" NOM="file" SEC="s" RIP="r" VEL="v"
//        MP1="text 1, 1-70" M1A="71-140" M1B="142-211" M1C="212-251" MP2=… M2C="…"/>
//   (character 141 of each text is never sent; no blank before "/>")
//   <MSG TYP=TXT2 OPE=NEW ID=12 REP=1 T01="row" T02="row" />
#pragma once

#include <cstddef>
#include <string_view>

namespace qk::text_message_format {

struct Piece {
  std::string_view name;
  std::size_t start;  // 1-based
  std::size_t length;
};
// The four pieces of each associated text; MP1…M1C for text 1, MP2…M2C for text 2.
inline constexpr Piece kText1[4] = {
    {" MP1=", 1, 70}, {" M1A=", 71, 70}, {" M1B=", 142, 70}, {" M1C=", 212, 40}};
inline constexpr Piece kText2[4] = {
    {" MP2=", 1, 70}, {" M2A=", 71, 70}, {" M2B=", 142, 70}, {" M2C=", 212, 40}};
inline constexpr int kAssociatedTexts = 2;

}  // namespace qk::text_message_format
