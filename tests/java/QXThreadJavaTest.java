import java.util.ArrayList;
import java.util.List;

/**
 * Loads libQXPlatform into a real Java VM and checks that threads of the
 * library attach to the VM while their body runs, call back into Java, and
 * detach afterwards; and what JNI_OnLoad prints when called again.
 *
 * Arguments: the path of libQXPlatform.so, then the path of the test's own
 * native library. Exits with status 1 when any check fails.
 */
public final class QXThreadJavaTest {
  private static final int JNI_VERSION_1_8 = 0x10008;

  private static final List<Thread> callbackThreads = new ArrayList<>();
  private static final List<String> failures = new ArrayList<>();

  /** The address of the running VM. */
  private static native long vmPointer();

  /** A pointer as the C++ standard library prints it. */
  private static native String pointerText(long pointer);

  /** Calls JNI_OnLoad(vm) and returns what it wrote on standard error. */
  private static native String callOnLoad(long vm);

  /** The result of the last callOnLoad. */
  private static native int lastOnLoadResult();

  /**
   * Starts a library thread whose body checks that it is attached and calls
   * callback(); returns null when all went well, otherwise what went wrong.
   */
  private static native String runAttachedThread();

  /**
   * Starts a library thread whose body checks that it is not attached;
   * returns null when all went well, otherwise what went wrong.
   */
  private static native String runDetachedThread();

  /** Called from the native thread's body. */
  static void callback() {
    synchronized (callbackThreads) {
      callbackThreads.add(Thread.currentThread());
    }
  }

  private static void check(boolean ok, String what) {
    if (!ok) {
      failures.add(what);
    }
  }

  private static void checkEqual(String got, String expected, String what) {
    if (!expected.equals(got)) {
      failures.add(what + ": expected <" + expected + "> got <" + got + ">");
    }
  }

  private static Thread lastCallbackThread() {
    synchronized (callbackThreads) {
      return callbackThreads.isEmpty() ? null
          : callbackThreads.get(callbackThreads.size() - 1);
    }
  }

  private static int callbackCount() {
    synchronized (callbackThreads) {
      return callbackThreads.size();
    }
  }

  private static void checkAttachedThread(int expectedCount) {
    String problem = runAttachedThread();
    check(problem == null, "attached thread: " + problem);
    check(callbackCount() == expectedCount,
        "callback count " + callbackCount() + ", expected " + expectedCount);
    Thread caller = lastCallbackThread();
    check(caller != null, "no thread called back");
    if (caller != null) {
      check(caller != Thread.currentThread(), "callback ran on the main thread");
      check(caller.getId() != Thread.currentThread().getId(),
          "callback thread has the main thread's id");
      // Detaching ends the VM's view of the thread before Join returns.
      check(!caller.isAlive(), "callback thread still attached after Join");
      check(caller.getState() == Thread.State.TERMINATED,
          "callback thread state " + caller.getState());
    }
  }

  public static void main(String[] args) {
    if (args.length != 2) {
      System.err.println("usage: QXThreadJavaTest <libQXPlatform.so> <native test library>");
      System.exit(2);
    }
    // The VM calls the library's JNI_OnLoad here and stores itself.
    System.load(args[0]);
    System.load(args[1]);

    long vm = vmPointer();
    check(vm != 0, "no VM pointer");

    String out = callOnLoad(vm);
    checkEqual(out, "", "JNI_OnLoad with the same VM");
    check(lastOnLoadResult() == JNI_VERSION_1_8, "result with the same VM");

    checkAttachedThread(1);

    // Another pointer: reported, then stored. No thread may start while it
    // is stored, since it is not a VM.
    long other = vm + 64;
    out = callOnLoad(other);
    checkEqual(out,
        "JNI_OnLoad called with jvm already set, was: " + pointerText(vm)
            + " now: " + pointerText(other) + "\n",
        "JNI_OnLoad with another VM");
    check(lastOnLoadResult() == JNI_VERSION_1_8, "result with another VM");

    out = callOnLoad(0);
    checkEqual(out,
        "JNI_OnLoad called with Null jvm argument, was: " + pointerText(other)
            + " now: " + pointerText(0) + "\n",
        "JNI_OnLoad with a null VM");
    check(lastOnLoadResult() == JNI_VERSION_1_8, "result with a null VM");

    // No VM stored: the body runs without attaching.
    String problem = runDetachedThread();
    check(problem == null, "thread without a VM: " + problem);
    check(callbackCount() == 1, "a thread without a VM called back");

    // Storing the VM again is silent, and threads attach again.
    out = callOnLoad(vm);
    checkEqual(out, "", "JNI_OnLoad after a null VM");
    check(lastOnLoadResult() == JNI_VERSION_1_8, "result after a null VM");
    checkAttachedThread(2);

    if (!failures.isEmpty()) {
      for (String failure : failures) {
        System.err.println("FAIL: " + failure);
      }
      System.exit(1);
    }
    System.out.println("QXThreadJavaTest: all checks passed");
  }
}
