#include "host/spool.h"

#include <cstring>

namespace inkweave::host {
namespace {

HRESULT INKWEAVE_STDCALL NotImplemented() { return E_NOTIMPL; }

// The service slots the plug-in never calls answer E_NOTIMPL, each with its own signature.
HRESULT INKWEAVE_STDCALL GetDriverSetting(IPrintOemDriverUni*, void*, const char*, void*, DWORD, DWORD*, DWORD*) {
  return NotImplemented();
}
HRESULT INKWEAVE_STDCALL MoveTo(IPrintOemDriverUni*, DEVOBJ*, INT, DWORD, INT*) { return NotImplemented(); }
HRESULT INKWEAVE_STDCALL GetStandardVariable(IPrintOemDriverUni*, DEVOBJ*, DWORD, void*, DWORD, DWORD*) {
  return NotImplemented();
}
HRESULT INKWEAVE_STDCALL GetGPDData(IPrintOemDriverUni*, DEVOBJ*, DWORD, void*, void*, DWORD, DWORD*) {
  return NotImplemented();
}
HRESULT INKWEAVE_STDCALL UniTextOut(IPrintOemDriverUni*, void*, void*, void*, void*, void*, void*, void*, void*, void*,
                                    DWORD) {
  return NotImplemented();
}

}  // namespace

SpoolService::SpoolService() {
  static const IPrintOemDriverUniVtbl kVtbl = {
      &SpoolService::QueryInterface,
      &SpoolService::AddRef,
      &SpoolService::Release,
      &GetDriverSetting,
      &SpoolService::WriteSpoolBuf,
      &MoveTo,
      &MoveTo,
      &GetStandardVariable,
      &GetGPDData,
      &UniTextOut,
      &SpoolService::WriteAbortBuf,
  };
  static const IUnknownVtbl kUnknownVtbl = {
      &SpoolService::UnknownQueryInterface,
      &SpoolService::UnknownAddRef,
      &SpoolService::UnknownRelease,
  };
  object_.iface.lpVtbl = &kVtbl;
  object_.owner = this;
  object_.refs.store(1);
  unknown_.iface.lpVtbl = &kUnknownVtbl;
  unknown_.object = &object_;
}

// One object, two tables: IUnknown answers with its own table (the object's identity), the service
// with the other; both share the count.
HRESULT SpoolService::Query(Object* object, const GUID* riid, void** ppv) {
  if (!ppv) return E_FAIL;
  *ppv = nullptr;
  if (!riid) return E_NOINTERFACE;
  if (*riid == IID_IPrintOemDriverUni)
    *ppv = &object->iface;
  else if (*riid == IID_IUnknown)
    *ppv = &object->owner->unknown_.iface;
  else
    return E_NOINTERFACE;
  object->refs.fetch_add(1);
  return S_OK;
}

HRESULT SpoolService::QueryInterface(IPrintOemDriverUni* self, const GUID* riid, void** ppv) {
  return Query(reinterpret_cast<Object*>(self), riid, ppv);
}

HRESULT SpoolService::UnknownQueryInterface(IUnknown* self, const GUID* riid, void** ppv) {
  return Query(reinterpret_cast<UnknownObject*>(self)->object, riid, ppv);
}

ULONG SpoolService::UnknownAddRef(IUnknown* self) {
  return reinterpret_cast<UnknownObject*>(self)->object->refs.fetch_add(1) + 1;
}

ULONG SpoolService::UnknownRelease(IUnknown* self) {
  return reinterpret_cast<UnknownObject*>(self)->object->refs.fetch_sub(1) - 1;
}

ULONG SpoolService::AddRef(IPrintOemDriverUni* self) { return reinterpret_cast<Object*>(self)->refs.fetch_add(1) + 1; }

ULONG SpoolService::Release(IPrintOemDriverUni* self) {
  // The service lives as long as its owner; the count only tells tests the plug-in balanced it.
  return reinterpret_cast<Object*>(self)->refs.fetch_sub(1) - 1;
}

HRESULT SpoolService::WriteSpoolBuf(IPrintOemDriverUni* self, DEVOBJ*, void* buffer, DWORD size, DWORD* written) {
  HRESULT hr = reinterpret_cast<Object*>(self)->owner->Record(buffer, size, false, 0);
  if (written) *written = hr == S_OK ? size : 0;
  return hr;
}

HRESULT SpoolService::WriteAbortBuf(IPrintOemDriverUni* self, DEVOBJ*, void* buffer, DWORD size, DWORD waitMs) {
  return reinterpret_cast<Object*>(self)->owner->Record(buffer, size, true, waitMs);
}

HRESULT SpoolService::Record(const void* buffer, DWORD size, bool abort, DWORD waitMs) {
  ++count_;
  HRESULT answer = S_OK;
  if (faults_.FailAt != 0 && (count_ == faults_.FailAt || (faults_.FailAllAfter && count_ > faults_.FailAt)))
    answer = faults_.FailCode;
  const auto* bytes = static_cast<const std::uint8_t*>(buffer);
  if (answer == S_OK) {
    bytes_ += size;
    if (sink_ && size) sink_(bytes, size);
  }
  if (keep_) {
    SpoolWrite w;
    if (size) w.Bytes.assign(bytes, bytes + size);
    w.Abort = abort;
    w.WaitMs = waitMs;
    w.Answer = answer;
    writes_.push_back(std::move(w));
  }
  return answer;
}

std::vector<std::uint8_t> SpoolService::Stream() const {
  std::vector<std::uint8_t> out;
  for (const SpoolWrite& w : writes_)
    if (w.Answer == S_OK) out.insert(out.end(), w.Bytes.begin(), w.Bytes.end());
  return out;
}

}  // namespace inkweave::host
