#include "ProductClient/ProductRequests.h"

#include <mutex>
#include <utility>

namespace qbdkr {

void ProductRequests::setProduct(ProductIdentity product) {
  const std::lock_guard lock(mutex_);
  product_ = std::move(product);
}

ProductIdentity ProductRequests::product(const ProductRequests& requests) {
  const std::lock_guard lock(requests.mutex_);
  return requests.product_;
}

ProductIdentity ProductRequests::productOfData(const ProductRequests& requests) {
  return {requests.records_.collectDataPID(), product(requests).version};
}

}  // namespace qbdkr
