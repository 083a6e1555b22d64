// qxplatform: a command-line front end to the library's streams,
// compression, system information and version report. A first argument
// that is a command runs that command; one that starts with '-' makes the
// tool work on FILEs as gzip and zstd do.

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>

#include <new>
#include <string>

#include <QXPlatform/QXPlatform.h>

#include "commands.h"

namespace {

void PrintHelpTo(FILE* to) {
  fputs(
      "usage: qxplatform <command> [arguments]\n"
      "       qxplatform --version\n"
      "       qxplatform [-cdfkltV] [-1..-9] [-m gz|zstd] [-T N] [--] [FILE...]\n"
      "\n"
      "commands:\n"
      "  cat [NAME...]                      copy streams to standard output "
      "(gzip and zstd input is unpacked)\n"
      "  write NAME                         copy standard input to NAME "
      "(\".gz\" in NAME or a \".zst\" ending compresses)\n"
      "  compress -m gz|zstd [IN [OUT]]     compress a file or standard input\n"
      "  uncompress -m gz|zstd [IN [OUT]]   uncompress a file or standard "
      "input\n"
      "  info                               host, machine, user and process "
      "facts\n"
      "  versions                           the version report\n"
      "\n"
      "options, without a command (as gzip and zstd take them):\n"
      "  -c, --stdout        write to standard output, keep the input files\n"
      "  -d, --decompress    decompress (the method from the data)\n"
      "  -f, --force         overwrite existing outputs, write compressed data "
      "to a\n"
      "                      terminal, with -dc copy data that are not "
      "compressed\n"
      "  -k, --keep          keep the input files (removed otherwise)\n"
      "  -l, --list          list compressed and uncompressed sizes\n"
      "  -t, --test          test the integrity of compressed data\n"
      "  -1 .. -9            compression level (--fast is -1, --best is -9)\n"
      "  -m, --method=METHOD compress with gz (the default) or zstd\n"
      "  -T, --threads=N     compress on N threads, 1 to 64\n"
      "  -V, --version       print the version\n"
      "  -h, --help          print this help\n"
      "  --                  every later argument is a FILE\n"
      "Each FILE is compressed to FILE.gz or FILE.zst, or decompressed from "
      "it;\n"
      "no FILE, or '-', reads standard input and writes standard output.\n"
      "\n"
      "Run 'qxplatform <command> --help' for the arguments of a command.\n"
      "Exit status: 0 success, 1 failure, 2 usage error or a FILE skipped with "
      "a\n"
      "warning.\n",
      to);
}

void PrintHelp() { PrintHelpTo(stdout); }

// Runs the command named by argv[1]; its exit status.
int Dispatch(int argc, char** argv);

}  // namespace

int main(int argc, char** argv) {
  // A reader that has gone and a file-size limit then show as write errors
  // (EPIPE, EFBIG) that the commands report with status 1, instead of
  // ending the process by a signal with the data silently cut.
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
  try {
    return Dispatch(argc, argv);
  } catch (const std::bad_alloc&) {
    fprintf(stderr, "qxplatform %s: memory: %s\n", argc > 1 ? argv[1] : "",
            strerror(ENOMEM));
    return qxtool::kExitFailure;
  }
}

namespace {

int Dispatch(int argc, char** argv) {
  if (argc < 2) {
    // A usage error: the help goes to standard error, as every other one.
    PrintHelpTo(stderr);
    return qxtool::kExitUsage;
  }
  std::string command = argv[1];
  if (command == "--help" || command == "-h" || command == "help") {
    PrintHelp();
    return qxtool::kExitOk;
  }
  if (command == "--version" || command == "-V") {
    if (argc > 2) {
      fprintf(stderr, "qxplatform: %s takes no arguments\n", command.c_str());
      return qxtool::kExitUsage;
    }
    printf("qxplatform %s\n", QXPlatform::QXToolkitsGetRelease().c_str());
    if (fflush(stdout) != 0) {
      fprintf(stderr, "qxplatform: standard output: %s\n", strerror(errno));
      return qxtool::kExitFailure;
    }
    return qxtool::kExitOk;
  }
  if (command[0] == '-') {
    // An option or "-" first: FILEs with the flags gzip and zstd take.
    return qxtool::RunFiles(argc, argv, PrintHelp);
  }
  // The tool reads and writes .zst data as it does .gz data.
  QXPlatform::QXSetZstdStreams(true);
  int subArgc = argc - 1;
  char** subArgv = argv + 1;
  if (command == "cat") {
    return qxtool::RunCat(subArgc, subArgv);
  }
  if (command == "write") {
    return qxtool::RunWrite(subArgc, subArgv);
  }
  if (command == "compress") {
    return qxtool::RunCompress(subArgc, subArgv);
  }
  if (command == "uncompress") {
    return qxtool::RunUncompress(subArgc, subArgv);
  }
  if (command == "info") {
    return qxtool::RunInfo(subArgc, subArgv);
  }
  if (command == "versions") {
    return qxtool::RunVersions(subArgc, subArgv);
  }
  fprintf(stderr, "qxplatform: unknown command '%s'\n", command.c_str());
  fputs("Run 'qxplatform --help' for the list of commands.\n", stderr);
  return qxtool::kExitUsage;
}

}  // namespace
