// rastertoinkweave: the CUPS filter of the inkweave printer. It reads CUPS raster (versions 1, 2 and
// 3; 8-bit RGB/sRGB or 8-bit W/sW/K) and hands each page to the render plug-in band by band through
// our host, as the platform's printer driver would; the plug-in's printer stream goes to standard
// output as it is written.
//
//   rastertoinkweave job-id user title copies options [file]
//
// A device context of the plug-in fixes paper, quality and colour (and takes the media, halftone and
// high-resolution selections before its job start). When a page needs another, the filter ends the
// job in the current context (job-end command, DisablePDEV) and opens a new one (EnablePDEV,
// selections, job start) for the pages that follow. The page's rows are read on a thread of their own,
// a band or two ahead of the plug-in (host/band_queue.h), which is called from the main thread only;
// only those bands of the page are ever in memory.
//
// The plug-in library is found, in this order: $INKWEAVE_PLUGIN; ../../inkweave/libinkweave.so from
// the filter's own directory (the installed layout, <prefix>/lib/cups/filter and <prefix>/lib/inkweave);
// the path it was installed to; the library of the build tree the filter was built in.
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <cups/raster.h>

#include "cups/page_plan.h"
#include "host/band_queue.h"
#include "host/host.h"

namespace {

namespace host = inkweave::host;
using inkweave::cups::PagePlan;

constexpr std::int32_t kBandHeight = 128;  // rows per band handed to the plug-in

volatile std::sig_atomic_t gCanceled = 0;

extern "C" void OnTerminate(int) { gCanceled = 1; }

// ---------------------------------------------------------------------------------------------------
// Input: the raster stream, read through a callback that counts what it delivers, so that a stream
// cut inside a page header, or a header libcups refuses, can be told from a stream that simply ends.
// (A compressed version-2 stream is read ahead by libcups: when it is cut inside the header that
// follows a complete page, the cut can fall into what was already read and then reads as the end.)
// ---------------------------------------------------------------------------------------------------

// libcups sets up each page of a compressed (version-2) stream as soon as it has read its header, and
// allocates a row of the header's bytes per line before the filter sees the header: a hostile header
// claims rows of up to 4 GiB. So a compressed stream is followed as it is read: each page header is
// planned as the filter will plan the page, and a header the filter would refuse never reaches libcups
// (the stream ends just before its last byte). Following the stream takes its row framing: per group of
// equal rows a repeat byte (rows - 1), then codes until the row is full: 128, the rest of the row is
// blank; 129 to 255, 257 - code literal pixels; 0 to 127, code + 1 copies of the one pixel that
// follows. The filter reads exactly the header's height in rows of every page it goes on with.
class HeaderGuard {
 public:
  explicit HeaderGuard(const inkweave::cups::JobOptions& options) : options_(options) {}

  // How many of `size` bytes, the next ones of the stream, may go to libcups: all, or those before
  // the last byte of a header the filter refuses (Refusal() then says why).
  std::size_t Pass(const std::uint8_t* bytes, std::size_t size) {
    std::size_t at = 0;
    while (at < size && step_ != Step::Off) {
      switch (step_) {
        case Step::Sync:
        case Step::Header: {
          const std::size_t take = std::min(size - at, want_ - held_.size());
          held_.insert(held_.end(), bytes + at, bytes + at + take);
          at += take;
          if (held_.size() == want_ && !Held()) return at - 1;
          break;
        }
        case Step::RowStart:
          rows_ = bytes[at++] + 1u;
          lineLeft_ = bytesPerLine_;
          step_ = Step::Code;
          break;
        case Step::Code: Code(bytes[at++]); break;
        case Step::Skip: {
          const std::size_t take = static_cast<std::size_t>(std::min<std::uint64_t>(size - at, skip_));
          at += take;
          skip_ -= take;
          if (skip_ == 0) Continue();
          break;
        }
        case Step::Off: break;
      }
    }
    return size;
  }

  // Why the filter refuses the header held back; empty while none is.
  const std::string& Refusal() const { return refusal_; }

 private:
  enum class Step { Sync, Header, RowStart, Code, Skip, Off };

