#pragma once

// The subcommands of the qxplatform tool. Each returns the exit status:
// 0 success, 1 failure (after a one-line message on standard error naming
// the file and the reason), 2 usage error.

#include <stdio.h>

#include <string>

#include <QXPlatform/streams/qxstream.h>

namespace qxtool {

const int kExitOk = 0;
const int kExitFailure = 1;
const int kExitUsage = 2;

int RunCat(int argc, char** argv);
int RunWrite(int argc, char** argv);
int RunCompress(int argc, char** argv);
int RunUncompress(int argc, char** argv);
int RunInfo(int argc, char** argv);
int RunVersions(int argc, char** argv);
// Without a command: argv[0] is the program, then flags and FILEs as gzip
// and zstd take them; help prints the tool's help on standard output.
int RunFiles(int argc, char** argv, void (*help)());

// Prints "qxplatform <command>: <what>: <reason>" on standard error.
void Complain(const char* command, const std::string& what,
              const std::string& reason);
// Prints a usage error for command and its help text on standard error;
// returns kExitUsage.
int UsageError(const char* command, const std::string& problem,
               void (*help)(FILE*));
// True when argv holds --help or -h.
bool WantsHelp(int argc, char** argv);
// The reason a named file could not be opened for reading, as the system
// words it ("No such file or directory", "Is a directory", ...).
std::string WhyUnreadable(const std::string& name);
// The reason a named file could not be created.
std::string WhyUnwritable(const std::string& name);
// The reason a stream failed: its errortext() when it recorded a failure
// (the system's words, or the kind of damage of compressed input), else the
// system's text for fallback.
std::string WhyFailed(const QXPlatform::qxstream& s, int fallback);
// How a file or standard input/output is named in messages.
std::string Shown(const std::string& name, const char* standard);

}  // namespace qxtool
