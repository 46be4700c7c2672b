// Conversions between Java arrays and the library's arrays, vectors,
// matrices and sparse matrices (jniarrayutil.h). Whole arrays move with one
// region copy; rows and split parts are reordered through critical access,
// so no buffer sits between the Java array and the library's storage.
#include "qvarray/jni/jniarrayutil.h"

#include <cstdint>
#include <limits>
#include <memory>

#include "qvarray/jni/jniaccess.h"
#include "qvarray/jni/qvjarray.h"
#include "qvarray/sparse/llsparse.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

using qvbase::LocalRef;

[[noreturn]] void sizesDisagree(const char* what) {
  QV_RAISE(qvjarray, Java_array_sizes_disagree, what);
}

// Length of a new Java array of n elements.
jsize javaSize(size_t n) {
  if (n > static_cast<size_t>(std::numeric_limits<jsize>::max()))
    sizesDisagree("More elements than a Java array holds.");
  return static_cast<jsize>(n);
}

size_t sizeFromJava(jlong v) {
  if (v < 0) sizesDisagree("Negative size.");
  return static_cast<size_t>(v);
}

// A new Java array of n elements of type T.
template <class T>
typename JavaArrayTraits<T>::array newArray(JNIEnv* env, size_t n) {
  auto a = JavaArrayTraits<T>::make(env, javaSize(n));
  if (!a) QV_RAISE(jniaccess, JNI_error, "No new Java array.");
  return a;
}

// Whole-array copies, straight between the Java array and `to` / `from`.
template <class T>
void readAll(JNIEnv* env, typename JavaArrayTraits<T>::array a, size_t n, T* to) {
  if (n) JavaArrayTraits<T>::getRegion(env, a, 0, static_cast<jsize>(n), to);
}

template <class T>
typename JavaArrayTraits<T>::array newFilled(JNIEnv* env, const T* from, size_t n) {
  auto a = newArray<T>(env, n);
  if (n) JavaArrayTraits<T>::setRegion(env, a, 0, static_cast<jsize>(n), from);
  return a;
}

// Element i of an array of arrays (a local reference); "Null_Java_array"
// for a null row.
jdoubleArray rowAt(JNIEnv* env, jobjectArray rows, size_t i) {
  auto row = static_cast<jdoubleArray>(env->GetObjectArrayElement(rows, static_cast<jsize>(i)));
  if (!row) detail::raiseNullJavaArray("row");
  return row;
}

// Interleaved (re, im) doubles are std::complex values: same layout.
dcomplex* asComplex(jdouble* p) { return reinterpret_cast<dcomplex*>(p); }

size_t complexCount(size_t interleavedLength) {
  if (interleavedLength % 2) sizesDisagree("Odd length of interleaved complex values.");
  return interleavedLength / 2;
}

// Reads an array of m rows into the column-major m×n `A`, where n is the
// length of the first row: put(A, i, row) stores row i, given its length.
template <class T, class Put>
Array<T, 2> readRows(JNIEnv* env, jobjectArray rows, size_t (*columns)(size_t), Put put) {
  const size_t m = javaLength(env, rows, "array of rows");
  Array<T, 2> A;
  for (size_t i = 0; i < m; ++i) {
    LocalRef<jdoubleArray> row(env, rowAt(env, rows, i));
    const size_t length = javaLength(env, row.get(), "row");
    const size_t n = columns(length);
    if (i == 0)
      A.resize(m, n);
    else if (n != A.sizes[1])
      sizesDisagree("Rows of different lengths.");
    jdoubleArrayRH r(env, row.get(), length, JMode::ReadOnly, JAccess::Critical);
    put(A, i, r.data());
  }
  return A;
}

size_t sameLength(size_t n) { return n; }

// Element i of an array of slabs (a local reference); "Null_Java_array" for
// a null slab.
jobjectArray slabAt(JNIEnv* env, jobjectArray slabs, size_t i) {
  auto slab = static_cast<jobjectArray>(env->GetObjectArrayElement(slabs, static_cast<jsize>(i)));
  if (!slab) detail::raiseNullJavaArray("slab");
  return slab;
}

