// The Python module "qk_protocol": the public classes with their member names, one binding per
// class in interface order, and the host API.
//
// Properties are Python properties and methods are methods; an argument the component takes by
// reference comes back as the method's result. Protocol strings are bytes (the wire is 8-bit);
// other texts are str, converted from and to the component's 8-bit code page 1252 (a character
// with no 8-bit form raises ValueError naming the member). Variants map to None, bool, int,
// float, str and (nested) lists.
#include <pybind11/eval.h>
#include <pybind11/functional.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "qk/archive.h"
#include "qk/clsAbbinamentoTasti.h"
#include "qk/clsAdvertisingMessage.h"
#include "qk/clsBarCode.h"
#include "qk/clsEText.h"
#include "qk/clsImage.h"
#include "qk/clsImageKestra.h"
#include "qk/clsIva.h"
#include "qk/clsKplMakeRequest.h"
#include "qk/clsLayout.h"
#include "qk/clsPrinterImage.h"
#include "qk/clsSimple.h"
#include "qk/clsTotals.h"
#include "qk/clsTraceability.h"
#include "qk/host.h"
#include "qk/registry_helper.h"
#include "qk/translations.h"
#include "class_docs.h"
#include "sync_bindings.h"

namespace py = pybind11;
using qk::automation::Variant;
using qk::automation::VariantArray;
using qk::automation::VarType;

namespace {

// ---- values ------------------------------------------------------------------------------

py::bytes wire(const std::string& s) {
  return py::bytes(s);
}

py::list wire_list(const qk::automation::StringArray& a) {
  py::list out;
  for (const auto& s : a.items()) out.append(py::bytes(s));
  return out;
}

py::str text_out(const std::string& s) {
  return py::str(qk::cp1252_to_utf8(s));
}

// A str (or bytes, taken as they are) for a text member.
std::string text_in(const py::handle& v, const char* member) {
  if (py::isinstance<py::bytes>(v)) return v.cast<std::string>();
  if (!py::isinstance<py::str>(v))
    throw py::type_error(std::string(member) + ": expected str, got " +
                         std::string(py::str(v.get_type().attr("__name__"))));
  std::string utf8 = v.cast<std::string>();
  std::size_t bad = 0;
  auto text = qk::utf8_to_cp1252(utf8, &bad);
  if (!text)
    throw py::value_error(std::string(member) + ": the character at byte " +
                          std::to_string(bad + 1) + " has no 8-bit form (code page 1252)");
  return *text;
}

Variant variant_in(const py::handle& v, const char* member);

std::shared_ptr<VariantArray> array_in(const py::list& rows, const char* member) {
  bool two = rows.size() > 0 && py::isinstance<py::list>(rows[0]);
  long n = static_cast<long>(rows.size());
  if (!two) {
    auto a = std::make_shared<VariantArray>(std::vector<std::pair<long, long>>{{0, n - 1}});
    for (long i = 0; i < n; ++i) a->at(i) = variant_in(rows[static_cast<std::size_t>(i)], member);
    return a;
  }
  long width = 0;
  for (const auto& r : rows) {
    if (!py::isinstance<py::list>(r))
      throw py::type_error(std::string(member) + ": every row of a two-dimensional list is a list");
    width = std::max(width, static_cast<long>(py::len(r)));
  }
  auto a = std::make_shared<VariantArray>(
      std::vector<std::pair<long, long>>{{0, n - 1}, {0, width - 1}});
  for (long i = 0; i < n; ++i) {
    py::list row = rows[static_cast<std::size_t>(i)];
    for (long j = 0; j < static_cast<long>(row.size()); ++j)
      a->at(i, j) = variant_in(row[static_cast<std::size_t>(j)], member);
  }
  return a;
}

Variant variant_in(const py::handle& v, const char* member) {
  if (v.is_none()) return Variant();
  if (py::isinstance<py::bool_>(v)) return Variant(v.cast<bool>());
  if (py::isinstance<py::int_>(v)) {
    long long n = v.cast<long long>();
    return Variant(n);
  }
  if (py::isinstance<py::float_>(v)) return Variant(v.cast<double>());
  if (py::isinstance<py::str>(v) || py::isinstance<py::bytes>(v))
    return Variant(text_in(v, member));
  if (py::isinstance<py::list>(v)) return Variant(array_in(v.cast<py::list>(), member));
  throw py::type_error(std::string(member) +
                       ": expected None, bool, int, float, str or a list, got " +
                       std::string(py::str(v.get_type().attr("__name__"))));
}

py::object variant_out(const Variant& v) {
  switch (v.type()) {
    case VarType::Empty:
    case VarType::Null:
      return py::none();
    case VarType::Boolean:
      return py::bool_(v.to_bool());
    case VarType::Integer:
    case VarType::Long:
      return py::int_(v.to_int32());
    case VarType::Double:
      return py::float_(v.to_double());
    case VarType::String:
      return text_out(v.to_string());
    case VarType::Array: {
      auto a = v.to_array();
      py::list out;
      if (a->dimensions() == 1) {
        for (long i = a->lower_bound(1); i <= a->upper_bound(1); ++i)
          out.append(variant_out(a->at(i)));
      } else {
        for (long i = a->lower_bound(1); i <= a->upper_bound(1); ++i) {
          py::list row;
          for (long j = a->lower_bound(2); j <= a->upper_bound(2); ++j)
            row.append(variant_out(a->at(i, j)));
          out.append(row);
        }
      }
      return out;
    }
    case VarType::Object:
      break;
  }
  return py::none();
}

// ---- the host ----------------------------------------------------------------------------

// Passes the component's error reports to a Python callable.
class CallbackLogger : public qk::Logger {
 public:
  explicit CallbackLogger(py::function f) : f_(std::move(f)) {}
  std::string Path() const override { return "python"; }
  void WriteLog(int32_t, const std::string& project, const std::string& module,
                const std::string& procedure, const std::string& description, int16_t,
                int32_t number) override {
    py::gil_scoped_acquire gil;
    f_(number, qk::cp1252_to_utf8(project), qk::cp1252_to_utf8(module),
       qk::cp1252_to_utf8(procedure), qk::cp1252_to_utf8(description));
  }

