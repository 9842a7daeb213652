// The stream decoder and printer model: our virtual printer.
//
// ParseJob reads a whole job stream (job header, mode settings, pages, feeds, ink-mode changes, row
// records of every coder, blank markers, form feeds, job end) into a structured Job. PrintJob puts the
// passes of every page on paper through the head geometry (106 nozzle rows at 1/150 inch, paper fed in
// 1/400 inch) and answers the dot planes with print counts and statistics.
//
// This library knows the wire format and the head geometry only. It shares no code or tables with the
// plug-in core, so a fault in the encoder cannot cancel out in a round trip. Errors are values: nothing
// throws out of this API, and every error names the byte offset of the fault.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "decode/ink.h"

namespace inkweave::decode {

struct Error {
  std::size_t Offset = 0;  // byte offset of the fault in the stream (the stream size: ran out of bytes)
  std::string Message;     // names the problem
};

struct DecodeOptions {
  // 0: from the stream ("R": 150 dpi -> 1, 300 -> 2, 600 -> 4, high resolution -> 6).
  // 3 or 5 force those modes (they use the even nozzles only; no command tells them from 2 and 4).
  // 1, 2, 4 and 6 are accepted when they agree with the stream.
  int WeaveMode = 0;
  // The most the parsed job's records may take (see kMaxJobMemory).
  std::size_t MemoryBudget = std::size_t{2} << 30;
};

// Hard limits that bound time and memory on any input.
inline constexpr int kHeadRows = 106;                             // nozzle rows 0..105
inline constexpr int kMaxRowBytes = 2560;                         // decoded bytes of one bit plane of a row record
inline constexpr int kMaxPageWidthDots = 10240;                   // page dots across, after mode-1 halving
inline constexpr int kMaxPageInches = 24;                         // paper fed on one page
inline constexpr long kMaxPageFeedUnits = kMaxPageInches * 400L;  // 1/400 in
inline constexpr std::size_t kMaxPassesPerPage = 16384;
// Memory: the parsed job holds every record it decodes; a job whose records (their decoded bytes and
// their bookkeeping) would take more than this is an error at the record that passes it. A coded
// record decodes to up to 1,000 times its wire size, so this, not the stream's size, bounds ParseJob.
inline constexpr std::size_t kMaxJobMemory = DecodeOptions{}.MemoryBudget;  // 2 GiB

// One command of the stream, named as in CommandTable(): "Padding" (a run of zero bytes, fillers
// included), "AbortTail", "EnterRaster", "Reset", "R", "I", "M", "D", "N", "Y", "X", "s", "Fn", "F",
// "FormFeed". Row records ("G") and blank markers ("Z") are not commands; they live in passes.
struct Command {
  std::string Name;
  std::vector<std::uint8_t> Params;  // parameter bytes after the command letter(s)
  std::size_t Offset = 0;            // bytes from the stream start
  std::size_t Length = 0;            // bytes on the wire, letter included
};

// The settings in force, as the commands last set them (-1: not sent yet).
struct Settings {
  int ResolutionX = -1;    // "R" x
  int ResolutionY = -1;    // "R" y
  int Dpi = 0;             // 150, 300, 600, or 1200 for "R" 03 03; 0 before any "R"
  int InkMode = -1;        // "I" code: 0x10, 0x00, 0x31, 0x30
  int Compression = -1;    // "M" code: 0x05 pattern coder, 0x02 PackBits, 0x00 raw
  int DValue = -1;         // "D" d
  int Media = -1;          // "N" 05 m: m
  int Paper = -1;          // "s" p; 0xFF for both 73 FF and the long form
  bool PaperLong = false;  // "s" sent as 73 FF E8 02
  bool Envelope = false;   // "Fn" followed the paper command
};

// One plane row record ("G" or "Z") of a pass.
struct PlaneRow {
  std::size_t Offset = 0;            // offset of the "G" or "Z"
  std::size_t WireBytes = 0;         // bytes on the wire, header included
  int HeadRow = 0;                   // 0..105 inside the pass
  int Plane = 3;                     // 0 cyan, 1 magenta, 2 yellow, 3 black
  bool Blank = true;                 // "Z"
  bool Raw = false;                  // sent uncompressed
  int BitsPerDot = 0;                // 1 or 2; 0 for "Z"
  bool DepthMismatch = false;        // decoded with the depth that the "I" in force does not name
  std::vector<std::uint8_t> First;   // decoded bytes of the (first) bit plane, as on the wire
  std::vector<std::uint8_t> Second;  // second bit plane of a two-bit record, else empty
};

// The records that one head pass prints: written after a feed (and any "I"), blank top rows included.
struct Pass {
  std::size_t Offset = 0;         // offset of the pass's first record
  long Feed = 0;                  // 1/400 in: feeds written since the previous pass (usually one "F")
  std::size_t FeedOffset = 0;     // offset of the last "F" before the pass (the pass's offset when none)
  long PaperAdvance = 0;          // 1/400 in: paper fed on this page so far, Feed included
  bool Color = true;              // four records per head row (planes 3, 2, 0, 1), else one (plane 3)
  int InkMode = -1;               // "I" code in force
  int HeadRows = 0;               // head rows in the pass
  std::size_t Bytes = 0;          // record bytes of the pass
  std::vector<PlaneRow> Records;  // in stream order: head row by head row, planes in wire order
};

// Counts of the stream of one page.
struct StreamStats {
  std::size_t StreamBytes = 0;  // from the page's first command to its form feed, inclusive
  std::size_t PassBytes = 0;    // bytes of all row records
  int Passes = 0;
  int Feeds = 0;                      // "F" commands
  long TotalFeed = 0;                 // 1/400 in
  std::size_t Records = 0;            // plane records ("G" and "Z")
  std::size_t BlankRecords = 0;       // "Z"
  std::size_t CompressedRecords = 0;  // "G" with coded data
  std::size_t RawRecords = 0;         // "G" with raw data
  std::size_t CompressedSize = 0;     // data bytes of all "G" records on the wire (headers excluded)
  std::size_t UncompressedSize = 0;   // bytes those records decode to
  std::size_t DepthMismatches = 0;    // records whose depth differs from the "I" in force
};

struct Page {
  std::size_t Offset = 0;         // first command of the page (its page-start group when there is one)
  std::size_t EndOffset = 0;      // offset of the form feed
  int Mode = 0;                   // weave mode 1..6 used to print it
  Settings PageSettings;          // in force when the page opened; paper fields from its own paper group
  std::vector<Command> Commands;  // the page's commands in order (feeds and "I" included)
  std::vector<Pass> Passes;
  int RowBytes = 0;  // decoded bytes of one bit plane of the page's row records (0: no "G")
  StreamStats Stats;
};

struct Job {
  std::vector<Command> Commands;  // everything outside the pages, in order
  std::vector<Page> Pages;
  Settings FinalSettings;  // in force at the end of the stream
  bool Ended = false;      // the stream ends with the reset 1B 40 (or the abort tail)
  bool Aborted = false;    // the stream ends with the abort tail 00 00 0C 1B 40
};

// One bit plane of a page: Rows[r] is empty when row r holds no dot of it, else (WidthDots + 7) / 8
// bytes, dot x at bit 128 >> (x % 8) of byte x / 8.
struct BitPlane {
  std::vector<std::vector<std::uint8_t>> Rows;
};

// The sheet a page is printed on, as the paper command names it, and where the print lies on it.
struct Sheet {
  std::string Name;      // "A4", "Letter", ...; "unknown" when the paper command names no size
  bool Known = false;    // the paper command named the size
  double WidthMm = 0;    // portrait
  double HeightMm = 0;   // portrait
  int WidthDots = 0;     // the sheet at the page's resolution
  int HeightDots = 0;    // rows
  int LeftDots = 0;      // page dot 0 lies this far from the sheet's left edge
  int TopDots = 0;       // page row 0 lies this far below the sheet's top edge
  bool Overrun = false;  // the print runs past the largest sheet the code can name; the sheet was grown
};

struct PrintedPage {
  int Dpi = 0;         // page resolution both ways: 150, 300, 600, or 1200 in the high-resolution mode
  int Mode = 0;        // weave mode 1..6
  int Medium = 0;      // media code of "N" 05 m in force (0 plain, 1 inkjet, 2 glossy, 3 photographic, 4)
  bool Color = false;  // any colour pass
  int BitsPerDot = 1;  // 2 when any two-bit record printed ink
  // Ink a dot of value 0..3 puts down, in 1/255 of its cell: what the halftoner books against the error
  // for it. One-bit dots and dither dots 255; 300 dpi two-bit dots 248 (first bit), 100 (second bit),
  // 255 (both); 600 dpi two-bit dots 255 (first bit), 212 (second bit only); high-resolution dots 350.
  std::array<int, 4> DotInk = {0, 255, 255, 255};
  Sheet Paper;         // the sheet, and where page dot (0, 0) lies on it
  int WidthDots = 0;   // widest printed row, in page dots (mode 1: the doubled wire dots halved)
  int HeightRows = 0;  // page row 0 to the last printed row, inclusive
  // Bits[plane][b]: plane 0 cyan, 1 magenta, 2 yellow, 3 black; b 0 the first bit, 1 the second bit of
  // two-bit dots. A dot's value is first + 2 * second (0..3).
  std::array<std::array<BitPlane, 2>, 4> Bits;
  std::vector<std::uint16_t> PrintCounts;  // per page row: head rows (blank or inked) that landed on it
  std::vector<std::uint16_t> InkCounts;    // per page row: head rows carrying ink that landed on it
  StreamStats Stats;
  int RowsPrinted = 0;       // page rows with a landing
  int RowsPrintedTwice = 0;  // page rows with more than one landing (blank ones included)
  int RowsInkedTwice = 0;    // page rows on which more than one inked head row landed
  int UnprintedRows = 0;     // rows between the first and the last printed row with no landing
  int InkedRows = 0;         // page rows holding ink
  int FirstPrintedRow = -1;
  int LastPrintedRow = -1;
};

// Where a command may stand in the stream.
enum class Place {
  Anywhere,   // inside or outside a page
  JobHeader,  // outside a page only (inside one there was no form feed before it)
  Page,       // on a page: opens one when none is open
  Pass,       // a plane row record: opens a page when none is open, and joins the open pass
  PageEnd,    // closes the open page; outside a page it is an empty page
  JobEnd,     // the last bytes of the stream, outside a page
};

struct ParseState;  // the parser at work (decode/parser.cpp)

// The decoder's one description of a command: the parser reads the stream by this table, docs/decoder.md
// shows it (CommandTableMarkdown; a test holds the two together) and inkweave dump labels by it.
struct CommandDescriptor {
  std::uint8_t Byte;       // the byte it starts with
  std::uint8_t Second;     // the second byte, for the escape sequences; 0: not part of the match
  std::size_t Length;      // bytes on the wire, parameters included (the least, for the variable ones)
  std::size_t MaxLength;   // the most; 0: no bound
  std::string_view Name;   // Command::Name ("G" and "Z" for the row records)
  std::string_view Title;  // what it does, in a few words; empty where nothing more is known of it
  std::string_view Form;   // the bytes, x y m c d p n standing for parameters
  Place Where;
  std::string_view Rule;  // what the parser accepts, checks and records
  // Tells apart the commands that share Byte and Second by the bytes around them; null: always.
  bool (*Applies)(const ParseState&);
  // Checks the parameters, updates the settings in force and records the command; an Error otherwise.
  // Called with Length bytes present and the page opened as Where asks.
  std::optional<Error> (*Read)(ParseState&, const CommandDescriptor&);
};

// Every command the parser knows, in the order it tries them.
std::span<const CommandDescriptor> CommandTable();
// The descriptor of a command name (Command::Name, "G", "Z"); null for any other.
const CommandDescriptor* FindCommand(std::string_view name);
// How messages name a command: its title with its letters ('resolution "R"', '"D" command'), or the
// title of a named one ("enter raster language").
std::string CommandNoun(const CommandDescriptor& command);
// The table as docs/decoder.md shows it: a Markdown table, one row per command.
std::string CommandTableMarkdown();

// Parse a whole job stream into its structure.
std::variant<Job, Error> ParseJob(std::span<const std::uint8_t> stream, const DecodeOptions& = {});

// Put every page of a parsed job on paper.
std::variant<std::vector<PrintedPage>, Error> PrintJob(const Job& job, const DecodeOptions& = {});

// Dot value 0..3 of plane p (0 cyan, 1 magenta, 2 yellow, 3 black) at (x, row); 0 outside the page.
int DotAt(const PrintedPage& page, int plane, int x, int row);

// The ink a dot of each value carries at a page resolution and depth (see PrintedPage::DotInk).
std::array<int, 4> DotInkOf(int dpi, int bitsPerDot);

// The ink of boxes of a rectangle of the page: the rectangle of w x h dots at (x, y) is cut into
// columns x rows boxes, dot (x + i, y + j) falling in box (i * columns / w, j * rows / h). Cells outside
// the printed page count as bare paper.
struct InkGrid {
  int Columns = 0;
  int Rows = 0;
  std::vector<AreaInk> Boxes;  // box (c, r) at r * Columns + c
};
InkGrid GatherInk(const PrintedPage& page, int x, int y, int w, int h, int columns, int rows);
// The box rows [firstRow, firstRow + rowCount) of that grid only (Rows = rowCount): a picture can be
// made strip by strip, its memory that of a strip.
InkGrid GatherInkRows(const PrintedPage& page, int x, int y, int w, int h, int columns, int rows, int firstRow,
                      int rowCount);
// The same over one box.
AreaInk MeanInk(const PrintedPage& page, int x, int y, int w, int h);

// The sheet named by the paper settings of a page printed at `dpi`, holding a print of widthDots x
// heightRows (the smaller sheet of a shared code unless the print runs past it).
Sheet FindSheet(const Settings& settings, int dpi, int widthDots, int heightRows);

// The coders on their own (used by ParseJob), for tests and tools. Each answers the decoded bytes, or an
// error whose offset is counted from the start of `codes` (callers add the record's data offset).
// `boundaries`, when given, receives the decoded length after every code.
std::variant<std::vector<std::uint8_t>, Error> DecodePattern(std::span<const std::uint8_t> codes, std::size_t maxBytes,
                                                             std::vector<std::size_t>* boundaries = nullptr);
std::variant<std::vector<std::uint8_t>, Error> DecodePackBits(std::span<const std::uint8_t> codes, std::size_t maxBytes,
                                                              std::vector<std::size_t>* boundaries = nullptr);

}  // namespace inkweave::decode
