#include "platform/binary_check.h"

#include <algorithm>
#include <limits>

#include "platform/limits.h"
#include "platform/unicode.h"

namespace roster {

namespace {

/// What is known of one object while the check runs.
struct State {
  /// How many values it unfolds to, itself included; 0 until that is known. Saturates.
  std::uint32_t unfolded = 0;
  std::uint16_t height = 0;
  Fault fault = Fault::none;
  bool isText : 1 = false;
  bool isKey : 1 = false;
  bool isInProgress : 1 = false;
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

class ObjectCheck {
 public:
  explicit ObjectCheck(const BinaryLayout& layout) : layout_(layout), states_(layout.objectCount()) {}

  Result<CheckedObjects> run() {
    if (!inspectEach()) return Error{"the binary property list is damaged: its objects overlap"};
    unfoldingLimit_ = limits::unfoldingAllowance + limits::unfoldingFactor * references_;
    for (const std::uint32_t container : containers_) {
      if (states_[container].unfolded == 0) measure(container);
    }
    if (std::any_of(states_.begin(), states_.end(), [](State s) { return s.fault != Fault::none; })) {
      result_.faults.reserve(states_.size());
      for (const State& state : states_) result_.faults.push_back(state.fault);
    }
    return std::move(result_);
  }

 private:
  bool inspectEach() {
    std::size_t occupied = 0;
    for (std::uint32_t object = 0; object < layout_.objectCount(); ++object) {
      const ObjectHeader header = layout_.header(object);
      occupied += header.end - header.contents + 1;
      if (occupied > layout_.objectSpace()) return false;
      references_ += header.references();
      State& state = states_[object];
      if (header.isContainer()) {
        containers_.push_back(object);
        continue;
      }
      state.unfolded = 1;
      state.isText = header.isText();
      state.fault = header.fault != Fault::none ? header.fault : contentFault(object, header);
    }
    return true;
  }

  Fault contentFault(std::uint32_t object, const ObjectHeader& header) {
    const std::byte* contents = layout_.bytes() + header.contents;
    const std::size_t size = header.end - header.contents;
    if (header.type == ObjectClass::asciiText) {
      return isAscii({reinterpret_cast<const char*>(contents), size}) ? Fault::none : Fault::badText;
    }
    if (header.type == ObjectClass::wideText) {
      std::optional<std::string> text = utf8FromBigEndianUtf16({contents, size});
      if (!text) return Fault::badText;
      result_.wideTexts.emplace(object, *std::move(text));
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
    enter(container);
    while (!stack_.empty()) {
      Frame& frame = stack_.back();
      if (const std::uint32_t pending = addChildren(frame); pending != TextTable::none) {
        enter(pending);
      } else {
        leave();
      }
    }
  }

  void enter(std::uint32_t container) {
    states_[container].isInProgress = true;
    stack_.push_back({.object = container, .header = layout_.header(container)});
  }

  /// Adds up the frame's children from where it stopped last; stops at one that has to be measured first.
  std::uint32_t addChildren(Frame& frame) {
    const std::uint64_t keys = frame.header.type == ObjectClass::dictionary ? frame.header.count : 0;
    const std::uint64_t references = frame.header.references();
    for (; frame.next < references; ++frame.next) {
      const std::uint64_t reference = layout_.reference(frame.header, frame.next);
      if (reference >= states_.size()) {
        frame.fault = Fault::badReference;
        continue;
      }
      const auto child = static_cast<std::uint32_t>(reference);
      State& state = states_[child];
      if (state.isInProgress) {
        frame.fault = Fault::containsItself;
        continue;
      }
      if (state.unfolded == 0) return child;
      if (frame.next < keys) {
        noteKey(child, frame);
      }
      frame.unfolded += state.unfolded;
      frame.height = std::max(frame.height, state.height);
      if (state.fault != Fault::none && frame.fault == Fault::none) frame.fault = state.fault;
    }
    return TextTable::none;
  }

  void noteKey(std::uint32_t object, Frame& frame) {
    State& state = states_[object];
    if (!state.isText) {
      frame.fault = Fault::badKey;
    } else if (!state.isKey && state.fault == Fault::none) {
      state.isKey = true;
      const auto textOf = [this](std::uint32_t key) { return text(key); };
      if (!result_.keys.add(object, textOf)) result_.hasRepeatedKeys = true;
    }
  }

  std::string_view text(std::uint32_t object) const {
    const auto wide = result_.wideTexts.find(object);
    if (wide != result_.wideTexts.end()) return wide->second;
    const ObjectHeader header = layout_.header(object);
    return {reinterpret_cast<const char*>(layout_.bytes() + header.contents), header.end - header.contents};
  }

  void leave() {
    const Frame& frame = stack_.back();
    State& state = states_[frame.object];
    state.isInProgress = false;
    state.fault = frame.fault;
    state.height = static_cast<std::uint16_t>(
        std::min<std::size_t>(frame.height + 1U, std::numeric_limits<std::uint16_t>::max()));
    state.unfolded = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(frame.unfolded, std::numeric_limits<std::uint32_t>::max()));
    if (state.fault == Fault::none && state.height > limits::maximumDepth) state.fault = Fault::tooDeep;
    if (state.fault == Fault::none && frame.unfolded > unfoldingLimit_) state.fault = Fault::tooLarge;
    stack_.pop_back();
  }

  const BinaryLayout& layout_;
  std::vector<State> states_;
  std::vector<std::uint32_t> containers_;
  std::vector<Frame> stack_;
  std::uint64_t references_ = 0;
  std::uint64_t unfoldingLimit_ = 0;
  CheckedObjects result_;
};

}  // namespace

Result<CheckedObjects> checkObjects(const BinaryLayout& layout) { return ObjectCheck(layout).run(); }

}  // namespace roster
