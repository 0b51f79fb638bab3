#include "ProductClient/ProductRequests.h"

#include <mutex>
#include <utility>

namespace qbdkr {

void ProductRequests::setProduct(ProductIdentity product) {
  const std::lock_guard lock(mutex_);
  product_ = std::move(product);
}

ProductIdentity ProductRequests::product() const {
  const std::lock_guard lock(mutex_);
  return product_;
}

ProductIdentity ProductRequests::productOfData() const {
  return {records_.collectDataPID(), product().version};
}

}  // namespace qbdkr
