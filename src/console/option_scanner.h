// The option scanner every option-taking command uses: wide getopt_long_only
// with single-dash long names, unique prefixes, permutation, and one-letter
// options that carry a value after '=' (-m=compact, -i=1024).
#pragma once

#include "console/output.h"

namespace vmd {

struct LongOption {
  const wchar_t* name;  // without dashes; a null name ends the table
  int hasArg;           // 0 none, 1 required, 2 optional (only from "=value")
  int* flag;            // when set, a match stores val there and returns 0
  wchar_t val;
};

enum class Ordering { RequireOrder = 0, Permute = 1, ReturnInOrder = 2 };

struct OptionScanState {
  int optind = 0;
  int opterr = 1;
  int optopt = '?';
  wchar_t* optarg = nullptr;
  int initialized = 0;
  wchar_t* nextchar = nullptr;
  Ordering ordering = Ordering::Permute;
  int posixlyCorrect = 0;
  int firstNonOption = 0;
  int lastNonOption = 0;
};

// One step of the scan over argv[0..argc). Returns the option's letter, '?'
// for an error, ':' for a missing argument when optstring asks for it, 0 when
// a long option's flag was set, 1 for a non-option in return-in-order mode,
// -1 at the end (then optind is the first non-option gathered by permutation).
// Diagnostics go to standard error through `diag` and never name the program.
int scanOptions(int argc, wchar_t** argv, const wchar_t* optstring, const LongOption* longopts, int* longind,
                int longOnly, OptionScanState& state, int strictOrder, Output& diag);

// The one argument that asks a companion program (vddinfo, vmdsnap) for its
// help: -?, /?, -h, -help or --help, the words in any case.
bool isHelpArgument(const std::wstring& argument);

// The process-wide scanner with the calling convention the commands follow:
// optind is copied into the state before each call, optind/optarg/optopt are
// copied back after it.
class OptionScanner {
 public:
  explicit OptionScanner(Output& out) : out_(out) {}

  int next(int argc, wchar_t** argv, const wchar_t* optstring, const LongOption* longopts);
  // "Warning: argument '%s' is unrecognized and ignored!\n" for every element
  // from optind to argc.
  void reportLeftovers(int argc, wchar_t** argv);

  int optind = 0;
  wchar_t* optarg = nullptr;
  int optopt = '?';
  OptionScanState state;

 private:
  Output& out_;
};

}  // namespace vmd
