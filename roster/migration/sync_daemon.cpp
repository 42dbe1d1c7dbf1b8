#include <chrono>
#include <cstring>

#include "roster/migration/migration.h"
#include "roster/platform/assertion.h"
#include "roster/platform/bus_signals.h"
#include "roster/platform/event_loop.h"
#include "roster/platform/process_table.h"
#include "roster/platform/system_log.h"
#include "roster/store/accounts_manager.h"

namespace roster {

namespace {

using namespace std::chrono_literals;
/// A timeout must not change when somebody sets the time.
using Clock = std::chrono::steady_clock;

constexpr const char* exitRequest = "com.nimbal.Harbor.BackupAgent.WillStart";
constexpr Clock::duration quitTimeout = 5s;

/// Remembers whether the calling thread holds the web engine's lock, which a turn of the event loop releases,
/// and takes it again at the end. Without the engine's library it counts as not held, once the handler of the
/// assertion failure has returned.
class HeldWebEngineLock {
 public:
  HeldWebEngineLock() {
    const Result<bool> isHeld = isWebEngineThreadLockHeld();
    if (!isHeld) fail(isHeld.error().message);
    isHeld_ = isHeld && *isHeld;
  }

  void restore() const {
    if (!isHeld_) return;
    if (const Result<> taken = takeWebEngineThreadLock(); !taken) fail(taken.error().message);
  }

 private:
  static void fail(const std::string& why) {
    assertionFailed("+[AccountsManager(MigrationSupport) killTesseraIfNecessary]", "AccountsManager",
                    "Could not use the web engine's thread lock: " + why);
  }
  bool isHeld_ = false;
};

/// Waits until the process is gone or another one has the daemon's name; false when that has not happened
/// before the timeout. The event loop runs meanwhile, for at most one interval between two looks.
bool waitUntilGone(std::int32_t process, std::chrono::microseconds interval) {
  const Clock::time_point start = Clock::now();
  do {
    if (_PIDForProcessNamed(syncDaemonName) != process) return true;
    runEventLoop(interval, process);
  } while (Clock::now() - start <= quitTimeout);
  return false;
}

void killDaemon() {
  // Looked up again: the process that was asked may have ended, and its identifier may be another's by now.
  const std::int32_t process = _PIDForProcessNamed(syncDaemonName);
  if (process < 0) return;
  const Result<> killed = killProcess(process, syncDaemonName);
  if (!killed) systemLog("%@", killed.error().message);
}

void makeDaemonQuit(std::int32_t process) {
  if (waitUntilGone(process, 250ms)) return;
  systemLog("%s does not seem to want to quit. Sending it a SIGKILL", syncDaemonName);
  killDaemon();
  if (waitUntilGone(process, 10ms)) return;
  systemLog(
      "%s decided it didn't want to play well with others and refused to exit. We're going to continue with "
      "the backup/restore anyway and hope for the best.",
      syncDaemonName);
}

}  // namespace

std::int32_t _PIDForProcessNamed(const char* name) {
  const Result<std::vector<Process>> processes = processTable();
  if (!processes) return -1;
  for (const Process& process : *processes) {
    if (std::strncmp(process.name.c_str(), name, processNameSize) == 0) return process.identifier;
  }
  return -1;
}

void AccountsManager::killTesseraIfNecessary() {
  const std::int32_t process = _PIDForProcessNamed(syncDaemonName);
  if (process < 0 || process == ownProcessIdentifier()) return;
  systemLog("Performing account migration. Asking tesserad to exit");
  postSystemNotification(exitRequest);
  const HeldWebEngineLock webEngineLock;
  makeDaemonQuit(process);
  webEngineLock.restore();
}

}  // namespace roster
