// HKEY_LOCAL_MACHINE: DWORD reads, and value enumeration and changes in one key.
#include <algorithm>
#include <vector>

#include "platform/win32/win32.h"
#include "platform/win32/win32_platform.h"

namespace vmd::win32 {

namespace {

SysStatus status(LSTATUS rc) {
  return rc == ERROR_SUCCESS ? SysStatus::success() : SysStatus::failure(static_cast<std::uint32_t>(rc));
}

class Win32Key : public Registry::Key {
 public:
  explicit Win32Key(RegKey key) : key_(std::move(key)) {}

  SysResult<Registry::Value> enumValue(std::uint32_t index, std::uint32_t nameChars, std::uint32_t dataBytes) override {
    std::vector<wchar_t> name(nameChars ? nameChars : 1, L'\0');
    Bytes data(dataBytes);
    DWORD nameLength = nameChars, dataLength = dataBytes, type = 0;
    const LSTATUS rc = ::RegEnumValueW(key_.get(), index, name.data(), &nameLength, nullptr, &type,
                                       dataBytes ? data.data() : nullptr, &dataLength);
    if (rc != ERROR_SUCCESS) return SysResult<Registry::Value>::failure(static_cast<std::uint32_t>(rc));
    Registry::Value value;
    value.name.assign(name.data(), nameLength);
    value.type = type;
    data.resize(std::min<std::size_t>(dataLength, data.size()));
    value.data = std::move(data);
    return SysResult<Registry::Value>::success(std::move(value));
  }

  SysStatus deleteValue(const std::wstring& name) override {
    return status(::RegDeleteValueW(key_.get(), name.c_str()));
  }

  SysStatus setBinary(const std::wstring& name, const Bytes& data) override {
    return status(
        ::RegSetValueExW(key_.get(), name.c_str(), 0, REG_BINARY, data.data(), static_cast<DWORD>(data.size())));
  }

 private:
  RegKey key_;
};

class Win32Registry : public Registry {
 public:
  SysResult<std::uint32_t> readDword(const std::wstring& key, const std::wstring& value) override {
    RegKey opened;
    const LSTATUS open = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ, opened.receive());
    if (open != ERROR_SUCCESS) return SysResult<std::uint32_t>::failure(static_cast<std::uint32_t>(open));
    DWORD data = 0, size = sizeof(data), type = 0;
    const LSTATUS read =
        ::RegQueryValueExW(opened.get(), value.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(&data), &size);
    if (read != ERROR_SUCCESS) return SysResult<std::uint32_t>::failure(static_cast<std::uint32_t>(read));
    if (size != sizeof(data)) return SysResult<std::uint32_t>::failure(ERROR_INVALID_DATA);
    return SysResult<std::uint32_t>::success(data);
  }

  SysResult<std::unique_ptr<Key>> openForWrite(const std::wstring& key) override {
    RegKey opened;
    const LSTATUS rc = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ | KEY_WRITE, opened.receive());
    if (rc != ERROR_SUCCESS) return SysResult<std::unique_ptr<Key>>::failure(static_cast<std::uint32_t>(rc));
    return SysResult<std::unique_ptr<Key>>::success(std::make_unique<Win32Key>(std::move(opened)));
  }

  SysResult<std::vector<Value>> readValues(const std::wstring& key) override {
    RegKey opened;
    LSTATUS rc = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ, opened.receive());
    if (rc != ERROR_SUCCESS) return {false, static_cast<std::uint32_t>(rc), {}};
    DWORD count = 0, nameChars = 0, dataBytes = 0;
    rc = ::RegQueryInfoKeyW(opened.get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &count, &nameChars,
                            &dataBytes, nullptr, nullptr);
    if (rc != ERROR_SUCCESS) return {false, static_cast<std::uint32_t>(rc), {}};
    // A value that grows under the walk asks for room again, a bounded number of times.
    std::vector<Value> values;
    int regrowths = 0;
    for (DWORD index = 0; index <= count + 1024;) {
      std::vector<wchar_t> name(nameChars + 1, L'\0');
      Bytes data(dataBytes ? dataBytes : 1);
      DWORD nameLength = nameChars + 1, dataLength = dataBytes, type = 0;
      rc = ::RegEnumValueW(opened.get(), index, name.data(), &nameLength, nullptr, &type, data.data(), &dataLength);
      if (rc == ERROR_NO_MORE_ITEMS) return {true, 0, std::move(values)};
      if (rc == ERROR_MORE_DATA && ++regrowths <= 16) {
        nameChars = std::max<DWORD>(nameChars * 2, 256);
        dataBytes = std::max<DWORD>(std::max<DWORD>(dataBytes * 2, dataLength), 4096);
        continue;
      }
      if (rc != ERROR_SUCCESS) return {false, static_cast<std::uint32_t>(rc), {}};
      data.resize(std::min<std::size_t>(dataLength, dataBytes));
      values.push_back({std::wstring(name.data(), nameLength), type, std::move(data)});
      ++index;
    }
    return {false, ERROR_MORE_DATA, {}};  // values keep appearing: no end to read to
  }
};

}  // namespace

std::unique_ptr<Registry> makeRegistry() { return std::make_unique<Win32Registry>(); }

}  // namespace vmd::win32
