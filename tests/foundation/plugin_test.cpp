// The plug-in library's COM frame, exercised through its two exports and its interface tables only:
// class objects, reference counts, server locks, the host's queries and the refusals.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>
#include <utility>

#include "tests/support/plugin_library.h"

namespace inkweave {
namespace {

using testing::SharedPlugin;

IClassFactory* GetFactory() {
  IClassFactory* factory = nullptr;
  EXPECT_EQ(SharedPlugin().GetClassObject(&CLSID_RenderPlugin, &IID_IClassFactory, reinterpret_cast<void**>(&factory)),
            S_OK);
  return factory;
}

IPrintOemUni* CreatePlugin() {
  IClassFactory* factory = GetFactory();
  IPrintOemUni* plugin = nullptr;
  EXPECT_EQ(factory->lpVtbl->CreateInstance(factory, nullptr, &IID_IPrintOemUni, reinterpret_cast<void**>(&plugin)),
            S_OK);
  EXPECT_EQ(factory->lpVtbl->Release(factory), 0u);
  return plugin;
}

// A fresh plug-in object per test (v its interface table), gone with its last reference at the end.
struct Plugin : ::testing::Test {
  IPrintOemUni* plugin = CreatePlugin();
  const IPrintOemUniVtbl& v = *plugin->lpVtbl;
  void TearDown() override {
    if (plugin != nullptr) {
      EXPECT_EQ(v.Release(plugin), 0u);
    }
  }
};

TEST(Exports, OnlyTheTwoEntryPointsAreVisible) {
  const std::string command = std::string("nm -D --defined-only '") + INKWEAVE_PLUGIN_PATH + "'";
  FILE* pipe = popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::set<std::string> symbols;
  char kind = 0, name[512];
  for (char line[600]; std::fgets(line, sizeof line, pipe);)
    if (std::sscanf(line, "%*s %c %511s", &kind, name) == 2 && kind != 'A') symbols.insert(name);
  ASSERT_EQ(pclose(pipe), 0) << "nm failed";
  EXPECT_EQ(symbols, (std::set<std::string>{"DllCanUnloadNow", "DllGetClassObject"}));
}

TEST(ClassObject, FactoryAnswersOnlyItsClassAndInterfaces) {
  void* sentinel = reinterpret_cast<void*>(std::uintptr_t{0x1234});
  void* out = sentinel;
  EXPECT_EQ(SharedPlugin().GetClassObject(&IID_IPrintOemUni, &IID_IClassFactory, &out), CLASS_E_CLASSNOTAVAILABLE);
  EXPECT_EQ(out, sentinel) << "another class leaves the output untouched";
  EXPECT_EQ(SharedPlugin().GetClassObject(&CLSID_RenderPlugin, &IID_IPrintOemUni, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);

  IUnknown* unknown = nullptr;
  ASSERT_EQ(SharedPlugin().GetClassObject(&CLSID_RenderPlugin, &IID_IUnknown, reinterpret_cast<void**>(&unknown)),
            S_OK);
  // The factory answers itself for IUnknown: called through its own table, the type of its methods.
  IClassFactory* same = reinterpret_cast<IClassFactory*>(unknown);
  EXPECT_EQ(same->lpVtbl->AddRef(same), 2u);
  EXPECT_EQ(same->lpVtbl->Release(same), 1u);
  EXPECT_EQ(same->lpVtbl->Release(same), 0u);

  IClassFactory* factory = GetFactory();
  IUnknown* outer = reinterpret_cast<IUnknown*>(factory);
  void* plugin = reinterpret_cast<void*>(std::uintptr_t{1});
  EXPECT_EQ(factory->lpVtbl->CreateInstance(factory, outer, &IID_IPrintOemUni, &plugin), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(factory->lpVtbl->CreateInstance(factory, nullptr, &IID_IClassFactory, &plugin), E_NOINTERFACE);
  EXPECT_EQ(plugin, nullptr);
  EXPECT_EQ(factory->lpVtbl->Release(factory), 0u);
}

TEST_F(Plugin, OnlyServerLocksKeepTheLibrary) {
  EXPECT_EQ(SharedPlugin().CanUnloadNow(), S_OK) << "objects are deliberately not counted";
  IClassFactory* factory = GetFactory();
  EXPECT_EQ(factory->lpVtbl->LockServer(factory, 1), S_OK);
  EXPECT_EQ(factory->lpVtbl->LockServer(factory, 1), S_OK);
  EXPECT_EQ(SharedPlugin().CanUnloadNow(), S_FALSE);
  EXPECT_EQ(factory->lpVtbl->LockServer(factory, 0), S_OK);
  EXPECT_EQ(SharedPlugin().CanUnloadNow(), S_FALSE);
  EXPECT_EQ(factory->lpVtbl->LockServer(factory, 0), S_OK);
  EXPECT_EQ(SharedPlugin().CanUnloadNow(), S_OK);
  factory->lpVtbl->Release(factory);
}

TEST_F(Plugin, ReferenceCountsAndInterfaces) {
  EXPECT_EQ(v.AddRef(plugin), 2u);
  void* out = nullptr;
  EXPECT_EQ(v.QueryInterface(plugin, &IID_IUnknown, &out), S_OK);
  EXPECT_EQ(out, plugin);
  EXPECT_EQ(v.QueryInterface(plugin, &IID_IPrintOemUni, &out), S_OK);
  EXPECT_EQ(v.QueryInterface(plugin, &IID_IClassFactory, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(v.Release(plugin), 3u);
  EXPECT_EQ(v.Release(plugin), 2u);
  EXPECT_EQ(v.Release(plugin), 1u);
}

// Modes 1..3 answer a DWORD (the signature "318K", then the interface version twice) and tell its size;
// other modes clear the size needed; no size pointer, no buffer or a short one is refused, the buffer
// left as it was, the size needed told before the buffer is refused.
TEST_F(Plugin, GetInfo) {
  constexpr DWORD kUntouched = 0xAAAAAAAA, kSignature = 0x4B383133;  // "318K" in memory order
  const struct {
    DWORD mode, size;
    bool buffer, needed;
    HRESULT result;
    DWORD neededAfter, value;
  } cases[] = {{1, 4, true, true, S_OK, 4, kSignature},     {2, 4, true, true, S_OK, 4, 0x10000},
               {3, 8, true, true, S_OK, 4, 0x10000},        {4, 4, true, true, E_FAIL, 0, kUntouched},
               {0, 4, true, false, E_FAIL, 99, kUntouched}, {1, 4, true, false, E_FAIL, 99, kUntouched},
               {1, 3, true, true, E_FAIL, 4, kUntouched},   {1, 4, false, true, E_FAIL, 4, kUntouched}};
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << "mode " << c.mode << " size " << c.size);
    DWORD value = kUntouched, needed = 99;
    EXPECT_EQ(v.GetInfo(plugin, c.mode, c.buffer ? &value : nullptr, c.size, c.needed ? &needed : nullptr), c.result);
    EXPECT_EQ(needed, c.neededAfter);
    EXPECT_EQ(value, c.value);
  }
}

TEST_F(Plugin, GetImplementedMethod) {
  auto ask = [this](const char* name) {
    std::string copy(name);
    return v.GetImplementedMethod(plugin, copy.data());
  };
  for (const char* name :
       {"CommandCallback", "EnableDriver", "EnablePDEV", "DisablePDEV", "GetInfo", "FilterGraphics", "ImageProcessing"})
    EXPECT_EQ(ask(name), S_OK) << name;
  for (const char* name : {"PublishDriverInterface", "Compression", "commandCallback", "", "Enable", "GetInfo "})
    EXPECT_EQ(ask(name), E_FAIL) << name;
  EXPECT_EQ(v.GetImplementedMethod(plugin, nullptr), E_FAIL);
}

// EnableDriver and ImageProcessing refuse what they cannot serve (the output left as it was); the
// slots the plug-in leaves to the host answer E_NOTIMPL; FilterGraphics takes anything.
TEST_F(Plugin, RefusalsAndUnimplementedSlots) {
  DRVENABLEDATA ded{7, 7, nullptr};
  EXPECT_EQ(v.EnableDriver(plugin, 0x20000, sizeof ded, &ded), E_FAIL);
  EXPECT_EQ(v.EnableDriver(plugin, 0x10000, 15, &ded), E_FAIL);
  EXPECT_EQ(v.EnableDriver(plugin, 0x10000, 16, nullptr), E_FAIL);
  EXPECT_EQ(ded.iDriverVersion, 7u);
  EXPECT_EQ(v.EnableDriver(plugin, 0x10000, 16, &ded), S_OK);
  EXPECT_EQ(ded.iDriverVersion, 0x10000u);
  EXPECT_EQ(ded.c, 0u);
  BYTE* untouched = reinterpret_cast<BYTE*>(std::uintptr_t{0x77});
  BYTE* result = untouched;
  std::uint8_t bits[64] = {};
  BITMAPINFOHEADER header{40, 4, 4, 1, 24, 0, 0, 0, 0, 0, 0};
  IPPARAMS params{sizeof(IPPARAMS), {0, 0}, nullptr, 1, 0};
  EXPECT_EQ(v.ImageProcessing(plugin, nullptr, bits, &header, nullptr, 0, &params, &result), E_FAIL);
  EXPECT_EQ(result, untouched);
  DEVOBJ devobj{};
  EXPECT_EQ(v.ImageProcessing(plugin, &devobj, bits, &header, nullptr, 0, &params, &result), E_FAIL);
  EXPECT_EQ(result, untouched);
  EXPECT_EQ(v.DevMode(plugin, 0, nullptr), E_NOTIMPL);
  EXPECT_EQ(v.DisableDriver(plugin), E_NOTIMPL);
  EXPECT_EQ(v.ResetPDEV(plugin, nullptr, nullptr), E_NOTIMPL);
  EXPECT_EQ(v.Compression(plugin, nullptr, nullptr, nullptr, 0, 0, nullptr), E_NOTIMPL);
  EXPECT_EQ(v.TTYGetInfo(plugin, nullptr, 0, nullptr, 0, nullptr), E_NOTIMPL);
  std::uint8_t graphics[4] = {1, 2, 3, 4};
  EXPECT_EQ(v.FilterGraphics(plugin, nullptr, graphics, sizeof graphics), S_OK);
}

// A host object without the driver service is refused and held by nothing; the first service published
// is held (through one query) until the object goes, and a second one is not queried.
TEST_F(Plugin, PublishKeepsTheFirstService) {
  static const IUnknownVtbl kNothing = {
      [](IUnknown*, const GUID*, void** ppv) INKWEAVE_STDCALL -> HRESULT {
        *ppv = nullptr;
        return E_NOINTERFACE;
      },
      [](IUnknown*) INKWEAVE_STDCALL -> ULONG { return 1; },
      [](IUnknown*) INKWEAVE_STDCALL -> ULONG { return 1; },
  };
  IUnknown nothing{&kNothing};
  EXPECT_EQ(v.PublishDriverInterface(plugin, &nothing), E_FAIL);
  host::SpoolService first;
  host::SpoolService second;
  EXPECT_EQ(v.PublishDriverInterface(plugin, first.Unknown()), S_OK);
  EXPECT_EQ(first.References(), 2u);
  EXPECT_EQ(v.PublishDriverInterface(plugin, second.Unknown()), S_OK);
  EXPECT_EQ(second.References(), 1u);
  EXPECT_EQ(first.References(), 2u);
  EXPECT_EQ(v.Release(std::exchange(plugin, nullptr)), 0u);
  EXPECT_EQ(first.References(), 1u) << "released with the object";
}

}  // namespace
}  // namespace inkweave
