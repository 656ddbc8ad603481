// vddinfo: checks a disk descriptor file and shows what it holds: the
// header's fields, the disk's settings as `view` words them, and a `vmdctl
// add` command line that makes a disk with those settings.
#pragma once

#include <string>

#include "console/output.h"
#include "platform/platform.h"
#include "settings/disk_settings.h"

namespace vmd {

// Exit codes of the reader.
namespace readerexit {
constexpr int Valid = 0;
constexpr int InvalidUse = 2;
constexpr int NotValid = 3;  // unreadable, or not a valid descriptor
}  // namespace readerexit

// Larger files are refused unread: no settings record comes near this.
inline constexpr std::uint64_t kMaxDescriptorBytes = 16u << 20;

// argv[0] is the program; the rest its arguments. Reads through `files`.
int runDescriptorReader(int argc, wchar_t** argv, FileService& files, Output& out);

// One argument as the Windows command-line rules read it back: as it is when
// it holds no blank, tab or quote and is not empty; otherwise in quotes,
// with quotes escaped and the backslashes before them doubled.
std::wstring QuoteArgument(const std::wstring& argument);

// "vmdctl add ..." for `settings`; `letter` is the drive letter to ask for
// (0: none).
std::wstring AddCommandLine(const DiskSettings& settings, wchar_t letter);

}  // namespace vmd
