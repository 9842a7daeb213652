// The plug-in object and its class factory: the COM frame the host driver calls.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/platform.h"

namespace inkweave {

// Module-wide counters and handle.
extern void* ModuleHandle;                     // recorded on process attach; nothing else uses it
extern std::atomic<std::int32_t> ObjectCount;  // never changed: objects are not counted
extern std::atomic<std::int32_t> LockCount;    // changed only by IClassFactory::LockServer

// The render plug-in object (IPrintOemUni).
class RenderPlugin {
 public:
  // A new object with count 1 and no driver interface; null when the heap refuses.
  static RenderPlugin* Create();
  IPrintOemUni* Interface() { return reinterpret_cast<IPrintOemUni*>(this); }

 private:
  RenderPlugin();
  static RenderPlugin* From(IPrintOemUni* self) { return reinterpret_cast<RenderPlugin*>(self); }

  static HRESULT INKWEAVE_STDCALL QueryInterface(IPrintOemUni* self, const GUID* riid, void** ppv);
  static ULONG INKWEAVE_STDCALL AddRef(IPrintOemUni* self);
  static ULONG INKWEAVE_STDCALL Release(IPrintOemUni* self);
  static HRESULT INKWEAVE_STDCALL GetInfo(IPrintOemUni* self, DWORD mode, PVOID buffer, DWORD size, DWORD* needed);
  static HRESULT INKWEAVE_STDCALL EnableDriver(IPrintOemUni* self, DWORD driverVersion, DWORD size, DRVENABLEDATA* ded);
  static HRESULT INKWEAVE_STDCALL EnablePDEV(IPrintOemUni* self, DEVOBJ* devobj, WCHAR* printerName, ULONG patternCount,
                                             void** patterns, ULONG gdiInfoSize, GDIINFO* gdiInfo, ULONG devInfoSize,
                                             void* devInfo, DRVENABLEDATA* ded, void** outDeviceState);
  static HRESULT INKWEAVE_STDCALL DisablePDEV(IPrintOemUni* self, DEVOBJ* devobj);
  static HRESULT INKWEAVE_STDCALL PublishDriverInterface(IPrintOemUni* self, IUnknown* driver);
  static HRESULT INKWEAVE_STDCALL GetImplementedMethod(IPrintOemUni* self, char* name);
  static HRESULT INKWEAVE_STDCALL CommandCallback(IPrintOemUni* self, DEVOBJ* devobj, DWORD callbackId, DWORD count,
                                                  DWORD* params, INT* result);
  static HRESULT INKWEAVE_STDCALL ImageProcessing(IPrintOemUni* self, DEVOBJ* devobj, BYTE* bits,
                                                  BITMAPINFOHEADER* header, BYTE* colorTable, DWORD callbackId,
                                                  IPPARAMS* params, BYTE** result);
  static HRESULT INKWEAVE_STDCALL FilterGraphics(IPrintOemUni* self, DEVOBJ* devobj, BYTE* buffer, DWORD length);

  static const IPrintOemUniVtbl kVtbl;

  [[maybe_unused]] const IPrintOemUniVtbl* vtbl_;  // must stay the first field
  IPrintOemDriverUni* driver_ = nullptr;           // the host's service, held from PublishDriverInterface
  std::atomic<std::int32_t> refs_{1};
};

// The class factory (IClassFactory) that creates RenderPlugin objects.
class RenderPluginFactory {
 public:
  static RenderPluginFactory* Create();
  IClassFactory* Interface() { return reinterpret_cast<IClassFactory*>(this); }

 private:
  RenderPluginFactory();
  static RenderPluginFactory* From(IClassFactory* self) { return reinterpret_cast<RenderPluginFactory*>(self); }

  static HRESULT INKWEAVE_STDCALL QueryInterface(IClassFactory* self, const GUID* riid, void** ppv);
  static ULONG INKWEAVE_STDCALL AddRef(IClassFactory* self);
  static ULONG INKWEAVE_STDCALL Release(IClassFactory* self);
  static HRESULT INKWEAVE_STDCALL CreateInstance(IClassFactory* self, IUnknown* outer, const GUID* riid, void** ppv);
  static HRESULT INKWEAVE_STDCALL LockServer(IClassFactory* self, BOOL lock);

  static const IClassFactoryVtbl kVtbl;

  [[maybe_unused]] const IClassFactoryVtbl* vtbl_;  // must stay the first field
  std::atomic<std::int32_t> refs_{1};
};

// The bodies of the two exports.
HRESULT GetClassObject(const GUID* rclsid, const GUID* riid, void** ppv);
HRESULT CanUnloadNow();

}  // namespace inkweave
