#include "platform/binary_document.h"

#include <bit>

namespace roster {

Result<Value> Document::read(Bytes file) {
  const Result<BinaryLayout> layout = BinaryLayout::read(file);
  if (!layout) return Error{layout.error()};
  const Value keeper = ValueAccess::make(Value::Kind::data, new Document(std::move(file), *layout), 0);
  auto& document = const_cast<Document&>(ValueAccess::document(keeper));
  Result<CheckedObjects> checked = checkObjects(document.layout_);
  if (!checked) return Error{checked.error()};
  document.checked_ = *std::move(checked);
  return document.value(document.layout_.topObject());
}

std::string_view Document::text(std::uint32_t object) const {
  const ObjectHeader header = layout_.header(object);
  if (header.type == ObjectClass::wideText) return checked_.wideTexts.at(object);
  return {reinterpret_cast<const char*>(file_.data() + header.contents), header.end - header.contents};
}

std::span<const std::byte> Document::bytes(std::uint32_t object) const {
  const ObjectHeader header = layout_.header(object);
  return {file_.data() + header.contents, header.end - header.contents};
}

std::size_t Document::count(std::uint32_t container) const {
  return static_cast<std::size_t>(layout_.header(container).count);
}

Value Document::element(std::uint32_t array, std::size_t place) const {
  return value(layout_.reference(layout_.header(array), place));
}

String Document::key(std::uint32_t dictionary, std::size_t place) const {
  return value(layout_.reference(layout_.header(dictionary), place)).string();
}

Value Document::valueAt(std::uint32_t dictionary, std::size_t place) const {
  const ObjectHeader header = layout_.header(dictionary);
  return value(layout_.reference(header, header.count + place));
}

Value Document::find(std::uint32_t dictionary, std::string_view key) const {
  const auto textOf = [this](std::uint32_t object) { return text(object); };
  const std::uint32_t wanted = checked_.keys.find(key, textOf);
  if (wanted == TextTable::none) return {};
  const ObjectHeader header = layout_.header(dictionary);
  for (std::uint64_t place = header.count; place-- > 0;) {
    const std::uint64_t reference = layout_.reference(header, place);
    const bool isSame = reference == wanted ||
                        (checked_.hasRepeatedKeys && this->key(dictionary, place) == key);
    if (isSame) return value(layout_.reference(header, header.count + place));
  }
  return {};
}

Value Document::value(std::uint64_t reference) const {
  if (reference >= layout_.objectCount()) return {};
  const auto object = static_cast<std::uint32_t>(reference);
  const ObjectHeader header = layout_.header(object);
  if (!header.isContainer() && fault(object) != Fault::none) return {};
  switch (header.type) {
    case ObjectClass::boolean:
      return (std::to_integer<unsigned>(file_.data()[header.contents - 1]) & 1U) != 0;
    case ObjectClass::integer: return integerValue(header);
    case ObjectClass::real: return realValue(header);
    case ObjectClass::date:
      return Date{std::bit_cast<double>(readBigEndian(file_.data() + header.contents, 8))};
    case ObjectClass::data: return ValueAccess::make(Value::Kind::data, this, object);
    case ObjectClass::asciiText:
    case ObjectClass::wideText: return ValueAccess::make(Value::Kind::string, this, object);
    case ObjectClass::array: return ValueAccess::make(Value::Kind::array, this, object);
    case ObjectClass::dictionary: return ValueAccess::make(Value::Kind::dictionary, this, object);
    case ObjectClass::unreadable: break;
  }
  return {};
}

/// Up to four bytes are unsigned, eight are signed, and of sixteen the lower eight hold what is above the signed
/// range.
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
