#pragma once

#include "roster/account/basic_account.h"

namespace roster {

/// A localized text for this device: that of the key with the device's class behind it ("KEY_HANDSET").
/// Empty when there is none.
ROSTER_EXPORT String _deviceSpecificLocalizedString(std::string_view key);

/// Which computer system syncs the dataclass with this device, as the device's host-sync service tells:
/// "Vesper", "Windows" or another's name; "Vireo" when none does. Read anew at each call.
ROSTER_EXPORT String _getTetheredSourceForDataClassFromGatehouse(std::string_view dataclass);

/// What makes a class one of on-device accounts: the answers that depend on which class is asked.
/// `DeviceLocalAccount` is made with it, and a subclass of that is too; it names itself in `className`:
///
///     class KioskAccount : public DeviceLocalClass<KioskAccount, DeviceLocalAccount> {
///      public:
///       using DeviceLocalClass::DeviceLocalClass;
///       static constexpr std::string_view className = "KioskAccount";
///     };
template <class Self, class Base>
class DeviceLocalClass : public AccountSubclass<Self, Base> {
 public:
  using AccountSubclass<Self, Base>::AccountSubclass;

  /// What the record of the on-device account is made from. Its texts are in the user's language of now.
  static Dictionary basicAccountProperties() {
    const String typeText = Self::typeString();
    return {{kAccountType, kOnMyDeviceAccountType},
            {kAccountClass, Self::className},
            {kAccountTypeString, typeText},
            {kAccountShortTypeString, typeText},
            {kAccountIdentifier, Self::_identifier()}};
  }
  /// An instance with the record's properties; nil when they are rejected.
  static std::shared_ptr<Self> accountWithBasicAccount(const std::shared_ptr<BasicAccount>& account) {
    return Self::initWithProperties(account->properties());
  }

  /// The class's `typeString` of now, whatever is stored.
  String displayName() const override { return Self::typeString(); }
};

/// The account of the data that is kept on the device itself and synced with no server. It is always there:
/// `AccountsManager::fullDeviceLocalAccount` adds it to a store that lacks it.
class ROSTER_EXPORT DeviceLocalAccount : public DeviceLocalClass<DeviceLocalAccount, BasicAccount> {
 public:
  using DeviceLocalClass::DeviceLocalClass;
  static constexpr std::string_view className = "DeviceLocalAccount";

  // ---- Identity: fixed, whatever the record's properties say

  String identifier() const override { return _identifier(); }
  String syncStoreIdentifier() const override { return identifier(); }

  // ---- Words, in the user's language

  /// "On My Phone": the device's own. Of an instance, `BasicAccount::typeString` is the text that was stored.
  static String typeString();
  /// Names where the data of the dataclass comes from.
  static String localizedSyncSourceStringForDataClassForBeginningOfSentence(std::string_view dataclass,
                                                                            bool isBeginningOfSentence);
  /// Refers, within a sentence, to where the data of the dataclass is synced.
  static String localizedReferenceToSyncSourceStringForDataClass(std::string_view dataclass);

  // ---- Tethered syncing

  static String tetheredSourceForDataClass(std::string_view dataclass);
  /// Whether a computer of a system that is known syncs the dataclass.
  static bool isTetheredSyncingDataclass(std::string_view dataclass);

  // ---- Internal

  static String _identifier() { return className; }
};

}  // namespace roster
