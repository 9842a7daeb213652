// Our host driver. It drives the render plug-in exactly as the platform's printer driver does, only
// through the library's two exports and the interface tables:
//
//   DllGetClassObject → IClassFactory::CreateInstance → IPrintOemUni
//   GetInfo, GetImplementedMethod, EnableDriver, PublishDriverInterface(our spool service)
//   EnablePDEV(DEVOBJ with DEVMODEW, GDIINFO) → device state in DEVOBJ::pdevOEM
//   CommandCallback(selections, 22 job start, 20 page start, bands via ImageProcessing, 21 page end,
//   23 job end), DisablePDEV, Release.
//
// The plug-in can come from a shared library (LoadPluginLibrary) or be linked in (pass the address
// of the statically linked DllGetClassObject). Every byte it writes is collected by SpoolService.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/spool.h"
#include "platform/platform.h"

namespace inkweave::host {

// The plug-in library's entry points.
struct PluginEntry {
  DllGetClassObjectFn GetClassObject = nullptr;
  DllCanUnloadNowFn CanUnloadNow = nullptr;
};

// Where a program finds the plug-in library: $INKWEAVE_PLUGIN when set; `fromProgram`, a path relative
// to the program's own folder (its installed layout), when that file exists; `installPath` when it
// exists; else `buildPath`, the library of the build tree the program was built in.
std::string FindPluginLibrary(const std::string& fromProgram, const std::string& installPath,
                              const std::string& buildPath);

// A plug-in shared library opened with dlopen (LoadLibrary on Windows); closed on destruction.
class PluginLibrary {
 public:
  // Null, with the reason in *error, when the library or one of its exports cannot be had.
  static std::unique_ptr<PluginLibrary> Open(const std::string& path, std::string* error);
  ~PluginLibrary();
  PluginLibrary(const PluginLibrary&) = delete;
  PluginLibrary& operator=(const PluginLibrary&) = delete;
  const PluginEntry& Entry() const { return entry_; }

 private:
  PluginLibrary() = default;
  void* handle_ = nullptr;
  PluginEntry entry_;
};

// How the device context is set up: what the host puts in DEVMODEW and GDIINFO.
struct DeviceSetup {
  std::int16_t PaperSize = DMPAPER_A4;  // platform paper size number
  std::int16_t Quality = 300;           // dmPrintQuality, dpi
  bool Color = true;                    // dmColor 2 (colour) or 1 (monochrome)
  bool Landscape = false;               // dmOrientation 2
  // The portrait page in device pixels (printable area). The host's surface is this page, turned
  // for landscape, so GDIINFO carries the long side as ulHorzRes in landscape.
  std::uint32_t PageWidth = 0;
  std::uint32_t PageHeight = 0;
};

// Callback ids of the printer description.
enum : DWORD {
  kCallbackDither = 11,
  kCallbackErrorDiffusion = 12,
  kCallbackHighResolution = 14,
  kCallbackMediaPlain = 15,
  kCallbackMediaInkjet = 16,
  kCallbackMediaGlossy = 17,
  kCallbackMediaPhoto = 18,
  kCallbackPageStart = 20,
  kCallbackPageEnd = 21,
  kCallbackJobStart = 22,
  kCallbackJobEnd = 23,
};

// What the host learnt from the plug-in when it loaded it.
struct PluginInfo {
  DWORD Signature = 0;
  DWORD InterfaceVersion = 0;
  DWORD Version = 0;
  bool ImplementsImageProcessing = false;
  bool ImplementsCommandCallback = false;
  bool ImplementsFilterGraphics = false;
};

// One band as the host hands it over.
struct Band {
  const std::uint8_t* Bits = nullptr;  // top-down rows at the 24-bit stride
  std::int32_t Width = 0;              // pixels
  std::int32_t Height = 0;             // pixels
  std::uint16_t BitCount = 24;         // 24, 8 or 1
  std::int32_t OffsetX = 0;            // the band's place on the page
  std::int32_t OffsetY = 0;
  bool Blank = false;  // nothing was drawn in this band
};

// A device context of the plug-in, from EnablePDEV to DisablePDEV.
class HostSession {
 public:
  explicit HostSession(PluginEntry entry);
  ~HostSession();
  HostSession(const HostSession&) = delete;
  HostSession& operator=(const HostSession&) = delete;

