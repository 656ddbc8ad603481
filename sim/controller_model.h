// The controller as the program sees it: answers its control codes, checks
// every request as the driver would, and keeps the controller's own typed
// state. It knows the simulated Windows around it only through HostHooks and
// never throws, so it can be hosted elsewhere too.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "sim/controller_state.h"

namespace vmd::sim {

// What a disk's volume is made of, as the controller formatted it.
struct DiskFacts {
  std::uint8_t index = 0;
  std::uint64_t size = 0;
  bool directIo = false;
  char16_t letter = 0;  // Direct-IO: the letter the controller gave it (0: none)
  std::uint32_t signature = 0;
  std::uint32_t diskNumber = 0;  // the system's disk number (SCSI)
  std::uint8_t fileSystem = 19;  // 2 NTFS, 18 FAT, 19 FAT32
  std::uint32_t clusterBytes = 0;
  std::uint32_t serial = 0;
  std::u16string label;
};

// What the controller tells the system it runs in, and asks of it.
class HostHooks {
 public:
  virtual ~HostHooks() = default;
  virtual std::uint64_t nowMs() = 0;  // the system's clock, in milliseconds
  virtual void diskArrived(const DiskFacts& disk) = 0;  // its device and volume appear
  virtual void diskRemoved(std::uint8_t index) = 0;      // its device and volume are gone
  // The disk's volume was laid down afresh with these facts: same place and
  // mount points, a new empty file system.
  virtual void diskReinitialized(const DiskFacts& disk) = 0;
  // A Direct-IO disk's letter moved (0: none); false when the system refuses.
  virtual bool diskLetterChanged(std::uint8_t index, char16_t oldLetter, char16_t newLetter) = 0;
  virtual bool letterFree(char16_t letter) = 0;
  // The controller's disk whose volume holds the DOS drive name \??\X:.
  virtual std::optional<std::uint8_t> dosDeviceOwner(char16_t letter) = 0;
  // Writes a file the controller saves (an image file); 0 or the error.
  virtual std::uint32_t writeFile(const std::u16string& path, const RecordBytes& head, std::uint64_t size) = 0;
  virtual std::uint64_t physicalMemoryMb() = 0;
};

// The target of a per-disk request's 12-byte head (lengths 12 and 12, port,
// path id and logical unit 0, a target below 128), or nothing when the driver
// would refuse the input.
std::optional<std::uint32_t> diskHeadTarget(const std::uint8_t* in, std::uint32_t inSize);

// The volume facts of a disk from its settings record's format section.
DiskFacts diskFacts(const SimDisk& disk);

// The first sector of an image file of that format (0 PLAIN, 1 SMART, 2 COMPR).
RecordBytes imageFileHead(std::uint8_t format, std::uint64_t diskSize, std::uint8_t level);

class ControllerModel {
 public:
  ControllerModel(ControllerState& state, HostHooks& host) : c_(state), host_(host) {}

  struct Reply {
    std::uint32_t returned;
    std::uint32_t error;  // 0: the request succeeded, unless `failed`
    bool failed = false;  // failed whatever the error, even 0 (an injected fault)
    bool ok() const { return error == 0 && !failed; }
  };
  // One request: code, input bytes, output buffer of outSize bytes. Due
  // events run first.
  Reply handle(std::uint32_t code, const std::uint8_t* in, std::uint32_t inSize, std::uint8_t* out,
               std::uint32_t outSize);

  // Runs the arrivals and departures due by the host's clock.
  void advance();
  // Runs every pending arrival and departure whatever the clock says, except
  // those that never happen.
  void settle();
  // The machine starts again: settings waiting for a restart take effect,
  // removals complete, and every disk the controller keeps arrives anew.
  void restart();

  ControllerState& state() { return c_; }

 private:
  // One request as its handler sees it, its input already of its row's shape.
  struct Request {
    const std::uint8_t* in;
    std::uint32_t inSize;
    std::uint8_t* out;
    std::uint32_t outSize;
    std::uint32_t target = 0;  // the disk the input's address names, for shapes with one
  };
  enum class Shape {
    None,       // no input read
    Record,     // a whole settings record, well formed
    Head,       // the 12-byte disk address
    Pair,       // 16 bytes: {16, 16}, the address, two 16-bit values
    Wrapped,    // {16, total, address, length} and a sub-record of `fixed` bytes at least
    SelfSized,  // `fixed` bytes beginning with their own size
    DosText,    // a NUL-terminated UTF-16 string
    DosName,    // "\??\X:" and its NUL, 14 bytes
  };
  struct Row {
    std::uint32_t code;
    Reply (ControllerModel::*run)(const Request&);
    Shape shape;
    std::uint32_t fixed;
    bool im;  // the Invisible Memory manager's: refused when it is not there
  };
  static const Row kRows[];

  Reply dispatch(std::uint32_t code, const Request& raw);
  static bool shaped(const Row& row, Request& q);

  Reply version(const Request& q);
  Reply diskBitmap(const Request& q);
  Reply diskInfo(const Request& q);
  Reply deviceNumber(const Request& q);
  Reply dosNameTarget(const Request& q);
  Reply dosDeviceOwner(const Request& q);
  Reply diskPresent(const Request& q);
  Reply createDisk(const Request& q);
  Reply removeDisk(const Request& q);
  Reply changeLetter(const Request& q);
  Reply changeSettings(const Request& q);
  Reply applyImageSettings(const Request& q);
  Reply reinitialize(const Request& q);
  Reply saveImage(const Request& q);
  Reply imStatus(const Request& q);
  Reply imOptions(const Request& q);
  Reply enableIm(const Request& q);
  Reply disableIm(const Request& q);
  Reply settingsRecord(const Request& q);
  Reply statusRecord(const Request& q);
  Reply record(const Request& q, bool withHead);

  void arrive(SimDisk& disk);
  void leave(std::size_t at);
  std::uint32_t newDiskNumber(std::uint8_t index) const;
  std::uint64_t dueAfter(std::optional<std::int64_t> own, std::int64_t general);

  ControllerState& c_;
  HostHooks& host_;
};

}  // namespace vmd::sim
