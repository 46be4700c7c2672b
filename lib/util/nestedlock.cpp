#include "qvutil/nestedlock.h"

#include <omp.h>

namespace qvbase {

NestedLock::NestedLock() : impl_(new omp_nest_lock_t) {
  omp_init_nest_lock(static_cast<omp_nest_lock_t*>(impl_));
}

NestedLock::~NestedLock() {
  omp_destroy_nest_lock(static_cast<omp_nest_lock_t*>(impl_));
  delete static_cast<omp_nest_lock_t*>(impl_);
}

void NestedLock::lock() { omp_set_nest_lock(static_cast<omp_nest_lock_t*>(impl_)); }
void NestedLock::unlock() { omp_unset_nest_lock(static_cast<omp_nest_lock_t*>(impl_)); }

}  // namespace qvbase
