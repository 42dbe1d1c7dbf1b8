#include "roster/value/value.h"

#include <limits>

#include "roster/value/document.h"
#include "roster/value/representation.h"

namespace roster {

Value::Value(unsigned long long value) noexcept
    : kind_(Kind::integer),
      isAboveSigned_(value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
  payload_.natural = value;
}

Value::Value(const char* text) : Value(text == nullptr ? Value() : Value(std::string_view(text))) {}

Value::Value(std::string_view text) : Value(ValueAccess::make(Kind::string, Ref<StringNode>::make(text))) {}

Value::Value(const String& text) : Value(text.value_) {}

Value::Value(const Array& array)
    : Value(array.value_.isNil() ? ValueAccess::makeArray({}, Fault::none) : array.value_) {}

Value::Value(const Dictionary& dictionary)
    : Value(dictionary.value_.isNil() ? ValueAccess::makeDictionary({}, Fault::none) : dictionary.value_) {}

Value Value::data(std::span<const std::byte> bytes) {
  return ValueAccess::make(Kind::data, Ref<DataNode>::make(bytes));
}

String Value::string() const& { return isString() ? String(*this) : String(); }

String Value::string() && { return isString() ? String(std::move(*this)) : String(); }

std::optional<Array> Value::array() const& {
  return isArray() ? std::optional(Array(*this, Array::Adopt())) : std::nullopt;
}

std::optional<Array> Value::array() && {
  return isArray() ? std::optional(Array(std::move(*this), Array::Adopt())) : std::nullopt;
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
  switch (home_) {
    case Home::none:
      return Fault::none;
    case Home::document:
      return ValueAccess::document(*this).fault(object_);
    case Home::live:
      return ValueAccess::contents(*this).fault();
    case Home::node:
      break;
  }
  if (isArray()) return ValueAccess::arrayNode(*this).fault;
  return isDictionary() ? ValueAccess::dictionaryNode(*this).fault : Fault::none;
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
