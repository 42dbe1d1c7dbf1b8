#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <optional>
#include <system_error>

#include "roster/platform/system_log.h"
#include "roster/store/accounts_manager.h"
#include "roster/store/registry_watch.h"
#include "tools/commands.h"
#include "tools/descriptors.h"
#include "tools/printing.h"
#include "tools/session.h"
#include "tools/stoppable_output.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

std::string changeWord(RSAccountChangeType type) {
  switch (type) {
    case RSAccountChangeTypeAdded:
      return "added";
    case RSAccountChangeTypeModified:
      return "modified";
    case RSAccountChangeTypeRemoved:
      return "removed";
  }
  return "";
}

/// The dataclasses that a change concerns: the known ones in their canonical order, then the unknown ones.
StringList orderedDataclasses(const AccountChange& change) {
  StringList concerned = concernedDataclasses(change);
  const StringList& known = BasicAccount::allSupportedDataclasses();
  const auto indexOf = [&known](const std::string& dataclass) {
    return std::find(known.begin(), known.end(), dataclass) - known.begin();
  };
  std::stable_sort(concerned.begin(), concerned.end(),
                   [&](const std::string& left, const std::string& right) {
                     const auto leftIndex = indexOf(left);
                     const auto rightIndex = indexOf(right);
                     return leftIndex == rightIndex ? left < right : leftIndex < rightIndex;
                   });
  return concerned;
}

/// Prints each change at once, so that a program that reads the output need not wait for the next one.
class ChangePrinter {
 public:
  explicit ChangePrinter(bool isJson) : isJson_(isJson) {}

  void print(const AccountChange& change) {
    const Dictionary& account = change.type == RSAccountChangeTypeRemoved ? change.original : change.current;
    const std::string word = changeWord(change.type);
    const String identifier = change.identifier();
    const String type = change.accountType();
    const String name = account.find(kAccountDisplayName).string();
    const StringList dataclasses = orderedDataclasses(change);
    const std::vector<AccountChange> children = childChanges(change);
    if (isJson_) {
      nlohmann::ordered_json changedChildren = nlohmann::ordered_json::array();
      for (const AccountChange& child : children) {
        changedChildren.push_back(
            {{"change", changeWord(child.type)}, {"identifier", child.identifier().str()}});
      }
      printJsonLine({{"change", word},
                     {"identifier", identifier.str()},
                     {"type", type.str()},
                     {"displayName", name ? nlohmann::ordered_json(name.str()) : nlohmann::ordered_json()},
                     {"dataclasses", dataclasses},
                     {"children", changedChildren}});
    } else {
      std::cout << emphasised(word) << std::string(longestWord - word.size(), ' ')
                << cell(identifier, identifierWidth_) << cell(type, typeWidth_)
                << cell(name ? name : String("-"), nameWidth_) << "  "
                << singleLine(joined(shortNames(dataclasses), "-")) << childrenText(change.type, children)
                << '\n';
    }
    flushOutput();
  }

 private:
  static constexpr std::size_t longestWord = 8;

  /// A column is as wide as its widest cell so far: what will follow is not known.
  static std::string cell(std::string_view text, std::size_t& width) {
    const std::string line = singleLine(text);
    width = std::max(width, displayWidth(line));
    return "  " + padded(line, width);
  }

  /// The children of a modified account that are not as they were; those of others came or went with it.
  static std::string childrenText(RSAccountChangeType type, const std::vector<AccountChange>& children) {
    std::string text;
    if (type != RSAccountChangeTypeModified) return text;
    for (const AccountChange& child : children) {
      text += text.empty() ? "  (" : ", ";
      text += "child " + singleLine(child.identifier()) + " " + changeWord(child.type);
    }
    return text.empty() ? text : text + ")";
  }

  bool isJson_;
  std::size_t identifierWidth_ = 0;
  std::size_t typeWidth_ = 0;
  std::size_t nameWidth_ = 0;
};

/// Sleeps until something happens at the path or there is a reason to end, as when a signal asks for it or
/// the reader of the output has gone; returns whether there is one.
bool waitForEventsOrEnd(const RegistryWatch& events, const StopSignals& stop) {
  // No event is requested for the output: the system always reports that its reader has gone.
  std::array<pollfd, 3> all{
      {{events.descriptor(), POLLIN, 0}, {stop.fd(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
  if (poll(all.data(), all.size(), -1) == -1) {
    if (errno == EINTR) return false;
    throw CommandError("could not wait for changes", std::generic_category().message(errno));
  }
  const auto& [pathEvents, signals, output] = all;
  return output.revents != 0 || signals.revents != 0;
}

/// Tells that the registry cannot be read, once in a row for each cause, and that it can be read again.
class ReadingReport {
 public:
  void tell(const Result<bool>& dispatched) {
    if (dispatched && !*dispatched) return;
    const std::optional<std::string> failure =
        dispatched ? std::nullopt : std::optional(dispatched.error().message);
    if (failure == failure_) return;
    if (failure) {
      warn(*failure, "nothing counts as changed until it can be read");
    } else {
      note(AccountsManager::fullPathToRosterPlist() + " can be read again");
    }
    failure_ = failure;
  }

 private:
  std::optional<std::string> failure_;
};

void printChanges(const Options& options, const StopSignals& stop) {
  const Result<std::unique_ptr<RegistryWatch>> watch = RegistryWatch::watch();
  if (!watch) throw CommandError(watch.error().message);
  ChangePrinter printer(options.isJson);
  ReadingReport report;
  // A registry that cannot be read is to be known from the start.
  report.tell((*watch)->dispatch({}));
  if (options.isVerbose) note("watching " + AccountsManager::fullPathToRosterPlist());
  for (bool isAtEnd = false; !isAtEnd;) {
    isAtEnd = waitForEventsOrEnd(**watch, stop);
    report.tell((*watch)->dispatch([&printer](const AccountChange& change) { printer.print(change); }));
  }
}

}  // namespace

int watch(const Options& options) {
  // The next file to be opened would take the descriptor of the standard output.
  if (fcntl(STDOUT_FILENO, F_GETFD) == -1) throw CommandError("the standard output has been closed");
  const StopSignals stop;
  // A write to a closed pipe must fail instead of ending the process: it is the usual end of a reader that
  // has seen enough.
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  // The programs that use the accounts log what a load finds wrong; logging it again after every change would
  // only repeat them.
  if (!options.isVerbose) setSystemLogSink([](std::string_view) {});

  const StoppableOutput output(std::cout, STDOUT_FILENO, stop);
  const StoppableOutput complaints(std::cerr, STDERR_FILENO, stop);
  try {
    printChanges(options, stop);
  } catch (const CommandError&) {
    if (!output.isUnwanted()) throw;
  }
  return done;
}

}  // namespace roster::tool
