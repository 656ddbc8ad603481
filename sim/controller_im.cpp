// The controller's Invisible Memory manager: its status record, the options
// that the program sets, and this product's enabled state.
//
// state.controller.im: every field of the 72-byte status record by name
// (recordSize, unitSize, firstUnit, endUnit, freeUnits, state, reserveInEffect,
// quotaInEffect, hiberDriveInEffect, reserveConfigured, quotaConfigured,
// hiberDriveConfigured, localState, hiberInEffect, hiberConfigured) and
// `supported`. Drive letters are one-character strings ("" for none) or code
// units. Missing fields take the values of kDefaults.
#include <string>

#include "controller/codes.h"
#include "base/text_codec.h"
#include "platform/platform.h"
#include "sim/controller_model.h"

namespace vmd::sim {

namespace {


struct Field {
  const char* name;
  std::uint32_t offset;
  bool letter;
};
constexpr Field kFields[] = {
    {"recordSize", 0, false},          {"unitSize", 4, false},           {"firstUnit", 8, false},
    {"endUnit", 12, false},            {"freeUnits", 16, false},         {"state", 20, false},
    {"reserveInEffect", 24, false},    {"quotaInEffect", 28, false},     {"hiberDriveInEffect", 32, true},
    {"reserveConfigured", 36, false},  {"quotaConfigured", 40, false},   {"hiberDriveConfigured", 44, true},
    {"localState", 48, false},         {"hiberInEffect", 52, false},     {"hiberConfigured", 60, false},
};

// A manager that is installed but not active, with 4 KiB units.
std::uint32_t defaultOf(const std::string& name) {
  if (name == "recordSize") return 72;
  if (name == "unitSize") return 4096;
  if (name == "state") return 0xFFFFFFFFu;
  return 0;
}

std::uint32_t read(const json& im, const std::string& name) {
  if (!im.is_object() || !im.contains(name)) return defaultOf(name);
  const json& v = im[name];
  if (v.is_string()) {
    const std::string s = v.get<std::string>();
    // A drive letter as text; numbers may be written as strings too.
    if (s.empty()) return 0;
    if (!(s[0] >= '0' && s[0] <= '9')) {
      const std::wstring w = fromUtf8(s);
      return w.empty() ? 0 : static_cast<std::uint32_t>(w[0]);
    }
  }
  return parseNumber(v);
}

json letterValue(std::uint32_t codeUnit) {
  if (codeUnit == 0) return "";
  return toUtf8(std::wstring(1, static_cast<wchar_t>(codeUnit)));
}

std::uint32_t get32(const std::uint8_t* p) {
  return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
         (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

}  // namespace

ControllerModel::Reply ControllerModel::imRequest(std::uint32_t code, In in, std::uint32_t inSize, Out out,
                                                  std::uint32_t outSize) {
  if (!c_["im"].is_object()) c_["im"] = json::object();
  json& im = c_["im"];
  if (!im.value("supported", true)) return {0, syserr::InvalidFunction};
  switch (code) {
    case ioctl::QueryImStatus: {
      // An older manager answers with its shorter record.
      const std::uint32_t size = read(im, "recordSize");
      const std::uint32_t n = size < 72 ? size : 72;
      if (outSize < n) return {0, syserr::InsufficientBuffer};
      for (std::uint32_t i = 0; i < n; ++i) out[i] = 0;
      for (const Field& f : kFields)
        if (f.offset + 4 <= n) putLe32(out + f.offset, read(im, f.name));
      return {n, 0};
    }
    case ioctl::SetImOptions: {
      if (!in || inSize != 24 || get32(in) != 24) return {0, syserr::InvalidParameter};
      const std::uint64_t unit = read(im, "unitSize");
      auto units = [&](std::uint32_t mb) {
        return static_cast<std::uint32_t>(unit ? (std::uint64_t{mb} << 20) / unit : 0);
      };
      // While this product uses Invisible Memory, changes wait for a restart.
      const bool inUse = read(im, "state") == 0 && read(im, "localState") != 0;
      im["reserveConfigured"] = units(get32(in + 4));
      im["quotaConfigured"] = units(get32(in + 8));
      im["hiberDriveConfigured"] = letterValue(get32(in + 12));
      im["hiberConfigured"] = get32(in + 16);
      if (!inUse) {
        im["reserveInEffect"] = im["reserveConfigured"];
        im["quotaInEffect"] = im["quotaConfigured"];
        im["hiberDriveInEffect"] = im["hiberDriveConfigured"];
        im["hiberInEffect"] = im["hiberConfigured"];
      }
      return {0, 0};
    }
    case ioctl::EnableIm:
      im["localState"] = 1;
      return {0, 0};
    case ioctl::DisableIm:
      im["localState"] = 0;
      return {0, 0};
    default:
      return {0, syserr::InvalidFunction};
  }
}

}  // namespace vmd::sim
