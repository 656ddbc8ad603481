// The controller model of vmdctl-sim, hosted for the test driver inside
// winedevice.exe. The machine state lives in the file that the service's
// Parameters value "StateFile" names, in vmdctl-sim's schema: it is read
// again whenever someone else has written it (a test setting the machine up)
// and written after every request, so a test reads the controller's state
// back after a run. Between a test's writes the machine stays loaded, so
// fault rules with `nth` count across one program run as they do in the
// simulator. A state that cannot be read fails every request with 31 and
// leaves the reason in "<state file>.error". The state's `stats` hold the
// codes of the requests received since it was last written by someone else
// (`requests` for the controller, `diskRequests` for the disks' devices).
//
// A Direct-IO disk that has arrived with a letter gets a drive at that
// letter from Wine's mount manager, on the folder "drives\<letter>" beside
// the state file, and loses it when it leaves: so the program finds the
// controller-assigned letter's volume as it would on Windows.
#define VMD_MODEL_HOST_BUILD
#include "model_host.h"
#include "unix_drive.h"

#include <windows.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "controller/codes.h"
#include "sim/machine.h"
#include "sim/sim_devices.h"

namespace {

using vmd::sim::ControllerFaults;
using vmd::sim::kPartitionOffset;
using vmd::sim::Machine;
using vmd::sim::SimDisk;

constexpr std::uint32_t kGenFailure = 31;
constexpr std::uint32_t kFileNotFound = 2;
constexpr std::uint32_t kInvalidFunction = 1;
constexpr std::uint32_t kInsufficientBuffer = 122;

struct Host {
  std::mutex lock;
  std::wstring parametersKey;  // under HKEY_LOCAL_MACHINE
  std::string statePath;
  std::unique_ptr<Machine> machine;
  std::string lastWritten;  // the file's text as this host last wrote or read it
  std::string problem;      // why the state could not be read
};

Host& host() {
  static Host h;
  return h;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return {};
  std::stringstream buf;
  buf << in.rdbuf();
  return buf.str();
}

void writeFile(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
}

std::string narrow(const std::wstring& w) {
  const int n = WideCharToMultiByte(CP_UTF8, 0, w.c_str(), static_cast<int>(w.size()), nullptr, 0, nullptr, nullptr);
  std::string s(static_cast<std::size_t>(n), '\0');
  WideCharToMultiByte(CP_UTF8, 0, w.c_str(), static_cast<int>(w.size()), s.data(), n, nullptr, nullptr);
  return s;
}

std::string stateFilePath(Host& h) {
  wchar_t buf[1024];
  DWORD size = sizeof buf;
  if (RegGetValueW(HKEY_LOCAL_MACHINE, h.parametersKey.c_str(), L"StateFile", RRF_RT_REG_SZ, nullptr, buf, &size) !=
      ERROR_SUCCESS)
    return {};
  return narrow(buf);
}

// The machine as the state file has it now; nothing when it cannot be read.
Machine* current(Host& h) {
  const std::string path = stateFilePath(h);
  if (path.empty()) {
    h.problem = "no StateFile value under HKLM\\" + narrow(h.parametersKey);
    h.machine.reset();
    return nullptr;
  }
  const std::string text = readFile(path);
  if (h.machine && path == h.statePath && text == h.lastWritten) return h.machine.get();
  h.statePath = path;
  h.lastWritten = text;
  h.machine.reset();
  try {
    h.machine = std::make_unique<Machine>(Machine::load(path));
    h.problem.clear();
    DeleteFileA((path + ".error").c_str());
  } catch (const std::exception& e) {
    h.problem = e.what();
    writeFile(path + ".error", h.problem + "\n");
  }
  return h.machine.get();
}

void save(Host& h) {
  try {
    h.machine->save(h.statePath);
    h.lastWritten = readFile(h.statePath);
  } catch (const std::exception& e) {
    writeFile(h.statePath + ".error", std::string(e.what()) + "\n");
  }
}

std::string controllerPath(const Machine& m) {
  const auto& c = m.world.controller;
  return c.interfaces.empty() ? c.interfacePath : c.interfaces.front();
}

const SimDisk* arrivedDisk(Machine& m, std::uint32_t index) {
  const auto& c = m.world.controller;
  const SimDisk* d = c.findDisk(index);
  if (!c.present || !d || !d->deviceVisible()) return nullptr;
  return d;
}

// The drives folder beside the state file, as a Windows and a Unix path
// (Wine's Z: is the Unix root).
std::string drivesFolder(const std::string& statePath) {
  const std::size_t slash = statePath.find_last_of('\\');
  return (slash == std::string::npos ? std::string(".") : statePath.substr(0, slash)) + "\\drives";
}

std::string unixPath(const std::string& windowsPath) {
  std::string p = windowsPath.size() > 2 && (windowsPath[0] | 0x20) == 'z' && windowsPath[1] == ':' ? windowsPath.substr(2)
                                                                                                  : windowsPath;
  for (char& c : p)
    if (c == '\\') c = '/';
  return p;
}

// Gives every arrived Direct-IO disk with a letter that is free its drive,
// and takes the drives of this folder from every other letter.
void syncDrives(Machine& m, const std::string& statePath) {
  const std::string folder = drivesFolder(statePath);
  std::set<char> wanted, present;
  for (const SimDisk& d : m.world.controller.disks) {
    const char16_t l = d.letter;
    if (d.directIo && d.deviceVisible() && m.world.controller.present &&
        ((l >= u'A' && l <= u'Z') || (l >= u'a' && l <= u'z')))
      wanted.insert(static_cast<char>(l & ~0x20));
  }
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ec)) {
    const std::string name = entry.path().filename().string();
    if (name.size() == 1 && name[0] >= 'A' && name[0] <= 'Z') present.insert(name[0]);
  }
  for (char l : present) {
    if (wanted.count(l)) continue;
    vmdDefineUnixDrive(l, nullptr, nullptr);
    std::filesystem::remove_all(folder + "\\" + std::string(1, l), ec);
  }
  const DWORD taken = GetLogicalDrives();
  for (char l : wanted) {
    // A letter the prefix already uses for something else stays as it is.
    if (present.count(l) || (taken & (1u << (l - 'A')))) continue;
    const std::string own = folder + "\\" + std::string(1, l);
    std::filesystem::create_directories(own, ec);
    vmdDefineUnixDrive(l, unixPath(own).c_str(), nullptr);
  }
}

