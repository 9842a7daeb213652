// Writes every constant table of the plug-in as a raw little-endian file <TableName>.bin into the
// folder given as the first argument, so the compiled-in data can be inspected and compared.
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "src/data/tables.h"
#include "src/data/weave_tables.h"

namespace {

bool Write(const std::string& folder, const std::string& name, const void* data, std::size_t size) {
  const std::string path = folder + "/" + name + ".bin";
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) {
    std::fprintf(stderr, "dump-tables: cannot write %s\n", path.c_str());
    return false;
  }
  const bool ok = std::fwrite(data, 1, size, file) == size;
  return std::fclose(file) == 0 && ok;
}

// Little-endian bytes of signed or unsigned integers, whatever the host's byte order.
template <typename T>
std::vector<std::uint8_t> LittleEndian(const T* values, std::size_t count) {
  std::vector<std::uint8_t> out;
  out.reserve(count * sizeof(T));
  for (std::size_t i = 0; i < count; ++i) {
    auto v = static_cast<std::make_unsigned_t<T>>(values[i]);
    for (std::size_t b = 0; b < sizeof(T); ++b) out.push_back(static_cast<std::uint8_t>(v >> (8 * b)));
  }
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: dump-tables FOLDER\n");
    return 2;
  }
  using namespace inkweave;
  const std::string folder = argv[1];
  bool ok = true;
  for (int n = 1; n <= kColorTableCount; ++n) {
    char name[32];
    std::snprintf(name, sizeof name, "ColorTable%02d", n);
    ok &= Write(folder, name, ColorTable(n), kColorTableBytes);
  }
  ok &= Write(folder, "InterpolationWeights", InterpolationWeights, sizeof InterpolationWeights);
  ok &= Write(folder, "DitherMatrix", DitherMatrix, sizeof DitherMatrix);
  const auto seeds = LittleEndian(DiffusionSeedErrors, 256);
  ok &= Write(folder, "DiffusionSeedErrors", seeds.data(), seeds.size());
  const auto split = LittleEndian(&InkSplitTable[0][0][0], 11 * 256 * 4);
  ok &= Write(folder, "InkSplitTable", split.data(), split.size());
  ok &= Write(folder, "DiffusionThresholdMap", DiffusionThresholdMaps[0], 128 * 128);
  ok &= Write(folder, "DiffusionThresholdMapFine", DiffusionThresholdMaps[128], (kThresholdMapRowsStored - 128) * 128);
  ok &= Write(folder, "ThresholdJitter", ThresholdJitter, sizeof ThresholdJitter);
  const auto wide = LittleEndian(ThresholdJitterWide, 1024);
  ok &= Write(folder, "ThresholdJitterWide", wide.data(), wide.size());

  // The weave maps: for modes 1..6, phases 0..7, rows 0..105, the pair (pass buffer, head row).
  std::vector<std::uint8_t> weave;
  for (int mode = 1; mode < kWeaveModes; ++mode)
    for (const auto& phase : WeaveMap[mode])
      for (const WeaveCell& cell : phase) {
        weave.push_back(cell.Pass);
        weave.push_back(cell.HeadRow);
      }
  ok &= Write(folder, "WeaveMap", weave.data(), weave.size());
  return ok ? 0 : 1;
}
