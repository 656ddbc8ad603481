// What the commands send, read from the request trace: add's creation
// record is the record its options give; edit's update carries the old
// record with only the edited settings changed; export writes a descriptor
// the reader accepts, of the disk's own record; save has the controller
// write an image the image reader knows.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "shell/dispatch.h"
#include "settings/creation_record.h"
#include "settings/descriptor_file.h"
#include "settings/disk_options.h"
#include "settings/image_file.h"
#include "settings/settings_validation.h"
#include "sim/record_layout.h"
#include "sim/sim_services.h"
#include "sim/trace.h"
#include "support/option_generator.h"
#include "support/sim_app.h"

namespace vmd {
namespace request_trace_test {

using sim::json;
using test::Args;
using test::SimApp;

// A command run on a machine whose trace is kept in memory.
struct TracedRun {
  explicit TracedRun(const json& state)
      : app(state), sink(nullptr, [this] { return app.machine.nowMs(); }) {
    app.machine.setTrace(&sink);
  }
  ~TracedRun() { app.machine.setTrace(nullptr); }

  // The value of `key` on the first line that holds `marker`; nothing when
  // no line does.
  std::optional<std::string> field(const std::string& marker, const std::string& key) const {
    const std::string& text = sink.text();
    const std::size_t at = text.find(marker);
    if (at == std::string::npos) return std::nullopt;
    const std::size_t start = text.rfind('\n', at) == std::string::npos ? 0 : text.rfind('\n', at) + 1;
    const std::string line = text.substr(start, text.find('\n', at) - start);
    const std::size_t k = line.find(" " + key + "=");
    if (k == std::string::npos) return std::nullopt;
    const std::size_t from = k + key.size() + 2;
    return line.substr(from, line.find(' ', from) - from);
  }
  std::optional<Bytes> bytes(const std::string& marker, const std::string& key) const {
    const auto hex = field(marker, key);
    if (!hex) return std::nullopt;
    return sim::fromHex(*hex);
  }

  SimApp app;
  sim::TraceSink sink;
};

TEST(RequestTrace, AddSendsTheRecordItsOptionsGive) {
  test::Generator gen(20261125u);
  constexpr int kCases = 200;
  int sent = 0;
  for (int n = 0; n < kCases; ++n) {
    std::vector<std::wstring> options = gen.options();
    options.push_back(L"-s");
    SCOPED_TRACE("case " + std::to_string(n) + ":" + test::describe(options));
    json state = test::optionMachine();
    test::addImages(state, 128);

    TracedRun run(state);
    Args add(options);
    runCommand(run.app.app, L"vmdctl", L"add", add.argc(), add.argv());
    const std::optional<Bytes> traced = run.bytes("code=CreateDisk ", "in");
    if (!traced) continue;  // refused before it was sent
    ++sent;

    // The same options through the program's own steps, on the same machine.
    SimApp fresh(state);
    DiskSettings settings;
    std::uint32_t silent = 0;
    Args again(options);
    ParseDiskOptions(fresh.app, again.argc(), again.argv(), settings, silent);
    ASSERT_TRUE(ValidateDiskSettings(fresh.app, settings, 1, 0));
    const std::optional<Bytes> expected =
        BuildCreationRecord(settings, nullptr, fresh.platform.clock, fresh.platform.system);
    ASSERT_TRUE(expected.has_value());
    EXPECT_EQ(*traced, *expected);
    // Whole, as the record's own length says.
    EXPECT_EQ(traced->size(), creationTotalLength(*expected));
  }
  EXPECT_GT(sent, kCases / 4);
}

json editMachine() {
  return json::parse(R"({
    "controller": {"disks": [{"index": 0, "size": 268435456, "signature": "0x12345678",
      "settings": {"driveLetter": "R", "volumeLabel": "DATA", "volumeSerial": "0x11112222", "fsExtraMask": 2}}]},
    "volumes": [{"disk": 0, "mountPoints": ["R:\\"]}]})");
}

// The keys of two readable records (the simulated controller's reading,
// written apart from the program's) whose values differ.
std::vector<std::string> changedKeys(const json& before, const json& after) {
  std::vector<std::string> keys;
  for (auto it = after.begin(); it != after.end(); ++it)
    if (!before.contains(it.key()) || before[it.key()] != it.value()) keys.push_back(it.key());
  for (auto it = before.begin(); it != before.end(); ++it)
    if (!after.contains(it.key())) keys.push_back(it.key());
  return keys;
}

TEST(RequestTrace, EditSendsTheOldRecordWithTheEditedSettingsChanged) {
  struct Case {
    std::vector<std::wstring> args;
    std::string key;
    json value;
  };
  const std::vector<Case> cases = {
      {{L"0", L"-l", L"NEWNAME", L"-s"}, "volumeLabel", "NEWNAME"},
      {{L"0", L"-d", L"S", L"-s"}, "driveLetter", "S"},
      {{L"0", L"-n", L"512", L"-s"}, "sizeMb", 512},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.key);
    TracedRun run(editMachine());
    const sim::RecordBytes old = sim::diskRecord(run.app.machine.toJson()["controller"]["disks"][0]);
    Args edit(c.args);
    ASSERT_EQ(runCommand(run.app.app, L"vmdctl", L"edit", edit.argc(), edit.argv()), Success) << toUtf8(run.app.err());
    const std::optional<Bytes> sentRecord = run.bytes("code=ChangeDiskSettings ", "in");
    ASSERT_TRUE(sentRecord.has_value());
    const json before = sim::decodeRecord(old);
    const json after = sim::decodeRecord(*sentRecord);
    EXPECT_EQ(changedKeys(before, after), std::vector<std::string>{c.key}) << before.dump() << "\n" << after.dump();
    EXPECT_EQ(after[c.key], c.value);
    // And that record is what the controller now holds.
    EXPECT_EQ(sim::diskRecord(run.app.machine.toJson()["controller"]["disks"][0]), *sentRecord);
  }
}

