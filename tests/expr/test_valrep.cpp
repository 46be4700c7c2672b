// ValRep against a plain model: a value as a list of parts of numbers.
#include <gtest/gtest.h>

#include <cmath>

#include "qvarray/expr/arrayallocimpl.h"
#include "qvarray/expr/valrep.h"
#include "qvtest.h"

using namespace qvarray;
using Complex = std::complex<double>;

namespace {

// The model: flags and parts; a scalar part holds one number.
struct Model {
  std::string name;
  bool scalar = true, complex = false, zero = false;
  uint64_t nEl = 1;
  std::vector<std::vector<Complex>> parts;
  std::string text;  // toString

  Complex at(size_t p, size_t k) const {
    if (zero) return 0.0;
    const auto& part = parts[parts.size() == 1 ? 0 : p];
    return part[scalar ? 0 : k];
  }
  size_t nParts() const { return zero ? 1 : parts.size(); }
};

ValRep::Ptr build(const Model& m, const ValRep::AllocPtr& alloc) {
  auto v = std::make_shared<ValRep>(alloc);
  v->reset(m.scalar, m.complex, m.nEl);
  if (m.zero) v->setZero();
  for (const auto& part : m.parts) {
    if (m.scalar && m.complex)
      v->addCScalar(part[0]);
    else if (m.scalar)
      v->addDScalar(part[0].real());
    else if (m.complex)
      std::copy(part.begin(), part.end(), v->addCArray().data);
    else {
      double* y = v->addDArray().data;
      for (size_t k = 0; k < part.size(); ++k) y[k] = part[k].real();
    }
  }
  v->setEvaluated();
  return v;
}

const std::vector<Model>& models() {
  static const std::vector<Model> table = {
      {"zero", true, false, true, 3, {}, "0"},
      {"real scalar", true, false, false, 3, {{2.5}}, "2.5"},
      {"complex scalar", true, true, false, 3, {{{1, -2}}}, "(1-2*i)"},
      {"real array", false, false, false, 4, {{1, -3, 2, 0}}, "[1, -3, 2, 0]"},
      {"complex array", false, true, false, 2, {{{0, 1}, {3, 4}}}, "[(0+1*i), (3+4*i)]"},
      {"structured arrays", false, false, false, 2, {{1, 2}, {-7, 0.5}}, "[1, 2; -7, 0.5]"},
      {"structured complex scalars",
       true,
       true,
       false,
       2,
       {{{1, 0}}, {{-1, 0}}},
       "(1+0*i); (-1+0*i)"},
  };
  return table;
}

}  // namespace

TEST(ValRepModel, GettersAgreeWithTheModel) {
  auto alloc = std::make_shared<SerialArrayAllocator>(3, 10000);
  for (const Model& m : models()) {
    SCOPED_TRACE(m.name);
    const ValRep::Ptr v = build(m, alloc);
    EXPECT_EQ(v->getComplex(), m.at(0, 0));
    EXPECT_EQ(v->getDouble(), m.at(0, 0).real());
    EXPECT_EQ(v->isStructured(), m.parts.size() > 1);
    EXPECT_TRUE(v->hasUniqueData());
    EXPECT_EQ(v->toString(), m.text);
    const CValRepReader c = v->getComplexReader();
    const DValRepReader d = v->getDoubleReader(false);
    Array<Complex, 1> flat;
    v->copyToArray(flat);
    ASSERT_EQ(flat.count, m.nEl * m.nParts());
    double best = 0;
    std::pair<uint64_t, uint64_t> bestAt{0, 0};
    bool imag = false;
    for (size_t p = 0; p < m.nParts(); ++p) {
      if (m.scalar) {
        EXPECT_EQ(v->getScalarComplex(p), m.at(p, 0));
      }
      for (size_t k = 0; k < m.nEl; ++k) {
        EXPECT_EQ(c(p, k), m.at(p, k));
        EXPECT_EQ(d(p, k), m.at(p, k).real());
        EXPECT_EQ(flat[p * m.nEl + k], m.at(p, k));
        if (std::abs(m.at(p, k)) > best && (!m.scalar || k == 0))
          best = std::abs(m.at(p, k)), bestAt = {p, m.scalar ? 0 : k};
        imag = imag || m.at(p, k).imag() != 0.0;
      }
    }
    std::pair<uint64_t, uint64_t> pos;
    EXPECT_EQ(v->maxAbsPos(pos), best);
    EXPECT_EQ(pos, bestAt);
    EXPECT_EQ(v->checkComplex(), imag);
    EXPECT_EQ(v->isZero(1e-300), best == 0.0);
    if (m.parts.size() == 1) {
      EXPECT_EQ(v->getScalarComplex(7), v->getComplex());
    }
  }
}

