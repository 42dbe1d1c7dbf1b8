#include "roster/account/record_contents.h"

#include "roster/value/representation.h"

namespace roster {

RecordContents::RecordContents(AccountPtr record, Dictionary properties, Dictionary original)
    : record_(std::move(record)), properties_(std::move(properties)), original_(std::move(original)) {
  if (!record_->_properties && !properties_.sharesContentsWith(original_))
    live_ = MutableDictionary::copyOf(properties_);
}

void RecordContents::putInPlace() noexcept {
  record_->_originalProperties = std::move(original_);
  if (record_->_properties) {
    Value live = *record_->_properties;
    ValueAccess::liveNode(live).replace(ValueAccess::contents(properties_));
  } else if (live_) {
    record_->_properties = std::move(live_);
  }
}

}  // namespace roster
