// The machine's state file: a strict reader that refuses unknown keys, wrong
// types and impossible values and names their place, and the writer.
#pragma once

#include "sim/fields.h"
#include "sim/machine.h"

namespace vmd::sim {

struct StateFile {
  // The JSON document of a state file's text; throws LoadError naming the
  // line and column of what is not JSON.
  static json parse(const std::string& text);
  // Lays `state` over the machine's standard world; throws LoadError.
  static void read(Machine& m, const json& state);
  static json write(const Machine& m);
};

// The controller's part alone (sim/controller_json.cpp).
void readController(const json& c, const std::string& where, ControllerState& out,
                    std::map<std::uint8_t, json>& diskSource, int schema);
json writeController(const ControllerState& c, const std::map<std::uint8_t, json>& diskSource);

}  // namespace vmd::sim
