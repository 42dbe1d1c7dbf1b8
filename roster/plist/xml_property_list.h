#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "roster/base/bytes.h"
#include "roster/base/result.h"
#include "roster/plist/property_list.h"
#include "roster/value/ordered_map.h"
#include "roster/value/value.h"

namespace roster {

// ---- xml_reader.cpp: the document, through expat

/// Reads an XML property list. Document types are skipped and nothing outside the text is ever fetched. Where
/// soundness is required, a number, a date or data that cannot be read is an error with its line.
Result<Value> parseXmlPropertyList(const Bytes& bytes, Soundness soundness);

// ---- xml_builder.cpp: what elements and texts mean

/// Builds the value of an XML property list from its elements and texts, in the order in which they stand in
/// the document. It keeps open containers on a stack of its own, never deeper than the library follows: what
/// lies deeper is passed over, and the containers around it get a fault. So do, unless soundness is required,
/// those around a number, a date or data that cannot be read, which is left out.
class XmlBuilder {
 public:
  explicit XmlBuilder(Soundness soundness) : soundness_(soundness) {}

  // Each of these fails when the document must be refused; nothing may be called afterwards. The error
  // completes "line 12: ...".

  [[nodiscard]] Result<> startElement(std::string_view name);
  /// Ends the element that was started last. The XML parser has checked that the names match.
  [[nodiscard]] Result<> endElement();
  /// Text arrives in pieces of any size.
  [[nodiscard]] Result<> addText(std::string_view piece);

  /// The top value, after the last element has ended.
  Value takeValue() { return std::move(top_); }

 private:
  enum class Element : std::uint8_t { plist, dict, array, key, string, integer, real, yes, no, date, data };

  struct ElementName {
    std::string_view name;
    Element element;
  };
  static const ElementName elementNames[];
  static std::optional<Element> elementNamed(std::string_view name);
  static std::string_view nameOf(Element element);

  /// A container that has not ended.
  struct Frame {
    bool isDictionary = false;
    Fault fault = Fault::none;
    std::vector<Value> elements;
    OrderedMap<Value> entries;
    /// The key that waits for its value.
    String key;
  };

  Result<> startKey();
  Result<> startValue(Element element);
  Result<> endLeaf();
  Result<> endContainer();
  Result<Value> leafValue(Element element);
  void add(Value value);
  /// Goes on without the value that would be next in the innermost container.
  void leaveOut(Fault fault);
  String internedKey();

  Soundness soundness_;
  std::vector<Frame> frames_;
  /// The open element that takes text or nothing, and its text so far.
  std::optional<Element> leaf_;
  std::string text_;
  /// Open elements of a subtree that is passed over.
  std::size_t passedOver_ = 0;
  bool hasRoot_ = false;
  Value top_;
  /// Every record of a registry has the same few keys; each is one String.
  OrderedMap<String> keys_;
};

// ---- xml_scalars.cpp: the values that are written as text. White space around a number or a date is not
// part of it. Each error completes "line 12: ...".

/// A decimal or, behind "0x", hexadecimal integer with an optional sign, from -2^63 to 2^64-1.
Result<Value> integerFromXml(std::string_view text);

/// A decimal real with an optional exponent, or "nan", "inf", "infinity" in upper or lower case; with an
/// optional sign.
Result<Value> realFromXml(std::string_view text);

/// A date as in "2024-02-29T12:00:00Z", its year in one to four digits: not all who write the year 1 pad it.
Result<Value> dateFromXml(std::string_view text);

/// Bytes in base64, with white space anywhere.
Result<Value> dataFromXml(std::string_view text);

/// Whether the text has no character but white space.
bool isXmlSpace(std::string_view text);

}  // namespace roster
