// The tool without a command, as gzip and zstd are used: flags choose what
// happens to each FILE (compress by default, -d, -t, -l), the method comes
// from -m or the name's suffix, outputs are FILE.gz / FILE.zst or FILE
// without the suffix, and standard input goes to standard output.

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <QXPlatform/QXPlatform.h>

#include "codec.h"
#include "commands.h"

namespace qxtool {
namespace {

using QXPlatform::qxifstream;
using QXPlatform::qxofstream;

enum class Action { kCompress, kDecompress, kTest, kList };

struct Options {
  Action action = Action::kCompress;
  bool toStdout = false;
  bool force = false;
  bool keep = false;
  bool version = false;
  bool help = false;
  int level = 0;
  std::string levelText;
  unsigned threads = 1;
  Method method = Method::kNone;
  std::vector<std::string> files;
};

// Outcome of the whole run: an error (1) wins over a warning (2), which
// marks a file skipped with nothing lost, as gzip does.
struct Status {
  bool error = false;
  bool warning = false;
  int Exit() const { return error ? kExitFailure : warning ? kExitUsage : kExitOk; }
};

void Say(const std::string& text) {
  fprintf(stderr, "qxplatform: %s\n", text.c_str());
}

int Usage(const std::string& problem) {
  Say(problem);
  fputs("Run 'qxplatform --help' for the options and commands.\n", stderr);
  return kExitUsage;
}

// The flags that take no value: the one-letter name (0 for none) and the
// long names.
struct Flag {
  char letter;
  const char* name;
  const char* alias;
  void (*set)(Options*);
};

const Flag kFlags[] = {
    {'c', "--stdout", "--to-stdout", [](Options* p) { p->toStdout = true; }},
    {'d', "--decompress", "--uncompress",
     [](Options* p) { p->action = Action::kDecompress; }},
    {'f', "--force", nullptr, [](Options* p) { p->force = true; }},
    {'k', "--keep", nullptr, [](Options* p) { p->keep = true; }},
    {'l', "--list", nullptr, [](Options* p) { p->action = Action::kList; }},
    {'t', "--test", nullptr, [](Options* p) { p->action = Action::kTest; }},
    {'1', "--fast", nullptr, [](Options* p) { p->level = 1; }},
    {'9', "--best", nullptr, [](Options* p) { p->level = 9; }},
    {'V', "--version", nullptr, [](Options* p) { p->version = true; }},
    {'h', "--help", nullptr, [](Options* p) { p->help = true; }},
};

// Sets the method named by value; an empty text or the problem found.
std::string SetMethod(const std::string& value, Options* o) {
  o->method = MethodFromText(value);
  if (o->method == Method::kNone) {
    return "unknown method '" + value + "' (use gz or zstd)";
  }
  return std::string();
}

// Sets the thread count given by value; an empty text or the problem found.
std::string SetThreads(const std::string& value, Options* o) {
  o->threads = ThreadsFromText(value);
  if (o->threads == 0) {
    return "bad thread count '" + value + "' (1 to 64)";
  }
  return std::string();
}

// The value of an option that takes one: the rest of the argument when
// there is any, else the next argument. False when there is none.
bool OptionValue(const std::string& rest, int* i, int argc, char** argv,
                 std::string* value) {
  if (!rest.empty()) {
    *value = rest;
    return true;
  }
  if (*i + 1 >= argc) {
    return false;
  }
  *value = argv[++*i];
  return true;
}

// A long option: its name and, after '=' (or as the next argument for
// --method), its value. An empty text or the problem found.
std::string LongOption(const std::string& arg, Options* o, int* i, int argc,
                       char** argv) {
  size_t eq = arg.find('=');
  std::string name = arg.substr(0, eq);
  if (name == "--threads") {
    std::string value;
    if (eq != std::string::npos) {
      value = arg.substr(eq + 1);
    } else if (!OptionValue(std::string(), i, argc, argv, &value)) {
      return "option '--threads' needs a thread count (1 to 64)";
    }
    return SetThreads(value, o);
  }
  if (name == "--method") {
    if (eq != std::string::npos) {
      return SetMethod(arg.substr(eq + 1), o);
    }
    std::string value;
    if (!OptionValue(std::string(), i, argc, argv, &value)) {
      return "option '--method' needs a method (gz or zstd)";
    }
    return SetMethod(value, o);
  }
  for (const Flag& flag : kFlags) {
    if (name == flag.name || (flag.alias != nullptr && name == flag.alias)) {
      if (eq != std::string::npos) {
        return "option '" + name + "' takes no value";
      }
      flag.set(o);
      return std::string();
    }
  }
  return "unknown option '" + name + "'";
}

// Parses the flags and FILEs; an empty text or the problem found.
std::string Parse(int argc, char** argv, Options* o) {
  bool optionsEnded = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (optionsEnded || arg == "-" || arg.empty() || arg[0] != '-') {
      o->files.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    if (arg.compare(0, 2, "--") == 0) {
      std::string problem = LongOption(arg, o, &i, argc, argv);
      if (!problem.empty()) {
        return problem;
      }
      continue;
    }
    // A cluster of one-letter flags: -dc, -k9; -m takes the rest of the
    // cluster or the next argument.
    for (size_t k = 1; k < arg.size(); ++k) {
      char c = arg[k];
      if (c == 'm') {
        std::string value;
        if (!OptionValue(arg.substr(k + 1), &i, argc, argv, &value)) {
          return "option '-m' needs a method (gz or zstd)";
        }
        std::string problem = SetMethod(value, o);
        if (!problem.empty()) {
          return problem;
        }
        break;
      }
      if (c == 'T') {
        std::string value;
        if (!OptionValue(arg.substr(k + 1), &i, argc, argv, &value)) {
          return "option '-T' needs a thread count (1 to 64)";
        }
        std::string problem = SetThreads(value, o);
        if (!problem.empty()) {
          return problem;
        }
        break;
      }
      if (c >= '1' && c <= '9') {
        // A level: a run of digits is one number, as zstd reads -19.
        size_t end = arg.find_first_not_of("0123456789", k);
        end = end == std::string::npos ? arg.size() : end;
        o->levelText = arg.substr(k, end - k);
        o->level = end - k > 2 ? 100 : atoi(o->levelText.c_str());
        k = end - 1;
        continue;
      }
      const Flag* found = nullptr;
      for (const Flag& flag : kFlags) {
        if (flag.letter == c) {
          found = &flag;
        }
      }
      if (found == nullptr) {
        return std::string("unknown option '-") + c + "'";
      }
      found->set(o);
    }
  }
  return std::string();
}

// Copies the permission bits and times of the input to the output, as
// gzip does; a failure here loses nothing and is not reported.
void CopyAttributes(const struct stat& from, const std::string& to) {
  chmod(to.c_str(), from.st_mode & 07777);
  struct timespec times[2] = {from.st_atim, from.st_mtim};
  utimensat(AT_FDCWD, to.c_str(), times, 0);
}

class Runner {
 public:
  explicit Runner(const Options& o) : _o(o) {}

