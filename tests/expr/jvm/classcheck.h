#pragma once
// Runs class files through the ClassCheck harness in one JVM (-Xverify:all):
// ASM's CheckClassAdapter, javap -v, loading, and calls of the work method.
// QV_JAVA and QV_CLASSCHECK_CP come from the build; without them (sanitizer
// builds) available() is false and the tests skip the JVM.
#include <unistd.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>


namespace qvtest {

struct ClassRun {
  std::string verdict;  // "ok NARGIN NARGOUT" or "FAIL what: details"
  struct Call {
    bool failed = false;
    std::string failure;
    int status = 0;
    std::vector<double> out;
  };
  std::vector<Call> calls;
};

/// A scratch directory of this process under the test's temporary
/// directory: test programs run side by side (ctest -j, several builds).
inline std::filesystem::path scratchDir(const std::string& name, const std::string& tempDir) {
  return std::filesystem::path(tempDir) / (name + "_" + std::to_string(::getpid()));
}

/// Java's Math.round as a double: the nearest long, ties upward, NaN 0,
/// clamped to the long range (whose ends convert to -2^63 and 2^63).
inline double javaRound(double x) {
  if (std::isnan(x)) return 0;
  if (x >= 0x1p63) return 0x1p63;
  if (x <= -0x1p63) return -0x1p63;
  double fl = std::floor(x);
  return fl + (x - fl >= 0.5 ? 1 : 0);  // x - fl is exact here; -0 + 0 is +0, as a long has no -0
}

/// The same bits, or both NaN.
inline bool sameBits(double a, double b) {
  return (std::isnan(a) && std::isnan(b)) || std::bit_cast<uint64_t>(a) == std::bit_cast<uint64_t>(b);
}

class ClassCheck {
 public:
  static bool available() {
#if defined(QV_JAVA) && defined(QV_CLASSCHECK_CP)
    return true;
#else
    return false;
#endif
  }

  /// Works in `dir`, created here and removed with everything in it at the
  /// end (kept when QV_KEEP_CLASSES is set, for a look with javap).
  explicit ClassCheck(std::filesystem::path dir) : dir_(std::move(dir)) {
    std::filesystem::create_directories(dir_);
  }
  ~ClassCheck() {
    std::error_code ec;
    if (!std::getenv("QV_KEEP_CLASSES")) std::filesystem::remove_all(dir_, ec);
  }
  ClassCheck(const ClassCheck&) = delete;
  ClassCheck& operator=(const ClassCheck&) = delete;
  const std::filesystem::path& dir() const { return dir_; }

  /// A class file of `bytes` under the name `className`, then its calls.
  void addClass(const std::string& className, const std::vector<unsigned char>& bytes,
                const std::string& method = "work") {
    auto path = dir_ / (className + ".class");
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    job_ << "class " << path.string() << ' ' << method << '\n';
    ++classes_;
  }
  void addCall(const std::vector<double>& in) {
    job_ << "in";
    for (double v : in) {
      char b[24];
      std::snprintf(b, sizeof b, " %llx",
                    static_cast<unsigned long long>(std::bit_cast<uint64_t>(v)));
      job_ << b;
    }
    job_ << '\n';
  }

  /// Runs the job; one ClassRun per class in order. An empty result means
  /// the JVM could not be run.
  std::vector<ClassRun> run() {
    std::vector<ClassRun> runs;
#if defined(QV_JAVA) && defined(QV_CLASSCHECK_CP)
    auto jobFile = dir_ / "job.txt", outFile = dir_ / "out.txt";
    std::ofstream(jobFile) << job_.str();
    std::string cmd = std::string(QV_JAVA) + " -Xverify:all -Xshare:auto -cp " + QV_CLASSCHECK_CP +
                      " ClassCheck " + jobFile.string() + " > " + outFile.string() + " 2>&1";
    std::ifstream out;
    if (std::system(cmd.c_str()) != 0) {  // show what the JVM said
      out.open(outFile);
      for (std::string line; std::getline(out, line);) std::fprintf(stderr, "%s\n", line.c_str());
      return runs;
    }
    out.open(outFile);
    for (std::string line; std::getline(out, line);) {
      std::istringstream w(line);
      std::string tag, name;
      w >> tag;
      if (tag == "class") {
        w >> name;
        runs.emplace_back();
        std::getline(w >> std::ws, runs.back().verdict);
      } else if (tag == "out" && !runs.empty()) {
        ClassRun::Call c;
        std::string first;
        w >> first;
        if (first == "FAIL") {
          c.failed = true;
          std::getline(w >> std::ws, c.failure);
        } else {
          c.status = std::stoi(first);
          for (std::string v; w >> v;) c.out.push_back(std::bit_cast<double>(std::stoull(v, nullptr, 16)));
        }
        runs.back().calls.push_back(std::move(c));
      }
    }
#endif
    return runs;
  }

  int classes() const { return classes_; }

 private:
  std::filesystem::path dir_;
  std::ostringstream job_;
  int classes_ = 0;
};

}  // namespace qvtest
