#include <algorithm>
#include <bit>
#include <limits>
#include <unordered_map>

#include "roster/base/limits.h"
#include "roster/base/text_table.h"
#include "roster/base/unicode.h"
#include "roster/plist/numbered_objects.h"
#include "roster/plist/value_path.h"
#include "roster/value/representation.h"

namespace roster {

namespace {

/// The text of a wide object that need not be one; nothing when some unit is not ASCII.
std::optional<std::string> narrowed(std::string_view wide) {
  for (std::size_t unit = 0; unit < wide.size(); unit += 2) {
    if (wide[unit] != 0 || (static_cast<unsigned char>(wide[unit + 1]) & 0x80U) != 0) return std::nullopt;
  }
  std::string text;
  text.reserve(wide.size() / 2);
  for (std::size_t unit = 0; unit < wide.size(); unit += 2) text.push_back(wide[unit + 1]);
  return text;
}

}  // namespace

/// Walks a tree and numbers its objects. After a fault every step returns at once; on the way back each notes
/// where it was.
class ObjectNumbering {
 public:
  /// Most objects of a registry are texts.
  explicit ObjectNumbering(std::size_t expectedObjects) {
    result_.objects_.reserve(expectedObjects);
    texts_.reserve(expectedObjects / 2);
  }

  Result<NumberedObjects> run(const Value& root) {
    place(root, 0);
    if (fault_ != Fault::none) return unwritableValue(root, stepsToFault_, fault_);
    const std::uint64_t limit = limits::unfoldingAllowance + limits::unfoldingFactor * result_.references_;
    if (largest_.unfolded <= limit) return std::move(result_);
    return unwritableValue(root, result_.stepsToRoot(largest_.object), Fault::tooLarge);
  }

 private:
  using Object = NumberedObjects::Object;
  using DocumentSource = NumberedObjects::DocumentSource;
  static constexpr std::uint32_t none = NumberTable::none;

  /// What the parts of a container add up to.
  struct Sum {
    std::uint64_t unfolded = 1;
    unsigned height = 1;
  };

  std::uint32_t fail(Fault fault) {
    fault_ = fault;
    return none;
  }

  std::uint32_t append(const Object& object, std::uint64_t size, std::uint64_t references = 0) {
    if (result_.objects_.size() >= none - 1) return fail(Fault::tooLarge);
    result_.objects_.push_back(object);
    result_.size_ += size;
    result_.sizeOfLast_ = size;
    result_.references_ += references;
    result_.referencesOfLast_ = references;
    return static_cast<std::uint32_t>(result_.objects_.size() - 1);
  }

  // ---- Values

  std::uint32_t place(const Value& given, std::size_t depth) {
    const Value& value = given.isDictionary() ? ValueAccess::contents(given) : given;
    if (ValueAccess::isInDocument(value)) {
      DocumentSource& source = sourceOf(ValueAccess::document(value));
      const std::uint32_t known = source.numbers.of(ValueAccess::object(value));
      return known != none ? known : placeStored(source, ValueAccess::object(value), depth);
    }
    switch (value.kind()) {
      case Value::Kind::array:
      case Value::Kind::dictionary:
        return placeContainer(value, depth);
      case Value::Kind::string:
        return placeString(value);
      case Value::Kind::data:
        return placeData(value);
      case Value::Kind::nil:
        // An empty live dictionary has no holder of its entries. Any other nil stands for an object that was
        // unreadable.
        return given.isDictionary() ? placeContainer(given, depth) : fail(Fault::unknownObject);
      default:
        return placeScalar(value, [&] { return objectOf(value, StoredKind::scalar); });
    }
  }

  /// What a value becomes that is known to be new.
  Object objectOf(const Value& value, StoredKind kind) {
    result_.values_.push_back({.value = &value});
    return {.home = NumberedObjects::inValues,
            .index = static_cast<std::uint32_t>(result_.values_.size() - 1),
            .kind = kind};
  }

