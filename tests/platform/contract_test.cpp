// The contract checks of the platform interfaces (contract_checks.h) against
// the simulated machine, through its fault layer as the program sees it: the
// same checks vmdctl-contract.exe runs against the Win32 services under Wine.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <ostream>

#include "platform/contract_checks.h"
#include "platform/host.h"
#include "sim/sim_platform.h"
#include "support/fakes.h"

namespace vmd::contract {

// Test lists show a check by its name.
void PrintTo(const Check& check, std::ostream* os) { *os << check.name; }

namespace contract_test {

using sim::Machine;
using sim::SimPlatform;

// Keys read from an input that is already at its end.
class EmptyInputKeys : public KeyReader {
 public:
  explicit EmptyInputKeys(Machine& m) : file_(std::tmpfile()), keys_(m, file_) {}
  ~EmptyInputKeys() override {
    if (file_) std::fclose(file_);
  }
  int readKey() override { return file_ ? keys_.readKey() : -1; }

 private:
  std::FILE* file_;
  sim::StdinKeys keys_;
};

// The standard machine without a controller, with the places the checks
// use: a temp folder under the Windows directory, a SOFTWARE key, and drive
// T: with a volume of its own.
Machine contractMachine() {
  Machine m;
  sim::World& w = m.world;
  w.controller.present = false;
  sim::FileEntry temp;
  temp.path = "C:\\Windows\\temp";
  temp.directory = true;
  w.files.push_back(temp);
  w.registry.push_back({"SOFTWARE", {}});
  sim::Volume t;
  t.name = "\\\\?\\Volume{7e57d71e-0000-0000-0000-000000000054}\\";
  t.mountPoints = {"T:\\"};
  t.props.fileSystem = "NTFS";
  t.props.serial = 0x1234ABCD;
  t.props.totalBytes = 1073741824ull;
  t.props.freeBytes = 536870912ull;
  w.volumes.push_back(t);
  sim::Drive d;
  d.letter = 'T';
  d.volume = t.name;
  w.drives.push_back(d);
  return m;
}

class SimFixture : public Fixture {
 public:
  SimFixture(Machine& m, SimPlatform& sim) : m_(m), sim_(sim) {}
  std::wstring scratchFolder() override { return L"C:\\Windows\\temp"; }
  wchar_t scratchDrive() override { return L'T'; }
  void removeFile(const std::wstring& path) override {
    const sim::FileEntry* f = sim::SimFiles::findFile(m_.world, toUtf8(path));
    auto& files = m_.world.files;
    files.erase(std::remove_if(files.begin(), files.end(), [&](const sim::FileEntry& e) { return &e == f; }),
                files.end());
  }
  std::optional<Bytes> storedBytes(const std::wstring& path) override {
    const sim::FileEntry* f = sim::SimFiles::findFile(m_.world, toUtf8(path));
    if (!f) return std::nullopt;
    Bytes b = f->head.value_or(Bytes{});
    b.resize(static_cast<std::size_t>(f->size.value_or(b.size())), 0);
    return b;
  }
  bool handleIsOpen(DeviceIo::Handle h) override { return sim_.plain.io.isOpen(h); }
  std::optional<std::wstring> createScratchKey() override {
    const std::string name = "SOFTWARE\\" + toUtf8(uniqueName(L"vmdctl-contract-"));
    m_.world.registry.push_back({name, {}});
    return fromUtf8(name);
  }
  void deleteScratchKey(const std::wstring& path) override {
    auto& keys = m_.world.registry;
    const std::string name = toUtf8(path);
    keys.erase(std::remove_if(keys.begin(), keys.end(), [&](const sim::RegKey& k) { return sim::sameNoCase(k.name, name); }),
               keys.end());
  }
  std::unique_ptr<KeyReader> keysWithoutInput() override { return std::make_unique<EmptyInputKeys>(m_); }

 private:
  Machine& m_;
  SimPlatform& sim_;
};

class SimContract : public ::testing::TestWithParam<Check> {};

TEST_P(SimContract, Holds) {
  const Check& check = GetParam();
  if (!runsOn(check, Side::Sim)) GTEST_SKIP() << "Wine only: " << check.why;
  Machine machine = contractMachine();
  test::CapturingStreams streams;
  std::unique_ptr<MessageCatalog> catalog = makeHostCatalog();
  SimPlatform sim(machine, streams, *catalog, nullptr);
  SimFixture fixture(machine, sim);
  Subject subject{Side::Sim,   *catalog,    sim.process, sim.setup, sim.io,        sim.volumes, sim.files,
                  sim.registry, sim.system, sim.clock,   sim.broadcast, fixture};
  Report report;
  check.body(subject, report);
  for (const std::string& failure : report.failures) ADD_FAILURE() << check.name << ": " << failure;
  EXPECT_EQ(sim.io.openHandles(), 0u) << "handles left open";
}

std::string testName(const ::testing::TestParamInfo<Check>& info) {
  std::string name = info.param.name;
  std::replace(name.begin(), name.end(), '.', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Checks, SimContract, ::testing::ValuesIn(checks()), testName);

}  // namespace contract_test
}  // namespace vmd::contract
