// Device discovery and device I/O of the simulated machine. Opens are routed
// by path to the controller, a disk's own device, a volume or the mount-point
// manager. Counting and fault rules are the fault layer's (sim/fault_layer.h).
#pragma once

#include <map>
#include <memory>
#include <string>

#include "platform/platform.h"
#include "sim/controller_model.h"
#include "sim/machine.h"

namespace vmd::sim {

class SimSetup : public DeviceSetup {
 public:
  explicit SimSetup(Machine& m) : m_(m) {}
  SysResult<std::vector<Interface>> presentInterfaces(const InterfaceClass& cls, Scope scope) override;

 private:
  Machine& m_;
};

// The controller's entry point with the machine's fault rules around it, for
// a host that has no fault layer of its own in front (the test driver): a
// rule {api "DeviceIoControl", code, path} fails the request here, before
// the model sees it, with the same matcher as the fault layer.
class ControllerFaults {
 public:
  ControllerFaults(Machine& m, ControllerModel& model) : m_(m), model_(model) {}
  ControllerModel::Reply handle(std::uint32_t code, const std::uint8_t* in, std::uint32_t inSize, std::uint8_t* out,
                                std::uint32_t outSize);

 private:
  Machine& m_;
  ControllerModel& model_;
};

class SimDeviceIo : public DeviceIo {
 public:
  // A control request's result: the count of bytes returned.
  using Reply = SysResult<std::uint32_t>;

  explicit SimDeviceIo(Machine& m) : m_(m) {}
  SysResult<Handle> open(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                         std::uint32_t disposition, std::uint32_t flags) override;
  Reply control(Handle h, std::uint32_t code, const void* in, std::uint32_t inSize, void* out,
                std::uint32_t outSize) override;
  SysStatus flush(Handle h) override;
  void close(Handle h) override;

  // Handles still open (a leak when the run ends with any).
  std::size_t openHandles() const { return open_.size(); }

  bool isOpen(Handle h) const { return open_.count(h) != 0; }

  enum class Kind { Controller, DiskDevice, Volume, MountManager, File };
  struct Opened {
    Kind kind;
    std::string path;  // UTF-8, as opened
    std::uint32_t access;
    int disk = -1;            // DiskDevice: the target
    std::string volume = {};  // Volume (and a Direct-IO disk device): the volume's GUID name
    bool locked = false;
  };

 private:
  Reply volumeControl(Opened& o, std::uint32_t code, const std::uint8_t* in, std::uint32_t inSize, std::uint8_t* out,
                      std::uint32_t outSize);
  Reply diskControl(Opened& o, std::uint32_t code, std::uint8_t* out, std::uint32_t outSize);

  Machine& m_;
  std::map<Handle, Opened> open_;
  Handle next_ = 100;
};

}  // namespace vmd::sim
