// compress and uncompress: a file or standard input streamed through the
// library's gzip or zstd streams to a file or standard output, one block at
// a time, so memory stays bounded whatever the size.

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

void PrintCompressHelp(FILE* to) {
  fputs(
      "usage: qxplatform compress -m gz|zstd [IN [OUT]]\n"
      "\n"
      "Compresses all of IN (standard input when absent or '-') as one gzip\n"
      "member or one zstd frame and writes it to OUT (standard output when\n"
      "absent or '-'). Without -m the method comes from OUT's name: gz for\n"
      "a name ending in \".gz\", zstd for \".zst\". -1 (fastest) to -9\n"
      "(smallest; up to -19 for zstd) set the level, by default 6 for gz\n"
      "and 3 for zstd. -T N (--threads=N) packs on N threads, 1 to 64: gz\n"
      "in blocks (one ordinary member, a little larger), zstd with workers.\n"
      "Compressed data are not written to a terminal unless -f (--force) is\n"
      "given.\n",
      to);
}

void PrintUncompressHelp(FILE* to) {
  fputs(
      "usage: qxplatform uncompress -m gz|zstd [IN [OUT]]\n"
      "\n"
      "Uncompresses all of IN (standard input when absent or '-') and writes\n"
      "the result to OUT (standard output when absent or '-'). Without -m the\n"
      "method comes from IN's name: gz for a name ending in \".gz\", zstd for\n"
      "\".zst\". With gz, data that is not gzip comes out unchanged; with\n"
      "zstd, IN must start with a zstd frame. On damaged data the status is 1\n"
      "and an existing OUT is left as it was.\n",
      to);
}

struct Arguments {
  std::string methodText;
  Method method = Method::kNone;
  int level = 0;
  bool levelGiven = false;
  unsigned threads = 1;
  bool force = false;
  std::string in = "-";
  std::string out = "-";
};

// Parses [-m METHOD] [-#] [-f] [--] [IN [OUT]]; returns an empty text or the
// problem found.
std::string Parse(bool compress, int argc, char** argv, Arguments* args) {
  std::vector<std::string> positional;
  bool optionsEnded = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (optionsEnded || arg == "-" || arg.empty() || arg[0] != '-') {
      positional.push_back(arg);
    } else if (arg == "--") {
      optionsEnded = true;
    } else if (arg == "-m" || arg == "--method") {
      if (i + 1 >= argc) {
        return "-m needs a method (gz or zstd)";
      }
      args->methodText = argv[++i];
    } else if (arg.compare(0, 9, "--method=") == 0) {
      args->methodText = arg.substr(9);
    } else if (arg.compare(0, 2, "-m") == 0 && arg.size() > 2) {
      args->methodText = arg.substr(2);
    } else if (compress && arg.size() >= 2 && arg.size() <= 3 &&
               arg.find_first_not_of("0123456789", 1) == std::string::npos) {
      args->level = atoi(arg.c_str() + 1);
      args->levelGiven = true;
    } else if (compress && (arg == "-T" || arg == "--threads" ||
                            arg.compare(0, 2, "-T") == 0 ||
                            arg.compare(0, 10, "--threads=") == 0)) {
      std::string value;
      if (arg == "-T" || arg == "--threads") {
        if (i + 1 >= argc) {
          return arg + " needs a thread count (1 to 64)";
        }
        value = argv[++i];
      } else {
        value = arg.substr(arg[1] == 'T' ? 2 : 10);
      }
      args->threads = ThreadsFromText(value);
      if (args->threads == 0) {
        return "bad thread count '" + value + "' (1 to 64)";
      }
    } else if (compress && (arg == "-f" || arg == "--force")) {
      args->force = true;
    } else {
      return "unknown option '" + arg + "'";
    }
  }
  if (!positional.empty()) {
    args->in = positional[0];
  }
  if (positional.size() > 1) {
    args->out = positional[1];
  }
  if (args->methodText.empty()) {
    // The name says what the data are: OUT for compress, IN for uncompress.
    args->method = positional.size() > 2
                       ? Method::kNone
                       : MethodFromName(compress ? args->out : args->in);
    if (args->method == Method::kNone) {
      return "missing -m gz|zstd";
    }
  } else {
    args->method = MethodFromText(args->methodText);
    if (args->method == Method::kNone) {
      return "unknown method '" + args->methodText + "' (use gz or zstd)";
    }
  }
  if (positional.size() > 2) {
    return "too many arguments";
  }
  int highest = args->method == Method::kZstd ? 19 : 9;
  if (args->levelGiven && (args->level < 1 || args->level > highest)) {
    return "level -" + std::to_string(args->level) + " out of range (-1 to -" +
           std::to_string(highest) + " for " + MethodText(args->method) + ")";
  }
  return std::string();
}

