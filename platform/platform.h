// The printer-driver platform ABI: scalar types, records, GUIDs and the COM-style interfaces that the
// plug-in implements (IClassFactory, IPrintOemUni) and that the host offers (IPrintOemDriverUni).
//
// Layout is identical to the Windows x64 headers; every offset and size that the plug-in or the host
// relies on is pinned with a static_assert at the end of this file. Interfaces are declared the COM
// way, as a record whose first field points to a table of function pointers in fixed slot order, so
// the same declarations work from C++ on Linux and against the Windows host driver.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(_WIN32)
#define INKWEAVE_STDCALL __stdcall
#else
#define INKWEAVE_STDCALL
#endif

// ---------------------------------------------------------------------------------------------------
// Scalar types: the same width on every target (ULONG is 32 bits, not `unsigned long`).
// ---------------------------------------------------------------------------------------------------
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using ULONG = std::uint32_t;
using SHORT = std::int16_t;
using LONG = std::int32_t;
using INT = std::int32_t;
using BOOL = std::int32_t;
using HRESULT = std::int32_t;
using WCHAR = char16_t;
using PVOID = void*;
using HANDLE = void*;

// Result codes.
inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001u);
inline constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002u);
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
inline constexpr HRESULT CLASS_E_NOAGGREGATION = static_cast<HRESULT>(0x80040110u);
inline constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = static_cast<HRESULT>(0x80040111u);

constexpr bool Failed(HRESULT hr) { return hr < 0; }

// ---------------------------------------------------------------------------------------------------
// GUIDs
// ---------------------------------------------------------------------------------------------------
struct GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
};

constexpr bool operator==(const GUID& a, const GUID& b) {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
  for (int i = 0; i < 8; ++i)
    if (a.Data4[i] != b.Data4[i]) return false;
  return true;
}

// {6D6ABF26-9F38-11D1-882A-00C04FB961EC}: the render plug-in's class.
inline constexpr GUID CLSID_RenderPlugin = {
    0x6D6ABF26, 0x9F38, 0x11D1, {0x88, 0x2A, 0x00, 0xC0, 0x4F, 0xB9, 0x61, 0xEC}};
