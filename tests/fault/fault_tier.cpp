// The fault tier: runs each command line of tier_runs.cpp without a fault,
// then again with one call failed at a time, with each call failed lastingly,
// and with the error codes the program treats apart, and checks every run
// against invariants.cpp. In process and in virtual time.
//
//   vmdctl_fault_tier [--long] [--only TEXT] [--show N] [--examples] [--write-machines DIR]
//
// --long (or VMDCTL_FAULT_LONG=1) fails every occurrence of every call with
// every code; the default fails every occurrence with 31, 122 and 234, and
// every call lastingly with each code. --only keeps the command lines that contain TEXT; --show
// prints at most N violations; --examples names a run for each prescribed
// outcome met; --write-machines writes the machines as state files, so that
// a violation's fault rule can be added to one and run with vmdctl-sim. Exit 0
// when no run broke an invariant.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <unistd.h>

#include "base/text_codec.h"
#include "fault/invariants.h"
#include "fault/self_check.h"
#include "platform/host.h"

namespace {

using namespace vmd;
using namespace vmd::fault;

// Far above the longest run that ends: an add waits at most 60 polls and a
// removal 120, each a handful of calls, and the MountedDevices walk gives up
// after 2^20 enumerations that fail.
constexpr std::uint64_t kCallBudget = 4000000;

// The codes the program answers in their own way, besides the default 31:
// buffers grow on 122 and 234, an enumeration ends at 259, a creation beyond
// the memory limit fails with 112, an existing mutex or disk is 183, and a
// failure may come without a code.
constexpr std::uint32_t kSpecialCodes[] = {122, 234, 259, 112, 183, 0};
constexpr std::uint32_t kComFailure = 0x80004005;
// The codes a run without --long puts on each call one at a time besides 31:
// those on which the program grows a buffer and tries again.
constexpr std::uint32_t kRetryCodes[] = {122, 234};

// What is running, for the message of a crash.
char g_running[512] = "setting up";

extern "C" void onCrash(int sig) {
  const char head[] = "\nfault tier: crashed (signal) in: ";
  ssize_t ignored = write(2, head, sizeof head - 1);
  ignored = write(2, g_running, std::strlen(g_running));
  ignored = write(2, "\n", 1);
  (void)ignored;
  std::signal(sig, SIG_DFL);
  std::raise(sig);
}

void setRunning(const RunSpec& spec, const Injection& inj) {
  std::snprintf(g_running, sizeof g_running, "%s | %s | %s", spec.line().c_str(), inj.what.c_str(),
                ruleJson(inj.rule).dump().c_str());
}

std::string ordinal(std::uint32_t n) {
  const char* suffix = (n % 100 >= 11 && n % 100 <= 13) ? "th" : n % 10 == 1 ? "st" : n % 10 == 2 ? "nd" : n % 10 == 3 ? "rd" : "th";
  return std::to_string(n) + suffix;
}

// The calls of the run without a fault, by name, in order.
std::map<std::string, std::vector<const Call*>> callsByApi(const Outcome& baseline) {
  std::map<std::string, std::vector<const Call*>> by;
  for (const Call& c : baseline.calls) by[c.api].push_back(&c);
  return by;
}

std::string describe(const Call& c) {
  std::string d;
  if (c.api == sim::calls::kDeviceIoControl) d = sim::codeName(c.code);
  if (!c.path.empty()) d += (d.empty() ? "" : " on ") + c.path;
  return d.empty() ? "" : " (" + d + ")";
}

struct Plan {
  std::vector<Injection> oneAtATime, lasting, codes;
};

Plan planFor(const Outcome& baseline, bool longMode) {
  Plan p;
  const auto by = callsByApi(baseline);
  for (const auto& [api, list] : by) {
    for (std::uint32_t k = 1; k <= list.size(); ++k) {
      const std::string what = "the " + ordinal(k) + " " + api + describe(*list[k - 1]);
      sim::FaultRule r;
      r.api = api;
      r.nth = k;
      p.oneAtATime.push_back({r, what});
      if (longMode) {
        for (std::uint32_t code : kSpecialCodes) {
          r.error = code;
          p.codes.push_back({r, what});
        }
      } else {
        for (std::uint32_t code : kRetryCodes) {
          r.error = code;
          p.codes.push_back({r, what});
        }
      }
    }
    sim::FaultRule every;
    every.api = api;
    p.lasting.push_back({every, "every " + api});
    std::set<std::uint32_t> codes;
    if (api == sim::calls::kDeviceIoControl)
      for (const Call* c : list) codes.insert(c->code);
    for (std::uint32_t code : codes) {
      sim::FaultRule r = every;
      r.code = code;
      p.lasting.push_back({r, "every " + api + " (" + sim::codeName(code) + ")"});
    }
    // The special codes on every call of this name, and on each request code
    // (a control request answers them in its own way).
    std::vector<std::uint32_t> special(std::begin(kSpecialCodes), std::end(kSpecialCodes));
    if (api == sim::calls::kCoInitialize) special.push_back(kComFailure);
    for (std::uint32_t code : special) {
      sim::FaultRule r = every;
      r.error = code;
      p.codes.push_back({r, "every " + api});
      for (std::uint32_t c : codes) {
        sim::FaultRule rc = r;
        rc.code = c;
        p.codes.push_back({rc, "every " + api + " (" + sim::codeName(c) + ")"});
      }
    }
  }
  return p;
}

void printViolation(const Violation& v) {
  std::printf("VIOLATION  %s\n  call:   %s\n  rule:   %s\n  detail: %s\n  fault:  %s\n", v.run.c_str(),
              v.call.c_str(), v.rule.c_str(), v.detail.c_str(), v.faultRule.dump().c_str());
}

}  // namespace

