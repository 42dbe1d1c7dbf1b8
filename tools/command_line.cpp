#include <sys/auxv.h>

#include <CLI/CLI.hpp>
#include <clocale>
#include <cstdlib>
#include <iostream>

#include "roster/platform/system_log.h"
#include "tools/commands.h"
#include "tools/printing.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

constexpr const char* description =
    "Shows and changes the registry of a device's user accounts.\n"
    "A change keeps a copy of what it would lose, and is refused while a migration is due.\n"
    "Exit status: 0 done, if only with a warning; 1 failed or not found; 2 wrong usage.";

constexpr const char* globalOptions =
    "The options --root, --json and --verbose of 'rosterctl --help' may stand here too.";

constexpr const char* values =
    "KEY=TEXT stores the text as it stands. KEY:=JSON stores a number, true, false, [...] or {...}.\n"
    "The first = splits, so a key has none. What JSON lacks is an object with one key:\n"
    R"(  {"$data": "AAEC"}                    bytes in base64)"
    "\n"
    R"(  {"$date": "2024-02-29T12:00:00Z"}    an instant in UTC)"
    "\n"
    R"(  {"$real": "nan"}                     "nan", "inf" or "-inf")"
    "\n"
    R"(  {"$dictionary": {"$data": "AAEC"}}   an object that has such a key itself)"
    "\n"
    "'show --json' and 'dump --json' print the same.\n\n";

constexpr const char* force =
    "Change the registry although a migration is due, and give known keys values of any type";

constexpr const char* examples =
    "Examples:\n"
    "  rosterctl list --type Mail --type Exchange\n"
    "  rosterctl add CalDAV CalDAVAccount DisplayName=Work Port:=8443\n"
    "  rosterctl set ID DisplayName=Home 'LastSync:={\"$date\": \"2024-02-29T12:00:00Z\"}'\n"
    "  rosterctl add SMTP SMTPAccount Hostname=smtp.example.org --parent ID\n"
    "  rosterctl disable ID Mail Notes\n"
    "  rosterctl --root /tmp/demo --json show ID\n"
    "  rosterctl check old-registry.plist";

/// The parser splits a word in square brackets into a list. It leaves a word alone that begins with this
/// character.
constexpr char shield = '\x01';

std::string shielded(const std::string& word) {
  const bool isAtRisk = word.starts_with('[') || word.starts_with(shield);
  return isAtRisk ? shield + word : word;
}

void unshield(std::string& word) {
  if (word.starts_with(shield)) word.erase(0, 1);
}

/// The parser, the options it fills, and the command that was chosen.
class CommandLine {
 public:
  CommandLine() : app_(description, "rosterctl") {
    app_.footer(globalOptions);  // of each command: they inherit it when they are added
    app_.require_subcommand(1);
    app_.fallthrough();
    app_.set_help_all_flag();
    app_.get_formatter()->column_width(34);
    app_.add_option("--root", root_, "Work on the device below this folder, as ROSTER_ROOT does")
        ->type_name("DIR");
    app_.add_flag("--json", options_.isJson, "Print JSON");
    app_.add_flag("--verbose", options_.isVerbose, "Print the library's log lines on the standard error");
    app_.set_version_flag("--version", "rosterctl " ROSTERCTL_VERSION);
    addQueries();
    addChanges();
    addFiles();
    addMigration();
    app_.footer(examples);
  }

  /// Throws CLI::ParseError.
  void parse(int count, const char* const* arguments) {
    std::vector<std::string> words;
    for (int index = count - 1; index > 0; --index) words.push_back(shielded(arguments[index]));
    app_.parse(std::move(words));
    for (std::string* text : {&root_, &options_.identifier, &options_.type, &options_.accountClass,
                              &options_.parent, &options_.file}) {
      unshield(*text);
    }
    for (std::string& word : options_.words) unshield(word);
    if (const CLI::Option* root = app_.get_option("--root"); root->count() > 0) {
      if (root_.empty()) throw CommandError("--root", "the folder's name is empty", wrongUsage);
      // The library would not look at it, and the command would change the real device.
      if (getauxval(AT_SECURE) != 0) {
        throw CommandError("--root", "a set-uid program works on the device that it runs on only",
                           wrongUsage);
      }
      setenv("ROSTER_ROOT", root_.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): the tool has one thread
    }
  }

  int run() const {
    if (options_.isVerbose) setSystemLogSink(&note);
    return command_(options_);
  }

  int exit(const CLI::ParseError& error) const {
    if (error.get_exit_code() == 0) {
      const int status = app_.exit(error);
      flushOutput();
      return status;
    }
    const std::vector<CLI::App*> chosen = app_.get_subcommands();
    const std::vector<std::string> words = app_.remaining();
    const std::string help =
        "see 'rosterctl " + (chosen.empty() ? "" : chosen.front()->get_name() + " ") + "--help'";
    std::string message = error.what();
    if (chosen.empty() && words.empty()) message = "a command is missing";
    if (chosen.empty() && !words.empty()) message = words.front() + ": there is no such command";
    std::cerr << "rosterctl: " << singleLine(message) << "; " << help << '\n';
    return wrongUsage;
  }

