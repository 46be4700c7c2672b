// The expression host as the native library sees it, answering from a table:
// known infix texts get their prefix form; texts ending in "!" provoke the
// failures the library must report (null and empty answers, an exception).
package com.qubrix.nativejni.util;

import java.util.Map;

public class ExprTree {
  private static final Map<String, String> PREFIX = Map.of(
      "a+b*c", "+ a * b c",
      "(a+b)*c", "* + a b c",
      "-a^b", "U- ^ a b",
      "a-(b-c)", "- a - b c",
      "x.y+1", "+ x.y 1",
      "s('\u00e9\ud834\udd1e')", "() s 1 \"\" 3 \u00e9\ud834\udd1e");

  // The library prints a tree, the host answers the prefix form of its
  // simplification.
  private static final Map<String, String> SIMP = Map.of("a+b*c", "+ a * c b");

  public static String parseExprToPrefix(String text, boolean a, boolean b) {
    if (!a || !b) throw new IllegalArgumentException("both flags must be true");
    switch (text) {
      case "empty!":
        return "";
      case "throw!":
        throw new IllegalStateException("host failure");
      default:
        return PREFIX.get(text);  // null for anything else ("null!")
    }
  }

  public static String simp(String text) {
    return SIMP.get(text);
  }
}
