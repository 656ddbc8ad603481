/* Gives Wine's mount manager a drive letter on a Unix folder, or takes it
   away (folder NULL or empty), so that the volume services answer for it as
   for any fixed drive. A dosdevices link alone is not enough: the volume
   queries ask the mount manager, which knows only the drives it was told
   of. Returns 0 or the Win32 error; *opened (when given) says whether the
   mount manager could be opened at all. Used by define_drive.exe and by the
   model's DLL; plain C so both can include it. Test-only. */
#ifndef VMD_TEST_UNIX_DRIVE_H
#define VMD_TEST_UNIX_DRIVE_H

#include <windows.h>
#include <string.h>

/* Wine's own request for it (function 32 of the mount manager's type 'm'). */
#define VMD_DEFINE_UNIX_DRIVE CTL_CODE(0x6D, 32, METHOD_BUFFERED, FILE_READ_ACCESS | FILE_WRITE_ACCESS)

struct VmdUnixDrive {
  ULONG size;
  ULONG type;
  ULONG fsType;
  DWORD serial;
  ULONGLONG unixDevice;
  WCHAR letter;
  USHORT mountPointOffset;
  USHORT deviceOffset;
  USHORT labelOffset;
};

/* The longest folder it takes, with its terminating zero. */
#define VMD_UNIX_FOLDER_MAX (1024 - sizeof(struct VmdUnixDrive))

static DWORD vmdDefineUnixDrive(char letter, const char* folder, int* opened) {
  char buffer[1024];
  struct VmdUnixDrive* drive = (struct VmdUnixDrive*)buffer;
  DWORD size = sizeof *drive, returned, error = 0;
  HANDLE manager;
  const int define = folder && folder[0];
  if (opened) *opened = 0;
  if (define && strlen(folder) + 1 > VMD_UNIX_FOLDER_MAX) return ERROR_FILENAME_EXCED_RANGE;
  memset(buffer, 0, sizeof buffer);
  drive->letter = (WCHAR)(letter | 0x20);
  drive->type = DRIVE_FIXED;
  if (define) {
    drive->mountPointOffset = (USHORT)sizeof *drive;
    strcpy(buffer + sizeof *drive, folder);
    size += (DWORD)strlen(folder) + 1;
  }
  drive->size = size;
  manager = CreateFileW(L"\\\\.\\MountPointManager", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                        NULL, OPEN_EXISTING, 0, NULL);
  if (manager == INVALID_HANDLE_VALUE) return GetLastError();
  if (opened) *opened = 1;
  if (!DeviceIoControl(manager, VMD_DEFINE_UNIX_DRIVE, buffer, size, NULL, 0, &returned, NULL)) error = GetLastError();
  CloseHandle(manager);
  /* The mount manager leaves a removed letter's link in the object
     namespace, where GetLogicalDrives still finds it; the link goes even
     when the request failed, so the letter is free either way. */
  if (!define) {
    WCHAR name[3] = {(WCHAR)(letter & ~0x20), L':', 0};
    DefineDosDeviceW(DDD_REMOVE_DEFINITION, name, NULL);
  }
  return error;
}

#endif
