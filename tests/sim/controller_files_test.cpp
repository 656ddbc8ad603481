// The controller lays a fresh file system on a disk's volume and saves a
// disk's contents to an image file.
#include <gtest/gtest.h>

#include <algorithm>

#include "settings/image_file.h"
#include "sim/sim_rig.h"

namespace vmd::sim {
namespace controller_files_test {

using test::Rig;
using Bytes = std::vector<std::uint8_t>;

void put32(Bytes& b, std::size_t at, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(v >> (8 * i));
}

// {16, total, address of `target`, sub-record length} and the sub-record.
Bytes wrapped(std::uint8_t target, const Bytes& sub) {
  Bytes in(16 + sub.size(), 0);
  put32(in, 0, 16);
  put32(in, 4, static_cast<std::uint32_t>(in.size()));
  in[10] = target;
  put32(in, 12, static_cast<std::uint32_t>(sub.size()));
  std::copy(sub.begin(), sub.end(), in.begin() + 16);
  return in;
}

Bytes utf16z(const std::u16string& s) {
  Bytes b;
  for (char16_t c : s) {
    b.push_back(static_cast<std::uint8_t>(c));
    b.push_back(static_cast<std::uint8_t>(c >> 8));
  }
  b.push_back(0);
  b.push_back(0);
  return b;
}

// A format section: file system, cluster sectors, serial, label.
Bytes formatSpec(std::uint8_t fs, std::uint8_t sectors, std::uint32_t serial, const std::u16string& label) {
  const Bytes l = label.empty() ? Bytes() : utf16z(label);
  Bytes spec(label.empty() ? 44 : 42 + l.size(), 0);
  put32(spec, 0, 44);
  spec[9] = 0x08;
  spec[10] = fs;
  spec[11] = sectors;
  put32(spec, 12, serial);
  spec[40] = static_cast<std::uint8_t>(l.size());
  std::copy(l.begin(), l.end(), spec.begin() + 42);
  put32(spec, 4, static_cast<std::uint32_t>(spec.size()));
  return spec;
}

// An image sub-record; an empty name saves into the disk's own file.
Bytes saveRecord(const std::u16string& name, std::uint32_t flags, std::uint8_t format, std::uint8_t level) {
  const Bytes n = name.empty() ? Bytes() : utf16z(u"\\DosDevices\\" + name);
  Bytes r(name.empty() ? 40 : 38 + n.size(), 0);
  put32(r, 0, 40);
  put32(r, 8, flags);
  r[12] = format;
  r[13] = level;
  r[36] = static_cast<std::uint8_t>(n.size());
  std::copy(n.begin(), n.end(), r.begin() + 38);
  put32(r, 4, static_cast<std::uint32_t>(r.size()));
  return r;
}

json diskWithVolume(json settings) {
  return {{"controller", {{"disks", {{{"index", 2}, {"size", 67108864}, {"signature", "0x1234abcd"}, {"settings", settings}}}}}},
          {"volumes", {{{"disk", 2}, {"mountPoints", {"S:\\"}}, {"freeBytes", 1000}}}}};
}

const FileEntry* fileAt(const Rig& rig, const std::string& path) {
  for (const FileEntry& f : rig.machine.world.files)
    if (f.path == path) return &f;
  return nullptr;
}

TEST(SimReinitializeDisk, TheVolumeTakesTheSectionsFileSystemAndStaysWhereItWas) {
  Rig rig(diskWithVolume({{"sizeMb", 64}, {"fileSystem", 19}, {"volumeLabel", "OLD"}}));
  const auto r = rig.controller(ioctl::ReinitializeDisk, wrapped(2, formatSpec(2, 16, 0xCAFEF00D, u"NEW")), 0);
  ASSERT_TRUE(r.ok) << r.error;
  const Volume* v = rig.volumeOf(2);
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(v->mountPoints, (std::vector<std::string>{"S:\\"}));
  EXPECT_EQ(v->props.fileSystem, "NTFS");
  EXPECT_EQ(v->props.label, "NEW");
  EXPECT_EQ(v->props.serial, 0xCAFEF00Du);
  EXPECT_EQ(v->props.sectorsPerCluster, 16u);
  EXPECT_GT(*v->props.freeBytes, 1000u);  // empty again
}

TEST(SimReinitializeDisk, WithoutLabelOrClusterTheDefaults) {
  Rig rig(diskWithVolume({{"sizeMb", 64}, {"fileSystem", 2}, {"volumeLabel", "OLD"}}));
  ASSERT_TRUE(rig.controller(ioctl::ReinitializeDisk, wrapped(2, formatSpec(18, 0, 1, u"")), 0).ok);
  const Volume* v = rig.volumeOf(2);
  EXPECT_EQ(v->props.fileSystem, "FAT");
  EXPECT_EQ(v->props.label, "");
  EXPECT_EQ(v->props.sectorsPerCluster, 8u);
}

TEST(SimReinitializeDisk, AnOtherFileSystemLeavesAVolumeThatCannotBeRead) {
  Rig rig(diskWithVolume({{"sizeMb", 64}, {"fileSystem", 2}}));
  ASSERT_TRUE(rig.controller(ioctl::ReinitializeDisk, wrapped(2, formatSpec(1, 8, 1, u"X")), 0).ok);
  EXPECT_FALSE(rig.sim.volumes.volumeInformation(L"S:\\").ok);
}

TEST(SimReinitializeDisk, MalformedRequestsAndMissingDisks) {
  Rig rig(diskWithVolume({{"sizeMb", 64}}));
  Bytes in = wrapped(2, formatSpec(2, 8, 1, u"A"));
  Bytes badTotal = in;
  put32(badTotal, 4, 99);
  EXPECT_EQ(rig.controller(ioctl::ReinitializeDisk, badTotal, 0).error, 87u);
  Bytes badFixed = in;
  put32(badFixed, 16, 40);
  EXPECT_EQ(rig.controller(ioctl::ReinitializeDisk, badFixed, 0).error, 87u);
  Bytes labelOutside = in;
  labelOutside[16 + 40] = 200;
  EXPECT_EQ(rig.controller(ioctl::ReinitializeDisk, labelOutside, 0).error, 87u);
  EXPECT_EQ(rig.controller(ioctl::ReinitializeDisk, Bytes(in.begin(), in.begin() + 50), 0).error, 87u);
  EXPECT_EQ(rig.controller(ioctl::ReinitializeDisk, wrapped(3, formatSpec(2, 8, 1, u"A")), 0).error, 2u);
}

TEST(SimSaveDiskImage, SavesAsTheNamedFileInTheGivenFormat) {
  Rig rig(diskWithVolume({{"sizeMb", 64}, {"imageFile", "C:\\img\\disk.img"}, {"imageFlags", "0x10011"}}));
  const auto r = rig.controller(ioctl::SaveDiskImage, wrapped(2, saveRecord(u"D:\\b.img", 0, 2, 7)), 0);
  ASSERT_TRUE(r.ok) << r.error;
  const FileEntry* f = fileAt(rig, "D:\\b.img");
  ASSERT_NE(f, nullptr);
  std::uint64_t size = 0;
  std::uint32_t level = 0;
  EXPECT_EQ(DetectImageFormat(rig.sim.files, L"D:\\b.img", &size, &level), 2);
  EXPECT_EQ(size, 67108864u);
  EXPECT_EQ(level, 7u);
  EXPECT_EQ(f->size, 512u);
  EXPECT_EQ(fileAt(rig, "C:\\img\\disk.img"), nullptr);
}

TEST(SimSaveDiskImage, WithoutANameTheDisksOwnFileInItsOwnFormat) {
  Rig rig(diskWithVolume({{"sizeMb", 64}, {"imageFile", "C:\\img\\disk.img"}, {"imageFlags", "0x10011"},
                          {"imageFormat", 1}}));
  ASSERT_TRUE(rig.controller(ioctl::SaveDiskImage, wrapped(2, saveRecord(u"", 0, 0, 0)), 0).ok);
  EXPECT_EQ(DetectImageFormat(rig.sim.files, L"C:\\img\\disk.img"), 1);
}

TEST(SimSaveDiskImage, LoadOnlyImageIsSavedInTheFormatTheRequestNames) {
  Rig rig(diskWithVolume({{"sizeMb", 64}, {"imageFile", "C:\\img\\disk.img"}, {"imageFlags", "0x1"}}));
  ASSERT_TRUE(rig.controller(ioctl::SaveDiskImage, wrapped(2, saveRecord(u"", 1, 0, 0)), 0).ok);
  const FileEntry* f = fileAt(rig, "C:\\img\\disk.img");
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(DetectImageFormat(rig.sim.files, L"C:\\img\\disk.img"), 0);
  EXPECT_EQ(f->size, 67108864u);  // a plain image is the whole disk
}

TEST(SimSaveDiskImage, NoFileNamedAndNoneAssociated) {
  Rig rig(diskWithVolume({{"sizeMb", 64}}));
  EXPECT_EQ(rig.controller(ioctl::SaveDiskImage, wrapped(2, saveRecord(u"", 0, 0, 0)), 0).error, 87u);
}

TEST(SimSaveDiskImage, AFileThatCannotBeWrittenFailsTheSave) {
  json m = diskWithVolume({{"sizeMb", 64}});
  m["files"] = {{{"path", "D:\\b.img"}, {"attributes", 1}}};
  Rig rig(m);
  EXPECT_EQ(rig.controller(ioctl::SaveDiskImage, wrapped(2, saveRecord(u"D:\\b.img", 0, 0, 1)), 0).error, 5u);
}

TEST(SimSaveDiskImage, MalformedRequestsAndMissingDisks) {
  Rig rig(diskWithVolume({{"sizeMb", 64}}));
  Bytes in = wrapped(2, saveRecord(u"D:\\b.img", 0, 0, 1));
  Bytes badInner = in;
  put32(badInner, 20, 44);
  EXPECT_EQ(rig.controller(ioctl::SaveDiskImage, badInner, 0).error, 87u);
  Bytes nameOutside = in;
  nameOutside[16 + 36] = 250;
  EXPECT_EQ(rig.controller(ioctl::SaveDiskImage, nameOutside, 0).error, 87u);
  Bytes badFormat = wrapped(2, saveRecord(u"D:\\b.img", 0, 3, 1));
  EXPECT_EQ(rig.controller(ioctl::SaveDiskImage, badFormat, 0).error, 87u);
  EXPECT_EQ(rig.controller(ioctl::SaveDiskImage, wrapped(4, saveRecord(u"D:\\b.img", 0, 0, 1)), 0).error, 2u);
}

}  // namespace controller_files_test
}  // namespace vmd::sim
