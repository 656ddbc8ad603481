// Checks of the file service.
// Included through contract_checks.h, which undefines its macros after them.
#pragma once

#include "contract_support.h"

namespace vmd::contract {

// --- Files.

inline void wholeWriteThenSizeAttributesAndHead(Subject& s, Report& r) {
  const std::wstring path = scratchFile(s, L"file-", L".img");
  const Bytes data = pattern(3000);
  VERIFY(s.files.writeWhole(path, data).ok);
  const SysResult<std::uint32_t> attrs = s.files.attributes(path);
  VERIFY(attrs.ok);
  VERIFY(attrs.value != InvalidFileAttributes);
  VERIFY((attrs.value & 0x10) == 0);
  const SysResult<bool> directory = s.files.pathIsDirectory(path);
  VERIFY(directory.ok);
  VERIFY(!directory.value);
  const SysResult<std::uint64_t> size = s.files.fileSize(path);
  VERIFY(size.ok);
  VERIFY_EQ(size.value, std::uint64_t{3000});
  const SysResult<Bytes> head = s.files.readHead(path, 512);
  VERIFY(head.ok);
  VERIFY(head.value == Bytes(data.begin(), data.begin() + 512));
  const SysResult<Bytes> all = s.files.readHead(path, 5000);
  VERIFY(all.ok);
  VERIFY(all.value == data);
  // A second write replaces the whole file.
  VERIFY(s.files.writeWhole(path, pattern(10)).ok);
  VERIFY_EQ(s.files.fileSize(path).value, std::uint64_t{10});
  s.fixture.removeFile(path);
}

inline void missingFileAnswers(Subject& s, Report& r) {
  const std::wstring path = s.fixture.scratchFolder() + L"\\" + uniqueName(L"missing-");
  const SysResult<std::uint32_t> attrs = s.files.attributes(path);
  VERIFY(!attrs.ok);
  VERIFY_EQ(attrs.error, syserr::FileNotFound);
  const SysResult<std::uint64_t> size = s.files.fileSize(path);
  VERIFY(!size.ok);
  VERIFY_EQ(size.error, syserr::FileNotFound);
  const SysResult<Bytes> head = s.files.readHead(path, 16);
  VERIFY(!head.ok);
  VERIFY_EQ(head.error, syserr::FileNotFound);
  const SysResult<bool> directory = s.files.pathIsDirectory(path);
  VERIFY(directory.ok);  // an answer: no folder there
  VERIFY(!directory.value);
}

inline void wholeWriteLeavesExactlyTheBytes(Subject& s, Report& r) {
  const std::wstring path = scratchFile(s, L"bytes-", L".bin");
  const Bytes data = pattern(70000);
  VERIFY(s.files.writeWhole(path, data).ok);
  const std::optional<Bytes> stored = s.fixture.storedBytes(path);
  VERIFY(stored.has_value());
  if (stored) VERIFY(*stored == data);
  VERIFY(s.files.writeWhole(path, Bytes{}).ok);
  const SysResult<std::uint64_t> size = s.files.fileSize(path);
  VERIFY(size.ok);
  VERIFY_EQ(size.value, std::uint64_t{0});
  s.fixture.removeFile(path);
}

inline void writeOverAFolderIsOpenFailed(Subject& s, Report& r) {
  const SysStatus w = s.files.writeWhole(s.fixture.scratchFolder(), pattern(4));
  VERIFY(!w.ok);
  VERIFY_EQ(w.error, syserr::OpenFailed);
}

inline void writeIntoAMissingFolderIsOpenFailed(Subject& s, Report& r) {
  const SysStatus w = s.files.writeWhole(s.fixture.scratchFolder() + L"\\no-such-folder\\x\\f.bin", pattern(4));
  VERIFY(!w.ok);
  VERIFY_EQ(w.error, syserr::OpenFailed);
}

inline void foldersAreDirectories(Subject& s, Report& r) {
  VERIFY(s.files.pathIsDirectory(s.fixture.scratchFolder()).value);
  VERIFY(s.files.pathIsDirectory(L"C:\\").value);
  const SysResult<std::uint32_t> attrs = s.files.attributes(s.fixture.scratchFolder());
  VERIFY(attrs.ok);
  VERIFY(attrs.value & 0x10);
}

}  // namespace vmd::contract
