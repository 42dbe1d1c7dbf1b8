#pragma once

/// Everything a client of the library needs: the registry of the device's accounts, its records and its
/// vocabulary.

#include "account/account_creation.h"
#include "account/account_refresh.h"
#include "account/basic_account.h"
#include "account/device_local_account.h"
#include "account/full_account.h"
#include "account/vocabulary.h"
#include "diag/debug_log.h"
#include "fixers/mail_account_fixer.h"
#include "fixers/runtime_fix.h"
#include "notify/account_notifier.h"
#include "notify/change_detection.h"
#include "notify/snapshot.h"
#include "platform/assertion.h"
#include "platform/class_table.h"
#include "platform/date_text.h"
#include "platform/device.h"
#include "platform/plugin.h"
#include "platform/property_list.h"
#include "platform/resources.h"
#include "platform/system_log.h"
#include "platform/value.h"
#include "platform/value_description.h"
#include "store/accounts_manager.h"
