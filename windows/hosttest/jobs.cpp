// The job list, the synthetic pages and the object probes shared by the Windows host test and the
// Linux tests. Everything here is integer arithmetic on fixed inputs, so both platforms hand the
// plug-in exactly the same pixels and calls.
#include "windows/hosttest/jobs.h"

#include <cstdio>
#include <cstring>

namespace inkweave::hosttest {
namespace {

// Portrait printable areas in dots. Pages are the papers' full width; the higher resolutions keep
// a shorter height (several passes and bands still) so that a run under Wine stays short.
struct Geometry {
  std::int16_t Paper;
  std::int16_t Quality;
  std::uint32_t Width;
  std::uint32_t Height;
};
constexpr Geometry kA4At150 = {DMPAPER_A4, 150, 1200, 1706};
constexpr Geometry kA4At300 = {DMPAPER_A4, 300, 2400, 1800};
constexpr Geometry kA4At600 = {DMPAPER_A4, 600, 4800, 1400};
constexpr Geometry kLetterAt300 = {DMPAPER_LETTER, 300, 2469, 1600};
constexpr Geometry kLegalAt600 = {DMPAPER_LEGAL, 600, 4939, 1200};
constexpr Geometry kExecutiveAt150 = {DMPAPER_EXECUTIVE, 150, 1047, 1528};
constexpr Geometry kA5At300 = {DMPAPER_A5, 300, 1667, 2420};
constexpr Geometry kDlAt300 = {DMPAPER_ENV_DL, 300, 1218, 2480};

struct Mode {
  bool Color;
  bool Diffusion;
  DWORD Media;  // media callback 15..18
  bool HighRes;
  bool Landscape;
};

Job MakeJob(std::string name, const Geometry& geometry, const Mode& mode, int pages = 1) {
  Job job;
  job.Name = std::move(name);
  job.Setup.PaperSize = geometry.Paper;
  job.Setup.Quality = geometry.Quality;
  job.Setup.Color = mode.Color;
  job.Setup.Landscape = mode.Landscape;
  job.Setup.PageWidth = geometry.Width;
  job.Setup.PageHeight = geometry.Height;
  job.Diffusion = mode.Diffusion;
  job.HighRes = mode.HighRes;
  job.Media = mode.Media;
  job.Pages = pages;
  return job;
}

using host::kCallbackMediaGlossy;
using host::kCallbackMediaInkjet;
using host::kCallbackMediaPhoto;
using host::kCallbackMediaPlain;

}  // namespace

std::vector<Job> StandardJobs() {
  std::vector<Job> jobs;
  // name, geometry, {colour, diffusion, media, high resolution, landscape}, pages
  jobs.push_back(MakeJob("150-color-dither-plain-a4", kA4At150, {true, false, kCallbackMediaPlain, false, false}, 2));
  jobs.push_back(
      MakeJob("150-mono-diffusion-inkjet-a4-landscape", kA4At150, {false, true, kCallbackMediaInkjet, false, true}));
  jobs.push_back(MakeJob("150-color-diffusion-glossy-executive", kExecutiveAt150,
                         {true, true, kCallbackMediaGlossy, false, false}, 3));
  jobs.push_back(
      MakeJob("300-color-dither-glossy-letter", kLetterAt300, {true, false, kCallbackMediaGlossy, false, false}));
  jobs.push_back(MakeJob("300-color-diffusion-photo-a4", kA4At300, {true, true, kCallbackMediaPhoto, false, false}, 2));
  jobs.push_back(
      MakeJob("300-mono-dither-plain-a4-landscape", kA4At300, {false, false, kCallbackMediaPlain, false, true}));
  jobs.push_back(
      MakeJob("300-color-diffusion-plain-a5-landscape", kA5At300, {true, true, kCallbackMediaPlain, false, true}));
  jobs.push_back(MakeJob("600-color-dither-plain-a4", kA4At600, {true, false, kCallbackMediaPlain, false, false}));
  jobs.push_back(
      MakeJob("600-color-diffusion-inkjet-a4-landscape", kA4At600, {true, true, kCallbackMediaInkjet, false, true}));
  jobs.push_back(
      MakeJob("600-mono-diffusion-glossy-legal", kLegalAt600, {false, true, kCallbackMediaGlossy, false, false}));
  jobs.push_back(MakeJob("highres-color-diffusion-photo-a4", kA4At600, {true, true, kCallbackMediaPhoto, true, false}));
  // Dither asked for in the high-resolution mode: the plug-in diffuses there all the same.
  jobs.push_back(MakeJob("highres-color-dither-plain-a4", kA4At600, {true, false, kCallbackMediaPlain, true, false}));
  jobs.push_back(
      MakeJob("highres-mono-diffusion-plain-a4-landscape", kA4At600, {false, true, kCallbackMediaPlain, true, true}));

  // An envelope, with the selections that are only recorded (density, thickness, sleep time, 19).
  Job envelope =
      MakeJob("300-color-dither-plain-dl-envelope", kDlAt300, {true, false, kCallbackMediaPlain, false, false});
  envelope.Recorded = {0, 3, 7, 19, 13};
  jobs.push_back(envelope);

  // Gray bands (8 bits a pixel) on a monochrome device.
  Job gray = MakeJob("300-gray8-diffusion-plain-a4", kA4At300, {false, true, kCallbackMediaPlain, false, false});
  gray.BitsPerPixel = 8;
  jobs.push_back(gray);

  // Band heights other than the default.
  Job tall = MakeJob("300-color-dither-inkjet-a4-band200", kA4At300, {true, false, kCallbackMediaInkjet, false, false});
  tall.BandHeight = 200;
  jobs.push_back(tall);

  // A spool write fails in the middle of the job: the job end becomes the abort write.
  Job failing =
      MakeJob("300-color-diffusion-plain-a4-write-failure", kA4At300, {true, true, kCallbackMediaPlain, false, false});
  failing.Faults.FailAt = 40;
  jobs.push_back(failing);
  return jobs;
}

void PagePixel(int page, std::int32_t x, std::int32_t y, std::uint8_t rgb[3]) {
  // A white cross (row band 64..127, column band 192..255) so that some bands arrive blank.
  if ((y >= 64 && y < 128) || (x >= 192 && x < 256)) {
    rgb[0] = rgb[1] = rgb[2] = 255;
    return;
  }
  // Text-like black rules.
  if (y % 97 < 2 && x % 300 < 220) {
    rgb[0] = rgb[1] = rgb[2] = 0;
    return;
  }
  const std::uint32_t ux = static_cast<std::uint32_t>(x);
  const std::uint32_t uy = static_cast<std::uint32_t>(y);
  switch ((ux / 160 + uy / 160 + static_cast<std::uint32_t>(page)) % 6) {
    case 0:  // colour ramps
      rgb[0] = static_cast<std::uint8_t>(ux * 3 + static_cast<std::uint32_t>(page) * 40);
      rgb[1] = static_cast<std::uint8_t>(uy * 2);
      rgb[2] = static_cast<std::uint8_t>((ux + uy) >> 1);
      break;
    case 1:  // gray ramp
      rgb[0] = rgb[1] = rgb[2] = static_cast<std::uint8_t>(ux);
      break;
    case 2: {  // solid primaries and secondaries
      static constexpr std::uint8_t kSolid[6][3] = {{0, 255, 255}, {255, 0, 255}, {255, 255, 0},
                                                    {255, 0, 0},   {0, 255, 0},   {0, 0, 255}};
      const auto& c = kSolid[(ux / 160 + static_cast<std::uint32_t>(page)) % 6];
      std::memcpy(rgb, c, 3);
      break;
    }
    case 3:  // skin and sky tones, slowly varying
      rgb[0] = static_cast<std::uint8_t>(200 + (ux % 56));
      rgb[1] = static_cast<std::uint8_t>(150 + (uy % 64));
      rgb[2] = static_cast<std::uint8_t>(120 + ((ux * uy) % 100));
      break;
    case 4:  // white
      rgb[0] = rgb[1] = rgb[2] = 255;
      break;
    default:  // fine checker
      rgb[0] = rgb[1] = rgb[2] = ((ux ^ uy) & 1) ? 0 : 255;
      break;
  }
}

JobResult RunJob(const host::PluginEntry& entry, const Job& job) {
  JobResult result;
  host::HostSession session(entry);
  session.Spool().SetFaults(job.Faults);
  auto note = [&result](HRESULT hr) {
    if (Failed(hr) && result.Status == S_OK) result.Status = hr;
  };
  note(session.Load());
  if (result.Status == S_OK) note(session.Enable(job.Setup));
  if (result.Status == S_OK) {
    for (DWORD selection : job.Recorded) note(session.Command(selection));
    host::SelectModes(session, job.Diffusion, job.HighRes, job.Media);
    note(session.Command(host::kCallbackJobStart));

    // The host's surface: the landscape page in landscape.
    host::PageSource source;
    source.Width = static_cast<std::int32_t>(job.Setup.Landscape ? job.Setup.PageHeight : job.Setup.PageWidth);
    source.Height = static_cast<std::int32_t>(job.Setup.Landscape ? job.Setup.PageWidth : job.Setup.PageHeight);
    source.BitsPerPixel = job.BitsPerPixel;
    for (int page = 0; page < job.Pages; ++page) {
      source.Render = [&job, page](std::int32_t x0, std::int32_t y0, std::int32_t w, std::int32_t h, std::uint8_t* dst,
                                   std::size_t stride) {
        std::uint8_t rgb[3];
        for (std::int32_t y = 0; y < h; ++y) {
          std::uint8_t* row = dst + stride * static_cast<std::size_t>(y);
          for (std::int32_t x = 0; x < w; ++x) {
            PagePixel(page, x0 + x, y0 + y, rgb);
            if (job.BitsPerPixel == 24) {
              std::memcpy(row + 3 * x, rgb, 3);
            } else {  // integer luminance
              row[x] = static_cast<std::uint8_t>((rgb[0] * 77 + rgb[1] * 150 + rgb[2] * 29) >> 8);
            }
          }
        }
        return true;
      };
      const host::PageResult page_result = host::PrintPage(session, source, job.BandHeight);
      note(page_result.Status);
      result.Bands += page_result.Bands;
    }
    note(session.Command(host::kCallbackJobEnd));
  }
  session.Disable();
  session.Unload();

  result.Stream = session.Spool().Stream();
  result.Writes = session.Spool().WriteCount();
  for (const host::SpoolWrite& write : session.Spool().Writes()) result.AbortWrites += write.Abort ? 1 : 0;
  return result;
}

std::string JobLine(const Job& job, const JobResult& result) {
  char line[256];
  std::snprintf(line, sizeof line, "job %s %08X %zu %u %u %d", job.Name.c_str(), static_cast<unsigned>(result.Status),
                result.Stream.size(), static_cast<unsigned>(result.Writes), static_cast<unsigned>(result.AbortWrites),
                result.Bands);
  return line;
}

namespace {

std::string Hex(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "%08X", static_cast<unsigned>(value));
  return text;
}

// Probes answer "<question> <answer>"; HRESULTs and counts are written as 8 hex digits.
class Probe {
 public:
  void Say(const std::string& question, std::uint32_t answer) { lines_.push_back(question + " " + Hex(answer)); }
  void Say(const std::string& question, HRESULT answer) { Say(question, static_cast<std::uint32_t>(answer)); }
  void Say(const std::string& question, const char* answer) { lines_.push_back(question + " " + answer); }
  std::vector<std::string> Lines() { return std::move(lines_); }

