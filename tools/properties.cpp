#include "tools/assignment.h"
#include "tools/command_error.h"
#include "tools/commands.h"
#include "tools/session.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

void assign(BasicAccount& account, const Assignment& assignment) {
  const auto& [key, value] = assignment;
  // What 'show' prints can be given back whole.
  if (value == account.properties().find(key) && key != kAccountClass) {
    if (key == kAccountType || key == kAccountIdentifier) return;
  }
  if (key == kAccountType) throw CommandError(key, "the type of an account cannot be changed");
  if (key == kAccountIdentifier) throw CommandError(key, "the identifier of an account cannot be changed");
  if (key == kAccountClass) {
    if (value.string().isEmpty()) throw CommandError(key, "it takes a text that is not empty");
    account.setAccountClass(value.string());
  } else {
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

int set(const Options& options) {
  const std::vector<Assignment> assignments = parseAssignments(options.words);
  Session session(Session::Purpose::changing);
  const FoundAccount found = session.find(options.identifier);
  for (const Assignment& assignment : assignments) assign(*found.account, assignment);
  saveChanged(session, found);
  return done;
}

int unset(const Options& options) {
  Session session(Session::Purpose::changing);
  const FoundAccount found = session.find(options.identifier);
  for (const std::string& key : options.words) remove(*found.account, key);
  saveChanged(session, found);
  return done;
}

}  // namespace roster::tool