  // The sync word or a page header is complete. False when the header is refused.
  bool Held() {
    if (step_ == Step::Sync) {
      std::uint32_t sync;
      std::memcpy(&sync, held_.data(), sizeof sync);
      swapped_ = sync == CUPS_RASTER_REVSYNCv2;
      step_ = sync == CUPS_RASTER_SYNCv2 || swapped_ ? Step::Header : Step::Off;  // others allocate nothing
      held_.clear();
      want_ = sizeof(cups_page_header2_t);
      return true;
    }
    cups_page_header2_t header;
    std::memcpy(&header, held_.data(), sizeof header);
    held_.clear();
    if (swapped_) {  // the 81 numbers from AdvanceDistance to cupsReal, as libcups swaps them
      auto* word = reinterpret_cast<std::uint8_t*>(&header.AdvanceDistance);
      for (int i = 0; i < 81; ++i, word += 4) {
        std::swap(word[0], word[3]);
        std::swap(word[1], word[2]);
      }
    }
    auto planned = inkweave::cups::PlanPage(header, options_);
    if (auto* message = std::get_if<std::string>(&planned)) {
      refusal_ = *message;
      step_ = Step::Off;
      return false;
    }
    const auto& plan = std::get<PagePlan>(planned);
    bytesPerLine_ = plan.BytesPerLine;
    pixelBytes_ = static_cast<std::uint32_t>(plan.Channels);  // 8 bits a colour, chunked for RGB
    rowsLeft_ = plan.RasterHeight;
    step_ = Step::RowStart;
    return true;
  }

  void Code(std::uint8_t code) {
    if (code == 128) {
      lineLeft_ = 0;
    } else if (code > 128) {
      skip_ = std::min<std::uint64_t>((257u - code) * pixelBytes_, lineLeft_);
      lineLeft_ -= skip_;
    } else {
      const std::uint64_t count = std::min<std::uint64_t>((code + 1u) * pixelBytes_, lineLeft_);
      lineLeft_ -= count;
      skip_ = pixelBytes_;
    }
    if (skip_ > 0)
      step_ = Step::Skip;
    else
      Continue();
  }

  // After a code and its pixels: the row goes on, the next group of rows, or the next page's header.
  void Continue() {
    if (lineLeft_ > 0) {
      step_ = Step::Code;
      return;
    }
    rowsLeft_ -= std::min(rows_, rowsLeft_);
    step_ = rowsLeft_ > 0 ? Step::RowStart : Step::Header;
  }

  const inkweave::cups::JobOptions& options_;
  Step step_ = Step::Sync;
  std::vector<std::uint8_t> held_;  // the sync word or header so far
  std::size_t want_ = 4;            // bytes of the sync word or header
  bool swapped_ = false;            // written in the other byte order
  std::uint32_t bytesPerLine_ = 0, pixelBytes_ = 1, rowsLeft_ = 0, rows_ = 0;
  std::uint64_t lineLeft_ = 0;  // bytes of the row still to come
  std::uint64_t skip_ = 0;      // pixel bytes still to pass
  std::string refusal_;
};

struct Input {
  explicit Input(const inkweave::cups::JobOptions& options) : Guard(options) {}
  int Fd = 0;
  std::uint64_t Delivered = 0;  // bytes handed to libcups
  bool Ended = false;           // the stream has ended
  int Error = 0;                // errno of a failed read
  HeaderGuard Guard;
};

extern "C" ssize_t ReadInput(void* context, unsigned char* buffer, size_t length) {
  Input& input = *static_cast<Input*>(context);
  if (!input.Guard.Refusal().empty()) return 0;
  for (;;) {
    ssize_t got = read(input.Fd, buffer, length);
    if (got >= 0) {
      got = static_cast<ssize_t>(input.Guard.Pass(buffer, static_cast<std::size_t>(got)));
      input.Delivered += static_cast<std::uint64_t>(got);
      if (got == 0) input.Ended = true;
      return got;
    }
    if (errno == EINTR && !gCanceled) continue;
    input.Error = errno;
    return -1;
  }
}

// ---------------------------------------------------------------------------------------------------
// Output: every spool write of the plug-in, straight to standard output.
// ---------------------------------------------------------------------------------------------------
struct Output {
  bool Failed = false;
  int Error = 0;
  void Write(const std::uint8_t* bytes, std::size_t size) {
    if (Failed || size == 0) return;
    if (std::fwrite(bytes, 1, size, stdout) != size) {
      Failed = true;
      Error = errno;
    }
  }
};

// ---------------------------------------------------------------------------------------------------
// One raster page, read row by row as the host asks for bands.
// ---------------------------------------------------------------------------------------------------
class PageReader {
 public:
  PageReader(cups_raster_t* raster, const PagePlan& plan) : raster_(raster), plan_(plan), row_(plan.BytesPerLine) {}