// The l×m×n shape of an array of slabs, learnt as it is read: l at once, m
// from the first slab, n from the first row; every later slab and row must
// agree.
struct SlabShape {
  size_t l, m = 0, n = 0;
  void slab(size_t i, size_t rows) {
    if (i == 0)
      m = rows;
    else if (rows != m)
      sizesDisagree("Slabs of different numbers of rows.");
  }
  // True for the first row, whose length sets n.
  bool row(size_t i, size_t j, size_t columns) {
    if (i == 0 && j == 0) {
      n = columns;
      return true;
    }
    if (columns != n) sizesDisagree("Rows of different lengths.");
    return false;
  }
};

// Reads an array of l slabs of m rows into the column-major l×m×n `A`:
// put(A, i, j, row) stores row j of slab i. Slabs and rows are released as
// each is read.
template <class T, class Put>
Array<T, 3> readSlabs(JNIEnv* env, jobjectArray slabs, size_t (*columns)(size_t), Put put) {
  SlabShape shape{javaLength(env, slabs, "array of slabs")};
  Array<T, 3> A;
  for (size_t i = 0; i < shape.l; ++i) {
    LocalRef<jobjectArray> slab(env, slabAt(env, slabs, i));
    shape.slab(i, javaLength(env, slab.get(), "array of rows"));
    for (size_t j = 0; j < shape.m; ++j) {
      LocalRef<jdoubleArray> row(env, rowAt(env, slab.get(), j));
      const size_t length = javaLength(env, row.get(), "row");
      if (shape.row(i, j, columns(length))) A.resize(shape.l, shape.m, shape.n);
      jdoubleArrayRH r(env, row.get(), length, JMode::ReadOnly, JAccess::Critical);
      put(A, i, j, r.data());
    }
  }
  if (!A.count) A.resize(shape.l, shape.m, shape.n);
  return A;
}

// m new rows of `width` doubles as a new double[][] of class `rowClass`:
// fill(i, row) fills row i. Each row's local reference goes once it is stored.
template <class Fill>
jobjectArray newRows(JNIEnv* env, jclass rowClass, size_t m, size_t width, Fill fill) {
  LocalRef<jobjectArray> out(env, env->NewObjectArray(javaSize(m), rowClass, nullptr));
  if (!out.get()) QV_RAISE(jniaccess, JNI_error, "No new Java array.");
  for (size_t i = 0; i < m; ++i) {
    LocalRef<jdoubleArray> row(env, newArray<jdouble>(env, width));
    {
      jdoubleArrayRH r(env, row.get(), width, JMode::ReadWrite, JAccess::Critical);
      fill(i, r.data());
    }
    env->SetObjectArrayElement(out.get(), static_cast<jsize>(i), row.get());
  }
  return out.release();
}

jclass findArrayClass(JNIEnv* env, const char* name) {
  jclass c = env->FindClass(name);
  if (!c) QV_RAISE(jniaccess, JNI_error, "FindClass failed.", name);
  return c;
}

// Writes the m×n `A` as m new rows of `width` doubles: get(A, i, row) fills
// row i.
template <class T, class Get>
jobjectArray writeRows(JNIEnv* env, const Array<T, 2>& A, size_t width, Get get) {
  LocalRef<jclass> rowClass(env, findArrayClass(env, "[D"));
  return newRows(env, rowClass.get(), A.sizes[0], width,
                 [&](size_t i, jdouble* r) { get(A, i, r); });
}

