#include "roster/plist/numbered_objects.h"

#include <bit>
#include <optional>
#include <utility>

#include "roster/value/representation.h"

namespace roster {

namespace {

constexpr unsigned falseMarker = 0x08;
constexpr unsigned trueMarker = 0x09;
constexpr unsigned integerMarker = 0x10;
constexpr unsigned sixteenByteInteger = 0x14;
constexpr unsigned narrowRealMarker = 0x22;
constexpr unsigned realMarker = 0x23;
constexpr unsigned dateMarker = 0x33;

std::string_view textOf(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

char* storeBigEndian(char* position, std::uint64_t number, unsigned width) {
  for (unsigned index = width; index-- > 0;) *position++ = static_cast<char>(number >> (8U * index));
  return position;
}

}  // namespace

void EncodedScalar::append(unsigned marker, std::uint64_t number, unsigned width) {
  bytes_[size_++] = static_cast<char>(marker);
  storeBigEndian(bytes_.data() + size_, number, width);
  size_ += width;
}

void EncodedScalar::appendInteger(std::int64_t number) {
  const auto bits = static_cast<std::uint64_t>(number);
  const unsigned exponent = EncodedHeader::exponentOf(bits);
  append(integerMarker | exponent, bits, 1U << exponent);
}

void EncodedScalar::appendReal(double real) {
  const auto narrow = static_cast<float>(real);
  const auto bits = std::bit_cast<std::uint64_t>(real);
  if (std::bit_cast<std::uint64_t>(static_cast<double>(narrow)) == bits) {
    append(narrowRealMarker, std::bit_cast<std::uint32_t>(narrow), 4);
  } else {
    append(realMarker, bits, 8);
  }
}

EncodedScalar::EncodedScalar(const Value& scalar) {
  if (const std::optional<bool> boolean = scalar.boolean()) {
    append(*boolean ? trueMarker : falseMarker, 0, 0);
  } else if (const std::optional<std::int64_t> integer = scalar.integer()) {
    appendInteger(*integer);
  } else if (const std::optional<std::uint64_t> natural = scalar.unsignedInteger()) {
    append(sixteenByteInteger, 0, 8);
    storeBigEndian(bytes_.data() + size_, *natural, 8);
    size_ += 8;
  } else if (const std::optional<Date> date = scalar.date()) {
    append(dateMarker, std::bit_cast<std::uint64_t>(date->secondsSinceReference), 8);
  } else if (const std::optional<double> real = scalar.real()) {
    appendReal(*real);
  }
}

EncodedHeader::EncodedHeader(StoredKind kind, std::uint64_t length) {
  const auto marker = static_cast<unsigned>(kind) << 4U;
  if (length < lengthFollows) {
    bytes_[0] = static_cast<char>(marker | length);
    return;
  }
  const unsigned exponent = exponentOf(length);
  bytes_[0] = static_cast<char>(marker | lengthFollows);
  bytes_[1] = static_cast<char>(integerMarker | exponent);
  storeBigEndian(bytes_.data() + 2, length, 1U << exponent);
  size_ = 2 + (std::size_t{1} << exponent);
}

std::string_view NumberedObjects::ownContents(const Object& object) const {
  if (object.home == inTexts) return texts_[object.index];
  const Value& value = *values_[object.index].value;
  return value.isString() ? ValueAccess::text(value) : textOf(*value.bytes());
}

/// A container has a lower number than what it was the first to refer to.
std::vector<std::size_t> NumberedObjects::stepsToRoot(std::uint32_t object) const {
  std::vector<std::size_t> steps;
  std::uint32_t owner = 0;
  while (object != 0) {
    std::optional<std::size_t> step;
    std::size_t index = 0;
    const auto compare = [&](std::uint32_t part) {
      if (part == object && !step) step = index;
      ++index;
    };
    if (objects_[owner].height != 0) forEachPart(objects_[owner], compare);
    if (step) {
      steps.push_back(*step);
      object = std::exchange(owner, 0);
    } else {
      ++owner;
    }
  }
  return steps;
}

Value NumberedObjects::scalar(const Object& object) const {
  return object.home == inValues ? *values_[object.index].value
                                 : documents_[object.home]->document->value(object.index);
}

std::size_t NumberedObjects::length(const Object& container) const {
  if (container.home != inValues) return documents_[container.home]->document->count(container.index);
  return values_[container.index].parts / (container.kind == StoredKind::dictionary ? 2 : 1);
}

}  // namespace roster
