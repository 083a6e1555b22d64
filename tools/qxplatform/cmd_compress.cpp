// compress and uncompress: whole-buffer compression of a file or of standard
// input, with the method named on the command line.

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
      "absent or '-').\n",
      to);
}

void PrintUncompressHelp(FILE* to) {
  fputs(
      "usage: qxplatform uncompress -m gz|zstd [IN [OUT]]\n"
      "\n"
      "Uncompresses all of IN (standard input when absent or '-') and writes\n"
      "the result to OUT (standard output when absent or '-'). With gz, data\n"
      "that is not gzip comes out unchanged.\n",
      to);
}

struct Arguments {
  std::string method;
  std::string in = "-";
  std::string out = "-";
};

// Parses -m METHOD [IN [OUT]]; returns an empty text or the problem found.
std::string Parse(int argc, char** argv, Arguments* args) {
  std::vector<std::string> positional;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "-m" || arg == "--method") {
      if (i + 1 >= argc) {
        return "-m needs a method (gz or zstd)";
      }
      args->method = argv[++i];
    } else if (arg.compare(0, 2, "-m") == 0 && arg.size() > 2) {
      args->method = arg.substr(2);
    } else if (arg.size() > 1 && arg[0] == '-') {
      return "unknown option '" + arg + "'";
    } else {
      positional.push_back(arg);
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
bool ReadAll(const char* command, const std::string& name, std::string* data) {
  if (name == "-") {
    QXPlatform::qxin.read(*data);
    return true;
  }
  QXPlatform::qxifstream in(name.c_str());
  if (in.eof()) {
    Complain(command, name, WhyUnreadable(name));
    return false;
  }
  in.read(*data);
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
    file.close();
  }
  if (!ok) {
    Complain(command, name == "-" ? "standard output" : name, "write failed");
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
  std::string problem = Parse(argc, argv, &args);
  if (!problem.empty()) {
    return UsageError(command, problem, help);
  }
  std::string data;
  if (!ReadAll(command, args.in, &data)) {
    return kExitFailure;
  }
  std::string result;
  bool ok = compress ? QXPlatform::QXCompress(result, data, args.method.c_str())
                     : QXPlatform::QXUncompress(result, data, args.method.c_str());
  if (!ok) {
    Complain(command, args.in == "-" ? "standard input" : args.in,
             compress ? "compression failed"
                      : "not valid " + args.method + " data");
    return kExitFailure;
  }
  return WriteAll(command, args.out, result) ? kExitOk : kExitFailure;
}

}  // namespace

int RunCompress(int argc, char** argv) {
  return Run("compress", true, argc, argv, PrintCompressHelp);
}

int RunUncompress(int argc, char** argv) {
  return Run("uncompress", false, argc, argv, PrintUncompressHelp);
}

}  // namespace qxtool
