#pragma once

#include <string_view>

#include "roster/base/export.h"

/// The vocabulary of the registry. Programs in other languages link to these constants by name, and every
/// file that was ever written uses their texts: neither may change. Each is initialised before any code of
/// the library runs. Compare by value.
namespace roster {
extern "C" {

// Account types: the value of "Type", and the keys of the account-type and account-creators tables.

/// "Subscribed Calendar"
extern ROSTER_EXPORT const std::string_view kSubscribedCalendarAccountType;
/// "CalDAV"
extern ROSTER_EXPORT const std::string_view kCalDAVAccountType;
/// "CardDAV"
extern ROSTER_EXPORT const std::string_view kCardDAVAccountType;
/// "BookmarkDAV"
extern ROSTER_EXPORT const std::string_view kBookmarkDAVAccountType;
/// "SMTP"
extern ROSTER_EXPORT const std::string_view kSMTPAccountType;
/// "Exchange"
extern ROSTER_EXPORT const std::string_view kExchangeAccountType;
/// "LDAP"
extern ROSTER_EXPORT const std::string_view kLDAPAccountType;
/// "Mail"
extern ROSTER_EXPORT const std::string_view kMailAccountType;
/// "Nuvola"
extern ROSTER_EXPORT const std::string_view kNuvolaAccountType;
/// "Gmail"
extern ROSTER_EXPORT const std::string_view kGmailAccountType;
/// "Yahoo"
extern ROSTER_EXPORT const std::string_view kYahooAccountType;
/// "OnMyDevice"
extern ROSTER_EXPORT const std::string_view kOnMyDeviceAccountType;
/// "IMAPNotes"
extern ROSTER_EXPORT const std::string_view kIMAPNotesAccountType;
/// "NimbalAccount"
extern ROSTER_EXPORT const std::string_view kNimbalAccountType;
/// "FjordIMAP"
extern ROSTER_EXPORT const std::string_view kFjordIMAPAccountType;

// Dataclasses: the categories of user data that an account can carry, in their canonical order.

/// "com.nimbal.Dataclass.Mail"
extern ROSTER_EXPORT const std::string_view kAccountDataclassMail;
/// "com.nimbal.Dataclass.Contacts"
extern ROSTER_EXPORT const std::string_view kAccountDataclassContacts;
/// "com.nimbal.Dataclass.Calendars"
extern ROSTER_EXPORT const std::string_view kAccountDataclassCalendars;
/// "com.nimbal.Dataclass.Reminders"
extern ROSTER_EXPORT const std::string_view kAccountDataclassReminders;
/// "com.nimbal.Dataclass.Bookmarks"
extern ROSTER_EXPORT const std::string_view kAccountDataclassBookmarks;
/// "com.nimbal.Dataclass.Notes"
extern ROSTER_EXPORT const std::string_view kAccountDataclassNotes;
/// "com.nimbal.Dataclass.MediaStream"
extern ROSTER_EXPORT const std::string_view kAccountDataclassMediaStream;
/// "com.nimbal.Dataclass.DeviceLocator"
extern ROSTER_EXPORT const std::string_view kAccountDataclassDeviceLocator;
/// "com.nimbal.Dataclass.ContactsSearch"
extern ROSTER_EXPORT const std::string_view kAccountDataclassContactsSearch;
/// "com.nimbal.Dataclass.Backup"
extern ROSTER_EXPORT const std::string_view kAccountDataclassBackup;
/// "com.nimbal.Dataclass.Ubiquity"
extern ROSTER_EXPORT const std::string_view kAccountDataclassUbiquity;
/// "com.nimbal.Dataclass.KeyValue"
extern ROSTER_EXPORT const std::string_view kAccountDataclassKeyValue;
/// "com.nimbal.Dataclass.Satchel"
extern ROSTER_EXPORT const std::string_view kAccountDataclassSatchel;
/// "com.nimbal.Dataclass.SharedStreams"
extern ROSTER_EXPORT const std::string_view kAccountDataclassSharedStreams;

// Keys of an account's properties.

/// "Identifier": unique; normally a UUID in canonical text form.
extern ROSTER_EXPORT const std::string_view kAccountIdentifier;
/// "Sync Identifier": names the account's sync store.
extern ROSTER_EXPORT const std::string_view kAccountSyncIdentifier;
/// "Type": one of the account types; required; also a key of the account-creators table.
extern ROSTER_EXPORT const std::string_view kAccountType;
/// "Class": name of the class that implements the full account; required.
extern ROSTER_EXPORT const std::string_view kAccountClass;
/// "DisplayName": the name shown to the user.
extern ROSTER_EXPORT const std::string_view kAccountDisplayName;
/// "Username": kept for clients, not interpreted here.
extern ROSTER_EXPORT const std::string_view kAccountUsername;
/// "Type String": the type in words.
extern ROSTER_EXPORT const std::string_view kAccountTypeString;
/// "Short Type String": the type in fewer words.
extern ROSTER_EXPORT const std::string_view kAccountShortTypeString;
/// "Supported Dataclasses": array; also what a notifier wants to hear of, in the account-creators table.
extern ROSTER_EXPORT const std::string_view kAccountSupportedDataclasses;
/// "Provisioned Dataclasses": array; what the account was set up for.
extern ROSTER_EXPORT const std::string_view kAccountProvisionedDataclasses;
/// "Enabled Dataclasses": array in no meaningful order; what the user switched on.
extern ROSTER_EXPORT const std::string_view kAccountEnabledDataclasses;
/// "Prevent Recents Syncing": kept for clients, not interpreted here.
extern ROSTER_EXPORT const std::string_view kAccountPreventRecentsSyncing;
/// "Subscribed Calendars": kept for clients, not interpreted here.
extern ROSTER_EXPORT const std::string_view kCalendarsAccountSubscribedCalendars;
/// "CalendarsWereMigrated": kept for clients, not interpreted here.
extern ROSTER_EXPORT const std::string_view kAccountCalendarsWereMigrated;
/// "ChildAccounts": array of property dictionaries, one per child account.
extern ROSTER_EXPORT const std::string_view kAccountChildAccounts;

// Keys and names of the settings file.

/// "Version": integer.
extern ROSTER_EXPORT const std::string_view kPlistVersionKey;
/// "Accounts": array of property dictionaries, one per top-level account.
extern ROSTER_EXPORT const std::string_view kPlistAccountsKey;
/// "com.nimbal.roster.plist": the bare file name.
extern ROSTER_EXPORT const std::string_view kAccountsFilename;
/// A plain C string with an absolute path, "/tmp/AccountMigrationInProgress". Below `deviceRoot`, a marker
/// stands there while a migration runs, for programs that look for it. It may be missing, or left behind by a
/// process that was killed: only `takeMigrationLock` tells for certain.
extern ROSTER_EXPORT const char kAccountMigrationLockFilename[];

// Keys of a change record, as notifiers receive it.

/// "ChangeType": integer: 0 added, 1 modified, 2 removed.
extern ROSTER_EXPORT const std::string_view kRSChangeAccountChangeTypeKey;
/// "AccountID"
extern ROSTER_EXPORT const std::string_view kRSChangeAccountIdentifierKey;
/// "AccountType"
extern ROSTER_EXPORT const std::string_view kRSChangeAccountTypeKey;
/// "OriginalDataclasses": array: what was enabled before the change.
extern ROSTER_EXPORT const std::string_view kRSChangeAccountOriginallyEnabledDataclassesKey;

// Keys of one account type's entry in the account-type table.

/// "Supported Dataclasses"
extern ROSTER_EXPORT const std::string_view kPropertiesSupportedDataclasses;
/// "Enable Actions"
extern ROSTER_EXPORT const std::string_view kPropertiesEnableDataclassActions;
/// "Disable Actions"
extern ROSTER_EXPORT const std::string_view kPropertiesDisableDataclassActions;
/// "Delete Account Actions"
extern ROSTER_EXPORT const std::string_view kPropertiesDeleteAccountActions;
/// "Show Reminders Separately"
extern ROSTER_EXPORT const std::string_view kPropertiesShowRemindersSeparately;

// Keys of one dataclass's entry in the dataclass table; each holds a boolean.

/// "Supports Multiple Stores"
extern ROSTER_EXPORT const std::string_view kDataclassSupportsMultipleStores;
/// "Display Dataclass Switch"
extern ROSTER_EXPORT const std::string_view kDataclassDisplaySwitch;
/// "Requires User Confirmation"
extern ROSTER_EXPORT const std::string_view kDataclassRequiresUserConfirmation;

// What a user may be offered when a dataclass is switched on or off.

/// "None"
extern ROSTER_EXPORT const std::string_view kDataclassToggleActionNone;
/// "Keep Local Data"
extern ROSTER_EXPORT const std::string_view kDataclassToggleActionKeepLocalData;
/// "Merge Local Data"
extern ROSTER_EXPORT const std::string_view kDataclassToggleActionMergeLocalData;
/// "Delete Local Data"
extern ROSTER_EXPORT const std::string_view kDataclassToggleActionDeleteLocalData;
/// "Merge Sync Data"
extern ROSTER_EXPORT const std::string_view kDataclassToggleActionMergeSyncData;
/// "Delete Sync Data"
extern ROSTER_EXPORT const std::string_view kDataclassToggleActionDeleteSyncData;

// What a user may be offered when an account is deleted.

/// "Merge Data"
extern ROSTER_EXPORT const std::string_view kAccountDeleteActionMergeData;
/// "Delete Data"
extern ROSTER_EXPORT const std::string_view kAccountDeleteActionDeleteData;

}  // extern "C"
}  // namespace roster
