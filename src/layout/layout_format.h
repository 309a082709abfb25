// Ticket layouts on the wire.
// 3000 series, numeric records opened by the layout header "9699990" + (layout - 1):
//   ticket:  header "00" width(3+) height(4+) code
//   text:    header field(2+) hex-flags(3+) element(3+) X(3+) Y(4+) font(2+) p2(3+) zoomX zoomY
//            p9 p1 p8          (element = p4 + p10 - 1)
//   barcode: header field flags element(153 + p15, or 133 for type 26) X Y type(2+) p3(3+)
//            zoomX zoomY p8 "0" p7
//   logo:    header field flags element(image + 207) X Y "99" "000" zoomX zoomY p7 "0" p6
//   ("3+" = at least 3 digits, never cut; positions in dots = millimetres x 8 + ticket origin)
// 5000 series: "<MSG OPE=DEL TYP=LAY ID=<layout x 1000>/>", then one
//   "<MSG OPE=NEW TYP=LAY ID=… … />" per ticket, text, barcode and logo.
// Both arrays are assembled as one text joined by "@#@" and split on it.
#pragma once

#include <string_view>

namespace qk::layout_format {

inline constexpr std::string_view kSeparator = "@#@";
inline constexpr std::string_view kMessageOpen = "<MSG OPE=NEW TYP=LAY";
inline constexpr std::string_view kMessageClose = " />";
inline constexpr std::string_view kDeleteOpen = "<MSG OPE=DEL TYP=LAY ID=";
inline constexpr std::string_view kDeleteClose = "/>";  // no blank before it, unlike the others
inline constexpr int kObjectsPerLayout = 1000;
inline constexpr int kMaxFieldNumber3000 = 50;
inline constexpr int kDotsPerMillimetre = 8;
inline constexpr int kBarcodeElementBase = 153;
inline constexpr int kBarcodeType26 = 26;
inline constexpr std::string_view kBarcodeType26Element = "133";
inline constexpr int kLogoElementBase = 207;
inline constexpr int kFontShiftBelow = 25;
inline constexpr int kRawDataTypes[3] = {36, 37, 38};
inline constexpr std::string_view kUnknownDataType = "27";
inline constexpr std::string_view kUnknownFieldValue = "999";
inline constexpr int kDataTypeWithBase = 45;
inline constexpr int kDataTypeBase = 90000;
inline constexpr std::string_view kBarcodeDataType = "30";

// Object kinds (OBJ_TYPE), as enuFieldType.
inline constexpr int kLogo = 1, kBarcode = 2, kText = 3, kTicket = 4;

}  // namespace qk::layout_format
