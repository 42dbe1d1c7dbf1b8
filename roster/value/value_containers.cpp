#include <algorithm>
#include <stdexcept>

#include "roster/value/binary_document.h"
#include "roster/value/value_node.h"

namespace roster {

namespace {

const ArrayNode& arrayNode(const Value& value) {
  return *static_cast<const ArrayNode*>(ValueAccess::node(value));
}

const DictionaryNode& dictionaryNode(const Value& value) {
  return *static_cast<const DictionaryNode*>(ValueAccess::node(value));
}

bool isNode(const Value& value) {
  return ValueAccess::node(value) != nullptr && !ValueAccess::isInDocument(value);
}

/// What a live dictionary starts from: the contents of another one, which do not change with it.
Dictionary unchanging(const Dictionary& initial) {
  const Value& source = ValueAccess::value(initial);
  if (ValueAccess::isLiveDictionary(source)) dictionaryNode(source).freeze();
  return ValueAccess::dictionary(ValueAccess::holder(source));
}

}  // namespace

const Value& ValueAccess::holder(const Value& dictionary) {
  if (!isNode(dictionary) || dictionaryNode(dictionary).own) return dictionary;
  return value(dictionaryNode(dictionary).base);
}

const Document& ValueAccess::document(const Value& value) {
  return *static_cast<const Document*>(value.payload_.node);
}

Value ValueAccess::makeArray(std::vector<Value> elements, Fault fault) {
  return {Value::Kind::array, new ArrayNode(std::move(elements), fault)};
}

Value ValueAccess::makeDictionary(OrderedMap<Value> entries, Fault fault) {
  return {Value::Kind::dictionary, new DictionaryNode(std::move(entries), fault)};
}

bool ValueAccess::isLiveDictionary(const Value& value) {
  return value.isDictionary() && !isInDocument(value) && dictionaryNode(value).isLive;
}

bool ValueAccess::holdsLiveDictionaries(const Value& value) {
  if (isInDocument(value)) return false;
  if (value.isArray()) return arrayNode(value).holdsLiveDictionaries;
  return value.isDictionary() &&
         (dictionaryNode(value).isLive || dictionaryNode(value).holdsLiveDictionaries);
}

ArrayNode::ArrayNode(std::vector<Value> content, Fault contentFault)
    : elements(std::move(content)),
      fault(contentFault),
      holdsLiveDictionaries(
          std::any_of(elements.begin(), elements.end(), ValueAccess::holdsLiveDictionaries)) {}

DictionaryNode::DictionaryNode(OrderedMap<Value> content, Fault contentFault)
    : own(std::make_unique<OrderedMap<Value>>(std::move(content))),
      fault(contentFault),
      holdsLiveDictionaries(std::any_of(own->begin(), own->end(), [](const auto& entry) {
        return ValueAccess::holdsLiveDictionaries(entry.value);
      })) {}

OrderedMap<Value>& DictionaryNode::ownEntries() const {
  if (own) return *own;
  const Value& source = ValueAccess::value(base);
  if (isNode(source)) {
    own = std::make_unique<OrderedMap<Value>>(*dictionaryNode(source).own);
  } else {
    auto entries = std::make_unique<OrderedMap<Value>>();
    entries->reserve(base.size() + 1);
    for (const DictionaryEntry& entry : base) {
      if (!entry.key.isNil() && !entry.value.isNil()) entries->set(entry.key, entry.value);
    }
    // Only where something unreadable was left out do the entries move.
    if (entries->size() != base.size()) ++changes;
    own = std::move(entries);
  }
  base = Dictionary();
  return *own;
}

void DictionaryNode::freeze() const {
  if (!own) return;
  base = ValueAccess::dictionary(ValueAccess::makeDictionary(std::move(*own), Fault::none));
  own.reset();
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
  return arrayNode(value_).elements.size();
}

Value Array::at(std::size_t index) const {
  if (index >= size()) throw std::out_of_range("array index " + std::to_string(index) + " is out of range");
  return elementAt(index);
}

Value Array::elementAt(std::size_t index) const {
  if (ValueAccess::isInDocument(value_)) {
    return ValueAccess::document(value_).element(ValueAccess::object(value_), index);
  }
  return arrayNode(value_).elements[index];
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
  if (value_.isNil()) return 0;
  if (ValueAccess::isInDocument(value_)) {
    return ValueAccess::document(value_).count(ValueAccess::object(value_));
  }
  const DictionaryNode& node = dictionaryNode(value_);
  return node.own ? node.own->size() : node.base.size();
}

Value Dictionary::find(std::string_view key) const {
  if (value_.isNil()) return {};
  if (ValueAccess::isInDocument(value_)) {
    return ValueAccess::document(value_).find(ValueAccess::object(value_), key);
  }
  const DictionaryNode& node = dictionaryNode(value_);
  if (!node.own) return node.base.find(key);
  const Value* value = node.own->find(key);
  return value == nullptr ? Value() : *value;
}

Dictionary::Iterator::Iterator(const Dictionary* dictionary, std::size_t position)
    : dictionary_(dictionary), position_(position) {
  if (isNode(dictionary->value_)) changes_ = dictionaryNode(dictionary->value_).changes;
}

void Dictionary::Iterator::requireUnchanged() const {
  const Value& value = dictionary_->value_;
  if (isNode(value) && changes_ != dictionaryNode(value).changes) throw EnumerationMutation();
}

DictionaryEntry Dictionary::Iterator::operator*() const {
  requireUnchanged();
  const Value& source = ValueAccess::holder(dictionary_->value_);
  if (ValueAccess::isInDocument(source)) {
    const Document& document = ValueAccess::document(source);
    const std::uint32_t object = ValueAccess::object(source);
    return {document.key(object, position_), document.valueAt(object, position_)};
  }
  const auto& entry = dictionaryNode(source).own->entryAt(position_);
  return {entry.key, entry.value};
}

Dictionary::Iterator& Dictionary::Iterator::operator++() {
  requireUnchanged();
  const Value& source = ValueAccess::holder(dictionary_->value_);
  ++position_;
  if (isNode(source)) position_ = dictionaryNode(source).own->skipErased(position_);
  return *this;
}

Dictionary::Iterator Dictionary::begin() const {
  const Value& source = ValueAccess::holder(value_);
  return {this, isNode(source) ? dictionaryNode(source).own->skipErased(0) : 0};
}

Dictionary::Iterator Dictionary::end() const {
  const Value& source = ValueAccess::holder(value_);
  return {this, isNode(source) ? dictionaryNode(source).own->endPosition() : size()};
}

Dictionary Dictionary::deepCopy() const {
  if (!ValueAccess::holdsLiveDictionaries(value_)) return *this;
  return value_.deepCopy().dictionary().value_or(Dictionary());
}

bool Dictionary::sharesContentsWith(const Dictionary& other) const noexcept {
  return ValueAccess::holder(value_).isIdenticalTo(ValueAccess::holder(other.value_));
}

MutableDictionary::MutableDictionary() : MutableDictionary(Dictionary()) {}

MutableDictionary::MutableDictionary(const Dictionary& initial)
    : Dictionary(ValueAccess::make(Value::Kind::dictionary, new DictionaryNode(unchanging(initial)))) {}

void MutableDictionary::set(std::string_view key, Value value) {
  if (value.isNil()) {
    remove(key);
    return;
  }
  const auto& node = dictionaryNode(value_);
  OrderedMap<Value>& entries = node.ownEntries();
  if (Value* old = entries.find(key)) {
    *old = std::move(value);
    return;
  }
  ++node.changes;
  entries.append(String(key), std::move(value));
}

void MutableDictionary::remove(std::string_view key) {
  if (!contains(key)) return;
  const auto& node = dictionaryNode(value_);
  ++node.changes;
  node.ownEntries().erase(key);
}

}  // namespace roster