  std::uint32_t placeString(const Value& value) {
    const std::string_view text = ValueAccess::text(value);
    if (isAscii(text))
      return placeText(StoredKind::asciiText, text, [&] { return objectOf(value, StoredKind::asciiText); });
    std::optional<std::string> wide = bigEndianUtf16FromUtf8(text);
    return wide ? placeConverted(StoredKind::wideText, *std::move(wide)) : fail(Fault::badText);
  }

  std::uint32_t placeData(const Value& value) {
    const std::size_t size = value.bytes()->size();
    return placeNode(value, [&] {
      return append(objectOf(value, StoredKind::data), EncodedHeader::sizeFor(size) + size);
    });
  }

  /// Data and containers that are in no document are shared as the objects that they are.
  template <class Append>
  std::uint32_t placeNode(const Value& value, const Append& appendNew) {
    const Node* node = ValueAccess::node(value);
    const std::uint64_t hash = hashNumber_(std::bit_cast<std::uintptr_t>(node));
    const auto isSame = [&](std::uint32_t number) {
      return ValueAccess::node(*valueOf(result_.objects_[number]).value) == node;
    };
    return nodes_.findOrAdd(hash, isSame, appendNew);
  }

  NumberedObjects::ValueSource& valueOf(const Object& object) { return result_.values_[object.index]; }

  std::uint32_t placeContainer(const Value& value, std::size_t depth) {
    if (!mayEnter(value.fault(), depth)) return none;
    const bool isArray = value.isArray();
    const std::size_t length = isArray ? value.array()->size() : value.dictionary()->size();
    bool isNew = false;
    const std::uint32_t number = placeNode(value, [&] {
      isNew = true;
      return appendContainer(objectOf(value, isArray ? StoredKind::array : StoredKind::dictionary), length);
    });
    if (fault_ != Fault::none) return none;
    if (!isNew) return valueOf(result_.objects_[number]).isInProgress ? fail(Fault::containsItself) : number;
    NumberedObjects::ValueSource& source = valueOf(result_.objects_[number]);
    source = {&value, result_.parts_.size(), isArray ? length : 2 * length, true};
    result_.parts_.resize(source.firstPart + source.parts);
    Sum sum;
    if (isArray) {
      placeElements(number, sum, value, depth);
    } else if (length > 0) {
      placeEntries(number, sum, value, depth);
    }
    close(number, sum);
    valueOf(result_.objects_[number]).isInProgress = false;
    return number;
  }

  void placeElements(std::uint32_t number, Sum& sum, const Value& array, std::size_t depth) {
    std::size_t index = 0;
    for (const Value& element : ValueAccess::arrayNode(array).elements) {
      if (!refer(number, sum, index++, place(element, depth + 1), depth)) return;
    }
  }

  void placeEntries(std::uint32_t number, Sum& sum, const Value& dictionary, std::size_t depth) {
    const auto& entries = ValueAccess::dictionaryNode(dictionary).entries;
    std::size_t index = 0;
    for (const auto& entry : entries) {
      const std::uint32_t key = entry.key.isNil() ? fail(Fault::badKey) : place(entry.key.value(), depth + 1);
      if (!refer(number, sum, index, key, depth)) return;
      if (!refer(number, sum, entries.size() + index, place(entry.value, depth + 1), depth)) return;
      ++index;
    }
  }

  bool refer(std::uint32_t container, Sum& sum, std::size_t index, std::uint32_t part, std::size_t depth) {
    if (!isPlaced(index)) return false;
    result_.parts_[valueOf(result_.objects_[container]).firstPart + index] = part;
    return addPart(sum, index, part, depth);
  }

  // ---- Objects of documents

