// String resources read back through the Win32 resource functions: EnumResourceNames and
// EnumResourceLanguages find every RT_STRING block in every language; FindResourceEx and
// LoadResource give the block's sixteen counted UTF-16 strings (ids block*16-16 .. block*16-1).
#include "windows/hosttest/resources.h"

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <tuple>

namespace inkweave::hosttest {
namespace {

std::string Utf8(const wchar_t* text, int length) {
  if (length <= 0) return {};
  const int size = WideCharToMultiByte(CP_UTF8, 0, text, length, nullptr, 0, nullptr, nullptr);
  std::string out(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, length, out.data(), size, nullptr, nullptr);
  return out;
}

struct Walk {
  HMODULE Module;
  std::vector<StringResource>* Strings;
  WORD Block;
};

BOOL CALLBACK OnLanguage(HMODULE module, LPCWSTR, LPCWSTR, WORD language, LONG_PTR param) {
  auto* walk = reinterpret_cast<Walk*>(param);
  HRSRC found = FindResourceExW(module, MAKEINTRESOURCEW(6) /* RT_STRING */, MAKEINTRESOURCEW(walk->Block), language);
  if (!found) return TRUE;
  HGLOBAL loaded = LoadResource(module, found);
  const auto* data = static_cast<const WCHAR*>(LockResource(loaded));
  const DWORD size = SizeofResource(module, found) / sizeof(WCHAR);
  DWORD at = 0;
  for (WORD index = 0; index < 16 && at < size; ++index) {
    const WORD length = data[at++];
    if (length > 0 && at + length <= size) {
      const WORD id = static_cast<WORD>((walk->Block - 1) * 16 + index);
      walk->Strings->push_back({language, id, Utf8(reinterpret_cast<const wchar_t*>(data + at), length)});
    }
    at += length;
  }
  return TRUE;
}

BOOL CALLBACK OnBlock(HMODULE module, LPCWSTR type, LPWSTR name, LONG_PTR param) {
  if (!IS_INTRESOURCE(name)) return TRUE;  // string blocks are numbered
  auto* walk = reinterpret_cast<Walk*>(param);
  walk->Block = static_cast<WORD>(reinterpret_cast<ULONG_PTR>(name));
  EnumResourceLanguagesW(module, type, name, OnLanguage, param);
  return TRUE;
}

}  // namespace

bool ReadStringResources(const std::string& path, std::vector<StringResource>* strings, std::string* error) {
  HMODULE module = LoadLibraryExA(path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
  if (!module) {
    *error = "cannot load " + path + " as a data file (error " + std::to_string(GetLastError()) + ")";
    return false;
  }
  Walk walk{module, strings, 0};
  const BOOL listed = EnumResourceNamesW(module, MAKEINTRESOURCEW(6), OnBlock, reinterpret_cast<LONG_PTR>(&walk));
  FreeLibrary(module);
  if (!listed) {
    *error = "no string resources in " + path;
    return false;
  }
  std::sort(strings->begin(), strings->end(), [](const StringResource& a, const StringResource& b) {
    return std::tie(a.Language, a.Id) < std::tie(b.Language, b.Id);
  });
  return true;
}

std::string ReadFileVersion(const std::string& path) {
  HMODULE module = LoadLibraryExA(path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
  if (!module) return {};
  std::string version;
  HRSRC found = FindResourceW(module, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(16) /* RT_VERSION */);
  if (found) {
    // VS_VERSIONINFO holds its VS_FIXEDFILEINFO on a 32-bit boundary, found by its signature.
    const auto* data = static_cast<const BYTE*>(LockResource(LoadResource(module, found)));
    const DWORD size = SizeofResource(module, found);
    for (DWORD at = 0; at + sizeof(VS_FIXEDFILEINFO) <= size; at += 4) {
      VS_FIXEDFILEINFO info;
      std::memcpy(&info, data + at, sizeof info);
      if (info.dwSignature != 0xFEEF04BD) continue;
      version = std::to_string(HIWORD(info.dwFileVersionMS)) + "." + std::to_string(LOWORD(info.dwFileVersionMS)) +
                "." + std::to_string(HIWORD(info.dwFileVersionLS)) + "." + std::to_string(LOWORD(info.dwFileVersionLS));
      break;
    }
  }
  FreeLibrary(module);
  return version;
}

std::string LoadStringDefault(const std::string& path, std::uint16_t id) {
  HMODULE module = LoadLibraryA(path.c_str());
  if (!module) return {};
  const wchar_t* text = nullptr;
  // With a zero buffer size LoadStringW answers a read-only pointer to the resource's text.
  const int length = LoadStringW(module, id, reinterpret_cast<LPWSTR>(&text), 0);
  std::string out = length > 0 ? Utf8(text, length) : std::string();
  FreeLibrary(module);
  return out;
}

}  // namespace inkweave::hosttest
