#include <algorithm>
#include <bit>
#include <limits>
#include <unordered_map>
#include <vector>

#include "roster/base/limits.h"
#include "roster/base/text_table.h"
#include "roster/base/unicode.h"
#include "roster/plist/property_list.h"
#include "roster/plist/value_path.h"
#include "roster/value/document.h"
#include "roster/value/representation.h"

namespace roster {

namespace {

constexpr std::uint32_t notPlaced = TextTable::none;
constexpr std::uint32_t inProgress = notPlaced - 1;

/// One object of the file.
struct Item {
  Value value;
  /// Where a container's references begin in the list of all references.
  std::size_t references = 0;
  std::uint32_t unfolded = 1;
  std::uint16_t height = 0;
};

/// Numbers the objects of a tree: parents before their parts, each distinct object once.
class ObjectNumbering {
 public:
  const std::vector<Item>& items() const { return items_; }
  const std::vector<std::uint32_t>& references() const { return references_; }

  /// Fails, naming the fault and where it is, on a tree that cannot be written.
  static Result<ObjectNumbering> of(const Value& root) {
    ObjectNumbering numbering;
    numbering.place(root, 0);
    if (numbering.fault_ != Fault::none)
      return unwritableValue(root, numbering.stepsToFault_, numbering.fault_);
    const std::uint64_t limit =
        limits::unfoldingAllowance + limits::unfoldingFactor * numbering.references_.size();
    if (numbering.largest_.unfolded <= limit) return numbering;
    return numbering.unwritable(numbering.largest_.item, Fault::tooLarge);
  }

  /// That an object of the tree cannot be written.
  Error unwritable(std::uint32_t item, Fault fault) const {
    return unwritableValue(items_[0].value, stepsTo(item), fault);
  }

 private:
  ObjectNumbering() = default;

  /// The way from an object to the root by the first container that refers to it, and so on: each has a lower
  /// number than the last.
  std::vector<std::size_t> stepsTo(std::uint32_t item) const {
    std::vector<std::size_t> steps;
    while (item != 0) {
      const auto found = std::find(references_.begin(), references_.end(), item);
      const auto index = static_cast<std::size_t>(found - references_.begin());
      const auto owner = std::find_if(items_.rbegin(), items_.rend(), [index](const Item& container) {
        return container.height != 0 && container.references <= index;
      });
      steps.push_back(index - owner->references);
      item = static_cast<std::uint32_t>(items_.rend() - owner - 1);
    }
    return steps;
  }

  std::uint32_t place(const Value& given, std::size_t depth) {
    const Value& value = given.isDictionary() ? ValueAccess::contents(given) : given;
    switch (value.kind()) {
      case Value::Kind::array:
      case Value::Kind::dictionary:
        return placeContainer(value, depth);
      case Value::Kind::string:
        return placeText(value);
      case Value::Kind::data:
        return placeOnce(value);
      case Value::Kind::nil:
        return placeNothing(given, depth);
      default:
        return placeScalar(value);
    }
  }

  /// An empty live dictionary has no holder of its entries. Any other nil stands for an object that was
  /// unreadable.
  std::uint32_t placeNothing(const Value& given, std::size_t depth) {
    if (given.isDictionary()) return placeContainer(Dictionary(), depth);
    fault_ = Fault::unknownObject;
    return 0;
  }

  /// The slot in which the number of a shared object is remembered.
  std::uint32_t& slot(const Value& value) {
    const Node* node = ValueAccess::node(value);
    if (!ValueAccess::isInDocument(value)) return nodes_.try_emplace(node, notPlaced).first->second;
    if (node != lastDocument_ || lastNumbers_ == nullptr) {
      lastDocument_ = node;
      lastNumbers_ = &documents_[node];
      if (lastNumbers_->empty()) {
        lastNumbers_->assign(ValueAccess::document(value).objectCount(), notPlaced);
      }
    }
    return (*lastNumbers_)[ValueAccess::object(value)];
  }

