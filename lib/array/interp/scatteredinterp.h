#pragma once
// Interpolation of scattered data in 2 and 3 dimensions (see interpolator.h):
// linear over the Delaunay triangulation (tetrahedralisation) of the points,
// and the nearest data point.
#include <memory>

#include "interp/interpimpl.h"

namespace qvarray::interpdetail {

/// Points (n x D) and values (n x F) checked by the caller. Raise
/// "Invalid_interpolation_data" for repeated points and, for "linear",
/// "Triangulation_failed" when the points span no area (volume).
std::shared_ptr<const InterpImpl> makeScatteredLinear(const Array<double, 2>& points,
                                                      const Array<double, 2>& values,
                                                      InterpExtrapolation extrapolation);
std::shared_ptr<const InterpImpl> makeScatteredNeighbor(const Array<double, 2>& points,
                                                        const Array<double, 2>& values,
                                                        InterpExtrapolation extrapolation);

}  // namespace qvarray::interpdetail
