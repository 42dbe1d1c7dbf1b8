#include "roster/platform/process_table.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <filesystem>
#include <memory>

#include "roster/platform/device.h"
#include "roster/platform/linux/system_calls.h"

namespace roster {

namespace {

/// How much of a command name the kernel keeps; it cuts off the rest.
constexpr std::size_t kernelNameSize = 15;

struct FolderCloser {
  void operator()(DIR* folder) const { closedir(folder); }
};
using Folder = std::unique_ptr<DIR, FolderCloser>;

std::string processPath(std::int32_t identifier, std::string_view name) {
  return "/proc/" + std::to_string(identifier) + "/" + std::string(name);
}

/// The first part of a file of a process; empty when it cannot be read, as when the process is gone by now.
std::string readProcessFile(std::int32_t identifier, std::string_view name, std::size_t maximumSize = 1024) {
  const FileDescriptor file(open(processPath(identifier, name).c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) return {};
  std::string text(maximumSize, '\0');
  std::size_t size = 0;
  ssize_t count = 1;
  while (count > 0 && size < text.size()) {
    count = retrying([&] { return read(file.fd(), &text[size], text.size() - size); });
    if (count > 0) size += static_cast<std::size_t>(count);
  }
  text.resize(size);
  return text;
}

/// The first words behind a process's name in its status line.
struct Status {
  std::string name;
  char state = '\0';
  long threads = 0;
};

/// Reads "IDENTIFIER (NAME) STATE ...". The name may hold anything, brackets and blanks too, so it ends at
/// the last bracket.
std::optional<Status> statusOf(std::int32_t identifier) {
  const std::string line = readProcessFile(identifier, "stat");
  const std::size_t begin = line.find('(');
  const std::size_t end = line.rfind(')');
  if (begin == std::string::npos || end == std::string::npos || end < begin) return std::nullopt;
  Status status;
  status.name = line.substr(begin + 1, end - begin - 1);
  constexpr int stateField = 3;
  constexpr int threadsField = 20;
  std::size_t position = end + 1;
  for (int field = stateField; field <= threadsField; ++field) {
    position = line.find_first_not_of(' ', position);
    if (position == std::string::npos) return std::nullopt;
    const std::size_t stop = std::min(line.find(' ', position), line.size());
    if (field == stateField) status.state = line[position];
    if (field == threadsField) std::from_chars(&line[position], line.data() + stop, status.threads);
    position = stop;
  }
  return status;
}

/// Whether all of the process has ended. One whose first thread has ended may still run in others.
bool hasEnded(const Status& status) {
  return status.state == 'X' || status.state == 'x' || (status.state == 'Z' && status.threads <= 1);
}

/// The name up to the length that names are told apart by. The kernel keeps less; what it cut off is in the
/// command line.
std::string fullName(std::string name, std::int32_t identifier) {
  if (name.size() == kernelNameSize) {
    std::string command = readProcessFile(identifier, "cmdline");
    command.resize(std::min(command.find('\0'), command.size()));
    const std::string program = command.substr(command.rfind('/') + 1);
    if (program.starts_with(name)) name = program;
  }
  name.resize(std::min(name.size(), processNameSize));
  return name;
}

/// The root of the device that a process was started for, from its first environment, written as `deviceRoot`
/// writes it; empty when it has none and when nobody may know.
std::string rootOf(std::int32_t identifier) {
  constexpr std::string_view variable = "ROSTER_ROOT=";
  constexpr std::size_t maximumSize = std::size_t{1} << 20U;
  const std::string environment = readProcessFile(identifier, "environ", maximumSize);
  for (std::string_view rest = environment; !rest.empty();) {
    const std::string_view entry = rest.substr(0, rest.find('\0'));
    rest.remove_prefix(std::min(entry.size() + 1, rest.size()));
    if (!entry.starts_with(variable) || entry == variable) continue;
    std::string root(entry.substr(variable.size()));
    if (root.front() != '/') {
      // It was relative to the folder in which the process started, which is mostly still its own.
      std::error_code error;
      const std::filesystem::path folder =
          std::filesystem::read_symlink(processPath(identifier, "cwd"), error);
      if (!error) root = (folder / root).string();
    }
    root.erase(root.find_last_not_of('/') + 1);
    return root;
  }
  return {};
}

/// The process, if it runs and belongs to the device: a relocated device has only the processes that were
/// started with its root, so that nobody ends those of another one.
std::optional<Process> runningProcess(std::int32_t identifier) {
  std::optional<Status> status = statusOf(identifier);
  if (!status || hasEnded(*status)) return std::nullopt;
  // This process's own root may have been chosen since it was started.
  if (identifier != getpid() && rootOf(identifier) != deviceRoot()) return std::nullopt;
  return Process{identifier, fullName(std::move(status->name), identifier)};
}

}  // namespace

Result<std::vector<Process>> processTable() {
  const Folder folder(opendir("/proc"));
  if (!folder) return systemError("open", "/proc", errno);
  std::vector<Process> processes;
  while (true) {
    errno = 0;
    const dirent* entry = readdir(folder.get());  // NOLINT(concurrency-mt-unsafe): the stream is our own
    if (entry == nullptr) break;
    const std::string_view name = entry->d_name;
    std::int32_t identifier = 0;
    const auto [stop, error] = std::from_chars(name.data(), name.data() + name.size(), identifier);
    if (error != std::errc() || stop != name.data() + name.size() || identifier <= 0) continue;
    if (std::optional<Process> process = runningProcess(identifier)) processes.push_back(*std::move(process));
  }
  if (errno != 0) return systemError("read", "/proc", errno);
  std::sort(processes.begin(), processes.end(),
            [](const Process& left, const Process& right) { return left.identifier < right.identifier; });
  return processes;
}

std::int32_t ownProcessIdentifier() { return getpid(); }

Result<> killProcess(std::int32_t identifier, std::string_view name) {
  const std::string process = "the process " + std::to_string(identifier) + " (" + std::string(name) + ")";
  // From here on the handle stands for one process, whatever becomes of its identifier.
  const Result<FileDescriptor> handle = openProcess(identifier);
  if (!handle) return handle.error();
  const std::optional<Process> running = runningProcess(identifier);
  if (!running || running->name != name.substr(0, processNameSize)) {
    return Error(std::errc::no_such_process, "could not kill " + process + ": it is gone");
  }
  if (syscall(SYS_pidfd_send_signal, handle->fd(), SIGKILL, nullptr, 0) == 0) return {};
  return systemError("kill", process, errno);
}

}  // namespace roster
