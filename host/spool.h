// The host's spool service: a small IPrintOemDriverUni that records every byte the plug-in writes,
// one entry per write, and can fail a chosen write to test the plug-in's failure paths.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

#include "platform/platform.h"

namespace inkweave::host {

// One call of DrvWriteSpoolBuf or DrvWriteAbortBuf.
struct SpoolWrite {
  std::vector<std::uint8_t> Bytes;
  bool Abort = false;        // written through DrvWriteAbortBuf
  std::uint32_t WaitMs = 0;  // the abort write's wait
  HRESULT Answer = S_OK;     // what the host answered
};

// Which spool writes fail. Writes are counted from 1 over the life of the spool.
struct WriteFaults {
  std::uint32_t FailAt = 0;   // 0: no write fails
  bool FailAllAfter = false;  // also fail every write after FailAt
  HRESULT FailCode = E_FAIL;  // the failing answer
};

class SpoolService {
 public:
  SpoolService();
  SpoolService(const SpoolService&) = delete;
  SpoolService& operator=(const SpoolService&) = delete;

  // The interface handed to the plug-in (through QueryInterface on Unknown()).
  IPrintOemDriverUni* Interface() { return &object_.iface; }
  // The service's IUnknown: a table of its own whose methods take an IUnknown, so that a caller holding
  // only IUnknown calls each method through its own type.
  IUnknown* Unknown() { return &unknown_.iface; }

  void SetFaults(const WriteFaults& faults) { faults_ = faults; }
  // Called with each successful write's bytes as it arrives (streaming output).
  void SetSink(std::function<void(const std::uint8_t*, std::size_t)> sink) { sink_ = std::move(sink); }
  // Keep every write in Writes() (on by default; off for long jobs that stream to a sink).
  void SetKeepWrites(bool keep) { keep_ = keep; }

  const std::vector<SpoolWrite>& Writes() const { return writes_; }
  std::vector<std::uint8_t> Stream() const;  // every accepted byte, in order, abort writes included
  std::uint32_t WriteCount() const { return count_; }
  std::uint64_t ByteCount() const { return bytes_; }
  std::uint32_t References() const { return object_.refs.load(); }

 private:
  struct Object {
    IPrintOemDriverUni iface;
    SpoolService* owner;
    std::atomic<std::uint32_t> refs;
  };
  struct UnknownObject {
    IUnknown iface;
    Object* object;
  };
  static HRESULT INKWEAVE_STDCALL QueryInterface(IPrintOemDriverUni* self, const GUID* riid, void** ppv);
  static HRESULT INKWEAVE_STDCALL UnknownQueryInterface(IUnknown* self, const GUID* riid, void** ppv);
  static ULONG INKWEAVE_STDCALL UnknownAddRef(IUnknown* self);
  static ULONG INKWEAVE_STDCALL UnknownRelease(IUnknown* self);
  static HRESULT Query(Object* object, const GUID* riid, void** ppv);
  static ULONG INKWEAVE_STDCALL AddRef(IPrintOemDriverUni* self);
  static ULONG INKWEAVE_STDCALL Release(IPrintOemDriverUni* self);
  static HRESULT INKWEAVE_STDCALL WriteSpoolBuf(IPrintOemDriverUni* self, DEVOBJ* devobj, void* buffer, DWORD size,
                                                DWORD* written);
  static HRESULT INKWEAVE_STDCALL WriteAbortBuf(IPrintOemDriverUni* self, DEVOBJ* devobj, void* buffer, DWORD size,
                                                DWORD waitMs);
  HRESULT Record(const void* buffer, DWORD size, bool abort, DWORD waitMs);

  Object object_;
  UnknownObject unknown_;
  WriteFaults faults_;
  std::function<void(const std::uint8_t*, std::size_t)> sink_;
  bool keep_ = true;
  std::vector<SpoolWrite> writes_;
  std::uint32_t count_ = 0;
  std::uint64_t bytes_ = 0;
};

}  // namespace inkweave::host
