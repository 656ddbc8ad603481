#include "fault/invariants.h"

#include <algorithm>
#include <cstdio>
#include <cwctype>

#include "base/text_codec.h"
#include "controller/codes.h"
#include "fault/machine_states.h"
#include "settings/descriptor_file.h"
#include "sim/sim_services.h"

namespace vmd::fault {

namespace {

// --- Rules: the invariants, and the prescribed outcomes accepted by name.

namespace must {
const char* kEnds = "a run ends by itself";
const char* kExitCode = "a run exits with 0, 3 or 4";
const char* kErrorLine = "exit code 3 comes with a line beginning \"Error:\"";
const char* kCodeShown = "a code shown for a failure is the code the call failed with";
const char* kHandles = "every handle opened is closed";
const char* kLoadsAndLists = "the state left behind loads and lists";
const char* kOnlyItsOwn = "a command changes only what it works on";
const char* kSameWords = "the same words mean the same outcome";
const char* kAddCreates = "add: exit 0 means one new disk, a failure means none";
const char* kAutoMount = "add: automatic mounting is left as it was found";
const char* kRemovedSafely = "a disk goes only after each of its volumes was dismounted";
const char* kDelGone = "del: exit 0 means the disk is gone, a failure means it is still there";
const char* kRebuildBack = "rebuild: a removed disk is created again at its index, or the error says it was not";
const char* kReinitSafely = "init: the volume is reinitialized only after it was dismounted";
const char* kInitDone = "init: exit 0 means the volume was reinitialized";
const char* kEditOwnValues = "edit: MountedDevices values are removed only for the disk's own signature";
const char* kEditValueWritten = "edit: the disk's old values go only when its new letter's value is written";
const char* kEditLetterKept = "edit: the disk keeps a drive letter";
const char* kSaveWritten = "save: exit 0 means the image file was written";
const char* kExportWritten = "export: exit 0 means a valid descriptor of the disk's settings";
const char* kExportTruthful = "export: a file is changed only by a successful export or with its export error";
const char* kExportAsks = "export: an existing file is overwritten only after a yes (or with -s)";
const char* kFailureChangesNothing = "a command that fails leaves the machine as it found it";
const char* kEditStored = "edit: exit 0 means the changed settings were stored";
const char* kImDone = "im: exit 0 means the enable or disable request succeeded";
const char* kEditStaleValues = "edit: no other value of the disk's signature stays beside its new letter's";
}  // namespace must

namespace prescribed {
const char* kNotFound = "volumes that cannot be found are not dismounted (their queries fail: the list is empty)";
const char* kForcedUnopened = "a volume that cannot be opened is forced: there is nothing to dismount";
const char* kDismountUnread = "the dismount request's own result is not read; the command goes on";
const char* kRebuildLost = "rebuild: removal succeeded, creation failed: the disk is gone, the error line is the only trace";
const char* kBroadcastUnreported = "edit: a failed change broadcast is not reported (add, del and rebuild warn)";
const char* kEditLive =
    "edit: a failed letter, label, image-apply or registry step is not reported, nor one left out because the disk's "
    "letter cannot be found; the stored settings act at the restart";
const char* kEditNoLetter = "edit: the old letter could not be put back after a failed move: the volume is left without a letter";
const char* kEditValueLost = "edit: the new letter's value could not be written after the old ones were removed";
const char* kAutoMountKept = "add: a failure to switch automatic mounting back off is not reported";
const char* kExportPartial = "export: a failed write leaves the file created empty or partly written";
const char* kExportCodes = "export reports 110 or 29 for a file it cannot create or write, whatever the system said";
const char* kMountStatus = "the mounting warning shows the mount status (6, 7, 9), not a system error";
const char* kErrorZero = "a create or remove request that fails without an error code is reported as 31";
const char* kCreationMetOldDisk =
    "rebuild: a presence check that fails counts as gone: the creation meets the old disk still leaving, and its own "
    "code is shown";
const char* kImStatusUnread = "im disable: a status that cannot be read counts as not enabled: nothing is disabled, the success line is printed";
const char* kSaveFormatUnread = "save: a load-only image whose file cannot be read is saved in the format of -F (plain by default)";
const char* kEditWalkCut =
    "edit: a MountedDevices value whose enumeration or removal fails is skipped and stays (259 ends the walk)";
const char* kExportUnasked = "export: a file whose attributes cannot be read counts as not there: it is overwritten without the question";
const char* kImOptionsStored = "im enable: the options are stored when the enable request after them fails";
const char* kDismountedLeft = "a failure after the dismount leaves the volume dismounted (the system mounts it again at its next use)";
const char* kRebuildNoBase = "rebuild: an old record that cannot be read is not the base: the disk comes back with a new signature";
}  // namespace prescribed

// --- Reading the run.

std::vector<std::wstring> linesOf(const std::wstring& text) {
  std::vector<std::wstring> lines;
  std::wstring cur;
  for (wchar_t c : text) {
    if (c == L'\n') {
      lines.push_back(cur);
      cur.clear();
    } else if (c != L'\r') {
      cur += c;
    }
  }
  if (!cur.empty()) lines.push_back(cur);
  return lines;
}

bool hasLineStarting(const std::wstring& text, const std::wstring& prefix) {
  for (const std::wstring& l : linesOf(text))
    if (l.rfind(prefix, 0) == 0) return true;
  return false;
}

bool says(const std::wstring& text, const std::wstring& part) { return text.find(part) != std::wstring::npos; }

bool isRequest(const Call& c, std::uint32_t code) { return c.api == sim::calls::kDeviceIoControl && c.code == code; }

// The index of the first successful removal that was meant (not the test), or -1.
long removalAt(const std::vector<Call>& calls) {
  for (std::size_t i = 0; i < calls.size(); ++i) {
    const Call& c = calls[i];
    if (isRequest(c, ioctl::RemoveDisk) && !c.injected && c.ok && c.in.size() >= 14 && c.in[13] == 0)
      return static_cast<long>(i);
  }
  return -1;
}

long successfulRequestAt(const std::vector<Call>& calls, std::uint32_t code) {
  for (std::size_t i = 0; i < calls.size(); ++i)
    if (isRequest(calls[i], code) && !calls[i].injected && calls[i].ok) return static_cast<long>(i);
  return -1;
}

// The request the open at calls[i] was made for: the run without the fault
// made the same calls up to the fault, and its next call is that request.
const Call* requestOfOpen(const std::vector<Call>& calls, const std::vector<Call>& baseline, std::size_t i) {
  if (calls[i].api != sim::calls::kCreateFileW || i + 1 >= baseline.size() || baseline[i].api != calls[i].api ||
      baseline[i].path != calls[i].path || baseline[i + 1].api != sim::calls::kDeviceIoControl)
    return nullptr;
  return &baseline[i + 1];
}

// A call that finds the volumes of a disk (enumeration, drive types, extents,
// the disk's device number), or the open made for one of those requests.
bool findsVolumes(const std::vector<Call>& calls, const std::vector<Call>& baseline, std::size_t i) {
  const Call* c = &calls[i];
  if (const Call* r = requestOfOpen(calls, baseline, i)) c = r;
  return c->api == sim::calls::kSetupDiGetClassDevsW || c->api == sim::calls::kGetDriveTypeW ||
         isRequest(*c, ioctl::VolumeGetVolumeDiskExtents) || isRequest(*c, ioctl::QueryDeviceNumber);
}

// A failed request with this code, or a failed open made for one.
bool failedRequest(const std::vector<Call>& calls, const std::vector<Call>& baseline, std::uint32_t code) {
  for (std::size_t i = 0; i < calls.size(); ++i) {
    if (!calls[i].injected && calls[i].ok) continue;
    const Call* c = &calls[i];
    if (const Call* r = requestOfOpen(calls, baseline, i)) c = r;
    if (isRequest(*c, code)) return true;
  }
  return false;
}

// Before calls[until]: was `volume` dismounted, and if not, which prescribed
// rule explains it. Returns "" when it was dismounted, a prescribed rule, or
// nullptr-like "?" when nothing explains it.
std::string whyNotDismounted(const std::vector<Call>& calls, const std::vector<Call>& baseline, long until,
                             const json& volume) {
  bool opened = false, openFailed = false, dismountFailed = false;
  for (long i = 0; i < until; ++i) {
    const Call& c = calls[static_cast<std::size_t>(i)];
    if (!isPathOf(volume, c.path)) continue;
    if (isRequest(c, ioctl::FsctlDismountVolume)) {
      if (!c.injected && c.ok) return "";
      dismountFailed = true;
    }
    if (c.api == sim::calls::kCreateFileW && c.device && c.access == DeviceIo::GenericRead) {
      opened = true;
      if (c.injected || !c.ok) openFailed = true;
    }
  }
  if (dismountFailed) return prescribed::kDismountUnread;
  if (opened && openFailed) return prescribed::kForcedUnopened;
  if (!opened) {
    for (long i = 0; i < until; ++i)
      if (calls[static_cast<std::size_t>(i)].injected && findsVolumes(calls, baseline, static_cast<std::size_t>(i)))
        return prescribed::kNotFound;
  }
  return "?";
}

bool injectedInto(const std::vector<Call>& calls, const char* api) {
  for (const Call& c : calls)
    if (c.injected && c.api == api) return true;
  return false;
}

// --- The checks.

struct Check {
  const RunSpec& spec;
  const Injection& inj;
  const Outcome& base;
  const Outcome& run;
  Findings& findings;