// Writes the l×m×n `A` as l new slabs of m rows of `width` doubles:
// get(A, i, j, row) fills row j of slab i.
template <class T, class Get>
jobjectArray writeSlabs(JNIEnv* env, const Array<T, 3>& A, size_t width, Get get) {
  const size_t l = A.sizes[0], m = A.sizes[1];
  LocalRef<jclass> rowClass(env, findArrayClass(env, "[D"));
  LocalRef<jclass> slabClass(env, findArrayClass(env, "[[D"));
  LocalRef<jobjectArray> out(env, env->NewObjectArray(javaSize(l), slabClass.get(), nullptr));
  if (!out.get()) QV_RAISE(jniaccess, JNI_error, "No new Java array.");
  for (size_t i = 0; i < l; ++i) {
    LocalRef<jobjectArray> slab(env, newRows(env, rowClass.get(), m, width,
                                             [&](size_t j, jdouble* r) { get(A, i, j, r); }));
    env->SetObjectArrayElement(out.get(), static_cast<jsize>(i), slab.get());
  }
  return out.release();
}

template <class J, class A>
Array<size_t, 1> indicesFrom(JNIEnv* env, A a) {
  const size_t n = javaLength(env, a, JavaArrayTraits<J>::name);
  Array<size_t, 1> out(n);
  JArrayRH<J> in(env, a, n, JMode::ReadOnly, JAccess::Critical);
  for (size_t k = 0; k < n; ++k)
    out.data[k] = in[k] < 0 ? SIZE_MAX : static_cast<size_t>(in[k]);
  return out;
}

// Adopts the compressed columns (checked here for their lengths, by the
// storage for their contents) as a Sparse.
template <class T>
Sparse compressedColumns(const size_t* colPtr, size_t nColPtr, const size_t* rowIndex,
                         size_t nRowIndex, const T* values, size_t nValues, size_t m, size_t n) {
  if (nColPtr != n + 1) sizesDisagree("Column pointers must number columns + 1.");
  if (nRowIndex != nValues || colPtr[n] != nValues)
    sizesDisagree("Row indices, values and the last column pointer disagree.");
  auto store = std::make_shared<llsparse<T>>();
  store->setCompressed(nValues ? rowIndex : nullptr, colPtr, nValues ? values : nullptr, m, n);
  return Sparse(std::move(store));
}

// A sparse matrix of real values, or complex ones split into `re` and `im`,
// with the column pointers and row indices already as size_t.
Sparse sparseValues(JNIEnv* env, const Array<size_t, 1>& colPtr, const Array<size_t, 1>& rowIndex,
                    jdoubleArray re, jdoubleArray im, size_t m, size_t n) {
  if (im) {
    const Array<dcomplex, 1> z = getComplexArray(env, re, im);
    return compressedColumns(colPtr.data, colPtr.count, rowIndex.data, rowIndex.count, z.data,
                             z.count, m, n);
  }
  const size_t length = javaLength(env, re, "double[]");
  jdoubleArrayRH v(env, re, length, JMode::ReadOnly, JAccess::Critical);
  return compressedColumns(colPtr.data, colPtr.count, rowIndex.data, rowIndex.count, v.data(),
                           length, m, n);
}

}  // namespace

// ---- Java to the library -------------------------------------------------------

Array<double, 1> getArray(JNIEnv* env, jdoubleArray a) {
  Array<double, 1> out(javaLength(env, a, "double[]"));
  readAll(env, a, out.count, out.data);
  return out;
}

Array<int, 1> getArray(JNIEnv* env, jintArray a) {
  Array<int, 1> out(javaLength(env, a, "int[]"));
  readAll(env, a, out.count, out.data);
  return out;
}

Array<size_t, 1> getIndexArray(JNIEnv* env, jintArray a) { return indicesFrom<jint>(env, a); }
Array<size_t, 1> getIndexArray(JNIEnv* env, jlongArray a) { return indicesFrom<jlong>(env, a); }

Array<double, 2> getArray2(JNIEnv* env, jobjectArray rows) {
  return readRows<double>(env, rows, sameLength, [](Array<double, 2>& A, size_t i, jdouble* r) {
    const size_t m = A.sizes[0];
    for (size_t j = 0; j < A.sizes[1]; ++j) A.data[i + j * m] = r[j];
  });
}

