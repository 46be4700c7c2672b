// The Java -> native -> Java round trip of 10^6 doubles (x = 2x + 1) through
// the bridge, copying and without a copy, against the plain Java loop over
// the same array. The three results are checked bit for bit before anything
// is timed; then the three ways run interleaved and the medians are printed
// with their ratios to the Java loop.
//
// usage: java -cp CLASSES JniSpeed LIBQVARRAYJNI LIBQVJNISPEED
import java.util.Arrays;
import java.util.Random;

public class JniSpeed {
  static native void affineCopy(double[] a);
  static native void affineInPlace(double[] a);

  static void javaLoop(double[] a) {
    for (int k = 0; k < a.length; ++k) a[k] = 2 * a[k] + 1;
  }

  static double median(long[] t) {
    Arrays.sort(t);
    return t[t.length / 2] / 1e3;
  }

  public static void main(String[] args) {
    System.load(args[0]);
    System.load(args[1]);
    final int n = 1000000, reps = 101;
    Random rng = new Random(7);
    double[] a = new double[n];
    for (int k = 0; k < n; ++k) a[k] = rng.nextGaussian();

    double[] java = a.clone(), copy = a.clone(), inPlace = a.clone();
    javaLoop(java);
    affineCopy(copy);
    affineInPlace(inPlace);
    if (!Arrays.equals(java, copy) || !Arrays.equals(java, inPlace)) {
      System.out.println("the native results differ from the Java loop's");
      System.exit(1);
    }

    long[][] t = new long[3][reps];
    for (int r = 0; r < reps; ++r)
      for (int way = 0; way < 3; ++way) {
        long t0 = System.nanoTime();
        if (way == 0) {
          javaLoop(a);
        } else if (way == 1) {
          affineCopy(a);
        } else {
          affineInPlace(a);
        }
        t[way][r] = System.nanoTime() - t0;
        for (int k = 0; k < n; k += 4096) a[k] = 0;  // keep the values finite
      }
    double loop = median(t[0]);
    System.out.printf("x = 2x+1 on 10^6 doubles, medians of %d (us): java loop %.1f, "
            + "native copy %.1f (%.2fx), native no-copy %.1f (%.2fx)%n",
        reps, loop, median(t[1]), median(t[1]) / loop, median(t[2]), median(t[2]) / loop);
  }
}
