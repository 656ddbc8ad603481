/* The interface between the test controller driver (controller_driver.c) and
   the DLL that hosts the controller model (model_host.cpp). Plain C so the
   freestanding driver can include it. Every call reloads the machine state
   from the file the service's Parameters key names. */
#ifndef VMD_TEST_MODEL_HOST_H
#define VMD_TEST_MODEL_HOST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifdef VMD_MODEL_HOST_BUILD
#define VMD_MODEL_API __declspec(dllexport)
#else
#define VMD_MODEL_API __declspec(dllimport)
#endif

/* The service's registry path as the driver got it
   ("\Registry\Machine\System\CurrentControlSet\Services\<name>"). */
VMD_MODEL_API void vmdModelInit(const uint16_t* registryPath, uint32_t chars);

/* One controller request. `buffer` is the request's one system buffer:
   inSize bytes of input on entry, the reply on return. Returns 0 or the
   Win32 error the request fails with; *returned is the reply's length. */
VMD_MODEL_API uint32_t vmdModelControllerRequest(uint32_t code, void* buffer, uint32_t inSize, uint32_t outSize,
                                                 uint32_t* returned);

/* A request sent to disk n's own device (after the open succeeded). */
VMD_MODEL_API uint32_t vmdModelDiskRequest(uint32_t disk, uint32_t code, void* buffer, uint32_t inSize,
                                           uint32_t outSize, uint32_t* returned);

/* Which disks have a device now: bit k of byte i is disk 8*i+k (16 bytes). */
VMD_MODEL_API void vmdModelDevices(uint8_t* bitmap);

/* Whether the controller may be opened now: 0 or the Win32 error (a fault
   rule on CreateFileW). */
VMD_MODEL_API uint32_t vmdModelOpenController(void);

/* Whether disk n's device may be opened now: 0 or the Win32 error. */
VMD_MODEL_API uint32_t vmdModelOpenDisk(uint32_t disk);

#ifdef __cplusplus
}
#endif

#endif