  int Run() {
    std::vector<std::string> files = _o.files;
    if (files.empty()) {
      files.push_back("-");
    }
    if (_o.action == Action::kList) {
      ListHeading();
    }
    for (const std::string& name : files) {
      if (name == "-") {
        Standard();
      } else {
        File(name);
      }
    }
    if (_o.action == Action::kList && _listed > 1) {
      ListLine(_totalIn, _totalOut, "(totals)");
    }
    // A lost write on standard output is reported once, where it happened.
    if (!QXPlatform::qxout.flush() && !_status.error) {
      Fail("standard output", QXPlatform::qxout.error() != 0
                                  ? QXPlatform::qxout.errortext()
                                  : strerror(EIO));
    }
    return _status.Exit();
  }

 private:
  void Fail(const std::string& name, const std::string& reason) {
    Say(name + ": " + reason);
    _status.error = true;
  }
  void Warn(const std::string& text) {
    Say(text);
    _status.warning = true;
  }

  Method PackMethod() const {
    return _o.method == Method::kNone ? Method::kGz : _o.method;
  }

  // Compressed data to a terminal are refused unless -f.
  bool TerminalRefused() {
    if (_o.action == Action::kCompress && !_o.force && isatty(1)) {
      Say("compressed data not written to a terminal. Use -f to force "
          "compression.");
      _status.error = true;
      return true;
    }
    return false;
  }