Array<double, 2> getArray2(JNIEnv* env, jdoubleArray colMajor, jlong m, jlong n) {
  const size_t rows = sizeFromJava(m), cols = sizeFromJava(n);
  if (javaLength(env, colMajor, "double[]") != rows * cols)
    sizesDisagree("Length of a flat matrix is not rows times columns.");
  Array<double, 2> out(rows, cols);
  readAll(env, colMajor, out.count, out.data);
  return out;
}

Array<dcomplex, 1> getComplexArray(JNIEnv* env, jdoubleArray interleaved) {
  const size_t length = javaLength(env, interleaved, "double[]");
  Array<dcomplex, 1> out(complexCount(length));
  readAll(env, interleaved, length, reinterpret_cast<jdouble*>(out.data));
  return out;
}

Array<dcomplex, 1> getComplexArray(JNIEnv* env, jdoubleArray re, jdoubleArray im) {
  const size_t n = javaLength(env, re, "double[]");
  if (javaLength(env, im, "double[]") != n)
    sizesDisagree("Real and imaginary parts of different lengths.");
  Array<dcomplex, 1> out(n);
  jdoubleArrayRH r(env, re, n, JMode::ReadOnly, JAccess::Critical);
  jdoubleArrayRH s(env, im, n, JMode::ReadOnly, JAccess::Critical);
  for (size_t k = 0; k < n; ++k) out.data[k] = dcomplex(r[k], s[k]);
  return out;
}

Array<dcomplex, 2> getComplexArray2(JNIEnv* env, jobjectArray rowsInterleaved) {
  return readRows<dcomplex>(env, rowsInterleaved, complexCount,
                            [](Array<dcomplex, 2>& A, size_t i, jdouble* r) {
                              const dcomplex* z = asComplex(r);
                              const size_t m = A.sizes[0];
                              for (size_t j = 0; j < A.sizes[1]; ++j) A.data[i + j * m] = z[j];
                            });
}

Array<dcomplex, 2> getComplexArray2(JNIEnv* env, jobjectArray reRows, jobjectArray imRows) {
  const size_t m = javaLength(env, reRows, "array of rows");
  if (javaLength(env, imRows, "array of rows") != m)
    sizesDisagree("Real and imaginary parts of different shapes.");
  Array<dcomplex, 2> A;
  for (size_t i = 0; i < m; ++i) {
    LocalRef<jdoubleArray> re(env, rowAt(env, reRows, i)), im(env, rowAt(env, imRows, i));
    const size_t n = javaLength(env, re.get(), "row");
    if (javaLength(env, im.get(), "row") != n)
      sizesDisagree("Real and imaginary parts of different shapes.");
    if (i == 0)
      A.resize(m, n);
    else if (n != A.sizes[1])
      sizesDisagree("Rows of different lengths.");
    jdoubleArrayRH r(env, re.get(), n, JMode::ReadOnly, JAccess::Critical);
    jdoubleArrayRH s(env, im.get(), n, JMode::ReadOnly, JAccess::Critical);
    for (size_t j = 0; j < n; ++j) A.data[i + j * m] = dcomplex(r[j], s[j]);
  }
  return A;
}

Array<dcomplex, 2> getComplexArray2(JNIEnv* env, jdoubleArray colMajor, jlong m, jlong n) {
  const size_t rows = sizeFromJava(m), cols = sizeFromJava(n);
  const size_t length = javaLength(env, colMajor, "double[]");
  if (complexCount(length) != rows * cols)
    sizesDisagree("Length of a flat matrix is not rows times columns.");
  Array<dcomplex, 2> out(rows, cols);
  readAll(env, colMajor, length, reinterpret_cast<jdouble*>(out.data));
  return out;
}

Array<double, 3> getArray3(JNIEnv* env, jobjectArray slabs) {
  return readSlabs<double>(env, slabs, sameLength,
                           [](Array<double, 3>& A, size_t i, size_t j, jdouble* r) {
                             for (size_t k = 0; k < A.sizes[2]; ++k) A(i, j, k) = r[k];
                           });
}