std::string diskPath(std::uint32_t index) { return "\\\\.\\VelmoRdDevPort0Target" + std::to_string(index); }

// A disk's own device answers the partition query; the volume requests a
// Direct-IO disk's device receives succeed, as nothing else holds it.
std::uint32_t diskAnswer(const SimDisk& d, std::uint32_t code, std::uint8_t* out, std::uint32_t outSize,
                         std::uint32_t& returned) {
  switch (code) {
    case vmd::ioctl::DiskGetPartitionInfo:
      if (!out || outSize < 32) return kInsufficientBuffer;
      std::memset(out, 0, 32);
      vmd::put64(out, kPartitionOffset);
      vmd::put64(out + 8, d.size > kPartitionOffset ? d.size - kPartitionOffset : 0);
      vmd::put32(out + 16, 63);
      vmd::put32(out + 20, 1);
      out[24] = d.directIo ? 0x06 : 0x0C;
      out[25] = 1;
      out[26] = 1;
      returned = 32;
      return 0;
    case vmd::ioctl::FsctlLockVolume:
    case vmd::ioctl::FsctlUnlockVolume:
    case vmd::ioctl::FsctlDismountVolume:
      return 0;
    default:
      return kInvalidFunction;
  }
}

}  // namespace

extern "C" {

void vmdModelInit(const uint16_t* registryPath, uint32_t chars) {
  Host& h = host();
  std::lock_guard<std::mutex> guard(h.lock);
  std::wstring path(reinterpret_cast<const wchar_t*>(registryPath), chars);
  const std::wstring machinePrefix = L"\\Registry\\Machine\\";
  if (path.size() > machinePrefix.size() && _wcsnicmp(path.c_str(), machinePrefix.c_str(), machinePrefix.size()) == 0)
    path = path.substr(machinePrefix.size());
  h.parametersKey = path + L"\\Parameters";
}

uint32_t vmdModelControllerRequest(uint32_t code, void* buffer, uint32_t inSize, uint32_t outSize, uint32_t* returned) {
  Host& h = host();
  std::lock_guard<std::mutex> guard(h.lock);
  *returned = 0;
  Machine* m = current(h);
  if (!m) return kGenFailure;
  // The requests received since the state was last written by someone else,
  // by code name, as the simulator's stats count them: a test reads which
  // requests a program sent.
  m->count("requests", vmd::sim::codeName(code));
  // Input and reply share the one buffer.
  const auto* bytes = static_cast<const std::uint8_t*>(buffer);
  std::vector<std::uint8_t> in(bytes ? bytes : nullptr, bytes ? bytes + inSize : nullptr);
  std::vector<std::uint8_t> out(outSize);
  ControllerFaults controller(*m, m->controller());
  const auto reply = controller.handle(code, inSize ? in.data() : nullptr, inSize, outSize ? out.data() : nullptr,
                                       outSize);
  const std::uint32_t n = reply.returned < outSize ? reply.returned : outSize;
  if (n && buffer) std::memcpy(buffer, out.data(), n);
  *returned = n;
  save(h);
  syncDrives(*m, h.statePath);
  return reply.error;
}

uint32_t vmdModelDiskRequest(uint32_t disk, uint32_t code, void* buffer, uint32_t inSize, uint32_t outSize,
                             uint32_t* returned) {
  Host& h = host();
  std::lock_guard<std::mutex> guard(h.lock);
  *returned = 0;
  Machine* m = current(h);
  if (!m) return kGenFailure;
  m->count("diskRequests", vmd::sim::codeName(code));
  save(h);
  if (auto e = m->matchFault("DeviceIoControl", code, diskPath(disk))) return *e;
  const SimDisk* d = arrivedDisk(*m, disk);
  if (!d) return kFileNotFound;
  return diskAnswer(*d, code, static_cast<std::uint8_t*>(buffer), outSize, *returned);
}

void vmdModelDevices(uint8_t* bitmap) {
  Host& h = host();
  std::lock_guard<std::mutex> guard(h.lock);
  std::memset(bitmap, 0, 16);
  Machine* m = current(h);
  if (!m) return;
  for (const SimDisk& d : m->world.controller.disks)
    if (arrivedDisk(*m, d.index)) bitmap[d.index / 8] |= static_cast<std::uint8_t>(1u << (d.index % 8));
}

uint32_t vmdModelOpenController(void) {
  Host& h = host();
  std::lock_guard<std::mutex> guard(h.lock);
  Machine* m = current(h);
  if (!m) return kGenFailure;
  if (!m->world.controller.present) return kFileNotFound;
  if (auto e = m->matchFault("CreateFileW", 0, controllerPath(*m))) return *e;
  return 0;
}

uint32_t vmdModelOpenDisk(uint32_t disk) {
  Host& h = host();
  std::lock_guard<std::mutex> guard(h.lock);
  Machine* m = current(h);
  if (!m) return kGenFailure;
  if (auto e = m->matchFault("CreateFileW", 0, diskPath(disk))) return *e;
  return arrivedDisk(*m, disk) ? 0 : kFileNotFound;
}

}  // extern "C"
