/* Gives Wine's mount manager a drive letter on a Unix folder, or takes it
   away (unix_drive.h says why the mount manager):
     define_drive.exe X /unix/folder     define_drive.exe X
   The test runner arranges drives with it. Test-only. */
#include <stdio.h>
#include <string.h>

#include "unix_drive.h"

int main(int argc, char** argv) {
  const char* folder = argc > 2 ? argv[2] : NULL;
  DWORD error;
  int opened;
  if (argc < 2 || argc > 3 || !argv[1][0] || (folder && (!folder[0] || strlen(folder) + 1 > VMD_UNIX_FOLDER_MAX))) {
    fprintf(stderr, "usage: define_drive.exe LETTER [UNIX-FOLDER]\n");
    return 64;
  }
  error = vmdDefineUnixDrive(argv[1][0], folder, &opened);
  if (error == 0) return 0;
  if (!opened)
    fprintf(stderr, "define_drive.exe: the mount manager cannot be opened (%lu)\n", error);
  else
    fprintf(stderr, "define_drive.exe: drive %c: not %s (%lu)\n", argv[1][0], folder ? "defined" : "removed", error);
  return 1;
}
