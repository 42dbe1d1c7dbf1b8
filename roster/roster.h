#pragma once

/// Everything a client of the library needs: the registry of the device's accounts, its records and its
/// vocabulary. What cannot be reached from here is not installed.

/// The version that a client is compiled against. The build reads it from these lines, and nothing else
/// states it.
#define ROSTER_VERSION_MAJOR 1
#define ROSTER_VERSION_MINOR 0
#define ROSTER_VERSION_PATCH 0

#include "roster/account/account_protocols.h"
#include "roster/account/basic_account.h"
#include "roster/account/creator_entries.h"
#include "roster/account/device_local_account.h"
#include "roster/account/property_types.h"
#include "roster/account/vocabulary.h"
#include "roster/base/base64.h"
#include "roster/base/result.h"
#include "roster/base/single_line.h"
#include "roster/base/unicode.h"
#include "roster/diag/debug_log.h"
#include "roster/fixers/mail_account_fixer.h"
#include "roster/fixers/runtime_fix.h"
#include "roster/migration/migration.h"
#include "roster/notify/account_notifier.h"
#include "roster/notify/change_detection.h"
#include "roster/platform/assertion.h"
#include "roster/platform/class_table.h"
#include "roster/platform/device.h"
#include "roster/platform/plugin.h"
#include "roster/platform/property_list_file.h"
#include "roster/platform/resources.h"
#include "roster/platform/system_log.h"
#include "roster/plist/property_list.h"
#include "roster/store/account_collections.h"
#include "roster/store/accounts_manager.h"
#include "roster/store/registry_check.h"
#include "roster/store/registry_lock.h"
#include "roster/store/registry_watch.h"
#include "roster/value/date.h"
#include "roster/value/mutable_dictionary.h"
#include "roster/value/value.h"
#include "roster/value/value_description.h"
