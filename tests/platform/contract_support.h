// What the contract checks share: the side under test and its fixture, the
// report a check fills, its VERIFY macros, and the codes and names the
// checks use.
#pragma once

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/text_codec.h"
#include "platform/message_text.h"
#include "platform/platform.h"
#include "resources/catalogue_data.h"

namespace vmd::contract {

enum class Side { Sim, Wine };

// What a side offers besides the services: scratch places, and looks
// around the services at what they did.
class Fixture {
 public:
  virtual ~Fixture() = default;
  virtual std::wstring scratchFolder() = 0;  // an existing folder for files
  virtual wchar_t scratchDrive() = 0;        // a drive of its own, a folder behind it; 0 when none
  virtual void removeFile(const std::wstring& path) = 0;
  // The file's bytes as they lie, read without the file service; nothing when missing.
  virtual std::optional<Bytes> storedBytes(const std::wstring& path) = 0;
  virtual bool handleIsOpen(DeviceIo::Handle h) = 0;
  // A new empty key under HKEY_LOCAL_MACHINE\SOFTWARE, and its removal.
  virtual std::optional<std::wstring> createScratchKey() = 0;
  virtual void deleteScratchKey(const std::wstring& path) = 0;
  // Keys of a console that has no input.
  virtual std::unique_ptr<KeyReader> keysWithoutInput() = 0;
};

struct Subject {
  Side side;
  MessageCatalog& catalog;
  ProcessEnvironment& process;
  DeviceSetup& setup;
  DeviceIo& io;
  VolumeService& volumes;
  FileService& files;
  Registry& registry;
  SystemInfo& system;
  Clock& clock;
  DeviceBroadcast& broadcast;
  Fixture& fixture;
};

// The failures of one check, each with its line, and what it noted.
struct Report {
  std::vector<std::string> failures;
  std::vector<std::string> notes;
  void fail(int line, const std::string& what) { failures.push_back("line " + std::to_string(line) + ": " + what); }
  void note(const std::string& what) { notes.push_back(what); }
};

// Appended into one buffer: a chain of + over temporaries sends GCC's
// overlap check down a copy that never happens.
inline std::string inQuotes(std::string_view text) {
  std::string q;
  q.reserve(text.size() + 2);
  q += '"';
  q += text;
  q += '"';
  return q;
}
inline std::string show(const std::wstring& s) { return inQuotes(toUtf8(s)); }
inline std::string show(const std::string& s) { return inQuotes(s); }
template <class T>
std::string show(const T& v) {
  return std::to_string(v);
}

#define VERIFY(cond)                              \
  do {                                            \
    if (!(cond)) r.fail(__LINE__, "not " #cond); \
  } while (0)
#define VERIFY_EQ(a, b)                                                                                   \
  do {                                                                                                    \
    const auto& a_ = (a);                                                                                 \
    const auto& b_ = (b);                                                                                 \
    if (!(a_ == b_))                                                                                      \
      r.fail(__LINE__, #a " == " #b ": " + ::vmd::contract::show(a_) + " against " + ::vmd::contract::show(b_)); \
  } while (0)

inline std::string hexText(std::uint32_t v) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%08X", v);
  return buf;
}

inline std::wstring uniqueName(const wchar_t* stem) {
  static std::mt19937 random(static_cast<unsigned>(std::time(nullptr)));
  return std::wstring(stem) + std::to_wstring(static_cast<unsigned long long>(std::time(nullptr))) + L"-" +
         std::to_wstring(random() % 1000000);
}

inline Bytes pattern(std::size_t n) {
  Bytes b(n);
  for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<std::uint8_t>(i * 7 + 3);
  return b;
}

inline std::wstring scratchFile(Subject& s, const wchar_t* stem, const wchar_t* ext) {
  return s.fixture.scratchFolder() + L"\\" + uniqueName(stem) + ext;
}

// Device control codes and interface classes the checks send and list.
constexpr std::uint32_t kGetPartitionInfo = 0x00074004;  // IOCTL_DISK_GET_PARTITION_INFO, 32 bytes out
constexpr std::uint32_t kQueryAutoMount = 0x006D003C;    // IOCTL_MOUNTMGR_QUERY_AUTO_MOUNT, 4 bytes out
constexpr std::uint32_t kSetAutoMount = 0x006DC040;      // IOCTL_MOUNTMGR_SET_AUTO_MOUNT, 4 bytes in
constexpr std::uint32_t kLockVolume = 0x00090018;
constexpr std::uint32_t kUnlockVolume = 0x0009001C;
constexpr std::uint32_t kDismountVolume = 0x00090020;
constexpr std::uint32_t kReadWrite = DeviceIo::GenericRead | DeviceIo::GenericWrite;
constexpr std::uint32_t kShareReadWrite = DeviceIo::ShareRead | DeviceIo::ShareWrite;

constexpr InterfaceClass kControllerClass{0x48FA1FE0, 0x7189, 0x432A, {0x9F, 0xD4, 0x9D, 0xB7, 0x66, 0xB6, 0x4B, 0x31}};
constexpr InterfaceClass kVolumeClass{0x53F5630D, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};

}  // namespace vmd::contract
