// The names the simulated machine gives what it is asked: the calls fault
// rules and stats.api spell, the control codes, and the plain-text helpers
// its readers and writers share.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vmd::sim {

// The names of the calls, as fault rules and stats.api spell them.
namespace calls {
inline constexpr const char* kInitFramework = "InitFramework";
inline constexpr const char* kCreateMutexW = "CreateMutexW";
inline constexpr const char* kGetTokenInformation = "GetTokenInformation";
inline constexpr const char* kCoInitialize = "CoInitialize";
inline constexpr const char* kCoUninitialize = "CoUninitialize";
inline constexpr const char* kSetupDiGetClassDevsW = "SetupDiGetClassDevsW";
inline constexpr const char* kSetupDiEnumDeviceInterfaces = "SetupDiEnumDeviceInterfaces";
inline constexpr const char* kCreateFileW = "CreateFileW";
inline constexpr const char* kDeviceIoControl = "DeviceIoControl";
inline constexpr const char* kFlushFileBuffers = "FlushFileBuffers";
inline constexpr const char* kGetLogicalDrives = "GetLogicalDrives";
inline constexpr const char* kGetDriveTypeW = "GetDriveTypeW";
inline constexpr const char* kGetVolumeInformationW = "GetVolumeInformationW";
inline constexpr const char* kGetDiskFreeSpaceW = "GetDiskFreeSpaceW";
inline constexpr const char* kGetDiskFreeSpaceExW = "GetDiskFreeSpaceExW";
inline constexpr const char* kGetVolumeNameForVolumeMountPointW = "GetVolumeNameForVolumeMountPointW";
inline constexpr const char* kGetVolumePathNamesForVolumeNameW = "GetVolumePathNamesForVolumeNameW";
inline constexpr const char* kSetVolumeMountPointW = "SetVolumeMountPointW";
inline constexpr const char* kDeleteVolumeMountPointW = "DeleteVolumeMountPointW";
inline constexpr const char* kSetVolumeLabelW = "SetVolumeLabelW";
inline constexpr const char* kGetFileAttributesW = "GetFileAttributesW";
inline constexpr const char* kGetFileSize = "GetFileSize";
inline constexpr const char* kReadFile = "ReadFile";
inline constexpr const char* kWriteFile = "WriteFile";
inline constexpr const char* kRegQueryValueExW = "RegQueryValueExW";
inline constexpr const char* kRegOpenKeyExW = "RegOpenKeyExW";
inline constexpr const char* kRegEnumValueW = "RegEnumValueW";
inline constexpr const char* kRegDeleteValueW = "RegDeleteValueW";
inline constexpr const char* kRegSetValueExW = "RegSetValueExW";
inline constexpr const char* kGlobalMemoryStatusEx = "GlobalMemoryStatusEx";
inline constexpr const char* kGetSystemWindowsDirectoryW = "GetSystemWindowsDirectoryW";
inline constexpr const char* kWmiQuery = "WmiQuery";
inline constexpr const char* kBroadcastSystemMessageW = "BroadcastSystemMessageW";
inline constexpr const char* kSleep = "Sleep";
// Only in the trace: calls that are neither counted nor failed.
inline constexpr const char* kCloseHandle = "CloseHandle";
inline constexpr const char* kRegCloseKey = "RegCloseKey";
inline constexpr const char* kGetSystemTime = "GetSystemTime";
inline constexpr const char* kGetSystemTimeAsFileTime = "GetSystemTimeAsFileTime";
inline constexpr const char* kReadKey = "ReadKey";
inline constexpr const char* kPathIsDirectoryW = "PathIsDirectoryW";

// Every call a rule may fail (the others are only counted).
inline constexpr const char* kFailable[] = {
    kInitFramework, kCreateMutexW, kGetTokenInformation, kCoInitialize, kSetupDiGetClassDevsW, kCreateFileW,
    kDeviceIoControl, kFlushFileBuffers, kGetLogicalDrives, kGetDriveTypeW, kGetVolumeInformationW,
    kGetDiskFreeSpaceW, kGetDiskFreeSpaceExW, kGetVolumeNameForVolumeMountPointW,
    kGetVolumePathNamesForVolumeNameW, kSetVolumeMountPointW, kDeleteVolumeMountPointW, kSetVolumeLabelW,
    kGetFileAttributesW, kGetFileSize, kReadFile, kWriteFile, kRegQueryValueExW, kRegOpenKeyExW, kRegEnumValueW,
    kRegDeleteValueW, kRegSetValueExW, kGlobalMemoryStatusEx, kGetSystemWindowsDirectoryW, kWmiQuery,
    kBroadcastSystemMessageW};

// The table's own spelling of a call name, matched without regard to case;
// nothing for a name the table does not hold.
std::optional<std::string> failableCall(const std::string& name);
}  // namespace calls

std::string hex32(std::uint32_t v);  // "0x%08x"-style lower case, e.g. "0x00046024"

// The readable name of a control code ("QueryDiskInfo", "FSCTL_LOCK_VOLUME"),
// or its hex form when it has none; and back (a name or a number).
std::string codeName(std::uint32_t code);
std::optional<std::uint32_t> codeFromName(const std::string& name);

std::string lowerAscii(std::string s);
bool sameNoCase(const std::string& a, const std::string& b);

}  // namespace vmd::sim
