import java.io.BufferedReader;
import java.io.FileReader;
import java.io.InputStreamReader;
import java.io.PrintWriter;
import java.io.StringWriter;
import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.spi.ToolProvider;
import org.objectweb.asm.ClassReader;
import org.objectweb.asm.util.CheckClassAdapter;

/**
 * Checks and runs class files written by the expression compiler, many in
 * one JVM (run it with -Xverify:all). Reads a job from the file named by the
 * first argument ("-" for standard input), one command a line:
 *
 *   class PATH METHOD    check PATH: ASM's CheckClassAdapter with data-flow
 *                        analysis finds nothing, javap -v parses it, a fresh
 *                        class loader defines, verifies and initialises it;
 *                        its static METHOD "([D[D)I" becomes the current one.
 *                        Prints "class NAME ok NARGIN NARGOUT" or
 *                        "class NAME FAIL what: details".
 *   in BITS...           calls the current method on the inputs, each the
 *                        raw bits of a double in hexadecimal (exact). Prints
 *                        "out STATUS Y..." with the raw bits of each output
 *                        in hexadecimal (NaN payloads and signs too), or
 *                        "out FAIL exception".
 */
public final class ClassCheck {
  /** One loader per class: classes of the same name can be checked in one run. */
  static final class OneClassLoader extends ClassLoader {
    OneClassLoader() { super(ClassCheck.class.getClassLoader()); }

    Class<?> define(String name, byte[] b) { return defineClass(name, b, 0, b.length); }
  }

  private static final ToolProvider JAVAP = ToolProvider.findFirst("javap").orElseThrow();

  private Method work;
  private int nargin, nargout;
  private final StringBuilder out = new StringBuilder();

  public static void main(String[] args) throws Exception {
    BufferedReader in = args[0].equals("-")
        ? new BufferedReader(new InputStreamReader(System.in))
        : new BufferedReader(new FileReader(args[0]));
    ClassCheck check = new ClassCheck();
    for (String line; (line = in.readLine()) != null; ) {
      String[] w = line.trim().split("\\s+");
      if (w[0].equals("class")) check.load(Path.of(w[1]), w[2]);
      else if (w[0].equals("in")) check.run(w);
      if (check.out.length() > 1 << 16) check.flush();
    }
    check.flush();
  }

  private void flush() {
    System.out.print(out);
    System.out.flush();
    out.setLength(0);
  }

  private static String firstLines(String s) {
    String[] lines = s.strip().split("\n");
    StringBuilder b = new StringBuilder();
    for (int i = 0; i < Math.min(lines.length, 8); ++i) b.append(lines[i].strip()).append(" | ");
    return b.toString();
  }

  private void load(Path path, String method) {
    work = null;
    String name = path.getFileName().toString().replaceFirst("\\.class$", "");
    try {
      byte[] bytes = Files.readAllBytes(path);
      StringWriter asm = new StringWriter();
      CheckClassAdapter.verify(new ClassReader(bytes), ClassCheck.class.getClassLoader(), false,
                               new PrintWriter(asm));
      if (!asm.toString().isBlank()) {
        out.append("class ").append(name).append(" FAIL asm: ").append(firstLines(asm.toString()))
            .append('\n');
        return;
      }
      StringWriter jout = new StringWriter(), jerr = new StringWriter();
      int rc = JAVAP.run(new PrintWriter(jout), new PrintWriter(jerr), "-v", path.toString());
      if (rc != 0 || !jerr.toString().isBlank()) {
        out.append("class ").append(name).append(" FAIL javap: ").append(firstLines(jerr.toString()))
            .append('\n');
        return;
      }
      Class<?> c = new OneClassLoader().define(name, bytes);
      Class.forName(name, true, c.getClassLoader());  // links: the verifier runs here
      nargin = c.getField("NARGIN").getInt(null);
      nargout = c.getField("NARGOUT").getInt(null);
      work = c.getMethod(method, double[].class, double[].class);
      out.append("class ").append(name).append(" ok ").append(nargin).append(' ').append(nargout)
          .append('\n');
    } catch (Throwable e) {
      out.append("class ").append(name).append(" FAIL load: ").append(e).append('\n');
    }
  }

  private void run(String[] w) {
    if (work == null) {
      out.append("out FAIL no class\n");
      return;
    }
    double[] x = new double[Math.max(nargin, w.length - 1)];
    for (int i = 1; i < w.length; ++i)
      x[i - 1] = Double.longBitsToDouble(Long.parseUnsignedLong(w[i], 16));
    double[] y = new double[nargout];
    try {
      int status = (Integer) work.invoke(null, x, y);
      out.append("out ").append(status);
      for (double v : y) out.append(' ').append(Long.toHexString(Double.doubleToRawLongBits(v)));
      out.append('\n');
    } catch (InvocationTargetException e) {
      out.append("out FAIL ").append(e.getCause()).append('\n');
    } catch (Throwable e) {
      out.append("out FAIL ").append(e).append('\n');
    }
  }
}