  void fail(const char* rule, const std::string& detail) { findings.violation(spec, inj, rule, detail); }
  void accept(const std::string& rule) { findings.accept(spec, inj, rule); }
  std::string cmd() const { return spec.command(); }
  const json& s0() const { return run.before; }
  const json& s1() const { return run.after; }

  void exitAndWords() {
    if (run.exit != 0 && run.exit != 3 && run.exit != 4) fail(must::kExitCode, "exit code " + std::to_string(run.exit));
    if (run.exit == 3 && !hasLineStarting(run.err, L"Error:"))
      fail(must::kErrorLine, "standard error: \"" + toUtf8(run.err) + "\"");
    if (run.leakedHandles != 0) fail(must::kHandles, std::to_string(run.leakedHandles) + " still open at the end");
  }

  // Every "0x%08x" in a line the run without the fault did not print.
  void codesShown() {
    const std::vector<std::wstring> before = linesOf(base.out + base.err);
    for (const std::wstring& line : linesOf(run.out + run.err)) {
      bool old = false;
      for (const std::wstring& b : before) old = old || b == line;
      if (old) continue;
      for (std::size_t at = line.find(L"0x"); at != std::wstring::npos; at = line.find(L"0x", at + 2)) {
        if (at + 10 > line.size()) break;
        const std::wstring digits = line.substr(at + 2, 8);
        bool hex = true;
        for (wchar_t c : digits) hex = hex && std::iswxdigit(static_cast<wint_t>(c));
        if (!hex) continue;
        const std::uint32_t shown = static_cast<std::uint32_t>(std::stoul(digits, nullptr, 16));
        codeInLine(line, shown);
      }
    }
  }

