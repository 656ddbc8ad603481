// Console and catalogue on Windows: the console itself or the C runtime's
// standard streams in text mode, and the message and string tables of the
// executable's own resources.
#include <conio.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "platform/host.h"
#include "platform/win32/win32.h"
#include "platform/win32/win32_platform.h"

namespace vmd {

namespace {

// Whether a standard handle is a console: only a console answers
// GetConsoleMode.
bool isConsole(HANDLE h) {
  DWORD mode = 0;
  return h != nullptr && h != INVALID_HANDLE_VALUE && ::GetConsoleMode(h, &mode) != 0;
}

bool isAscii(const std::wstring& text) {
  for (const wchar_t c : text)
    if (c >= 0x80) return false;
  return true;
}

// What cmd and PowerShell decode a redirected program's output with.
UINT outputCodePage() {
  const UINT cp = ::GetConsoleOutputCP();
  return cp != 0 ? cp : ::GetOEMCP();
}

// The program formats every text itself, so the streams only ever get whole
// strings: no printf-family call can reinterpret a '%' in them.
//
// On a console the text goes out as UTF-16 with WriteConsoleW, so every
// script shows; redirected it is encoded in the console's code page and
// written through the text-mode stream, which turns each "\n" into "\r\n"
// (a text's own "\r\n" into "\r\r\n") as it always has. ASCII comes out
// the same bytes either way.
class CrtStreams : public OutputStreams {
 public:
  void write(Stream stream, const std::wstring& text) override {
    std::FILE* f = stream == Stream::Out ? stdout : stderr;
    if (stream == Stream::Err) std::fflush(stdout);  // keep the two streams in the order written
    Target& t = target(stream);
    if (t.console) {
      std::fflush(f);
      writeToConsole(t.handle, text);
    } else if (isAscii(text)) {
      std::string bytes(text.begin(), text.end());
      std::fwrite(bytes.data(), 1, bytes.size(), f);
    } else {
      const std::string bytes = encode(text);
      std::fwrite(bytes.data(), 1, bytes.size(), f);
    }
    if (stream == Stream::Err) std::fflush(stderr);
  }
  bool writeConsole(Stream stream, const std::wstring& text) override {
    const HANDLE h = ::GetStdHandle(stream == Stream::Out ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
    if (h == nullptr || h == INVALID_HANDLE_VALUE) return false;
    std::fflush(stream == Stream::Out ? stdout : stderr);
    DWORD written = 0;
    ::WriteConsoleW(h, text.c_str(), static_cast<DWORD>(text.size()), &written, nullptr);
    return true;
  }

 private:
  struct Target {
    bool known = false;
    bool console = false;
    HANDLE handle = nullptr;
  };

  Target& target(Stream stream) {
    Target& t = stream == Stream::Out ? out_ : err_;
    if (!t.known) {
      t.handle = ::GetStdHandle(stream == Stream::Out ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
      t.console = isConsole(t.handle);
      t.known = true;
    }
    return t;
  }

  // The line ends a text-mode stream would have written, so the console
  // sees the same characters as before.
  static void writeToConsole(HANDLE h, const std::wstring& text) {
    std::wstring wide;
    wide.reserve(text.size() + text.size() / 16);
    for (const wchar_t c : text) {
      if (c == L'\n') wide.push_back(L'\r');
      wide.push_back(c);
    }
    // Old consoles refuse very long writes; pieces never split a surrogate pair.
    constexpr std::size_t kPiece = 8192;
    std::size_t at = 0;
    while (at < wide.size()) {
      std::size_t n = std::min(kPiece, wide.size() - at);
      if (at + n < wide.size() && wide[at + n - 1] >= 0xD800 && wide[at + n - 1] <= 0xDBFF) --n;
      DWORD written = 0;
      if (!::WriteConsoleW(h, wide.data() + at, static_cast<DWORD>(n), &written, nullptr)) return;
      at += n;
    }
  }

  // Characters the code page lacks become its default character ("?"), not
  // a look-alike: a path shown must not read as another path. Code pages
  // that refuse the flag (UTF-8, the ISO-2022 family) have every character.
  static std::string encode(const std::wstring& text) {
    const UINT cp = outputCodePage();
    const int size = static_cast<int>(text.size());
    DWORD flags = WC_NO_BEST_FIT_CHARS;
    int n = ::WideCharToMultiByte(cp, flags, text.data(), size, nullptr, 0, nullptr, nullptr);
    if (n <= 0) {
      flags = 0;
      n = ::WideCharToMultiByte(cp, flags, text.data(), size, nullptr, 0, nullptr, nullptr);
    }
    if (n <= 0) return std::string(text.size(), '?');
    std::string bytes(static_cast<std::size_t>(n), '\0');
    ::WideCharToMultiByte(cp, flags, text.data(), size, bytes.data(), n, nullptr, nullptr);
    return bytes;
  }

  Target out_;
  Target err_;
};

// On a console a key is read without echo and without Enter (_getwch). When
// standard input is a pipe, a file or nothing, the key is the next character
// there, in the console's input code page, so a script can answer
// (`echo y | vmdctl del 0`); the end of input reads as no key, which cancels.
class ConsoleKeys : public KeyReader {
 public:
  int readKey() override {
    std::fflush(stdout);  // the prompt must be visible before we wait
    const HANDLE in = ::GetStdHandle(STD_INPUT_HANDLE);
    if (isConsole(in)) {
      const wint_t key = _getwch();
      return key == WEOF ? -1 : static_cast<int>(key);
    }
    if (in == nullptr || in == INVALID_HANDLE_VALUE) return -1;
    return readCharacter(in);
  }

 private:
  static bool readByte(HANDLE in, char& b) {
    DWORD got = 0;
    return ::ReadFile(in, &b, 1, &got, nullptr) && got == 1;
  }

  static int readCharacter(HANDLE in) {
    char first = 0;
    if (!readByte(in, first)) return -1;
    UINT cp = ::GetConsoleCP();
    if (cp == 0) cp = ::GetOEMCP();
    const auto lead = static_cast<unsigned char>(first);
    if (lead < 0x80) return lead;
    std::string bytes(1, first);
    std::size_t more = 0;
    if (cp == CP_UTF8)
      more = (lead & 0xE0) == 0xC0 ? 1 : (lead & 0xF0) == 0xE0 ? 2 : (lead & 0xF8) == 0xF0 ? 3 : 0;
    else if (::IsDBCSLeadByteEx(cp, lead))
      more = 1;
    for (std::size_t i = 0; i < more; ++i) {
      char b = 0;
      if (!readByte(in, b)) break;
      bytes.push_back(b);
    }
    wchar_t wide[4] = {};
    const int n = ::MultiByteToWideChar(cp, 0, bytes.data(), static_cast<int>(bytes.size()), wide, 4);
    return n > 0 ? static_cast<int>(wide[0]) : -1;
  }
};

// Inserts %1..%99 may all be named by a text; the ones not given read as empty
// rather than as whatever lies past the end of the array.
constexpr std::size_t kMaxInserts = 99;

class ResourceCatalog : public MessageCatalog {
 public:
  ResourceCatalog() : module_(::GetModuleHandleW(nullptr)) {}

  std::optional<std::wstring> formatMessage(std::uint32_t id, const std::vector<const wchar_t*>& inserts) override {
    DWORD_PTR args[kMaxInserts];
    for (std::size_t i = 0; i < kMaxInserts; ++i)
      args[i] = reinterpret_cast<DWORD_PTR>(i < inserts.size() ? inserts[i] : L"");
    wchar_t* text = nullptr;
    const DWORD length = ::FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, module_, id, 0,
        reinterpret_cast<wchar_t*>(&text), 0, reinterpret_cast<va_list*>(args));
    win32::LocalBuffer owner(text);
    if (!text) return std::nullopt;
    return std::wstring(text, length);
  }

  std::wstring loadString(std::uint32_t id) override {
    // With a zero length LoadStringW hands back a pointer into the resource
    // itself, so strings of any length come out whole.
    const wchar_t* text = nullptr;
    const int length = ::LoadStringW(module_, id, reinterpret_cast<wchar_t*>(&text), 0);
    if (length <= 0 || !text) return std::wstring();
    return std::wstring(text, static_cast<std::size_t>(length));
  }

 private:
  HMODULE module_;
};

}  // namespace

SysStatus replaceHostFile(const std::wstring& path, const std::string& bytes) {
  const std::wstring temporary = path + L"." + std::to_wstring(::GetCurrentProcessId()) + L".tmp";
  DWORD error = 0;
  {
    win32::FileHandle file(::CreateFileW(temporary.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                         FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return {false, static_cast<std::uint32_t>(::GetLastError())};
    std::size_t done = 0;
    while (done < bytes.size()) {
      const DWORD piece = static_cast<DWORD>(std::min<std::size_t>(bytes.size() - done, 1u << 20));
      DWORD n = 0;
      if (!::WriteFile(file.get(), bytes.data() + done, piece, &n, nullptr) || n == 0) {
        error = ::GetLastError();
        break;
      }
      done += n;
    }
    if (!error) ::FlushFileBuffers(file.get());  // what a flush cannot promise, the rename still keeps whole
  }
  if (!error && ::MoveFileExW(temporary.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
    return {true, 0};
  if (!error) error = ::GetLastError();
  ::DeleteFileW(temporary.c_str());
  return {false, error ? static_cast<std::uint32_t>(error) : ERROR_WRITE_FAULT};
}

std::unique_ptr<OutputStreams> makeHostStreams() { return std::make_unique<CrtStreams>(); }
std::unique_ptr<MessageCatalog> makeHostCatalog() { return std::make_unique<ResourceCatalog>(); }

namespace win32 {
std::unique_ptr<KeyReader> makeKeyReader() { return std::make_unique<ConsoleKeys>(); }
}  // namespace win32

}  // namespace vmd