  // Standard input to standard output.
  void Standard() {
    if (_o.action == Action::kCompress) {
      if (TerminalRefused()) {
        return;
      }
      Failure why;
      if (!CompressStream(PackMethod(), _o.level, QXPlatform::qxin,
                          QXPlatform::qxout, &why, _o.threads)) {
        Fail(why.onOutput ? "standard output" : "standard input", why.reason);
      }
      return;
    }
    // Nobody types compressed data: waiting for them would only hang.
    if (!_o.force && isatty(0)) {
      Say("compressed data not read from a terminal. Use -f to force "
          "decompression.");
      _status.error = true;
      return;
    }
    Unpack(QXPlatform::qxin, "standard input", "-",
           _o.action == Action::kDecompress ? &QXPlatform::qxout : nullptr);
  }

  // Unpacks in (named name) onto out (null for -t and -l); the method from
  // the data. True on success.
  bool Unpack(QXPlatform::qxistream& in, const std::string& name,
              const std::string& listName, QXPlatform::qxostream* out) {
    PeekedStream peeked(in);
    if (peeked.error() != 0) {
      Fail(name, peeked.errortext());
      return false;
    }
    Method method = MethodFromMagic(peeked.head(), peeked.headSize());
    Failure why;
    if (method == Method::kNone) {
      // As gzip -dcf: with -f, data that are not compressed are copied
      // unchanged to standard output (-c, or standard input).
      if (out == &QXPlatform::qxout && _o.force) {
        if (CopyStream(peeked, *out, &why)) {
          return true;
        }
      } else {
        // Empty input is cut short before any header, as gzip and zstd
        // see it.
        Fail(name, peeked.headSize() == 0 ? "unexpected end of file"
                                          : "not in gzip or zstd format");
        return false;
      }
    } else {
      unsigned long long unpacked = 0;
      if (UncompressStream(method, peeked, out, &why, &unpacked)) {
        if (_o.action == Action::kList) {
          ListLine(peeked.consumed(), unpacked, listName);
          _totalIn += peeked.consumed();
          _totalOut += unpacked;
          ++_listed;
        }
        return true;
      }
    }
    Fail(why.onOutput ? (out == &QXPlatform::qxout ? "standard output" : _outName)
                      : name,
         why.reason);
    return false;
  }

  void ListHeading() {
    QXPlatform::qxout << "         compressed        uncompressed  ratio "
                         "uncompressed_name\n";
  }

  void ListLine(unsigned long long packed, unsigned long long unpacked,
                const std::string& name) {
    char line[128];
    double ratio = unpacked == 0 ? 0.0
                                 : 100.0 * (static_cast<double>(unpacked) -
                                            static_cast<double>(packed)) /
                                       static_cast<double>(unpacked);
    snprintf(line, sizeof line, "%19llu %19llu %5.1f%% ", packed, unpacked,
             ratio);
    QXPlatform::qxout << line << name << "\n";
  }

