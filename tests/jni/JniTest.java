// The Java bridge in a real JVM: every wrapper and conversion of the native
// test library (jnitest.cpp) against Java's own computation, the callback
// manager from OpenMP threads, class lookup from native threads, the Java
// expression host (a table in host/com/qubrix/nativejni/util/ExprTree.java),
// the errors that reach Java, and 10^5 calls without growth of native memory
// or of global references. Run under -Xcheck:jni; the test fails on any JNI
// warning. --no-host: the host's class is missing.
//
// usage: java -Xcheck:jni -cp CLASSES JniTest LIBQVARRAYJNI LIBJNITEST HOSTCLASSES
//        [--no-host]
import java.io.File;
import java.lang.ref.WeakReference;
import java.net.URL;
import java.net.URLClassLoader;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Random;
import java.util.concurrent.atomic.AtomicInteger;

public class JniTest {
  static native void recordKeys();
  static native void writeKeys(String path);
  static native long nativeHeapKb();
  static native int utf8Length(String s);
  static native String echo(String s);
  static native void bumpAll(double[] d, float[] f, long[] l, int[] i, short[] s, char[] c,
                             byte[] b, boolean[] z, boolean critical);
  static native void doubleThenFail(double[] a);
  static native void writeReadOnly(double[] a);
  static native boolean lastWasCopy();
  static native double[] vectorRoundTrip(double[] re, double[] im);
  static native double[] complexVectorRoundTrip(double[] z, boolean imag);
  static native int[] intRoundTrip(int[] a);
  static native long[] indexRoundTrip(int[] a);
  static native double[] matrixColumnMajor(double[][] re, double[][] im);
  static native double[] complexRowsColumnMajor(double[][] rows);
  static native double[][] flatToRows(double[] a, long m, long n, boolean complex, int part);
  static native double[] slabsColumnMajor(double[][][] re, double[][][] im, boolean interleaved);
  static native double[][][] flatToSlabs(double[] a, long l, long m, long n, boolean complex,
                                         int part);
  static native double[] matVec(double[][] a, double[] x);
  static native double[] sparseMulVec(int form, Object colPtr, Object rowIndex, double[] re,
                                      double[] im, long m, long n, double[] x);
  static native Object[] sparseParts(long[] colPtr, long[] rowIndex, double[] values, long m,
                                     long n);
  static native void setArray(double[] to, double[] from);
  static native double[] zeros(int n);
  static native int runSteps(Object host, int n, int threads);
  static native int attachedWorkers(int threads);
  static native boolean findFromWorker(String name);
  static native boolean jniFindFromWorker(String name);
  static native String exprToString(String text, boolean worker);
  static native String exprSimp(String text);
  static native String exprPrefix(String text);

  static int failures = 0;
  static final Random rng = new Random(20);

  static void check(boolean ok, String what) {
    if (!ok) {
      ++failures;
      System.out.println("FAIL " + what);
    }
  }

  // The native call must fail with a RuntimeException whose message starts
  // with the key (the boundary writes "key (module:line): details").
  static RuntimeException expect(String key, Runnable call) {
    try {
      call.run();
      check(false, key + ": no exception");
    } catch (RuntimeException e) {
      check(e.getMessage() != null && e.getMessage().startsWith(key + " ("),
            key + ": got " + e.getMessage());
      return e;
    }
    return null;
  }

  static double[] random(int n) {
    double[] a = new double[n];
    for (int k = 0; k < n; ++k) a[k] = rng.nextGaussian();
    return a;
  }

  static double[][] random(int m, int n) {
    double[][] a = new double[m][];
    for (int i = 0; i < m; ++i) a[i] = random(n);
    return a;
  }

  static double[][][] random(int l, int m, int n) {
    double[][][] a = new double[l][][];
    for (int i = 0; i < l; ++i) a[i] = random(m, n);
    return a;
  }

  // ---- strings: UTF-8 inside the library, modified UTF-8 across JNI ----------

  static void strings() {
    for (String s : new String[] {"", "abc", "\u00e9", "\ud834\udd1e", "a\u0000b", "\u20ac\ud83d\ude00!"}) {
      check(utf8Length(s) == s.getBytes(java.nio.charset.StandardCharsets.UTF_8).length,
            "UTF-8 length of " + s);
      check(echo(s).equals(s), "UTF-8 round trip of " + s);
    }
  }

