/* Gives Wine's mount manager a drive letter on a Unix folder, or takes it
   away, so that the volume services answer for it as for any fixed drive:
     define_drive.exe X /unix/folder     define_drive.exe X
   A dosdevices link alone is not enough: the volume queries ask the mount
   manager, which knows only the drives it was told of. Test-only. */
#include <windows.h>
#include <stdio.h>
#include <string.h>

/* Wine's own request for it (function 32 of the mount manager's type 'm'). */
#define DEFINE_UNIX_DRIVE CTL_CODE(0x6D, 32, METHOD_BUFFERED, FILE_READ_ACCESS | FILE_WRITE_ACCESS)

struct UnixDrive {
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

int main(int argc, char** argv) {
  char buffer[1024];
  struct UnixDrive* drive = (struct UnixDrive*)buffer;
  const char* folder = argc > 2 ? argv[2] : NULL;
  DWORD size = sizeof *drive, returned;
  HANDLE manager;
  if (argc < 2 || argc > 3 || !argv[1][0] || (folder && strlen(folder) + 1 > sizeof buffer - sizeof *drive)) {
    fprintf(stderr, "usage: define_drive.exe LETTER [UNIX-FOLDER]\n");
    return 64;
  }
  memset(buffer, 0, sizeof buffer);
  drive->letter = (WCHAR)(argv[1][0] | 0x20);
  drive->type = DRIVE_FIXED;
  if (folder) {
    drive->mountPointOffset = (USHORT)sizeof *drive;
    strcpy(buffer + sizeof *drive, folder);
    size += (DWORD)strlen(folder) + 1;
  }
  drive->size = size;
  manager = CreateFileW(L"\\\\.\\MountPointManager", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                        NULL, OPEN_EXISTING, 0, NULL);
  if (manager == INVALID_HANDLE_VALUE) {
    fprintf(stderr, "define_drive.exe: the mount manager cannot be opened (%lu)\n", GetLastError());
    return 1;
  }
  if (!DeviceIoControl(manager, DEFINE_UNIX_DRIVE, buffer, size, NULL, 0, &returned, NULL)) {
    fprintf(stderr, "define_drive.exe: drive %c: not %s (%lu)\n", argv[1][0], folder ? "defined" : "removed",
            GetLastError());
    CloseHandle(manager);
    return 1;
  }
  CloseHandle(manager);
  /* The mount manager leaves a removed letter's link in the object
     namespace, where GetLogicalDrives still finds it. */
  if (!folder) {
    WCHAR name[3] = {(WCHAR)(argv[1][0] & ~0x20), L':', 0};
    DefineDosDeviceW(DDD_REMOVE_DEFINITION, name, NULL);
  }
  return 0;
}