 private:
  using Command = int (*)(const Options&);

  CLI::App& command(const char* name, const char* help, Command function) {
    return *app_.add_subcommand(name, help)->callback([this, function] { command_ = function; });
  }

  static CLI::Option& required(CLI::App& command, const char* name, std::string& value, const char* help) {
    return *command.add_option(name, value, help)->required()->type_name("");
  }

  CLI::Option& words(CLI::App& command, const char* name, const char* help) {
    return *command.add_option(name, options_.words, help)->type_name("");
  }

  CLI::App& accountCommand(const char* name, const char* help, Command function) {
    CLI::App& made = command(name, help, function);
    required(made, "ID", options_.identifier, "The account's identifier");
    return made;
  }

  void addQueries() {
    CLI::App& listing = command("list", "List the accounts, each followed by its children", &list);
    listing.add_option("--type", options_.types, "Only accounts of this type; may be repeated")
        ->allow_extra_args(false)
        ->type_name("TYPE");
    accountCommand("show", "Show the stored properties of one account", &show);
    command("watch", "Print each change to the registry as it happens, until it is interrupted", &watch);
    command("types", "List the account types and what they can do", &types);
    command("dataclasses", "List the dataclasses and how they behave", &dataclasses);
    command("creators", "List the plug-in classes that serve each account type, and whether they work",
            &creators)
        .add_option("TYPE", options_.type, "Only those of this type")
        ->type_name("");
  }

  void addChanges() {
    CLI::App& adding = command("add", "Add an account and print its new identifier", &add);
    required(adding, "TYPE", options_.type, "The account's type, as 'rosterctl types' lists them");
    required(adding, "CLASS", options_.accountClass, "The name of the class that implements the account");
    adding.footer(std::string(values) + globalOptions);
    words(adding, "PROPERTY", "KEY=TEXT or KEY:=JSON");
    adding.add_option("--parent", options_.parent, "Make it a child of this account")->type_name("ID");

    CLI::App& setting = accountCommand("set", "Set properties of an account", &set);
    setting.footer(std::string(values) + globalOptions);
    words(setting, "PROPERTY", "KEY=TEXT or KEY:=JSON").required();
    words(accountCommand("unset", "Remove properties of an account", &unset), "KEY", "The property's key")
        .required();
    constexpr const char* names = "A dataclass, as \"Mail\" or in full";
    words(accountCommand("enable", "Switch dataclasses of an account on", &enable), "DATACLASS", names)
        .required();
    words(accountCommand("disable", "Switch dataclasses of an account off", &disable), "DATACLASS", names)
        .required();
    accountCommand("delete", "Delete an account with its children, or one child", &deleteAccount);
    for (const char* name : {"add", "set", "unset", "enable", "disable", "delete"}) {
      app_.get_subcommand(name)->add_flag("--force", options_.isForced, force);
    }
  }

  void addFiles() {
    CLI::App& dumping = command("dump", "Print any property list, binary or XML", &dump);
    required(dumping, "FILE", options_.file, "The property list; - is the standard input");
    CLI::App& checking =
        command("check", "Tell what loading a registry would drop, repair or ignore, and why", &check);
    checking.add_option("FILE", options_.file, "The registry; that of the device if there is none")
        ->type_name("");
  }

  void addMigration() {
    command("migrate", "Bring accounts that older system versions left into the registry", &migrate)
        .add_flag("--dry-run", options_.isDryRun, "Only tell what would be done, and why");
    command("wait-for-migration", "Return when no migration is running any more", &waitForMigration);
  }

  CLI::App app_;
  Options options_;
  std::string root_;
  Command command_ = nullptr;
};

int report(const std::string& message, int status) {
  std::cerr << "rosterctl: " << singleLine(message) << '\n';
  return status;
}

/// Runs the command that the arguments name and returns the program's exit status.
int runCommandLine(int argumentCount, const char* const* arguments) {
  try {
    CommandLine line;
    try {
      line.parse(argumentCount, arguments);
    } catch (const CLI::ParseError& error) {
      return line.exit(error);
    }
    const int status = line.run();
    flushOutput();
    return status;
  } catch (const CommandError& error) {
    return report(error.what(), error.status());
  } catch (const std::exception& error) {
    return report(error.what(), failed);
  }
}

}  // namespace

}  // namespace roster::tool

int main(int argumentCount, char** arguments) {
  // Character widths need a UTF-8 locale: all text here is UTF-8, whatever the user's locale. Without it
  // columns are less straight, which is no reason to stop.
  // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread has started
  static_cast<void>(std::setlocale(LC_CTYPE, "C.UTF-8"));
  return roster::tool::runCommandLine(argumentCount, arguments);
}
