#include <strings.h>

#include "tools/commands.h"
#include "tools/session.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

bool areEqualIgnoringCase(std::string_view left, std::string_view right) {
  return left.size() == right.size() && strncasecmp(left.data(), right.data(), left.size()) == 0;
}

/// The dataclass with this name, full or short, in upper or lower case.
std::string resolved(const std::string& name, const BasicAccount& account) {
  const StringList supported = account.supportedDataclasses();
  for (const StringList* list : {&supported, &BasicAccount::allSupportedDataclasses()}) {
    for (const std::string& dataclass : *list) {
      if (!areEqualIgnoringCase(name, dataclass) && !areEqualIgnoringCase(name, shortName(dataclass)))
        continue;
      if (list == &supported) return dataclass;
      throw CommandError(name, "accounts of the type \"" + account.type().str() + "\" do not support it");
    }
  }
  throw CommandError(name, "there is no such dataclass; 'rosterctl dataclasses' lists them");
}

void warnOfNoEffect(const BasicAccount& account, const StringList& enabled) {
  const StringList provisioned = account.provisionedDataclasses();
  const auto restricted = account._profileRestrictedDataclasses();
  for (const std::string& dataclass : enabled) {
    if (restricted.contains(dataclass)) {
      warn(shortName(dataclass), "stored, but without effect: it is restricted on this device");
    } else if (!contains(provisioned, dataclass)) {
      warn(shortName(dataclass), "stored, but without effect: the account is not provisioned for it");
    }
  }
}

/// While its parent has a dataclass enabled, a child's own settings have no effect.
void warnOfParent(const FoundAccount& found) {
  if (!found.parent || found.parent->enabledDataclasses().value_or(StringList()).empty()) return;
  warn("account " + found.account->identifier().str(), "stored, but without effect while its parent " +
                                                           found.parent->identifier().str() +
                                                           " has dataclasses enabled");
}

int setEnabled(bool isEnabled, const Options& options) {
  Session session(Session::Purpose::changing, options);
  const FoundAccount found = session.find(options.identifier);
  StringList dataclasses;
  for (const std::string& name : options.words) dataclasses.push_back(resolved(name, *found.account));
  for (const std::string& dataclass : dataclasses) {
    found.account->setEnabledForDataclass(isEnabled, dataclass);
  }
  session.putBack(found);
  session.save();
  if (isEnabled) warnOfNoEffect(*found.account, dataclasses);
  warnOfParent(found);
  return done;
}

}  // namespace

int enable(const Options& options) { return setEnabled(true, options); }

int disable(const Options& options) { return setEnabled(false, options); }

}  // namespace roster::tool
