// qvtool run-class: a class written by the expression compiler, loaded in a
// JVM (java on the PATH, or under JAVA_HOME) with full verification, and its
// work method called on the given inputs.
//
// The JVM runs a small launcher given as Java source (the JVM compiles a
// single source file itself); the inputs travel as the raw bits of the
// doubles, so they arrive exactly, and the outputs come back in Java's
// shortest round-trip form.
#include <sys/wait.h>
#include <unistd.h>

#include <bit>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "commands.h"
#include "qvutil/numeric.h"
#include "toolutil.h"

namespace {

const char* kLauncher = R"(import java.nio.file.Files;
import java.nio.file.Path;

public class QvRunClass {
  static final class Loader extends ClassLoader {
    Loader() { super(QvRunClass.class.getClassLoader()); }
    Class<?> define(String name, byte[] b) { return defineClass(name, b, 0, b.length); }
  }

  public static void main(String[] a) throws Exception {
    Path path = Path.of(a[0]);
    byte[] bytes = Files.readAllBytes(path);
    String name = path.getFileName().toString().replaceFirst("\\.class$", "");
    Class<?> c = new Loader().define(name, bytes);
    Class.forName(name, true, c.getClassLoader());
    int nargin = c.getField("NARGIN").getInt(null), nargout = c.getField("NARGOUT").getInt(null);
    if (a.length - 2 != nargin) {
      System.err.println("qvtool run-class: " + name + " takes " + nargin + " inputs, "
                         + (a.length - 2) + " given");
      System.exit(2);
    }
    double[] x = new double[nargin], y = new double[nargout];
    for (int i = 0; i < nargin; ++i)
      x[i] = Double.longBitsToDouble(Long.parseUnsignedLong(a[i + 2], 16));
    int status = (Integer) c.getMethod(a[1], double[].class, double[].class).invoke(null, x, y);
    System.out.println("status " + status);
    for (int i = 0; i < nargout; ++i) System.out.println("out" + i + " = " + y[i]);
  }
}
)";

std::string javaExecutable() {
  if (const char* home = std::getenv("JAVA_HOME"))
    if (std::filesystem::exists(std::filesystem::path(home) / "bin" / "java"))
      return (std::filesystem::path(home) / "bin" / "java").string();
  return "java";
}

int run(int argc, char** argv) {
  std::string path, method = "work";
  std::vector<std::string> values;
  // Values may start with "-", so only the two options are options.
  for (int k = 1; k < argc; ++k) {
    std::string a = argv[k];
    if (a == "--method" && k + 1 < argc) method = argv[++k];
    else if (path.empty()) path = a;
    else values.push_back(a);
  }
  qvtool::Arguments::require(path, "class file");
  if (!std::filesystem::is_regular_file(path)) throw qvtool::Failure(path + ": no such class file");
  std::vector<std::string> bits;
  for (const std::string& v : values) {
    double d = 0;
    if (qvutil::scanDouble(v, d) != qvutil::NumberScan::Ok)
      throw qvtool::UsageError("'" + v + "' is not a number");
    char b[24];
    std::snprintf(b, sizeof b, "%llx", static_cast<unsigned long long>(std::bit_cast<uint64_t>(d)));
    bits.push_back(b);
  }

  char dirTemplate[] = "/tmp/qvtool-run-class-XXXXXX";
  if (!mkdtemp(dirTemplate)) throw qvtool::Failure("cannot create a temporary directory");
  const std::filesystem::path dir = dirTemplate;
  const std::string launcher = (dir / "QvRunClass.java").string();
  std::ofstream(launcher) << kLauncher;

  std::vector<std::string> cmd = {javaExecutable(), "-Xverify:all", "-Xshare:auto", launcher,
                                  std::filesystem::absolute(path).string(), method};
  cmd.insert(cmd.end(), bits.begin(), bits.end());
  std::vector<char*> argvJava;
  for (std::string& s : cmd) argvJava.push_back(s.data());
  argvJava.push_back(nullptr);
  std::fflush(stdout);
  pid_t pid = fork();
  if (pid == 0) {
    execvp(argvJava[0], argvJava.data());
    std::perror("qvtool run-class: java");
    _exit(127);
  }
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) < 0) status = -1;
  std::error_code ec;
  std::filesystem::remove_all(dir, ec);
  if (!WIFEXITED(status)) throw qvtool::Failure("the JVM did not finish");
  if (WEXITSTATUS(status) == 127) throw qvtool::Failure("no java found (PATH, JAVA_HOME)");
  return WEXITSTATUS(status) == 0 ? 0 : 1;
}

}  // namespace

namespace qvtool {

const Command runClassCommand{
    "run-class", run, "a compiled class evaluated in the JVM",
    "qvtool run-class NAME.class [--method work] VALUES...",
    "Loads the class file NAME.class, written by qvtool compile, in a JVM (java\n"
    "from JAVA_HOME or the PATH) under -Xverify:all, calls its work method on the\n"
    "VALUES (one per input, in the order of the class's inputs) and prints\n"
    "\"status S\" (0, or the negative code of a domain failure) and one line\n"
    "\"outK = value\" per output, in Java's shortest round-trip form.\n"};

}  // namespace qvtool