TEST(RequestTrace, ExportWritesADescriptorOfTheDisksOwnRecordInOneWrite) {
  TracedRun run(editMachine());
  const sim::RecordBytes record = sim::diskRecord(run.app.machine.toJson()["controller"]["disks"][0]);
  Args exportArgs({L"0", L"-f", L"C:\\d.vdd", L"-s"});
  ASSERT_EQ(runCommand(run.app.app, L"vmdctl", L"export", exportArgs.argc(), exportArgs.argv()), Success);
  const std::optional<Bytes> written = run.bytes("WriteFile \"C:\\d.vdd\"", "data");
  ASSERT_TRUE(written.has_value());
  EXPECT_EQ(run.field("WriteFile \"C:\\d.vdd\"", "bytes"), std::to_string(written->size()));
  const DescriptorCheck check = CheckDescriptor(written->data(), written->size());
  ASSERT_TRUE(check.valid()) << toUtf8(check.problem);
  EXPECT_EQ(check.record, record);
  EXPECT_EQ(check.driveLetter, u'R');
  // One write: the text holds no second one.
  const std::string& text = run.sink.text();
  EXPECT_EQ(text.find("WriteFile", text.find("WriteFile") + 1), std::string::npos);
}

TEST(RequestTrace, SaveHasTheControllerWriteAnImageTheImageReaderKnows) {
  TracedRun run(json::parse(R"({
    "controller": {"disks": [{"index": 2, "size": 67108864, "image": true,
      "settings": {"sizeMb": 64, "imageFile": "C:\\img\\disk.img", "imageFlags": "0x00010011", "imageFormat": 0}}]}})"));
  Args save({L"2", L"-s"});
  ASSERT_EQ(runCommand(run.app.app, L"vmdctl", L"save", save.argc(), save.argv()), Success) << toUtf8(run.app.err());
  const std::optional<Bytes> head = run.bytes("* t=0 ImageWritten \"C:\\img\\disk.img\"", "head");
  ASSERT_TRUE(head.has_value());
  EXPECT_EQ(run.field("ImageWritten", "size"), "67108864");

  // The head alone, on a machine of its own, read as the program reads images.
  SimApp reader;
  reader.machine.edit([&](json& s) {
    s["files"] = json::array({{{"path", "C:\\copy.img"}, {"size", 67108864}, {"head", sim::toHex(*head)}}});
  });
  std::uint64_t size = 0;
  EXPECT_EQ(DetectImageFormat(reader.platform.plain.files, L"C:\\copy.img", &size), 0);  // PLAIN
  EXPECT_EQ(size, 67108864u);
}

}  // namespace request_trace_test
}  // namespace vmd