 private:
  std::vector<std::string> lines_;
};

constexpr GUID kOtherGuid = {0x12345678, 0x1234, 0x5678, {1, 2, 3, 4, 5, 6, 7, 8}};

void ProbePlugin(Probe& probe, IPrintOemUni* plugin) {
  const IPrintOemUniVtbl* v = plugin->lpVtbl;
  probe.Say("plugin.AddRef", v->AddRef(plugin));
  probe.Say("plugin.Release", v->Release(plugin));
  void* other = nullptr;
  probe.Say("plugin.QueryInterface(IUnknown)", v->QueryInterface(plugin, &IID_IUnknown, &other));
  probe.Say("plugin.QueryInterface(IUnknown).same", other == plugin ? "yes" : "no");
  probe.Say("plugin.Release", v->Release(plugin));
  other = &other;
  probe.Say("plugin.QueryInterface(IPrintOemDriverUni)", v->QueryInterface(plugin, &IID_IPrintOemDriverUni, &other));
  probe.Say("plugin.QueryInterface(IPrintOemDriverUni).ppv", other == nullptr ? "null" : "set");

  // GetInfo: the three valid modes, a bad mode, a short buffer, no `needed`.
  for (DWORD mode = 1; mode <= 4; ++mode) {
    DWORD value = 0xAAAAAAAA;
    DWORD needed = 0xBBBBBBBB;
    const std::string q = "plugin.GetInfo(" + std::to_string(mode) + ")";
    probe.Say(q, v->GetInfo(plugin, mode, &value, sizeof value, &needed));
    probe.Say(q + ".value", value);
    probe.Say(q + ".needed", needed);
  }
  DWORD value = 0xAAAAAAAA;
  DWORD needed = 0xBBBBBBBB;
  probe.Say("plugin.GetInfo(1,size3)", v->GetInfo(plugin, 1, &value, 3, &needed));
  probe.Say("plugin.GetInfo(1,size3).needed", needed);
  probe.Say("plugin.GetInfo(1,nullneeded)", v->GetInfo(plugin, 1, &value, 4, nullptr));

  for (const char* name : {"CommandCallback", "EnableDriver", "EnablePDEV", "DisablePDEV", "GetInfo", "FilterGraphics",
                           "ImageProcessing", "PublishDriverInterface", "DevMode", "commandcallback", "E", ""}) {
    std::string copy(name);
    probe.Say(std::string("plugin.GetImplementedMethod(") + name + ")", v->GetImplementedMethod(plugin, copy.data()));
  }
  probe.Say("plugin.GetImplementedMethod(null)", v->GetImplementedMethod(plugin, nullptr));

  DRVENABLEDATA ded{0xAAAA, 0xBBBB, nullptr};
  probe.Say("plugin.EnableDriver(0x20000)", v->EnableDriver(plugin, 0x20000, sizeof ded, &ded));
  probe.Say("plugin.EnableDriver(size8)", v->EnableDriver(plugin, OEM_INTERFACE_VERSION, 8, &ded));
  probe.Say("plugin.EnableDriver", v->EnableDriver(plugin, OEM_INTERFACE_VERSION, sizeof ded, &ded));
  probe.Say("plugin.EnableDriver.version", ded.iDriverVersion);
  probe.Say("plugin.EnableDriver.count", ded.c);

  probe.Say("plugin.DevMode", v->DevMode(plugin, 0, nullptr));
  probe.Say("plugin.DisableDriver", v->DisableDriver(plugin));
  probe.Say("plugin.ResetPDEV", v->ResetPDEV(plugin, nullptr, nullptr));
  probe.Say("plugin.TTYGetInfo", v->TTYGetInfo(plugin, nullptr, 0, nullptr, 0, nullptr));
  probe.Say("plugin.FilterGraphics", v->FilterGraphics(plugin, nullptr, nullptr, 0));
  BYTE* marker = nullptr;
  probe.Say("plugin.ImageProcessing(nulldevobj)",
            v->ImageProcessing(plugin, nullptr, nullptr, nullptr, nullptr, 0, nullptr, &marker));

  // The host's service interface is held once: a second publication asks nothing.
  host::SpoolService spool;
  const std::uint32_t refsBefore = spool.References();
  probe.Say("plugin.PublishDriverInterface", v->PublishDriverInterface(plugin, spool.Unknown()));
  probe.Say("plugin.PublishDriverInterface.refs", spool.References() - refsBefore);
  probe.Say("plugin.PublishDriverInterface(again)", v->PublishDriverInterface(plugin, spool.Unknown()));
  probe.Say("plugin.PublishDriverInterface(again).refs", spool.References() - refsBefore);
  probe.Say("plugin.Release(last)", v->Release(plugin));
  probe.Say("plugin.Release(last).refs", spool.References() - refsBefore);
}

}  // namespace

