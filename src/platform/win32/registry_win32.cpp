// HKEY_LOCAL_MACHINE: DWORD reads, and value enumeration and changes in one key.
#include <algorithm>
#include <vector>

#include "platform/win32/win32.h"
#include "platform/win32/win32_platform.h"

namespace vmd::win32 {

namespace {

class Win32Key : public Registry::Key {
 public:
  explicit Win32Key(RegKey key) : key_(std::move(key)) {}

  std::uint32_t enumValue(std::uint32_t index, std::uint32_t nameChars, std::uint32_t dataBytes,
                          Registry::Value& out) override {
    std::vector<wchar_t> name(nameChars ? nameChars : 1, L'\0');
    Bytes data(dataBytes);
    DWORD nameLength = nameChars, dataLength = dataBytes, type = 0;
    const LSTATUS rc = ::RegEnumValueW(key_.get(), index, name.data(), &nameLength, nullptr, &type,
                                       dataBytes ? data.data() : nullptr, &dataLength);
    if (rc != ERROR_SUCCESS) return static_cast<std::uint32_t>(rc);
    out.name.assign(name.data(), nameLength);
    out.type = type;
    data.resize(std::min<std::size_t>(dataLength, data.size()));
    out.data = std::move(data);
    return 0;
  }

  std::uint32_t deleteValue(const std::wstring& name) override {
    return static_cast<std::uint32_t>(::RegDeleteValueW(key_.get(), name.c_str()));
  }

  std::uint32_t setBinary(const std::wstring& name, const Bytes& data) override {
    return static_cast<std::uint32_t>(::RegSetValueExW(key_.get(), name.c_str(), 0, REG_BINARY, data.data(),
                                                       static_cast<DWORD>(data.size())));
  }

 private:
  RegKey key_;
};

class Win32Registry : public Registry {
 public:
  std::optional<std::uint32_t> readDword(const std::wstring& key, const std::wstring& value) override {
    RegKey opened;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ, opened.receive()) != ERROR_SUCCESS)
      return std::nullopt;
    DWORD data = 0, size = sizeof(data), type = 0;
    if (::RegQueryValueExW(opened.get(), value.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(&data), &size) !=
            ERROR_SUCCESS ||
        size != sizeof(data))
      return std::nullopt;
    return data;
  }

  std::unique_ptr<Key> openForWrite(const std::wstring& key, std::uint32_t& error) override {
    RegKey opened;
    const LSTATUS rc = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ | KEY_WRITE, opened.receive());
    error = static_cast<std::uint32_t>(rc);
    if (rc != ERROR_SUCCESS) return nullptr;
    return std::make_unique<Win32Key>(std::move(opened));
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