  // ---- wrappers --------------------------------------------------------------

  static void wrappers() {
    for (boolean critical : new boolean[] {false, true}) {
      double[] d = {1.5, -2};
      float[] f = {0.5f};
      long[] l = {Long.MAX_VALUE - 1, -3};
      int[] i = {7, -1};
      short[] s = {-5};
      char[] c = {'a'};
      byte[] b = {126};
      boolean[] z = {true, false};
      bumpAll(d, f, l, i, s, c, b, z, critical);
      check(Arrays.equals(d, new double[] {2.5, -1}) && f[0] == 1.5f
                && Arrays.equals(l, new long[] {Long.MAX_VALUE, -2})
                && Arrays.equals(i, new int[] {8, 0}) && s[0] == -4 && c[0] == 'b'
                && b[0] == 127 && !z[0] && z[1],
            "every wrapper commits, critical=" + critical);
    }
    double[] a = {1, 2, 3};
    expect("Java_array_sizes_disagree", () -> doubleThenFail(a));
    if (lastWasCopy()) check(Arrays.equals(a, new double[] {1, 2, 3}), "abort while unwinding");
    writeReadOnly(a);
    if (lastWasCopy()) check(Arrays.equals(a, new double[] {1, 2, 3}), "read-only never commits");
    expect("Null_Java_array", () -> bumpAll(null, null, null, null, null, null, null, null, true));
  }

  // ---- conversions -----------------------------------------------------------

  static void conversions() {
    double[] re = random(5), im = random(5);
    check(Arrays.equals(vectorRoundTrip(re, null), re), "real vector");
    double[] z = vectorRoundTrip(re, im);
    for (int k = 0; k < 5; ++k)
      check(z[2 * k] == re[k] && z[2 * k + 1] == im[k], "split complex vector " + k);
    check(Arrays.equals(complexVectorRoundTrip(z, false), re)
              && Arrays.equals(complexVectorRoundTrip(z, true), im),
          "interleaved complex vector, parts");
    int[] ints = {3, -7, Integer.MAX_VALUE};
    check(Arrays.equals(intRoundTrip(ints), ints), "int array");
    check(Arrays.equals(indexRoundTrip(new int[] {0, 5, -1}), new long[] {0, 5, -1}),
          "indices, a negative one as SIZE_MAX");
    check(vectorRoundTrip(new double[0], null).length == 0, "empty vector");

    // Rows to column-major: element (i, j) at i + j*m.
    final int m = 4, n = 3;
    double[][] A = random(m, n), B = random(m, n);
    double[] a = matrixColumnMajor(A, null), ab = matrixColumnMajor(A, B);
    double[][] AB = new double[m][2 * n];
    for (int i = 0; i < m; ++i)
      for (int j = 0; j < n; ++j) {
        check(a[i + j * m] == A[i][j], "real rows at " + i + "," + j);
        check(ab[2 * (i + j * m)] == A[i][j] && ab[2 * (i + j * m) + 1] == B[i][j],
              "split complex rows at " + i + "," + j);
        AB[i][2 * j] = A[i][j];
        AB[i][2 * j + 1] = B[i][j];
      }
    check(Arrays.equals(complexRowsColumnMajor(AB), ab), "interleaved complex rows");
    check(Arrays.deepEquals(flatToRows(a, m, n, false, -1), A), "flat real to rows");
    check(Arrays.deepEquals(flatToRows(ab, m, n, true, -1), AB), "flat complex to rows");
    check(Arrays.deepEquals(flatToRows(ab, m, n, true, 0), A)
              && Arrays.deepEquals(flatToRows(ab, m, n, true, 1), B),
          "flat complex to split rows");
    check(flatToRows(new double[0], 0, 2, false, -1).length == 0, "0-by-2 matrix");

    // A second way to the same numbers: the library's product against Java's.
    double[] x = random(n), y = matVec(A, x);
    for (int i = 0; i < m; ++i) {
      double s = 0;
      for (int j = 0; j < n; ++j) s += A[i][j] * x[j];
      check(Math.abs(y[i] - s) <= 1e-14 * (1 + Math.abs(s)), "A*x row " + i);
    }
    double[] to = new double[n];
    setArray(to, x);
    check(Arrays.equals(to, x), "set an existing array");

    expect("Java_array_sizes_disagree", () -> matrixColumnMajor(new double[][] {{1, 2}, {3}}, null));
    expect("Java_array_sizes_disagree", () -> matrixColumnMajor(A, random(m, n + 1)));
    expect("Java_array_sizes_disagree", () -> vectorRoundTrip(re, random(4)));
    expect("Java_array_sizes_disagree", () -> complexVectorRoundTrip(new double[3], false));
    expect("Java_array_sizes_disagree", () -> flatToRows(a, m, n + 1, false, -1));
    expect("Java_array_sizes_disagree", () -> flatToRows(a, -1, n, false, -1));
    expect("Null_Java_array", () -> matrixColumnMajor(new double[][] {{1}, null}, null));
    expect("Null_Java_array", () -> vectorRoundTrip(null, null));
    expect("Null_Java_array", () -> setArray(null, x));
  }