  std::uint32_t placeKey(const String& key) {
    if (!key.isNil()) return placeText(key.value());
    fault_ = Fault::badKey;
    return 0;
  }

  std::uint32_t append(const Value& value) {
    if (items_.size() >= inProgress) fault_ = Fault::tooLarge;
    items_.push_back({.value = value});
    return static_cast<std::uint32_t>(items_.size() - 1);
  }

  std::uint32_t placeOnce(const Value& value) {
    std::uint32_t& number = slot(value);
    if (number == notPlaced) number = append(value);
    return number;
  }

  std::uint32_t placeText(const Value& value) {
    const bool isShared = ValueAccess::isInDocument(value);
    if (isShared && slot(value) != notPlaced) return slot(value);
    const auto textOf = [this](std::uint32_t item) { return ValueAccess::text(items_[item].value); };
    std::uint32_t number = texts_.find(ValueAccess::text(value), textOf);
    if (number == TextTable::none) {
      number = append(value);
      texts_.add(number, textOf);
    }
    if (isShared) slot(value) = number;
    return number;
  }

  std::uint32_t placeScalar(const Value& value) {
    const std::uint64_t bits = value.integer()           ? static_cast<std::uint64_t>(*value.integer())
                               : value.unsignedInteger() ? *value.unsignedInteger()
                               : value.boolean()         ? std::uint64_t{*value.boolean()}
                               : value.date()
                                   ? std::bit_cast<std::uint64_t>(value.date()->secondsSinceReference)
                                   : std::bit_cast<std::uint64_t>(*value.real());
    const bool isAboveSigned = value.unsignedInteger() && !value.integer();
    auto& known = scalars_[static_cast<std::size_t>(value.kind()) + (isAboveSigned ? scalarKinds / 2 : 0)];
    const auto [entry, isNew] = known.try_emplace(bits, 0);
    if (isNew) entry->second = append(value);
    return entry->second;
  }

  std::uint32_t placeContainer(const Value& value, std::size_t depth) {
    if (value.fault() != Fault::none) fault_ = value.fault();
    if (depth >= limits::maximumDepth) fault_ = Fault::tooDeep;
    if (fault_ != Fault::none) return 0;
    std::uint32_t& known = slot(value);
    if (known == inProgress) fault_ = Fault::containsItself;
    if (known != notPlaced) return known;
    known = inProgress;
    const std::uint32_t number = append(value);
    items_[number].height = 1;
    if (value.isArray()) {
      placeElements(number, *value.array(), depth);
    } else {
      placeEntries(number, *value.dictionary(), depth);
    }
    slot(value) = number;
    return number;
  }

  void placeElements(std::uint32_t number, const Array& array, std::size_t depth) {
    const std::size_t first = reserveReferences(number, array.size());
    std::size_t index = first;
    for (const Value& element : array) {
      if (!refer(number, index++, place(element, depth + 1), depth)) return;
    }
  }

  void placeEntries(std::uint32_t number, const Dictionary& dictionary, std::size_t depth) {
    const std::size_t count = dictionary.size();
    const std::size_t first = reserveReferences(number, 2 * count);
    std::size_t index = first;
    for (const DictionaryEntry& entry : dictionary) {
      if (!refer(number, index, placeKey(entry.key), depth)) return;
      if (!refer(number, index + count, place(entry.value, depth + 1), depth)) return;
      ++index;
    }
  }

  std::size_t reserveReferences(std::uint32_t number, std::size_t count) {
    const std::size_t first = references_.size();
    items_[number].references = first;
    references_.resize(first + count);
    return first;
  }

  /// False, with one more step noted on the way back to the root, once there is a fault.
  bool refer(std::uint32_t container, std::size_t index, std::uint32_t part, std::size_t depth) {
    if (fault_ == Fault::none) addPart(container, index, part, depth);
    if (fault_ == Fault::none) return true;
    stepsToFault_.push_back(index - items_[container].references);
    return false;
  }