  void codeInLine(const std::wstring& line, std::uint32_t shown) {
    if (shown == inj.rule.error) return;
    if (line.rfind(L"Warning: mounting", 0) == 0 && (shown == 6 || shown == 7 || shown == 9))
      return accept(prescribed::kMountStatus);
    if (line.rfind(L"Error: exporting disk", 0) == 0 && (shown == 110 || shown == 29))
      return accept(prescribed::kExportCodes);
    if (inj.rule.error == 0 && shown == 31 &&
        (says(line, L"creating disk failed") || says(line, L"removing disk") || says(line, L"rebuilding disk failed") ||
         says(line, L"disk cannot be removed")))
      return accept(prescribed::kErrorZero);
    if (cmd() == "rebuild" && line.rfind(L"Error: rebuilding disk failed (", 0) == 0 &&
        failedRequest(run.calls, base.calls, ioctl::QueryDiskPresent))
      for (const Call& c : run.calls)
        if (isRequest(c, ioctl::CreateDisk) && !c.injected && !c.ok && c.error == shown)
          return accept(prescribed::kCreationMetOldDisk);
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%08x", shown);
    fail(must::kCodeShown, "\"" + toUtf8(line) + "\" shows " + buf + ", the call failed with " +
                               std::to_string(inj.rule.error));
  }

