// Printer model: puts the passes of a parsed job on paper.
//
// The head has 106 nozzle rows, 1/150 inch apart; the paper moves by the feeds in 1/400 inch. At a page
// resolution of D dpi the nozzle pitch is D / 150 page rows and a feed of u units advances u * D / 400
// page rows (which must be whole). Head row h of a pass lands on page row
//     pitch * h + P - top * pitch,
// where P is the paper advance so far on the page (the pass's own feed included) and top is 105, or 102
// in modes 3 and 5 which use the even nozzles only. Mode 1 (150 dpi) sends each dot twice across; the
// model halves those rows back to page dots and refuses a pair of wire dots that differ.
//
// Every head row of a pass in the stream counts as printed where it lands, blank or inked. A pass that
// holds no ink is never written (only its feed is), so its rows are not printed at all. Ink that lands
// twice on a row is ORed and counted.
//
// A dot's value (first bit + 2 x second bit) carries the ink that the halftoner of the page's mode
// books for it (DotInkOf); GatherInk sums it over boxes of the page for coverage figures and pictures.
#include <algorithm>
#include <new>
#include <optional>
#include <span>
#include <string>

#include "decode/decoder.h"
#include "decode/format.h"

namespace inkweave::decode {

namespace {

std::string Num(long long value) { return std::to_string(value); }

bool HasInk(const std::vector<std::uint8_t>& bytes) {
  return std::any_of(bytes.begin(), bytes.end(), [](std::uint8_t b) { return b != 0; });
}

bool RecordHasInk(const PlaneRow& row) { return !row.Blank && (HasInk(row.First) || HasInk(row.Second)); }

// A mode-1 row of wire bytes back to page bytes; false when a wire dot pair differs.
bool HalveDoubledRow(const std::vector<std::uint8_t>& wire, std::vector<std::uint8_t>& page) {
  page.assign(wire.size() / 2, 0);
  for (std::size_t i = 0; i + 1 < wire.size(); i += 2) {
    const unsigned both = (wire[i] << 8) | wire[i + 1];  // 16 wire dots, 8 page dots doubled
    std::uint8_t out = 0;
    for (int dot = 0; dot < 8; ++dot) {
      const unsigned pair = (both >> (14 - 2 * dot)) & 3;
      if (pair == 1 || pair == 2) return false;
      if (pair == 3) out |= static_cast<std::uint8_t>(0x80 >> dot);
    }
    page[i / 2] = out;
  }
  return true;
}

void OrInto(std::vector<std::uint8_t>& target, const std::vector<std::uint8_t>& bytes) {
  if (target.size() < bytes.size()) target.resize(bytes.size(), 0);
  for (std::size_t i = 0; i < bytes.size(); ++i) target[i] |= bytes[i];
}

// Where the head rows of a page's passes land: page rows per nozzle, the nozzle that lands on the paper
// advance, and the page's row limit.
struct HeadGeometry {
  long Pitch = 1;    // page rows per nozzle row
  long Top = 105;    // nozzle row that lands on the paper advance (102 in modes 3 and 5)
  long MaxRows = 0;  // rows of the longest page
};

std::variant<PrintedPage, Error> StartPage(const Page& source, const DecodeOptions& options) {
  PrintedPage page;
  page.Stats = source.Stats;
  page.Dpi = source.PageSettings.Dpi;
  page.Mode = source.Mode;
  page.Medium = std::max(0, source.PageSettings.Media);
  if (options.WeaveMode != 0) {
    auto mode = ResolveMode(page.Dpi, options.WeaveMode);
    if (auto* why = std::get_if<std::string>(&mode)) return Error{source.Offset, *why};
    page.Mode = std::get<int>(mode);
  }
  if (page.Dpi == 0) return Error{source.Offset, "page has no resolution command before it"};
  page.Color = source.Passes.empty() ? IsColorInk(source.PageSettings.InkMode) : false;
  return page;
}

HeadGeometry GeometryOf(const PrintedPage& page) {
  HeadGeometry head;
  head.Pitch = page.Dpi / 150;
  head.Top = page.Mode == 3 || page.Mode == 5 ? 102 : 105;
  head.MaxRows = static_cast<long>(kMaxPageInches) * page.Dpi + 1;
  return head;
}

// Lays the inked records of one head row's planes on page row `at`.
std::optional<Error> LayDots(std::span<const PlaneRow> records, std::size_t at, PrintedPage& page) {
  std::vector<std::uint8_t> halved;
  for (const PlaneRow& record : records) {
    if (!RecordHasInk(record)) continue;
    if (record.BitsPerDot == 2) page.BitsPerDot = 2;
    const std::vector<std::uint8_t>* halves[2] = {&record.First, &record.Second};
    for (int bit = 0; bit < 2; ++bit) {
      const std::vector<std::uint8_t>* bytes = halves[bit];
      if (!HasInk(*bytes)) continue;
      if (page.Mode == 1) {
        if (!HalveDoubledRow(*bytes, halved)) {
          return Error{record.Offset, "mode-1 row record holds a dot that is not sent twice across"};
        }
        bytes = &halved;
      }
      if (bytes->size() * 8 > static_cast<std::size_t>(kMaxPageWidthDots)) {
        return Error{record.Offset, "row of " + Num(static_cast<long long>(bytes->size() * 8)) +
                                        " dots is wider than the " + Num(kMaxPageWidthDots) + "-dot page limit"};
      }
      page.WidthDots = std::max(page.WidthDots, static_cast<int>(bytes->size() * 8));
      auto& rows = page.Bits[static_cast<std::size_t>(record.Plane)][static_cast<std::size_t>(bit)].Rows;
      if (rows.size() <= at) rows.resize(at + 1);
      OrInto(rows[at], *bytes);
    }
  }
  return std::nullopt;
}

// Counts one head row (its records, one per plane) landing on page row `row` and lays its ink.
std::optional<Error> LandHeadRow(std::span<const PlaneRow> records, const Pass& pass, long row,
                                 const HeadGeometry& head, PrintedPage& page) {
  const long nozzle = records.front().HeadRow;
  const auto inkedRecord = std::find_if(records.begin(), records.end(), RecordHasInk);
  const bool inked = inkedRecord != records.end();
  if (row < 0) {
    if (!inked) return std::nullopt;  // blank top rows above the paper print nothing
    return Error{inkedRecord->Offset, "head row " + Num(nozzle) + " of the pass at offset " + Num(pass.Offset) +
                                          " carries ink above the page top (page row " + Num(row) + ")"};
  }
  if (row >= head.MaxRows) {
    return Error{records.front().Offset, "head row " + Num(nozzle) + " lands on page row " + Num(row) +
                                             ", beyond the " + Num(kMaxPageInches) + "-inch page limit"};
  }
  if (inked && (page.Mode == 3 || page.Mode == 5) && nozzle % 2 != 0) {
    return Error{inkedRecord->Offset, "ink on odd nozzle row " + Num(nozzle) + " in weave mode " + Num(page.Mode) +
                                          ", which uses the even nozzles only"};
  }
  const auto at = static_cast<std::size_t>(row);
  if (page.PrintCounts.size() <= at) {
    page.PrintCounts.resize(at + 1, 0);
    page.InkCounts.resize(at + 1, 0);
  }
  page.PrintCounts[at] = static_cast<std::uint16_t>(std::min(page.PrintCounts[at] + 1, 0xFFFF));
  if (!inked) return std::nullopt;
  page.InkCounts[at] = static_cast<std::uint16_t>(std::min(page.InkCounts[at] + 1, 0xFFFF));
  return LayDots(records, at, page);
}

// Lands every head row of a pass where the paper advance puts it.
std::optional<Error> LandPass(const Pass& pass, const HeadGeometry& head, PrintedPage& page) {
  page.Color = page.Color || pass.Color;
  if (pass.PaperAdvance * page.Dpi % kFeedUnitsPerInch != 0) {
    return Error{pass.FeedOffset, "paper advance of " + Num(pass.PaperAdvance) + "/400 inch is not a whole " +
                                      "number of page rows at " + Num(page.Dpi) + " dpi"};
  }
  const long advance = pass.PaperAdvance * page.Dpi / kFeedUnitsPerInch;  // page rows
  const std::size_t planes = pass.Color ? 4 : 1;
  const std::span<const PlaneRow> records(pass.Records);
  for (std::size_t first = 0; first + planes <= records.size(); first += planes) {
    const auto headRow = records.subspan(first, planes);
    const long row = head.Pitch * (headRow.front().HeadRow - head.Top) + advance;
    if (auto error = LandHeadRow(headRow, pass, row, head, page)) return error;
  }
  return std::nullopt;
}

// Row counts of the landed rows, and every row list trimmed to the last printed row.
void FinishRows(PrintedPage& page) {
  for (std::size_t r = 0; r < page.PrintCounts.size(); ++r) {
    if (page.PrintCounts[r] == 0) continue;
    if (page.FirstPrintedRow < 0) page.FirstPrintedRow = static_cast<int>(r);
    page.LastPrintedRow = static_cast<int>(r);
    page.RowsPrinted += 1;
    if (page.PrintCounts[r] > 1) page.RowsPrintedTwice += 1;
    if (page.InkCounts[r] > 1) page.RowsInkedTwice += 1;
    if (page.InkCounts[r] > 0) page.InkedRows += 1;
  }
  page.HeightRows = page.LastPrintedRow + 1;
  if (page.FirstPrintedRow >= 0) {
    page.UnprintedRows = page.LastPrintedRow - page.FirstPrintedRow + 1 - page.RowsPrinted;
  }
  const auto height = static_cast<std::size_t>(page.HeightRows);
  const auto rowBytes = static_cast<std::size_t>((page.WidthDots + 7) / 8);
  page.PrintCounts.resize(height);
  page.InkCounts.resize(height);
  for (auto& plane : page.Bits) {
    for (auto& bits : plane) {
      bits.Rows.resize(height);
      for (auto& row : bits.Rows) {
        if (!row.empty()) row.resize(rowBytes, 0);
      }
    }
  }
}

// The bytes a printed page holds: its dot rows and the per-row counts.
std::size_t MemoryOf(const PrintedPage& page) {
  std::size_t bytes = sizeof(PrintedPage) + 2 * sizeof(std::uint16_t) * page.PrintCounts.size();
  for (const auto& plane : page.Bits)
    for (const auto& bits : plane) {
      bytes += bits.Rows.size() * sizeof(std::vector<std::uint8_t>);
      for (const auto& row : bits.Rows) bytes += row.capacity();
    }
  return bytes;
}

std::variant<PrintedPage, Error> PrintPage(const Page& source, const DecodeOptions& options) {
  auto started = StartPage(source, options);
  if (std::holds_alternative<Error>(started)) return started;
  PrintedPage& page = std::get<PrintedPage>(started);
  const HeadGeometry head = GeometryOf(page);
  for (const Pass& pass : source.Passes) {
    if (auto error = LandPass(pass, head, page)) return *error;
  }
  FinishRows(page);
  page.DotInk = DotInkOf(page.Dpi, page.BitsPerDot);
  page.Paper = FindSheet(source.PageSettings, page.Dpi, page.WidthDots, page.HeightRows);
  return started;
}

}  // namespace

std::variant<std::vector<PrintedPage>, Error> PrintJob(const Job& job, const DecodeOptions& options) {
  try {
    if (options.WeaveMode < 0 || options.WeaveMode > 6) {
      return Error{0, "weave mode " + std::to_string(options.WeaveMode) + " is not one of 0 to 6"};
    }
    std::vector<PrintedPage> pages;
    pages.reserve(job.Pages.size());
    std::size_t memory = 0;  // held by the printed pages, against the same budget as the parsed records
    for (const Page& source : job.Pages) {
      auto printed = PrintPage(source, options);
      if (auto* error = std::get_if<Error>(&printed)) return *error;
      memory += MemoryOf(std::get<PrintedPage>(printed));
      if (memory > options.MemoryBudget) {
        return Error{source.Offset, "the pages printed so far take more than the decoder's memory budget of " +
                                        std::to_string(options.MemoryBudget) + " bytes"};
      }
      pages.push_back(std::move(std::get<PrintedPage>(printed)));
    }
    return pages;
  } catch (const std::bad_alloc&) {
    return Error{0, "out of memory while printing the job"};
  } catch (...) {
    return Error{0, "internal failure while printing the job"};
  }
}

int DotAt(const PrintedPage& page, int plane, int x, int row) {
  if (plane < 0 || plane > 3 || x < 0 || x >= page.WidthDots || row < 0) return 0;
  int value = 0;
  for (int bit = 0; bit < 2; ++bit) {
    const auto& rows = page.Bits[static_cast<std::size_t>(plane)][static_cast<std::size_t>(bit)].Rows;
    if (static_cast<std::size_t>(row) >= rows.size()) continue;
    const auto& bytes = rows[static_cast<std::size_t>(row)];
    const auto index = static_cast<std::size_t>(x / 8);
    if (index < bytes.size() && (bytes[index] & (0x80 >> (x % 8))) != 0) value |= 1 << bit;
  }
  return value;
}

std::array<int, 4> DotInkOf(int dpi, int bitsPerDot) {
  if (dpi == 1200) return {0, 350, 350, 350};                    // one size, larger than its cell
  if (bitsPerDot == 2 && dpi == 300) return {0, 248, 100, 255};  // medium, small, large
  if (bitsPerDot == 2 && dpi == 600) return {0, 255, 212, 255};  // large, small (both bits: large)
  return {0, 255, 255, 255};
}

namespace {

// Sums of one box while the dots are gathered.
struct BoxSums {
  double BlackCells = 0;
  std::array<double, 4> Ink{};         // dot ink, 1/255 of a cell
  std::array<double, 3> UnderBlack{};  // colour dot ink in cells holding black
};

// Dot values 0..3 of the four planes at one dot of a row.
std::array<int, 4> DotValues(const PrintedPage& page, std::size_t row, int dot) {
  std::array<int, 4> values{};
  const auto byte = static_cast<std::size_t>(dot / 8);
  const int mask = 0x80 >> (dot % 8);
  for (std::size_t plane = 0; plane < 4; ++plane) {
    const auto& first = page.Bits[plane][0].Rows[row];
    const auto& second = page.Bits[plane][1].Rows[row];
    values[plane] =
        (!first.empty() && (first[byte] & mask) ? 1 : 0) + (!second.empty() && (second[byte] & mask) ? 2 : 0);
  }
  return values;
}

bool RowHasInk(const PrintedPage& page, std::size_t row) {
  for (const auto& plane : page.Bits)
    for (const auto& bits : plane)
      if (!bits.Rows[row].empty()) return true;
  return false;
}

// The box of `offset` when `extent` dots are cut into `boxes`.
std::size_t BoxOf(long offset, long extent, int boxes) { return static_cast<std::size_t>(offset * boxes / extent); }

// The first dot (counted from the rectangle's edge) of box `box` when `extent` dots are cut into
// `boxes`: the least i with BoxOf(i, extent, boxes) >= box.
long FirstDotOf(long box, long extent, int boxes) { return (box * extent + boxes - 1) / boxes; }

// Sums the dots of the rectangle's rows that fall in box rows [firstRow, firstRow + grid.Rows) into the
// boxes of the grid (whose row 0 is box row firstRow).
void SumDots(const PrintedPage& page, int x, int y, const InkGrid& grid, int w, int h, int rows, int firstRow,
             std::vector<BoxSums>& sums) {
  const int x0 = std::max(0, x), x1 = std::min(page.WidthDots, x + w);
  const long top = y + FirstDotOf(firstRow, h, rows), bottom = y + FirstDotOf(firstRow + grid.Rows, h, rows);
  const int y0 = static_cast<int>(std::max<long>(0, top)),
            y1 = static_cast<int>(std::min<long>(page.HeightRows, bottom));
  for (int row = y0; row < y1; ++row) {
    if (!RowHasInk(page, static_cast<std::size_t>(row))) continue;
    const std::size_t rowBase =
        (BoxOf(row - y, h, rows) - static_cast<std::size_t>(firstRow)) * static_cast<std::size_t>(grid.Columns);
    for (int dot = x0; dot < x1; ++dot) {
      const std::array<int, 4> values = DotValues(page, static_cast<std::size_t>(row), dot);
      if ((values[0] | values[1] | values[2] | values[3]) == 0) continue;
      BoxSums& sum = sums[rowBase + BoxOf(dot - x, w, grid.Columns)];
      for (std::size_t plane = 0; plane < 4; ++plane)
        sum.Ink[plane] += page.DotInk[static_cast<std::size_t>(values[plane])];
      if (values[3] == 0) continue;
      sum.BlackCells += 1;
      for (std::size_t plane = 0; plane < 3; ++plane)
        sum.UnderBlack[plane] += page.DotInk[static_cast<std::size_t>(values[plane])];
    }
  }
}

}  // namespace

InkGrid GatherInk(const PrintedPage& page, int x, int y, int w, int h, int columns, int rows) {
  return GatherInkRows(page, x, y, w, h, columns, rows, 0, rows);
}

InkGrid GatherInkRows(const PrintedPage& page, int x, int y, int w, int h, int columns, int rows, int firstRow,
                      int rowCount) {
  InkGrid grid;
  if (w <= 0 || h <= 0 || columns <= 0 || rows <= 0 || firstRow < 0 || rowCount <= 0 || firstRow + rowCount > rows)
    return grid;
  grid.Columns = columns;
  grid.Rows = rowCount;
  // Cells per box: dots across its column times rows down its row.
  std::vector<double> across(static_cast<std::size_t>(columns)), down(static_cast<std::size_t>(rowCount));
  for (int i = 0; i < w; ++i) across[BoxOf(i, w, columns)] += 1;
  for (int r = 0; r < rowCount; ++r)
    down[static_cast<std::size_t>(r)] =
        static_cast<double>(FirstDotOf(firstRow + r + 1, h, rows) - FirstDotOf(firstRow + r, h, rows));
  std::vector<BoxSums> sums(across.size() * down.size());
  SumDots(page, x, y, grid, w, h, rows, firstRow, sums);
  grid.Boxes.resize(sums.size());
  for (std::size_t b = 0; b < sums.size(); ++b) {
    const BoxSums& sum = sums[b];
    const double cells = across[b % across.size()] * down[b / across.size()];
    AreaInk& area = grid.Boxes[b];
    if (cells <= 0) continue;
    for (std::size_t plane = 0; plane < 4; ++plane) area.Ink[plane] = sum.Ink[plane] / (255.0 * cells);
    area.BlackCells = sum.BlackCells / cells;
    for (std::size_t plane = 0; plane < 3; ++plane)
      area.UnderBlack[plane] = sum.BlackCells > 0 ? sum.UnderBlack[plane] / (255.0 * sum.BlackCells) : 0.0;
  }
  return grid;
}

AreaInk MeanInk(const PrintedPage& page, int x, int y, int w, int h) {
  const InkGrid grid = GatherInk(page, x, y, w, h, 1, 1);
  return grid.Boxes.empty() ? AreaInk{} : grid.Boxes.front();
}

}  // namespace inkweave::decode
