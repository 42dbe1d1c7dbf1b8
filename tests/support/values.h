#pragma once

#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "roster/account/string_list.h"
#include "roster/base/byte_sink.h"
#include "roster/base/result.h"
#include "roster/value/mutable_dictionary.h"

namespace roster::testing {

template <class... Elements>
Value array(const Elements&... elements) {
  return Array(std::vector<Value>{Value(elements)...});
}

inline constexpr std::string_view dataclassPrefix = "com.nimbal.Dataclass.";
inline std::string dataclass(std::string_view shortName) {
  return std::string(dataclassPrefix).append(shortName);
}

/// "Mail x.y" as the list of the Mail dataclass and "x.y": a word without a dot is a dataclass's short name.
inline StringList dataclasses(const std::string& shortNames) {
  std::istringstream words(shortNames);
  StringList list;
  for (std::string word; words >> word;) {
    list.push_back(word.find('.') == std::string::npos ? dataclass(word) : word);
  }
  return list;
}
inline Value dataclassArray(const std::string& shortNames) { return arrayValue(dataclasses(shortNames)); }

/// The way back; "nil" for no list.
inline std::string shortNames(const std::optional<StringList>& list) {
  if (!list) return "nil";
  std::string text;
  for (const std::string& name : *list) {
    if (!text.empty()) text += ' ';
    text += name.starts_with(dataclassPrefix) ? name.substr(dataclassPrefix.size()) : name;
  }
  return text;
}

/// The text, as the content of a file to be written.
inline ByteSource textSource(std::string text) {
  return [text = std::move(text)](const ByteSink& sink) { return sink(std::as_bytes(std::span(text))); };
}

/// The error's text; "none" after a success.
template <class T>
std::string errorOf(const Result<T>& result) {
  return result ? "none" : result.error().message;
}

}  // namespace roster::testing
