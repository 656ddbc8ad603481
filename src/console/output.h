// Console output: formatted lines, catalogue messages, string-table texts and
// the confirmation prompt. Every byte the program prints goes through here.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>

#include "platform/platform.h"
#include "base/format.h"

namespace vmd {

// String-table ids.
namespace strid {
constexpr std::uint32_t ProductName = 103;
constexpr std::uint32_t UnitB = 115, UnitKB = 116, UnitMB = 117, UnitGB = 118, UnitTB = 119;
constexpr std::uint32_t Yes = 120, No = 121;
constexpr std::uint32_t PlainImage = 208, SmartImage = 209, CompressedImage = 210, UnknownFormat = 211;
constexpr std::uint32_t SaveAtShutdown = 212, SaveBeforeRemoval = 213, TimingSave = 214, RealTimeSave = 215;
constexpr std::uint32_t NoMemory = 234;
constexpr std::uint32_t StatusFailed = 241;
constexpr std::uint32_t FileInvalid = 242;
constexpr std::uint32_t FileInvalidVolume = 245;
constexpr std::uint32_t PagingPath = 256;
constexpr std::uint32_t SettingsFailed = 259;
constexpr std::uint32_t ArgumentIgnored = 260;
}  // namespace strid

// Message-table ids.
namespace msgid {
constexpr std::uint32_t Banner = 0x1000;
constexpr std::uint32_t Usage = 0x1001;
constexpr std::uint32_t InvalidUse = 0x1002;
constexpr std::uint32_t Failed = 0x1003;
constexpr std::uint32_t Cancelled = 0x1004;
constexpr std::uint32_t UnknownCommand = 0x1005;
}  // namespace msgid

// Catalogue messages can be written straight to the console (WriteConsoleW)
// instead of through the stream. This program keeps both switches off; the
// path stays for a build that turns them on.
struct DirectConsole {
  bool out = false;
  bool err = false;
};

class Output {
 public:
  Output(OutputStreams& streams, MessageCatalog& catalog, KeyReader& keys, DirectConsole direct = {})
      : streams_(streams), catalog_(catalog), keys_(keys), direct_(direct) {}

  template <class... Args>
  void out(std::wstring_view fmt, const Args&... args) {
    streams_.write(Stream::Out, format(fmt, args...));
  }
  template <class... Args>
  void err(std::wstring_view fmt, const Args&... args) {
    streams_.write(Stream::Err, format(fmt, args...));
  }
  void write(Stream s, const std::wstring& text) { streams_.write(s, text); }

  // Prints catalogue message `id`; its line breaks at the end become exactly
  // one "\n" (none when it had none). A missing id prints nothing.
  void message(Stream s, std::uint32_t id, std::initializer_list<const wchar_t*> inserts);

  // String-table text; empty when missing.
  std::wstring str(std::uint32_t id) { return catalog_.loadString(id); }

  // A string-table text used as the format of a line on standard error.
  template <class... Args>
  void errStr(std::uint32_t id, const Args&... args) {
    streams_.write(Stream::Err, format(str(id), args...));
  }

  // Prints `prompt` (no line break), reads one key without echo, prints
  // "\n\n". True only for 'Y' or 'y'.
  bool confirm(std::wstring_view prompt);

 private:
  OutputStreams& streams_;
  MessageCatalog& catalog_;
  KeyReader& keys_;
  DirectConsole direct_;
};

// The 55-dash rule line used by listings and reports.
inline constexpr wchar_t kRule[] = L"-------------------------------------------------------\n";

}  // namespace vmd
