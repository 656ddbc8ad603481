/* A test-only WDM driver that stands in for the RAM-disk controller under
   Wine: a root-enumerated device exposing the controller's interface class,
   whose control requests are answered by the controller model in
   vmdmodel.dll, and one device per disk ("\\.\VelmoRdDevPort0Target<n>")
   while the model says the disk is there. Never shipped. */
#include <ntddk.h>

#include "model_host.h"

/* {48FA1FE0-7189-432A-9FD4-9DB766B64B31} */
static const GUID kControllerInterface = {
    0x48FA1FE0, 0x7189, 0x432A, {0x9F, 0xD4, 0x9D, 0xB7, 0x66, 0xB6, 0x4B, 0x31}};

#define DISK_COUNT 128

typedef struct {
  int isDisk;
  ULONG disk;
  PDEVICE_OBJECT lower;         /* the controller: the device below it */
  UNICODE_STRING interfaceName; /* the controller: its registered interface */
} DeviceExtension;

static PDRIVER_OBJECT driverObject;
static PDEVICE_OBJECT diskDevices[DISK_COUNT];
static BOOLEAN diskLinked[DISK_COUNT];

/* The Win32 error the model answers, as the status Wine turns back into it. */
static NTSTATUS statusOf(ULONG error) {
  switch (error) {
    case 0: return STATUS_SUCCESS;
    case 1: return STATUS_INVALID_DEVICE_REQUEST;
    case 2: return STATUS_NO_SUCH_FILE;
    case 5: return STATUS_ACCESS_DENIED;
    case 21: return STATUS_DEVICE_NOT_READY;
    case 31: return STATUS_UNSUCCESSFUL;
    case 50: return STATUS_NOT_SUPPORTED;
    case 87: return STATUS_INVALID_PARAMETER;
    case 112: return STATUS_DISK_FULL;
    case 122: return STATUS_BUFFER_TOO_SMALL;
    case 234: return STATUS_BUFFER_OVERFLOW;
    /* Any other error travels as a status of the Win32 facility. */
    default: return (NTSTATUS)(0xC0070000u | (error & 0xFFFFu));
  }
}

