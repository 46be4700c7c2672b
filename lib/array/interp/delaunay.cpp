// The Delaunay triangulation through Qhull's reentrant C interface.
#include "interp/delaunay.h"

#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

extern "C" {
#include <libqhull_r/qhull_ra.h>
}

#include "qvutil/errors.h"

namespace qvarray::interpdetail {

namespace {

// One Qhull run: its state and the stream that collects its messages, both
// released on every way out.
class QhullRun {
 public:
  QhullRun() {
    err_ = open_memstream(&text_, &length_);
    if (!err_) throw std::bad_alloc();
    qh_zero(&qh_, err_);
  }
  ~QhullRun() {
    if (ran_) {
      qh_freeqhull(&qh_, !qh_ALL);
      int curlong = 0, totlong = 0;
      qh_memfreeshort(&qh_, &curlong, &totlong);
    }
    std::fclose(err_);
    std::free(text_);
  }
  QhullRun(const QhullRun&) = delete;
  QhullRun& operator=(const QhullRun&) = delete;

  int run(int dim, int n, double* points) {
    char options[] = "qhull d Qbb Qc Qz Q12 Qt";
    ran_ = true;
    return qh_new_qhull(&qh_, dim, n, points, False, options, nullptr, err_);
  }
  qhT* qh() { return &qh_; }
  /// The first line Qhull wrote about its failure.
  std::string message() {
    std::fflush(err_);
    std::string s(text_ ? text_ : "", length_);
    while (!s.empty() && (s[0] == '\n' || s[0] == ' ')) s.erase(0, 1);
    return s.substr(0, s.find('\n'));
  }

 private:
  qhT qh_;
  FILE* err_ = nullptr;
  char* text_ = nullptr;
  size_t length_ = 0;
  bool ran_ = false;
};

}  // namespace

Triangulation delaunay(const double* points, size_t n, int dim) {
  QV_ASSERT(n < (size_t{1} << 31), interpolator);
  std::vector<double> coords(points, points + n * static_cast<size_t>(dim));
  QhullRun run;
  const int code = run.run(dim, static_cast<int>(n), coords.data());
  if (code == qh_ERRmem) throw std::bad_alloc();
  if (code != 0) QV_RAISE(interpolator, Triangulation_failed, run.message());

  qhT* qh = run.qh();
  facetT* facet;
  // Number the lower facets (the simplices) in visitid, from 1; 0 marks the
  // upper ones and the simplices through the point at infinity.
  std::int32_t count = 0;
  FORALLfacets {
    bool finite = !facet->upperdelaunay;
    vertexT *vertex, **vertexp;
    FOREACHvertex_(facet->vertices) finite &= qh_pointid(qh, vertex->point) < static_cast<int>(n);
    facet->visitid = finite ? static_cast<unsigned>(++count) : 0;
  }
  Triangulation tri;
  tri.dim = dim;
  tri.vertices.reserve(static_cast<size_t>(count) * (dim + 1));
  tri.neighbors.reserve(static_cast<size_t>(count) * (dim + 1));
  FORALLfacets {
    if (!facet->visitid) continue;
    vertexT *vertex, **vertexp;
    FOREACHvertex_(facet->vertices) tri.vertices.push_back(qh_pointid(qh, vertex->point));
    facetT *neighbor, **neighborp;
    FOREACHneighbor_(facet)
      tri.neighbors.push_back(static_cast<std::int32_t>(neighbor->visitid) - 1);
  }
  QV_ASSERT(tri.vertices.size() == tri.neighbors.size(), interpolator);
  return tri;
}

}  // namespace qvarray::interpdetail
