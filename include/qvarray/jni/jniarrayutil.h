#pragma once
// Conversions between Java arrays and the library's arrays and matrices.
//
// Shapes. A Java double[] is a vector; a double[m][n] (an array of m rows of
// n) is the m×n matrix with element (i, j) = a[i][j]; a flat double[m*n] with
// its sizes is the matrix in the library's column-major order. Complex
// values come interleaved (re0, im0, re1, im1, ...: a complex double[] has
// twice the length, a complex row of n columns 2n) or split into a real and
// an imaginary array of the same shape. A double[l][m][n] is the l×m×n array
// with element (i, j, k) = a[i][j][k] (complex: rows of 2n interleaved, or
// split), and a flat double[l*m*n] with its sizes is that array
// column-major. Sparse matrices are compressed columns: column pointers
// (n + 1) and row indices (int[] or long[]) and values.
//
// Copies. The library's arrays own their storage, so a conversion copies
// once, straight between the Java array and that storage: Get/Set<Type>
// ArrayRegion for whole arrays (complex interleaved included, whose layout
// is that of std::complex), critical access for rows and split parts, which
// are reordered on the way, and no buffer in between. Code that only reads or
// updates a Java array in place needs no conversion: it works on a
// reference-holding wrapper (qvjarray.h), without a copy where the JVM can
// pin the array.
//
// Results handed to Java are new local references; the rows and slabs of an
// array of arrays are released as each one is done, so the number of local
// references held stays small whatever the size. Errors, before anything is
// built: "Null_Java_array" (module "qvjarray") for a null array or row,
// "Java_array_sizes_disagree" for ragged rows, real and imaginary parts of
// different shapes, an odd interleaved length, a flat array whose length is
// not m·n, a negative size, or more elements than a Java array holds. Sparse
// input is checked as Sparse::flat2sparse checks it; a negative index counts
// as out of range.
#include <jni.h>

#include <complex>
#include <cstddef>

#include "qvarray/array.h"
#include "qvarray/matriximpl.h"
#include "qvarray/sparse/sparse.h"

namespace qvarray {

using dcomplex = std::complex<double>;

// ---- Java to the library -------------------------------------------------------

Array<double, 1> getArray(JNIEnv* env, jdoubleArray a);
Array<int, 1> getArray(JNIEnv* env, jintArray a);
/// Indices for the library (size_t); a negative one becomes SIZE_MAX.
Array<size_t, 1> getIndexArray(JNIEnv* env, jintArray a);
Array<size_t, 1> getIndexArray(JNIEnv* env, jlongArray a);
/// double[m][n] → m×n.
Array<double, 2> getArray2(JNIEnv* env, jobjectArray rows);
/// Flat column-major double[m*n] → m×n.
Array<double, 2> getArray2(JNIEnv* env, jdoubleArray colMajor, jlong m, jlong n);

Array<dcomplex, 1> getComplexArray(JNIEnv* env, jdoubleArray interleaved);
Array<dcomplex, 1> getComplexArray(JNIEnv* env, jdoubleArray re, jdoubleArray im);
/// Rows of 2n interleaved values → m×n.
Array<dcomplex, 2> getComplexArray2(JNIEnv* env, jobjectArray rowsInterleaved);
Array<dcomplex, 2> getComplexArray2(JNIEnv* env, jobjectArray reRows, jobjectArray imRows);
/// Flat column-major interleaved double[2*m*n] → m×n.
Array<dcomplex, 2> getComplexArray2(JNIEnv* env, jdoubleArray colMajor, jlong m, jlong n);

/// double[l][m][n] → l×m×n.
Array<double, 3> getArray3(JNIEnv* env, jobjectArray slabs);
/// Flat column-major double[l*m*n] → l×m×n.
Array<double, 3> getArray3(JNIEnv* env, jdoubleArray colMajor, jlong l, jlong m, jlong n);
/// Slabs of rows of 2n interleaved values → l×m×n.
Array<dcomplex, 3> getComplexArray3(JNIEnv* env, jobjectArray slabsInterleaved);
Array<dcomplex, 3> getComplexArray3(JNIEnv* env, jobjectArray reSlabs, jobjectArray imSlabs);
/// Flat column-major interleaved double[2*l*m*n] → l×m×n.
Array<dcomplex, 3> getComplexArray3(JNIEnv* env, jdoubleArray colMajor, jlong l, jlong m, jlong n);

/// A real vector, or a complex one when `im` is given.
Vector getVector(JNIEnv* env, jdoubleArray re, jdoubleArray im = nullptr);
Vector getComplexVector(JNIEnv* env, jdoubleArray interleaved);
/// A real matrix from rows, or a complex one when `imRows` is given.
Matrix getMatrix(JNIEnv* env, jobjectArray reRows, jobjectArray imRows = nullptr);
Matrix getComplexMatrix(JNIEnv* env, jobjectArray rowsInterleaved);

/// The m×n compressed-column matrix; real values, or complex ones when `im`
/// is given.
Sparse getSparse(JNIEnv* env, jintArray colPtr, jintArray rowIndex, jdoubleArray re,
                 jdoubleArray im, jlong m, jlong n);
Sparse getSparse(JNIEnv* env, jlongArray colPtr, jlongArray rowIndex, jdoubleArray re,
                 jdoubleArray im, jlong m, jlong n);
/// As getSparse, complex values interleaved.
Sparse getComplexSparse(JNIEnv* env, jlongArray colPtr, jlongArray rowIndex,
                        jdoubleArray interleaved, jlong m, jlong n);

// ---- the library to Java ---------------------------------------------------------

jdoubleArray newJavaArray(JNIEnv* env, const Array<double, 1>& a);
jintArray newJavaArray(JNIEnv* env, const Array<int, 1>& a);
jlongArray newJavaIndexArray(JNIEnv* env, const Array<size_t, 1>& a);
/// Interleaved.
jdoubleArray newJavaArray(JNIEnv* env, const Array<dcomplex, 1>& a);
/// double[m][n]; complex: rows of 2n interleaved values.
jobjectArray newJavaArray(JNIEnv* env, const Array<double, 2>& a);
jobjectArray newJavaArray(JNIEnv* env, const Array<dcomplex, 2>& a);
/// Real or imaginary part of a complex array, of the same shape.
jdoubleArray newJavaPart(JNIEnv* env, const Array<dcomplex, 1>& a, bool imag);
jobjectArray newJavaPart(JNIEnv* env, const Array<dcomplex, 2>& a, bool imag);
/// double[l][m][n]; complex: rows of 2n interleaved values.
jobjectArray newJavaArray(JNIEnv* env, const Array<double, 3>& a);
jobjectArray newJavaArray(JNIEnv* env, const Array<dcomplex, 3>& a);
jobjectArray newJavaPart(JNIEnv* env, const Array<dcomplex, 3>& a, bool imag);
/// A real vector or matrix as double[] / double[][], a complex one interleaved.
jdoubleArray newJavaArray(JNIEnv* env, const Vector& x);
jobjectArray newJavaArray(JNIEnv* env, const Matrix& A);
/// The compressed columns of S: column pointers, row indices, and values
/// (real, or interleaved for a complex S).
jlongArray newJavaColPtr(JNIEnv* env, const Sparse& S);
jlongArray newJavaRowIndex(JNIEnv* env, const Sparse& S);
jdoubleArray newJavaValues(JNIEnv* env, const Sparse& S);

/// Copies `a` into the existing Java array `to` of the same length (no new
/// Java object; "Java_array_sizes_disagree" otherwise).
void setJavaArray(JNIEnv* env, jdoubleArray to, const Array<double, 1>& a);

}  // namespace qvarray
