// A tour of the dense kernels: level-1 operations on arrays, a complex dot
// product, a matrix-vector product, and what a kernel does with bad input.
#include <complex>
#include <cstdio>

#include "qvarray/arrayutil.h"
#include "qvarray/blasruntime.h"
#include "qvarray/init.h"
#include "qvutil/exception.h"

using dcomplex = std::complex<double>;

int main(int argc, char** argv) {
  qvarray::relaunchWithFastBlas(argc, argv);
  qvarray::initializeArray();

  // x = (1, 2, 3, 4), y = (1, 1, 1, 1)
  Array<double, 1> x(4), y(4);
  for (size_t i = 0; i < x.count; ++i) x[i] = static_cast<double>(i + 1);
  y.fill(1.0);

  std::printf("x.y          = %g\n", qvarray::dot(x, y));  // 10
  qvarray::yPlusaMulx(y, 2.0, x);                          // y += 2x -> (3, 5, 7, 9)
  qvarray::scale(y, 0.5);                                  // y *= 0.5 -> (1.5, 2.5, 3.5, 4.5)
  std::printf("y            = %g %g %g %g\n", y[0], y[1], y[2], y[3]);
  std::printf("||y||        = %g\n", qvarray::norm(y));

  // Complex: ConjTrans conjugates the first operand, as in u^H v.
  Array<dcomplex, 1> u(2), v(2);
  u[0] = {0, 1};
  u[1] = {1, 0};
  v[0] = {0, 1};
  v[1] = {2, 0};
  const dcomplex uHv = qvarray::dot(u, v, qvarray::ConjTrans);  // conj(i)*i + 1*2 = 3
  const dcomplex uTv = qvarray::dot(u, v, qvarray::NoTrans);    // i*i + 1*2 = 1
  std::printf("u^H v        = %g%+gi\n", uHv.real(), uHv.imag());
  std::printf("u^T v        = %g%+gi\n", uTv.real(), uTv.imag());

  // z += A*x on a 2 x 4 matrix; storage is column-major, A(i, j) = i + j.
  Array<double, 2> A(2, 4);
  for (size_t j = 0; j < 4; ++j)
    for (size_t i = 0; i < 2; ++i) A(i, j) = static_cast<double>(i + j);
  Array<double, 1> z(2);
  z.fill(0.0);
  qvarray::yPlusAMulx(z, A, x, qvarray::NoTrans);  // (20, 30)
  std::printf("A*x          = %g %g\n", z[0], z[1]);

  // Lengths are checked before anything is changed; errors are exceptions
  // with a key for the program's message catalogue and the kernel's sentence.
  Array<double, 1> shorter(3);
  shorter.fill(0.0);
  try {
    qvarray::dot(x, shorter);
    return 1;
  } catch (const qvbase::Exception& e) {
    std::printf("dot(x, shorter) -> %s: %s\n", e.key().c_str(), e.detailText(0).c_str());
  }
  return uHv == dcomplex(3, 0) && z[1] == 30 ? 0 : 1;
}