  // Creates the plug-in object and asks it what the host asks. S_OK or the failing result.
  HRESULT Load();
  // Fills DEVMODEW and GDIINFO and calls EnablePDEV. Answers EnablePDEV's result.
  HRESULT Enable(const DeviceSetup& setup);
  HRESULT Command(DWORD callbackId);
  HRESULT ImageProcessing(const Band& band);
  // DisablePDEV (also after a failed EnablePDEV, whose record the host still holds).
  HRESULT Disable();
  // Releases the plug-in object; answers the count Release returned.
  ULONG Unload();

  const PluginInfo& Info() const { return info_; }
  const DeviceSetup& Setup() const { return setup_; }
  SpoolService& Spool() { return spool_; }
  IPrintOemUni* Plugin() { return plugin_; }
  DEVOBJ* DeviceObject() { return &devobj_; }
  bool Enabled() const { return enabled_; }

 private:
  PluginEntry entry_;
  IPrintOemUni* plugin_ = nullptr;
  PluginInfo info_;
  SpoolService spool_;
  DeviceSetup setup_;
  DEVMODEW devmode_{};
  GDIINFO gdiInfo_{};
  DEVOBJ devobj_{};
  bool enabled_ = false;
};

// The row stride the plug-in reads a band at: the 4-byte aligned length of a 24-bit row, whatever the
// band's bit count. Computed in 64 bits: no width overflows it.
constexpr std::int64_t BandRowStride(std::int64_t width) { return ((width + 1) * 3) & ~std::int64_t{3}; }

// The largest band the host hands over: its size must fit the bitmap header's 32-bit image size.
inline constexpr std::uint64_t kMaxBandBytes = 0xFFFFFFFF;

// Whether a band holds nothing but white pixels (every byte 0xFF): such a band goes out marked blank.
bool IsBlankBand(const std::uint8_t* bits, std::int32_t width, std::int32_t height, std::size_t stride,
                 std::uint16_t bitsPerPixel);

// A page the host renders band by band. Render fills the rectangle (x, y, w, h) of the host's surface
// (the landscape page in landscape) into dst, one row every dstStride bytes, at BitsPerPixel (24: R,
// G, B per pixel; 8: one gray byte per pixel), over white. It answers false to stop the page (the host
// then hands no further bands).
// A source that holds each band already laid out as the plug-in reads it lends it instead, and the
// host then has no band buffer of its own: Lend answers the rectangle's pixels, rows BandRowStride(w)
// apart (the bytes past a row's pixels white), in a buffer of exactly BandRowStride(w) * h bytes that
// stays as it is until GiveBack, which the host calls once the band has gone out; null stops the page.
struct PageSource {
  std::int32_t Width = 0;   // surface width, pixels
  std::int32_t Height = 0;  // surface height, pixels
  std::uint16_t BitsPerPixel = 24;
  std::function<bool(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h, std::uint8_t* dst,
                     std::size_t dstStride)>
      Render;
  std::function<const std::uint8_t*(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h)> Lend = {};
  std::function<void()> GiveBack = {};
};

struct PageResult {
  HRESULT Status = S_OK;  // the first failing ImageProcessing result, if any (E_FAIL with Problem: see below)
  std::string Problem;    // why the page was not started, when the source's geometry is unusable
  int Bands = 0;
  bool Stopped = false;  // the source asked to stop
};

// Hands one page (page start, bands, page end) to the plug-in. Portrait: horizontal slices of
// bandHeight rows from the top. Landscape: vertical slices of bandHeight columns from x = 0, each
// the full landscape height. Bands with nothing but white pixels go out marked blank.
// Every band comes in a buffer of exactly its size. A source whose bands would not fit a bitmap header
// (absurd sizes) is refused before the page starts: Status E_FAIL with the cause in Problem.
// onBand, when given, is told after every band (for progress).
PageResult PrintPage(HostSession& session, const PageSource& source, std::int32_t bandHeight,
                     const std::function<void(int band, int bands)>& onBand = {});

// Sends the device-setting selections in the order that reaches every mode: the high-resolution
// command first (a monochrome device reaches the high-resolution mode only from the unmarked 600 dpi
// mode, before a halftone selection has added its monochrome bit), then the halftone, then the media
// (kCallbackMediaPlain..kCallbackMediaPhoto; 0 sends none).
void SelectModes(HostSession& session, bool diffusion, bool highResolution, DWORD media = 0);

}  // namespace inkweave::host
