// The class factory and the module-wide counters behind DllGetClassObject and DllCanUnloadNow.
#include <new>
#include <type_traits>

#include "src/plugin/render_plugin.h"

namespace inkweave {

void* ModuleHandle = nullptr;
std::atomic<std::int32_t> ObjectCount{0};
std::atomic<std::int32_t> LockCount{0};

const IClassFactoryVtbl RenderPluginFactory::kVtbl = {
    &RenderPluginFactory::QueryInterface, &RenderPluginFactory::AddRef,     &RenderPluginFactory::Release,
    &RenderPluginFactory::CreateInstance, &RenderPluginFactory::LockServer,
};

RenderPluginFactory::RenderPluginFactory() : vtbl_(&kVtbl) {}

RenderPluginFactory* RenderPluginFactory::Create() {
  static_assert(std::is_standard_layout_v<RenderPluginFactory>, "the interface table must be the first field");
  return new (std::nothrow) RenderPluginFactory();
}

HRESULT RenderPluginFactory::QueryInterface(IClassFactory* self, const GUID* riid, void** ppv) {
  if (!ppv) return E_FAIL;
  if (riid && (*riid == IID_IUnknown || *riid == IID_IClassFactory)) {
    *ppv = self;
    AddRef(self);
    return S_OK;
  }
  *ppv = nullptr;
  return E_NOINTERFACE;
}

ULONG RenderPluginFactory::AddRef(IClassFactory* self) {
  return static_cast<ULONG>(From(self)->refs_.fetch_add(1) + 1);
}

ULONG RenderPluginFactory::Release(IClassFactory* self) {
  RenderPluginFactory* factory = From(self);
  const std::int32_t count = factory->refs_.fetch_sub(1) - 1;
  if (count != 0) return static_cast<ULONG>(count);
  delete factory;
  return 0;
}

HRESULT RenderPluginFactory::CreateInstance(IClassFactory*, IUnknown* outer, const GUID* riid, void** ppv) {
  if (outer) return CLASS_E_NOAGGREGATION;
  RenderPlugin* plugin = RenderPlugin::Create();
  if (!plugin) return E_OUTOFMEMORY;
  IPrintOemUni* object = plugin->Interface();
  const HRESULT hr = object->lpVtbl->QueryInterface(object, riid, ppv);
  object->lpVtbl->Release(object);  // a failed query destroys the object again
  return hr;
}

HRESULT RenderPluginFactory::LockServer(IClassFactory*, BOOL lock) {
  if (lock)
    LockCount.fetch_add(1);
  else
    LockCount.fetch_sub(1);
  return S_OK;
}

HRESULT GetClassObject(const GUID* rclsid, const GUID* riid, void** ppv) {
  if (!rclsid || !(*rclsid == CLSID_RenderPlugin)) return CLASS_E_CLASSNOTAVAILABLE;
  RenderPluginFactory* factory = RenderPluginFactory::Create();
  if (!factory) return E_OUTOFMEMORY;
  IClassFactory* object = factory->Interface();
  const HRESULT hr = object->lpVtbl->QueryInterface(object, riid, ppv);
  object->lpVtbl->Release(object);
  return hr;
}

HRESULT CanUnloadNow() { return ObjectCount.load() != 0 || LockCount.load() != 0 ? S_FALSE : S_OK; }

}  // namespace inkweave
