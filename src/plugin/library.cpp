// The library's exports: the only two symbols the plug-in library makes visible.
#include "src/plugin/render_plugin.h"

#if defined(_WIN32)
#define INKWEAVE_EXPORT extern "C" __declspec(dllexport)
#else
#define INKWEAVE_EXPORT extern "C" __attribute__((visibility("default")))
#endif

INKWEAVE_EXPORT HRESULT INKWEAVE_STDCALL DllGetClassObject(const GUID* rclsid, const GUID* riid, void** ppv) {
  return inkweave::GetClassObject(rclsid, riid, ppv);
}

INKWEAVE_EXPORT HRESULT INKWEAVE_STDCALL DllCanUnloadNow() { return inkweave::CanUnloadNow(); }

#if defined(_WIN32)
// The process attach/detach entry, called through the C runtime's DLL start-up (<windows.h> is kept
// out of this file, see platform.h).
extern "C" BOOL INKWEAVE_STDCALL DllMain(void* instance, DWORD reason, void*) {
  if (reason == DLL_PROCESS_ATTACH) inkweave::ModuleHandle = instance;
  return 1;
}
#endif