  // Slabs to column-major: element (i, j, k) at i + j*l + k*l*m, and back.
  static void slabs() {
    final int l = 2, m = 3, n = 4;
    double[][][] A = random(l, m, n), B = random(l, m, n), AB = new double[l][m][2 * n];
    double[] a = slabsColumnMajor(A, null, false), ab = slabsColumnMajor(A, B, false);
    for (int i = 0; i < l; ++i)
      for (int j = 0; j < m; ++j)
        for (int k = 0; k < n; ++k) {
          int p = i + j * l + k * l * m;
          check(a[p] == A[i][j][k] && ab[2 * p] == A[i][j][k] && ab[2 * p + 1] == B[i][j][k],
                "slabs at " + i + "," + j + "," + k);
          AB[i][j][2 * k] = A[i][j][k];
          AB[i][j][2 * k + 1] = B[i][j][k];
        }
    check(Arrays.equals(slabsColumnMajor(AB, null, true), ab), "interleaved complex slabs");
    check(Arrays.deepEquals(flatToSlabs(a, l, m, n, false, -1), A), "flat real to slabs");
    check(Arrays.deepEquals(flatToSlabs(ab, l, m, n, true, -1), AB), "flat complex to slabs");
    check(Arrays.deepEquals(flatToSlabs(ab, l, m, n, true, 1), B), "flat complex, imaginary part");
    double[][][] ragged = random(l, m, n);
    ragged[1][2] = random(n + 1);
    expect("Java_array_sizes_disagree", () -> slabsColumnMajor(ragged, null, false));
    expect("Null_Java_array", () -> slabsColumnMajor(new double[][][] {A[0], null}, null, false));
  }

  // ---- sparse ------------------------------------------------------------------

  // y = S*x from compressed columns, Java's way: real, or complex (x real).
  static double[] cscMulVec(long[] cp, long[] ri, double[] re, double[] im, int m, double[] x) {
    double[] y = new double[im == null ? m : 2 * m];
    for (int j = 0; j + 1 < cp.length; ++j)
      for (long p = cp[j]; p < cp[j + 1]; ++p) {
        int i = (int) ri[(int) p];
        if (im == null) {
          y[i] += re[(int) p] * x[j];
        } else {
          y[2 * i] += re[(int) p] * x[j];
          y[2 * i + 1] += im[(int) p] * x[j];
        }
      }
    return y;
  }

  static boolean close(double[] a, double[] b) {
    if (a.length != b.length) return false;
    for (int k = 0; k < a.length; ++k)
      if (Math.abs(a[k] - b[k]) > 1e-13 * (1 + Math.abs(b[k]))) return false;
    return true;
  }