 private:
  py::function f_;
};

void start(const std::optional<std::string>& installation_folder,
           const std::optional<py::function>& on_error,
           const std::optional<py::function>& on_message_box,
           const std::optional<py::function>& on_event_log) {
  qk::register_archive();
  qk::register_translations();
  qk::register_registry_helper();
  qk::host::StartOptions o;
  if (installation_folder) o.installation_folder = *installation_folder;
  if (on_error) o.logger = std::make_shared<CallbackLogger>(*on_error);
  if (on_message_box) {
    py::function f = *on_message_box;
    o.message_box = [f](const std::string& text, const std::string& title, int style) {
      py::gil_scoped_acquire gil;
      py::object answer = f(qk::cp1252_to_utf8(text), qk::cp1252_to_utf8(title), style);
      return answer.is_none() ? int(qk::host::kAnswerOk) : answer.cast<int>();
    };
  }
  if (on_event_log) {
    py::function f = *on_event_log;
    o.event_log = [f](int type, const std::string& text) {
      py::gil_scoped_acquire gil;
      f(type, qk::cp1252_to_utf8(text));
    };
  }
  qk::host::start(o);
}

// ---- bindings ----------------------------------------------------------------------------

// A read-write Variant property.
template <class C, class Get, class Set>
void variant_property(py::class_<C>& c, const char* name, Get get, Set set) {
  c.def_property(
      name, [get](C& self) { return variant_out((self.*get)()); },
      [set, name](C& self, const py::object& v) { (self.*set)(variant_in(v, name)); });
}

// A read-write text property.
template <class C, class Get, class Set>
void text_property(py::class_<C>& c, const char* name, Get get, Set set) {
  c.def_property(
      name, [get](C& self) { return text_out((self.*get)()); },
      [set, name](C& self, const py::object& v) { (self.*set)(text_in(v, name)); });
}

// The three resets: the line comes back as the result, as the argument is by reference.
template <class C>
void reset(py::class_<C>& c, const char* name, void (C::*m)(int32_t&)) {
  c.def(
      name,
      [m](C& self, int32_t line) {
        (self.*m)(line);
        return line;
      },
      py::arg("lngLine"));
}

// The members the two logo classes share, in the same order in both.
template <class C>
void picture_members(py::class_<C>& c) {
  text_property(c, "p_strDescription",
                static_cast<std::string (C::*)() const>(&C::p_strDescription),
                static_cast<void (C::*)(const std::string&)>(&C::p_strDescription));
  text_property(c, "p_strFromDate", static_cast<std::string (C::*)() const>(&C::p_strFromDate),
                static_cast<void (C::*)(const std::string&)>(&C::p_strFromDate));
  text_property(c, "p_strToDate", static_cast<std::string (C::*)() const>(&C::p_strToDate),
                static_cast<void (C::*)(const std::string&)>(&C::p_strToDate));
  text_property(c, "p_strFileName", static_cast<std::string (C::*)() const>(&C::p_strFileName),
                static_cast<void (C::*)(const std::string&)>(&C::p_strFileName));
  variant_property(c, "p_varKey", static_cast<Variant (C::*)() const>(&C::p_varKey),
                   static_cast<void (C::*)(const Variant&)>(&C::p_varKey));
  // Paths are the file system's own bytes: passed as they are.
  c.def_property("p_strFullPath", static_cast<std::string (C::*)() const>(&C::p_strFullPath),
                 static_cast<void (C::*)(const std::string&)>(&C::p_strFullPath))
      .def_property("p_lngBanco", static_cast<int32_t (C::*)() const>(&C::p_lngBanco),
                    static_cast<void (C::*)(int32_t)>(&C::p_lngBanco))
      .def_property_readonly("p_strProtocol",
                             [](C& self) { return wire_list(self.p_strProtocol()); });
}

// A class needs the companions start() registers: made before, it would build nothing and say
// so only to a C++ host. The constructor refuses instead.
template <class C>
auto after_start() {
  return py::init([] {
    if (!qk::host::started())
      throw std::runtime_error(
          "call qk_protocol.start() before creating a class: it registers the archive, "
          "translations and settings companions every class uses");
    return std::make_unique<C>();
  });
}

void bind_classes(py::module_& m) {
  py::class_<qk::clsSimple>(m, "clsSimple")
      .def(after_start<qk::clsSimple>())
      .def_property_readonly("DataOra", [](qk::clsSimple& s) { return wire(s.DataOra()); })
      .def_property_readonly("DataOraO5000",
                             [](qk::clsSimple& s) { return wire(s.DataOraO5000()); });

  using Keys = qk::clsAbbinamentoTasti;
  py::class_<Keys> keys(m, "clsAbbinamentoTasti");
  keys.def(after_start<Keys>()).def("InitializeGlobal", &Keys::InitializeGlobal);
  text_property(keys, "p_strScale", static_cast<std::string (Keys::*)() const>(&Keys::p_strScale),
                static_cast<void (Keys::*)(const std::string&)>(&Keys::p_strScale));
  keys.def_property("CursorPosition", nullptr, &Keys::CursorPosition)
      .def_property("GlobalMode", nullptr,
                    [](Keys& k, const py::object& v) { k.GlobalMode(text_in(v, "GlobalMode")); })
      .def_property_readonly("RecordCount", &Keys::RecordCount);
  text_property(keys, "p_strScaleKey",
                static_cast<std::string (Keys::*)() const>(&Keys::p_strScaleKey),
                static_cast<void (Keys::*)(const std::string&)>(&Keys::p_strScaleKey));
  keys.def_property("p_intLine", static_cast<int16_t (Keys::*)() const>(&Keys::p_intLine),
                    static_cast<void (Keys::*)(int16_t)>(&Keys::p_intLine));
  variant_property(keys, "p_varKey", static_cast<Variant (Keys::*)() const>(&Keys::p_varKey),
                   static_cast<void (Keys::*)(const Variant&)>(&Keys::p_varKey));
  keys.def_property_readonly("p_strProtocolO50", [](Keys& k) { return wire(k.p_strProtocolO50()); })
      .def_property_readonly("p_strProtocol", [](Keys& k) { return wire(k.p_strProtocol()); });
  reset(keys, "p_ResetFlagTrasm", &Keys::p_ResetFlagTrasm);
  reset(keys, "p_ResetFlagTrasm50", &Keys::p_ResetFlagTrasm50);
  keys.def_property_readonly("p_strFlagTrasm50", &Keys::p_strFlagTrasm50)
      .def_property_readonly("p_strFlagTrasm", &Keys::p_strFlagTrasm);
  variant_property(keys, "p_varConfiguredLines",
                   static_cast<Variant (Keys::*)() const>(&Keys::p_varConfiguredLines),
                   static_cast<void (Keys::*)(const Variant&)>(&Keys::p_varConfiguredLines));
  reset(keys, "p_ResetFlagTrasm20", &Keys::p_ResetFlagTrasm20);
  keys.def_property_readonly("p_strProtocolO20", [](Keys& k) { return wire(k.p_strProtocolO20()); })
      .def_property_readonly("p_strFlagTrasm20", &Keys::p_strFlagTrasm20);

  using Barcodes = qk::clsBarCode;
  py::class_<Barcodes> bc(m, "clsBarCode");
  bc.def(after_start<Barcodes>());
  text_property(bc, "p_strForm",
                static_cast<std::string (Barcodes::*)() const>(&Barcodes::p_strForm),
                static_cast<void (Barcodes::*)(const std::string&)>(&Barcodes::p_strForm));
  variant_property(bc, "p_varKey", static_cast<Variant (Barcodes::*)() const>(&Barcodes::p_varKey),
                   static_cast<void (Barcodes::*)(const Variant&)>(&Barcodes::p_varKey));
  bc.def_property_readonly("p_strProtocol", [](Barcodes& b) {
      return wire(b.p_strProtocol());
    }).def_property_readonly("p_strFlagTrasm", &Barcodes::p_strFlagTrasm);
  reset(bc, "p_ResetFlagTrasm", &Barcodes::p_ResetFlagTrasm);
  variant_property(
      bc, "p_varConfiguredLines",
      static_cast<Variant (Barcodes::*)() const>(&Barcodes::p_varConfiguredLines),
      static_cast<void (Barcodes::*)(const Variant&)>(&Barcodes::p_varConfiguredLines));
  bc.def_property_readonly("p_booEOF", &Barcodes::p_booEOF)
      .def("p_MoveFirst", &Barcodes::p_MoveFirst)
      .def("p_MoveNext", &Barcodes::p_MoveNext);

  using Lots = qk::clsTraceability;
  py::class_<Lots> lots(m, "clsTraceability");
  lots.def(after_start<Lots>())
      .def_property("p_lngBnc", static_cast<int32_t (Lots::*)() const>(&Lots::p_lngBnc),
                    static_cast<void (Lots::*)(int32_t)>(&Lots::p_lngBnc));
  text_property(lots, "p_strTraceabilityId",
                static_cast<std::string (Lots::*)() const>(&Lots::p_strTraceabilityId),
                static_cast<void (Lots::*)(const std::string&)>(&Lots::p_strTraceabilityId));
  lots.def_property_readonly("p_strProtocol", [](Lots& l) { return wire(l.p_strProtocol()); })
      .def_property_readonly("p_3000TOP_strProtocol",
                             [](Lots& l) { return wire_list(l.p_3000TOP_strProtocol()); })
      .def_property_readonly("p_2000_strProtocol",
                             [](Lots& l) { return wire_list(l.p_2000_strProtocol()); })
      .def_property_readonly("p_3000_strProtocol",
                             [](Lots& l) { return wire_list(l.p_3000_strProtocol()); })
      .def_property_readonly("p_5000_strProtocol",
                             [](Lots& l) { return wire(l.p_5000_strProtocol()); })
      .def_property_readonly("p_objNumberOfRecord",
                             [](Lots& l) -> py::object {
                               auto c = l.p_objNumberOfRecord();
                               if (!c) return py::none();
                               py::list out;
                               for (long i = 1; i <= c->Count(); ++i)
                                 out.append(variant_out(c->Item(i)));
                               return out;
                             })
      .def(
          "p_RetrieveTraceabilityId",
          [](Lots& l, bool variated) {
            l.p_RetrieveTraceabilityId(variated);
            return variated;
          },
          py::arg("booVariated"));
  variant_property(lots, "p_varConfiguredLines",
                   static_cast<Variant (Lots::*)() const>(&Lots::p_varConfiguredLines),
                   static_cast<void (Lots::*)(const Variant&)>(&Lots::p_varConfiguredLines));
  reset(lots, "p_ResetFlagTrasm", &Lots::p_ResetFlagTrasm);
  lots.def_property_readonly("p_strFlagTrasm", &Lots::p_strFlagTrasm)
      .def(
          "FormattaCampo",
          [](Lots& l, const py::object& s, int16_t mode, int16_t length) {
            return text_out(l.FormattaCampo(text_in(s, "FormattaCampo"), mode, length));
          },
          py::arg("s"), py::arg("iModo"), py::arg("iLen"));

  using Ads = qk::clsAdvertisingMessage;
  py::class_<Ads> ads(m, "clsAdvertisingMessage");
  ads.def(after_start<Ads>())
      .def_property("Counter", static_cast<int32_t (Ads::*)() const>(&Ads::Counter),
                    [](Ads& a, int32_t v) { a.Counter(v); })
      .def_property("Id", static_cast<int32_t (Ads::*)() const>(&Ads::Id),
                    [](Ads& a, int32_t v) { a.Id(v); })
      .def_property_readonly("Protocol", [](Ads& a) { return wire(a.Protocol().to_text()); })
      .def_property("GlobalMode", nullptr,
                    [](Ads& a, const py::object& v) { a.GlobalMode(text_in(v, "GlobalMode")); })
      .def_property_readonly("RecordCount", &Ads::RecordCount)
      .def_property("CursorPosition", nullptr, &Ads::CursorPosition)
      .def("InitializeGlobal", &Ads::InitializeGlobal);
  variant_property(ads, "configuredLines",
                   static_cast<Variant (Ads::*)() const>(&Ads::configuredLines),
                   static_cast<void (Ads::*)(const Variant&)>(&Ads::configuredLines));
  reset(ads, "p_ResetFlagTrasm", &Ads::p_ResetFlagTrasm);
  ads.def_property_readonly("p_strFlagTrasm", &Ads::p_strFlagTrasm);

  using Texts = qk::clsEText;
  py::class_<Texts>(m, "clsEText")
      .def(after_start<Texts>())
      .def("InitializeGlobal", &Texts::InitializeGlobal)
      .def_property_readonly("RecordCount", &Texts::RecordCount)
      .def_property("CursorPosition", nullptr, &Texts::CursorPosition)
      .def_property("GlobalMode", nullptr, &Texts::GlobalMode)
      .def_property("Counter", static_cast<int32_t (Texts::*)() const>(&Texts::Counter),
                    [](Texts& t, int32_t v) { t.Counter(v); })
      .def_property_readonly("Protocol", [](Texts& t) { return wire(t.Protocol().to_text()); });

  using Vat = qk::clsIva;
  py::class_<Vat>(m, "clsIva")
      .def(after_start<Vat>())
      .def_property("Mode", nullptr,
                    [](Vat& v, const py::object& mode) {
                      std::string s = text_in(mode, "Mode");
                      v.Mode(s);
                    })
      .def_property("Iva", static_cast<double (Vat::*)() const>(&Vat::Iva),
                    [](Vat& v, double x) { v.Iva(x); })
      .def_property("Id", static_cast<int32_t (Vat::*)() const>(&Vat::Id),
                    [](Vat& v, int32_t x) { v.Id(x); })
      .def_property_readonly("Protocol2000", [](Vat& v) { return wire(v.Protocol2000()); })
      .def_property_readonly("RecordCount", &Vat::RecordCount)
      .def_property("CursorPosition", nullptr, [](Vat& v, int16_t p) { v.CursorPosition(p); })
      .def("Initialize", [](Vat& v) { return variant_out(v.Initialize()); });

  using Totals = qk::clsTotals;
  py::class_<Totals>(m, "clsTotals")
      .def(after_start<Totals>())
      .def_property("Mode", nullptr,
                    [](Totals& t, const py::object& mode) {
                      std::string s = text_in(mode, "Mode");
                      t.Mode(s);
                    })
      .def_property("Counter", nullptr, [](Totals& t, int16_t c) { t.Counter(c); })
      .def_property_readonly("Protocol2000", [](Totals& t) { return wire(t.Protocol2000()); })
      .def_property_readonly("RecordCount", &Totals::RecordCount)
      .def_property("CursorPosition", nullptr, [](Totals& t, int16_t p) { t.CursorPosition(p); })
      .def("Initialize", [](Totals& t) { return variant_out(t.Initialize()); });

  using Layout = qk::clsLayout;
  py::class_<Layout>(m, "clsLayout")
      .def(after_start<Layout>())
      .def_property("p_lngBnc", static_cast<int32_t (Layout::*)() const>(&Layout::p_lngBnc),
                    static_cast<void (Layout::*)(int32_t)>(&Layout::p_lngBnc))
      .def_property("p_lngTicketId",
                    static_cast<int32_t (Layout::*)() const>(&Layout::p_lngTicketId),
                    static_cast<void (Layout::*)(int32_t)>(&Layout::p_lngTicketId))
      .def(
          "p_strProtocol",
          [](const Layout& l, int16_t device) { return wire_list(l.p_strProtocol(device)); },
          py::arg("intDevice") = 2)
      .def_property_readonly("p_lngMaxItem", &Layout::p_lngMaxItem)
      .def_property_readonly("p_lngMaxItemO50", &Layout::p_lngMaxItemO50)
      .def("p_booRetrieveData", &Layout::p_booRetrieveData)
      .def(
          "p_strMakeReceiveRequest",
          [](Layout& l, const py::object& layout, const py::object& object) {
            return wire(l.p_strMakeReceiveRequest(text_in(layout, "p_strMakeReceiveRequest"),
                                                  text_in(object, "p_strMakeReceiveRequest")));
          },
          py::arg("strLayoutNumber"), py::arg("strObjectNumber"))
      .def(
          "p_ParseReceivedMessage",
          [](Layout& l, const py::bytes& message) { l.p_ParseReceivedMessage(message); },
          py::arg("strMessage"))
      .def_property("p_lngLayoutToImport",
                    static_cast<int32_t (Layout::*)() const>(&Layout::p_lngLayoutToImport),
                    static_cast<void (Layout::*)(int32_t)>(&Layout::p_lngLayoutToImport))
      .def_property("p_lngLine", static_cast<int32_t (Layout::*)() const>(&Layout::p_lngLine),
                    static_cast<void (Layout::*)(int32_t)>(&Layout::p_lngLine))
      .def(
          "p_ParseReceivedMessageO50",
          [](Layout& l, const py::bytes& message) { l.p_ParseReceivedMessageO50(message); },
          py::arg("strMessage"));

  py::class_<qk::clsImage> image(m, "clsImage");
  image.def(after_start<qk::clsImage>());
  picture_members(image);
  image
      .def_property("p_lngType",
                    static_cast<int32_t (qk::clsImage::*)() const>(&qk::clsImage::p_lngType),
                    static_cast<void (qk::clsImage::*)(int32_t)>(&qk::clsImage::p_lngType))
      .def(
          "p_strTransmissionString",
          [](qk::clsImage& i, const py::bytes& text) {
            return wire_list(i.p_strTransmissionString(text));
          },
          py::arg("text"));

  py::class_<qk::clsImageKestra> kestra(m, "clsImageKestra");
  kestra.def(after_start<qk::clsImageKestra>())
      .def_property(
          "p_lngType",
          static_cast<int32_t (qk::clsImageKestra::*)() const>(&qk::clsImageKestra::p_lngType),
          static_cast<void (qk::clsImageKestra::*)(int32_t)>(&qk::clsImageKestra::p_lngType));
  picture_members(kestra);

  using Printer = qk::clsPrinterImage;
  py::class_<Printer> printer(m, "clsPrinterImage");
  printer.def(after_start<Printer>())
      .def_property("p_strFullPath",
                    static_cast<std::string (Printer::*)() const>(&Printer::p_strFullPath),
                    static_cast<void (Printer::*)(const std::string&)>(&Printer::p_strFullPath));
  variant_property(printer, "p_varKey",
                   static_cast<Variant (Printer::*)() const>(&Printer::p_varKey),
                   static_cast<void (Printer::*)(const Variant&)>(&Printer::p_varKey));
  printer
      .def_property_readonly("p_strProtocol",
                             [](Printer& p) { return wire_list(p.p_strProtocol()); })
      .def("p_booImageIsValid", &Printer::p_booImageIsValid);

  using Requests = qk::clsKplMakeRequest;
  py::class_<Requests> requests(m, "clsKplMakeRequest");
  requests.def(after_start<Requests>());
  for (const auto& entry :
       std::initializer_list<std::pair<const char*, std::string (Requests::*)()>>{
           {"p_RX_strTrasmettiRichiestaRicezioneTotaliPlu",
            &Requests::p_RX_strTrasmettiRichiestaRicezioneTotaliPlu},
           {"p_RX_TOTALI_strTrasmettiRichiestaVariazioneStruttura",
            &Requests::p_RX_TOTALI_strTrasmettiRichiestaVariazioneStruttura},
           {"p_RX_TOTALI_LOTTIPLU_strTrasmettiRichiestaVariazioneStruttura",
            &Requests::p_RX_TOTALI_LOTTIPLU_strTrasmettiRichiestaVariazioneStruttura},
           {"p_RX_TOTALI_PLU_strTrasmettiRichiestaProssimoStream",
            &Requests::p_RX_TOTALI_PLU_strTrasmettiRichiestaProssimoStream},
           {"p_RX_strTrasmettiRichiestaRicezioneTotaliLotti",
            &Requests::p_RX_strTrasmettiRichiestaRicezioneTotaliLotti},
           {"p_RX_strTrasmettiRichiestaRicezioneTotaliLottiPlu",
            &Requests::p_RX_strTrasmettiRichiestaRicezioneTotaliLottiPlu},
           {"p_RX_TOTALI_LOTTI_strTrasmettiRichiestaProssimoStream",
            &Requests::p_RX_TOTALI_LOTTI_strTrasmettiRichiestaProssimoStream},
           {"p_RX_TOTALI_LOTTI_PLU_strTrasmettiRichiestaProssimoStream",
            &Requests::p_RX_TOTALI_LOTTI_PLU_strTrasmettiRichiestaProssimoStream},
           {"p_RX_strGetTotalControl", &Requests::p_RX_strGetTotalControl},
           {"p_RX_strStopLavorazioniInCorso", &Requests::p_RX_strStopLavorazioniInCorso},
           {"p_RX_strRetrieveStatus", &Requests::p_RX_strRetrieveStatus}})
    requests.def(entry.first, [member = entry.second](Requests& r) { return wire((r.*member)()); });
  requests.def(
      "p_RX_strRichiediCancellazioneTotali",
      [](Requests& r, const py::object& mode) {
        std::string m = text_in(mode, "p_RX_strRichiediCancellazioneTotali");
        return wire(r.p_RX_strRichiediCancellazioneTotali(m));
      },
      py::arg("strMode"));
}

// pybind11 says "incompatible function arguments" without the member: every property setter
// and method of the classes is wrapped so that a TypeError names it and the type it takes
// ("clsTraceability.p_lngBnc: expected int, got str"). The wrapped members and the classes get
// their docstrings, the headers' descriptions.
void name_type_errors_and_docs(py::module_& m) {
  py::dict docs;
  for (const auto& d : kClassDocs) {
    if (!docs.contains(d.cls)) docs[d.cls] = py::dict();
    docs[d.cls][py::str(d.member)] = py::str(d.doc);
  }
  py::dict scope;
  scope["module"] = m;
  scope["docs"] = docs;
  py::exec(R"(
import functools, re

def _named(cls, name, call):
    @functools.wraps(call)
    def wrapped(*args, **kwargs):
        try:
            return call(*args, **kwargs)
        except TypeError as e:
            text = str(e)
            if not text.startswith('(') and 'incompatible' not in text:
                raise
            sig = re.search(r'1\. \((.*?)\) ->', text)
            params = sig.group(1).split(', ')[1:] if sig else []
            wanted = [p.split(': ', 1)[-1] for p in params]
            got = ', '.join(type(a).__name__ for a in list(args[1:]) + list(kwargs.values()))
            raise TypeError(f"{cls.__name__}.{name}: expected {', '.join(wanted) or 'no value'}, "
                            f"got {got or 'nothing'}") from None
    return wrapped

for cls in [c for c in vars(module).values() if isinstance(c, type) and c.__name__.startswith('cls')]:
    table = docs.get(cls.__name__, {})
    cls.__doc__ = table.get('', cls.__doc__)
    for name, attr in list(vars(cls).items()):
        if name.startswith('_'):
            continue
        doc = table.get(name)
        if isinstance(attr, property):
            setter = _named(cls, name, attr.fset) if attr.fset is not None else None
            setattr(cls, name, property(attr.fget, setter, None, doc or attr.__doc__))
        elif callable(attr):
            wrapped = _named(cls, name, attr)
            wrapped.__doc__ = doc or attr.__doc__
            setattr(cls, name, wrapped)
)",
           scope);
}

}  // namespace

