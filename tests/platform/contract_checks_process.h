// Checks of the message and string tables, console keys and the process
// start-up services.
// Included through contract_checks.h, which undefines its macros after them.
#pragma once

#include "contract_support.h"

namespace vmd::contract {

// --- Message and string tables: the resources say what the catalogue says.

inline void everyMessageFormatsAsTheCatalogueSays(Subject& s, Report& r) {
  const std::vector<const wchar_t*> inserts{L"vmdctl.exe", L"edit"};
  int n = 0;
  for (const catalogue::Entry* e = catalogue::kMessages; e->text; ++e, ++n) {
    const std::optional<std::wstring> got = s.catalog.formatMessage(e->id, inserts);
    VERIFY(got.has_value());
    if (got) VERIFY_EQ(*got, expandMessageInserts(e->text, inserts));
  }
  VERIFY(n > 0);
}

inline void bannerInsertIsFilled(Subject& s, Report& r) {
  VERIFY_EQ(s.catalog.formatMessage(0x1000, {L"5.7.0"}).value_or(L"?"),
            std::wstring(L"Tarnby Ramdisk Commander  Version 5.7.0\r\n"));
}

inline void insertsNotGivenReadAsEmpty(Subject& s, Report& r) {
  VERIFY_EQ(s.catalog.formatMessage(0x1002, {L"vmdctl"}).value_or(L"?"),
            std::wstring(L"vmdctl: Invalid use of command ''.\r\nFor more information, type: vmdctl ?\x20\r\n"));
}

inline void missingMessageIsNothing(Subject& s, Report& r) { VERIFY(!s.catalog.formatMessage(0x7777, {L"x"}).has_value()); }

inline void everyStringLoadsAsTheCatalogueSays(Subject& s, Report& r) {
  for (const catalogue::Entry* e = catalogue::kStrings; e->text; ++e) VERIFY_EQ(s.catalog.loadString(e->id), std::wstring(e->text));
  VERIFY_EQ(s.catalog.loadString(103), std::wstring(L"Tarnby Ramdisk"));
}

inline void missingStringIsEmpty(Subject& s, Report& r) { VERIFY_EQ(s.catalog.loadString(9999), std::wstring()); }

inline void keyWithoutConsoleInputIsNone(Subject& s, Report& r) {
  std::unique_ptr<KeyReader> keys = s.fixture.keysWithoutInput();
  const int key = keys->readKey();
  r.note("key " + std::to_string(key));
  VERIFY_EQ(key, -1);
}

// --- Process start-up services.

inline void frameworkStarts(Subject& s, Report& r) { VERIFY(s.process.initFramework().ok); }

inline void secondMutexOfTheSameNameReportsAlreadyExists(Subject& s, Report& r) {
  const std::wstring name = uniqueName(L"vmdctl-contract-");
  const SysResult<bool> first = s.process.createInstanceMutex(name);
  VERIFY(first.ok);
  VERIFY(!first.value);
  const SysResult<bool> second = s.process.createInstanceMutex(name);
  VERIFY(second.ok);
  VERIFY(second.value);
}

inline void tokenHoldsAdministrators(Subject& s, Report& r) {
  const SysResult<bool> admin = s.process.tokenHasAdministrators();
  VERIFY(admin.ok);
  VERIFY(admin.value);
}

inline void comStartsAndStops(Subject& s, Report& r) {
  VERIFY(s.process.comInitialize().ok);
  s.process.comUninitialize();
}

}  // namespace vmd::contract
