// A class that only the host's class loader knows (JniTest loads it from a
// directory of its own), as the product's classes are to a native thread.
public class HostOnly {}