int main(int argc, char** argv) {
  bool longMode = false;
  if (const char* e = std::getenv("VMDCTL_FAULT_LONG"); e && *e && std::strcmp(e, "0") != 0) longMode = true;
  std::string only;
  std::size_t show = 40;
  bool examples = false;
  std::string machinesDir;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--long") == 0) longMode = true;
    else if (std::strcmp(argv[i], "--examples") == 0) examples = true;
    else if (std::strcmp(argv[i], "--write-machines") == 0 && i + 1 < argc) machinesDir = argv[++i];
    else if (std::strcmp(argv[i], "--only") == 0 && i + 1 < argc) only = argv[++i];
    else if (std::strcmp(argv[i], "--show") == 0 && i + 1 < argc) show = std::strtoul(argv[++i], nullptr, 10);
    else {
      std::fprintf(stderr, "usage: %s [--long] [--only TEXT] [--show N] [--examples] [--write-machines DIR]\n", argv[0]);
      return 2;
    }
  }
  for (int sig : {SIGSEGV, SIGABRT, SIGFPE, SIGILL, SIGBUS}) std::signal(sig, onCrash);

  const auto started = std::chrono::steady_clock::now();
  std::unique_ptr<MessageCatalog> catalog = makeHostCatalog();
  std::map<std::string, json> machines;
  try {
    machines = tierMachines(*catalog);
  } catch (const std::exception& e) {
    std::printf("fault tier: %s\n", e.what());
    return 1;
  }
  if (!machinesDir.empty()) {
    for (const auto& [name, state] : machines) {
      const std::string path = machinesDir + "/" + name + ".json";
      if (std::FILE* f = std::fopen(path.c_str(), "wb")) {
        const std::string text = state.dump(2) + "\n";
        std::fwrite(text.data(), 1, text.size(), f);
        std::fclose(f);
      }
    }
  }
  RunSpec lsSpec;
  lsSpec.args = {L"ls"};
  const ListCheck loadsAndLists = [&](const json& state) -> std::string {
    try {
      const Outcome ls = runOnce(state, lsSpec, std::nullopt, *catalog, kCallBudget);
      if (ls.runaway) return "ls on it does not end";
      if (ls.exit != 0) return "ls on it ends with " + std::to_string(ls.exit) + ": " + toUtf8(ls.err);
      return {};
    } catch (const std::exception& e) {
      return std::string("it does not load: ") + e.what();
    }
  };

  const std::vector<std::string> missed = selfCheck(machines, *catalog, loadsAndLists, kCallBudget);
  for (const std::string& m : missed) std::printf("fault tier: the invariants miss %s\n", m.c_str());
  if (!missed.empty()) return 1;

  Findings findings;
  std::size_t lines = 0, oneAtATime = 0, lasting = 0, codes = 0;
  for (const RunSpec& spec : tierRuns()) {
    if (!only.empty() && spec.line().find(only) == std::string::npos) continue;
    ++lines;
    const json& machine = machines.at(spec.machine);
    const Injection none{{}, "no fault"};
    setRunning(spec, none);
    const Outcome baseline = runOnce(machine, spec, std::nullopt, *catalog, kCallBudget);
    checkBaseline(spec, baseline, loadsAndLists, findings);
    const Plan plan = planFor(baseline, longMode);
    auto runAll = [&](const std::vector<Injection>& list, std::size_t& counted) {
      for (const Injection& inj : list) {
        setRunning(spec, inj);
        const Outcome run = runOnce(machine, spec, inj.rule, *catalog, kCallBudget);
        checkRun(spec, inj, baseline, run, loadsAndLists, findings);
        ++counted;
      }
    };
    runAll(plan.oneAtATime, oneAtATime);
    runAll(plan.lasting, lasting);
    runAll(plan.codes, codes);
  }
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();

  std::map<std::string, std::size_t> byRule;
  for (const Violation& v : findings.violations) {
    const std::string command = v.run.substr(0, v.run.find(' '));
    ++byRule[v.rule.rfind(command + ":", 0) == 0 ? v.rule : command + ": " + v.rule];
  }
  for (std::size_t i = 0; i < findings.violations.size() && i < show; ++i) printViolation(findings.violations[i]);
  if (findings.violations.size() > show)
    std::printf("... and %zu more violations\n", findings.violations.size() - show);
  if (!byRule.empty()) {
    std::printf("\nViolations by command and rule:\n");
    for (const auto& [rule, n] : byRule) std::printf("  %5zu  %s\n", n, rule.c_str());
  }
  std::printf("\nPrescribed outcomes met (accepted, by the rule they follow):\n");
  for (const auto& [rule, n] : findings.accepted) {
    std::printf("  %5zu  %s\n", n, rule.c_str());
    if (examples) std::printf("         e.g. %s\n", findings.example[rule].c_str());
  }
  std::printf("\nfault tier (%s): %zu faulted runs checked (%zu one call at a time, %zu lasting, %zu with the codes "
              "the program treats apart) over %zu command lines, in %.1f s; %zu violations\n",
              longMode ? "long" : "default", oneAtATime + lasting + codes, oneAtATime, lasting, codes, lines, seconds,
              findings.violations.size());
  return findings.violations.empty() ? 0 : 1;
}