  void onlyItsOwn() {
    const std::string d = firstDifference(outsideScope(spec, s0(), s0()), outsideScope(spec, s0(), s1()));
    if (!d.empty()) fail(must::kOnlyItsOwn, d);
  }

  // Output, exit code and state are compared with the run without the
  // fault; where the words are the same the outcome must be too, except for
  // the parts a prescribed rule leaves unreported.
  void sameWordsSameOutcome() {
    if (run.out != base.out || run.err != base.err || run.exit != base.exit) return;
    if (base.after == run.after) return;
    Allowance diff(base.after, run.after);
    auto allow = [&](bool when, const char* rule, const std::function<void(json&)>& strip) {
      diff.allow(when, rule, strip);
    };
    const std::string c = cmd();
    const bool removes = c == "del" || c == "rebuild" || c == "init";
    allow(c == "edit" && injectedInto(run.calls, sim::calls::kBroadcastSystemMessageW),
          prescribed::kBroadcastUnreported, [](json& s) { s.erase("broadcasts"); });
    // Checked against the steps that make a removal safe, in del(), rebuild() and init().
    allow(removes, nullptr, [](json& s) {
      if (s.contains("volumes"))
        for (json& v : s["volumes"]) {
          v.erase("dismounted");
          v.erase("heldByOthers");
        }
    });
    allow(c == "add", nullptr, [](json& s) { s["host"].erase("autoMount"); });  // checked in add()
    allow(c == "edit", prescribed::kEditLive, [](json& s) {
      s.erase("broadcasts");  // a letter that did not move is not announced
      s.erase("volumes");
      s.erase("registry");
      for (json& d : s["controller"]["disks"]) {
        json stored = json::object();
        for (const char* k : {"index", "settings", "settingsRecord", "pendingSettingsRecord"})
          if (d.contains(k)) stored[k] = d[k];
        d = stored;
      }
    });
    allow(c == "im" && !failedRequest(base.calls, base.calls, ioctl::QueryImStatus) &&
              failedRequest(run.calls, base.calls, ioctl::QueryImStatus),
          prescribed::kImStatusUnread, [](json& s) { s["controller"].erase("im"); });
    allow(c == "save" && injectedInto(run.calls, sim::calls::kReadFile), prescribed::kSaveFormatUnread,
          [&](json& s) { eraseFile(s, spec.file); });
    allow(c == "rebuild" && successfulRequestAt(base.calls, ioctl::ReadDiskSettingsRecord) >= 0 &&
              successfulRequestAt(run.calls, ioctl::ReadDiskSettingsRecord) < 0,
          prescribed::kRebuildNoBase, [&](json& s) {
            for (const json* d : {diskOf(base.after, spec.disk), diskOf(run.after, spec.disk)})
              if (d) eraseValuesCarrying(s, signatureData(*d));
            eraseDisk(s, spec.disk);
          });
    if (diff.equal()) {
      for (const char* r : diff.rules()) accept(r);
      return;
    }
    fail(must::kSameWords, "it printed what the run without the fault printed, but " + diff.difference());
  }

  void removedSafely(long removal, const char* broken) {
    for (const json& v : volumesOf(s0(), spec.disk)) {
      const std::string why = whyNotDismounted(run.calls, base.calls, removal, v);
      if (why.empty()) continue;
      if (why == "?") {
        fail(broken, "disk #" + std::to_string(spec.disk) + " was removed while its volume " +
                         v.value("name", std::string()) + " was not dismounted");
        continue;
      }
      accept(why);
    }
  }