Array<double, 3> getArray3(JNIEnv* env, jdoubleArray colMajor, jlong l, jlong m, jlong n) {
  const size_t s0 = sizeFromJava(l), s1 = sizeFromJava(m), s2 = sizeFromJava(n);
  if (javaLength(env, colMajor, "double[]") != s0 * s1 * s2)
    sizesDisagree("Length of a flat array is not the product of its sizes.");
  Array<double, 3> out(s0, s1, s2);
  readAll(env, colMajor, out.count, out.data);
  return out;
}

Array<dcomplex, 3> getComplexArray3(JNIEnv* env, jobjectArray slabsInterleaved) {
  return readSlabs<dcomplex>(env, slabsInterleaved, complexCount,
                             [](Array<dcomplex, 3>& A, size_t i, size_t j, jdouble* r) {
                               const dcomplex* z = asComplex(r);
                               for (size_t k = 0; k < A.sizes[2]; ++k) A(i, j, k) = z[k];
                             });
}

Array<dcomplex, 3> getComplexArray3(JNIEnv* env, jobjectArray reSlabs, jobjectArray imSlabs) {
  SlabShape shape{javaLength(env, reSlabs, "array of slabs")};
  if (javaLength(env, imSlabs, "array of slabs") != shape.l)
    sizesDisagree("Real and imaginary parts of different shapes.");
  Array<dcomplex, 3> A;
  for (size_t i = 0; i < shape.l; ++i) {
    LocalRef<jobjectArray> reSlab(env, slabAt(env, reSlabs, i));
    LocalRef<jobjectArray> imSlab(env, slabAt(env, imSlabs, i));
    const size_t m = javaLength(env, reSlab.get(), "array of rows");
    if (javaLength(env, imSlab.get(), "array of rows") != m)
      sizesDisagree("Real and imaginary parts of different shapes.");
    shape.slab(i, m);
    for (size_t j = 0; j < m; ++j) {
      LocalRef<jdoubleArray> re(env, rowAt(env, reSlab.get(), j));
      LocalRef<jdoubleArray> im(env, rowAt(env, imSlab.get(), j));
      const size_t n = javaLength(env, re.get(), "row");
      if (javaLength(env, im.get(), "row") != n)
        sizesDisagree("Real and imaginary parts of different shapes.");
      if (shape.row(i, j, n)) A.resize(shape.l, shape.m, shape.n);
      jdoubleArrayRH r(env, re.get(), n, JMode::ReadOnly, JAccess::Critical);
      jdoubleArrayRH s(env, im.get(), n, JMode::ReadOnly, JAccess::Critical);
      for (size_t k = 0; k < n; ++k) A(i, j, k) = dcomplex(r[k], s[k]);
    }
  }
  if (!A.count) A.resize(shape.l, shape.m, shape.n);
  return A;
}

Array<dcomplex, 3> getComplexArray3(JNIEnv* env, jdoubleArray colMajor, jlong l, jlong m, jlong n) {
  const size_t s0 = sizeFromJava(l), s1 = sizeFromJava(m), s2 = sizeFromJava(n);
  const size_t length = javaLength(env, colMajor, "double[]");
  if (complexCount(length) != s0 * s1 * s2)
    sizesDisagree("Length of a flat array is not the product of its sizes.");
  Array<dcomplex, 3> out(s0, s1, s2);
  readAll(env, colMajor, length, reinterpret_cast<jdouble*>(out.data));
  return out;
}

Vector getVector(JNIEnv* env, jdoubleArray re, jdoubleArray im) {
  return im ? Vector(getComplexArray(env, re, im)) : Vector(getArray(env, re));
}

Vector getComplexVector(JNIEnv* env, jdoubleArray interleaved) {
  return Vector(getComplexArray(env, interleaved));
}

Matrix getMatrix(JNIEnv* env, jobjectArray reRows, jobjectArray imRows) {
  return imRows ? Matrix(getComplexArray2(env, reRows, imRows)) : Matrix(getArray2(env, reRows));
}

Matrix getComplexMatrix(JNIEnv* env, jobjectArray rowsInterleaved) {
  return Matrix(getComplexArray2(env, rowsInterleaved));
}