std::vector<std::string> ProbeObjects(const host::PluginEntry& entry) {
  Probe probe;
  void* untouched = &probe;
  probe.Say("DllGetClassObject(other)", entry.GetClassObject(&kOtherGuid, &IID_IClassFactory, &untouched));
  probe.Say("DllGetClassObject(other).ppv", untouched == &probe ? "untouched" : "changed");
  void* none = &probe;
  probe.Say("DllGetClassObject(IPrintOemUni)", entry.GetClassObject(&CLSID_RenderPlugin, &IID_IPrintOemUni, &none));
  probe.Say("DllGetClassObject(IPrintOemUni).ppv", none == nullptr ? "null" : "set");
  probe.Say("DllCanUnloadNow", entry.CanUnloadNow());

  IClassFactory* factory = nullptr;
  probe.Say("DllGetClassObject",
            entry.GetClassObject(&CLSID_RenderPlugin, &IID_IClassFactory, reinterpret_cast<void**>(&factory)));
  if (!factory) return probe.Lines();
  const IClassFactoryVtbl* f = factory->lpVtbl;
  probe.Say("factory.AddRef", f->AddRef(factory));
  probe.Say("factory.Release", f->Release(factory));
  void* unknown = nullptr;
  probe.Say("factory.QueryInterface(IUnknown)", f->QueryInterface(factory, &IID_IUnknown, &unknown));
  probe.Say("factory.QueryInterface(IUnknown).same", unknown == factory ? "yes" : "no");
  probe.Say("factory.Release", f->Release(factory));
  void* other = &other;
  probe.Say("factory.QueryInterface(other)", f->QueryInterface(factory, &kOtherGuid, &other));
  probe.Say("factory.QueryInterface(other).ppv", other == nullptr ? "null" : "set");

  IUnknown outer{};
  void* aggregated = nullptr;
  probe.Say("factory.CreateInstance(outer)", f->CreateInstance(factory, &outer, &IID_IPrintOemUni, &aggregated));
  void* wrong = &wrong;
  probe.Say("factory.CreateInstance(other)", f->CreateInstance(factory, nullptr, &kOtherGuid, &wrong));
  probe.Say("factory.CreateInstance(other).ppv", wrong == nullptr ? "null" : "set");

  IPrintOemUni* plugin = nullptr;
  probe.Say("factory.CreateInstance",
            f->CreateInstance(factory, nullptr, &IID_IPrintOemUni, reinterpret_cast<void**>(&plugin)));
  // Objects are not counted: the library could unload now; only a server lock keeps it.
  probe.Say("DllCanUnloadNow(object alive)", entry.CanUnloadNow());
  probe.Say("factory.LockServer(TRUE)", f->LockServer(factory, 1));
  probe.Say("DllCanUnloadNow(locked)", entry.CanUnloadNow());
  probe.Say("factory.LockServer(TRUE)", f->LockServer(factory, 1));
  probe.Say("factory.LockServer(FALSE)", f->LockServer(factory, 0));
  probe.Say("DllCanUnloadNow(locked once)", entry.CanUnloadNow());
  probe.Say("factory.LockServer(FALSE)", f->LockServer(factory, 0));
  probe.Say("DllCanUnloadNow(unlocked)", entry.CanUnloadNow());
  probe.Say("factory.Release(last)", f->Release(factory));

  if (plugin) ProbePlugin(probe, plugin);
  probe.Say("DllCanUnloadNow(end)", entry.CanUnloadNow());
  return probe.Lines();
}

}  // namespace inkweave::hosttest
