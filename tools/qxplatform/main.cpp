// qxplatform: a command-line front end to the library's streams.

#include <stdio.h>
#include <string.h>

#include <string>

#include "commands.h"

namespace {

void PrintHelp() {
  fputs(
      "usage: qxplatform <command> [arguments]\n"
      "\n"
      "commands:\n"
      "  cat [NAME...]   copy each named stream (or standard input) to standard output\n"
      "\n"
      "Run 'qxplatform <command> --help' for the arguments of a command.\n",
      stdout);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    PrintHelp();
    return qxtool::kExitUsage;
  }
  std::string command = argv[1];
  if (command == "--help" || command == "-h" || command == "help") {
    PrintHelp();
    return qxtool::kExitOk;
  }
  if (command == "cat") {
    return qxtool::RunCat(argc - 1, argv + 1);
  }
  fprintf(stderr, "qxplatform: unknown command '%s'\n", command.c_str());
  PrintHelp();
  return qxtool::kExitUsage;
}
