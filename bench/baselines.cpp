#include "bench/baselines.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace roster::bench {

namespace {

void* freshMemory = nullptr;
std::size_t freshSize = 0;

void require(bool isTrue, const char* what) {
  if (!isTrue) throw std::runtime_error(what);
}

/// A line of /proc/self/status in kilobytes, as bytes.
std::size_t statusEntry(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    std::size_t kilobytes = 0;
    if (word == name && status >> kilobytes) return kilobytes * 1024;
  }
  throw std::runtime_error("no " + name + " in /proc/self/status");
}

}  // namespace

void readIntoFreshMemory(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  require(fd >= 0, "open");
  struct stat attributes {};
  require(fstat(fd, &attributes) == 0, "fstat");
  freshSize = static_cast<std::size_t>(attributes.st_size);
  freshMemory = mmap(nullptr, freshSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  require(freshMemory != MAP_FAILED, "mmap");
  require(read(fd, freshMemory, freshSize) == static_cast<ssize_t>(freshSize), "read");
  close(fd);
}

void releaseFreshMemory() { munmap(freshMemory, freshSize); }

void writeDurably(const std::string& path, const std::string& bytes) {
  const std::string beside = path + ".baseline";
  const int fd = open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  require(fd >= 0, "open");
  require(write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "write");
  require(fsync(fd) == 0, "fsync");
  close(fd);
  require(rename(beside.c_str(), path.c_str()) == 0, "rename");
  const int folder =
      open(std::filesystem::path(path).parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  require(folder >= 0 && fsync(folder) == 0, "fsync of the folder");
  close(folder);
}

void forgetPeakMemory() { std::ofstream("/proc/self/clear_refs") << "5\n"; }

std::size_t peakMemory() { return statusEntry("VmHWM:"); }

std::size_t currentMemory() { return statusEntry("VmRSS:"); }

}  // namespace roster::bench