  static void sparse() {
    // 3x4, a duplicate-free pattern with an empty column.
    final int m = 3, n = 4;
    long[] cp = {0, 2, 2, 3, 5};
    long[] ri = {0, 2, 1, 0, 2};
    int[] cpi = {0, 2, 2, 3, 5}, rii = {0, 2, 1, 0, 2};
    double[] re = random(5), im = random(5), x = random(n);
    double[] zi = new double[10];
    for (int k = 0; k < 5; ++k) {
      zi[2 * k] = re[k];
      zi[2 * k + 1] = im[k];
    }
    double[] real = cscMulVec(cp, ri, re, null, m, x), cplx = cscMulVec(cp, ri, re, im, m, x);
    check(close(sparseMulVec(0, cpi, rii, re, null, m, n, x), real), "sparse int[] indices");
    check(close(sparseMulVec(1, cp, ri, re, null, m, n, x), real), "sparse long[] indices");
    check(close(sparseMulVec(2, cp, ri, re, im, m, n, x), cplx), "sparse split complex");
    check(close(sparseMulVec(3, cp, ri, zi, null, m, n, x), cplx), "sparse interleaved complex");
    Object[] parts = sparseParts(cp, ri, re, m, n);
    check(Arrays.equals((long[]) parts[0], cp) && Arrays.equals((long[]) parts[1], ri)
              && Arrays.equals((double[]) parts[2], re),
          "sparse parts round trip");

    expect("Internal_error_sparse", () -> sparseMulVec(1, cp, new long[] {0, 3, 1, 0, 2}, re, null, m, n, x));
    expect("Internal_error_sparse", () -> sparseMulVec(0, cpi, new int[] {0, -2, 1, 0, 2}, re, null, m, n, x));
    expect("Java_array_sizes_disagree", () -> sparseMulVec(1, cp, ri, random(4), null, m, n, x));
    expect("Java_array_sizes_disagree", () -> sparseMulVec(1, cp, ri, re, null, m, n + 1, x));
  }

  // ---- callbacks -----------------------------------------------------------------

  public static class Host {
    final AtomicInteger polls = new AtomicInteger(), reports = new AtomicInteger();
    final int cancelAfter;
    final boolean throwing;
    volatile double maxDone = 0;

    Host(int cancelAfter, boolean throwing) {
      this.cancelAfter = cancelAfter;
      this.throwing = throwing;
    }

    public boolean isCancelled() {
      if (throwing) throw new IllegalStateException("host failure");
      return polls.incrementAndGet() > cancelAfter;
    }

    public void progress(double done) {
      reports.incrementAndGet();
      synchronized (this) {
        maxDone = Math.max(maxDone, done);
      }
    }
  }

  static void callbacks() {
    Host h = new Host(Integer.MAX_VALUE, false);
    check(runSteps(h, 40, 2) == 40 && h.polls.get() == 40 && h.reports.get() == 40
              && h.maxDone == 1.0,
          "every step polls and reports from two threads");
    check(attachedWorkers(2) == 0, "workers detached after the callbacks");
    Host c = new Host(10, false);
    expect("Operation_cancelled", () -> runSteps(c, 1000, 2));
    check(c.polls.get() <= 12, "cancellation stops the run, polls " + c.polls.get());
    RuntimeException e = expect("Java_exception_in_callback", () -> runSteps(new Host(0, true), 10, 2));
    check(e == null || e.getMessage().contains("isCancelled"), "names the method");
    expect("JNI_error", () -> runSteps(new Object(), 10, 2));
    check(attachedWorkers(2) == 0, "workers detached after failures");

    check(findFromWorker("HostOnly"), "findClass from a native thread finds a host class");
    check(!jniFindFromWorker("HostOnly"), "JNI's FindClass there does not (control)");
    check(!findFromWorker("NoSuchClass"), "findClass of a missing class is null");
  }

  // ---- the expression host: com/qubrix/nativejni/util/ExprTree answers ---------

