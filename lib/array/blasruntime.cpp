// Detection of the OpenBLAS kernels in use and of the widest kernels this
// processor supports.
#include "qvarray/blasruntime.h"

#include <omp.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string_view>
#include <vector>

extern "C" {
char* openblas_get_corename(void);
char* openblas_get_config(void);
}

namespace qvarray {

namespace {

// Vector width class of an OpenBLAS core: 1 SSE, 2 AVX, 3 AVX2/FMA, 4 AVX-512.
int coreClass(std::string_view name) {
  std::string lower(name);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  static const std::pair<const char*, int> kClasses[] = {
      {"skylakex", 4},   {"cooperlake", 4}, {"sapphirerapids", 4},
      {"haswell", 3},    {"zen", 3},        {"excavator", 3}, {"steamroller", 2},
      {"sandybridge", 2}, {"bulldozer", 2},  {"piledriver", 2}};
  for (const auto& [n, c] : kClasses)
    if (lower == n) return c;
  return 1;
}

std::string preferredCore() {
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
      __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl"))
    return "SkylakeX";
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) return "Haswell";
  if (__builtin_cpu_supports("avx")) return "Sandybridge";
  return "";
}

}  // namespace

BlasRuntime blasRuntime() {
  BlasRuntime r;
  r.coreName = openblas_get_corename();
  r.config = openblas_get_config();
  r.preferredCore = preferredCore();
  r.slowKernels = !r.preferredCore.empty() && coreClass(r.coreName) < coreClass(r.preferredCore);
  return r;
}

void relaunchWithFastBlas(int argc, char** argv) {
  (void)argc;
  // The marker stops a second attempt when OpenBLAS ignores the setting.
  constexpr const char* kMarker = "QVARRAY_BLAS_RELAUNCHED";
  if (std::getenv(kMarker)) return;
  const BlasRuntime r = blasRuntime();
  if (!r.slowKernels) return;
  const char* old = std::getenv("OPENBLAS_CORETYPE");
  const std::string saved = old ? old : "";
  if (setenv("OPENBLAS_CORETYPE", r.preferredCore.c_str(), 1) != 0) return;
  setenv(kMarker, "1", 1);
  execv("/proc/self/exe", argv);
  // exec failed: carry on with the slow kernels and the environment as it was
  unsetenv(kMarker);
  if (old) setenv("OPENBLAS_CORETYPE", saved.c_str(), 1);
  else unsetenv("OPENBLAS_CORETYPE");
}

SerialBlasScope::SerialBlasScope() : saved_(omp_get_max_threads()) {
  // With OpenMP threading OpenBLAS sizes its thread team by the calling
  // thread's omp_get_max_threads(), a per-thread setting, so this is safe to
  // use from several threads at once.
  if (saved_ != 1) omp_set_num_threads(1);
}

SerialBlasScope::~SerialBlasScope() {
  if (saved_ != 1) omp_set_num_threads(saved_);
}

BlasThreads::BlasThreads(const void* key, double work) {
  if (omp_get_max_threads() < 2) return;
  call_.emplace(key, work);
  if (call_->threads() == 1) serial_.emplace();
}

}  // namespace qvarray