  void add() {
    std::vector<int> added;
    for (const json& d : s1()["controller"]["disks"])
      if (!diskOf(s0(), d.value("index", -1))) added.push_back(d.value("index", -1));
    if ((run.exit == 0 && added.size() != 1) || (run.exit != 0 && !added.empty()))
      fail(must::kAddCreates, "exit " + std::to_string(run.exit) + " with " + std::to_string(added.size()) + " new disks");
    const std::wstring success = L"Success: new disk (#";
    if (const std::size_t at = run.err.find(success); at != std::wstring::npos && added.size() == 1) {
      const int named = std::stoi(run.err.substr(at + success.size()));
      if (named != added.front())
        fail(must::kAddCreates, "the success line names #" + std::to_string(named) + ", the new disk is #" +
                                    std::to_string(added.front()));
    }
    if (s0()["host"]["autoMount"] != s1()["host"]["autoMount"]) {
      bool restoreFailed = false;
      for (const Call& c : run.calls)
        restoreFailed = restoreFailed || ((c.injected || !c.ok) && c.device &&
                                          (isRequest(c, ioctl::MountmgrSetAutoMount) ||
                                           (c.api == sim::calls::kCreateFileW && says(fromUtf8(c.path), L"MountPointManager"))));
      if (restoreFailed) accept(prescribed::kAutoMountKept);
      else fail(must::kAutoMount, "automatic mounting is now " + s1()["host"]["autoMount"].dump());
    }
  }

  void del() {
    const long removal = removalAt(run.calls);
    const bool gone = diskOf(s1(), spec.disk) == nullptr;
    if (removal >= 0) removedSafely(removal, must::kRemovedSafely);
    if (gone != (run.exit == 0)) fail(must::kDelGone, std::string("exit ") + std::to_string(run.exit) + (gone ? " and the disk is gone" : " and the disk is still there"));
    if (!gone && removal < 0) {
      const std::string d = firstDifference(*diskOf(s0(), spec.disk), *diskOf(s1(), spec.disk));
      if (!d.empty()) fail(must::kOnlyItsOwn, "disk #" + std::to_string(spec.disk) + " changed: " + d);
    }
  }

  void rebuild() {
    const long removal = removalAt(run.calls);
    const json* now = diskOf(s1(), spec.disk);
    if (removal >= 0) {
      removedSafely(removal, must::kRemovedSafely);
      if (!now) {
        if (hasLineStarting(run.err, L"Error: rebuilding disk failed"))
          accept(prescribed::kRebuildLost);
        else
          fail(must::kRebuildBack, "disk #" + std::to_string(spec.disk) + " is gone and the output does not say so");
      }
    } else if (now) {
      const std::string d = firstDifference(*diskOf(s0(), spec.disk), *now);
      if (!d.empty()) fail(must::kOnlyItsOwn, "disk #" + std::to_string(spec.disk) + " changed without a removal: " + d);
    }
    if (run.exit == 0 && !now) fail(must::kRebuildBack, "exit 0 and no disk #" + std::to_string(spec.disk));
  }

  void init() {
    const long reinit = successfulRequestAt(run.calls, ioctl::ReinitializeDisk);
    if (reinit >= 0) {
      for (const json& v : volumesOf(s0(), spec.disk)) {
        const std::string why = whyNotDismounted(run.calls, base.calls, reinit, v);
        if (why.empty()) continue;
        if (why == "?") fail(must::kReinitSafely, "volume " + v.value("name", std::string()) + " was not dismounted");
        else accept(why);
      }
    }
    if (run.exit == 0 && reinit < 0) fail(must::kInitDone, "exit 0 without a reinitialize request that succeeded");
    const std::string d = firstDifference(*diskOf(s0(), spec.disk), *diskOf(s1(), spec.disk));
    if (!d.empty()) fail(must::kOnlyItsOwn, "disk #" + std::to_string(spec.disk) + "'s record changed: " + d);
  }

