#pragma once

#include <string_view>

namespace roster {

// Signals on the system bus. Nobody need listen; without a bus each is one line in the system log.

/// Tells an application, by identifier, that its preferences changed under a key.
void broadcastPreferencesChanged(std::string_view applicationIdentifier, std::string_view key);

/// Posts a system-wide notification: a name of the form "com.example.Subject.Event", without anything else.
/// It is a signal without arguments: member Event, interface com.example.Subject, path /com/example/Subject.
void postSystemNotification(std::string_view name);

}  // namespace roster