inline constexpr GUID IID_IUnknown = {0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr GUID IID_IClassFactory = {
    0x00000001, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr GUID IID_IPrintOemUni = {0xD67EBBF0, 0x78BF, 0x11D1, {0x94, 0x80, 0x00, 0xA0, 0xC9, 0x06, 0x40, 0xB8}};
inline constexpr GUID IID_IPrintOemDriverUni = {
    0xD67EBBF1, 0x78BF, 0x11D1, {0x94, 0x80, 0x00, 0xA0, 0xC9, 0x06, 0x40, 0xB8}};

// ---------------------------------------------------------------------------------------------------
// Records
// ---------------------------------------------------------------------------------------------------
struct IPrintOemDriverUni;

// The host's device object, handed to every per-device call.
struct DEVOBJ {
  DWORD dwSize;   // bytes
  PVOID pdevOEM;  // the plug-in's device state, as EnablePDEV returned it
  PVOID hEngine;
  HANDLE hPrinter;
  HANDLE hOEM;
  struct DEVMODEW* pPublicDM;  // the public device mode
  PVOID pOEMDM;
  IPrintOemDriverUni* pDrvProcs;
};

// The public device mode (printer form of the position union).
struct DEVMODEW {
  WCHAR dmDeviceName[32];
  WORD dmSpecVersion;
  WORD dmDriverVersion;
  WORD dmSize;         // bytes
  WORD dmDriverExtra;  // bytes
  DWORD dmFields;
  SHORT dmOrientation;  // 1 portrait, 2 landscape
  SHORT dmPaperSize;    // platform paper size number
  SHORT dmPaperLength;  // 1/10 mm
  SHORT dmPaperWidth;   // 1/10 mm
  SHORT dmScale;        // percent
  SHORT dmCopies;
  SHORT dmDefaultSource;
  SHORT dmPrintQuality;  // dpi when positive; -1..-4 draft..high codes
  SHORT dmColor;         // 1 monochrome, 2 colour
  SHORT dmDuplex;
  SHORT dmYResolution;  // dpi
  SHORT dmTTOption;
  SHORT dmCollate;
  WCHAR dmFormName[32];
  WORD dmLogPixels;
  DWORD dmBitsPerPel;
  DWORD dmPelsWidth;
  DWORD dmPelsHeight;
  DWORD dmNup;
  DWORD dmDisplayFrequency;
  DWORD dmICMMethod;
  DWORD dmICMIntent;
  DWORD dmMediaType;
  DWORD dmDitherType;
  DWORD dmReserved1;
  DWORD dmReserved2;
  DWORD dmPanningWidth;
  DWORD dmPanningHeight;
};

inline constexpr SHORT DMORIENT_PORTRAIT = 1;
inline constexpr SHORT DMORIENT_LANDSCAPE = 2;
inline constexpr SHORT DMCOLOR_MONOCHROME = 1;
inline constexpr SHORT DMCOLOR_COLOR = 2;

// Platform paper size numbers used by the device.
inline constexpr SHORT DMPAPER_LETTER = 1;
inline constexpr SHORT DMPAPER_LEGAL = 5;
inline constexpr SHORT DMPAPER_EXECUTIVE = 7;
inline constexpr SHORT DMPAPER_A3 = 8;
inline constexpr SHORT DMPAPER_A4 = 9;
inline constexpr SHORT DMPAPER_A5 = 11;
inline constexpr SHORT DMPAPER_ENV_10 = 20;
inline constexpr SHORT DMPAPER_ENV_DL = 27;
inline constexpr SHORT DMPAPER_ENV_C5 = 28;
inline constexpr SHORT DMPAPER_ENV_C4 = 30;
inline constexpr SHORT DMPAPER_ENV_B5 = 34;
inline constexpr SHORT DMPAPER_ENV_MONARCH = 37;

struct POINTL {
  LONG x;
  LONG y;
};
struct SIZEL {
  LONG cx;
  LONG cy;
};
struct CIECHROMA {
  LONG x;
  LONG y;
  LONG Y;
};
struct COLORINFO {
  CIECHROMA Red, Green, Blue, Cyan, Magenta, Yellow, AlignmentWhite;
  LONG RedGamma, GreenGamma, BlueGamma;
  LONG MagentaInCyanDye, YellowInCyanDye, CyanInMagentaDye;
  LONG YellowInMagentaDye, CyanInYellowDye, MagentaInYellowDye;
};

// The GDI information record of a device context. The plug-in reads only ulHorzRes and ulVertRes.
struct GDIINFO {
  ULONG ulVersion;
  ULONG ulTechnology;
  ULONG ulHorzSize;  // mm
  ULONG ulVertSize;  // mm
  ULONG ulHorzRes;   // printable width, device pixels
  ULONG ulVertRes;   // printable height, device pixels
  ULONG cBitsPixel;
  ULONG cPlanes;
  ULONG ulNumColors;
  ULONG flRaster;
  ULONG ulLogPixelsX;  // dpi
  ULONG ulLogPixelsY;  // dpi
  ULONG flTextCaps;
  ULONG ulDACRed;
  ULONG ulDACGreen;
  ULONG ulDACBlue;
  ULONG ulAspectX;
  ULONG ulAspectY;
  ULONG ulAspectXY;
  LONG xStyleStep;
  LONG yStyleStep;
  LONG denStyleStep;
  POINTL ptlPhysOffset;
  SIZEL szlPhysSize;
  ULONG ulNumPalReg;
  COLORINFO ciDevice;
  ULONG ulDevicePelsDPI;
  ULONG ulPrimaryOrder;
  ULONG ulHTPatternSize;
  ULONG ulHTOutputFormat;
  ULONG flHTFlags;
  ULONG ulVRefresh;
  ULONG ulBltAlignment;
  ULONG ulPanningHorzRes;
  ULONG ulPanningVertRes;
  ULONG xPanningAlignment;
  ULONG yPanningAlignment;
  ULONG cxHTPat;
  ULONG cyHTPat;
  BYTE* pHTPatA;
  BYTE* pHTPatB;
  BYTE* pHTPatC;
  ULONG flShadeBlend;
  ULONG ulPhysicalPixelCharacteristics;
  ULONG ulPhysicalPixelGamma;
};

struct DRVFN {
  ULONG iFunc;
  PVOID pfn;
};

struct DRVENABLEDATA {
  ULONG iDriverVersion;
  ULONG c;  // number of hooked functions
  DRVFN* pdrvfn;
};

// Image-processing parameters of one band.
struct IPPARAMS {
  DWORD dwSize;     // bytes
  POINTL ptOffset;  // the band's offset on the page, pixels
  char* pHalftoneOption;
  BOOL bBanding;
  BOOL bBlankBand;  // TRUE: nothing was drawn in this band
};

struct BITMAPINFOHEADER {
  DWORD biSize;   // bytes (40)
  LONG biWidth;   // pixels
  LONG biHeight;  // pixels
  WORD biPlanes;
  WORD biBitCount;  // 24, 8 or 1
  DWORD biCompression;
  DWORD biSizeImage;  // bytes
  LONG biXPelsPerMeter;
  LONG biYPelsPerMeter;
  DWORD biClrUsed;
  DWORD biClrImportant;
};

// ---------------------------------------------------------------------------------------------------
// Interfaces. Each object starts with a pointer to its table; slot order is fixed by the platform.
// ---------------------------------------------------------------------------------------------------
struct IUnknown;

struct IUnknownVtbl {
  HRESULT(INKWEAVE_STDCALL* QueryInterface)(IUnknown* self, const GUID* riid, void** ppv);
  ULONG(INKWEAVE_STDCALL* AddRef)(IUnknown* self);
  ULONG(INKWEAVE_STDCALL* Release)(IUnknown* self);
};
struct IUnknown {
  const IUnknownVtbl* lpVtbl;
};

struct IClassFactory;
struct IClassFactoryVtbl {
  HRESULT(INKWEAVE_STDCALL* QueryInterface)(IClassFactory* self, const GUID* riid, void** ppv);
  ULONG(INKWEAVE_STDCALL* AddRef)(IClassFactory* self);
  ULONG(INKWEAVE_STDCALL* Release)(IClassFactory* self);
  HRESULT(INKWEAVE_STDCALL* CreateInstance)(IClassFactory* self, IUnknown* outer, const GUID* riid, void** ppv);
  HRESULT(INKWEAVE_STDCALL* LockServer)(IClassFactory* self, BOOL lock);
};
struct IClassFactory {
  const IClassFactoryVtbl* lpVtbl;
};

struct IPrintOemUni;
struct IPrintOemUniVtbl {
  HRESULT(INKWEAVE_STDCALL* QueryInterface)(IPrintOemUni* self, const GUID* riid, void** ppv);
  ULONG(INKWEAVE_STDCALL* AddRef)(IPrintOemUni* self);
  ULONG(INKWEAVE_STDCALL* Release)(IPrintOemUni* self);
  HRESULT(INKWEAVE_STDCALL* GetInfo)(IPrintOemUni* self, DWORD mode, PVOID buffer, DWORD size, DWORD* needed);
  HRESULT(INKWEAVE_STDCALL* DevMode)(IPrintOemUni* self, DWORD mode, void* oemDmParam);
  HRESULT(INKWEAVE_STDCALL* EnableDriver)(IPrintOemUni* self, DWORD driverVersion, DWORD size, DRVENABLEDATA* ded);
  HRESULT(INKWEAVE_STDCALL* DisableDriver)(IPrintOemUni* self);
  HRESULT(INKWEAVE_STDCALL* EnablePDEV)
  (IPrintOemUni* self, DEVOBJ* devobj, WCHAR* printerName, ULONG patternCount, void** patterns, ULONG gdiInfoSize,
   GDIINFO* gdiInfo, ULONG devInfoSize, void* devInfo, DRVENABLEDATA* ded, void** outDeviceState);
  HRESULT(INKWEAVE_STDCALL* DisablePDEV)(IPrintOemUni* self, DEVOBJ* devobj);
  HRESULT(INKWEAVE_STDCALL* ResetPDEV)(IPrintOemUni* self, DEVOBJ* oldDev, DEVOBJ* newDev);
  HRESULT(INKWEAVE_STDCALL* PublishDriverInterface)(IPrintOemUni* self, IUnknown* driver);
  HRESULT(INKWEAVE_STDCALL* GetImplementedMethod)(IPrintOemUni* self, char* name);
  HRESULT(INKWEAVE_STDCALL* DriverDMS)(IPrintOemUni* self, void* devobj, void* buffer, DWORD size, DWORD* needed);
  HRESULT(INKWEAVE_STDCALL* CommandCallback)
  (IPrintOemUni* self, DEVOBJ* devobj, DWORD callbackId, DWORD count, DWORD* params, INT* result);
  HRESULT(INKWEAVE_STDCALL* ImageProcessing)
  (IPrintOemUni* self, DEVOBJ* devobj, BYTE* bits, BITMAPINFOHEADER* header, BYTE* colorTable, DWORD callbackId,
   IPPARAMS* params, BYTE** result);
  HRESULT(INKWEAVE_STDCALL* FilterGraphics)(IPrintOemUni* self, DEVOBJ* devobj, BYTE* buffer, DWORD length);
  HRESULT(INKWEAVE_STDCALL* Compression)
  (IPrintOemUni* self, DEVOBJ* devobj, BYTE* in, BYTE* out, DWORD inLength, DWORD outLength, INT* result);
  HRESULT(INKWEAVE_STDCALL* HalftonePattern)
  (IPrintOemUni* self, DEVOBJ* devobj, BYTE* pattern, DWORD x, DWORD y, DWORD count, DWORD callbackId, BYTE* resource,
   DWORD resourceSize);
  HRESULT(INKWEAVE_STDCALL* MemoryUsage)(IPrintOemUni* self, DEVOBJ* devobj, void* usage);
  HRESULT(INKWEAVE_STDCALL* DownloadFontHeader)(IPrintOemUni* self, DEVOBJ* devobj, void* font, DWORD* result);
  HRESULT(INKWEAVE_STDCALL* DownloadCharGlyph)
  (IPrintOemUni* self, DEVOBJ* devobj, void* font, DWORD glyph, DWORD* width, DWORD* result);
  HRESULT(INKWEAVE_STDCALL* TTDownloadMethod)(IPrintOemUni* self, DEVOBJ* devobj, void* font, DWORD* result);
  HRESULT(INKWEAVE_STDCALL* OutputCharStr)
  (IPrintOemUni* self, DEVOBJ* devobj, void* font, DWORD type, DWORD count, void* glyphs);
  HRESULT(INKWEAVE_STDCALL* SendFontCmd)(IPrintOemUni* self, DEVOBJ* devobj, void* font, void* invocation);
  HRESULT(INKWEAVE_STDCALL* TextOutAsBitmap)
  (IPrintOemUni* self, void* surface, void* str, void* font, void* clip, void* extra, void* opaque, void* fore,
   void* opaqueBrush, void* origin, DWORD mix);
  HRESULT(INKWEAVE_STDCALL* TTYGetInfo)
  (IPrintOemUni* self, DEVOBJ* devobj, DWORD index, void* buffer, DWORD size, DWORD* needed);
};
struct IPrintOemUni {
  const IPrintOemUniVtbl* lpVtbl;
};

struct IPrintOemDriverUniVtbl {
  HRESULT(INKWEAVE_STDCALL* QueryInterface)(IPrintOemDriverUni* self, const GUID* riid, void** ppv);
  ULONG(INKWEAVE_STDCALL* AddRef)(IPrintOemDriverUni* self);
  ULONG(INKWEAVE_STDCALL* Release)(IPrintOemDriverUni* self);
  HRESULT(INKWEAVE_STDCALL* DrvGetDriverSetting)
  (IPrintOemDriverUni* self, void* driverObj, const char* feature, void* output, DWORD size, DWORD* needed,
   DWORD* optionsReturned);
  HRESULT(INKWEAVE_STDCALL* DrvWriteSpoolBuf)
  (IPrintOemDriverUni* self, DEVOBJ* devobj, void* buffer, DWORD size, DWORD* written);
  HRESULT(INKWEAVE_STDCALL* DrvXMoveTo)(IPrintOemDriverUni* self, DEVOBJ* devobj, INT x, DWORD flags, INT* result);
  HRESULT(INKWEAVE_STDCALL* DrvYMoveTo)(IPrintOemDriverUni* self, DEVOBJ* devobj, INT y, DWORD flags, INT* result);
  HRESULT(INKWEAVE_STDCALL* DrvGetStandardVariable)
  (IPrintOemDriverUni* self, DEVOBJ* devobj, DWORD index, void* buffer, DWORD size, DWORD* needed);
  HRESULT(INKWEAVE_STDCALL* DrvGetGPDData)
  (IPrintOemDriverUni* self, DEVOBJ* devobj, DWORD type, void* input, void* buffer, DWORD size, DWORD* needed);
  HRESULT(INKWEAVE_STDCALL* DrvUniTextOut)
  (IPrintOemDriverUni* self, void* surface, void* str, void* font, void* clip, void* extra, void* opaque, void* fore,
   void* opaqueBrush, void* origin, DWORD mix);
  HRESULT(INKWEAVE_STDCALL* DrvWriteAbortBuf)
  (IPrintOemDriverUni* self, DEVOBJ* devobj, void* buffer, DWORD size, DWORD waitMs);
};
struct IPrintOemDriverUni {
  const IPrintOemDriverUniVtbl* lpVtbl;
};

// The two exports of the plug-in library.
extern "C" {
using DllGetClassObjectFn = HRESULT(INKWEAVE_STDCALL*)(const GUID* rclsid, const GUID* riid, void** ppv);
using DllCanUnloadNowFn = HRESULT(INKWEAVE_STDCALL*)();
}

// Plug-in interface version and the signature GetInfo reports ("318K" in memory).
inline constexpr DWORD OEM_INTERFACE_VERSION = 0x10000;
inline constexpr DWORD OEMGI_GETSIGNATURE = 1;
inline constexpr DWORD OEMGI_GETINTERFACEVERSION = 2;
inline constexpr DWORD OEMGI_GETVERSION = 3;

// ---------------------------------------------------------------------------------------------------
// Layout pins (Windows x64 and Linux x86-64).
// ---------------------------------------------------------------------------------------------------
static_assert(sizeof(BYTE) == 1 && sizeof(WORD) == 2 && sizeof(DWORD) == 4 && sizeof(ULONG) == 4);
static_assert(sizeof(SHORT) == 2 && sizeof(LONG) == 4 && sizeof(INT) == 4 && sizeof(BOOL) == 4);
static_assert(sizeof(HRESULT) == 4 && sizeof(WCHAR) == 2);

static_assert(sizeof(GUID) == 16);
static_assert(offsetof(GUID, Data2) == 4 && offsetof(GUID, Data3) == 6 && offsetof(GUID, Data4) == 8);

static_assert(sizeof(DEVOBJ) == 64);
static_assert(offsetof(DEVOBJ, dwSize) == 0 && offsetof(DEVOBJ, pdevOEM) == 8 && offsetof(DEVOBJ, hEngine) == 16);
static_assert(offsetof(DEVOBJ, hPrinter) == 24 && offsetof(DEVOBJ, hOEM) == 32 && offsetof(DEVOBJ, pPublicDM) == 40);
static_assert(offsetof(DEVOBJ, pOEMDM) == 48 && offsetof(DEVOBJ, pDrvProcs) == 56);

static_assert(sizeof(DEVMODEW) == 220);
static_assert(offsetof(DEVMODEW, dmSpecVersion) == 64 && offsetof(DEVMODEW, dmDriverVersion) == 66);
static_assert(offsetof(DEVMODEW, dmSize) == 68 && offsetof(DEVMODEW, dmDriverExtra) == 70);
static_assert(offsetof(DEVMODEW, dmFields) == 72 && offsetof(DEVMODEW, dmOrientation) == 76);
static_assert(offsetof(DEVMODEW, dmPaperSize) == 78 && offsetof(DEVMODEW, dmPaperLength) == 80);
static_assert(offsetof(DEVMODEW, dmPaperWidth) == 82 && offsetof(DEVMODEW, dmScale) == 84);
static_assert(offsetof(DEVMODEW, dmCopies) == 86 && offsetof(DEVMODEW, dmDefaultSource) == 88);
static_assert(offsetof(DEVMODEW, dmPrintQuality) == 90 && offsetof(DEVMODEW, dmColor) == 92);
static_assert(offsetof(DEVMODEW, dmDuplex) == 94 && offsetof(DEVMODEW, dmYResolution) == 96);
static_assert(offsetof(DEVMODEW, dmTTOption) == 98 && offsetof(DEVMODEW, dmCollate) == 100);
static_assert(offsetof(DEVMODEW, dmFormName) == 102 && offsetof(DEVMODEW, dmLogPixels) == 166);
static_assert(offsetof(DEVMODEW, dmBitsPerPel) == 168 && offsetof(DEVMODEW, dmPelsWidth) == 172);
static_assert(offsetof(DEVMODEW, dmPelsHeight) == 176 && offsetof(DEVMODEW, dmNup) == 180);
static_assert(offsetof(DEVMODEW, dmDisplayFrequency) == 184 && offsetof(DEVMODEW, dmICMMethod) == 188);
static_assert(offsetof(DEVMODEW, dmICMIntent) == 192 && offsetof(DEVMODEW, dmMediaType) == 196);
static_assert(offsetof(DEVMODEW, dmDitherType) == 200 && offsetof(DEVMODEW, dmReserved1) == 204);
static_assert(offsetof(DEVMODEW, dmReserved2) == 208 && offsetof(DEVMODEW, dmPanningWidth) == 212);
static_assert(offsetof(DEVMODEW, dmPanningHeight) == 216);

static_assert(offsetof(GDIINFO, ulVersion) == 0 && offsetof(GDIINFO, ulTechnology) == 4);
static_assert(offsetof(GDIINFO, ulHorzSize) == 8 && offsetof(GDIINFO, ulVertSize) == 12);
static_assert(offsetof(GDIINFO, ulHorzRes) == 16 && offsetof(GDIINFO, ulVertRes) == 20);

static_assert(sizeof(DRVENABLEDATA) == 16);
static_assert(offsetof(DRVENABLEDATA, iDriverVersion) == 0 && offsetof(DRVENABLEDATA, c) == 4);
static_assert(offsetof(DRVENABLEDATA, pdrvfn) == 8);

static_assert(sizeof(IPPARAMS) == 32);
static_assert(offsetof(IPPARAMS, dwSize) == 0 && offsetof(IPPARAMS, ptOffset) == 4);
static_assert(offsetof(IPPARAMS, ptOffset) + offsetof(POINTL, y) == 8);
static_assert(offsetof(IPPARAMS, pHalftoneOption) == 16 && offsetof(IPPARAMS, bBanding) == 24);
static_assert(offsetof(IPPARAMS, bBlankBand) == 28);

static_assert(sizeof(BITMAPINFOHEADER) == 40);
static_assert(offsetof(BITMAPINFOHEADER, biWidth) == 4 && offsetof(BITMAPINFOHEADER, biHeight) == 8);
static_assert(offsetof(BITMAPINFOHEADER, biPlanes) == 12 && offsetof(BITMAPINFOHEADER, biBitCount) == 14);
static_assert(offsetof(BITMAPINFOHEADER, biCompression) == 16 && offsetof(BITMAPINFOHEADER, biSizeImage) == 20);
static_assert(offsetof(BITMAPINFOHEADER, biXPelsPerMeter) == 24 && offsetof(BITMAPINFOHEADER, biYPelsPerMeter) == 28);
static_assert(offsetof(BITMAPINFOHEADER, biClrUsed) == 32 && offsetof(BITMAPINFOHEADER, biClrImportant) == 36);

// Slot numbers of the interface tables.
static_assert(offsetof(IPrintOemUniVtbl, GetInfo) == 3 * sizeof(void*));
static_assert(offsetof(IPrintOemUniVtbl, EnablePDEV) == 7 * sizeof(void*));
static_assert(offsetof(IPrintOemUniVtbl, PublishDriverInterface) == 10 * sizeof(void*));
static_assert(offsetof(IPrintOemUniVtbl, CommandCallback) == 13 * sizeof(void*));
static_assert(offsetof(IPrintOemUniVtbl, ImageProcessing) == 14 * sizeof(void*));
static_assert(offsetof(IPrintOemUniVtbl, TTYGetInfo) == 25 * sizeof(void*));
static_assert(sizeof(IPrintOemUniVtbl) == 26 * sizeof(void*));
static_assert(offsetof(IPrintOemDriverUniVtbl, DrvWriteSpoolBuf) == 4 * sizeof(void*));
static_assert(offsetof(IPrintOemDriverUniVtbl, DrvWriteAbortBuf) == 10 * sizeof(void*));
static_assert(sizeof(IClassFactoryVtbl) == 5 * sizeof(void*));

// ---------------------------------------------------------------------------------------------------
// Windows only: the few kernel32 functions the library and the host call, declared here with their
// x64 signatures so that no translation unit including this header needs <windows.h> (whose own GUID,
// DWORD, DEVMODEW, S_OK... clash with the declarations above). Code that needs more of the Win32 API
// lives in files that include <windows.h> and not this header.
// ---------------------------------------------------------------------------------------------------
#if defined(_WIN32)
using FARPROC = std::intptr_t(INKWEAVE_STDCALL*)();
extern "C" {
__declspec(dllimport) void* INKWEAVE_STDCALL LocalAlloc(unsigned int flags, std::size_t bytes);
__declspec(dllimport) void* INKWEAVE_STDCALL LocalFree(void* block);
__declspec(dllimport) void* INKWEAVE_STDCALL GlobalAlloc(unsigned int flags, std::size_t bytes);
__declspec(dllimport) void* INKWEAVE_STDCALL GlobalFree(void* block);
__declspec(dllimport) void* INKWEAVE_STDCALL LoadLibraryA(const char* path);
__declspec(dllimport) FARPROC INKWEAVE_STDCALL GetProcAddress(void* module, const char* name);
__declspec(dllimport) BOOL INKWEAVE_STDCALL FreeLibrary(void* module);
}
inline constexpr unsigned int LMEM_FIXED = 0x0000;
inline constexpr unsigned int LMEM_ZEROINIT = 0x0040;
inline constexpr unsigned int GMEM_FIXED = 0x0000;
inline constexpr DWORD DLL_PROCESS_ATTACH = 1;
#endif