Sparse getSparse(JNIEnv* env, jintArray colPtr, jintArray rowIndex, jdoubleArray re,
                 jdoubleArray im, jlong m, jlong n) {
  const size_t rows = sizeFromJava(m), cols = sizeFromJava(n);
  const Array<size_t, 1> cp = getIndexArray(env, colPtr), ri = getIndexArray(env, rowIndex);
  return sparseValues(env, cp, ri, re, im, rows, cols);
}

// long[] indices are read in place: a jlong has the bits of a size_t, and a
// negative one reads as an index beyond every size.
static_assert(sizeof(jlong) == sizeof(size_t));

Sparse getSparse(JNIEnv* env, jlongArray colPtr, jlongArray rowIndex, jdoubleArray re,
                 jdoubleArray im, jlong m, jlong n) {
  const size_t rows = sizeFromJava(m), cols = sizeFromJava(n);
  const size_t nc = javaLength(env, colPtr, "long[]"), nr = javaLength(env, rowIndex, "long[]");
  if (im) {
    // Split values are interleaved first, which takes JNI calls: indices
    // are then read by copy rather than held critically across them.
    const Array<size_t, 1> cp = getIndexArray(env, colPtr), ri = getIndexArray(env, rowIndex);
    return sparseValues(env, cp, ri, re, im, rows, cols);
  }
  const size_t nv = javaLength(env, re, "double[]");
  jlongArrayRH c(env, colPtr, nc, JMode::ReadOnly, JAccess::Critical);
  jlongArrayRH r(env, rowIndex, nr, JMode::ReadOnly, JAccess::Critical);
  jdoubleArrayRH v(env, re, nv, JMode::ReadOnly, JAccess::Critical);
  return compressedColumns(reinterpret_cast<const size_t*>(c.data()), nc,
                           reinterpret_cast<const size_t*>(r.data()), nr, v.data(), nv, rows,
                           cols);
}

Sparse getComplexSparse(JNIEnv* env, jlongArray colPtr, jlongArray rowIndex,
                        jdoubleArray interleaved, jlong m, jlong n) {
  const size_t rows = sizeFromJava(m), cols = sizeFromJava(n);
  const size_t nc = javaLength(env, colPtr, "long[]"), nr = javaLength(env, rowIndex, "long[]");
  const size_t nv = javaLength(env, interleaved, "double[]");
  jlongArrayRH c(env, colPtr, nc, JMode::ReadOnly, JAccess::Critical);
  jlongArrayRH r(env, rowIndex, nr, JMode::ReadOnly, JAccess::Critical);
  jdoubleArrayRH v(env, interleaved, nv, JMode::ReadOnly, JAccess::Critical);
  return compressedColumns(reinterpret_cast<const size_t*>(c.data()), nc,
                           reinterpret_cast<const size_t*>(r.data()), nr, asComplex(v.data()),
                           complexCount(nv), rows, cols);
}

// ---- the library to Java ---------------------------------------------------------

jdoubleArray newJavaArray(JNIEnv* env, const Array<double, 1>& a) {
  return newFilled<jdouble>(env, a.data, a.count);
}

jintArray newJavaArray(JNIEnv* env, const Array<int, 1>& a) {
  return newFilled<jint>(env, a.data, a.count);
}

jlongArray newJavaIndexArray(JNIEnv* env, const Array<size_t, 1>& a) {
  return newFilled<jlong>(env, reinterpret_cast<const jlong*>(a.data), a.count);
}

jdoubleArray newJavaArray(JNIEnv* env, const Array<dcomplex, 1>& a) {
  return newFilled<jdouble>(env, reinterpret_cast<const jdouble*>(a.data), 2 * a.count);
}

jobjectArray newJavaArray(JNIEnv* env, const Array<double, 2>& a) {
  return writeRows(env, a, a.sizes[1], [](const Array<double, 2>& A, size_t i, jdouble* r) {
    for (size_t j = 0; j < A.sizes[1]; ++j) r[j] = A(i, j);
  });
}

