#include "console/option_scanner.h"

#include <algorithm>
#include <cwchar>
#include <string>

#include "base/text_codec.h"

namespace vmd {

namespace {

constexpr int kUnknown = L'?';
constexpr int kMissing = L':';
wchar_t kEmpty[] = L"";

// An element is an option when it starts with '-' and has more after it; "-"
// alone and "/x" are plain words.
bool isNonOption(const wchar_t* element) { return element[0] != L'-' || element[1] == L'\0'; }

const wchar_t* findLetter(const wchar_t* letters, wchar_t c) {
  return c == L'\0' ? nullptr : std::wcschr(letters, c);
}

const wchar_t* nameEnd(const wchar_t* name) {
  const wchar_t* end = name;
  while (*end && *end != L'=') ++end;
  return end;
}

// Moves the options gathered in [lastNonOption, optind) in front of the
// words set aside in [firstNonOption, lastNonOption); each group keeps its order.
void exchange(wchar_t** argv, OptionScanState& d) {
  std::rotate(argv + d.firstNonOption, argv + d.lastNonOption, argv + d.optind);
  d.firstNonOption += d.optind - d.lastNonOption;
  d.lastNonOption = d.optind;
}

struct Match {
  const LongOption* found = nullptr;
  bool exact = false;
  bool ambiguous = false;
};

// Any two inexact matches make a name ambiguous, whatever their rows say.
Match lookUp(const LongOption* longopts, const wchar_t* name, const wchar_t* end) {
  const std::size_t length = static_cast<std::size_t>(end - name);
  Match m;
  if (!longopts) return m;
  for (const LongOption* p = longopts; p->name; ++p) {
    if (std::wcsncmp(p->name, name, length) != 0) continue;
    if (std::wcslen(p->name) == length) {
      m.found = p;
      m.exact = true;
      return m;
    }
    if (!m.found)
      m.found = p;
    else
      m.ambiguous = true;
  }
  return m;
}

// How a long name was written, for the wording of its warnings.
enum class Written { DoubleDash, SingleDash, AfterW };

// One call of the scan.
class Step {
 public:
  Step(int argc, wchar_t** argv, const wchar_t* optstring, const LongOption* longopts, int* longind,
       OptionScanState& d, bool printErrors, Output& diag)
      : argc_(argc), argv_(argv), optstring_(optstring), longopts_(longopts), longind_(longind), d_(d),
        printErrors_(printErrors && optstring[0] != L':'), missing_(optstring[0] == L':' ? kMissing : kUnknown),
        diag_(diag) {}

  int run(int longOnly);

 private:
  template <class... Args>
  void warn(std::wstring_view fmt, const Args&... args) {
    if (printErrors_) diag_.err(fmt, args...);
  }
  // Moves to the next element to scan; false when the scan is over (or, in
  // return-in-order mode, when a word is to be returned) with `result` set.
  bool advance(int& result);
  // The long option at nextchar; false when it is to be read as letters.
  bool longOption(int& result);
  int letter();
  int withLongW();
  // The found row: takes its argument, then returns its value (or 0).
  int matched(const LongOption* p, const wchar_t* end, Written written, wchar_t dash);

