// The volume procedures' test bench: a simulated machine, the program's
// controller object on a recording device layer, and the volume services
// over both; with the machine descriptions the stories share.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "base/bytes.h"
#include "base/text_codec.h"
#include "controller/codes.h"
#include "settings/creation_record.h"
#include "settings/settings_record.h"
#include "support/sim_app.h"
#include "volume/volume.h"

namespace vmd::voltest {

using sim::json;
using test::SimApp;

// Passes every device call on to the simulated machine and writes down, in
// order, what was opened, asked and closed.
class RecordingIo : public DeviceIo {
 public:
  explicit RecordingIo(DeviceIo& inner) : inner_(inner) {}
  SysResult<Handle> open(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                         std::uint32_t disposition, std::uint32_t flags) override {
    const SysResult<Handle> r = inner_.open(path, access, share, disposition, flags);
    if (r.ok) paths_[r.value] = toUtf8(path);
    log.push_back("open " + toUtf8(path) + (r.ok ? "" : " failed"));
    return r;
  }
  SysResult<std::uint32_t> control(Handle h, std::uint32_t code, const void* in, std::uint32_t inSize, void* out,
                                   std::uint32_t outSize) override {
    const SysResult<std::uint32_t> r = inner_.control(h, code, in, inSize, out, outSize);
    log.push_back(sim::codeName(code) + " " + paths_[h] + (r.ok ? "" : " failed " + std::to_string(r.error)));
    return r;
  }
  SysStatus flush(Handle h) override { return inner_.flush(h); }
  void close(Handle h) override {
    log.push_back("close " + paths_[h]);
    inner_.close(h);
  }

  std::vector<std::string> log;

 private:
  DeviceIo& inner_;
  std::map<Handle, std::string> paths_;
};

// A machine, the program's controller object on a recording device layer,
// and the volume services over both.
class World {
 public:
  explicit World(json state = json::object())
      : sim(std::move(state)),
        io(sim.platform.io),
        controller(sim.platform.setup, io),
        ctx{controller,
            io,
            sim.platform.volumes,
            sim.platform.registry,
            sim.platform.clock,
            sim.platform.broadcast,
            [this] {
              ++questions;
              return answers.empty() ? false : answers[questions - 1 < answers.size() ? questions - 1 : 0];
            }} {
    controller.discover();
  }

  // A creation record as add would send it.
  Bytes record(std::uint32_t sizeMb, wchar_t letter, bool directIo = false) {
    DiskSettings s;
    s.sizeMb = sizeMb;
    s.driveLetter = static_cast<std::uint16_t>(letter);
    if (directIo) s.diskFlags = diskflag::DirectIo;
    return *BuildCreationRecord(s, nullptr, sim.platform.clock, sim.platform.system);
  }

  MountRequest create(const Bytes& rec) {
    MountRequest m;
    m.createRequest = &rec;
    CreateAndMountDisk(ctx, m);
    return m;
  }

  std::uint64_t elapsedMs() const { return sim.machine.nowMs(); }
  std::uint32_t sleeps() const { return sim.apiCalls("Sleep"); }
  std::size_t openHandles() const { return sim.platform.io.openHandles(); }
  std::vector<std::string> lettersOf(std::uint8_t disk) const {
    for (const auto& v : sim.machine.world.volumes)
      if (v.disk && *v.disk == disk) return v.mountPoints;
    return {};
  }
  std::string entriesWith(const char* request) const {
    std::string all;
    for (const std::string& l : io.log)
      if (l.rfind(request, 0) == 0) all += l + "\n";
    return all;
  }

  SimApp sim;
  RecordingIo io;
  CVmDevControl controller;
  VolumeContext ctx;
  std::vector<bool> answers;
  std::size_t questions = 0;
};

// `a` with the top-level objects of `b` merged in.
inline json merged(json a, const json& b) {
  a.merge_patch(b);
  return a;
}

inline json timing(json volumeAfter, json goneAfter = 1000) {
  return json{{"controller", {{"timing", {{"volumeAfterMs", volumeAfter}, {"goneAfterMs", goneAfter}}}}}};
}

// Disk 4 of 64 MB, with `extra` fields.
inline json oneDisk(json extra = json::object()) {
  json disk = {{"index", 4}, {"size", 67108864}};
  disk.update(extra);
  return json{{"controller", {{"disks", {disk}}}}};
}

// Disk 4, Direct-IO at R, on a machine where volumes come and go in half a
// second; `extra` adds top-level objects.
inline json directIoDiskAtR(const json& extra = json::object()) {
  return merged(merged(timing(500, 500),
                       json::parse(R"({"controller": {"disks": [{"index": 4, "size": 67108864, "directIo": true, "letter": "R"}]}})")),
                extra);
}

// Rebuilds disk 4 from `record`, keeping `letter`.
inline RebuildRequest rebuildDisk4(World& w, const Bytes& record, std::uint16_t letter = 0) {
  RebuildRequest r;
  r.address = diskAddress(4);
  r.createRequest = &record;
  r.driveLetter = letter;
  RebuildDisk(w.ctx, r);
  return r;
}

}  // namespace vmd::voltest