  void edit() {
    const json* disk = diskOf(s0(), spec.disk);
    const std::string sig = disk ? signatureData(*disk) : std::string();
    const json* k0 = mountedDevices(s0());
    const json* k1 = mountedDevices(s1());
    bool removedOwn = false;
    if (k0 && k1)
      for (auto it = k0->begin(); it != k0->end(); ++it) {
        if (k1->contains(it.key()) && (*k1)[it.key()] == it.value()) continue;
        if (carries(it.value(), sig)) removedOwn = removedOwn || !k1->contains(it.key());
        else fail(must::kEditOwnValues, "value " + it.key() + " of another disk changed or went");
      }
    bool deleted = false;
    for (const Call& c : run.calls) deleted = deleted || (c.api == sim::calls::kRegDeleteValueW && !c.injected);
    if (removedOwn && deleted) {
      bool written = false;
      if (k1)
        for (auto it = k1->begin(); it != k1->end(); ++it)
          written = written || (carries(it.value(), sig) && (!k0 || !k0->contains(it.key()) || (*k0)[it.key()] != it.value()));
      if (!written) {
        if (injectedInto(run.calls, sim::calls::kRegSetValueExW)) accept(prescribed::kEditValueLost);
        else fail(must::kEditValueWritten, "the disk's values were removed and none was written");
      }
    }
    bool wrote = false;
    for (const Call& c : run.calls) wrote = wrote || (c.api == sim::calls::kRegSetValueExW && !c.injected);
    if (wrote && k1) {
      // Every other value of the signature went with the walk, unless the walk could not see it.
      std::size_t own = 0;
      for (auto it = k1->begin(); it != k1->end(); ++it) own += carries(it.value(), sig) ? 1 : 0;
      if (own > 1) {
        if (injectedInto(run.calls, sim::calls::kRegEnumValueW) || injectedInto(run.calls, sim::calls::kRegDeleteValueW))
          accept(prescribed::kEditWalkCut);
        else
          fail(must::kEditStaleValues, std::to_string(own) + " values carry the disk's signature");
      }
    }
    if (run.exit == 0 && successfulRequestAt(base.calls, ioctl::ChangeDiskSettings) >= 0 &&
        successfulRequestAt(run.calls, ioctl::ChangeDiskSettings) < 0 && !says(run.out, L"No settings have changed."))
      fail(must::kEditStored, "exit 0 without a settings update that succeeded");
    const std::vector<json> v0 = volumesOf(s0(), spec.disk), v1 = volumesOf(s1(), spec.disk);
    if (!v0.empty() && hasLetter(v0.front()) && !v1.empty() && !hasLetter(v1.front())) {
      if (injectedInto(run.calls, sim::calls::kSetVolumeMountPointW)) accept(prescribed::kEditNoLetter);
      else fail(must::kEditLetterKept, "the disk's volume has no drive letter any more");
    }
  }

  void save() {
    const json* f0 = fileAt(s0(), spec.file);
    const json* f1 = fileAt(s1(), spec.file);
    if (run.exit == 0 && (!f1 || (f0 && *f0 == *f1 && !f0->contains("head"))))
      fail(must::kSaveWritten, "exit 0 and " + spec.file + " was not written");
  }

  void exportFile() {
    const json* f0 = fileAt(s0(), spec.file);
    const json* f1 = fileAt(s1(), spec.file);
    const bool changed = f1 && (!f0 || *f0 != *f1);
    const bool silent = std::find(spec.args.begin(), spec.args.end(), L"-s") != spec.args.end();
    if (changed && f0 && !silent && !says(run.err, L"already exists. Are you sure to overwrite it?")) {
      if (injectedInto(run.calls, sim::calls::kGetFileAttributesW)) accept(prescribed::kExportUnasked);
      else fail(must::kExportAsks, spec.file + " was overwritten without the question");
    }
    if (run.exit == 0) {
      const std::vector<std::uint8_t> bytes =
          f1 && f1->contains("head") ? sim::fromHex((*f1)["head"].get<std::string>()) : std::vector<std::uint8_t>();
      const DescriptorCheck check = CheckDescriptor(bytes.data(), bytes.size());
      const json* disk = diskOf(s0(), spec.disk);
      const std::vector<std::uint8_t> record =
          disk && disk->contains("settingsRecord") ? sim::fromHex((*disk)["settingsRecord"].get<std::string>())
                                                   : std::vector<std::uint8_t>();
      if (!check.valid()) fail(must::kExportWritten, spec.file + ": " + toUtf8(check.problem));
      else if (check.record != record) fail(must::kExportWritten, spec.file + " holds another record");
      return;
    }
    if (!changed) return;
    if (hasLineStarting(run.err, L"Error: exporting disk")) accept(prescribed::kExportPartial);
    else fail(must::kExportTruthful, spec.file + " changed and no export error was shown");
  }

