// Run-time errors as the automation host raises them: a number, a description and a source.
#pragma once

#include <stdexcept>
#include <string>

#include "qk/export.h"

namespace qk::automation {

// The run-time error numbers the component raises or meets.
enum ErrorNumber : long {
  kInvalidProcedureCall = 5,
  kOverflow = 6,
  kOutOfMemory = 7,
  kSubscriptOutOfRange = 9,
  kDivisionByZero = 11,
  kTypeMismatch = 13,
  kFileNotFound = 53,
  kFileAlreadyExists = 58,
  kInputPastEndOfFile = 62,
  kPathFileAccessError = 75,
  kObjectNotSet = 91,
  kForLoopNotInitialized = 92,
  kInvalidUseOfNull = 94,
  kObjectRequired = 424,
  kCannotCreateObject = 429,
  kMemberNotSupported = 438,
  kAutomationError = 440,
  kKeyAlreadyAssociated = 457,
  kRemoteServerUnavailable = 462,
  kNoCurrentRecord = 3021,
  // Another writer held what a write needed: the database gave up waiting, or ended the
  // transaction to break a deadlock. Nothing of the transaction was written; it may be retried.
  kWriteConflict = 3218,
  kItemNotFound = 3265,
  kDatabaseError = -2147467259,  // E_FAIL, the number data access errors carry
};

// The host's own description of a standard error number ("" for numbers it does not know).
QK_API std::string standard_description(long number);

// How messages for people name an error number: "error 13", and "database error" for the number
// data access errors carry (a bare negative number tells a person nothing).
QK_API std::string error_label(long number);

class QK_API Error : public std::runtime_error {
 public:
  QK_COPYABLE(Error);
  // An error with the host's standard description.
  explicit Error(long number);
  Error(long number, const std::string& description, const std::string& source = "");

  long number() const { return number_; }
  const std::string& description() const { return description_; }
  const std::string& source() const { return source_; }

 private:
  long number_;
  std::string description_;
  std::string source_;
};

QK_API [[noreturn]] void raise(long number);
QK_API [[noreturn]] void raise(long number, const std::string& description);

}  // namespace qk::automation
