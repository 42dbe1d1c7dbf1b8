#include <iostream>

#include "roster/platform/assertion.h"
#include "tools/commands.h"
#include "tools/printing.h"
#include "tools/properties.h"
#include "tools/session.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

/// Creates the account. What the library asserts against its caller is a mistake of the user here.
AccountPtr newAccount(const Options& options) {
  try {
    return BasicAccount::accountWithTypeClass(options.type, options.accountClass);
  } catch (const AssertionFailure& failure) {
    throw CommandError("could not add an account", failure.report().message);
  }
}

void assign(const AccountPtr& account, const Assignment& assignment, const AccountsManager& store,
            const Options& options) {
  const auto& [key, value] = assignment;
  if (key == kAccountType || key == kAccountClass) {
    if (value == account->accountPropertyForKey(key)) return;
    throw CommandError(key, "it is given before the properties, as in 'rosterctl add TYPE CLASS'");
  }
  if (key == kAccountIdentifier) {
    const String identifier = value.string();
    if (identifier.isEmpty()) throw CommandError(key, "it takes a text that is not empty");
    if (store.accountWithIdentifier(identifier)) {
      throw CommandError(key, "there is an account " + identifier.str() + " already");
    }
    // The two are equal in a new account. An assignment to the sync identifier itself wins, before or after
    // this.
    if (account->syncStoreIdentifier() == account->identifier()) {
      account->setAccountPropertyForKey(value, kAccountSyncIdentifier);
    }
  }
  requireOwnType(assignment, options);
  account->setAccountPropertyForKey(value, key);
}

}  // namespace

int add(const Options& options) {
  const std::vector<Assignment> assignments = parseAssignments(options.words);
  Session session(Session::Purpose::adding, options);
  const AccountPtr account = newAccount(options);
  for (const Assignment& assignment : assignments) assign(account, assignment, session.store(), options);
  if (options.parent.empty()) {
    session.store().insertAccount(account);
    session.save(account);
  } else {
    const FoundAccount parent = session.find(options.parent);
    if (parent.parent) {
      throw CommandError("account " + options.parent, "it is a child itself and cannot have children");
    }
    session.store().addChildToAccount(account, parent.account);
    session.save();
  }
  if (options.isJson) {
    printJson({{"identifier", account->identifier().str()}});
  } else {
    std::cout << singleLine(account->identifier()) << '\n';
  }
  return done;
}

int deleteAccount(const Options& options) {
  Session session(Session::Purpose::changing, options);
  const FoundAccount found = session.find(options.identifier);
  if (found.parent) {
    session.store().removeChildWithIdentifierFromAccount(options.identifier, found.parent);
  } else {
    session.store().deleteAccount(found.account);
  }
  session.save();
  return done;
}

}  // namespace roster::tool
