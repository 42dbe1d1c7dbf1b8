#pragma once

#include <string_view>

namespace roster {

/// Posts a system-wide notification: a name of the form "com.example.Subject.Event", without anything else.
/// It is a signal without arguments on the system bus: member Event, interface com.example.Subject, path
/// /com/example/Subject. Nobody need listen. Without a bus it is one line in the system log.
void postSystemNotification(std::string_view name);

}  // namespace roster
