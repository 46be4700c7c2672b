#pragma once
// The Boost.Math error policy of the library: a domain error or a pole gives
// NaN, an overflow +-inf; nothing throws and errno is left alone.
#include <boost/math/policies/policy.hpp>

namespace qvsf::detail {

namespace bmp = boost::math::policies;
using Policy =
    bmp::policy<bmp::domain_error<bmp::ignore_error>, bmp::pole_error<bmp::ignore_error>,
                bmp::overflow_error<bmp::ignore_error>, bmp::underflow_error<bmp::ignore_error>,
                bmp::evaluation_error<bmp::ignore_error>, bmp::rounding_error<bmp::ignore_error>>;

}  // namespace qvsf::detail
