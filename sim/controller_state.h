// The controller's own state, typed: its version, its disks with the records
// it keeps for them, its Invisible Memory manager and its timing. Nothing
// here knows JSON; sim/controller_json.h converts to and from the state file.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/record_check.h"

namespace vmd::sim {


// A delay that never ends: the disk never arrives, or never leaves.
inline constexpr std::int64_t kNever = -1;
inline constexpr std::uint64_t kNeverDue = std::numeric_limits<std::uint64_t>::max();

struct ImState {
  bool supported = true;
  std::uint32_t recordSize = 72, unitSize = 4096, firstUnit = 0, endUnit = 0, freeUnits = 0;
  std::uint32_t state = 0xFFFFFFFFu;  // 0 running, 0xFFFFFFFF not active
  std::uint32_t reserveInEffect = 0, quotaInEffect = 0, hiberDriveInEffect = 0;
  std::uint32_t reserveConfigured = 0, quotaConfigured = 0, hiberDriveConfigured = 0;
  std::uint32_t localState = 0, hiberInEffect = 0, hiberConfigured = 0;
  // Which fields have been stated, by the state file or by a request (bits
  // in the order above, from recordSize): the state file holds those alone.
  std::uint32_t stated = 0;
  enum Bit : std::uint32_t {
    kReserveInEffect = 1u << 6, kQuotaInEffect = 1u << 7, kHiberDriveInEffect = 1u << 8,
    kReserveConfigured = 1u << 9, kQuotaConfigured = 1u << 10, kHiberDriveConfigured = 1u << 11,
    kLocalState = 1u << 12, kHiberInEffect = 1u << 13, kHiberConfigured = 1u << 14,
  };
};

// Where a disk is in its life: on its way in (created, device not yet
// there), present, or on its way out (removal accepted, still present).
enum class DiskPhase { Arriving, Present, Leaving };

struct SimDisk {
  std::uint8_t index = 0;
  bool good = true;
  // What the disk runs with, as the controller answers the disk-info query.
  // A disk takes them from the record it starts from (at its creation, at a
  // restart with new settings), but they are kept apart from its records: a
  // state file states them on their own (an image its record does not name,
  // a disk whose record no longer reads), and applying image settings now
  // changes `image` while the records stay as they are.
  std::uint64_t size = 0;  // bytes
  bool image = false;
  bool directIo = false;
  char16_t letter = 0;  // the letter the controller assigned (Direct-IO)
  std::optional<std::uint32_t> systemDiskNumber;  // SCSI; default 1 + index
  std::optional<std::uint32_t> signature;
  // The record the controller keeps; nothing when the state described
  // settings that no record can hold (the read fails with 31).
  std::optional<RecordBytes> settings = RecordBytes{};
  // The live status record; nothing given: the settings record. `statusBroken`
  // when the state described a status no record can hold.
  std::optional<RecordBytes> status;
  bool statusBroken = false;
  // Settings stored by a change that a running disk cannot take.
  std::optional<RecordBytes> pendingSettings;
  bool pagingFile = false;  // the system keeps a paging file on it
  // Per-disk timing; kNever for never. Nothing: controller.timing.
  std::optional<std::int64_t> volumeAfterMs, goneAfterMs;
  DiskPhase phase = DiskPhase::Present;
  std::uint64_t dueMs = 0;  // when the pending phase ends; kNeverDue: never

  std::uint32_t diskNumber() const { return systemDiskNumber.value_or(1u + index); }

  // The rules of its phases. Until it has arrived, the system has neither its
  // device nor its volume; only a disk settled in place takes work on its volume.
  bool deviceVisible() const { return phase != DiskPhase::Arriving; }
  bool settled() const { return phase == DiskPhase::Present; }
  bool leaving() const { return phase == DiskPhase::Leaving; }
  // A pending arrival or departure falls due by `nowMs`.
  bool dueBy(std::uint64_t nowMs) const { return !settled() && dueMs != kNeverDue && dueMs <= nowMs; }
};

struct ControllerTiming {
  std::int64_t volumeAfterMs = 1500;
  std::int64_t goneAfterMs = 1000;
};

struct ControllerState {
  bool present = true;
  std::string interfacePath = "\\\\?\\root#scsiadapter#0000#{48fa1fe0-7189-432a-9fd4-9db766b64b31}";
  // Several controllers' interface paths (UTF-8), in enumeration order; when
  // empty, interfacePath is the one interface.
  std::vector<std::string> interfaces;
  std::uint32_t versionWord = (5u << 16) | 7u;
  std::uint32_t secondWord = 0;
  std::uint32_t variantCode = 1;
  std::vector<SimDisk> disks;  // ascending index
  // Who owns a DOS drive name for QueryDosNameTarget, when the state says so
  // (letter -> target, nothing: no owner); otherwise every Direct-IO disk
  // owns its own letter.
  std::optional<std::map<char16_t, std::optional<std::uint8_t>>> dosNameOwners;
  ImState im;
  ControllerTiming timing;
  std::optional<std::uint64_t> memoryLimitMb;  // nothing: the host's physical memory
  std::uint32_t shortBufferError = 122;

  SimDisk* findDisk(std::uint32_t index) {
    for (SimDisk& d : disks)
      if (d.index == index) return &d;
    return nullptr;
  }
  const SimDisk* findDisk(std::uint32_t index) const {
    for (const SimDisk& d : disks)
      if (d.index == index) return &d;
    return nullptr;
  }
};

}  // namespace vmd::sim
