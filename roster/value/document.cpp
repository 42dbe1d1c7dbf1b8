#include "roster/value/document.h"

#include <bit>

namespace roster {

Result<Value> Document::read(Bytes file) {
  const Result<BinaryLayout> layout = BinaryLayout::read(file);
  if (!layout) return layout.error();
  Result<CheckedObjects> checked = checkObjects(*layout);
  if (!checked) return checked.error();
  const auto document = Ref<const Document>::make(std::move(file), *layout, *std::move(checked));
  const std::uint32_t top = layout->topObject();
  Value value = document->value(top);
  if (value.isNil())
    return Error(std::errc::bad_message, "its top value " + std::string(describe(document->fault(top))));
  return value;
}

std::span<const std::byte> Document::bytes(std::uint32_t object) const {
  return {file_.data() + header(object).contents, header(object).count};
}

std::size_t Document::count(std::uint32_t container) const {
  const KeyIndex* keys = keyIndex(container);
  return keys ? keys->indexes.size() : header(container).count;
}

Value Document::element(std::uint32_t array, std::size_t index) const {
  return value(layout_.reference(this->header(array), index));
}

String Document::key(std::uint32_t dictionary, std::size_t index) const {
  return value(layout_.reference(this->header(dictionary), storedIndex(dictionary, index))).string();
}

Value Document::valueAt(std::uint32_t dictionary, std::size_t index) const {
  const ObjectHeader& header = this->header(dictionary);
  return value(layout_.reference(header, header.count + storedIndex(dictionary, index)));
}

const KeyIndex* Document::foundKeyIndex(std::uint32_t dictionary) const {
  const auto found = checked_.indexes.find(dictionary);
  return found == checked_.indexes.end() ? nullptr : &found->second;
}

std::size_t Document::storedIndex(std::uint32_t dictionary, std::size_t index) const {
  const KeyIndex* keys = keyIndex(dictionary);
  return keys ? keys->indexes[index] : index;
}

Value Document::find(std::uint32_t dictionary, std::string_view key) const {
  const std::uint32_t number = numberOfKey(key);
  if (number == TextTable::none) return {};
  const std::optional<std::uint32_t> index = indexOfKey(dictionary, number);
  if (!index) return {};
  const ObjectHeader& header = this->header(dictionary);
  return value(layout_.reference(header, std::uint64_t{header.count} + *index));
}

std::uint32_t Document::numberOfKey(std::string_view key) const {
  return checked_.keysByText.find(key, [this](std::uint32_t number) { return checked_.keys[number]; });
}

std::optional<std::uint32_t> Document::indexOfKey(std::uint32_t dictionary, std::uint32_t key) const {
  const ObjectHeader& header = this->header(dictionary);
  if (header.shape != 0) {
    if (key >= checked_.shapedKeys) return std::nullopt;
    const std::uint8_t index = checked_.shapeIndexes[(header.shape - 1U) * checked_.shapedKeys + key];
    return index == 0 ? std::nullopt : std::optional(index - 1U);
  }
  if (const KeyIndex* keys = keyIndex(dictionary)) return keys->indexOf(key);
  for (std::uint32_t index = 0; index < header.count; ++index) {
    const std::uint64_t object = layout_.reference(header, index);
    if (object >= objectCount()) continue;
    const auto known = checked_.keyNumbers.find(static_cast<std::uint32_t>(object));
    if (known != checked_.keyNumbers.end() && known->second == key) return index;
  }
  return std::nullopt;
}

Value Document::value(std::uint64_t number) const {
  if (number >= layout_.objectCount()) return {};
  const auto object = static_cast<std::uint32_t>(number);
  const ObjectHeader header = this->header(object);
  if (!header.isContainer() && fault(object) != Fault::none) return {};
  switch (header.type) {
    case ObjectClass::boolean:
      return (std::to_integer<unsigned>(file_.data()[header.contents - 1]) & 1U) != 0;
    case ObjectClass::integer:
      return integerValue(header);
    case ObjectClass::real:
      return realValue(header);
    case ObjectClass::date:
      return Date{std::bit_cast<double>(readBigEndian(file_.data() + header.contents, 8))};
    case ObjectClass::data:
      return ValueAccess::make(Value::Kind::data, *this, object);
    case ObjectClass::asciiText:
    case ObjectClass::wideText:
      return ValueAccess::make(Value::Kind::string, *this, object);
    case ObjectClass::array:
      return ValueAccess::make(Value::Kind::array, *this, object);
    case ObjectClass::dictionary:
      return ValueAccess::make(Value::Kind::dictionary, *this, object);
    case ObjectClass::unreadable:
      break;
  }
  return {};
}

/// Up to four bytes are unsigned, eight are signed, and of sixteen the lower eight hold what is above the
/// signed range.
Value Document::integerValue(const ObjectHeader& header) const {
  const auto width = static_cast<unsigned>(header.count);
  const std::byte* contents = file_.data() + header.contents;
  if (width < 8) return static_cast<std::int64_t>(readBigEndian(contents, width));
  if (width == 8) return static_cast<std::int64_t>(readBigEndian(contents, 8));
  const std::uint64_t low = readBigEndian(contents + 8, 8);
  if (readBigEndian(contents, 8) != 0) return static_cast<std::int64_t>(low);
  return low;
}

Value Document::realValue(const ObjectHeader& header) const {
  const std::byte* contents = file_.data() + header.contents;
  if (header.count == 4) {
    return static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(readBigEndian(contents, 4))));
  }
  return std::bit_cast<double>(readBigEndian(contents, 8));
}

}  // namespace roster