PYBIND11_MODULE(qk_protocol, m) {
  m.doc() = "Protocol strings for weighing scales from a back-office archive";

  static py::exception<qk::automation::Error> error(m, "Error");
  py::register_exception_translator([](std::exception_ptr p) {
    try {
      if (p) std::rethrow_exception(p);
    } catch (const qk::automation::Error& e) {
      py::tuple args = py::make_tuple(e.number(), qk::cp1252_to_utf8(e.description()));
      PyErr_SetObject(error.ptr(), args.ptr());
    }
  });

  m.def("start", &start, py::arg("installation_folder") = py::none(),
        py::arg("on_error") = py::none(), py::arg("on_message_box") = py::none(),
        py::arg("on_event_log") = py::none(),
        "Registers the companions and starts the component (qk/host.h): the installation "
        "folder, the callbacks for error reports (number, project, module, procedure, "
        "description), message boxes (text, title, style) -> answer, and event-log entries.");
  m.def("started", &qk::host::started);
  // Python callables held by the component must go before the interpreter does.
  auto release = [] {
    qk::host::set_message_box(nullptr);
    qk::host::set_event_log(nullptr);
    qk::host::set_exit_process(nullptr);
    qk::host::set_logger(nullptr);
  };
  m.def("release_callbacks", release, "Drops the Python callbacks given to start().");
  py::module_::import("atexit").attr("register")(py::cpp_function(release));
  m.def(
      "set_clock",
      [](const std::optional<std::tuple<int, int, int, int, int, int>>& t) {
        if (!t) return qk::set_clock(nullptr);
        qk::LocalTime at{std::get<0>(*t), std::get<1>(*t), std::get<2>(*t),
                         std::get<3>(*t), std::get<4>(*t), std::get<5>(*t)};
        qk::set_clock([at] { return at; });
      },
      py::arg("when"), "A fixed (year, month, day, hour, minute, second), or None for the clock.");
  m.def(
      "setting",
      [](const py::object& section, const py::object& key, const py::object& fallback) {
        return text_out(qk::host::setting(text_in(section, "setting"), text_in(key, "setting"),
                                          text_in(fallback, "setting")));
      },
      py::arg("section"), py::arg("key"), py::arg("fallback") = "");
  m.def("installation_folder", &qk::installation_folder);
  bind_classes(m);
  name_type_errors_and_docs(m);
  bind_sync(m);
}