  void addPart(std::uint32_t container, std::size_t index, std::uint32_t part, std::size_t depth) {
    references_[index] = part;
    Item& item = items_[container];
    item.unfolded = static_cast<std::uint32_t>(std::min<std::uint64_t>(
        std::uint64_t{item.unfolded} + items_[part].unfolded, std::numeric_limits<std::uint32_t>::max()));
    item.height = std::max(item.height, static_cast<std::uint16_t>(items_[part].height + 1));
    if (item.height > limits::maximumDepth) fault_ = Fault::tooDeep;
    // A registry is read record by record, so each of its records must be small enough to unfold, but not the
    // whole.
    const std::uint32_t unfolded = items_[part].unfolded;
    if (depth > 0 && unfolded >= largest_.unfolded) largest_ = {part, unfolded};
  }

  static constexpr std::size_t scalarKinds = 16;
  std::vector<Item> items_;
  std::vector<std::uint32_t> references_;
  std::unordered_map<const Node*, std::uint32_t> nodes_;
  std::unordered_map<const Node*, std::vector<std::uint32_t>> documents_;
  std::unordered_map<std::uint64_t, std::uint32_t, SeededNumberHash> scalars_[scalarKinds];
  TextTable texts_;
  const Node* lastDocument_ = nullptr;
  std::vector<std::uint32_t>* lastNumbers_ = nullptr;
  struct {
    std::uint32_t item = 0;
    std::uint32_t unfolded = 0;
  } largest_;
  Fault fault_ = Fault::none;
  std::vector<std::size_t> stepsToFault_;
};

/// How many bytes a number needs.
unsigned widthOf(std::uint64_t largest) {
  return std::max(1U, (static_cast<unsigned>(std::bit_width(largest)) + 7U) / 8U);
}

/// Encodes numbered objects as bytes.
class ObjectEncoding {
 public:
  static Result<std::string> encode(const ObjectNumbering& numbering) {
    return ObjectEncoding(numbering).encode();
  }

 private:
  explicit ObjectEncoding(const ObjectNumbering& numbering)
      : numbering_(numbering), referenceWidth_(widthOf(numbering.items().size() - 1)) {}

  Result<std::string> encode() {
    bytes_ = "bplist00";
    bytes_.reserve(numbering_.items().size() * 16 + numbering_.references().size() * referenceWidth_);
    std::vector<std::uint64_t> offsets;
    offsets.reserve(numbering_.items().size());
    for (const Item& item : numbering_.items()) {
      const auto number = static_cast<std::uint32_t>(offsets.size());
      offsets.push_back(bytes_.size());
      if (!appendObject(item)) return numbering_.unwritable(number, Fault::badText);
    }
    appendTableAndTrailer(offsets);
    if (bytes_.size() >= limits::maximumFileSize)
      return Error(std::errc::file_too_large, "the property list is larger than 4 GiB");
    return std::move(bytes_);
  }

  void appendNumber(std::uint64_t number, unsigned width) {
    for (unsigned index = width; index-- > 0;) bytes_.push_back(static_cast<char>(number >> (8U * index)));
  }

  void appendMarker(unsigned kind, std::size_t length) {
    if (length < 15) {
      bytes_.push_back(static_cast<char>(kind << 4U | length));
    } else {
      bytes_.push_back(static_cast<char>(kind << 4U | 0xFU));
      appendInteger(static_cast<std::int64_t>(length));
    }
  }

  /// Eight bytes hold the signed range; fewer hold small natural numbers.
  void appendInteger(std::int64_t number) {
    const auto bits = static_cast<std::uint64_t>(number);
    const unsigned exponent = bits < 0x100 ? 0 : bits < 0x10000 ? 1 : bits < 0x100000000 ? 2 : 3;
    bytes_.push_back(static_cast<char>(0x10U | exponent));
    appendNumber(bits, 1U << exponent);
  }

