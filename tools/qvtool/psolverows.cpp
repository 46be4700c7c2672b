// Reading a linear system split by rows across the ranks.
//
// The matrix goes through the library's reader as triplets in file order
// (symmetric storage expanded). Each rank keeps the triplets of its rows, in
// the same order, and assembles them into a block of its own rows: the
// sums of repeated entries come out as in a whole-file read, so both reading
// modes give each rank the very same rows. With --read root, rank 0 reads and
// sends each rank its triplets; with --read each, every rank reads and
// filters. The right-hand side goes the same way as a dense column.
#include "psolverows.h"

#include <algorithm>
#include <array>
#include <complex>
#include <cstdint>
#include <new>
#include <numeric>

#include "qvarray/io/densemm.h"
#include "qvarray/io/sparsemm.h"
#include "qvarray/petsc/petscbridge.h"
#include "toolutil.h"

namespace qvtool::psolve {
namespace {

using qvarray::MatrixMarketTriplets;

// Bytes per message: MPI counts are int.
constexpr size_t kChunk = size_t{1} << 30;

template <class T>
void sendVector(const std::vector<T>& v, int dest, MPI_Comm comm) {
  const std::uint64_t count = v.size();
  MPI_Send(&count, 1, MPI_UINT64_T, dest, 0, comm);
  const char* bytes = reinterpret_cast<const char*>(v.data());
  for (size_t at = 0, total = count * sizeof(T); at < total; at += kChunk)
    MPI_Send(bytes + at, static_cast<int>(std::min(kChunk, total - at)), MPI_BYTE, dest, 0, comm);
}

template <class T>
std::vector<T> receiveVector(int source, MPI_Comm comm) {
  std::uint64_t count = 0;
  MPI_Recv(&count, 1, MPI_UINT64_T, source, 0, comm, MPI_STATUS_IGNORE);
  std::vector<T> v(count);
  char* bytes = reinterpret_cast<char*>(v.data());
  for (size_t at = 0, total = count * sizeof(T); at < total; at += kChunk)
    MPI_Recv(bytes + at, static_cast<int>(std::min(kChunk, total - at)), MPI_BYTE, source, 0, comm,
             MPI_STATUS_IGNORE);
  return v;
}

MatrixMarketTriplets readTriplets(const std::string& path) {
  MatrixMarketTriplets t;
  try {
    t = qvarray::readMatrixMarketTriplets(path);
  } catch (const std::bad_alloc&) {
    failReading(path);
  }
  if (t.m != t.n)
    throw Failure(path + ": the matrix is not square (" + std::to_string(t.m) + " x " +
                  std::to_string(t.n) + ")");
  return t;
}

// The positions of t's triplets grouped by the rank that owns their row, in
// file order within each rank: rank r's are at[first[r]] .. at[first[r+1]].
// One pass over the triplets, whatever the number of ranks.
struct ByOwner {
  std::vector<size_t> at, first;
};
ByOwner groupByOwner(const MatrixMarketTriplets& t, const std::vector<size_t>& offsets) {
  const size_t ranks = offsets.size() - 1, n = t.rows.size();
  std::vector<unsigned> owner(n);
  ByOwner g;
  g.first.assign(ranks + 1, 0);
  for (size_t k = 0; k < n; ++k) {
    owner[k] = static_cast<unsigned>(
        std::upper_bound(offsets.begin() + 1, offsets.end(), t.rows[k]) - offsets.begin() - 1);
    ++g.first[owner[k] + 1];
  }
  std::partial_sum(g.first.begin(), g.first.end(), g.first.begin());
  g.at.resize(n);
  std::vector<size_t> fill(g.first.begin(), g.first.end() - 1);
  for (size_t k = 0; k < n; ++k) g.at[fill[owner[k]]++] = k;
  return g;
}

// Rank r's triplets of t, in file order (one shared value, as of a pattern
// file, stays shared).
MatrixMarketTriplets rowsOf(const MatrixMarketTriplets& t, const ByOwner& g, int r) {
  MatrixMarketTriplets part;
  part.m = t.m;
  part.n = t.n;
  part.isComplex = t.isComplex;
  part.file = t.file;
  part.sizeLine = t.sizeLine;
  const bool shared = !t.isComplex && t.realValues.size() != t.rows.size();
  if (shared) part.realValues = t.realValues;
  for (size_t q = g.first[r]; q < g.first[r + 1]; ++q) {
    const size_t k = g.at[q];
    part.rows.push_back(t.rows[k]);
    part.cols.push_back(t.cols[k]);
    if (t.isComplex) part.complexValues.push_back(t.complexValues[k]);
    else if (!shared) part.realValues.push_back(t.realValues[k]);
  }
  return part;
}

void sendTriplets(const MatrixMarketTriplets& t, int dest, MPI_Comm comm) {
  sendVector(t.rows, dest, comm);
  sendVector(t.cols, dest, comm);
  if (t.isComplex) sendVector(t.complexValues, dest, comm);
  else sendVector(t.realValues, dest, comm);
}

void receiveTriplets(MatrixMarketTriplets& t, MPI_Comm comm) {
  t.rows = receiveVector<size_t>(0, comm);
  t.cols = receiveVector<size_t>(0, comm);
  if (t.isComplex) t.complexValues = receiveVector<std::complex<double>>(0, comm);
  else t.realValues = receiveVector<double>(0, comm);
}

// The whole right-hand side, checked to be one finite column of n rows.
std::vector<double> readRightHandSide(const std::string& path, size_t n) {
  qvarray::Array<double, 2> B;
  try {
    qvarray::readMatrixMarket(path, B);
  } catch (const std::bad_alloc&) {
    failReading(path);
  }
  if (B.sizes[0] != n || B.sizes[1] != 1)
    throw Failure(path + ": the right-hand side is " + std::to_string(B.sizes[0]) + " x " +
                  std::to_string(B.sizes[1]) + ", not " + std::to_string(n) + " x 1");
  std::vector<double> b(n);
  for (size_t i = 0; i < n; ++i) {
    b[i] = B(i, 0);
    if (!allFinite(&b[i], 1)) failNonFinite(path, i, 0);
  }
  return b;
}

}  // namespace

LocalSystem readLocalSystem(const std::string& aPath, const std::string& bPath, ReadMode mode,
                            MPI_Comm comm) {
  int rank = 0, size = 1;
  MPI_Comm_rank(comm, &rank);
  MPI_Comm_size(comm, &size);
  const bool reads = mode == ReadMode::Each || rank == 0;

  // The matrix's triplets, whole on the ranks that read, grouped by rank.
  MatrixMarketTriplets whole;
  ByOwner groups;
  together(comm, [&] {
    if (!reads) return;
    whole = readTriplets(aPath);
    groups = groupByOwner(whole, qvarray::petsc::balancedPartition(whole.n, size));
  });
  // The size, and what the ranks that do not read need to assemble.
  std::array<std::uint64_t, 3> head{whole.n, whole.sizeLine, whole.isComplex};
  if (mode == ReadMode::Root) MPI_Bcast(head.data(), 3, MPI_UINT64_T, 0, comm);
  LocalSystem s;
  s.n = head[0];
  s.offsets = qvarray::petsc::balancedPartition(s.n, size);
  const size_t r0 = s.offsets[rank], r1 = s.offsets[rank + 1];

  MatrixMarketTriplets mine;
  if (mode == ReadMode::Root && rank != 0) {
    mine.m = mine.n = s.n;
    mine.sizeLine = head[1];
    mine.isComplex = head[2] != 0;
    mine.file = aPath;
    receiveTriplets(mine, comm);
  } else {
    if (mode == ReadMode::Root)
      for (int r = 1; r < size; ++r)
        sendTriplets(rowsOf(whole, groups, r), r, comm);
    mine = rowsOf(whole, groups, rank);
    whole = MatrixMarketTriplets();
  }
  // The rows as a block of their own, stored transposed: stored column i is
  // row r0 + i, so the block's column pointers count the local rows, not
  // every column of the matrix.
  for (size_t& i : mine.rows) i -= r0;
  std::swap(mine.rows, mine.cols);
  mine.m = s.n;
  mine.n = r1 - r0;
  mine.symm = qvarray::SymmTransposed;
  together(comm, [&] {
    mine.assemble(s.A);
    requireFiniteEntries(s.A, aPath, r0);
  });

  // The right-hand side, likewise.
  std::vector<double> b;
  together(comm, [&] {
    if (reads) b = readRightHandSide(bPath, s.n);
  });
  if (mode == ReadMode::Root && rank != 0) {
    b = receiveVector<double>(0, comm);
  } else {
    if (mode == ReadMode::Root)
      for (int r = 1; r < size; ++r)
        sendVector(std::vector<double>(b.begin() + s.offsets[r], b.begin() + s.offsets[r + 1]), r,
                   comm);
    b = std::vector<double>(b.begin() + r0, b.begin() + r1);
  }
  s.b = qvarray::Vector(b);
  return s;
}

std::vector<double> gatherOnRoot(const qvarray::Vector& local, MPI_Comm comm) {
  int rank = 0, size = 1;
  MPI_Comm_rank(comm, &rank);
  MPI_Comm_size(comm, &size);
  const double* v = local.getdArr().data;
  std::vector<double> mine(v, v + local.size());
  if (rank != 0) {
    sendVector(mine, 0, comm);
    return {};
  }
  for (int r = 1; r < size; ++r) {
    const std::vector<double> part = receiveVector<double>(r, comm);
    mine.insert(mine.end(), part.begin(), part.end());
  }
  return mine;
}

}  // namespace qvtool::psolve
