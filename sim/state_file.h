// The machine's state file: a strict reader that refuses unknown keys, wrong
// types and impossible values and names their place, and the writer.
#pragma once

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

// One JSON object read strictly: every key read is marked, and done()
// refuses the rest.
class Fields {
 public:
  Fields(const json& object, std::string where);
  bool has(const char* key) const { return o_.contains(key); }
  const json& raw(const char* key);  // marks the key read
  // A key's place: "host.memory.totalPhys"; an empty key shows as "".
  std::string place(const std::string& key) const {
    const std::string k = key.empty() ? "\"\"" : key;
    return where_.empty() ? k : where_ + "." + k;
  }
  const std::string& where() const { return where_; }

  std::uint64_t u64(const char* key, std::uint64_t otherwise);
  std::uint32_t u32(const char* key, std::uint32_t otherwise);
  std::int64_t delay(const char* key, std::int64_t otherwise);  // milliseconds or "never"
  bool flag(const char* key, bool otherwise);
  std::string text(const char* key, const std::string& otherwise);
  char16_t letter(const char* key, char16_t otherwise);  // "X", "" or a code unit
  void done() const;

  [[noreturn]] static void fail(const std::string& place, const std::string& why);

 private:
  const json& o_;
  std::string where_;
  std::vector<std::string> read_;
};

std::uint64_t numberAt(const json& v, const std::string& place);
std::string textAt(const json& v, const std::string& place);
ByteString hexAt(const json& v, const std::string& place);

}  // namespace vmd::sim
