// A simulated machine with its platform, and the requests the stories send.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/text_codec.h"
#include "controller/codes.h"
#include "platform/host.h"
#include "sim/record_layout.h"
#include "sim/sim_platform.h"
#include "support/fakes.h"

namespace vmd::sim::test {

struct Rig {
  explicit Rig(json state = json::object()) : machine(withSchema(std::move(state))), sim(machine, streams, catalog, nullptr) {}
  // A state written in braces: GCC would otherwise weigh it against the
  // copy and move constructors and find the call ambiguous.
  explicit Rig(json::initializer_list_t state) : Rig(json(state)) {}

  static json withSchema(json s) {
    if (!s.contains("schema")) s["schema"] = 2;
    return s;
  }

  struct Result {
    bool ok;
    std::uint32_t error;
    std::vector<std::uint8_t> out;
  };
  // One request on a device opened afresh, as the program sends it.
  Result request(const std::wstring& path, std::uint32_t code, const std::vector<std::uint8_t>& in,
                 std::uint32_t outSize) {
    const SysResult<DeviceIo::Handle> h = sim.io.open(path, 0xC0000000u, 3, 3, 0);
    if (!h.ok) return {false, h.error, {}};
    Result r = send(h.value, code, in, outSize);
    sim.io.close(h.value);
    return r;
  }
  Result send(DeviceIo::Handle h, std::uint32_t code, const std::vector<std::uint8_t>& in, std::uint32_t outSize) {
    std::vector<std::uint8_t> out(outSize, 0);
    const SysResult<std::uint32_t> c =
        sim.io.control(h, code, in.empty() ? nullptr : in.data(), static_cast<std::uint32_t>(in.size()),
                       out.empty() ? nullptr : out.data(), outSize);
    out.resize(c.value);
    return {c.ok, c.error, out};
  }
  Result controller(std::uint32_t code, const std::vector<std::uint8_t>& in, std::uint32_t outSize) {
    return request(fromUtf8(machine.world.controller.interfacePath), code, in, outSize);
  }

  // The creation record the program would send for these settings.
  static std::vector<std::uint8_t> creation(json settings) {
    if (!settings.contains("index")) settings["index"] = 255;
    return buildRecord(settings);
  }
  static std::vector<std::uint8_t> head(std::uint8_t target) { return {12, 0, 0, 0, 12, 0, 0, 0, 0, 0, target, 0}; }
  static std::vector<std::uint8_t> removal(std::uint8_t target, bool testOnly, bool save) {
    return {16, 0, 0, 0, 16, 0, 0, 0, 0, 0, target, 0, 0, static_cast<std::uint8_t>(testOnly),
            static_cast<std::uint8_t>(save), 0};
  }

  const Volume* volumeOf(std::uint8_t disk) const {
    for (const Volume& v : machine.world.volumes)
      if (v.disk && *v.disk == disk) return &v;
    return nullptr;
  }

  Machine machine;
  vmd::test::CapturingStreams streams;
  vmd::test::MapCatalog catalog;
  SimPlatform sim;
};

}  // namespace vmd::sim::test
