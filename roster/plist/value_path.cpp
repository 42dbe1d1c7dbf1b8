#include "roster/plist/value_path.h"

#include "roster/base/single_line.h"

namespace roster {

namespace {

constexpr std::size_t maximumSteps = 8;
constexpr std::size_t shownText = 64;

std::string identifierOf(const Value& element) {
  const std::optional<Dictionary> properties = element.dictionary();
  const String identifier = properties ? properties->find("Identifier").string() : String();
  if (identifier.isEmpty()) return {};
  std::string text = " (";
  appendSingleLine(text, clipped(identifier, shownText));
  return text + ")";
}

DictionaryEntry entryAt(const Dictionary& dictionary, std::size_t index) {
  for (const DictionaryEntry& entry : dictionary) {
    if (index-- == 0) return entry;
  }
  return {};
}

std::string pathText(const Value& root, std::span<const std::size_t> stepsToRoot) {
  std::string text;
  Value value = root;
  for (std::size_t taken = 0; taken < stepsToRoot.size(); ++taken) {
    if (taken == maximumSteps) return text + "…";
    const std::size_t step = stepsToRoot[stepsToRoot.size() - 1 - taken];
    if (const std::optional<Array> array = value.array()) {
      value = array->at(step);
      text += "[" + std::to_string(step) + "]" + identifierOf(value);
    } else if (const std::optional<Dictionary> dictionary = value.dictionary()) {
      if (step < dictionary->size()) return text;
      const DictionaryEntry entry = entryAt(*dictionary, step - dictionary->size());
      text += (text.empty() ? "" : ".") + quoted(entry.key, shownText);
      value = entry.value;
    }
  }
  return text;
}

}  // namespace

Error unwritableValue(const Value& root, std::span<const std::size_t> stepsToRoot, Fault fault) {
  const std::string where = stepsToRoot.empty() ? "" : "at " + pathText(root, stepsToRoot) + " ";
  return {std::errc::invalid_argument, "a value " + where + std::string(describe(fault))};
}

}  // namespace roster
