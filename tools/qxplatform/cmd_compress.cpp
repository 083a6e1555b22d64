// compress and uncompress: whole-buffer compression of a file or of standard
// input, with the method named on the command line.

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <new>

#include <string>
#include <vector>

#include <QXPlatform/QXPlatform.h>

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
      "a name ending in \".gz\", zstd for \".zst\". Compressed data are not\n"
      "written to a terminal unless -f (--force) is given.\n",
      to);
}

void PrintUncompressHelp(FILE* to) {
  fputs(
      "usage: qxplatform uncompress -m gz|zstd [IN [OUT]]\n"
      "\n"
      "Uncompresses all of IN (standard input when absent or '-') and writes\n"
      "the result to OUT (standard output when absent or '-'). With gz, data\n"
      "that is not gzip comes out unchanged. Without -m the method comes from\n"
      "IN's name: gz for a name ending in \".gz\", zstd for \".zst\".\n",
      to);
}

struct Arguments {
  std::string method;
  bool force = false;
  std::string in = "-";
  std::string out = "-";
};

// The method a file name's suffix names: "gz" for ".gz", "zstd" for ".zst",
// else "".
std::string MethodOfName(const std::string& name) {
  auto endsWith = [&name](const std::string& suffix) {
    return name.size() > suffix.size() &&
           name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0;
  };
  return endsWith(".gz") ? "gz" : endsWith(".zst") ? "zstd" : "";
}

// Parses [-m METHOD] [--] [IN [OUT]]; returns an empty text or the problem
// found. Without -m the method comes from the name of the compressed side:
// OUT for compress, IN for uncompress.
std::string Parse(bool compress, int argc, char** argv, Arguments* args) {
  std::vector<std::string> positional;
  bool optionsEnded = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (optionsEnded) {
      positional.push_back(arg);
    } else if (arg == "--") {
      optionsEnded = true;
    } else if (arg == "-m" || arg == "--method") {
      if (i + 1 >= argc) {
        return "-m needs a method (gz or zstd)";
      }
      args->method = argv[++i];
    } else if (compress && (arg == "-f" || arg == "--force")) {
      args->force = true;
    } else if (arg.compare(0, 9, "--method=") == 0) {
      args->method = arg.substr(9);
    } else if (arg.compare(0, 2, "-m") == 0 && arg.size() > 2) {
      args->method = arg.substr(2);
    } else if (arg.size() > 1 && arg[0] == '-') {
      return "unknown option '" + arg + "'";
    } else {
      positional.push_back(arg);
    }
  }
  if (args->method.empty() && positional.size() <= 2) {
    size_t named = compress ? 1 : 0;
    if (positional.size() > named) {
      args->method = MethodOfName(positional[named]);
    }
  }
  if (args->method.empty()) {
    return "missing -m gz|zstd";
  }
  if (args->method != "gz" && args->method != "zstd") {
    return "unknown method '" + args->method + "' (use gz or zstd)";
  }
  if (positional.size() > 2) {
    return "too many arguments";
  }
  if (!positional.empty()) {
    args->in = positional[0];
  }
  if (positional.size() > 1) {
    args->out = positional[1];
  }
  return std::string();
}

// Reads all of a file (or standard input for "-") into data.
// A read error (a directory, a failing device) is reported and gives false.
bool ReadAll(const char* command, const std::string& name, std::string* data) {
  if (name == "-") {
    QXPlatform::qxin.read(*data);
    if (QXPlatform::qxin.error() != 0) {
      Complain(command, "standard input", QXPlatform::qxin.errortext());
      return false;
    }
    return true;
  }
  QXPlatform::qxifstream in(name.c_str());
  if (in.eof()) {
    Complain(command, name, WhyUnreadable(name));
    return false;
  }
  in.read(*data);
  if (in.error() != 0) {
    Complain(command, name, in.errortext());
    return false;
  }
  return true;
}

// Writes data to a file (or standard output for "-").
bool WriteAll(const char* command, const std::string& name,
              const std::string& data) {
  QXPlatform::qxofstream file;
  QXPlatform::qxofstream* out = &QXPlatform::qxout;
  if (name != "-") {
    if (!file.open(name.c_str())) {
      Complain(command, name, WhyUnwritable(name));
      return false;
    }
    out = &file;
  }
  bool ok = out->write(data) == data.size() || data.empty();
  ok = out->flush() && ok;
  if (name != "-") {
    // Closing may be the first to hear of a lost write.
    file.close();
  }
  if (!ok || out->error() != 0) {
    Complain(command, Shown(name, "standard output"), WhyFailed(*out, EIO));
    return false;
  }
  return true;
}

// Compresses or uncompresses data into result; false when the method
// refuses the data. Damage found in data that still unpack in part is put
// into damage, in the words of the gzip streams for gz ("unexpected end of
// file", "invalid compressed data--crc error", ...).
bool Transform(bool compress, const std::string& method,
               const std::string& data, std::string* result,
               std::string* damage) {
  if (compress) {
    return QXPlatform::QXCompress(*result, data, method.c_str());
  }
  if (method == "gz") {
    // The stream itself, for the kind of damage: QXUncompress gives only
    // EBADMSG. What it delivers is what QXUncompress would.
    QXPlatform::qxisstream source(data.data(), data.size(), false);
    QXPlatform::qxigzstream gz(&source, false);
    gz.read(*result);
    if (gz.error() != 0) {
      *damage = gz.errortext();
    }
    return true;
  }
  int error = 0;
  bool ok = QXPlatform::QXUncompress(*result, data, method.c_str(), &error);
  if (ok && error != 0) {
    // A zstd decoder that took all the input without an error and still
    // wants more: the frame was cut short.
    *damage = "unexpected end of file";
  }
  return ok;
}

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
  std::string data;
  if (!ReadAll(command, args.in, &data)) {
    return kExitFailure;
  }
  std::string result;
  std::string damage;
  bool ok = Transform(compress, args.method, data, &result, &damage);
  if (!ok) {
    Complain(command, Shown(args.in, "standard input"),
             compress ? "compression failed"
                      : "not valid " + args.method + " data");
    return kExitFailure;
  }
  if (!damage.empty()) {
    Complain(command, Shown(args.in, "standard input"), damage);
    return kExitFailure;
  }
  return WriteAll(command, args.out, result) ? kExitOk : kExitFailure;
}

// Run, with memory exhaustion (a huge input, or a small one that unpacks to
// more than memory holds) reported like any other failure.
int RunGuarded(const char* command, bool compress, int argc, char** argv,
               void (*help)(FILE*)) {
  try {
    return Run(command, compress, argc, argv, help);
  } catch (const std::bad_alloc&) {
    Arguments args;
    Parse(compress, argc, argv, &args);
    Complain(command, Shown(args.in, "standard input"), strerror(ENOMEM));
    return kExitFailure;
  }
}

}  // namespace

int RunCompress(int argc, char** argv) {
  return RunGuarded("compress", true, argc, argv, PrintCompressHelp);
}

int RunUncompress(int argc, char** argv) {
  return RunGuarded("uncompress", false, argc, argv, PrintUncompressHelp);
}

}  // namespace qxtool
