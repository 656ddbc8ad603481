// The controller as the program sees it: answers its control codes, checks
// every request as the driver would, and keeps the controller's own state
// (disks, Invisible Memory). It knows nothing of the simulated Windows around
// it except through HostHooks, so it can be hosted elsewhere too.
#pragma once

#include <cstdint>
#include <optional>

#include "sim/machine.h"

namespace vmd::sim {

// What the controller asks of the system it runs in.
class HostHooks {
 public:
  virtual ~HostHooks() = default;
};

// The target of a per-disk request's 12-byte head (lengths 12 and 12, port,
// path id and logical unit 0, a target below 128), or nothing when the driver
// would refuse the input.
std::optional<std::uint32_t> diskHeadTarget(const std::uint8_t* in, std::uint32_t inSize);

// The entry of controller.disks[] with that index, or null.
const json* findDisk(const json& controller, std::uint32_t index);

class ControllerModel {
 public:
  // `controller` is the state's "controller" object; it must outlive the model.
  ControllerModel(json& controller, HostHooks& host) : c_(controller), host_(host) {}

  struct Reply {
    std::uint32_t returned;
    std::uint32_t error;  // 0: the request succeeded
  };
  // One request: code, input bytes, output buffer of outSize bytes.
  Reply handle(std::uint32_t code, const std::uint8_t* in, std::uint32_t inSize, std::uint8_t* out,
               std::uint32_t outSize);

  json& state() { return c_; }

 private:
  using In = const std::uint8_t*;
  using Out = std::uint8_t*;
  Reply version(std::uint8_t* out, std::uint32_t outSize);
  // Disks (sim/controller_disks.cpp): bitmap, disk info, device number, DOS names.
  Reply diskRequest(std::uint32_t code, In in, std::uint32_t inSize, Out out, std::uint32_t outSize);
  // Invisible Memory (sim/controller_im.cpp).
  Reply imRequest(std::uint32_t code, In in, std::uint32_t inSize, Out out, std::uint32_t outSize);
  // Settings and status records (sim/controller_records.cpp).
  Reply recordRequest(std::uint32_t code, In in, std::uint32_t inSize, Out out, std::uint32_t outSize);

  json& c_;
  HostHooks& host_;
};

}  // namespace vmd::sim
