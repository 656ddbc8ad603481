// The simulated machine: its typed state (sim/world.h), the controller model
// inside it, the simulated Windows side the controller talks to (SimHost),
// the fault rules, virtual time with the events it brings, and the request
// counters of a run. The state file's schema is in docs/simulator.md.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "base/bytes.h"
#include "sim/controller_model.h"
#include "sim/fault_layer.h"
#include "sim/world.h"

namespace vmd::sim {

// Objects keep their keys in the order written: registry values enumerate so.
using json = nlohmann::ordered_json;

inline constexpr int kSchemaVersion = 2;

// A state that cannot be read: the place in the file and what is wrong there.
class LoadError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Machine;

// The simulated Windows around the controller: volumes appear and vanish
// with disks, and get their letters as the mount-point manager gives them.
class SimHost : public HostHooks {
 public:
  explicit SimHost(Machine& m) : m_(m) {}
  std::uint64_t nowMs() override;
  void diskArrived(const DiskFacts& disk) override;
  void diskRemoved(std::uint8_t index) override;
  void diskReinitialized(const DiskFacts& disk) override;
  bool diskLetterChanged(std::uint8_t index, char16_t oldLetter, char16_t newLetter) override;
  bool letterFree(char16_t letter) override;
  std::optional<std::uint8_t> dosDeviceOwner(char16_t letter) override;
  std::uint32_t writeFile(const std::u16string& path, const RecordBytes& head, std::uint64_t size) override;
  std::uint64_t physicalMemoryMb() override;

  // Gives a disk's new volume its letter as the mount-point manager does.
  void assignLetter(Volume& v, const DiskFacts& disk);

 private:
  std::uint32_t storeFile(const std::string& path, const RecordBytes& head, std::uint64_t size);

  Machine& m_;
};

// The volume a disk's arrival brings, before it has a letter.
Volume derivedVolume(const DiskFacts& disk);

class Machine : public CallLog {
 public:
  Machine();  // the standard machine
  // A state document (docs/simulator.md); throws LoadError naming the place.
  explicit Machine(const json& state);
  Machine(Machine&& other) noexcept;
  Machine& operator=(Machine&& other) noexcept;
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  static json defaultState();

  // Reads a state file; a missing file gives the standard machine. Throws
  // LoadError ("<file>: <place>: <reason>") on a file it refuses; reading
  // never changes the file.
  static Machine load(const std::string& path);
  // Settles pending events (unless they never happen) and writes the state.
  void save(const std::string& path);
  json toJson() const;
  // Changes the state through its document form, as a test sets a machine up.
  void edit(const std::function<void(json&)>& change);

  // The fault layer asks here before every call it passes on: runs due
  // events, counts the call under stats.api, and returns the error a
  // matching fault rule injects.
  std::optional<std::uint32_t> enter(std::string_view api, std::uint32_t code, const std::string& path) override;
  // The same check without counting, for the controller's entry point.
  std::optional<std::uint32_t> matchFault(std::string_view api, std::uint32_t code, const std::string& path);

  void count(const std::string& group, const std::string& key) override;
  void note(const std::string& group, const std::string& key, const std::string& value) override;

  // Virtual time: sleeping advances the clock, runs what falls due and costs nothing.
  void sleep(std::uint32_t ms);
  std::uint64_t nowMs() const { return world.clock.elapsedMs; }
  std::uint64_t fileTime() const;  // 100 ns units since 1601, UTC
  void tick() { model_->advance(); }
  // The machine starts again (docs/simulator.md, "Restart").
  void restart();
  // Present disks without a volume get the one their arrival brings, unless
  // their description says they have none (`volume: false`, or any disk when
  // `noneUnlessDescribed`). Returns the disks given one, in order.
  std::vector<std::uint8_t> bringDiskVolumes(bool noneUnlessDescribed);

  ControllerModel& controller() { return *model_; }
  SimHost& host() { return *host_; }

  World world;
  json stats = json::object();

 private:
  void wire();

  std::unique_ptr<SimHost> host_;
  std::unique_ptr<ControllerModel> model_;
  RuleMatcher faultMatcher_;  // calls matched per fault rule, this run
  std::map<std::uint8_t, json> diskSource_;    // disks' record descriptions as read, written back unchanged
  friend struct StateFile;
};

std::uint64_t parseNumber64(const json& v);  // a number, or a string in decimal or 0x hex
inline std::uint32_t parseNumber(const json& v) { return static_cast<std::uint32_t>(parseNumber64(v)); }

}  // namespace vmd::sim
