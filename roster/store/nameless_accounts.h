#pragma once

#include "roster/store/file_version.h"
#include "roster/store/store_state.h"

namespace roster {

/// Gives every top-level record without an identifier one, as the next load of it would, and the account that
/// the base has for it the same. Accounts that only the base has without one get one too.
void nameAccounts(StoreState& store);

/// Somebody else has named an account that was stored without an identifier: this store goes over from the
/// one that it drew to the one that everybody reads.
void adoptNames(StoreState& store, const FileVersion& file);

}  // namespace roster
