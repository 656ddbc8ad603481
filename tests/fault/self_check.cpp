#include "fault/self_check.h"

#include "controller/codes.h"

namespace vmd::fault {

namespace {

const RunSpec* find(const std::vector<RunSpec>& runs, const std::string& line) {
  for (const RunSpec& r : runs)
    if (r.line() == line) return &r;
  return nullptr;
}

bool broke(const Findings& f, const std::string& rulePart) {
  for (const Violation& v : f.violations)
    if (v.rule.find(rulePart) != std::string::npos) return true;
  return false;
}

}  // namespace

std::vector<std::string> selfCheck(const std::map<std::string, json>& machines, MessageCatalog& catalog,
                                   const ListCheck& loadsAndLists, std::uint64_t budget) {
  std::vector<std::string> missed;
  const std::vector<RunSpec> runs = tierRuns();
  const RunSpec* del = find(runs, "del 0");
  const RunSpec* view = find(runs, "view 0");
  const RunSpec* edit = find(runs, "edit 1 -t scsi -d S -s");
  if (!del || !view || !edit) return {"the self-check's command lines are not among the tier's"};
  const Injection planted{{}, "a planted fault"};

  auto expect = [&](const RunSpec& spec, const Outcome& base, const Outcome& run, const std::string& rule,
                    const std::string& what) {
    Findings f;
    checkRun(spec, planted, base, run, loadsAndLists, f);
    if (!broke(f, rule)) missed.push_back(what);
  };

  const Outcome delBase = runOnce(machines.at(del->machine), *del, std::nullopt, catalog, budget);
  const Outcome viewBase = runOnce(machines.at(view->machine), *view, std::nullopt, catalog, budget);

  // A removal with its volume's dismount taken out of the record of calls.
  Outcome undismounted = delBase;
  for (Call& c : undismounted.calls)
    if (c.api == sim::calls::kDeviceIoControl && c.code == ioctl::FsctlDismountVolume) c.ok = false, c.code = 0;
  expect(*del, delBase, undismounted, "dismounted", "a disk removed without its dismount");

  Outcome endless = viewBase;
  endless.runaway = true;
  endless.lastCall = "RegEnumValueW";
  expect(*view, viewBase, endless, "ends by itself", "a run that does not end");

  Outcome changed = viewBase;
  changed.after["controller"]["disks"].push_back({{"index", 99}});
  expect(*view, viewBase, changed, "changes only", "a read-only command that adds a disk");

  Outcome wrongCode = viewBase;
  wrongCode.exit = 3;
  wrongCode.err += L"Error: getting disk settings failed (0x00000005)!\n";
  expect(*view, viewBase, wrongCode, "code shown", "a code that is not the injected one");

  Outcome leak = viewBase;
  leak.leakedHandles = 1;
  expect(*view, viewBase, leak, "handle", "a handle left open");

  Outcome silentLoss = viewBase;
  silentLoss.after["controller"].erase("im");
  expect(*view, viewBase, silentLoss, "same words", "the same words with another outcome");

  Outcome noError = viewBase;
  noError.exit = 3;
  expect(*view, viewBase, noError, "Error:", "exit 3 without an error line");

  // The values of another disk removed by the MountedDevices walk.
  const Outcome editBase = runOnce(machines.at(edit->machine), *edit, std::nullopt, catalog, budget);
  Outcome othersGone = editBase;
  othersGone.after["registry"]["SYSTEM\\MountedDevices"].erase("\\DosDevices\\Q:");
  expect(*edit, editBase, othersGone, "own signature", "another disk's MountedDevices value removed");

  // A state that does not load.
  Outcome unloadable = viewBase;
  unloadable.after["controller"]["disks"].push_back({{"index", 200}});
  expect(*view, viewBase, unloadable, "loads and lists", "a state left that does not load");

  // The budget stops a run that goes on past it.
  const Outcome stopped = runOnce(machines.at(view->machine), *view, std::nullopt, catalog, 5);
  if (!stopped.runaway) missed.push_back("a run past its budget of calls is stopped");
  return missed;
}

}  // namespace vmd::fault
