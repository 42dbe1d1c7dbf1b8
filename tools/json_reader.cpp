#include <limits>
#include <string>
#include <vector>

#include "roster/base/base64.h"
#include "roster/value/date.h"
#include "roster/value/mutable_dictionary.h"
#include "tools/json.h"

namespace roster::tool {

namespace {

using nlohmann::ordered_json;

/// Containers inside containers; the library refuses a property list that is nested more deeply.
constexpr std::size_t maximumDepth = 512;

Error badJson(std::string why) { return {std::errc::invalid_argument, std::move(why)}; }

/// The value that a reserved key and its content stand for.
Result<Value> specialValue(std::string_view key, const Value& content) {
  if (key == dictionaryKey) {
    if (content.isDictionary()) return content;
    return badJson(R"("$dictionary" takes an object)");
  }
  const String text = content.string();
  if (text.isNil()) return badJson("\"" + std::string(key) + "\" takes a text");
  if (key == dataKey) {
    if (const auto data = bytesFromBase64(text)) return Value::data(data->span());
    return badJson(R"("$data" takes bytes in base64)");
  }
  if (key == dateKey) {
    if (const auto date = dateFromText(text)) return Value(*date);
    return badJson(R"("$date" takes an instant as in "2024-02-29T12:00:00Z")");
  }
  using Limits = std::numeric_limits<double>;
  if (text == "nan") return Value(Limits::quiet_NaN());
  if (text == "inf") return Value(Limits::infinity());
  if (text == "-inf") return Value(-Limits::infinity());
  return badJson(R"("$real" takes "nan", "inf" or "-inf")");
}

/// Builds the value while the text is read, because only the parser's callbacks show how a number was
/// written.
class ValueBuilder final : public nlohmann::json_sax<ordered_json> {
 public:
  /// The whole value, or the first error.
  const Result<Value>& result() const { return result_; }

  // The parser's own interface: each step returns whether to go on.

  bool null() override { return fail("null is no value; 'rosterctl unset' removes a property"); }
  bool boolean(bool value) override { return put(value); }
  bool number_integer(std::int64_t value) override { return put(value); }
  bool number_unsigned(std::uint64_t value) override { return put(value); }
  bool number_float(double value, const std::string& written) override {
    const bool isReal = written.find_first_of(".eE") != std::string::npos;
    return isReal ? put(value) : fail("the integer " + written + " is too large");
  }
  bool string(std::string& value) override { return put(value); }
  bool binary(ordered_json::binary_t&) override { return false; }

  bool start_object(std::size_t) override { return open(true); }
  bool key(std::string& key) override {
    Frame& frame = frames_.back();
    frame.hasReservedKey = frame.hasReservedKey || (!frame.isLiteral && isReservedKey(key));
    frame.key = key;
    return !frame.entries.contains(key) || fail("the key \"" + key + "\" stands there twice");
  }
  bool end_object() override {
    const Frame frame = std::move(frames_.back());
    frames_.pop_back();
    if (!frame.hasReservedKey) return put(frame.entries.deepCopy());
    if (frame.entries.size() != 1) return fail("a key such as \"$data\" stands alone in its object");
    const Result<Value> value = specialValue(frame.key, frame.entries.find(frame.key));
    return value ? put(*value) : fail(value.error());
  }
  bool start_array(std::size_t) override { return open(false); }
  bool end_array() override {
    Array array(std::move(frames_.back().elements));
    frames_.pop_back();
    return put(array);
  }

  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& error) override {
    const std::string_view message = error.what();
    const std::size_t end = message.find("] ");  // of the library's own name for the error
    return fail("it is not JSON: " +
                std::string(end == std::string_view::npos ? message : message.substr(end + 2)));
  }

 private:
  struct Frame {
    bool isObject = false;
    /// The object of a "$dictionary": its keys mean themselves.
    bool isLiteral = false;
    bool hasReservedKey = false;
    std::string key;
    MutableDictionary entries;
    std::vector<Value> elements;
  };

  bool fail(std::string why) { return fail(badJson(std::move(why))); }

  bool fail(const Error& error) {
    if (result_) result_ = error;
    return false;
  }

  bool open(bool isObject) {
    if (frames_.size() >= maximumDepth) return fail("it is nested too deeply");
    const bool isLiteral = isObject && !frames_.empty() && frames_.back().isObject &&
                           !frames_.back().isLiteral && frames_.back().key == dictionaryKey;
    frames_.push_back({.isObject = isObject, .isLiteral = isLiteral});
    return true;
  }

  bool put(const Value& value) {
    if (frames_.empty()) {
      result_ = value;
    } else if (frames_.back().isObject) {
      frames_.back().entries.set(frames_.back().key, value);
    } else {
      frames_.back().elements.push_back(value);
    }
    return true;
  }

  std::vector<Frame> frames_;
  Result<Value> result_ = Value();
};

}  // namespace

Result<Value> valueFromJson(std::string_view text) {
  ValueBuilder builder;
  ordered_json::sax_parse(text, &builder);
  return builder.result();
}

}  // namespace roster::tool
