#include "roster/account/basic_account.h"

#include "roster/account/parent_changes.h"
#include "roster/base/foreign_code.h"
#include "roster/platform/assertion.h"
#include "roster/platform/device.h"
#include "roster/platform/system_log.h"

namespace roster {

namespace {

constexpr std::string_view sourceFile = "BasicAccount";
constexpr std::string_view initWithPropertiesName = "-[BasicAccount initWithProperties:]";
constexpr std::string_view initWithTypeName = "-[BasicAccount _initWithType:class:]";

}  // namespace

AccountPtr BasicAccount::accountWithTypeClass(std::string_view type, std::string_view accountClass) {
  return _initWithTypeClass(type, accountClass);
}

AccountPtr BasicAccount::accountWithProperties(const Dictionary& properties) {
  return initWithProperties(properties);
}

AccountPtr BasicAccount::initWithProperties(const Dictionary& properties) {
  return makeWithProperties<BasicAccount>(properties);
}

AccountPtr BasicAccount::_initWithTypeClass(std::string_view type, std::string_view accountClass) {
  return makeWithTypeClass<BasicAccount>(type, accountClass);
}

AccountPtr BasicAccount::init() {
  assertionFailed("-[BasicAccount init]", sourceFile, "Don't use this method");
  return nullptr;
}

String BasicAccount::createNewAccountUID() {
  const std::optional<std::string> text = createUuidText();
  return text ? String(*text) : String();
}

BasicAccount::~BasicAccount() {
  _parentAccount.reset();
  _originalProperties = Dictionary();
  _properties.reset();
  _fullAccount.reset();
  _syncAccount.reset();
}

std::optional<Dictionary> BasicAccount::propertiesOfNewAccount(std::string_view type,
                                                               std::string_view accountClass) {
  if (accountClass.empty()) {
    assertionFailed(initWithTypeName, sourceFile, "The account class is required.");
    return std::nullopt;
  }
  if (!_isValidAccountType(type)) {
    assertionFailed(initWithTypeName, sourceFile,
                    "The account type (" + std::string(type) + ") is not supported");
    return std::nullopt;
  }
  const Value identifier = createNewAccountUID();
  return Dictionary{{kAccountType, type},
                    {kAccountIdentifier, identifier},
                    {kAccountSyncIdentifier, identifier},
                    {kAccountClass, accountClass}};
}

bool BasicAccount::takeProperties(const Dictionary& properties) {
  const bool isKnownType = _isValidAccountType(properties.find(kAccountType).string());
  if (!isKnownType) {
    systemLog("[%s] Invalid account type: %@", initWithPropertiesName, properties.find(kAccountType));
  }
  if (properties.find(kAccountClass).string().isEmpty()) {
    systemLog("[%s] Missing account class.", initWithPropertiesName);
    return false;
  }
  if (!isKnownType) return false;

  _originalProperties = properties.deepCopy();
  if (!_originalProperties.sharesContentsWith(properties))
    _properties = MutableDictionary::copyOf(properties);
  if (!properties.find(kAccountIdentifier).isString()) {
    const String identifier = createNewAccountUID();
    this->properties().set(kAccountIdentifier, identifier);
    if (!properties.find(kAccountSyncIdentifier).isString()) {
      this->properties().set(kAccountSyncIdentifier, identifier);
    }
  }
  return true;
}

const Dictionary& BasicAccount::currentProperties() const {
  return _properties ? *_properties : _originalProperties;
}

Dictionary BasicAccount::propertiesToSave() const { return properties(); }

MutableDictionary BasicAccount::properties() const {
  if (!_properties) _properties = MutableDictionary::copyOf(_originalProperties);
  return _properties->share();
}

Value BasicAccount::accountPropertyForKey(std::string_view key) const {
  Value own = currentProperties().find(key);
  if (own.isNil() && _parentAccount) return held(_parentAccount)->accountPropertyForKey(key);
  return own;
}

void BasicAccount::setAccountPropertyForKey(const Value& value, std::string_view key) {
  if (key == kAccountClass || key == kAccountType) return;
  _forcedSetAccountPropertyForKey(value, key);
}

void BasicAccount::removeAccountPropertyForKey(std::string_view key) { properties().remove(key); }

// NOLINTNEXTLINE(readability-make-member-function-const): it changes the record
void BasicAccount::_forcedSetAccountPropertyForKey(const Value& value, std::string_view key) {
  properties().set(key, value);
}

String BasicAccount::textForKey(std::string_view key) const {
  const Value value = accountPropertyForKey(key);
  // A value of another type hides nothing: it counts as absent. No value at all is an answer.
  const bool isHidden = !value.isNil() && !value.isString();
  return isHidden && _parentAccount ? held(_parentAccount)->textForKey(key) : value.string();
}

String BasicAccount::identifier() const { return textForKey(kAccountIdentifier); }

String BasicAccount::syncStoreIdentifier() const { return textForKey(kAccountSyncIdentifier); }

String BasicAccount::displayName() const { return textForKey(kAccountDisplayName); }

String BasicAccount::type() const { return textForKey(kAccountType); }

String BasicAccount::accountClass() const { return textForKey(kAccountClass); }

String BasicAccount::typeString() const { return textForKey(kAccountTypeString); }

String BasicAccount::shortTypeString() const { return textForKey(kAccountShortTypeString); }

void BasicAccount::setAccountClass(std::string_view accountClass) {
  if (this->accountClass() == accountClass) return;
  _forcedSetAccountPropertyForKey(accountClass, kAccountClass);
}

void BasicAccount::setDisplayName(const String& name) {
  if (name.isNil()) {
    assertionFailed("-[BasicAccount setDisplayName:]", sourceFile, "The display name cannot be nil");
    return;
  }
  if (currentProperties().find(kAccountDisplayName).string() == name) return;
  properties().set(kAccountDisplayName, name);
}

std::string BasicAccount::description() const {
  return "<BasicAccount: " + type().str() + " " + identifier().str() + ">";
}

String BasicAccount::parentAccountIdentifier() const {
  return _parentAccount ? held(_parentAccount)->identifier() : String();
}

void BasicAccount::setParentAccount(AccountPtr parent) {
  for (const BasicAccount* ancestor = parent.get(); ancestor != nullptr;
       ancestor = ancestor->_parentAccount.get()) {
    if (ancestor != this) continue;
    assertionFailed("-[BasicAccount setParentAccount:]", sourceFile, "An account cannot be its own ancestor");
    return;
  }
  if (_parentAccount != parent) {
    (_parentAccount ? countOfParentChanges() : countOfAdoptions()).fetch_add(1, std::memory_order_relaxed);
  }
  _parentAccount.swap(parent);
}

void BasicAccount::setOriginalProperties(const Dictionary& properties) {
  if (properties.sharesContentsWith(_originalProperties)) return;
  static_cast<void>(this->properties());  // the live properties no longer follow the originals
  _originalProperties = properties.deepCopy();
}

}  // namespace roster