  DocumentSource& sourceOf(const Document& document) {
    if (lastDocument_ != nullptr && lastDocument_->document == &document) return *lastDocument_;
    const auto [known, isNew] = documents_.try_emplace(&document, nullptr);
    if (isNew) {
      const auto number = static_cast<std::uint32_t>(result_.documents_.size());
      result_.documents_.push_back(std::make_unique<DocumentSource>(
          DocumentSource{&document, number, ObjectNumbers(document.objectCount())}));
      known->second = result_.documents_.back().get();
    }
    lastDocument_ = known->second;
    return *lastDocument_;
  }

  std::uint32_t placeStored(DocumentSource& source, std::uint32_t index, std::size_t depth) {
    const ObjectHeader& header = source.document->header(index);
    if (header.isContainer()) return placeStoredContainer(source, index, depth);
    if (header.fault != Fault::none) return fail(Fault::unknownObject);
    const std::uint32_t number = placeStoredLeaf(source, index);
    if (fault_ == Fault::none) source.numbers.set(index, number);
    return number;
  }

  std::uint32_t placeStoredLeaf(const DocumentSource& source, std::uint32_t index) {
    const Document& document = *source.document;
    Object object{.home = source.number, .index = index};
    switch (document.header(index).type) {
      case ObjectClass::asciiText:
        object.kind = StoredKind::asciiText;
        break;
      case ObjectClass::wideText:
        object.kind = StoredKind::wideText;
        if (std::optional<std::string> narrow = narrowed(result_.contents(object)))
          return placeConverted(StoredKind::asciiText, *std::move(narrow));
        break;
      case ObjectClass::data: {
        object.kind = StoredKind::data;
        const std::size_t size = result_.contents(object).size();
        return append(object, EncodedHeader::sizeFor(size) + size);
      }
      default:
        return placeScalar(document.value(index), [&] { return object; });
    }
    return placeText(object.kind, result_.contents(object), [&] { return object; });
  }

  std::uint32_t placeStoredContainer(DocumentSource& source, std::uint32_t index, std::size_t depth) {
    const Document& document = *source.document;
    if (!mayEnter(document.fault(index), depth)) return none;
    const bool isArray = document.header(index).type == ObjectClass::array;
    const std::size_t length = document.count(index);
    const Object object{
        .home = source.number, .index = index, .kind = isArray ? StoredKind::array : StoredKind::dictionary};
    const std::uint32_t number = appendContainer(object, length);
    if (fault_ != Fault::none) return none;
    source.numbers.set(index, number);
    Sum sum;
    if (isArray) {
      std::size_t element = 0;
      document.forEachPart(
          index, [&](std::uint64_t part) { return addStored(source, sum, element++, part, depth); });
    } else {
      addEntries(source, sum, index, depth);
    }
    close(number, sum);
    return number;
  }

  void addEntries(DocumentSource& source, Sum& sum, std::uint32_t index, std::size_t depth) {
    const Document& document = *source.document;
    const std::size_t length = document.count(index);
    const std::uint16_t shape = document.header(index).shape;
    // Dictionaries of one shape have the very same keys.
    const bool areKeysKnown = shape != 0 && source.shapes.contains(shape);
    std::size_t entry = 0;
    document.forEachEntry(index, [&](std::uint64_t key, std::uint64_t value) {
      if (areKeysKnown) {
        ++sum.unfolded;
      } else if (!addStored(source, sum, entry, key, depth)) {
        return false;
      }
      return addStored(source, sum, length + entry++, value, depth);
    });
    if (shape != 0 && fault_ == Fault::none) source.shapes.insert(shape);
  }

  bool addStored(DocumentSource& source, Sum& sum, std::size_t index, std::uint64_t reference,
                 std::size_t depth) {
    const auto object = static_cast<std::uint32_t>(reference);
    std::uint32_t part = source.numbers.of(object);
    if (part == none) {
      part = placeStored(source, object, depth + 1);
      if (!isPlaced(index)) return false;
    }
    if (source.document->header(object).isContainer()) return addPart(sum, index, part, depth);
    ++sum.unfolded;
    return true;
  }

