#include "roster/value/value.h"

#include <limits>

#include "roster/value/binary_document.h"
#include "roster/value/value_node.h"

namespace roster {

std::string_view describe(Fault fault) {
  switch (fault) {
    case Fault::none:
      return "is sound";
    case Fault::containsItself:
      return "contains itself";
    case Fault::tooDeep:
      return "is nested too deeply";
    case Fault::tooLarge:
      return "refers to its own parts so often that it unfolds to too many values";
    case Fault::unknownObject:
      return "holds an object of an unknown kind";
    case Fault::uid:
      return "holds a UID, which has no place in a property list of this kind";
    case Fault::outOfBounds:
      return "reaches beyond the end of the file";
    case Fault::badReference:
      return "refers to an object that is not there";
    case Fault::badKey:
      return "has a dictionary key that is not a string";
    case Fault::badText:
      return "holds a string that is not valid text";
    case Fault::badNumber:
      return "holds a number out of range";
    case Fault::overlaps:
      return "overlaps another part of the file";
  }
  return "is damaged";
}

Value::Value(unsigned long long value) noexcept
    : kind_(Kind::integer),
      isAboveSigned_(value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
  payload_.natural = value;
}

Value::Value(std::string_view text) : Value(Kind::string, new StringNode(text)) {}

Value::Value(const String& text) : Value(text.value_) {}

Value::Value(const Array& array)
    : Value(array.value_.isNil() ? ValueAccess::makeArray({}, Fault::none) : array.value_) {}

Value::Value(const Dictionary& dictionary)
    : Value(dictionary.value_.isNil() ? ValueAccess::makeDictionary({}, Fault::none) : dictionary.value_) {}

Value Value::data(std::span<const std::byte> bytes) { return {Kind::data, new DataNode(bytes)}; }

Value::Value(Kind kind, const Node* node) noexcept : kind_(kind), home_(Home::node) {
  payload_.node = node;
  node->retain();
}

Value::Value(Kind kind, const Document* document, std::uint32_t object) noexcept
    : object_(object), kind_(kind), home_(Home::document) {
  payload_.node = document;
  document->retain();
}

String Value::string() const& { return isString() ? String(*this) : String(); }

String Value::string() && { return isString() ? String(std::move(*this)) : String(); }

std::optional<Array> Value::array() const& { return isArray() ? std::optional(Array(*this)) : std::nullopt; }

std::optional<Array> Value::array() && {
  return isArray() ? std::optional(Array(std::move(*this))) : std::nullopt;
}

std::optional<Dictionary> Value::dictionary() const& {
  return isDictionary() ? std::optional(Dictionary(*this)) : std::nullopt;
}

std::optional<Dictionary> Value::dictionary() && {
  return isDictionary() ? std::optional(Dictionary(std::move(*this))) : std::nullopt;
}

std::optional<bool> Value::boolean() const {
  if (kind_ != Kind::boolean) return std::nullopt;
  return payload_.boolean;
}

std::optional<std::int64_t> Value::integer() const {
  if (kind_ != Kind::integer || isAboveSigned_) return std::nullopt;
  return payload_.integer;
}

std::optional<std::uint64_t> Value::unsignedInteger() const {
  if (kind_ != Kind::integer || (!isAboveSigned_ && payload_.integer < 0)) return std::nullopt;
  return payload_.natural;
}

std::optional<double> Value::real() const {
  if (kind_ == Kind::real) return payload_.real;
  if (kind_ != Kind::integer) return std::nullopt;
  return isAboveSigned_ ? static_cast<double>(payload_.natural) : static_cast<double>(payload_.integer);
}

std::optional<Date> Value::date() const {
  if (kind_ != Kind::date) return std::nullopt;
  return Date{payload_.real};
}

std::optional<std::span<const std::byte>> Value::bytes() const {
  if (kind_ != Kind::data) return std::nullopt;
  if (home_ == Home::document) return ValueAccess::document(*this).bytes(object_);
  return std::span<const std::byte>(static_cast<const DataNode*>(payload_.node)->bytes);
}

bool Value::booleanValue() const {
  switch (kind_) {
    case Kind::boolean:
      return payload_.boolean;
    case Kind::integer:
      return payload_.natural != 0;
    case Kind::real:
      return payload_.real != 0;
    case Kind::string: {
      const String text = string();
      const std::size_t start = text.view().find_first_not_of(" \t+-0");
      if (start == std::string_view::npos) return false;
      const char first = text.view()[start];
      return std::string_view("YyTt123456789").find(first) != std::string_view::npos;
    }
    default:
      return false;
  }
}

Fault Value::fault() const noexcept {
  if (home_ == Home::document) return ValueAccess::document(*this).fault(object_);
  if (home_ != Home::node) return Fault::none;
  if (isArray()) return static_cast<const ArrayNode*>(payload_.node)->fault;
  if (!isDictionary()) return Fault::none;
  const auto& dictionary = *static_cast<const DictionaryNode*>(payload_.node);
  return dictionary.own ? dictionary.fault : dictionary.base.value_.fault();
}

bool Value::isIdenticalTo(const Value& other) const noexcept {
  if (kind_ != other.kind_ || home_ != other.home_) return false;
  if (home_ != Home::none) return payload_.node == other.payload_.node && object_ == other.object_;
  switch (kind_) {
    case Kind::nil:
      return true;
    case Kind::boolean:
      return payload_.boolean == other.payload_.boolean;
    default:
      return payload_.natural == other.payload_.natural && isAboveSigned_ == other.isAboveSigned_;
  }
}

std::string_view ValueAccess::text(const Value& string) {
  const Node* content = node(string);
  if (content == nullptr) return {};
  if (isInDocument(string)) return document(string).text(object(string));
  return static_cast<const StringNode*>(content)->text;
}

std::string_view String::view() const { return ValueAccess::text(value_); }

}  // namespace roster
