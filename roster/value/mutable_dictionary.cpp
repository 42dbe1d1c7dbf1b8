#include "roster/value/mutable_dictionary.h"

#include "roster/value/representation.h"

namespace roster {

namespace {

std::size_t countLive(const Value& value) { return ValueAccess::holdsLiveDictionaries(value) ? 1 : 0; }

}  // namespace

void LiveDictionaryNode::set(std::string_view key, Value value) {
  DictionaryNode& own = ownContents();
  const std::size_t live = countLive(value);
  if (Value* old = own.entries.find(key)) {
    own.liveValues += live - countLive(*old);
    *old = std::move(value);
    return;
  }
  // A failed attempt may have moved entries, so that walks end, but nothing is counted before it is there.
  ++changes_;
  own.entries.append(String(key), std::move(value));
  own.liveValues += live;
}

void LiveDictionaryNode::remove(std::string_view key) {
  DictionaryNode& own = ownContents();
  const Value* old = own.entries.find(key);
  if (old == nullptr) return;
  own.liveValues -= countLive(*old);
  ++changes_;
  own.entries.erase(key);
}

void LiveDictionaryNode::replace(Value contents) noexcept {
  ++changes_;
  own_ = nullptr;
  contents_ = std::move(contents);
}

/// Until all is copied, the entries stay where they are.
DictionaryNode& LiveDictionaryNode::ownContents() {
  if (own_ != nullptr && own_->hasOneReference()) return *own_;
  OrderedMap<Value> entries;
  if (ValueAccess::isInDocument(contents_)) {
    const Dictionary stored = ValueAccess::dictionary(contents_);
    entries.reserve(stored.size() + 1);
    for (const DictionaryEntry& entry : stored) {
      if (!entry.key.isNil() && !entry.value.isNil()) entries.set(entry.key, entry.value);
    }
    // Only where something unreadable is left out do the entries move.
    if (entries.size() != stored.size()) ++changes_;
  } else if (!contents_.isNil()) {
    entries = ValueAccess::dictionaryNode(contents_).entries;
  }
  auto made = Ref<DictionaryNode>::make(std::move(entries), Fault::none);
  own_ = made.get();
  contents_ = ValueAccess::make(Value::Kind::dictionary, std::move(made));
  return *own_;
}

MutableDictionary::MutableDictionary() : MutableDictionary(ValueAccess::makeLiveDictionary({})) {}

MutableDictionary MutableDictionary::copyOf(const Dictionary& initial) {
  return MutableDictionary(ValueAccess::makeLiveDictionary(ValueAccess::contents(initial.value_)));
}

MutableDictionary MutableDictionary::share() { return MutableDictionary(value_); }

void MutableDictionary::set(std::string_view key, Value value) {
  if (value.isNil()) {
    remove(key);
  } else {
    ValueAccess::liveNode(value_).set(key, std::move(value));
  }
}

void MutableDictionary::remove(std::string_view key) {
  if (contains(key)) ValueAccess::liveNode(value_).remove(key);
}

}  // namespace roster
