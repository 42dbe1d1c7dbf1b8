#include <roster/roster.h>

#include <algorithm>
#include <iostream>
#include <string>

/// A plug-in with two notifiers, each registered for other dataclasses. They print every change they are told
/// of, one line each, which shows who is told of what.

namespace {

std::string typeInWords(std::int64_t type) {
  switch (type) {
    case roster::RSAccountChangeTypeAdded:
      return "0 (added)";
    case roster::RSAccountChangeTypeModified:
      return "1 (modified)";
    case roster::RSAccountChangeTypeRemoved:
      return "2 (removed)";
    default:
      return std::to_string(type);
  }
}

std::string inWords(const roster::Dictionary& change) {
  const auto text = [&](std::string_view key) { return change.find(key).string().str(); };
  roster::StringList before =
      roster::stringList(change.find(roster::kRSChangeAccountOriginallyEnabledDataclassesKey))
          .value_or(roster::StringList());
  // The record has them in no particular order.
  std::sort(before.begin(), before.end());
  std::string words = "type " +
                      typeInWords(change.find(roster::kRSChangeAccountChangeTypeKey).integer().value_or(-1)) +
                      ", account " + text(roster::kRSChangeAccountIdentifierKey) + " of type " +
                      text(roster::kRSChangeAccountTypeKey) + ", enabled before:";
  for (const std::string& dataclass : before) words += " " + dataclass;
  return words;
}

/// A notifier is a class that is never instantiated: its name, and what it answers.
roster::ClassObject printer(const std::string& className) {
  return roster::ClassObject(className).answering(
      roster::AccountNotifierProtocol{.noteAccountChanges = [className](const roster::Array& changes) {
        for (const roster::Value& change : changes) {
          if (const auto record = change.dictionary()) {
            std::cout << className << ": " << inWords(*record) << std::endl;
          }
        }
      }});
}

void registerClasses(roster::PluginClasses& classes) {
  classes.add(printer("ContactsPrinter"));
  classes.add(printer("MailAndCalendarsPrinter"));
}

}  // namespace

ROSTER_PLUGIN(registerClasses)