  /// A real that four bytes hold exactly takes four.
  void appendReal(double real) {
    const auto narrow = static_cast<float>(real);
    if (std::bit_cast<std::uint64_t>(static_cast<double>(narrow)) == std::bit_cast<std::uint64_t>(real)) {
      bytes_.push_back(0x22);
      appendNumber(std::bit_cast<std::uint32_t>(narrow), 4);
    } else {
      bytes_.push_back(0x23);
      appendNumber(std::bit_cast<std::uint64_t>(real), 8);
    }
  }

  /// False when it is not UTF-8.
  bool appendText(std::string_view text) {
    if (isAscii(text)) {
      appendMarker(0x5, text.size());
      bytes_ += text;
      return true;
    }
    const std::optional<std::string> wide = bigEndianUtf16FromUtf8(text);
    if (!wide) return false;
    appendMarker(0x6, wide->size() / 2);
    bytes_ += *wide;
    return true;
  }

  void appendReferences(const Item& item, std::size_t count) {
    const std::vector<std::uint32_t>& references = numbering_.references();
    for (std::size_t index = 0; index < count; ++index) {
      appendNumber(references[item.references + index], referenceWidth_);
    }
  }

  /// False when it is a text that is not UTF-8.
  bool appendObject(const Item& item) {
    const Value& value = item.value;
    switch (value.kind()) {
      case Value::Kind::nil:
        return false;
      case Value::Kind::boolean:
        bytes_.push_back(*value.boolean() ? 0x09 : 0x08);
        break;
      case Value::Kind::integer:
        if (const std::optional<std::int64_t> number = value.integer()) {
          appendInteger(*number);
        } else {
          bytes_.push_back(0x14);
          appendNumber(0, 8);
          appendNumber(*value.unsignedInteger(), 8);
        }
        break;
      case Value::Kind::real:
        appendReal(*value.real());
        break;
      case Value::Kind::date:
        bytes_.push_back(0x33);
        appendNumber(std::bit_cast<std::uint64_t>(value.date()->secondsSinceReference), 8);
        break;
      case Value::Kind::string:
        return appendText(ValueAccess::text(value));
      case Value::Kind::data: {
        const std::span<const std::byte> data = *value.bytes();
        appendMarker(0x4, data.size());
        bytes_.append(reinterpret_cast<const char*>(data.data()), data.size());
        break;
      }
      case Value::Kind::array:
        appendMarker(0xA, value.array()->size());
        appendReferences(item, value.array()->size());
        break;
      case Value::Kind::dictionary:
        appendMarker(0xD, value.dictionary()->size());
        appendReferences(item, 2 * value.dictionary()->size());
        break;
    }
    return true;
  }

  void appendTableAndTrailer(const std::vector<std::uint64_t>& offsets) {
    const std::uint64_t table = bytes_.size();
    const unsigned offsetWidth = widthOf(offsets.back());
    bytes_.reserve(bytes_.size() + offsets.size() * offsetWidth + BinaryLayout::trailerSize);
    for (const std::uint64_t offset : offsets) appendNumber(offset, offsetWidth);
    bytes_.append(6, '\0');
    appendNumber(offsetWidth, 1);
    appendNumber(referenceWidth_, 1);
    appendNumber(offsets.size(), 8);
    appendNumber(0, 8);
    appendNumber(table, 8);
  }

  const ObjectNumbering& numbering_;
  unsigned referenceWidth_;
  std::string bytes_;
};

}  // namespace

Result<std::string> binaryPropertyList(const Value& value) {
  if (value.isNil()) return Error(std::errc::invalid_argument, "there is no value");
  const Result<ObjectNumbering> numbering = ObjectNumbering::of(value);
  if (!numbering) return numbering.error();
  return ObjectEncoding::encode(*numbering);
}

}  // namespace roster
