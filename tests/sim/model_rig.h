// A controller model inside a machine built from a state document, and the
// bytes of its last reply.
#pragma once

#include <cstdint>
#include <vector>

#include "sim/machine.h"

namespace vmd::sim::test {

struct Model {
  // `controller` is the state's "controller" object.
  explicit Model(json controller, json rest = json::object()) : machine(withController(std::move(controller), std::move(rest))) {}

  ControllerModel::Reply send(std::uint32_t code, const std::vector<std::uint8_t>& in, std::uint32_t outSize) {
    out.assign(outSize, 0xEE);
    return machine.controller().handle(code, in.empty() ? nullptr : in.data(), static_cast<std::uint32_t>(in.size()),
                                       out.empty() ? nullptr : out.data(), outSize);
  }
  std::uint32_t field(std::size_t at) const {
    return out[at] | (out[at + 1] << 8) | (out[at + 2] << 16) | (static_cast<std::uint32_t>(out[at + 3]) << 24);
  }
  // The controller's state as the state file would hold it.
  json state() const { return machine.toJson()["controller"]; }

  static json withController(json controller, json rest) {
    rest["schema"] = 2;
    rest["controller"] = std::move(controller);
    return rest;
  }

  Machine machine;
  std::vector<std::uint8_t> out;
};

}  // namespace vmd::sim::test
