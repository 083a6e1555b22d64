// qxplatform: a command-line front end to the library's streams, buffer
// compression, system information and version report.

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
      "\n"
      "commands:\n"
      "  cat [NAME...]                      copy streams to standard output "
      "(gzip input is unpacked)\n"
      "  write NAME                         copy standard input to NAME "
      "(\".gz\" in NAME compresses)\n"
      "  compress -m gz|zstd [IN [OUT]]     compress a whole file\n"
      "  uncompress -m gz|zstd [IN [OUT]]   uncompress a whole file\n"
      "  info                               host, machine, user and process "
      "facts\n"
      "  versions                           the version report\n"
      "\n"
      "Run 'qxplatform <command> --help' for the arguments of a command.\n"
      "Exit status: 0 success, 1 failure, 2 usage error.\n",
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
