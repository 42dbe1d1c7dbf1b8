#include "account/vocabulary.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <sstream>

namespace roster::testing {
namespace {

constexpr const char* constants = R"(
kSubscribedCalendarAccountType=Subscribed Calendar; kCalDAVAccountType=CalDAV; kCardDAVAccountType=CardDAV;
kBookmarkDAVAccountType=BookmarkDAV; kSMTPAccountType=SMTP; kExchangeAccountType=Exchange;
kLDAPAccountType=LDAP; kMailAccountType=Mail; kNuvolaAccountType=Nuvola; kGmailAccountType=Gmail;
kYahooAccountType=Yahoo; kOnMyDeviceAccountType=OnMyDevice; kIMAPNotesAccountType=IMAPNotes;
kNimbalAccountType=NimbalAccount; kFjordIMAPAccountType=FjordIMAP;
kAccountDataclassMail=com.nimbal.Dataclass.Mail; kAccountDataclassContacts=com.nimbal.Dataclass.Contacts;
kAccountDataclassCalendars=com.nimbal.Dataclass.Calendars;
kAccountDataclassReminders=com.nimbal.Dataclass.Reminders;
kAccountDataclassBookmarks=com.nimbal.Dataclass.Bookmarks;
kAccountDataclassNotes=com.nimbal.Dataclass.Notes;
kAccountDataclassMediaStream=com.nimbal.Dataclass.MediaStream;
kAccountDataclassDeviceLocator=com.nimbal.Dataclass.DeviceLocator;
kAccountDataclassContactsSearch=com.nimbal.Dataclass.ContactsSearch;
kAccountDataclassBackup=com.nimbal.Dataclass.Backup;
kAccountDataclassUbiquity=com.nimbal.Dataclass.Ubiquity;
kAccountDataclassKeyValue=com.nimbal.Dataclass.KeyValue;
kAccountDataclassSatchel=com.nimbal.Dataclass.Satchel;
kAccountDataclassSharedStreams=com.nimbal.Dataclass.SharedStreams; kAccountIdentifier=Identifier;
kAccountSyncIdentifier=Sync Identifier; kAccountType=Type; kAccountClass=Class;
kAccountDisplayName=DisplayName; kAccountUsername=Username; kAccountTypeString=Type String;
kAccountShortTypeString=Short Type String; kAccountSupportedDataclasses=Supported Dataclasses;
kAccountProvisionedDataclasses=Provisioned Dataclasses; kAccountEnabledDataclasses=Enabled Dataclasses;
kAccountPreventRecentsSyncing=Prevent Recents Syncing;
kCalendarsAccountSubscribedCalendars=Subscribed Calendars;
kAccountCalendarsWereMigrated=CalendarsWereMigrated; kAccountChildAccounts=ChildAccounts;
kPlistVersionKey=Version; kPlistAccountsKey=Accounts; kAccountsFilename=com.nimbal.roster.plist;
kRSChangeAccountChangeTypeKey=ChangeType; kRSChangeAccountIdentifierKey=AccountID;
kRSChangeAccountTypeKey=AccountType; kRSChangeAccountOriginallyEnabledDataclassesKey=OriginalDataclasses;
kPropertiesSupportedDataclasses=Supported Dataclasses; kPropertiesEnableDataclassActions=Enable Actions;
kPropertiesDisableDataclassActions=Disable Actions; kPropertiesDeleteAccountActions=Delete Account Actions;
kPropertiesShowRemindersSeparately=Show Reminders Separately;
kDataclassSupportsMultipleStores=Supports Multiple Stores;
kDataclassDisplaySwitch=Display Dataclass Switch;
kDataclassRequiresUserConfirmation=Requires User Confirmation; kDataclassToggleActionNone=None;
kDataclassToggleActionKeepLocalData=Keep Local Data; kDataclassToggleActionMergeLocalData=Merge Local Data;
kDataclassToggleActionDeleteLocalData=Delete Local Data;
kDataclassToggleActionMergeSyncData=Merge Sync Data; kDataclassToggleActionDeleteSyncData=Delete Sync Data;
kAccountDeleteActionMergeData=Merge Data; kAccountDeleteActionDeleteData=Delete Data;
)";

/// Some code runs before main, and before or after anything else that does.
const std::string readBeforeMain =
    std::string(kSubscribedCalendarAccountType).append(kAccountMigrationLockFilename);

TEST(Vocabulary, CanBeReadBeforeMain) {
  EXPECT_EQ(readBeforeMain, "Subscribed Calendar/tmp/AccountMigrationInProgress");
}

TEST(Vocabulary, IsExportedFromTheLibraryUnderExactlyItsNames) {
  if (dlsym(RTLD_DEFAULT, "__asan_init") != nullptr) {
    GTEST_SKIP() << "this program has constants of the same names, which the sanitizer takes for a mistake";
  }
  void* library = dlopen(ROSTER_TEST_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  int count = 0;
  std::istringstream table(constants);
  for (std::string name, text; std::getline(table >> std::ws, name, '=') && std::getline(table, text, ';');
       ++count) {
    const auto* constant = static_cast<const std::string_view*>(dlsym(library, name.c_str()));
    ASSERT_NE(constant, nullptr) << dlerror();
    EXPECT_EQ(*constant, text) << name;
  }
  EXPECT_EQ(count, 67);
  const auto* path = static_cast<const char*>(dlsym(library, "kAccountMigrationLockFilename"));
  ASSERT_NE(path, nullptr) << dlerror();
  EXPECT_STREQ(path, "/tmp/AccountMigrationInProgress");
}

}  // namespace
}  // namespace roster::testing
