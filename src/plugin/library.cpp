// The library's exports: the only two symbols the plug-in library makes visible.
#include "src/plugin/render_plugin.h"

#if defined(_WIN32)
#include <windows.h>
#define INKWEAVE_EXPORT extern "C" __declspec(dllexport)
#else
#define INKWEAVE_EXPORT extern "C" __attribute__((visibility("default")))
#endif

INKWEAVE_EXPORT HRESULT INKWEAVE_STDCALL DllGetClassObject(const GUID* rclsid, const GUID* riid, void** ppv) {
  return inkweave::GetClassObject(rclsid, riid, ppv);
}

INKWEAVE_EXPORT HRESULT INKWEAVE_STDCALL DllCanUnloadNow() { return inkweave::CanUnloadNow(); }

#if defined(_WIN32)
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) inkweave::ModuleHandle = instance;
  return TRUE;
}
#endif
