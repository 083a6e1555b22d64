import java.util.ArrayList;
import java.util.List;

/**
 * A toolkit's Java side: it loads only its own native library, which links
 * libQXPlatform and hands the VM over from its JNI_OnLoad. Threads of the
 * library then call back into Java. Exits with status 0 only when they did.
 *
 * Run with -Djava.library.path naming the directory of
 * libqxtoolkit_example.so; libQXPlatform.so is found as that library's
 * dependency.
 */
public final class QXToolkitExample {
  private static final List<Thread> callers = new ArrayList<>();

  static {
    // The VM calls the toolkit's JNI_OnLoad here, which calls QXSetJavaVM.
    System.loadLibrary("qxtoolkit_example");
  }

  /** Runs library threads that call callback(); null when all went well. */
  private static native String runLibraryThreads();

  /** Called from the library's threads. */
  static void callback() {
    synchronized (callers) {
      callers.add(Thread.currentThread());
    }
  }

  public static void main(String[] args) {
    String problem = runLibraryThreads();
    if (problem != null) {
      System.err.println("QXToolkitExample: failed: " + problem);
      System.exit(1);
    }
    synchronized (callers) {
      if (callers.size() != 2 || callers.contains(Thread.currentThread())) {
        System.err.println("QXToolkitExample: failed: callbacks from "
            + callers);
        System.exit(1);
      }
    }
    System.out.println("QXToolkitExample: library threads called back");
  }
}
