#include "tests/support/temporary_device.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include "roster/plist/property_list.h"

namespace roster::testing {

namespace fs = std::filesystem;

namespace {

// NOLINTBEGIN(concurrency-mt-unsafe): the header demands that no other thread runs
std::optional<std::string> variable(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}
void setVariable(const std::string& name, const std::optional<std::string>& value) {
  value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
}
// NOLINTEND(concurrency-mt-unsafe)

std::string newFolder() {
  std::string pattern = fs::temp_directory_path() / "roster-test-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr)
    throw std::system_error(errno, std::generic_category(), "could not make " + pattern);
  return fs::canonical(pattern);
}

}  // namespace

TemporaryDevice::TemporaryDevice() : root_(newFolder()) {
  fs::create_directories(home());
  setEnvironment("ROSTER_ROOT", root_);
  setEnvironment("HOME", home());
  setEnvironment("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + busSocket());
  setEnvironment("LC_ALL", "C.UTF-8");
  if (!variable("ROSTER_RESOURCES"))
    setEnvironment("ROSTER_RESOURCES", fs::absolute(__FILE__ "/../../../resources").lexically_normal());
}

TemporaryDevice::~TemporaryDevice() {
  for (; !oldVariables_.empty(); oldVariables_.pop_back())
    setVariable(oldVariables_.back().first, oldVariables_.back().second);
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

std::string TemporaryDevice::path(std::string_view below) const { return fs::path(root_) / below; }

std::string TemporaryDevice::writeFile(std::string_view path, std::string_view text) const {
  std::string file = this->path(path);
  fs::create_directories(fs::path(file).parent_path());
  std::ofstream stream(file, std::ofstream::binary | std::ofstream::trunc);
  if (!(stream << text << std::flush)) throw std::runtime_error("could not write " + file);
  return file;
}

std::string TemporaryDevice::writePropertyList(std::string_view path, const Value& value) const {
  const Result<std::string> bytes = binaryPropertyList(value);
  if (!bytes)
    throw std::runtime_error("could not encode " + std::string(path) + ": " + bytes.error().message);
  return writeFile(path, *bytes);
}

std::string TemporaryDevice::readFile(std::string_view path) const {
  std::ifstream stream(this->path(path), std::ifstream::binary);
  if (!stream) throw std::runtime_error("could not open " + this->path(path));
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::vector<std::string> TemporaryDevice::fileNames(std::string_view folder) const {
  std::vector<std::string> names;
  if (!fs::exists(path(folder))) return names;
  for (const auto& entry : fs::directory_iterator(path(folder))) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

void TemporaryDevice::setEnvironment(const std::string& name, const std::optional<std::string>& value) {
  oldVariables_.emplace_back(name, variable(name));
  setVariable(name, value);
}

CapturedLog::CapturedLog() {
  previous_ = setSystemLogSink([lines = lines_](std::string_view line) {
    const std::lock_guard guard(lines->lock);
    lines->list.emplace_back(line);
  });
}

CapturedLog::~CapturedLog() { setSystemLogSink(previous_); }

std::vector<std::string> CapturedLog::lines() const {
  const std::lock_guard guard(lines_->lock);
  return lines_->list;
}

void CapturedLog::clear() {
  const std::lock_guard guard(lines_->lock);
  lines_->list.clear();
}

}  // namespace roster::testing