jobjectArray newJavaArray(JNIEnv* env, const Array<dcomplex, 2>& a) {
  return writeRows(env, a, 2 * a.sizes[1], [](const Array<dcomplex, 2>& A, size_t i, jdouble* r) {
    dcomplex* z = asComplex(r);
    for (size_t j = 0; j < A.sizes[1]; ++j) z[j] = A(i, j);
  });
}

jdoubleArray newJavaPart(JNIEnv* env, const Array<dcomplex, 1>& a, bool imag) {
  auto out = newArray<jdouble>(env, a.count);
  jdoubleArrayRH r(env, out, a.count, JMode::ReadWrite, JAccess::Critical);
  for (size_t k = 0; k < a.count; ++k) r[k] = imag ? a.data[k].imag() : a.data[k].real();
  return out;
}

jobjectArray newJavaPart(JNIEnv* env, const Array<dcomplex, 2>& a, bool imag) {
  return writeRows(env, a, a.sizes[1], [imag](const Array<dcomplex, 2>& A, size_t i, jdouble* r) {
    for (size_t j = 0; j < A.sizes[1]; ++j) r[j] = imag ? A(i, j).imag() : A(i, j).real();
  });
}

jobjectArray newJavaArray(JNIEnv* env, const Array<double, 3>& a) {
  return writeSlabs(env, a, a.sizes[2],
                    [](const Array<double, 3>& A, size_t i, size_t j, jdouble* r) {
                      for (size_t k = 0; k < A.sizes[2]; ++k) r[k] = A(i, j, k);
                    });
}

jobjectArray newJavaArray(JNIEnv* env, const Array<dcomplex, 3>& a) {
  return writeSlabs(env, a, 2 * a.sizes[2],
                    [](const Array<dcomplex, 3>& A, size_t i, size_t j, jdouble* r) {
                      dcomplex* z = asComplex(r);
                      for (size_t k = 0; k < A.sizes[2]; ++k) z[k] = A(i, j, k);
                    });
}

jobjectArray newJavaPart(JNIEnv* env, const Array<dcomplex, 3>& a, bool imag) {
  return writeSlabs(env, a, a.sizes[2],
                    [imag](const Array<dcomplex, 3>& A, size_t i, size_t j, jdouble* r) {
                      for (size_t k = 0; k < A.sizes[2]; ++k)
                        r[k] = imag ? A(i, j, k).imag() : A(i, j, k).real();
                    });
}

jdoubleArray newJavaArray(JNIEnv* env, const Vector& x) {
  return x.isReal() ? newJavaArray(env, x.getdArr()) : newJavaArray(env, x.getzArr());
}

jobjectArray newJavaArray(JNIEnv* env, const Matrix& A) {
  return A.isReal() ? newJavaArray(env, A.getdArr()) : newJavaArray(env, A.getzArr());
}

jlongArray newJavaColPtr(JNIEnv* env, const Sparse& S) {
  return newFilled<jlong>(env, reinterpret_cast<const jlong*>(S.getColPtr()), S.getN() + 1);
}

jlongArray newJavaRowIndex(JNIEnv* env, const Sparse& S) {
  return newFilled<jlong>(env, reinterpret_cast<const jlong*>(S.getRow()), S.getNnz());
}

jdoubleArray newJavaValues(JNIEnv* env, const Sparse& S) {
  if (S.isReal()) return newFilled<jdouble>(env, S.getDoubleVal(), S.getNnz());
  return newFilled<jdouble>(env, reinterpret_cast<const jdouble*>(S.getDcmplxVal()),
                            2 * S.getNnz());
}

void setJavaArray(JNIEnv* env, jdoubleArray to, const Array<double, 1>& a) {
  if (javaLength(env, to, "double[]") != a.count) sizesDisagree("Lengths differ.");
  if (a.count) env->SetDoubleArrayRegion(to, 0, static_cast<jsize>(a.count), a.data);
}

}  // namespace qvarray
