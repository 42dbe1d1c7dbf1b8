#include "tools/properties.h"

#include "roster/account/property_types.h"
#include "tools/json.h"
#include "tools/session.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

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

void assign(BasicAccount& account, const Assignment& assignment, const Options& options) {
  const auto& [key, value] = assignment;
  // Everything that 'show' prints may be passed to 'set' again, so an unchanged value is accepted.
  const bool isUnchanged = value == account.properties().find(key);
  if (isUnchanged && (key == kAccountType || key == kAccountIdentifier)) return;
  if (key == kAccountType) throw CommandError(key, "the type of an account cannot be changed");
  if (key == kAccountIdentifier) throw CommandError(key, "the identifier of an account cannot be changed");
  if (key == kAccountClass) {
    if (value.string().isEmpty()) throw CommandError(key, "it takes a text that is not empty");
    account.setAccountClass(value.string());
  } else {
    if (!isUnchanged) requireOwnType(assignment, options);
    account.setAccountPropertyForKey(value, key);
  }
}

void remove(BasicAccount& account, const std::string& key) {
  if (key == kAccountType || key == kAccountClass || key == kAccountIdentifier) {
    throw CommandError(key, "an account cannot be without it");
  }
  if (!account.properties().contains(key)) warn(key, "the account has no such property");
  account.removeAccountPropertyForKey(key);
}

void saveChanged(Session& session, const FoundAccount& found) {
  session.putBack(found);
  session.save(found.parent ? found.parent : found.account);
}

}  // namespace

void requireOwnType(const Assignment& assignment, const Options& options) {
  const std::optional<std::string> mismatch = mismatchWithKey(assignment.value, assignment.key);
  if (!mismatch || options.isForced) return;
  throw CommandError(assignment.key, *mismatch + "; --force stores it all the same", wrongUsage);
}

std::vector<Assignment> parseAssignments(const std::vector<std::string>& words) {
  std::vector<Assignment> assignments;
  assignments.reserve(words.size());
  for (const std::string& word : words) assignments.push_back(parseAssignment(word));
  return assignments;
}

int set(const Options& options) {
  const std::vector<Assignment> assignments = parseAssignments(options.words);
  Session session(Session::Purpose::changing, options);
  const FoundAccount found = session.find(options.identifier);
  for (const Assignment& assignment : assignments) assign(*found.account, assignment, options);
  saveChanged(session, found);
  return done;
}

int unset(const Options& options) {
  Session session(Session::Purpose::changing, options);
  const FoundAccount found = session.find(options.identifier);
  for (const std::string& key : options.words) remove(*found.account, key);
  saveChanged(session, found);
  return done;
}

}  // namespace roster::tool
