#pragma once

// The subcommands of the qxplatform tool. Each returns the exit status:
// 0 success, 1 failure (after a message on standard error), 2 usage error.

namespace qxtool {

const int kExitOk = 0;
const int kExitFailure = 1;
const int kExitUsage = 2;

int RunCat(int argc, char** argv);
void PrintCatHelp();

}  // namespace qxtool
