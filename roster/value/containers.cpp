#include <algorithm>
#include <stdexcept>

#include "roster/value/document.h"
#include "roster/value/representation.h"

namespace roster {

namespace {

bool isNode(const Value& contents) { return !contents.isNil() && !ValueAccess::isInDocument(contents); }

}  // namespace

Value ValueAccess::make(Value::Kind kind, const Document& document, std::uint32_t object) {
  return {kind, Value::Home::document, Ref<const Node>(&document), object};
}

const Document& ValueAccess::document(const Value& value) {
  return static_cast<const Document&>(value.node());
}

Value ValueAccess::makeArray(std::vector<Value> elements, Fault fault) {
  return make(Value::Kind::array, Ref<ArrayNode>::make(std::move(elements), fault));
}

Value ValueAccess::makeDictionary(OrderedMap<Value> entries, Fault fault) {
  return make(Value::Kind::dictionary, Ref<DictionaryNode>::make(std::move(entries), fault));
}

Value ValueAccess::makeLiveDictionary(Value contents) {
  return Value(Ref<LiveDictionaryNode>::make(std::move(contents)));
}

bool ValueAccess::holdsLiveDictionaries(const Value& value) {
  if (value.isLiveDictionary()) return true;
  if (isInDocument(value)) return false;
  if (value.isArray()) return arrayNode(value).holdsLiveDictionaries;
  return value.isDictionary() && dictionaryNode(value).liveValues != 0;
}

ArrayNode::ArrayNode(std::vector<Value> content, Fault contentFault)
    : elements(std::move(content)),
      fault(contentFault),
      holdsLiveDictionaries(
          std::any_of(elements.begin(), elements.end(), ValueAccess::holdsLiveDictionaries)) {}

DictionaryNode::DictionaryNode(OrderedMap<Value> content, Fault contentFault)
    : entries(std::move(content)), fault(contentFault) {
  for (const auto& entry : entries) liveValues += ValueAccess::holdsLiveDictionaries(entry.value) ? 1U : 0U;
}

Array::Array(std::vector<Value> elements) {
  if (std::any_of(elements.begin(), elements.end(), [](const Value& value) { return value.isNil(); })) {
    throw std::invalid_argument("an array cannot hold nil");
  }
  value_ = ValueAccess::makeArray(std::move(elements), Fault::none);
}

std::size_t Array::size() const {
  if (value_.isNil()) return 0;
  if (ValueAccess::isInDocument(value_)) {
    return ValueAccess::document(value_).count(ValueAccess::object(value_));
  }
  return ValueAccess::arrayNode(value_).elements.size();
}

Value Array::at(std::size_t index) const {
  if (index >= size()) throw std::out_of_range("array index " + std::to_string(index) + " is out of range");
  return elementAt(index);
}

Value Array::elementAt(std::size_t index) const {
  if (ValueAccess::isInDocument(value_)) {
    return ValueAccess::document(value_).element(ValueAccess::object(value_), index);
  }
  return ValueAccess::arrayNode(value_).elements[index];
}

bool Array::containsString(std::string_view text) const {
  return std::any_of(begin(), end(), [text](const Value& value) { return value.string() == text; });
}

Dictionary::Dictionary(std::initializer_list<std::pair<std::string_view, Value>> entries) {
  OrderedMap<Value> map;
  for (const auto& [key, value] : entries) {
    if (!value.isNil()) map.set(String(key), value);
  }
  value_ = ValueAccess::makeDictionary(std::move(map), Fault::none);
}

std::size_t Dictionary::size() const {
  const Value& source = ValueAccess::contents(value_);
  if (source.isNil()) return 0;
  if (ValueAccess::isInDocument(source)) {
    return ValueAccess::document(source).count(ValueAccess::object(source));
  }
  return ValueAccess::dictionaryNode(source).entries.size();
}

Value Dictionary::find(std::string_view key) const {
  const Value& source = ValueAccess::contents(value_);
  if (source.isNil()) return {};
  if (ValueAccess::isInDocument(source)) {
    return ValueAccess::document(source).find(ValueAccess::object(source), key);
  }
  const Value* value = ValueAccess::dictionaryNode(source).entries.find(key);
  return value == nullptr ? Value() : *value;
}

Dictionary::Iterator::Iterator(const Dictionary* dictionary, std::size_t position)
    : dictionary_(dictionary), position_(position) {
  if (dictionary->value_.isLiveDictionary()) changes_ = ValueAccess::liveNode(dictionary->value_).changes();
}

void Dictionary::Iterator::requireUnchanged() const {
  const Value& value = dictionary_->value_;
  if (value.isLiveDictionary() && changes_ != ValueAccess::liveNode(value).changes()) {
    throw EnumerationMutation();
  }
}

DictionaryEntry Dictionary::Iterator::operator*() const {
  requireUnchanged();
  const Value& source = ValueAccess::contents(dictionary_->value_);
  if (ValueAccess::isInDocument(source)) {
    const Document& document = ValueAccess::document(source);
    const std::uint32_t object = ValueAccess::object(source);
    return {document.key(object, position_), document.valueAt(object, position_)};
  }
  const auto& entry = ValueAccess::dictionaryNode(source).entries.entryAt(position_);
  return {entry.key, entry.value};
}

Dictionary::Iterator& Dictionary::Iterator::operator++() {
  requireUnchanged();
  const Value& source = ValueAccess::contents(dictionary_->value_);
  position_ =
      isNode(source) ? ValueAccess::dictionaryNode(source).entries.nextPosition(position_) : position_ + 1;
  return *this;
}

Dictionary::Iterator Dictionary::begin() const {
  const Value& source = ValueAccess::contents(value_);
  return {this, isNode(source) ? ValueAccess::dictionaryNode(source).entries.firstPosition() : 0};
}

Dictionary::Iterator Dictionary::end() const {
  const Value& source = ValueAccess::contents(value_);
  return {this, isNode(source) ? ValueAccess::dictionaryNode(source).entries.endPosition() : size()};
}

Dictionary Dictionary::deepCopy() const {
  if (!ValueAccess::holdsLiveDictionaries(value_)) return *this;
  return value_.deepCopy().dictionary().value_or(Dictionary());
}

bool Dictionary::sharesContentsWith(const Dictionary& other) const noexcept {
  return ValueAccess::contents(value_).isIdenticalTo(ValueAccess::contents(other.value_));
}

}  // namespace roster
