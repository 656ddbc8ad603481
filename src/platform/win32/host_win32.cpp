// Console and catalogue on Windows: the C runtime's standard streams in text
// mode, and the message and string tables of the executable's own resources.
#include <conio.h>

#include <cstdio>

#include "platform/host.h"
#include "platform/win32/win32.h"
#include "platform/win32/win32_platform.h"

namespace vmd {

namespace {

// The program formats every text itself, so the streams only ever get whole
// strings: no printf-family call can reinterpret a '%' in them.
class CrtStreams : public OutputStreams {
 public:
  void write(Stream stream, const std::wstring& text) override {
    if (stream == Stream::Err) {
      std::fflush(stdout);  // keep the two streams in the order written
      std::fputws(text.c_str(), stderr);
      std::fflush(stderr);
    } else {
      std::fputws(text.c_str(), stdout);
    }
  }
  bool writeConsole(Stream stream, const std::wstring& text) override {
    const HANDLE h = ::GetStdHandle(stream == Stream::Out ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
    if (h == nullptr || h == INVALID_HANDLE_VALUE) return false;
    std::fflush(stream == Stream::Out ? stdout : stderr);
    DWORD written = 0;
    ::WriteConsoleW(h, text.c_str(), static_cast<DWORD>(text.size()), &written, nullptr);
    return true;
  }
};

class ConsoleKeys : public KeyReader {
 public:
  int readKey() override {
    std::fflush(stdout);  // the prompt must be visible before we wait
    const wint_t key = _getwch();
    return key == WEOF ? -1 : static_cast<int>(key);
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

std::unique_ptr<OutputStreams> makeHostStreams() { return std::make_unique<CrtStreams>(); }
std::unique_ptr<MessageCatalog> makeHostCatalog() { return std::make_unique<ResourceCatalog>(); }

namespace win32 {
std::unique_ptr<KeyReader> makeKeyReader() { return std::make_unique<ConsoleKeys>(); }
}  // namespace win32

}  // namespace vmd
