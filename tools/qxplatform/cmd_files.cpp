// The tool without a command, as gzip and zstd are used: flags choose what
// happens to each FILE (compress by default, -d, -t, -l), the method comes
// from -m or the name's suffix, outputs are FILE.gz / FILE.zst or FILE
// without the suffix, and standard input goes to standard output.

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
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

// A long option's name and, after '=', its value.
bool LongOption(const std::string& arg, Options* o, int* i, int argc,
                char** argv, std::string* problem) {
  std::string name = arg;
  std::string value;
  bool hasValue = false;
  size_t eq = arg.find('=');
  if (eq != std::string::npos) {
    name = arg.substr(0, eq);
    value = arg.substr(eq + 1);
    hasValue = true;
  }
  if (name == "--method") {
    if (!hasValue) {
      if (*i + 1 >= argc) {
        *problem = "option '--method' needs a method (gz or zstd)";
        return false;
      }
      value = argv[++*i];
    }
    o->method = MethodFromText(value);
    if (o->method == Method::kNone) {
      *problem = "unknown method '" + value + "' (use gz or zstd)";
      return false;
    }
    return true;
  }
  struct Flag {
    const char* name;
    void (*set)(Options*);
  };
  static const Flag kFlags[] = {
      {"--stdout", [](Options* p) { p->toStdout = true; }},
      {"--to-stdout", [](Options* p) { p->toStdout = true; }},
      {"--decompress", [](Options* p) { p->action = Action::kDecompress; }},
      {"--uncompress", [](Options* p) { p->action = Action::kDecompress; }},
      {"--force", [](Options* p) { p->force = true; }},
      {"--keep", [](Options* p) { p->keep = true; }},
      {"--list", [](Options* p) { p->action = Action::kList; }},
      {"--test", [](Options* p) { p->action = Action::kTest; }},
      {"--fast", [](Options* p) { p->level = 1; }},
      {"--best", [](Options* p) { p->level = 9; }},
      {"--version", [](Options* p) { p->version = true; }},
      {"--help", [](Options* p) { p->help = true; }},
  };
  for (const Flag& flag : kFlags) {
    if (name == flag.name) {
      if (hasValue) {
        *problem = "option '" + name + "' takes no value";
        return false;
      }
      flag.set(o);
      return true;
    }
  }
  *problem = "unknown option '" + name + "'";
  return false;
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
    std::string problem;
    if (arg.compare(0, 2, "--") == 0) {
      if (!LongOption(arg, o, &i, argc, argv, &problem)) {
        return problem;
      }
      continue;
    }
    // A cluster of one-letter flags: -dc, -k9; -m takes the rest of the
    // cluster or the next argument.
    for (size_t k = 1; k < arg.size(); ++k) {
      char c = arg[k];
      if (c >= '1' && c <= '9') {
        o->level = c - '0';
      } else if (c == 'c') {
        o->toStdout = true;
      } else if (c == 'd') {
        o->action = Action::kDecompress;
      } else if (c == 'f') {
        o->force = true;
      } else if (c == 'k') {
        o->keep = true;
      } else if (c == 'l') {
        o->action = Action::kList;
      } else if (c == 't') {
        o->action = Action::kTest;
      } else if (c == 'V') {
        o->version = true;
      } else if (c == 'h') {
        o->help = true;
      } else if (c == 'm') {
        std::string value = arg.substr(k + 1);
        if (value.empty()) {
          if (i + 1 >= argc) {
            return "option '-m' needs a method (gz or zstd)";
          }
          value = argv[++i];
        }
        o->method = MethodFromText(value);
        if (o->method == Method::kNone) {
          return "unknown method '" + value + "' (use gz or zstd)";
        }
        break;
      } else {
        return std::string("unknown option '-") + c + "'";
      }
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
                          QXPlatform::qxout, &why)) {
        Fail(why.onOutput ? "standard output" : "standard input", why.reason);
      }
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
      // As gzip -dcf: with -c and -f, data that are not compressed are
      // copied unchanged.
      if (out != nullptr && _o.force && _o.toStdout) {
        if (UncompressStream(Method::kGz, peeked, out, &why)) {
          return true;
        }
      } else {
        Fail(name, "not in gzip or zstd format");
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
                            &why)) {
          Fail(why.onOutput ? "standard output" : name, why.reason);
        }
      } else {
        Unpack(in, name, ListName(name), out);
      }
      return;
    }

    // To a file of its own: never over an existing one without -f.
    struct stat existing;
    if (lstat(outName.c_str(), &existing) == 0) {
      if (!_o.force) {
        Warn(outName + " already exists; not overwritten");
        return;
      }
      if (unlink(outName.c_str()) != 0) {
        Fail(outName, strerror(errno));
        return;
      }
    }
    int outFd = open(outName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                     0600);
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
        ok = CompressStream(PackMethod(), _o.level, in, out, &why);
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
    if (!ok) {
      unlink(outName.c_str());
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
