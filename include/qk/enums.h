// The two enumerations of the component's interface.
#pragma once

namespace qk {

// Kinds of layout objects (column OBJ_TYPE).
enum enuFieldType { ftLogo = 1, ftbarcode = 2, ftText = 3, ftTicket = 4 };

// Property tables searched in "Configurazione.xml".
enum enuSearchMode { smField = 1, smFont = 2, smZoomHeight = 3, smZoomWidth = 4 };

}  // namespace qk
