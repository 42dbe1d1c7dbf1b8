#include "roster/platform/class_table.h"

#include <map>
#include <mutex>

#include "roster/base/process_wide.h"
#include "roster/platform/system_log.h"

namespace roster {

namespace {

/// A map, because its elements stay where they are.
struct ClassTable {
  std::mutex lock;
  std::map<std::string, ClassObject, std::less<>> classes;
};

}  // namespace

MissingOperation::MissingOperation(const ClassObject& receiver, std::string_view operation)
    : std::logic_error("the class " + receiver.name() + " does not answer " + std::string(operation)) {}

// NOLINTNEXTLINE(performance-unnecessary-value-param): it is moved into the table
bool registerClass(ClassObject object) {
  auto& table = immortalInstance<ClassTable>();
  std::string name = object.name();
  bool isNew = false;
  {
    const std::lock_guard guard(table.lock);
    isNew = table.classes.try_emplace(name, std::move(object)).second;
  }
  if (!isNew) systemLog("The class %@ is defined twice; the definition that came first is used", name);
  return isNew;
}

const ClassObject* findClass(std::string_view name) {
  auto& table = immortalInstance<ClassTable>();
  const std::lock_guard guard(table.lock);
  const auto found = table.classes.find(name);
  return found == table.classes.end() ? nullptr : &found->second;
}

}  // namespace roster
