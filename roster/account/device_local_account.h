#pragma once

#include <memory>
#include <string_view>

#include "roster/account/basic_account.h"
#include "roster/account/vocabulary.h"
#include "roster/base/export.h"
#include "roster/value/value.h"

namespace roster {

/// A localized text for this device: that of the key with the device's class behind it ("KEY_HANDSET").
/// Empty when there is none. May be called from any thread.
ROSTER_EXPORT String _deviceSpecificLocalizedString(std::string_view key);

/// The computer system that syncs the dataclass with this device, as the device's host-sync service reports
/// it: "Vesper", "Windows" or another's name; "Vireo" when none does. Read anew by each call. May be called
/// from any thread.
ROSTER_EXPORT String _getTetheredSourceForDataClassFromGatehouse(std::string_view dataclass);

/// The base of classes of on-device accounts: gives the answers that depend on which class is asked.
/// `DeviceLocalAccount` is made with it, and so is a subclass of that one, which names itself in `className`:
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

  /// What the record of the on-device account is made from. Its texts are in the user's language at the time
  /// of the call.
  static Dictionary basicAccountProperties() {
    const String typeText = Self::typeString();
    return {{kAccountType, kOnMyDeviceAccountType},
            {kAccountClass, Self::className},
            {kAccountTypeString, typeText},
            {kAccountShortTypeString, typeText},
            {kAccountIdentifier, Self::_identifier()}};
  }
  /// An instance with the record's properties; nil, with the reason in the system log, when they are
  /// rejected.
  [[nodiscard]] static std::shared_ptr<Self> accountWithBasicAccount(const AccountPtr& account) {
    return Self::initWithProperties(account->properties());
  }

  /// The class's current `typeString`, whatever is stored.
  String displayName() const override { return Self::typeString(); }
};

/// The account of the data that is kept on the device itself and synced with no server. It is always there:
/// `AccountsManager::fullDeviceLocalAccount` adds it to a store that lacks it. Its static operations may be
/// called from any thread.
class ROSTER_EXPORT DeviceLocalAccount : public DeviceLocalClass<DeviceLocalAccount, BasicAccount> {
 public:
  using DeviceLocalClass::DeviceLocalClass;
  /// The name under which the class is known, and which its records carry as "Class".
  static constexpr std::string_view className = "DeviceLocalAccount";

  // ---- Identity

  /// Always the class's own identifier, whatever the properties say.
  String identifier() const override;
  /// The same as the identifier.
  String syncStoreIdentifier() const override;

  // ---- Words, in the user's language

  /// "On My Phone", worded for the kind of device. The type string that a record stores is
  /// `BasicAccount::typeString`.
  static String typeString();
  /// Names where the data of the dataclass comes from: "From My PC", or "from my PC" within a sentence.
  static String localizedSyncSourceStringForDataClassForBeginningOfSentence(std::string_view dataclass,
                                                                            bool isBeginningOfSentence);
  /// Refers, within a sentence, to where the data of the dataclass is synced: "synced with your PC".
  static String localizedReferenceToSyncSourceStringForDataClass(std::string_view dataclass);

  // ---- Tethered syncing

  /// The computer system that syncs the dataclass, as _getTetheredSourceForDataClassFromGatehouse says.
  static String tetheredSourceForDataClass(std::string_view dataclass);
  /// Whether a computer of a known system ("Vesper", "Windows") syncs the dataclass.
  static bool isTetheredSyncingDataclass(std::string_view dataclass);

  // ---- Internal

  /// The identifier of every on-device account.
  static String _identifier();
};

}  // namespace roster