  // Fills device rows [y, y + h) of width w into dst, what lies outside the raster white. False on a
  // read error.
  bool Fill(std::int32_t y, std::int32_t h, std::int32_t w, std::uint8_t* dst, std::size_t stride) {
    for (std::int32_t r = 0; r < h; ++r) {
      const std::int64_t source = plan_.OffsetY + y + r;
      const bool inside = source >= 0 && source < plan_.RasterHeight;
      while (inside && next_ <= source)
        if (!ReadRow()) return false;
      plan_.CopyRow(inside ? row_.data() : nullptr, dst + stride * static_cast<std::size_t>(r), w);
    }
    return true;
  }

  // Reads what the device did not need, up to the end of the page.
  bool Drain() {
    while (next_ < plan_.RasterHeight)
      if (!ReadRow()) return false;
    return true;
  }

  std::uint32_t RowsRead() const { return static_cast<std::uint32_t>(next_); }

 private:
  bool ReadRow() {
    if (cupsRasterReadPixels(raster_, row_.data(), plan_.BytesPerLine) != plan_.BytesPerLine) return false;
    ++next_;
    return true;
  }

  cups_raster_t* raster_;
  const PagePlan& plan_;
  std::vector<std::uint8_t> row_;
  std::int64_t next_ = 0;  // next raster row to read
};

// ---------------------------------------------------------------------------------------------------
// The plug-in, and its device contexts across the job.
// ---------------------------------------------------------------------------------------------------
std::string FindPlugin() {
  return host::FindPluginLibrary("../../inkweave/libinkweave.so", INKWEAVE_PLUGIN_INSTALL_PATH,
                                 INKWEAVE_PLUGIN_BUILD_PATH);
}

class Device {
 public:
  explicit Device(host::PluginEntry entry) : session_(entry) {}
  ~Device() { Close(); }

  HRESULT Load(Output& output) {
    session_.Spool().SetKeepWrites(false);
    session_.Spool().SetSink([&output](const std::uint8_t* bytes, std::size_t size) { output.Write(bytes, size); });
    return session_.Load();
  }

  bool IsOpenFor(const PagePlan& plan) const { return open_ && plan_.SameDevice(plan); }

  // EnablePDEV for the page's device, the selections, and the job start.
  HRESULT Open(const PagePlan& plan) {
    Close();
    const HRESULT hr = session_.Enable(plan.Setup);
    if (hr != S_OK) {
      session_.Disable();
      return hr;
    }
    host::SelectModes(session_, plan.Method == host::Halftone::Diffusion, plan.HighResolution, plan.MediaCallback);
    session_.Command(host::kCallbackJobStart);
    plan_ = plan;
    open_ = true;
    return S_OK;
  }

  // The job end and DisablePDEV.
  void Close() {
    if (!open_) return;
    session_.Command(host::kCallbackJobEnd);
    session_.Disable();
    open_ = false;
  }

  host::HostSession& Session() { return session_; }

