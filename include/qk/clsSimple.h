// Date and time messages that set a scale's clock. No state, no database, no creation sequence.
#pragma once

#include <string>

#include "qk/export.h"

namespace qk {

class QK_API clsSimple {
 public:
  clsSimple() = default;
  QK_MOVE_ONLY(clsSimple);
  // Numeric record of type "25": day, month, two-digit year, hour, minute, second, two digits
  // each (19 characters). One clock reading per message. "" after a reported error.
  std::string DataOra() const;
  // "<MSG OPE=FUN NPM=1 NCM=1 TYP=DATA YYY=… MMM=… DAY=… HHH=… MIN=… SSS=… />", years counted
  // from 1900 and nothing padded.
  std::string DataOraO5000() const;
};

}  // namespace qk
