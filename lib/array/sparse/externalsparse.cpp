// ExternalSparse and Sparse's handle on it.
#include "qvarray/sparse/externalsparse.h"

#include "sparse/sparseimpl.h"

namespace qvarray {

ExternalSparse::~ExternalSparse() = default;

void Sparse::attachExtData(std::shared_ptr<ExternalSparse> ext) {
  extData_ = std::move(ext);
  hasExtData_ = extData_ != nullptr;
}

bool Sparse::setExtData() const { return hasExtData_ && extData_->setUp(*this); }

}  // namespace qvarray
