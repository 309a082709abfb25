// Ticket layouts on the wire, and the property numbers of each kind of layout object.
//
// A layout is a ticket object and its text, barcode and logo objects; each object has numbered
// properties (TICKET_PROPERTY.Id). Lengths and positions are stored in millimetres and sent in
// dots (x 8, ties to even) from the ticket origin (ticket properties 6 and 7, x 8).
//
// 3000 series: numeric records, each opened by the layout header "96" "99" "99" "0" + (layout - 1)
//   ticket:  header "00" width(3+) height(4+) code
//   text:    header field(2+) flags(3+) element(3+) X(3+) Y(4+) font(2+) characters(3+)
//            zoom-width zoom-height direction alignment last-field
//            (flags read as hexadecimal; element = data type + field value - 1)
//   barcode: header field(2+) flags(3+) element(3+) X(3+) Y(4+) type(2+) characters(3+)
//            zoom-width zoom-height direction "0" last-field
//            (element = 153 + field value, or 133 for barcode type 26)
//   logo:    header field(2+) flags(3+) element(3+) X(3+) Y(4+) "99" "000"
//            zoom-width zoom-height direction "0" last-field        (element = image + 207)
//   "3+" = at least 3 digits, never cut; fonts and magnifications through Configurazione.xml.
//   Objects whose field number is over 50 are left out.
//   Example (demo layout 1, a ticket of 80 x 60 mm with code 3): 969999000064004803
//
// 5000 series: "<MSG OPE=DEL TYP=LAY ID=<layout x 1000>/>", then one message per object:
//   ticket:  <MSG OPE=NEW TYP=LAY ID=<layout x 1000> DIX=<width> DIY=<height> />
//   text:    … ID TCA(font, +1 below 25) TDA(data type mapped O3 -> O5) NRG(field value) COX COY
//            ESX ESY DIR ALL NRC FL1 FL2 FL3 FL4 />
//   barcode: … ID TCA(type) TDA=30 COX COY NRG ESX ESY DIR ALL NRC FL1..FL4 />
//   logo:    … ID NRG(image) IMG="<file name>" TCA(99, or 98) TDA= COX COY ESX ESY DIR NRC=
//            FL1..FL4 />
//   ID = layout x 1000 + field number; FL1..FL4 = bits 1, 0, 6, 7 of the flag byte, inverted.
//
// Both arrays are assembled as one text joined by "@#@" and split on it.
#pragma once

#include <string_view>

