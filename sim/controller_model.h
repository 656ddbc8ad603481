// The controller as the program sees it: answers its control codes, checks
// every request as the driver would, and keeps the controller's own state
// (disks, Invisible Memory). It knows nothing of the simulated Windows around
// it except through HostHooks, so it can be hosted elsewhere too.
#pragma once

#include <cstdint>

#include "sim/machine.h"

namespace vmd::sim {

// What the controller asks of the system it runs in.
class HostHooks {
 public:
  virtual ~HostHooks() = default;
};

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
  Reply version(std::uint8_t* out, std::uint32_t outSize);

  json& c_;
  HostHooks& host_;
};

}  // namespace vmd::sim
