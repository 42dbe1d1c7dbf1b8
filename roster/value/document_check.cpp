#include "roster/value/document_check.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include "roster/base/limits.h"
#include "roster/base/unicode.h"

namespace roster {

namespace {

/// What is known of one object while the check runs.
struct State {
  /// How many values it unfolds to, itself included; 0 until that is known. Saturates.
  std::uint32_t unfolded = 0;
  std::uint16_t height = 0;
  Fault fault = Fault::none;
  bool isInProgress = false;
};

/// Shapes pay off where dictionaries are alike; these bounds limit their memory where they are not.
constexpr std::size_t maximumShapes = 1024;
constexpr std::uint32_t maximumShapedKey = 1024;

/// A set of keys in an order, as the many alike dictionaries of a file have it.
struct KeyShape {
  /// The references to the keys, as they stand in the file.
  std::string_view references;
  /// By key, the index of its entry plus one.
  std::vector<std::uint8_t> indexes;
};

/// A container whose references are being looked at.
struct Frame {
  std::uint32_t object;
  ObjectHeader header;
  std::uint64_t next = 0;
  std::uint64_t unfolded = 1;
  std::uint16_t height = 0;
  Fault fault = Fault::none;
};

/// Where an object stands in the file.
struct Extent {
  std::uint64_t begin;
  std::uint64_t end;
  std::uint32_t object;
};

class ObjectCheck {
 public:
  explicit ObjectCheck(const BinaryLayout& layout) : layout_(layout), states_(layout.objectCount()) {}

  Result<CheckedObjects> run() {
    if (!inspectEach())
      return Error(std::errc::bad_message, "the binary property list is damaged: its objects overlap");
    unfoldingLimit_ = limits::unfoldingAllowance + limits::unfoldingFactor * references_;
    // Writers number parents before their parts: seen from the end, the parts of most containers are known
    // already.
    for (std::uint32_t object = layout_.objectCount(); object-- > 0;) {
      if (states_[object].unfolded == 0) measure(object);
    }
    layOutShapes();
    return std::move(result_);
  }

 private:
  /// False when objects overlap so much that looking at each would not be linear work.
  bool inspectEach() {
    std::uint64_t occupied = 0;
    std::uint64_t end = 0;
    bool isInOrder = true;
    result_.objects.resize(layout_.objectCount());
    for (std::uint32_t object = 0; object < layout_.objectCount(); ++object) {
      const std::uint64_t begin = layout_.offset(object);
      ObjectHeader header = layout_.headerAt(begin);
      if (header.type == ObjectClass::unreadable) {
        ++occupied;
      } else {
        isInOrder = isInOrder && begin >= end;
        end = layout_.end(header);
        occupied += end - begin;
      }
      // One wrong length covers the space at most once more. Objects in order cannot overlap at all.
      if (!isInOrder && occupied > 2 * layout_.objectSpace()) return false;
      if (header.isContainer()) {
        references_ += header.references();
      } else {
        if (header.fault == Fault::none) header.fault = contentFault(object, header);
        states_[object].unfolded = 1;
        states_[object].fault = header.fault;
      }
      result_.objects[object] = header;
    }
    if (!isInOrder) markOverlaps();
    return true;
  }

  /// Gives a fault to each object that reaches beyond the beginning of another one.
  void markOverlaps() {
    std::vector<Extent> extents;
    for (std::uint32_t object = 0; object < layout_.objectCount(); ++object) {
      const ObjectHeader& header = result_.objects[object];
      if (header.type != ObjectClass::unreadable) {
        extents.push_back({layout_.offset(object), layout_.end(header), object});
      }
    }
    std::sort(extents.begin(), extents.end(), [](const Extent& left, const Extent& right) {
      return left.begin != right.begin ? left.begin < right.begin : left.object < right.object;
    });
    for (std::size_t i = 0; i + 1 < extents.size(); ++i) {
      if (extents[i].end > extents[i + 1].begin)
        result_.objects[extents[i].object].fault = states_[extents[i].object].fault = Fault::overlaps;
    }
  }

  Fault contentFault(std::uint32_t object, const ObjectHeader& header) {
    const std::byte* contents = layout_.bytes() + header.contents;
    const std::size_t size = layout_.end(header) - header.contents;
    if (header.type == ObjectClass::asciiText) {
      return isAscii({reinterpret_cast<const char*>(contents), size}) ? Fault::none : Fault::badText;
    }
    if (header.type == ObjectClass::wideText) {
      return result_.wideTexts.add(object, {contents, size}) ? Fault::none : Fault::badText;
    }
    if (header.type == ObjectClass::integer && size == 16) {
      const std::uint64_t high = readBigEndian(contents, 8);
      const bool isNegative = readBigEndian(contents + 8, 8) >> 63U != 0;
      const bool fits = high == 0 || (high == std::numeric_limits<std::uint64_t>::max() && isNegative);
      return fits ? Fault::none : Fault::badNumber;
    }
    return Fault::none;
  }

