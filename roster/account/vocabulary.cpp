#include "roster/account/vocabulary.h"

namespace roster {
extern "C" {

constinit const std::string_view kSubscribedCalendarAccountType = "Subscribed Calendar";
constinit const std::string_view kCalDAVAccountType = "CalDAV";
constinit const std::string_view kCardDAVAccountType = "CardDAV";
constinit const std::string_view kBookmarkDAVAccountType = "BookmarkDAV";
constinit const std::string_view kSMTPAccountType = "SMTP";
constinit const std::string_view kExchangeAccountType = "Exchange";
constinit const std::string_view kLDAPAccountType = "LDAP";
constinit const std::string_view kMailAccountType = "Mail";
constinit const std::string_view kNuvolaAccountType = "Nuvola";
constinit const std::string_view kGmailAccountType = "Gmail";
constinit const std::string_view kYahooAccountType = "Yahoo";
constinit const std::string_view kOnMyDeviceAccountType = "OnMyDevice";
constinit const std::string_view kIMAPNotesAccountType = "IMAPNotes";
constinit const std::string_view kNimbalAccountType = "NimbalAccount";
constinit const std::string_view kFjordIMAPAccountType = "FjordIMAP";

constinit const std::string_view kAccountDataclassMail = "com.nimbal.Dataclass.Mail";
constinit const std::string_view kAccountDataclassContacts = "com.nimbal.Dataclass.Contacts";
constinit const std::string_view kAccountDataclassCalendars = "com.nimbal.Dataclass.Calendars";
constinit const std::string_view kAccountDataclassReminders = "com.nimbal.Dataclass.Reminders";
constinit const std::string_view kAccountDataclassBookmarks = "com.nimbal.Dataclass.Bookmarks";
constinit const std::string_view kAccountDataclassNotes = "com.nimbal.Dataclass.Notes";
constinit const std::string_view kAccountDataclassMediaStream = "com.nimbal.Dataclass.MediaStream";
constinit const std::string_view kAccountDataclassDeviceLocator = "com.nimbal.Dataclass.DeviceLocator";
constinit const std::string_view kAccountDataclassContactsSearch = "com.nimbal.Dataclass.ContactsSearch";
constinit const std::string_view kAccountDataclassBackup = "com.nimbal.Dataclass.Backup";
constinit const std::string_view kAccountDataclassUbiquity = "com.nimbal.Dataclass.Ubiquity";
constinit const std::string_view kAccountDataclassKeyValue = "com.nimbal.Dataclass.KeyValue";
constinit const std::string_view kAccountDataclassSatchel = "com.nimbal.Dataclass.Satchel";
constinit const std::string_view kAccountDataclassSharedStreams = "com.nimbal.Dataclass.SharedStreams";

constinit const std::string_view kAccountIdentifier = "Identifier";
constinit const std::string_view kAccountSyncIdentifier = "Sync Identifier";
constinit const std::string_view kAccountType = "Type";
constinit const std::string_view kAccountClass = "Class";
constinit const std::string_view kAccountDisplayName = "DisplayName";
constinit const std::string_view kAccountUsername = "Username";
constinit const std::string_view kAccountTypeString = "Type String";
constinit const std::string_view kAccountShortTypeString = "Short Type String";
constinit const std::string_view kAccountSupportedDataclasses = "Supported Dataclasses";
constinit const std::string_view kAccountProvisionedDataclasses = "Provisioned Dataclasses";
constinit const std::string_view kAccountEnabledDataclasses = "Enabled Dataclasses";
constinit const std::string_view kAccountPreventRecentsSyncing = "Prevent Recents Syncing";
constinit const std::string_view kCalendarsAccountSubscribedCalendars = "Subscribed Calendars";
constinit const std::string_view kAccountCalendarsWereMigrated = "CalendarsWereMigrated";
constinit const std::string_view kAccountChildAccounts = "ChildAccounts";

constinit const std::string_view kPlistVersionKey = "Version";
constinit const std::string_view kPlistAccountsKey = "Accounts";
constinit const std::string_view kAccountsFilename = "com.nimbal.roster.plist";
const char kAccountMigrationLockFilename[] = "/tmp/AccountMigrationInProgress";

constinit const std::string_view kRSChangeAccountChangeTypeKey = "ChangeType";
constinit const std::string_view kRSChangeAccountIdentifierKey = "AccountID";
constinit const std::string_view kRSChangeAccountTypeKey = "AccountType";
constinit const std::string_view kRSChangeAccountOriginallyEnabledDataclassesKey = "OriginalDataclasses";

constinit const std::string_view kPropertiesSupportedDataclasses = "Supported Dataclasses";
constinit const std::string_view kPropertiesEnableDataclassActions = "Enable Actions";
constinit const std::string_view kPropertiesDisableDataclassActions = "Disable Actions";
constinit const std::string_view kPropertiesDeleteAccountActions = "Delete Account Actions";
constinit const std::string_view kPropertiesShowRemindersSeparately = "Show Reminders Separately";

constinit const std::string_view kDataclassSupportsMultipleStores = "Supports Multiple Stores";
constinit const std::string_view kDataclassDisplaySwitch = "Display Dataclass Switch";
constinit const std::string_view kDataclassRequiresUserConfirmation = "Requires User Confirmation";

constinit const std::string_view kDataclassToggleActionNone = "None";
constinit const std::string_view kDataclassToggleActionKeepLocalData = "Keep Local Data";
constinit const std::string_view kDataclassToggleActionMergeLocalData = "Merge Local Data";
constinit const std::string_view kDataclassToggleActionDeleteLocalData = "Delete Local Data";
constinit const std::string_view kDataclassToggleActionMergeSyncData = "Merge Sync Data";
constinit const std::string_view kDataclassToggleActionDeleteSyncData = "Delete Sync Data";

constinit const std::string_view kAccountDeleteActionMergeData = "Merge Data";
constinit const std::string_view kAccountDeleteActionDeleteData = "Delete Data";

}  // extern "C"
}  // namespace roster