  static void exprHost() {
    for (boolean worker : new boolean[] {false, true}) {
      for (String t : new String[] {"a+b*c", "(a+b)*c", "-a^b", "a-(b-c)", "x.y+1",
                                    "s('\u00e9\ud834\udd1e')"})
        check(t.equals(exprToString(t, worker)), "host parses, library prints " + t);
      check(exprToString("a_1", worker).equals("a_1") && exprToString("123", worker).equals("123"),
            "bare names and numbers need no host");
      expect("Internal_error_callback", () -> exprToString("null!", worker));
      expect("Syntax_error_in_expression", () -> exprToString("empty!", worker));
      expect("Internal_error_callback", () -> exprToString("throw!", worker));
    }
    check(attachedWorkers(2) == 0, "host calls detach the workers they attached");
    check(exprPrefix("a+b*c").equals("+ a * b c"), "parseExprToPrefix, both flags true");
    check(exprSimp("a+b*c").equals("a+c*b"), "simp through the host");
    expect("Internal_error_callback", () -> exprSimp("a-(b-c)"));
    expect("Empty_expression", () -> exprToString("", false));
  }

  // The library loaded where the host's class is missing.
  static void noHost() {
    for (boolean worker : new boolean[] {false, true})
      expect("Internal_error_callback", () -> exprToString("a+b", worker));
    check(exprToString("a_1", false).equals("a_1"), "bare names need no host");
  }

  // ---- errors with a Java cause ---------------------------------------------------

  static void causes() {
    RuntimeException e = expect("JNI_error", () -> zeros(Integer.MAX_VALUE - 8));
    check(e != null && e.getCause() instanceof OutOfMemoryError, "OutOfMemoryError as cause");
  }

  // ---- 10^5 calls: no growth ---------------------------------------------------------

  static void noLeaks() {
    final int calls = 100000;
    double[][] A = random(40, 3);
    double[][][] S = random(40, 2, 3);
    double[] x = random(3), re = random(5);
    long[] cp = {0, 2, 2, 3, 5}, ri = {0, 2, 1, 0, 2};
    List<WeakReference<Host>> hosts = new ArrayList<>();
    long before = 0;
    for (int k = 0; k < calls; ++k) {
      if (k == calls / 10) before = nativeHeapKb();  // after the JIT and heaps settle
      matVec(A, x);
      exprToString("a+b*c", false);
      flatToRows(matrixColumnMajor(A, A), 40, 3, true, -1);
      flatToSlabs(slabsColumnMajor(S, S, false), 40, 2, 3, true, -1);
      sparseParts(cp, ri, re, 3, 4);
      if (k % 100 == 0) {
        try {
          matrixColumnMajor(new double[][] {{1}, null}, null);
        } catch (RuntimeException ignored) {
        }
        Host h = new Host(Integer.MAX_VALUE, false);
        runSteps(h, 2, 2);
        exprToString("(a+b)*c", true);
        if (k % 1000 == 0) hosts.add(new WeakReference<>(h));
      }
    }
    long grown = nativeHeapKb() - before;
    check(grown < 16 * 1024, "native memory grew by " + grown + " kB over " + calls + " calls");
    System.gc();
    System.runFinalization();
    System.gc();
    int alive = 0;
    for (WeakReference<Host> w : hosts)
      if (w.get() != null) ++alive;
    check(alive == 0, alive + " callback objects still referenced (leaked global references)");
  }

  // ---- timing: the round trip of 10^6 doubles --------------------------------------

  public static void main(String[] args) throws Exception {
    // The host's classes come from a loader of their own, the context class
    // loader of the thread that loads the library, as in the product.
    URLClassLoader hostLoader = new URLClassLoader(
        new URL[] {new File(args[2]).toURI().toURL()}, JniTest.class.getClassLoader());
    Thread.currentThread().setContextClassLoader(hostLoader);
    System.load(args[0]);
    System.load(args[1]);
    if (args.length > 3 && args[3].equals("--no-host")) {
      noHost();
      System.out.println(failures == 0 ? "all passed" : failures + " failed");
      System.exit(failures == 0 ? 0 : 1);
    }
    String keysDir = System.getenv("QV_RAISED_KEYS_DIR");
    if (keysDir != null) recordKeys();
    strings();
    wrappers();
    conversions();
    slabs();
    sparse();
    callbacks();
    exprHost();
    causes();
    noLeaks();
    if (keysDir != null)
      writeKeys(keysDir + "/test_jni_java." + ProcessHandle.current().pid() + ".keys");
    System.out.println(failures == 0 ? "all passed" : failures + " failed");
    System.exit(failures == 0 ? 0 : 1);
  }
}
