// Loads the Java bridge library into a JVM, as the product's host does, from two
// threads at once: JNI_OnLoad initialises the native library exactly once, and
// the library writes nothing to the host's streams (the test expects one line).
public class LoadLibrary {
  public static void main(String[] args) throws Exception {
    final String path = args[0];
    Thread[] threads = new Thread[2];
    for (int i = 0; i < threads.length; ++i) {
      threads[i] = new Thread(() -> System.load(path));
      threads[i].start();
    }
    for (Thread t : threads) t.join();
    System.out.println("loaded " + path);
  }
}