// Where the result goes: standard output, OUT itself when it is no regular
// file (a device, a pipe), or a new file beside OUT that replaces it only
// when everything went well, so that a failure leaves an existing OUT alone.
class Output {
 public:
  Output(const char* command, const std::string& name)
      : _command(command), _name(name) {}
  ~Output() {
    if (!_temporary.empty()) {
      unlink(_temporary.c_str());
    }
  }

  QXPlatform::qxostream* Open() {
    if (_name == "-") {
      return &QXPlatform::qxout;
    }
    struct stat st;
    bool exists = stat(_name.c_str(), &st) == 0;
    // A symbolic link keeps pointing where it did: the file it names is
    // the one replaced.
    std::string target = _name;
    if (exists) {
      char* real = realpath(_name.c_str(), nullptr);
      if (real != nullptr) {
        target = real;
        free(real);
      }
    }
    int fd;
    if (exists && !S_ISREG(st.st_mode)) {
      fd = open(_name.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    } else {
      _target = target;
      _temporary = target + ".XXXXXX";
      fd = mkostemp(&_temporary[0], O_CLOEXEC);
      if (fd < 0) {
        _temporary.clear();
      } else {
        // As a file created anew with open(2) would be.
        mode_t mask = umask(0);
        umask(mask);
        fchmod(fd, exists ? (st.st_mode & 07777) : (0666 & ~mask));
      }
    }
    if (fd < 0) {
      Complain(_command, _name, strerror(errno));
      return nullptr;
    }
    _file.openfd(fd, false);
    return &_file;
  }

  // Closes the file and puts it in place; false (after saying why) when
  // the last bytes could not be written.
  bool Commit() {
    if (_name == "-") {
      return true;
    }
    if (!_file.close() || _file.error() != 0) {
      Complain(_command, _name,
               _file.error() != 0 ? _file.errortext() : strerror(EIO));
      return false;
    }
    if (!_temporary.empty()) {
      if (rename(_temporary.c_str(), _target.c_str()) != 0) {
        Complain(_command, _name, strerror(errno));
        return false;
      }
      _temporary.clear();
    }
    return true;
  }

  std::string Shown() const {
    return _name == "-" ? "standard output" : _name;
  }

 private:
  const char* _command;
  std::string _name;
  std::string _target;
  std::string _temporary;
  QXPlatform::qxofstream _file;
};

int Run(const char* command, bool compress, int argc, char** argv,
        void (*help)(FILE*)) {
  if (WantsHelp(argc, argv)) {
    help(stdout);
    return kExitOk;
  }
  Arguments args;
  std::string problem = Parse(compress, argc, argv, &args);
  if (!problem.empty()) {
    return UsageError(command, problem, help);
  }
  if (compress && args.out == "-" && !args.force && isatty(1)) {
    Complain(command, "standard output",
             "compressed data not written to a terminal (use -f to force)");
    return kExitFailure;
  }
  QXPlatform::qxifstream file;
  QXPlatform::qxistream* in = &QXPlatform::qxin;
  std::string inShown = "standard input";
  if (args.in != "-") {
    int fd = open(args.in.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat st;
    if (fd >= 0 && fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
      close(fd);
      fd = -1;
      errno = EISDIR;
    }
    if (fd < 0) {
      Complain(command, args.in, strerror(errno));
      return kExitFailure;
    }
    file.openfd(fd, false);
    in = &file;
    inShown = args.in;
  }
  Output output(command, args.out);
  QXPlatform::qxostream* out = output.Open();
  if (out == nullptr) {
    return kExitFailure;
  }
  Failure why;
  bool ok = compress
                ? CompressStream(args.method, args.level, *in, *out, &why,
                                 args.threads)
                : UncompressStream(args.method, *in, out, &why);
  if (!ok) {
    Complain(command, why.onOutput ? output.Shown() : inShown, why.reason);
    return kExitFailure;
  }
  return output.Commit() ? kExitOk : kExitFailure;
}

}  // namespace

int RunCompress(int argc, char** argv) {
  return Run("compress", true, argc, argv, PrintCompressHelp);
}

int RunUncompress(int argc, char** argv) {
  return Run("uncompress", false, argc, argv, PrintUncompressHelp);
}

}  // namespace qxtool