  int argc_;
  wchar_t** argv_;
  const wchar_t* optstring_;
  const LongOption* longopts_;
  int* longind_;
  OptionScanState& d_;
  bool printErrors_;
  int missing_;
  Output& diag_;
};

bool Step::advance(int& result) {
  if (d_.lastNonOption > d_.optind) d_.lastNonOption = d_.optind;
  if (d_.firstNonOption > d_.optind) d_.firstNonOption = d_.optind;

  if (d_.ordering == Ordering::Permute) {
    if (d_.firstNonOption != d_.lastNonOption && d_.lastNonOption != d_.optind)
      exchange(argv_, d_);
    else if (d_.lastNonOption != d_.optind)
      d_.firstNonOption = d_.optind;
    while (d_.optind < argc_ && isNonOption(argv_[d_.optind])) ++d_.optind;
    d_.lastNonOption = d_.optind;
  }

  if (d_.optind < argc_ && std::wcscmp(argv_[d_.optind], L"--") == 0) {
    ++d_.optind;
    if (d_.firstNonOption != d_.lastNonOption && d_.lastNonOption != d_.optind)
      exchange(argv_, d_);
    else if (d_.firstNonOption == d_.lastNonOption)
      d_.firstNonOption = d_.optind;
    d_.lastNonOption = argc_;
    d_.optind = argc_;
  }

  if (d_.optind >= argc_) {
    // Leave optind at the words permutation gathered at the end.
    if (d_.firstNonOption != d_.lastNonOption) d_.optind = d_.firstNonOption;
    result = -1;
    return false;
  }

  if (isNonOption(argv_[d_.optind])) {
    if (d_.ordering == Ordering::RequireOrder) {
      result = -1;
      return false;
    }
    d_.optarg = argv_[d_.optind++];
    result = 1;
    return false;
  }

  d_.nextchar = argv_[d_.optind] + (argv_[d_.optind][1] == L'-' ? 2 : 1);
  return true;
}

int Step::matched(const LongOption* p, const wchar_t* end, Written written, wchar_t dash) {
  d_.optarg = nullptr;
  if (*end) {
    if (!p->hasArg) {
      if (written == Written::DoubleDash)
        warn(L"Warning: option '--%s' doesn't allow an argument.\n", p->name);
      else if (written == Written::SingleDash)
        warn(L"Warning: option '%c%s' doesn't allow an argument.\n", dash, p->name);
      else
        warn(L"Warning: option '-W %s' doesn't allow an argument.\n", p->name);
      d_.nextchar += std::wcslen(d_.nextchar);
      d_.optopt = p->val;
      return kUnknown;
    }
    d_.optarg = const_cast<wchar_t*>(end + 1);
  } else if (p->hasArg == 1) {
    // Optional arguments (2) only ever come after '='.
    if (d_.optind >= argc_) {
      if (written == Written::AfterW)
        warn(L"Warning: option '-W %s' requires an argument.\n", p->name);
      else
        warn(L"Warning: option '--%s' requires an argument.\n", p->name);
      d_.nextchar += std::wcslen(d_.nextchar);
      d_.optopt = p->val;
      return missing_;
    }
    d_.optarg = argv_[d_.optind++];
  }
  d_.nextchar += std::wcslen(d_.nextchar);
  if (longind_) *longind_ = static_cast<int>(p - longopts_);
  if (p->flag) {
    *p->flag = p->val;
    return 0;
  }
  return p->val;
}

bool Step::longOption(int& result) {
  const wchar_t* element = argv_[d_.optind];
  const bool doubleDash = element[1] == L'-';
  const wchar_t* end = nameEnd(d_.nextchar);
  const Match m = lookUp(longopts_, d_.nextchar, end);

  if (m.ambiguous && !m.exact) {
    warn(L"Warning: option '%s' is ambiguous.\n", element);
    d_.nextchar += std::wcslen(d_.nextchar);
    ++d_.optind;
    d_.optopt = 0;
    result = kUnknown;
    return true;
  }
  if (m.found) {
    ++d_.optind;
    result = matched(m.found, end, doubleDash ? Written::DoubleDash : Written::SingleDash, element[0]);
    return true;
  }
  if (!doubleDash && findLetter(optstring_, *d_.nextchar)) return false;

  // The warning names the option without any "=value".
  const std::wstring name(d_.nextchar, static_cast<std::size_t>(end - d_.nextchar));
  if (doubleDash)
    warn(L"Warning: unrecognized option '--%s'.\n", name);
  else
    warn(L"Warning: unrecognized option '%c%s'.\n", element[0], name);
  d_.nextchar = kEmpty;
  ++d_.optind;
  d_.optopt = 0;
  result = kUnknown;
  return true;
}

int Step::withLongW() {
  // The name is W's required argument: the rest of the element or the next one.
  if (*d_.nextchar != L'\0') {
    d_.optarg = d_.nextchar;
    ++d_.optind;
  } else if (d_.optind >= argc_) {
    warn(L"Warning: option requires an argument -- '%c'.\n", L'W');
    d_.optopt = L'W';
    return missing_;
  } else {
    d_.optarg = argv_[d_.optind++];
  }

  wchar_t* name = d_.optarg;
  d_.nextchar = name;
  const wchar_t* end = nameEnd(name);
  const Match m = lookUp(longopts_, name, end);
  if (m.ambiguous && !m.exact) {
    warn(L"Warning: option '-W %s' is ambiguous.\n", name);
    d_.optarg = nullptr;
    d_.nextchar += std::wcslen(d_.nextchar);
    d_.optopt = 0;
    return kUnknown;
  }
  if (m.found) return matched(m.found, end, Written::AfterW, L'-');
  // Not a known name: W itself, with the text in optarg, for the caller.
  d_.nextchar = nullptr;
  return L'W';
}

int Step::letter() {
  const wchar_t c = *d_.nextchar++;
  if (*d_.nextchar == L'=') ++d_.nextchar;  // -n=128 carries its value after '='
  const wchar_t* entry = findLetter(optstring_, c);
  if (*d_.nextchar == L'\0') ++d_.optind;

  if (!entry || c == L':' || c == L';') {
    warn(L"Warning: invalid option -- '%c'.\n", c);
    d_.optopt = c;
    return kUnknown;
  }
  if (entry[0] == L'W' && entry[1] == L';') return withLongW();
  if (entry[1] != L':') return c;

  if (entry[2] == L':') {
    // Optional values only ever come attached: "-m COMPACT" leaves COMPACT.
    d_.optarg = *d_.nextchar ? d_.nextchar : nullptr;
    if (d_.optarg) ++d_.optind;
  } else if (*d_.nextchar) {
    d_.optarg = d_.nextchar;
    ++d_.optind;
  } else if (d_.optind < argc_) {
    d_.optarg = argv_[d_.optind++];
  } else {
    warn(L"Warning: option requires an argument -- '%c'.\n", c);
    d_.optopt = c;
    d_.nextchar = nullptr;
    return missing_;
  }
  d_.nextchar = nullptr;
  return c;
}

int Step::run(int longOnly) {
  // A caller that moved optind off the element leaves the rest of it behind.
  if (!d_.nextchar || !*d_.nextchar || d_.optind >= argc_) {
    int result = -1;
    if (!advance(result)) return result;
  }

  // A single-dash element is one letter only when the letter stands alone or
  // is followed by '=' (-i=1024), so letter values win over long prefixes.
  // Asked again inside a cluster, where the rest is first tried as a name.
  const wchar_t* element = argv_[d_.optind];
  const bool lone = element[2] == L'\0' || element[2] == L'=';
  if (longopts_ && (element[1] == L'-' || (longOnly && !(lone && findLetter(optstring_, element[1]))))) {
    int result = kUnknown;
    if (longOption(result)) return result;
  }
  return letter();
}

}  // namespace

int scanOptions(int argc, wchar_t** argv, const wchar_t* optstring, const LongOption* longopts, int* longind,
                int longOnly, OptionScanState& d, int strictOrder, Output& diag) {
  d.optarg = nullptr;

  // An optind of 0 is kept: callers hand in vectors without a program name.
  if (!d.initialized) {
    d.firstNonOption = d.lastNonOption = d.optind;
    d.nextchar = nullptr;
    d.posixlyCorrect = strictOrder ? 1 : 0;
    if (optstring[0] == L'-')
      d.ordering = Ordering::ReturnInOrder;
    else if (optstring[0] == L'+')
      d.ordering = Ordering::RequireOrder;
    else
      d.ordering = d.posixlyCorrect ? Ordering::RequireOrder : Ordering::Permute;
    d.initialized = 1;
  }
  if (optstring[0] == L'-' || optstring[0] == L'+') ++optstring;

  return Step(argc, argv, optstring, longopts, longind, d, d.opterr != 0, diag).run(longOnly);
}

int OptionScanner::next(int argc, wchar_t** argv, const wchar_t* optstring, const LongOption* longopts) {
  state.optind = optind;
  state.opterr = 1;
  const int result = scanOptions(argc, argv, optstring, longopts, nullptr, 1, state, 0, out_);
  optind = state.optind;
  optarg = state.optarg;
  optopt = state.optopt;
  return result;
}

void OptionScanner::reportLeftovers(int argc, wchar_t** argv) {
  for (int i = optind; i < argc; ++i) out_.errStr(strid::ArgumentIgnored, argv[i]);
}

bool isHelpArgument(const std::wstring& a) {
  return a == L"-?" || a == L"/?" || equalsNoCase(a, L"-h") || equalsNoCase(a, L"-help") ||
         equalsNoCase(a, L"--help");
}

}  // namespace vmd
