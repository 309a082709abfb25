#include "qk/error.h"

namespace qk::automation {

std::string standard_description(long number) {
  switch (number) {
    case 5:
      return "Invalid procedure call or argument";
    case 6:
      return "Overflow";
    case 7:
      return "Out of memory";
    case 9:
      return "Subscript out of range";
    case 11:
      return "Division by zero";
    case 13:
      return "Type mismatch";
    case 53:
      return "File not found";
    case 58:
      return "File already exists";
    case 62:
      return "Input past end of file";
    case 75:
      return "Path/File access error";
    case 91:
      return "Object variable or With block variable not set";
    case 92:
      return "For loop not initialized";
    case 94:
      return "Invalid use of Null";
    case 424:
      return "Object required";
    case 429:
      return "ActiveX component can't create object";
    case 438:
      return "Object doesn't support this property or method";
    case 440:
      return "Automation error";
    case 457:
      return "This key is already associated with an element of this collection";
    case 462:
      return "The remote server machine does not exist or is unavailable";
    case 3021:
      return "Either BOF or EOF is True, or the current record has been deleted. "
             "Requested operation requires a current record.";
    case 3218:
      return "Could not update; currently locked.";
    case 3265:
      return "Item cannot be found in the collection corresponding to the requested name or "
             "ordinal.";
    default:
      return "";
  }
}

std::string error_label(long number) {
  return number == kDatabaseError ? "database error" : "error " + std::to_string(number);
}

Error::Error(long number) : Error(number, standard_description(number)) {}

Error::Error(long number, const std::string& description, const std::string& source)
    : std::runtime_error(description),
      number_(number),
      description_(description),
      source_(source) {}

void raise(long number) {
  throw Error(number);
}
void raise(long number, const std::string& description) {
  throw Error(number, description);
}

}  // namespace qk::automation