  // ---- Both

  template <class MakeObject>
  std::uint32_t placeText(StoredKind kind, std::string_view bytes, const MakeObject& makeObject) {
    const std::uint64_t hash = hashText(bytes, hashNumber_.seed);
    const std::size_t length = kind == StoredKind::wideText ? bytes.size() / 2 : bytes.size();
    const auto isSame = [&](std::uint32_t number) {
      const Object& object = result_.objects_[number];
      return object.kind == kind && areEqualTexts(result_.contents(object), bytes);
    };
    return texts_.findOrAdd(
        hash, isSame, [&] { return append(makeObject(), EncodedHeader::sizeFor(length) + bytes.size()); });
  }

  /// A text that its home has in another form.
  std::uint32_t placeConverted(StoredKind kind, std::string text) {
    return placeText(kind, text, [&] {
      const auto index = static_cast<std::uint32_t>(result_.texts_.size());
      result_.texts_.push_back(std::move(text));
      return Object{.home = NumberedObjects::inTexts, .index = index, .kind = kind};
    });
  }

  template <class MakeObject>
  std::uint32_t placeScalar(const Value& scalar, const MakeObject& makeObject) {
    const EncodedScalar encoded(scalar);
    const std::uint64_t hash = hashText(encoded.bytes(), hashNumber_.seed);
    const auto isSame = [&](std::uint32_t number) {
      return result_.scalar(result_.objects_[number]).isIdenticalTo(scalar);
    };
    return scalars_.findOrAdd(hash, isSame, [&] { return append(makeObject(), encoded.bytes().size()); });
  }

  bool mayEnter(Fault fault, std::size_t depth) {
    if (fault != Fault::none) fault_ = fault;
    if (depth >= limits::maximumDepth) fault_ = Fault::tooDeep;
    return fault_ == Fault::none;
  }

  std::uint32_t appendContainer(Object object, std::size_t length) {
    object.height = 1;
    const std::uint64_t references = object.kind == StoredKind::dictionary ? 2 * length : length;
    return append(object, EncodedHeader::sizeFor(length), references);
  }

  /// False, with one more step noted on the way back to the root, once there is a fault.
  bool isPlaced(std::size_t index) {
    if (fault_ == Fault::none) return true;
    stepsToFault_.push_back(index);
    return false;
  }

  bool addPart(Sum& sum, std::size_t index, std::uint32_t part, std::size_t depth) {
    const Object& object = result_.objects_[part];
    sum.unfolded += object.unfolded;
    sum.height = std::max(sum.height, object.height + 1U);
    if (sum.height > limits::maximumDepth) fault_ = Fault::tooDeep;
    // A registry is read record by record, so each of its records must be small enough to unfold, but not the
    // whole.
    if (depth > 0 && object.unfolded >= largest_.unfolded) largest_ = {part, object.unfolded};
    return isPlaced(index);
  }

  void close(std::uint32_t container, const Sum& sum) {
    constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
    Object& object = result_.objects_[container];
    object.unfolded = static_cast<std::uint32_t>(std::min(sum.unfolded, most));
    object.height = static_cast<std::uint16_t>(sum.height);
  }

  NumberedObjects result_;
  NumberTable texts_;
  NumberTable scalars_;
  NumberTable nodes_;
  SeededNumberHash hashNumber_;
  std::unordered_map<const Document*, DocumentSource*> documents_;
  DocumentSource* lastDocument_ = nullptr;
  struct {
    std::uint32_t object = 0;
    std::uint32_t unfolded = 0;
  } largest_;
  Fault fault_ = Fault::none;
  std::vector<std::size_t> stepsToFault_;
};

Result<NumberedObjects> NumberedObjects::of(const Value& root, std::size_t expectedObjects) {
  return ObjectNumbering(expectedObjects).run(root);
}

}  // namespace roster
