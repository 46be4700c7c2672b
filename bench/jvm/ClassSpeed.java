import java.lang.invoke.MethodHandle;
import java.lang.invoke.MethodHandles;
import java.lang.invoke.MethodType;
import java.net.URL;
import java.net.URLClassLoader;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.Random;

/**
 * Times the work method of a class written by the expression compiler
 * against javac's class of the same definitions (the same operations in the
 * same order as Java source), in one JVM:
 *
 *   java -cp DIR ClassSpeed GEN_DIR GEN_CLASS JAVAC_DIR JAVAC_CLASS ROUNDS CALLS
 *
 * Both are static "([D[D)I" methods named work, called through method
 * handles held in static final fields (constants to the JIT, which inlines
 * them as a direct call). Each is warmed up, then both must give the same
 * outputs (Double.equals: bits, any NaN for a NaN) and status on 64 random
 * input vectors; then ROUNDS rounds, alternating which goes first, each
 * timing CALLS calls of both over those inputs. Prints
 *   "size BYTES methods M" (the generated class's bytes and its number of
 *   work methods: 1 when no continuation was split off), then
 *   "round NS_GENERATED NS_JAVAC" per round (nanoseconds per call), then
 *   "median NS_GENERATED NS_JAVAC RATIO" with RATIO the median of the
 *   rounds' ratios generated / javac.
 * Exits with status 1 and "mismatch ..." when the outputs differ.
 */
public final class ClassSpeed {
  static MethodHandle pendingGenerated, pendingJavac;

  static final class Generated {
    static final MethodHandle WORK = pendingGenerated;
  }

  static final class Javac {
    static final MethodHandle WORK = pendingJavac;
  }

  static final int INPUTS = 64;
  static double sink;

  static long runGenerated(double[][] in, double[] out, int calls) throws Throwable {
    long t0 = System.nanoTime();
    int status = 0;
    for (int i = 0; i < calls; ++i) {
      status += (int) Generated.WORK.invokeExact(in[i & (INPUTS - 1)], out);
      sink += out[0];
    }
    long t = System.nanoTime() - t0;
    sink += status;
    return t;
  }

  static long runJavac(double[][] in, double[] out, int calls) throws Throwable {
    long t0 = System.nanoTime();
    int status = 0;
    for (int i = 0; i < calls; ++i) {
      status += (int) Javac.WORK.invokeExact(in[i & (INPUTS - 1)], out);
      sink += out[0];
    }
    long t = System.nanoTime() - t0;
    sink += status;
    return t;
  }

  static Class<?> load(String dir, String name) throws Exception {
    URLClassLoader loader = new URLClassLoader(new URL[] {Path.of(dir).toUri().toURL()},
                                               ClassSpeed.class.getClassLoader());
    return Class.forName(name, true, loader);
  }

  static MethodHandle work(Class<?> c) throws Exception {
    return MethodHandles.publicLookup().findStatic(
        c, "work", MethodType.methodType(int.class, double[].class, double[].class));
  }

  static double median(double[] v) {
    double[] s = v.clone();
    Arrays.sort(s);
    int n = s.length;
    return n % 2 == 1 ? s[n / 2] : 0.5 * (s[n / 2 - 1] + s[n / 2]);
  }

  public static void main(String[] args) throws Throwable {
    Class<?> gen = load(args[0], args[1]);
    pendingGenerated = work(gen);
    pendingJavac = work(load(args[2], args[3]));
    final int rounds = Integer.parseInt(args[4]), calls = Integer.parseInt(args[5]);
    long bytes = java.nio.file.Files.size(Path.of(args[0], args[1] + ".class"));
    int methods = 0;
    for (var m : gen.getDeclaredMethods())
      if (m.getName().startsWith("work")) ++methods;
    System.out.println("size " + bytes + " methods " + methods);

    int nargin = gen.getField("NARGIN").getInt(null), nargout = gen.getField("NARGOUT").getInt(null);
    Random rng = new Random(20261124);
    double[][] in = new double[INPUTS][nargin];
    for (double[] x : in)
      for (int k = 0; k < nargin; ++k) x[k] = 0.5 + rng.nextDouble();
    double[] outG = new double[nargout], outJ = new double[nargout];

    // Warm-up: enough calls for the JIT's last tier on both.
    for (int w = 0; w < 5; ++w) {
      runGenerated(in, outG, 20000);
      runJavac(in, outJ, 20000);
    }
    for (double[] x : in) {
      int sg = (int) Generated.WORK.invokeExact(x, outG);
      int sj = (int) Javac.WORK.invokeExact(x, outJ);
      for (int k = 0; k < nargout; ++k)
        if (sg != sj || !Double.valueOf(outG[k]).equals(outJ[k])) {
          System.out.println("mismatch output " + k + ": " + sg + " " + outG[k] + " javac " + sj + " "
                             + outJ[k]);
          System.exit(1);
        }
    }

    double[] tg = new double[rounds], tj = new double[rounds], ratio = new double[rounds];
    for (int r = 0; r < rounds; ++r) {
      long g, j;
      if (r % 2 == 0) {
        g = runGenerated(in, outG, calls);
        j = runJavac(in, outJ, calls);
      } else {
        j = runJavac(in, outJ, calls);
        g = runGenerated(in, outG, calls);
      }
      tg[r] = (double) g / calls;
      tj[r] = (double) j / calls;
      ratio[r] = tg[r] / tj[r];
      System.out.println("round " + tg[r] + " " + tj[r]);
    }
    System.out.println("median " + median(tg) + " " + median(tj) + " " + median(ratio));
    if (sink == 42.0) System.out.println();  // keeps the results alive
  }
}
