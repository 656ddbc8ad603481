// Checks of the registry under HKEY_LOCAL_MACHINE, the mounted-devices key
// among them.
// Included through contract_checks.h, which undefines its macros after them.
#pragma once

#include "contract_support.h"

namespace vmd::contract {

// --- Registry (HKEY_LOCAL_MACHINE).

inline void missingKeyReadsNothing(Subject& s, Report& r) {
  const SysResult<std::uint32_t> noKey =
      s.registry.readDword(L"SYSTEM\\CurrentControlSet\\services\\kelvdrv\\Parameters", L"EnableIM");
  VERIFY(!noKey.ok);
  VERIFY_EQ(noKey.error, syserr::FileNotFound);
  const SysResult<std::uint32_t> noValue = s.registry.readDword(L"SOFTWARE", uniqueName(L"no-value-"));
  VERIFY(!noValue.ok);
  VERIFY_EQ(noValue.error, syserr::FileNotFound);
  const SysResult<std::unique_ptr<Registry::Key>> opened =
      s.registry.openForWrite(L"SOFTWARE\\" + uniqueName(L"no-key-"));
  VERIFY(!opened.ok);
  VERIFY(opened.value == nullptr);
  VERIFY_EQ(opened.error, syserr::FileNotFound);
}

inline void valuesAreWrittenEnumeratedReadAndDeleted(Subject& s, Report& r) {
  const SysResult<std::unique_ptr<Registry::Key>> opened = s.registry.openForWrite(L"SOFTWARE");
  VERIFY(opened.ok);
  VERIFY_EQ(opened.error, 0u);
  if (!opened.ok || !opened.value) return;
  Registry::Key& key = *opened.value;
  const std::wstring four = uniqueName(L"vmdctl-contract-4-");
  const std::wstring twelve = uniqueName(L"vmdctl-contract-12-");
  const std::wstring two = uniqueName(L"vmdctl-contract-2-");
  VERIFY(key.setBinary(four, Bytes{0x01, 0x02, 0x03, 0x04}).ok);
  VERIFY(key.setBinary(twelve, pattern(12)).ok);
  VERIFY(key.setBinary(two, pattern(2)).ok);

  // Four bytes read as a DWORD whatever their type; twelve do not fit, two are too few.
  VERIFY_EQ(s.registry.readDword(L"SOFTWARE", four).valueOr(0), 0x04030201u);
  const SysResult<std::uint32_t> long12 = s.registry.readDword(L"SOFTWARE", twelve);
  VERIFY(!long12.ok);
  VERIFY_EQ(long12.error, syserr::MoreData);
  const SysResult<std::uint32_t> short2 = s.registry.readDword(L"SOFTWARE", two);
  VERIFY(!short2.ok);
  VERIFY_EQ(short2.error, syserr::InvalidData);

  bool seen = false, sawTooLong = false;
  std::uint32_t index = 0, rc = 0;
  for (; index < 10000; ++index) {
    const SysResult<Registry::Value> read = key.enumValue(index, 64, 16);
    rc = read.error;
    if (!read.ok && rc == syserr::NoMoreItems) break;
    if (!read.ok) continue;
    const Registry::Value& v = read.value;
    if (v.name == twelve) {
      seen = true;
      VERIFY_EQ(v.type, 3u);  // REG_BINARY
      VERIFY(v.data == pattern(12));
      sawTooLong = key.enumValue(index, 4, 16).error == syserr::MoreData;
      VERIFY_EQ(key.enumValue(index, 64, 8).error, syserr::MoreData);
    }
  }
  VERIFY_EQ(rc, syserr::NoMoreItems);
  VERIFY(seen);
  VERIFY(sawTooLong);

  VERIFY(key.deleteValue(four).ok);
  VERIFY(key.deleteValue(twelve).ok);
  VERIFY(key.deleteValue(two).ok);
  const SysStatus again = key.deleteValue(twelve);
  VERIFY(!again.ok);
  VERIFY_EQ(again.error, syserr::FileNotFound);
  VERIFY_EQ(s.registry.readDword(L"SOFTWARE", four).error, syserr::FileNotFound);
}

inline void mountedDevicesOpensForWrite(Subject& s, Report& r) {
  const SysResult<std::unique_ptr<Registry::Key>> key = s.registry.openForWrite(L"SYSTEM\\MountedDevices");
  if (!key.ok) r.note("SYSTEM\\MountedDevices: error " + std::to_string(key.error));
  VERIFY(key.ok);
  VERIFY(key.value != nullptr);
}

inline std::vector<std::wstring> valueNames(Registry::Key& key) {
  std::vector<std::wstring> names;
  for (std::uint32_t i = 0; i < 1000; ++i) {
    const SysResult<Registry::Value> read = key.enumValue(i, 260, 4096);
    if (!read.ok && read.error == syserr::NoMoreItems) break;
    if (read.ok) names.push_back(read.value.name);
  }
  return names;
}

// The mounted-devices form of registry work, in a key of its own.
inline void driveLetterValuesAreWalkedWithSmallBuffers(Subject& s, Report& r) {
  const std::optional<std::wstring> scratch = s.fixture.createScratchKey();
  VERIFY(scratch.has_value());
  if (!scratch) return;
  SysResult<std::unique_ptr<Registry::Key>> opened = s.registry.openForWrite(*scratch);
  VERIFY(opened.ok);
  if (opened.ok && opened.value) {
    Registry::Key& key = *opened.value;
    const Bytes disk{0x78, 0x56, 0x34, 0x12, 0x00, 0x7E, 0, 0, 0, 0, 0, 0};
    VERIFY(key.setBinary(L"\\DosDevices\\R:", disk).ok);
    VERIFY(key.setBinary(L"\\DosDevices\\S:", pattern(12)).ok);
    VERIFY(key.setBinary(L"\\DosDevices\\T:", pattern(24)).ok);        // data too long
    VERIFY(key.setBinary(L"\\??\\Volume{3f1d6c52-0000}", disk).ok);  // name too long
    VERIFY_EQ(valueNames(key).size(), std::size_t{4});

    // The walk's own buffers: 16 name characters (terminator included), 12 bytes;
    // 234 for what does not fit, 259 past the end.
    int fitted = 0, tooLong = 0;
    std::uint32_t rc = 0;
    for (std::uint32_t index = 0; index < 100; ++index) {
      const SysResult<Registry::Value> read = key.enumValue(index, 16, 12);
      rc = read.error;
      if (!read.ok && rc == syserr::NoMoreItems) break;
      if (!read.ok && rc == syserr::MoreData) {
        ++tooLong;
        continue;
      }
      VERIFY(read.ok);
      VERIFY_EQ(rc, 0u);
      ++fitted;
      VERIFY_EQ(read.value.name.size(), std::size_t{14});
      VERIFY_EQ(read.value.type, 3u);  // REG_BINARY
      VERIFY_EQ(read.value.data.size(), std::size_t{12});
    }
    VERIFY_EQ(rc, syserr::NoMoreItems);
    VERIFY_EQ(fitted, 2);
    VERIFY_EQ(tooLong, 2);

    // A removal moves the later values down one index.
    const std::vector<std::wstring> before = valueNames(key);
    VERIFY(before.size() >= 2);
    if (before.size() >= 2) {
      VERIFY(key.deleteValue(before[0]).ok);
      const SysResult<Registry::Value> first = key.enumValue(0, 260, 4096);
      VERIFY(first.ok);
      VERIFY_EQ(first.value.name, before[1]);
      VERIFY_EQ(valueNames(key).size(), std::size_t{3});
    }

    // Writing over a value replaces its data.
    VERIFY(key.setBinary(L"\\DosDevices\\S:", disk).ok);
    for (std::uint32_t i = 0; i < 10; ++i) {
      const SysResult<Registry::Value> v = key.enumValue(i, 16, 12);
      if (v.ok && v.value.name == L"\\DosDevices\\S:") VERIFY(v.value.data == disk);
    }
    for (const std::wstring& name : valueNames(key)) VERIFY(key.deleteValue(name).ok);
    VERIFY(valueNames(key).empty());
  }
  opened.value.reset();
  s.fixture.deleteScratchKey(*scratch);
}

// Values read back whole through the read-only walk, in the order the key
// enumerates them (written in name order, which both sides keep).
inline void valuesAreReadWithReadAccessAlone(Subject& s, Report& r) {
  const SysResult<std::vector<Registry::Value>> missing = s.registry.readValues(L"SOFTWARE\\" + uniqueName(L"no-key-"));
  VERIFY(!missing.ok);
  VERIFY_EQ(missing.error, syserr::FileNotFound);
  const std::optional<std::wstring> scratch = s.fixture.createScratchKey();
  VERIFY(scratch.has_value());
  if (!scratch) return;
  const SysResult<std::vector<Registry::Value>> empty = s.registry.readValues(*scratch);
  VERIFY(empty.ok);
  VERIFY(empty.value.empty());
  SysResult<std::unique_ptr<Registry::Key>> opened = s.registry.openForWrite(*scratch);
  VERIFY(opened.ok && opened.value != nullptr);
  if (opened.ok && opened.value) {
    Registry::Key* key = opened.value.get();
    const std::wstring longName = L"\\??\\Volume{" + std::wstring(200, L'7') + L"}";
    VERIFY(key->setBinary(longName, pattern(5000)).ok);  // more than any first guess of room
    VERIFY(key->setBinary(L"\\DosDevices\\R:", pattern(12)).ok);
    VERIFY(key->setBinary(L"\\DosDevices\\\u0416:", pattern(3)).ok);
    const SysResult<std::vector<Registry::Value>> read = s.registry.readValues(*scratch);
    VERIFY(read.ok);
    VERIFY_EQ(read.value.size(), std::size_t{3});
    if (read.value.size() == 3) {
      VERIFY(read.value[0].name == longName);
      VERIFY(read.value[0].data == pattern(5000));
      VERIFY(read.value[1].name == L"\\DosDevices\\R:");
      VERIFY(read.value[1].data == pattern(12));
      VERIFY_EQ(read.value[1].type, 3u);  // REG_BINARY
      VERIFY(read.value[2].name == L"\\DosDevices\\\u0416:");
      VERIFY(read.value[2].data == pattern(3));
    }
    for (const std::wstring& name : valueNames(*key)) VERIFY(key->deleteValue(name).ok);
  }
  opened.value.reset();
  s.fixture.deleteScratchKey(*scratch);
  VERIFY(s.registry.readValues(L"SYSTEM\\MountedDevices").ok);
}

inline void mountedDevicesHoldsTheDrives(Subject& s, Report& r) {
  const SysResult<std::unique_ptr<Registry::Key>> opened = s.registry.openForWrite(L"SYSTEM\\MountedDevices");
  VERIFY(opened.ok);
  if (!opened.ok || !opened.value) return;
  for (std::uint32_t i = 0; i < 200; ++i) {
    const SysResult<Registry::Value> read = opened.value->enumValue(i, 260, 4096);
    if (!read.ok && read.error == syserr::NoMoreItems) break;
    if (!read.ok) continue;
    const Registry::Value& v = read.value;
    std::string data;
    for (std::size_t k = 0; k < v.data.size() && k < 48; ++k)
      data += (v.data[k] >= 32 && v.data[k] < 127) ? char(v.data[k]) : '.';
    r.note(toUtf8(v.name) + " type " + std::to_string(v.type) + ", " + std::to_string(v.data.size()) + " bytes: " + data);
  }
}

}  // namespace vmd::contract
