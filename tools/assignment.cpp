#include "tools/assignment.h"

#include "tools/command_error.h"
#include "tools/json_reader.h"
#include "tools/terminal.h"

namespace roster::tool {

Assignment parseAssignment(const std::string& word) {
  const std::size_t equals = word.find('=');
  if (equals == std::string::npos) {
    throw CommandError(word, "an assignment is KEY=TEXT or KEY:=JSON", wrongUsage);
  }
  if (!isUtf8(word)) throw CommandError(word, "it is not UTF-8", wrongUsage);
  const bool isJson = equals > 0 && word[equals - 1] == ':';
  Assignment assignment{word.substr(0, isJson ? equals - 1 : equals), {}};
  if (assignment.key.empty()) throw CommandError(word, "the key is missing", wrongUsage);
  const std::string content = word.substr(equals + 1);
  if (!isJson) {
    assignment.value = content;
    return assignment;
  }
  const Result<Value> value = valueFromJson(content);
  if (!value) throw CommandError(assignment.key, value.error().message, wrongUsage);
  assignment.value = *value;
  return assignment;
}

std::vector<Assignment> parseAssignments(const std::vector<std::string>& words) {
  std::vector<Assignment> assignments;
  assignments.reserve(words.size());
  for (const std::string& word : words) assignments.push_back(parseAssignment(word));
  return assignments;
}

}  // namespace roster::tool