 private:
  host::HostSession session_;
  PagePlan plan_;
  bool open_ = false;
};

void Warn(const std::vector<std::string>& warnings, int page) {
  for (const std::string& w : warnings) {
    if (page > 0)
      std::fprintf(stderr, "WARNING: Page %d: %s\n", page, w.c_str());
    else
      std::fprintf(stderr, "WARNING: %s\n", w.c_str());
  }
}

void ReportReadError(const Input& input) {
  std::fprintf(stderr, "ERROR: Unable to read the raster stream: %s\n", std::strerror(input.Error));
}

// ---------------------------------------------------------------------------------------------------
// The job, in four steps: open, read a page header, print the page, finish.
// ---------------------------------------------------------------------------------------------------
struct Job {
  inkweave::cups::JobOptions Options;
  Input In{Options};
  Output Out;
  std::unique_ptr<host::PluginLibrary> Library;
  std::unique_ptr<Device> Printer;  // after Library and Out: it goes first, while both still exist
  cups_raster_t* Raster = nullptr;
  int Page = 0;    // pages begun
  int Status = 0;  // the exit status so far
};

// The arguments, the signals, the input, the options, the plug-in and the raster stream. False, with
// the error written, when the job cannot start.
bool OpenJob(int argc, char** argv, Job& job) {
  if (argc < 6 || argc > 7) {
    std::fprintf(stderr, "Usage: %s job-id user title copies options [file]\n",
                 argc > 0 ? argv[0] : "rastertoinkweave");
    return false;
  }

  // SIGTERM only sets a flag; the band loop stops at the next band and ends the job properly.
  struct sigaction action {};
  action.sa_handler = OnTerminate;
  sigemptyset(&action.sa_mask);
  sigaction(SIGTERM, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);  // a closed output shows as a write error instead

  if (argc == 7) {
    job.In.Fd = open(argv[6], O_RDONLY | O_CLOEXEC);
    if (job.In.Fd < 0) {
      std::fprintf(stderr, "ERROR: Unable to open raster file \"%s\": %s\n", argv[6], std::strerror(errno));
      return false;
    }
  }

  std::vector<std::string> warnings;
  job.Options = inkweave::cups::ReadJobOptions(std::getenv("PPD"), argv[5], &warnings);
  Warn(warnings, 0);

  const std::string pluginPath = FindPlugin();
  std::fprintf(stderr, "DEBUG: inkweave: render plug-in %s\n", pluginPath.c_str());
  std::string error;
  job.Library = host::PluginLibrary::Open(pluginPath, &error);
  if (!job.Library) {
    std::fprintf(stderr, "ERROR: Unable to load the render plug-in %s: %s\n", pluginPath.c_str(), error.c_str());
    return false;
  }
  job.Printer = std::make_unique<Device>(job.Library->Entry());
  if (const HRESULT hr = job.Printer->Load(job.Out); hr != S_OK) {
    std::fprintf(stderr, "ERROR: The render plug-in %s did not load (result 0x%08X)\n", pluginPath.c_str(),
                 static_cast<unsigned>(hr));
    return false;
  }

  job.Raster = cupsRasterOpenIO(ReadInput, &job.In, CUPS_RASTER_READ);
  if (!job.Raster) {
    if (job.In.Error)
      ReportReadError(job.In);
    else
      std::fprintf(stderr, "ERROR: The input is empty or not a CUPS raster stream\n");
    return false;
  }
  return true;
}

// The next page's header. False at the end of the stream or on an error (reported, with the status
// set): a stream cut inside a header or a header libcups refuses are errors, a stream that ends
// between pages is not, unless it holds no page at all.
bool ReadPageHeader(Job& job, cups_page_header2_t& header) {
  const std::uint64_t before = job.In.Delivered;
  if (cupsRasterReadHeader2(job.Raster, &header)) {
    ++job.Page;
    return true;
  }
  if (gCanceled) return false;
  const std::uint64_t read = job.In.Delivered - before;
  if (!job.In.Guard.Refusal().empty())
    std::fprintf(stderr, "ERROR: Page %d: %s\n", job.Page + 1, job.In.Guard.Refusal().c_str());
  else if (job.In.Error)
    ReportReadError(job.In);
  else if (read != 0 && job.In.Ended && read < sizeof header)
    std::fprintf(stderr, "ERROR: The raster stream ends inside the header of page %d\n", job.Page + 1);
  else if (read != 0)
    std::fprintf(stderr, "ERROR: Page %d has an invalid raster header (sizes, depth or colours do not add up)\n",
                 job.Page + 1);
  else if (job.Page == 0)
    std::fprintf(stderr, "ERROR: No pages found in the raster stream\n");
  else
    return false;  // the end of the job
  job.Status = 1;
  return false;
}

// The device context the page's plan needs: the one open, or a new one (the job ends in the old). False
// after reporting why it could not be set up.
bool OpenDeviceFor(Job& job, const PagePlan& plan) {
  if (job.Printer->IsOpenFor(plan)) return true;
  if (job.Page > 1) std::fprintf(stderr, "DEBUG: inkweave: page %d needs a new device context\n", job.Page);
  if (const HRESULT hr = job.Printer->Open(plan); hr != S_OK) {
    std::fprintf(stderr, "ERROR: Page %d: the render plug-in could not set up the device (result 0x%08X)\n", job.Page,
                 static_cast<unsigned>(hr));
    job.Status = 1;
    return false;
  }
  return true;
}

// Plans the page, opens the device context it needs, and hands it to the plug-in band by band. False
// when the job must stop (reported, with the status set, unless canceled or the output failed).
bool PrintPage(Job& job, const cups_page_header2_t& header) {
  const int page = job.Page;
  auto planned = inkweave::cups::PlanPage(header, job.Options);
  if (auto* message = std::get_if<std::string>(&planned)) {
    std::fprintf(stderr, "ERROR: Page %d: %s\n", page, message->c_str());
    job.Status = 1;
    return false;
  }
  const PagePlan& plan = std::get<PagePlan>(planned);
  Warn(plan.Warnings, page);
  std::fprintf(stderr,
               "DEBUG: inkweave: page %d: %ux%u pixels, paper %s (%d), %d dpi%s, %s, %s, media command %u, "
               "printable %ux%u at raster offset %lld,%lld\n",
               page, plan.RasterWidth, plan.RasterHeight, plan.PaperName.c_str(), plan.Setup.PaperSize,
               plan.Setup.Quality, plan.HighResolution ? " high resolution" : "", plan.Setup.Color ? "colour" : "gray",
               std::string(host::ChoiceOf(plan.Method).Description).c_str(), plan.MediaCallback, plan.Setup.PageWidth,
               plan.Setup.PageHeight, static_cast<long long>(plan.OffsetX), static_cast<long long>(plan.OffsetY));

  if (!OpenDeviceFor(job, plan)) return false;

  std::fprintf(stderr, "PAGE: %d 1\n", page);
  std::fprintf(stderr, "INFO: Printing page %d\n", page);
  // The rows are read on the input side, band by band in the plug-in's order, then the rest of the page.
  PageReader reader(job.Raster, plan);
  bool readFailed = false;  // the input side's, read once it has ended
  host::PageSource source;
  source.Width = static_cast<std::int32_t>(plan.Setup.PageWidth);
  source.Height = static_cast<std::int32_t>(plan.Setup.PageHeight);
  source.BitsPerPixel = plan.BandBits;
  host::PageResult result;
  {
    // SIGTERM goes to the input side while it runs: a read waiting for more of the stream then ends.
    sigset_t terminate;
    sigemptyset(&terminate);
    sigaddset(&terminate, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &terminate, nullptr);
    host::BandQueue queue(2);
    queue.Run([&] {
      pthread_sigmask(SIG_UNBLOCK, &terminate, nullptr);
      for (const host::BandRect& band : host::BandsOf(source.Width, source.Height, kBandHeight, plan.Setup.Landscape)) {
        const bool queued =
            queue.Put(band, source.BitsPerPixel / 8, [&](std::uint8_t* dst, std::size_t stride, std::string*) {
              readFailed = !reader.Fill(band.Y, band.Height, band.Width, dst, stride);
              return !readFailed;
            });
        if (!queued) return;
      }
      readFailed = !gCanceled && !reader.Drain();
    });
    source.Lend = [&](std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h) -> const std::uint8_t* {
      return gCanceled || job.Out.Failed ? nullptr : queue.Lend({x, y, w, h});
    };
    source.GiveBack = [&] { queue.GiveBack(); };
    result = host::PrintPage(job.Printer->Session(), source, kBandHeight);
    queue.Stop();
    queue.Wait();
    pthread_sigmask(SIG_UNBLOCK, &terminate, nullptr);
  }  // the page is read to its end here, unless the job stops

  if (readFailed && !gCanceled) {
    if (job.In.Error)
      ReportReadError(job.In);
    else
      std::fprintf(stderr, "ERROR: The raster stream ends inside page %d (after %u of %u rows)\n", page,
                   reader.RowsRead(), plan.RasterHeight);
    job.Status = 1;
    return false;
  }
  if (job.Out.Failed) return false;
  if (result.Status != S_OK && !gCanceled) {
    std::fprintf(stderr, "ERROR: Page %d: the render plug-in refused a band (result 0x%08X)\n", page,
                 static_cast<unsigned>(result.Status));
    job.Status = 1;
    return false;
  }
  return true;
}

// Ends the job in the device context, closes the input, flushes the output and says how it went.
// Answers the exit status.
int FinishJob(Job& job) {
  if (job.Printer) job.Printer->Close();
  if (job.Raster) cupsRasterClose(job.Raster);
  if (job.In.Fd > 0) close(job.In.Fd);
  if (std::fflush(stdout) != 0 && !job.Out.Failed) {
    job.Out.Failed = true;
    job.Out.Error = errno;
  }
  if (job.Out.Failed) {
    std::fprintf(stderr, "ERROR: Unable to write the print data: %s\n", std::strerror(job.Out.Error));
    return 1;
  }
  if (gCanceled) {
    std::fprintf(stderr, "INFO: Job canceled after %d page%s\n", job.Page, job.Page == 1 ? "" : "s");
    return job.Status;
  }
  if (job.Status == 0) std::fprintf(stderr, "INFO: Ready to print.\n");
  return job.Status;
}

int Run(int argc, char** argv) {
  Job job;
  if (!OpenJob(argc, argv, job)) {
    if (job.In.Fd > 0) close(job.In.Fd);
    return 1;
  }
  cups_page_header2_t header;
  while (!gCanceled && ReadPageHeader(job, header) && PrintPage(job, header)) {
  }
  return FinishJob(job);
}

}  // namespace

// The fuzzing harness runs the filter in its own process under another name (fuzz/filter.cpp).
#if defined(INKWEAVE_FILTER_MAIN)
int INKWEAVE_FILTER_MAIN(int argc, char** argv) { return Run(argc, argv); }
#else
int main(int argc, char** argv) { return Run(argc, argv); }
#endif
