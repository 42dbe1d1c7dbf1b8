// Tells the system bus what a save changed, for programs that are not plug-ins: one signal for each save, see
// docs/bus-notifier.md.

#include <utility>

#include "roster/account/vocabulary.h"
#include "roster/notify/account_notifier.h"
// Not part of what the library exports: CMakeLists.txt compiles it into this plug-in too.
#include "roster/platform/linux/system_bus.h"
#include "roster/platform/plugin.h"
#include "roster/platform/system_log.h"

namespace roster {

namespace {

constexpr BusSignal accountsChanged = {"/com/nimbal/roster", "com.nimbal.roster.Accounts", "Changed"};

template <class Append>
void appendEntry(BusArguments& arguments, std::string_view key, const char* type, const Append& append) {
  arguments.entry("sv", [&] {
    arguments.text(key);
    arguments.variant(type, append);
  });
}

void appendTextEntry(BusArguments& arguments, const Dictionary& change, std::string_view key) {
  const String text = change.find(key).string();
  if (text) appendEntry(arguments, key, "s", [&] { arguments.text(text); });
}

/// One change record. What it lacks is left out rather than sent as an empty value.
void appendChange(BusArguments& arguments, const Dictionary& change) {
  const std::optional<std::int64_t> type = change.find(kRSChangeAccountChangeTypeKey).integer();
  if (type && std::in_range<std::int32_t>(*type)) {
    appendEntry(arguments, kRSChangeAccountChangeTypeKey, "i",
                [&] { arguments.number(static_cast<std::int32_t>(*type)); });
  }
  appendTextEntry(arguments, change, kRSChangeAccountIdentifierKey);
  appendTextEntry(arguments, change, kRSChangeAccountTypeKey);
  const std::string_view originalKey = kRSChangeAccountOriginallyEnabledDataclassesKey;
  const std::optional<Array> original = change.find(originalKey).array();
  if (!original) return;
  appendEntry(arguments, originalKey, "as", [&] {
    arguments.array("s", [&] {
      for (const Value& dataclass : *original) {
        if (dataclass.isString()) arguments.text(dataclass.string());
      }
    });
  });
}

Result<> sendChanges(const Array& changes) {
  Result<SystemBus> bus = SystemBus::open();
  if (!bus) return bus.error();
  return bus->send(accountsChanged, [&](BusArguments& arguments) {
    arguments.array("a{sv}", [&] {
      for (const Value& element : changes) {
        const Dictionary change = element.dictionary().value_or(Dictionary());
        arguments.array("{sv}", [&] { appendChange(arguments, change); });
      }
    });
  });
}

/// The registry has been written by now, so a bus that cannot be reached is one line in the log and no
/// failure.
void noteAccountChanges(const Array& changes) {
  if (const Result<> sent = sendChanges(changes); !sent) {
    systemLog("Could not tell the system bus of %@ changed accounts: %@", changes.size(),
              sent.error().message);
  }
}

void registerClasses(PluginClasses& classes) {
  classes.add(ClassObject("RosterBusNotifier")
                  .answering(AccountNotifierProtocol{.noteAccountChanges = &noteAccountChanges}));
}

}  // namespace

}  // namespace roster

ROSTER_PLUGIN(roster::registerClasses)
