#include <algorithm>

#include "roster/base/limits.h"
#include "roster/base/single_line.h"
#include "roster/plist/xml_property_list.h"
#include "roster/value/representation.h"

namespace roster {

const XmlBuilder::ElementName XmlBuilder::elementNames[] = {
    {"string", Element::string}, {"key", Element::key},     {"integer", Element::integer},
    {"true", Element::yes},      {"false", Element::no},    {"dict", Element::dict},
    {"array", Element::array},   {"date", Element::date},   {"data", Element::data},
    {"real", Element::real},     {"plist", Element::plist},
};

namespace {

Error refusal(std::string why) { return {std::errc::bad_message, std::move(why)}; }

}  // namespace

std::optional<XmlBuilder::Element> XmlBuilder::elementNamed(std::string_view name) {
  for (const ElementName& known : elementNames) {
    if (known.name == name) return known.element;
  }
  return std::nullopt;
}

std::string_view XmlBuilder::nameOf(Element element) {
  return std::find_if(std::begin(elementNames), std::end(elementNames),
                      [element](const ElementName& known) { return known.element == element; })
      ->name;
}

Result<> XmlBuilder::startElement(std::string_view name) {
  if (passedOver_ > 0) {
    ++passedOver_;
    return {};
  }
  const std::optional<Element> element = elementNamed(name);
  constexpr std::size_t shownName = 40;
  if (!element) return refusal("an unknown element <" + clipped(name, shownName) + ">");
  if (leaf_)
    return refusal("an element <" + std::string(name) + "> inside <" + std::string(nameOf(*leaf_)) + ">");
  const bool isRoot = !std::exchange(hasRoot_, true);
  if (*element == Element::plist) {
    if (isRoot) return {};
    return refusal("a <plist> inside another element");
  }
  return *element == Element::key ? startKey() : startValue(*element);
}

Result<> XmlBuilder::startKey() {
  if (frames_.empty() || !frames_.back().isDictionary) return refusal("a key outside a dictionary");
  if (frames_.back().key) return refusal("a key without a value");
  leaf_ = Element::key;
  return {};
}

Result<> XmlBuilder::startValue(Element element) {
  if (frames_.empty()) {
    if (!top_.isNil()) return refusal("a second top value");
  } else if (frames_.back().isDictionary && !frames_.back().key) {
    return refusal("a value without a key");
  }
  if (element != Element::dict && element != Element::array) {
    leaf_ = element;
  } else if (frames_.size() < limits::maximumDepth) {
    frames_.emplace_back().isDictionary = element == Element::dict;
  } else {
    leaveOut(Fault::tooDeep);
    passedOver_ = 1;
  }
  return {};
}

Result<> XmlBuilder::addText(std::string_view piece) {
  if (passedOver_ > 0) return {};
  const bool takesText = leaf_ && *leaf_ != Element::yes && *leaf_ != Element::no;
  if (takesText) {
    text_ += piece;
    return {};
  }
  if (!isXmlSpace(piece)) return refusal("text where no text belongs");
  return {};
}

Result<> XmlBuilder::endElement() {
  if (passedOver_ > 0) {
    --passedOver_;
    return {};
  }
  if (leaf_) return endLeaf();
  if (!frames_.empty()) return endContainer();
  if (top_.isNil()) return refusal("a <plist> without a value");
  return {};
}

Result<> XmlBuilder::endLeaf() {
  const Element element = *std::exchange(leaf_, std::nullopt);
  if (element == Element::key) {
    frames_.back().key = internedKey();
  } else {
    Result<Value> value = leafValue(element);
    if (value) {
      add(*std::move(value));
    } else if (frames_.empty() || soundness_ == Soundness::required) {
      return value.error();
    } else {
      leaveOut(Fault::badScalar);
    }
  }
  text_.clear();
  return {};
}

Result<Value> XmlBuilder::leafValue(Element element) {
  switch (element) {
    case Element::yes:
      return Value(true);
    case Element::no:
      return Value(false);
    case Element::integer:
      return integerFromXml(text_);
    case Element::real:
      return realFromXml(text_);
    case Element::date:
      return dateFromXml(text_);
    case Element::data:
      return dataFromXml(text_);
    default:
      return Value(text_);
  }
}

Result<> XmlBuilder::endContainer() {
  if (frames_.back().key) return refusal("a key without a value");
  Frame frame = std::move(frames_.back());
  frames_.pop_back();
  if (frame.fault != Fault::none && !frames_.empty()) frames_.back().fault = frame.fault;
  add(frame.isDictionary ? ValueAccess::makeDictionary(std::move(frame.entries), frame.fault)
                         : ValueAccess::makeArray(std::move(frame.elements), frame.fault));
  return {};
}

void XmlBuilder::add(Value value) {
  if (frames_.empty()) {
    top_ = std::move(value);
  } else if (Frame& frame = frames_.back(); frame.isDictionary) {
    frame.entries.set(std::exchange(frame.key, String()), std::move(value));
  } else {
    frame.elements.push_back(std::move(value));
  }
}

/// Of a repeated key the last value counts, also when it is this one.
void XmlBuilder::leaveOut(Fault fault) {
  Frame& frame = frames_.back();
  frame.fault = fault;
  if (frame.isDictionary) frame.entries.erase(std::exchange(frame.key, String()).view());
}

String XmlBuilder::internedKey() {
  if (const String* known = keys_.find(text_)) return *known;
  String key(text_);
  keys_.append(key, key);
  return key;
}

}  // namespace roster