namespace qk::layout_format {

inline constexpr std::string_view kSeparator = "@#@";
// The receive request (type "46"): header, layout number, object number (0: the whole layout).
inline constexpr std::string_view kRequestLayoutDigits = "000", kRequestObjectDigits = "000";
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
inline constexpr std::string_view kLogoFixedFields = "99000";
inline constexpr int kFontShiftBelow = 25;
inline constexpr int kRawDataTypes[3] = {36, 37, 38};
// The one rule for the data types the 5000 series takes as they stand, never through the value
// mapping (the encoder, the checker and the receiver ask it).
inline constexpr bool sent_as_stored(double data_type) {
  for (int t : kRawDataTypes)
    if (data_type == t) return true;
  return false;
}
inline constexpr std::string_view kUnknownDataType = "27";
inline constexpr std::string_view kUnknownFieldValue = "999";
inline constexpr int kDataTypeWithBase = 45;
inline constexpr int kDataTypeBase = 90000;
inline constexpr std::string_view kBarcodeDataType = "30";
inline constexpr std::string_view kLogoPlain = "99", kLogoStyled = "98";

// Attribute names of the 5000 messages.
namespace attribute {
inline constexpr std::string_view kId = "ID", kWidth = "DIX", kHeight = "DIY", kFont = "TCA",
                                  kDataType = "TDA", kFieldValue = "NRG", kX = "COX", kY = "COY",
                                  kZoomWidth = "ESX", kZoomHeight = "ESY", kDirection = "DIR",
                                  kAlignment = "ALL", kCharacters = "NRC", kImageFile = "IMG";
// FL1..FL4 and the bit of the flag byte each one reports (1 when the bit is clear).
struct FlagBit {
  std::string_view name;
  int bit;
};
inline constexpr FlagBit kFlags[] = {{"FL1", 2}, {"FL2", 1}, {"FL3", 64}, {"FL4", 128}};
}  // namespace attribute

// Object kinds (OBJ_TYPE), as enuFieldType.
inline constexpr int kLogo = 1, kBarcode = 2, kText = 3, kTicket = 4;

// Property numbers per kind. "last field" is sent only as the 3000 record's last field.
namespace ticket {
inline constexpr int kHeight = 1, kCode = 2, kWidth = 5, kOriginX = 6, kOriginY = 7;
}
namespace text {
inline constexpr int kField = 0, kAlignment = 1, kCharacters = 2, kFlags = 3, kDataType = 4,
                     kFont = 5, kX = 7, kLastField = 8, kDirection = 9, kFieldValue = 10, kY = 11,
                     kZoomHeight = 13, kZoomWidth = 14;
}
namespace barcode {
inline constexpr int kField = 0, kAlignment = 1, kType = 2, kCharacters = 3, kFlags = 4, kX = 6,
                     kLastField = 7, kDirection = 8, kY = 9, kZoomHeight = 11, kZoomWidth = 12,
                     kFieldValue = 15;
}
namespace logo {
inline constexpr int kField = 0, kFlags = 2, kX = 4, kImage = 5, kLastField = 6, kDirection = 7,
                     kY = 8, kZoomHeight = 10, kZoomWidth = 11, kStyle = 14;
}

// Each kind's 5000 message, attribute by attribute in wire order, with the property it carries
// and how: the encoder writes the message from this table and the receiver reads it back from the
// same one. Own: the kind's own rule (ID, TCA, TDA, NRG, IMG, and the values a kind leaves empty).
enum class Carry {
  DotsX,  // COX, COY: a position in dots (stored in millimetres), from the ticket origin
  DotsY,
  Zoom,   // a magnification as the scale numbers it (stored as an identifier)
  Text,   // the stored text as it stands
  Flags,  // FL1..FL4 of the flag byte
  Own
};
struct Attribute {
  std::string_view name;  // "" for FL1..FL4
  int property;           // -1: no property
  Carry carry;
};
inline constexpr Attribute kText5000[] = {{attribute::kId, text::kField, Carry::Own},
                                          {attribute::kFont, text::kFont, Carry::Own},
                                          {attribute::kDataType, text::kDataType, Carry::Own},
                                          {attribute::kFieldValue, text::kFieldValue, Carry::Own},
                                          {attribute::kX, text::kX, Carry::DotsX},
                                          {attribute::kY, text::kY, Carry::DotsY},
                                          {attribute::kZoomWidth, text::kZoomWidth, Carry::Zoom},
                                          {attribute::kZoomHeight, text::kZoomHeight, Carry::Zoom},
                                          {attribute::kDirection, text::kDirection, Carry::Text},
                                          {attribute::kAlignment, text::kAlignment, Carry::Text},
                                          {attribute::kCharacters, text::kCharacters, Carry::Text},
                                          {"", text::kFlags, Carry::Flags}};
inline constexpr Attribute kBarcode5000[] = {
    {attribute::kId, barcode::kField, Carry::Own},
    {attribute::kFont, barcode::kType, Carry::Own},
    {attribute::kDataType, -1, Carry::Own},
    {attribute::kX, barcode::kX, Carry::DotsX},
    {attribute::kY, barcode::kY, Carry::DotsY},
    {attribute::kFieldValue, barcode::kFieldValue, Carry::Text},
    {attribute::kZoomWidth, barcode::kZoomWidth, Carry::Zoom},
    {attribute::kZoomHeight, barcode::kZoomHeight, Carry::Zoom},
    {attribute::kDirection, barcode::kDirection, Carry::Text},
    {attribute::kAlignment, barcode::kAlignment, Carry::Text},
    {attribute::kCharacters, barcode::kCharacters, Carry::Text},
    {"", barcode::kFlags, Carry::Flags}};
inline constexpr Attribute kLogo5000[] = {{attribute::kId, logo::kField, Carry::Own},
                                          {attribute::kFieldValue, logo::kImage, Carry::Own},
                                          {attribute::kImageFile, logo::kImage, Carry::Own},
                                          {attribute::kFont, logo::kStyle, Carry::Own},
                                          {attribute::kDataType, -1, Carry::Own},
                                          {attribute::kX, logo::kX, Carry::DotsX},
                                          {attribute::kY, logo::kY, Carry::DotsY},
                                          {attribute::kZoomWidth, logo::kZoomWidth, Carry::Zoom},
                                          {attribute::kZoomHeight, logo::kZoomHeight, Carry::Zoom},
                                          {attribute::kDirection, logo::kDirection, Carry::Text},
                                          {attribute::kCharacters, -1, Carry::Own},
                                          {"", logo::kFlags, Carry::Flags}};

// How a builder reads a property row into its values (converting at the moment it reads it, so a
// bad value fails the builder at that object): as stored; as a number (decimal comma taken as a
// point); rounded to a 32-bit integer; as hexadecimal; in dots; as the scale's font or
// magnification number (text, or read on as a number); as a 16-bit integer.
enum class Read {
  Text,
  Number,
  Rounded,
  Hex,
  Dots,
  FontText,
  FontNumber,
  ZoomText,
  ZoomNumber,
  Int16
};

struct PropertyRead {
  int id;
  Read how;
};

// What each builder reads, per series; the other property rows of the object are skipped.
inline constexpr PropertyRead kTicketReads[] = {{ticket::kHeight, Read::Text},
                                                {ticket::kCode, Read::Text},
                                                {ticket::kWidth, Read::Text},
                                                {ticket::kOriginX, Read::Dots},
                                                {ticket::kOriginY, Read::Dots}};

inline constexpr PropertyRead kText3000Reads[] = {{text::kField, Read::Text},
                                                  {text::kAlignment, Read::Text},
                                                  {text::kCharacters, Read::Text},
                                                  {text::kFlags, Read::Hex},
                                                  {text::kDataType, Read::Number},
                                                  {text::kFont, Read::FontNumber},
                                                  {text::kX, Read::Dots},
                                                  {text::kLastField, Read::Rounded},
                                                  {text::kDirection, Read::Text},
                                                  {text::kFieldValue, Read::Number},
                                                  {text::kY, Read::Dots},
                                                  {text::kZoomHeight, Read::ZoomNumber},
                                                  {text::kZoomWidth, Read::ZoomNumber}};
inline constexpr PropertyRead kText5000Reads[] = {{text::kField, Read::Text},
                                                  {text::kAlignment, Read::Text},
                                                  {text::kCharacters, Read::Text},
                                                  {text::kFlags, Read::Hex},
                                                  {text::kDataType, Read::Text},
                                                  {text::kFont, Read::FontText},
                                                  {text::kX, Read::Dots},
                                                  {text::kLastField, Read::Rounded},
                                                  {text::kDirection, Read::Text},
                                                  {text::kFieldValue, Read::Text},
                                                  {text::kY, Read::Dots},
                                                  {text::kZoomHeight, Read::ZoomText},
                                                  {text::kZoomWidth, Read::ZoomText}};

inline constexpr PropertyRead kBarcode3000Reads[] = {{barcode::kField, Read::Text},
                                                     {barcode::kType, Read::Rounded},
                                                     {barcode::kCharacters, Read::Text},
                                                     {barcode::kFlags, Read::Hex},
                                                     {barcode::kX, Read::Dots},
                                                     {barcode::kLastField, Read::Rounded},
                                                     {barcode::kDirection, Read::Text},
                                                     {barcode::kY, Read::Dots},
                                                     {barcode::kZoomHeight, Read::ZoomNumber},
                                                     {barcode::kZoomWidth, Read::ZoomNumber},
                                                     {barcode::kFieldValue, Read::Number}};
inline constexpr PropertyRead kBarcode5000Reads[] = {{barcode::kField, Read::Text},
                                                     {barcode::kAlignment, Read::Text},
                                                     {barcode::kType, Read::Rounded},
                                                     {barcode::kCharacters, Read::Text},
                                                     {barcode::kFlags, Read::Hex},
                                                     {barcode::kX, Read::Dots},
                                                     {barcode::kLastField, Read::Rounded},
                                                     {barcode::kDirection, Read::Text},
                                                     {barcode::kY, Read::Dots},
                                                     {barcode::kZoomHeight, Read::ZoomText},
                                                     {barcode::kZoomWidth, Read::ZoomText},
                                                     {barcode::kFieldValue, Read::Text}};

inline constexpr PropertyRead kLogo3000Reads[] = {{logo::kField, Read::Text},
                                                  {logo::kFlags, Read::Hex},
                                                  {logo::kX, Read::Dots},
                                                  {logo::kImage, Read::Number},
                                                  {logo::kLastField, Read::Rounded},
                                                  {logo::kDirection, Read::Text},
                                                  {logo::kY, Read::Dots},
                                                  {logo::kZoomHeight, Read::ZoomNumber},
                                                  {logo::kZoomWidth, Read::ZoomNumber}};
inline constexpr PropertyRead kLogo5000Reads[] = {{logo::kField, Read::Text},
                                                  {logo::kFlags, Read::Hex},
                                                  {logo::kX, Read::Dots},
                                                  {logo::kImage, Read::Text},
                                                  {logo::kLastField, Read::Rounded},
                                                  {logo::kDirection, Read::Text},
                                                  {logo::kY, Read::Dots},
                                                  {logo::kZoomHeight, Read::ZoomText},
                                                  {logo::kZoomWidth, Read::ZoomText},
                                                  {logo::kStyle, Read::Int16}};

}  // namespace qk::layout_format