  /// Walks down from a container, with a stack of its own: the depth is the file's to choose.
  void measure(std::uint32_t container) {
    Frame frame = enter(container);
    for (;;) {
      if (const std::uint32_t pending = addChildren(frame); pending != TextTable::none) {
        stack_.push_back(frame);
        frame = enter(pending);
        continue;
      }
      leave(frame);
      if (stack_.empty()) return;
      frame = stack_.back();
      stack_.pop_back();
    }
  }

  Frame enter(std::uint32_t container) {
    states_[container].isInProgress = true;
    const ObjectHeader& header = result_.objects[container];
    return {.object = container, .header = header, .fault = header.fault};
  }

  /// Adds up the frame's children from where it stopped last; stops at one that has to be measured first.
  std::uint32_t addChildren(Frame& frame) {
    if (frame.next == 0 && frame.header.type == ObjectClass::dictionary) addKeys(frame);
    const std::uint64_t references = frame.header.references();
    for (; frame.next < references; ++frame.next) {
      const std::uint64_t reference = layout_.reference(frame.header, frame.next);
      if (reference >= states_.size()) {
        frame.fault = Fault::badReference;
        continue;
      }
      const auto child = static_cast<std::uint32_t>(reference);
      const State state = states_[child];
      if (state.unfolded == 0) {
        if (!state.isInProgress) return child;
        frame.fault = Fault::containsItself;
        continue;
      }
      frame.unfolded += state.unfolded;
      frame.height = std::max(frame.height, state.height);
      if (state.fault != Fault::none && frame.fault == Fault::none) frame.fault = state.fault;
    }
    return TextTable::none;
  }

  /// Looks at a dictionary's keys. Most dictionaries of a file have the very keys of an earlier one: those
  /// were looked at then.
  void addKeys(Frame& frame) {
    const std::uint32_t count = frame.header.count;
    frame.next = count;
    frame.unfolded += count;
    const std::string_view references = keyReferences(frame.header);
    std::uint16_t& lastShape = lastShapes_[count % lastShapes_.size()];
    if (lastShape == 0 || shapes_[lastShape - 1U].references != references) {
      lastShape = knownShape(references);
      if (lastShape == 0) lastShape = addShape(frame, references);
    }
    result_.objects[frame.object].shape = lastShape;
  }

  std::string_view keyReferences(const ObjectHeader& dictionary) const {
    return {reinterpret_cast<const char*>(layout_.bytes() + dictionary.contents),
            std::size_t{dictionary.count} * layout_.referenceWidth()};
  }

  std::string_view shapeReferences(std::uint32_t shape) const { return shapes_[shape].references; }

  std::uint16_t knownShape(std::string_view references) const {
    const std::uint32_t known =
        shapesByReferences_.find(references, [this](std::uint32_t shape) { return shapeReferences(shape); });
    return known == TextTable::none ? std::uint16_t{0} : static_cast<std::uint16_t>(known + 1);
  }

  /// Looks at keys that are new. They become a shape when they are sound and few, and there are not too many
  /// shapes already; 0 otherwise.
  std::uint16_t addShape(Frame& frame, std::string_view references) {
    KeyShape shape{references, {}};
    bool repeatsKey = false;
    const bool isLong = frame.header.count > KeyIndex::longestWithout;
    for (std::uint32_t index = 0; index < frame.header.count; ++index) {
      const std::uint64_t reference = layout_.reference(frame.header, index);
      if (const Fault fault = keyFault(reference); fault != Fault::none) {
        frame.fault = fault;
        continue;
      }
      const std::uint32_t number = numberOfKey(static_cast<std::uint32_t>(reference));
      repeatsKey = repeatsKey || lastUses_[number] == frame.object + 1;
      lastUses_[number] = frame.object + 1;
      if (isLong || number >= maximumShapedKey) continue;
      if (number >= shape.indexes.size()) shape.indexes.resize(number + 1);
      shape.indexes[number] = static_cast<std::uint8_t>(index + 1);
    }
    if (repeatsKey || isLong) addIndex(frame);
    const bool isShape = frame.fault == Fault::none && !repeatsKey && !isLong &&
                         result_.keys.size() <= maximumShapedKey && shapes_.size() < maximumShapes;
    if (!isShape) return 0;
    shapes_.push_back(std::move(shape));
    shapesByReferences_.add(static_cast<std::uint32_t>(shapes_.size() - 1),
                            [this](std::uint32_t number) { return shapeReferences(number); });
    return static_cast<std::uint16_t>(shapes_.size());
  }

  /// Puts the shapes into one table, where a look-up is one load.
  void layOutShapes() {
    const std::size_t keys = std::min<std::size_t>(result_.keys.size(), maximumShapedKey);
    result_.shapedKeys = static_cast<std::uint32_t>(keys);
    result_.shapeIndexes.resize(shapes_.size() * keys);
    for (std::size_t shape = 0; shape < shapes_.size(); ++shape) {
      std::copy(shapes_[shape].indexes.begin(), shapes_[shape].indexes.end(),
                result_.shapeIndexes.begin() + static_cast<std::ptrdiff_t>(shape * keys));
    }
  }