// Copies: shared parts are seen as shared, private copies are independent,
// conversions and partial values read as the model says.
TEST(ValRepModel, CopiesAndConversions) {
  auto alloc = std::make_shared<SerialArrayAllocator>(3, 10000);
  for (const Model& m : models()) {
    SCOPED_TRACE(m.name);
    const ValRep::Ptr v = build(m, alloc);
    ValRep shared;
    shared.reset(*v, false);
    EXPECT_EQ(v->hasUniqueData(), m.zero);
    shared.uniquify();
    EXPECT_TRUE(v->hasUniqueData());
    EXPECT_EQ(shared.toString(), m.text);

    const ValRep::Ptr wide = v->cloneCast(alloc, false, true, m.nEl);
    const std::vector<uint64_t> pick = {m.nEl - 1, 0};
    const ValRep::Ptr part = v->getPartial(pick);
    const CValRepReader w = wide->getComplexReader();
    const CValRepReader q = part->getComplexReader();
    for (size_t p = 0; p < m.nParts(); ++p) {
      for (size_t k = 0; k < m.nEl; ++k) EXPECT_EQ(w(p, k), m.at(p, k));
      for (size_t k = 0; k < pick.size(); ++k) EXPECT_EQ(q(p, k), m.at(p, pick[k]));
    }
    if (!m.complex) {
      const ValRep::Ptr back = wide->cloneToReal();
      EXPECT_FALSE(back->isStoredAsComplex());
      EXPECT_EQ(back->getNEl(), m.nEl);
    }
    // Scatter export through an index list: number i goes to out[index[i]].
    const size_t total = m.nEl * m.nParts();
    std::vector<int> index(total);
    for (size_t i = 0; i < total; ++i) index[i] = static_cast<int>(total - 1 - i);
    Array<Complex, 1> out(total), plain;
    v->copyToArray(out, index);
    v->copyToArray(plain);
    for (size_t i = 0; i < total; ++i) EXPECT_EQ(out[total - 1 - i], plain[i]);
    Array<Complex, 1> sum = plain;
    v->addToArray(sum);
    v->multiplyArray(sum);
    for (size_t i = 0; i < total; ++i) EXPECT_EQ(sum[i], 2.0 * plain[i] * plain[i]);
  }
}

TEST(ValRepModel, PrivateCopyIsIndependent) {
  auto alloc = std::make_shared<SerialArrayAllocator>(3, 10000);
  const ValRep::Ptr v = build(models()[3], alloc);
  const ValRep::Ptr c = v->clone();
  c->getDoubleIterator(0)[1] = 99.0;
  EXPECT_EQ(v->getDoubleIterator(0)[1], -3.0);
  EXPECT_EQ(c->toString(), "[1, 99, 2, 0]");
}

TEST(ValRepModel, NaNRaisesWithItsRecord) {
  const ValRep::Ptr v = ValRep::makeNaN();
  EXPECT_TRUE(v->hasUniqueData());
  EXPECT_TRUE(v->isEvaluated());
  EXPECT_EQ(v->toString(), "NaN");
  v->getErrors()->add("message", "div");
  const std::function<void()> reads[] = {
      [&] { v->getDouble(); },           [&] { v->getComplex(); },
      [&] { v->getScalarDouble(0); },    [&] { v->getDoubleIterator(0); },
      [&] { v->getComplexIterator(0); }, [&] { v->getComplexReader(); },
  };
  for (const auto& read : reads) {
    const qvbase::Exception e = qvtest::expectThrowKey(read, "Unexpected_NaN");
    EXPECT_EQ(e.module(), "evalrep");
    EXPECT_EQ(e.detail("message"), "div");
  }
}

TEST(ValRepModel, ComplexNumberInRealExpression) {
  const ValRep::Ptr z = std::make_shared<ValRep>(Complex(1, 2));
  qvtest::expectThrowKey([&] { z->cloneToReal(); }, "Complex_number_in_real_expression");
  qvtest::expectThrowKey([&] { z->getDoubleReader(true); }, "Complex_number_in_real_expression");
  const ValRep::Ptr r = std::make_shared<ValRep>(Complex(3, 0))->cloneToReal();
  EXPECT_FALSE(r->isStoredAsComplex());
  EXPECT_EQ(r->getDouble(), 3.0);
}

TEST(ValRepModel, ArrayPartsFromTheAllocator) {
  struct Row {
    int block;
    uint64_t nEl;
    size_t count;
  };
  for (const Row& row : {Row{4, 4, 4}, Row{4, 2, 4}, Row{4, 9, 9}, Row{0, 3, 3}}) {
    auto alloc = std::make_shared<SerialArrayAllocator>(row.block, 10000);
    {
      auto v = std::make_shared<ValRep>(row.block ? alloc : nullptr);
      v->reset(false, false, row.nEl);
      EXPECT_EQ(v->addDArray().count, row.count);
      EXPECT_EQ(v->getAllocatorBlockSize(), row.block);
    }
    // The dead value's part went back to the pool.
    if (row.block) {
      const auto& pool = alloc->pool();
      EXPECT_EQ(pool.freeBlocks(false) + pool.oddCount(ArrayAllocImpl::OddReal), 1u);
    }
  }
  const ValRep::Ptr zero = ValRep::makeZero();
  EXPECT_TRUE(zero->isZero() && zero->isScalar() && zero->isEvaluated());
  EXPECT_EQ(zero->getNEp(), 0u);
}
