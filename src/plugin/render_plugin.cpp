// The render plug-in object: answers the host's queries and hands device set-up, commands and bands
// to the device, command and band stages. It keeps no per-job state of its own.
#include "src/plugin/render_plugin.h"

#include <cstring>
#include <new>
#include <type_traits>

#include "src/commands/command_dispatcher.h"
#include "src/device/device_setup.h"
#include "src/pipeline/band_driver.h"

namespace inkweave {

namespace {

constexpr DWORD kPluginSignature = 0x4B383133;  // "318K" in memory

// One answer serves every slot the plug-in does not implement: E_NOTIMPL, arguments ignored. It is
// instantiated per slot signature so that every call matches its callee exactly (which keeps it safe
// on any calling convention, 32-bit stdcall included).
template <typename Slot>
struct NotImplementedFor;
template <typename... Args>
struct NotImplementedFor<HRESULT(INKWEAVE_STDCALL*)(Args...)> {
  static HRESULT INKWEAVE_STDCALL Call(Args...) { return E_NOTIMPL; }
};

template <typename Slot>
constexpr Slot NotImplementedSlot() {
  return &NotImplementedFor<Slot>::Call;
}

// The methods the host may ask about, by first letter. PublishDriverInterface is deliberately
// absent although it is implemented: the host calls it regardless.
bool IsImplemented(const char* name) {
  switch (name[0]) {
    case 'C': return std::strcmp(name, "CommandCallback") == 0;
    case 'E': return std::strcmp(name, "EnableDriver") == 0 || std::strcmp(name, "EnablePDEV") == 0;
    case 'D': return std::strcmp(name, "DisablePDEV") == 0;
    case 'G': return std::strcmp(name, "GetInfo") == 0;
    case 'F': return std::strcmp(name, "FilterGraphics") == 0;
    case 'I': return std::strcmp(name, "ImageProcessing") == 0;
    default: return false;
  }
}

}  // namespace

const IPrintOemUniVtbl RenderPlugin::kVtbl = {
    &RenderPlugin::QueryInterface,
    &RenderPlugin::AddRef,
    &RenderPlugin::Release,
    &RenderPlugin::GetInfo,
    NotImplementedSlot<decltype(IPrintOemUniVtbl::DevMode)>(),
    &RenderPlugin::EnableDriver,
    NotImplementedSlot<decltype(IPrintOemUniVtbl::DisableDriver)>(),
    &RenderPlugin::EnablePDEV,
    &RenderPlugin::DisablePDEV,
    NotImplementedSlot<decltype(IPrintOemUniVtbl::ResetPDEV)>(),
    &RenderPlugin::PublishDriverInterface,
    &RenderPlugin::GetImplementedMethod,
    NotImplementedSlot<decltype(IPrintOemUniVtbl::DriverDMS)>(),
    &RenderPlugin::CommandCallback,
    &RenderPlugin::ImageProcessing,
    &RenderPlugin::FilterGraphics,
    NotImplementedSlot<decltype(IPrintOemUniVtbl::Compression)>(),
    NotImplementedSlot<decltype(IPrintOemUniVtbl::HalftonePattern)>(),
    NotImplementedSlot<decltype(IPrintOemUniVtbl::MemoryUsage)>(),
    NotImplementedSlot<decltype(IPrintOemUniVtbl::DownloadFontHeader)>(),
    NotImplementedSlot<decltype(IPrintOemUniVtbl::DownloadCharGlyph)>(),
    NotImplementedSlot<decltype(IPrintOemUniVtbl::TTDownloadMethod)>(),
    NotImplementedSlot<decltype(IPrintOemUniVtbl::OutputCharStr)>(),
    NotImplementedSlot<decltype(IPrintOemUniVtbl::SendFontCmd)>(),
    NotImplementedSlot<decltype(IPrintOemUniVtbl::TextOutAsBitmap)>(),
    NotImplementedSlot<decltype(IPrintOemUniVtbl::TTYGetInfo)>(),
};

RenderPlugin::RenderPlugin() : vtbl_(&kVtbl) {}

RenderPlugin* RenderPlugin::Create() {
  static_assert(std::is_standard_layout_v<RenderPlugin>, "the interface table must be the first field");
  return new (std::nothrow) RenderPlugin();
}

HRESULT RenderPlugin::QueryInterface(IPrintOemUni* self, const GUID* riid, void** ppv) {
  if (!ppv) return E_FAIL;
  if (riid && (*riid == IID_IUnknown || *riid == IID_IPrintOemUni)) {
    *ppv = self;
    AddRef(self);
    return S_OK;
  }
  *ppv = nullptr;
  return E_NOINTERFACE;
}

ULONG RenderPlugin::AddRef(IPrintOemUni* self) { return static_cast<ULONG>(From(self)->refs_.fetch_add(1) + 1); }

ULONG RenderPlugin::Release(IPrintOemUni* self) {
  RenderPlugin* plugin = From(self);
  const std::int32_t count = plugin->refs_.fetch_sub(1) - 1;
  if (count != 0) return static_cast<ULONG>(count);
  if (IPrintOemDriverUni* driver = plugin->driver_) {
    plugin->driver_ = nullptr;
    driver->lpVtbl->Release(driver);
  }
  delete plugin;
  return 0;
}

HRESULT RenderPlugin::GetInfo(IPrintOemUni*, DWORD mode, PVOID buffer, DWORD size, DWORD* needed) {
  if (mode != OEMGI_GETSIGNATURE && mode != OEMGI_GETINTERFACEVERSION && mode != OEMGI_GETVERSION) {
    if (needed) *needed = 0;
    return E_FAIL;
  }
  if (!needed) return E_FAIL;
  *needed = sizeof(DWORD);
  if (!buffer || size < sizeof(DWORD)) return E_FAIL;
  const DWORD value = mode == OEMGI_GETSIGNATURE ? kPluginSignature : OEM_INTERFACE_VERSION;
  std::memcpy(buffer, &value, sizeof value);
  return S_OK;
}

HRESULT RenderPlugin::EnableDriver(IPrintOemUni*, DWORD driverVersion, DWORD size, DRVENABLEDATA* ded) {
  if (driverVersion != OEM_INTERFACE_VERSION || size < sizeof(DRVENABLEDATA) || !ded) return E_FAIL;
  ded->iDriverVersion = OEM_INTERFACE_VERSION;
  ded->c = 0;  // no graphics calls are hooked
  return S_OK;
}

HRESULT RenderPlugin::EnablePDEV(IPrintOemUni*, DEVOBJ* devobj, WCHAR*, ULONG, void**, ULONG, GDIINFO* gdiInfo, ULONG,
                                 void*, DRVENABLEDATA*, void** outDeviceState) {
  return EnableDevice(devobj, gdiInfo, outDeviceState);
}

HRESULT RenderPlugin::DisablePDEV(IPrintOemUni*, DEVOBJ* devobj) {
  DisableDevice(devobj);
  return S_OK;
}

HRESULT RenderPlugin::PublishDriverInterface(IPrintOemUni* self, IUnknown* driver) {
  RenderPlugin* plugin = From(self);
  if (plugin->driver_) return S_OK;  // the first interface is kept
  if (!driver) return E_FAIL;
  void* held = nullptr;
  const HRESULT hr = driver->lpVtbl->QueryInterface(driver, &IID_IPrintOemDriverUni, &held);
  if (Failed(hr)) {
    plugin->driver_ = nullptr;
    return E_FAIL;
  }
  plugin->driver_ = static_cast<IPrintOemDriverUni*>(held);
  return S_OK;
}

HRESULT RenderPlugin::GetImplementedMethod(IPrintOemUni*, char* name) {
  if (!name) return E_FAIL;
  return IsImplemented(name) ? S_OK : E_FAIL;
}

HRESULT RenderPlugin::CommandCallback(IPrintOemUni* self, DEVOBJ* devobj, DWORD callbackId, DWORD count, DWORD*, INT*) {
  HandleCommand(devobj, callbackId, count, From(self)->driver_);
  return S_OK;
}

HRESULT RenderPlugin::ImageProcessing(IPrintOemUni* self, DEVOBJ* devobj, BYTE* bits, BITMAPINFOHEADER* header,
                                      BYTE* colorTable, DWORD callbackId, IPPARAMS* params, BYTE** result) {
  const DeviceState* state = StateOf(devobj);
  if (!state || state->InitFailed) return E_FAIL;
  RenderPlugin* plugin = From(self);
  // A band the plug-in cannot read is refused rather than guessed at.
  if (!bits || !header || !params || !plugin->driver_ || !BandFitsDevice(devobj, *header, *params)) return E_FAIL;
  ProcessBand(devobj, bits, header, colorTable, callbackId, params, plugin->driver_);
  if (result) *result = reinterpret_cast<BYTE*>(std::uintptr_t{1});  // consumed; no bitmap comes back
  return S_OK;
}

HRESULT RenderPlugin::FilterGraphics(IPrintOemUni*, DEVOBJ*, BYTE*, DWORD) { return S_OK; }

}  // namespace inkweave