  // A run that ends with 3 or 4 changed nothing, but for what a named rule leaves.
  void failureChangesNothing() {
    if (run.exit != 3 && run.exit != 4) return;
    if (s0() == s1()) return;
    const std::string c = cmd();
    Allowance diff(s0(), s1());
    auto allow = [&](bool when, const char* rule, const std::function<void(json&)>& strip) {
      diff.allow(when, rule, strip);
    };
    allow(c == "del" || c == "rebuild" || c == "init", prescribed::kDismountedLeft, [&](json& s) {
      if (s.contains("volumes"))
        for (json& v : s["volumes"])
          if (v.contains("disk") && v["disk"].get<int>() == spec.disk) {
            v.erase("dismounted");
            v.erase("heldByOthers");
          }
    });
    // Judged in rebuild() and exportFile().
    allow(c == "rebuild" && removalAt(run.calls) >= 0, nullptr, [&](json& s) { s = outsideScope(spec, s0(), s); });
    allow(c == "export", nullptr, [&](json& s) { eraseFile(s, spec.file); });
    allow(c == "im" && successfulRequestAt(run.calls, ioctl::SetImOptions) >= 0 &&
              successfulRequestAt(run.calls, ioctl::EnableIm) < 0,
          prescribed::kImOptionsStored, [](json& s) { s["controller"].erase("im"); });
    if (diff.equal()) {
      for (const char* r : diff.rules()) accept(r);
      return;
    }
    fail(must::kFailureChangesNothing, "exit " + std::to_string(run.exit) + " and " + diff.difference());
  }

  void perCommand() {
    const std::string c = cmd();
    if (c == "im" && spec.args.size() > 1 && run.exit == 0) {
      const bool enable = toUtf8(spec.args[1]) == "enable";
      if (successfulRequestAt(run.calls, enable ? ioctl::EnableIm : ioctl::DisableIm) < 0 &&
          successfulRequestAt(base.calls, enable ? ioctl::EnableIm : ioctl::DisableIm) >= 0 &&
          !(!enable && failedRequest(run.calls, base.calls, ioctl::QueryImStatus)))
        fail(must::kImDone, "exit 0 without the request");
    }
    if (c == "add") add();
    else if (c == "del") del();
    else if (c == "rebuild") rebuild();
    else if (c == "init") init();
    else if (c == "edit") edit();
    else if (c == "save") save();
    else if (c == "export") exportFile();
  }
};

}  // namespace

void Findings::violation(const RunSpec& spec, const Injection& inj, const std::string& rule, const std::string& detail) {
  violations.push_back({spec.line(), inj.what, rule, detail, ruleJson(inj.rule)});
}

void Findings::accept(const RunSpec& spec, const Injection& inj, const std::string& rule) {
  if (accepted[rule]++ == 0) example[rule] = spec.line() + " | " + inj.what + " | " + ruleJson(inj.rule).dump();
}

void checkRun(const RunSpec& spec, const Injection& inj, const Outcome& baseline, const Outcome& run,
              const ListCheck& loadsAndLists, Findings& findings) {
  Check c{spec, inj, baseline, run, findings};
  if (run.runaway) {
    c.fail(must::kEnds, "stopped after its budget of calls; the last was " + run.lastCall);
    return;
  }
  c.exitAndWords();
  c.codesShown();
  c.onlyItsOwn();
  c.sameWordsSameOutcome();
  c.failureChangesNothing();
  c.perCommand();
  if (run.after != run.before && run.after != baseline.after) {
    const std::string why = loadsAndLists(run.after);
    if (!why.empty()) c.fail(must::kLoadsAndLists, why);
  }
}

void checkBaseline(const RunSpec& spec, const Outcome& baseline, const ListCheck& loadsAndLists, Findings& findings) {
  const Injection none{{}, "no fault"};
  Check c{spec, none, baseline, baseline, findings};
  if (baseline.runaway) {
    c.fail(must::kEnds, "stopped after its budget of calls; the last was " + baseline.lastCall);
    return;
  }
  c.exitAndWords();
  if (baseline.exit != 0) c.fail(must::kExitCode, "without a fault it ends with " + std::to_string(baseline.exit) +
                                                        ": " + toUtf8(baseline.err));
  c.onlyItsOwn();
  c.perCommand();
  const std::string why = loadsAndLists(baseline.after);
  if (!why.empty()) c.fail(must::kLoadsAndLists, why);
}

}  // namespace vmd::fault
