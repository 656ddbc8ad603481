// What the option scanner's tests share: the commands' option sets as the
// commands write them, an argument vector the scanner may permute, and one
// scan to the end with everything it printed.
#pragma once

#include <cwchar>
#include <initializer_list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "console/option_scanner.h"
#include "support/fakes.h"

namespace vmd::test {

// The option sets of the commands, written as the commands write them.
inline constexpr wchar_t kDiskOptions[] = L"n:t:d:v::m::i::p:f:c:l:X::N::Q:T::r:z:I:L::D::F:K:sge:";
inline const LongOption kDiskLong[] = {
    {L"size", 1, nullptr, L'n'},     {L"type", 1, nullptr, L't'},   {L"drive", 1, nullptr, L'd'},
    {L"volatile", 2, nullptr, L'v'}, {L"dmm", 2, nullptr, L'm'},    {L"im", 2, nullptr, L'i'},
    {L"pd", 1, nullptr, L'p'},       {L"fs", 1, nullptr, L'f'},     {L"clus", 1, nullptr, L'c'},
    {L"label", 1, nullptr, L'l'},    {L"nc", 2, nullptr, L'X'},     {L"nni", 2, nullptr, L'N'},
    {L"np", 1, nullptr, L'Q'},       {L"temp", 2, nullptr, L'T'},   {L"dir", 1, nullptr, L'r'},
    {L"vsn", 1, nullptr, L'z'},      {L"image", 1, nullptr, L'I'},  {L"nosave", 2, nullptr, L'L'},
    {L"delay", 2, nullptr, L'D'},    {L"format", 1, nullptr, L'F'}, {L"timing", 1, nullptr, L'K'},
    {L"silent", 0, nullptr, L's'},   {L"skipsave", 0, nullptr, L'g'}, {L"node", 1, nullptr, L'e'},
    {nullptr, 0, nullptr, 0},
};

// del and rebuild.
inline constexpr wchar_t kRemoveOptions[] = L"gs";
inline const LongOption kRemoveLong[] = {
    {L"skipsave", 0, nullptr, L'g'},
    {L"silent", 0, nullptr, L's'},
    {nullptr, 0, nullptr, 0},
};

// im enable.
inline constexpr wchar_t kImOptions[] = L"r:q:l:ns";
inline const LongOption kImLong[] = {
    {L"rsvd", 1, nullptr, L'r'},    {L"quota", 1, nullptr, L'q'},  {L"loc", 1, nullptr, L'l'},
    {L"nohiber", 0, nullptr, L'n'}, {L"silent", 0, nullptr, L's'}, {nullptr, 0, nullptr, 0},
};

// save.
inline constexpr wchar_t kSaveOptions[] = L"a:F:s";
inline const LongOption kSaveLong[] = {
    {L"saveas", 1, nullptr, L'a'},
    {L"format", 1, nullptr, L'F'},
    {L"silent", 0, nullptr, L's'},
    {nullptr, 0, nullptr, 0},
};

// export.
inline constexpr wchar_t kExportOptions[] = L"f:s";
inline const LongOption kExportLong[] = {
    {L"file", 1, nullptr, L'f'},
    {L"silent", 0, nullptr, L's'},
    {nullptr, 0, nullptr, 0},
};

// init.
inline constexpr wchar_t kInitOptions[] = L"s";
inline const LongOption kInitLong[] = {
    {L"silent", 0, nullptr, L's'},
    {nullptr, 0, nullptr, 0},
};

// A mutable argument vector the scanner may permute.
class Argv {
 public:
  Argv(std::initializer_list<std::wstring> words) : texts_(words) {
    for (std::wstring& t : texts_) ptrs_.push_back(t.data());
    ptrs_.push_back(nullptr);
  }
  explicit Argv(const std::vector<std::wstring>& words) : texts_(words) {
    for (std::wstring& t : texts_) ptrs_.push_back(t.data());
    ptrs_.push_back(nullptr);
  }
  Argv(const Argv&) = delete;
  Argv& operator=(const Argv&) = delete;

  int argc() const { return static_cast<int>(texts_.size()); }
  wchar_t** argv() { return ptrs_.data(); }
  std::vector<std::wstring> words() const {
    std::vector<std::wstring> r;
    for (int i = 0; i < argc(); ++i) r.emplace_back(ptrs_[i]);
    return r;
  }

 private:
  std::vector<std::wstring> texts_;
  std::vector<wchar_t*> ptrs_;
};

inline std::wstring ignored(const std::wstring& word) {
  return L"Warning: argument '" + word + L"' is unrecognized and ignored!\n";
}

// "n=256" for letter n with argument 256, "m" for m without one, "?" for an
// error, "0" for a stored flag, "1=a" for a word returned in order.
inline std::wstring describe(int result, const wchar_t* optarg) {
  std::wstring s = result >= 32 ? std::wstring(1, static_cast<wchar_t>(result)) : std::to_wstring(result);
  if (optarg) s += L"=" + std::wstring(optarg);
  return s;
}

// The console and one process-wide scanner, fresh for every scan.
struct World {
  test::CapturingStreams streams;
  test::MapCatalog catalog{{}, {{strid::ArgumentIgnored, L"Warning: argument '%s' is unrecognized and ignored!\n"}}};
  test::ScriptedKeys keys;
  Output out{streams, catalog, keys};
  OptionScanner scanner{out};

  // Every result until -1, as a command takes them, separated by blanks.
  std::wstring scanAll(Argv& args, const wchar_t* optstring, const LongOption* table) {
    std::wstring steps;
    for (int guard = 0; guard < 200; ++guard) {
      const int r = scanner.next(args.argc(), args.argv(), optstring, table);
      if (r == -1) return steps;
      if (!steps.empty()) steps += L' ';
      steps += describe(r, scanner.optarg);
    }
    ADD_FAILURE() << "the scan did not end";
    return steps;
  }
};

struct Outcome {
  std::wstring steps;
  int optind;
  int optopt;
  std::vector<std::wstring> words;  // the vector after the scan
  std::wstring err;                 // scanner warnings, then the leftovers
  std::wstring out;
};

// The whole calling convention of a command: scan to the end, then report
// what is left.
inline Outcome run(const std::vector<std::wstring>& words, const wchar_t* optstring, const LongOption* table) {
  World w;
  Argv args(words);
  Outcome o;
  o.steps = w.scanAll(args, optstring, table);
  o.optind = w.scanner.optind;
  o.optopt = w.scanner.optopt;
  o.words = args.words();
  w.scanner.reportLeftovers(args.argc(), args.argv());
  o.err = w.streams.err;
  o.out = w.streams.out;
  return o;
}

inline Outcome disk(const std::vector<std::wstring>& words) { return run(words, kDiskOptions, kDiskLong); }

using Words = std::vector<std::wstring>;

}  // namespace vmd::test