  Fault keyFault(std::uint64_t key) const {
    if (key >= states_.size()) return Fault::badReference;
    const ObjectHeader& header = result_.objects[static_cast<std::uint32_t>(key)];
    return header.isText() ? header.fault : Fault::badKey;
  }

  std::uint32_t numberOfKey(std::uint32_t object) {
    const auto [entry, isNew] = result_.keyNumbers.try_emplace(object, 0);
    if (!isNew) return entry->second;
    const auto textOf = [this](std::uint32_t number) { return result_.keys[number]; };
    const std::string_view key = text(object);
    entry->second = result_.keysByText.find(key, textOf);
    if (entry->second == TextTable::none) {
      entry->second = static_cast<std::uint32_t>(result_.keys.size());
      result_.keys.push_back(key);
      lastUses_.push_back(0);
      result_.keysByText.add(entry->second, textOf);
    }
    return entry->second;
  }

  void addIndex(const Frame& frame) {
    KeyIndex keys;
    for (std::uint32_t index = 0; index < frame.header.count; ++index) {
      const std::uint64_t key = layout_.reference(frame.header, index);
      if (keyFault(key) != Fault::none) continue;
      keys.byKey.push_back({numberOfKey(static_cast<std::uint32_t>(key)), index});
    }
    std::sort(keys.byKey.begin(), keys.byKey.end(), [](KeyIndex::Entry left, KeyIndex::Entry right) {
      return left.key != right.key ? left.key < right.key : left.index > right.index;
    });
    const auto isSameKey = [](KeyIndex::Entry left, KeyIndex::Entry right) { return left.key == right.key; };
    keys.byKey.erase(std::unique(keys.byKey.begin(), keys.byKey.end(), isSameKey), keys.byKey.end());
    for (const KeyIndex::Entry entry : keys.byKey) keys.indexes.push_back(entry.index);
    std::sort(keys.indexes.begin(), keys.indexes.end());
    result_.indexes.emplace(frame.object, std::move(keys));
  }

  std::string_view text(std::uint32_t object) const {
    const ObjectHeader& header = result_.objects[object];
    if (header.type == ObjectClass::wideText) return result_.wideTexts.of(object);
    return {reinterpret_cast<const char*>(layout_.bytes() + header.contents), header.count};
  }

  void leave(const Frame& frame) {
    State& state = states_[frame.object];
    Fault& fault = state.fault;
    state.isInProgress = false;
    state.height = static_cast<std::uint16_t>(
        std::min<std::size_t>(frame.height + 1U, std::numeric_limits<std::uint16_t>::max()));
    state.unfolded = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(frame.unfolded, std::numeric_limits<std::uint32_t>::max()));
    fault = frame.fault;
    if (fault == Fault::none && state.height > limits::maximumDepth) fault = Fault::tooDeep;
    if (fault == Fault::none && frame.unfolded > unfoldingLimit_) fault = Fault::tooLarge;
    result_.objects[frame.object].fault = fault;
  }

  const BinaryLayout& layout_;
  std::vector<State> states_;
  std::vector<Frame> stack_;
  /// By the number of keys, the shape that was met last.
  std::array<std::uint16_t, 16> lastShapes_{};
  std::vector<KeyShape> shapes_;
  TextTable shapesByReferences_;
  /// For each key the dictionary that used it last, plus one.
  std::vector<std::uint32_t> lastUses_;
  std::uint64_t references_ = 0;
  std::uint64_t unfoldingLimit_ = 0;
  CheckedObjects result_;
};

}  // namespace

bool WideTexts::add(std::uint32_t object, std::span<const std::byte> bytes) {
  decoded_.clear();
  if (!appendUtf8FromBigEndianUtf16(decoded_, bytes)) return false;
  entries_.push_back({object, bytes_.size(), decoded_.size()});
  bytes_.insert(bytes_.end(), decoded_.begin(), decoded_.end());
  return true;
}

std::string_view WideTexts::of(std::uint32_t object) const {
  const auto found =
      std::lower_bound(entries_.begin(), entries_.end(), object,
                       [](const Entry& entry, std::uint32_t wanted) { return entry.object < wanted; });
  if (found == entries_.end() || found->object != object) return {};
  return {bytes_.data() + found->begin, found->size};
}

std::optional<std::uint32_t> KeyIndex::indexOf(std::uint32_t key) const {
  const auto found = std::lower_bound(byKey.begin(), byKey.end(), key,
                                      [](Entry entry, std::uint32_t wanted) { return entry.key < wanted; });
  if (found == byKey.end() || found->key != key) return std::nullopt;
  return found->index;
}

Result<CheckedObjects> checkObjects(const BinaryLayout& layout) { return ObjectCheck(layout).run(); }

}  // namespace roster
