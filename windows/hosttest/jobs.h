// The jobs and object probes that the Windows host test runs through inkweave.dll under Wine and the
// Linux tests run through libinkweave.so: the same job list, the same synthetic pages, the same
// calls, so that the two libraries' answers and byte streams can be compared one for one.
// Platform-neutral: only the host library and the plug-in's exports are used.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/host.h"
#include "host/spool.h"

namespace inkweave::hosttest {

struct Job {
  std::string Name;                         // file name of the job's stream, without extension
  host::DeviceSetup Setup;                  // paper, quality, colour, orientation, page size (portrait dots)
  bool Diffusion = false;                   // error diffusion (12), else dither (11)
  bool HighRes = false;                     // the high-resolution mode (14)
  DWORD Media = host::kCallbackMediaPlain;  // 15..18
  std::vector<DWORD> Recorded;              // selections the plug-in only records (0-10, 19), sent first
  int Pages = 1;
  std::int32_t BandHeight = 64;     // rows (columns in landscape)
  std::uint16_t BitsPerPixel = 24;  // 24 or 8 (gray)
  host::WriteFaults Faults;         // spool writes to fail
};

// The fixed job list: every resolution (150, 300, 600 and the high-resolution mode), dither and
// diffusion, colour and monochrome, the four media, portrait and landscape, several pages, and a
// failing spool write.
std::vector<Job> StandardJobs();

// The pixel the synthetic page of a job holds at (x, y) of the host's surface, as R, G, B.
void PagePixel(int page, std::int32_t x, std::int32_t y, std::uint8_t rgb[3]);

struct JobResult {
  HRESULT Status = S_OK;             // the first failing step, else S_OK
  std::vector<std::uint8_t> Stream;  // every byte the plug-in wrote, abort writes included
  std::uint32_t Writes = 0;
  std::uint32_t AbortWrites = 0;
  int Bands = 0;
};

// The report line of a job: "job <name> <status> <bytes> <writes> <abort writes> <bands>".
std::string JobLine(const Job& job, const JobResult& result);

// Runs one job through a fresh plug-in object of the library: load, enable, selections, job start,
// pages, job end, disable, unload.
JobResult RunJob(const host::PluginEntry& entry, const Job& job);

// Asks the library's entry points and objects what the host driver may ask (class objects,
// reference counts, GetInfo, GetImplementedMethod, EnableDriver, DllCanUnloadNow with and without a
// server lock) and answers one line per question, "<question> <answer>".
std::vector<std::string> ProbeObjects(const host::PluginEntry& entry);

}  // namespace inkweave::hosttest
