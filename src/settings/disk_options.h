// The options that describe a disk, shared by add, edit and rebuild. Parsing
// only converts text to values and never rejects one: ranges are checked and
// corrected by validation (settings/settings_validation.h).
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "settings/disk_settings.h"
#include "console/app.h"

namespace vmd {

extern const wchar_t kDiskOptionString[];
extern const LongOption kDiskLongOptions[];  // 24 rows, then the null row

// Applies the options in argv[0..argc) to `settings` through app.options.
// `silent` is set to 0 on entry and to 1 by -s; `saveBeforeRemoval`, when
// given (rebuild), is set to 1 on entry and to 0 by -g. Rejected custom
// folders and arguments left over after the options draw warnings on
// standard error.
void ParseDiskOptions(App& app, int argc, wchar_t** argv, DiskSettings& settings, std::uint32_t& silent,
                      std::uint32_t* saveBeforeRemoval = nullptr);

// Trims `name` of trailing, then leading dots and blanks, cuts it to 40
// characters, and accepts it unless it is empty, starts with '$', holds one
// of /\:*?"<>|, is a name the system keeps for itself, or equals (without
// regard to case) one of the first `count` names of `accepted`.
bool CheckCustomFolder(std::wstring& name, const std::array<std::wstring, kMaxCustomFolders>& accepted,
                       std::uint32_t count);

// The runtime's lenient unsigned hexadecimal conversion (wcstoul, base 16):
// leading blanks, a sign and a 0x are taken, reading stops at the first
// character that is not a hexadecimal digit, text without digits gives 0 and
// values beyond 32 bits give 0xFFFFFFFF.
std::uint32_t LeadingHex(const wchar_t* text);

}  // namespace vmd