static NTSTATUS complete(PIRP irp, NTSTATUS status, ULONG_PTR information) {
  irp->IoStatus.Status = status;
  irp->IoStatus.Information = information;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

/* "<prefix><n>" into buf (room for 64 characters). */
static void numberedName(WCHAR* buf, const WCHAR* prefix, ULONG n) {
  int i = 0;
  while (prefix[i]) {
    buf[i] = prefix[i];
    ++i;
  }
  if (n >= 100) buf[i++] = (WCHAR)(L'0' + n / 100);
  if (n >= 10) buf[i++] = (WCHAR)(L'0' + n / 10 % 10);
  buf[i++] = (WCHAR)(L'0' + n % 10);
  buf[i] = 0;
}

/* Gives every disk the model lists its device and link, and takes the link
   away from every other; device objects stay for the next arrival. */
static void syncDiskDevices(void) {
  UCHAR present[16];
  ULONG n;
  vmdModelDevices(present);
  for (n = 0; n < DISK_COUNT; ++n) {
    BOOLEAN want = (present[n / 8] >> (n % 8)) & 1;
    WCHAR deviceBuf[64], linkBuf[64];
    UNICODE_STRING deviceName, linkName;
    if (want == diskLinked[n]) continue;
    numberedName(deviceBuf, L"\\Device\\VmdTestDisk", n);
    numberedName(linkBuf, L"\\DosDevices\\VelmoRdDevPort0Target", n);
    RtlInitUnicodeString(&deviceName, deviceBuf);
    RtlInitUnicodeString(&linkName, linkBuf);
    if (want) {
      if (!diskDevices[n]) {
        PDEVICE_OBJECT d;
        DeviceExtension* ext;
        if (!NT_SUCCESS(IoCreateDevice(driverObject, sizeof(DeviceExtension), &deviceName, FILE_DEVICE_DISK, 0,
                                       FALSE, &d)))
          continue;
        ext = (DeviceExtension*)d->DeviceExtension;
        RtlZeroMemory(ext, sizeof *ext);
        ext->isDisk = 1;
        ext->disk = n;
        d->Flags |= DO_BUFFERED_IO;
        d->Flags &= ~DO_DEVICE_INITIALIZING;
        diskDevices[n] = d;
      }
      if (NT_SUCCESS(IoCreateSymbolicLink(&linkName, &deviceName))) diskLinked[n] = TRUE;
    } else {
      IoDeleteSymbolicLink(&linkName);
      diskLinked[n] = FALSE;
    }
  }
}

/* Wine hands the caller its handle before the create request is answered,
   so a refused open cannot fail CreateFileW: the handle remembers the error
   and every request on it fails with it. */
static NTSTATUS onCreate(PDEVICE_OBJECT device, PIRP irp) {
  DeviceExtension* ext = (DeviceExtension*)device->DeviceExtension;
  PIO_STACK_LOCATION stack = IoGetCurrentIrpStackLocation(irp);
  ULONG error = ext->isDisk ? vmdModelOpenDisk(ext->disk) : vmdModelOpenController();
  if (stack->FileObject) stack->FileObject->FsContext2 = (PVOID)(ULONG_PTR)error;
  return complete(irp, statusOf(error), 0);
}

static NTSTATUS onClose(PDEVICE_OBJECT device, PIRP irp) { return complete(irp, STATUS_SUCCESS, 0); }

static NTSTATUS onControl(PDEVICE_OBJECT device, PIRP irp) {
  DeviceExtension* ext = (DeviceExtension*)device->DeviceExtension;
  PIO_STACK_LOCATION stack = IoGetCurrentIrpStackLocation(irp);
  ULONG code, inSize, outSize, error;
  uint32_t returned = 0;
  if (stack->MajorFunction == IRP_MJ_FILE_SYSTEM_CONTROL) {
    code = stack->Parameters.FileSystemControl.FsControlCode;
    inSize = stack->Parameters.FileSystemControl.InputBufferLength;
    outSize = stack->Parameters.FileSystemControl.OutputBufferLength;
  } else {
    code = stack->Parameters.DeviceIoControl.IoControlCode;
    inSize = stack->Parameters.DeviceIoControl.InputBufferLength;
    outSize = stack->Parameters.DeviceIoControl.OutputBufferLength;
  }
  if (stack->FileObject && stack->FileObject->FsContext2)
    return complete(irp, statusOf((ULONG)(ULONG_PTR)stack->FileObject->FsContext2), 0);
  if (ext->isDisk) {
    error = vmdModelDiskRequest(ext->disk, code, irp->AssociatedIrp.SystemBuffer, inSize, outSize, &returned);
  } else {
    error = vmdModelControllerRequest(code, irp->AssociatedIrp.SystemBuffer, inSize, outSize, &returned);
    /* Disks come and go with the controller's requests. */
    syncDiskDevices();
  }
  return complete(irp, statusOf(error), returned);
}

static NTSTATUS onPnp(PDEVICE_OBJECT device, PIRP irp) {
  DeviceExtension* ext = (DeviceExtension*)device->DeviceExtension;
  PIO_STACK_LOCATION stack = IoGetCurrentIrpStackLocation(irp);
  PDEVICE_OBJECT lower = ext->lower;
  if (ext->isDisk || !lower) return complete(irp, STATUS_SUCCESS, 0);
  if (stack->MinorFunction == IRP_MN_START_DEVICE) {
    IoSetDeviceInterfaceState(&ext->interfaceName, TRUE);
    syncDiskDevices();
  } else if (stack->MinorFunction == IRP_MN_REMOVE_DEVICE) {
    IoSetDeviceInterfaceState(&ext->interfaceName, FALSE);
    irp->IoStatus.Status = STATUS_SUCCESS;
    IoSkipCurrentIrpStackLocation(irp);
    NTSTATUS status = IoCallDriver(lower, irp);
    IoDetachDevice(lower);
    IoDeleteDevice(device);
    return status;
  }
  irp->IoStatus.Status = STATUS_SUCCESS;
  IoSkipCurrentIrpStackLocation(irp);
  return IoCallDriver(lower, irp);
}

static NTSTATUS addDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT pdo) {
  PDEVICE_OBJECT fdo;
  DeviceExtension* ext;
  NTSTATUS status = IoCreateDevice(driver, sizeof(DeviceExtension), NULL, FILE_DEVICE_CONTROLLER,
                                   FILE_DEVICE_SECURE_OPEN, FALSE, &fdo);
  if (!NT_SUCCESS(status)) return status;
  ext = (DeviceExtension*)fdo->DeviceExtension;
  RtlZeroMemory(ext, sizeof *ext);
  ext->lower = IoAttachDeviceToDeviceStack(fdo, pdo);
  status = IoRegisterDeviceInterface(pdo, &kControllerInterface, NULL, &ext->interfaceName);
  if (NT_SUCCESS(status)) IoSetDeviceInterfaceState(&ext->interfaceName, TRUE);
  fdo->Flags |= DO_BUFFERED_IO;
  fdo->Flags &= ~DO_DEVICE_INITIALIZING;
  return STATUS_SUCCESS;
}

static void unload(PDRIVER_OBJECT driver) {
  ULONG n;
  for (n = 0; n < DISK_COUNT; ++n) {
    if (diskLinked[n]) {
      WCHAR linkBuf[64];
      UNICODE_STRING linkName;
      numberedName(linkBuf, L"\\DosDevices\\VelmoRdDevPort0Target", n);
      RtlInitUnicodeString(&linkName, linkBuf);
      IoDeleteSymbolicLink(&linkName);
    }
    if (diskDevices[n]) IoDeleteDevice(diskDevices[n]);
  }
}

NTSTATUS DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) {
  driverObject = driver;
  vmdModelInit((const uint16_t*)registryPath->Buffer, registryPath->Length / sizeof(WCHAR));
  driver->MajorFunction[IRP_MJ_CREATE] = onCreate;
  driver->MajorFunction[IRP_MJ_CLOSE] = onClose;
  driver->MajorFunction[IRP_MJ_CLEANUP] = onClose;
  driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = onControl;
  driver->MajorFunction[IRP_MJ_FILE_SYSTEM_CONTROL] = onControl;
  driver->MajorFunction[IRP_MJ_PNP] = onPnp;
  driver->DriverExtension->AddDevice = addDevice;
  driver->DriverUnload = unload;
  return STATUS_SUCCESS;
}