  void File(const std::string& name) {
    struct stat st;
    if (lstat(name.c_str(), &st) != 0) {
      Fail(name, strerror(errno));
      return;
    }
    if (S_ISDIR(st.st_mode)) {
      Warn(name + " is a directory -- ignored");
      return;
    }
    if (!S_ISREG(st.st_mode) && !(_o.force && S_ISLNK(st.st_mode))) {
      Warn(name + " is not a regular file -- ignored");
      return;
    }
    std::string outName;
    if (!_o.toStdout && _o.action == Action::kCompress) {
      if (MethodFromName(name) == PackMethod()) {
        // As gzip: said, but no warning status; the file is as wanted.
        Say(name + " already has " + MethodSuffix(PackMethod()) +
            " suffix -- unchanged");
        return;
      }
      outName = name + MethodSuffix(PackMethod());
    } else if (!_o.toStdout && _o.action == Action::kDecompress) {
      Method m = MethodFromName(name);
      if (m == Method::kNone) {
        Warn(name + ": unknown suffix -- ignored");
        return;
      }
      outName = name.substr(0, name.size() - strlen(MethodSuffix(m)));
    }
    if (_o.toStdout && _o.action == Action::kCompress && TerminalRefused()) {
      return;
    }
    qxifstream in;
    int inFd = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (inFd < 0) {
      Fail(name, strerror(errno));
      return;
    }
    in.openfd(inFd, false);

    if (outName.empty()) {
      // To standard output, or nowhere (-t, -l).
      QXPlatform::qxostream* out =
          _o.action == Action::kTest || _o.action == Action::kList
              ? nullptr
              : &QXPlatform::qxout;
      if (_o.action == Action::kCompress) {
        Failure why;
        if (!CompressStream(PackMethod(), _o.level, in, QXPlatform::qxout,
                            &why, _o.threads)) {
          Fail(why.onOutput ? "standard output" : name, why.reason);
        }
      } else {
        Unpack(in, name, ListName(name), out);
      }
      return;
    }

    // To a file of its own: never over an existing one without -f. With
    // -f the data go to a scratch name beside it first, and replace it only
    // when all went well, so a failure leaves the old output as it was.
    struct stat existing;
    bool replace = lstat(outName.c_str(), &existing) == 0;
    if (replace && !_o.force) {
      Warn(outName + " already exists; not overwritten");
      return;
    }
    if (replace && S_ISDIR(existing.st_mode)) {
      Fail(outName, strerror(EISDIR));
      return;
    }
    std::string writeName = outName;
    int outFd;
    if (replace) {
      writeName = outName + ".XXXXXX";
      outFd = mkostemp(&writeName[0], O_CLOEXEC);
    } else {
      outFd = open(outName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                   0600);
    }
    if (outFd < 0) {
      Fail(outName, strerror(errno));
      return;
    }
    _outName = outName;
    bool ok;
    {
      qxofstream out(outFd);
      if (_o.action == Action::kCompress) {
        Failure why;
        ok = CompressStream(PackMethod(), _o.level, in, out, &why, _o.threads);
        if (!ok) {
          Fail(why.onOutput ? outName : name, why.reason);
        }
      } else {
        ok = Unpack(in, name, outName, &out);
      }
      if (ok && (!out.close() || out.error() != 0)) {
        Fail(outName, out.error() != 0 ? out.errortext() : strerror(EIO));
        ok = false;
      }
    }
    if (ok && replace && rename(writeName.c_str(), outName.c_str()) != 0) {
      Fail(outName, strerror(errno));
      ok = false;
    }
    if (!ok) {
      unlink(writeName.c_str());
      return;
    }
    CopyAttributes(st, outName);
    if (!_o.keep && unlink(name.c_str()) != 0) {
      Fail(name, strerror(errno));
    }
  }

  // The name -l shows: the file's name without its suffix.
  static std::string ListName(const std::string& name) {
    Method m = MethodFromName(name);
    return m == Method::kNone ? name
                              : name.substr(0, name.size() - strlen(MethodSuffix(m)));
  }

  const Options& _o;
  Status _status;
  std::string _outName;
  unsigned long long _totalIn = 0;
  unsigned long long _totalOut = 0;
  int _listed = 0;
};

}  // namespace

int RunFiles(int argc, char** argv, void (*help)()) {
  Options o;
  std::string problem = Parse(argc, argv, &o);
  if (!problem.empty()) {
    return Usage(problem);
  }
  int highest = o.method == Method::kZstd ? 19 : 9;
  if (o.level > highest) {
    return Usage("level -" + o.levelText + " out of range (-1 to -" +
                 std::to_string(highest) + " for " +
                 MethodText(o.method == Method::kNone ? Method::kGz : o.method) +
                 ")");
  }
  if (o.help) {
    help();
    return kExitOk;
  }
  if (o.version) {
    printf("qxplatform %s\n", QXPlatform::QXToolkitsGetRelease().c_str());
    return fflush(stdout) == 0 ? kExitOk : kExitFailure;
  }
  return Runner(o).Run();
}

}  // namespace qxtool
