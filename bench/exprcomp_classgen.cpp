// Writes the random definition sets that bench/exprcomp_jvm.py times in the
// JVM: per size N, GenN.class compiled by ExprComp (work method "work"), and
// the same definitions as Java source for javac: SrcN.java with the
// operations in the compiled program's order, DefN.java in definition order.
// Prints one line "GenN SrcN DefN" per set.
//
// usage: exprcomp_classgen DIR N...
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "randomdefs.h"

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s DIR N...\n", argv[0]);
    return 2;
  }
  const std::string dir = argv[1];
  for (int k = 2; k < argc; ++k) {
    const int n = std::atoi(argv[k]);
    const auto s = qvbench::randomDefs(n, 4, 17, false);
    const std::string gen = "Gen" + std::to_string(n), src = "Src" + std::to_string(n);
    qvarray::ExprComp comp;
    qvbench::addTo(comp, s);
    comp.compile(gen, "work", dir + "/" + gen + ".class", false);
    const std::string def = "Def" + std::to_string(n);
    std::ofstream(dir + "/" + src + ".java") << qvbench::javaSource(s, src, qvbench::programOrder(comp));
    std::ofstream(dir + "/" + def + ".java") << qvbench::javaSource(s, def);
    std::printf("%s %s %s\n", gen.c_str(), src.c_str(), def.c_str());
  }
  return 0;
}
