// Job stream parser: bytes to a structured Job.
//
// The stream is read command by command, each by its row of the command table (kCommands below): the
// byte it starts with, its length, where it may stand and the function that checks and records it.
// Outside a page: zero padding, the escape commands (enter raster language, reset), the mode settings
// "R", "I", "M", "D", "N". A page opens at its first page command ("Y", "X", "s", "F", a row record or a
// blank marker) and takes along the settings block that began with the last enter-raster command before
// it; it closes at the form feed 0C. Inside a page: feeds "F", ink-mode changes "I", the paper group
// ("Y", "X", "s", and "Fn" right after the paper command), zero padding, and passes. A pass is the
// unbroken run of row records ("G") and blank markers ("Z") after a feed or any other command; in colour
// every head row is four records (planes 3, 2, 0, 1), in monochrome one (plane 3).
//
// A "G" record's depth is read from the "I" code in force, checked against the page's row length: a
// two-bit record is two bit planes of L bytes back to back, and its halves are found where the codes'
// decoded length reaches half the total (codes are self-delimiting, so that point is unique).
#include <algorithm>
#include <new>
#include <optional>
#include <string>

#include "decode/decoder.h"
#include "decode/format.h"

namespace inkweave::decode {

namespace {

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

std::string Num(std::size_t value) { return std::to_string(value); }

}  // namespace

struct ParseState {
  std::span<const std::uint8_t> S;
  DecodeOptions Options;
  Job Result;
  Settings Current;
  std::optional<Page> OpenPage;
  std::optional<Pass> OpenPass;
  std::size_t SettingsStart = kNone;  // index in Result.Commands of the last enter-raster command
  long PageFeed = 0;                  // 1/400 in fed on the open page
  long FeedSincePass = 0;             // 1/400 in fed since the last pass
  std::size_t LastFeedOffset = kNone;
  std::size_t Pos = 0;
  std::size_t Memory = 0;  // bytes held by the records parsed so far (DecodeOptions::MemoryBudget)

  std::size_t Left() const { return S.size() - Pos; }

  std::optional<Error> Need(std::size_t bytes, const std::string& what) const {
    if (Left() >= bytes) return std::nullopt;
    return Error{Pos, what + " is cut off: it needs " + Num(bytes) + " bytes, the stream holds " + Num(Left())};
  }

  void AddCommand(std::string name, std::size_t length) {
    Command command{std::move(name), {}, Pos, length};
    // One-letter commands carry parameters; the named ones (and "Fn") are fixed byte strings.
    const std::size_t letters = command.Name.size() == 1 ? 1 : length;
    command.Params.assign(S.begin() + static_cast<std::ptrdiff_t>(Pos + letters),
                          S.begin() + static_cast<std::ptrdiff_t>(Pos + length));
    if (OpenPage) {
      OpenPage->Commands.push_back(std::move(command));
    } else {
      Result.Commands.push_back(std::move(command));
    }
    Pos += length;
  }

  // Books a record at `offset` against the job's memory budget.
  std::optional<Error> Hold(const PlaneRow& row, std::size_t offset) {
    Memory += sizeof(PlaneRow) + row.First.capacity() + row.Second.capacity();
    if (Memory <= Options.MemoryBudget) return std::nullopt;
    return Error{offset, "the records decoded so far take more than the decoder's memory budget of " +
                             Num(Options.MemoryBudget) + " bytes"};
  }

  std::optional<Error> OpenPageHere() {
    auto mode = ResolveMode(Current.Dpi, Options.WeaveMode);
    if (auto* why = std::get_if<std::string>(&mode)) return Error{Pos, *why};
    Page page;
    page.Offset = Pos;
    page.Mode = std::get<int>(mode);
    page.PageSettings = Current;
    if (SettingsStart != kNone && SettingsStart < Result.Commands.size()) {
      auto first = Result.Commands.begin() + static_cast<std::ptrdiff_t>(SettingsStart);
      page.Offset = first->Offset;
      page.Commands.assign(std::make_move_iterator(first), std::make_move_iterator(Result.Commands.end()));
      Result.Commands.erase(first, Result.Commands.end());
    }
    SettingsStart = kNone;
    PageFeed = 0;
    FeedSincePass = 0;
    LastFeedOffset = kNone;
    OpenPage = std::move(page);
    return std::nullopt;
  }

  std::optional<Error> ClosePass() {
    if (!OpenPass) return std::nullopt;
    Pass& pass = *OpenPass;
    const std::size_t planes = pass.Color ? 4 : 1;
    if (pass.Records.size() % planes != 0) {
      return Error{Pos, "pass from offset " + Num(pass.Offset) + " ends after " + Num(pass.Records.size()) +
                            " plane records, not a whole number of colour rows of four records"};
    }
    pass.HeadRows = static_cast<int>(pass.Records.size() / planes);
    StreamStats& stats = OpenPage->Stats;
    stats.Passes += 1;
    stats.PassBytes += pass.Bytes;
    OpenPage->Passes.push_back(std::move(pass));
    OpenPass.reset();
    return std::nullopt;
  }

  std::optional<Error> ClosePage() {
    if (auto error = ClosePass()) return error;
    Page& page = *OpenPage;
    page.EndOffset = Pos;
    AddCommand("FormFeed", 1);
    page.Stats.StreamBytes = Pos - page.Offset;
    Result.Pages.push_back(std::move(page));
    OpenPage.reset();
    // The paper group belongs to one page.
    Current.Paper = -1;
    Current.PaperLong = false;
    Current.Envelope = false;
    return std::nullopt;
  }

  // The pass a row record joins: the open one, or a new one after the feeds since the last.
  std::optional<Error> JoinPass() {
    if (OpenPass) return std::nullopt;
    if (OpenPage->Passes.size() >= kMaxPassesPerPage) {
      return Error{Pos, "page holds more than " + Num(kMaxPassesPerPage) + " passes"};
    }
    Pass pass;
    pass.Offset = Pos;
    pass.Feed = FeedSincePass;
    pass.FeedOffset = LastFeedOffset == kNone ? Pos : LastFeedOffset;
    pass.PaperAdvance = PageFeed;
    pass.Color = IsColorInk(Current.InkMode);
    pass.InkMode = Current.InkMode;
    FeedSincePass = 0;
    LastFeedOffset = kNone;
    OpenPass = std::move(pass);
    return std::nullopt;
  }

  // A plane record of the open pass at Pos, its head row and plane counted from the records before it.
  std::variant<PlaneRow, Error> NextPlaneRow() const {
    const Pass& pass = *OpenPass;
    const std::size_t planes = pass.Color ? 4 : 1;
    PlaneRow row;
    row.Offset = Pos;
    row.HeadRow = static_cast<int>(pass.Records.size() / planes);
    row.Plane = pass.Color ? kColorPlaneOrder[pass.Records.size() % 4] : 3;
    if (row.HeadRow >= kHeadRows) {
      return Error{Pos, "pass from offset " + Num(pass.Offset) + " holds more than " + Num(kHeadRows) + " head rows"};
    }
    return row;
  }

  const CommandDescriptor* Match() const {
    for (const CommandDescriptor& command : CommandTable()) {
      if (command.Byte != S[Pos]) continue;
      if (command.Second != 0 && (Left() < 2 || S[Pos + 1] != command.Second)) continue;
      if (command.Applies && !command.Applies(*this)) continue;
      return &command;
    }
    return nullptr;
  }

  std::optional<Error> Unknown() const {
    if (S[Pos] != kEscape) return Error{Pos, "unknown command byte " + Hex(S[Pos])};
    if (auto error = Need(2, "escape sequence")) return error;
    return Error{Pos, "unknown escape sequence 1B " + Hex(S[Pos + 1])};
  }

  // One command: its row of the table, its length, its place, then what it says.
  std::optional<Error> ParseCommand() {
    const CommandDescriptor* command = Match();
    if (!command || command->Where != Place::Pass) {
      if (auto error = ClosePass()) return error;
    }
    if (!command) return Unknown();
    if (auto error = Need(command->Length, CommandNoun(*command))) return error;
    switch (command->Where) {
      case Place::JobHeader:
        if (OpenPage) {
          return Error{Pos, CommandNoun(*command) + " inside the page that began at offset " + Num(OpenPage->Offset) +
                                " (no form feed before it)"};
        }
        break;
      case Place::Page:
      case Place::Pass:
        if (!OpenPage) {
          if (auto error = OpenPageHere()) return error;
        }
        break;
      default: break;
    }
    return command->Read(*this, *command);
  }

  std::optional<Error> Run() {
    if (Options.WeaveMode < 0 || Options.WeaveMode > 6) {
      return Error{0, "weave mode " + std::to_string(Options.WeaveMode) + " is not one of 0 to 6"};
    }
    while (Pos < S.size()) {
      if (auto error = ParseCommand()) return error;
    }
    if (OpenPage) {
      return Error{S.size(),
                   "stream ends inside the page that began at offset " + Num(OpenPage->Offset) + " (no form feed)"};
    }
    const auto& last = Result.Commands;
    Result.Ended = !last.empty() && (last.back().Name == "Reset" || last.back().Name == "AbortTail");
    Result.FinalSettings = Current;
    return std::nullopt;
  }
};

namespace {

using Outcome = std::optional<Error>;

// ---------------------------------------------------------------------------------------------------
// The commands, one function each. Each is called with the command's Length present at Pos and the page
// opened as its place asks; it checks the parameters, updates the settings and records the command.
// ---------------------------------------------------------------------------------------------------

std::size_t ZeroRunEnd(const ParseState& p) {
  std::size_t end = p.Pos;
  while (end < p.S.size() && p.S[end] == 0) ++end;
  return end;
}

Outcome ReadPadding(ParseState& p, const CommandDescriptor& command) {
  p.AddCommand(std::string(command.Name), ZeroRunEnd(p) - p.Pos);
  return std::nullopt;
}

// The abort tail: a run of at least two zeros that ends in 0C 1B 40, the last bytes of the stream, after
// a finished page. The zeros before its own two are padding.
bool IsAbortTail(const ParseState& p) {
  const std::size_t end = ZeroRunEnd(p);
  return !p.OpenPage && end - p.Pos >= 2 && p.S.size() - end == 3 && p.S[end] == kFormFeed && p.S[end + 1] == kEscape &&
         p.S[end + 2] == 0x40;
}

Outcome ReadAbortTail(ParseState& p, const CommandDescriptor& command) {
  const std::size_t padding = ZeroRunEnd(p) - 2 - p.Pos;
  if (padding > 0) p.AddCommand("Padding", padding);
  p.AddCommand(std::string(command.Name), command.Length);
  p.Result.Aborted = true;
  return std::nullopt;
}

Outcome ReadEnterRaster(ParseState& p, const CommandDescriptor& command) {
  const auto at = p.S.begin() + static_cast<std::ptrdiff_t>(p.Pos);
  if (!std::equal(kEnterRaster.begin(), kEnterRaster.end(), at)) {
    return Error{p.Pos, "unknown escape sequence 1B 7C " + Hex(p.S[p.Pos + 2]) + " " + Hex(p.S[p.Pos + 3]) + " " +
                            Hex(p.S[p.Pos + 4])};
  }
  p.SettingsStart = p.Result.Commands.size();
  p.AddCommand(std::string(command.Name), command.Length);
  return std::nullopt;
}

Outcome ReadReset(ParseState& p, const CommandDescriptor& command) {
  p.SettingsStart = kNone;
  p.AddCommand(std::string(command.Name), command.Length);
  return std::nullopt;
}

Outcome ReadResolution(ParseState& p, const CommandDescriptor& command) {
  const int x = p.S[p.Pos + 1];
  const int y = p.S[p.Pos + 2];
  int dpi = 0;
  if (x == 1 && y == 0) dpi = 150;
  if (x == 1 && y == 1) dpi = 300;
  if (x == 2 && y == 2) dpi = 600;
  if (x == 3 && y == 3) dpi = 1200;
  if (dpi == 0) return Error{p.Pos, "unknown resolution \"R\" " + Hex(x) + " " + Hex(y)};
  p.Current.ResolutionX = x;
  p.Current.ResolutionY = y;
  p.Current.Dpi = dpi;
  p.AddCommand(std::string(command.Name), command.Length);
  return std::nullopt;
}

Outcome ReadInkMode(ParseState& p, const CommandDescriptor& command) {
  const int code = p.S[p.Pos + 1];
  if (code != 0x10 && code != 0x00 && code != 0x31 && code != 0x30) {
    return Error{p.Pos, "unknown ink mode \"I\" " + Hex(code)};
  }
  p.Current.InkMode = code;
  p.AddCommand(std::string(command.Name), command.Length);
  return std::nullopt;
}

Outcome ReadCompression(ParseState& p, const CommandDescriptor& command) {
  const int code = p.S[p.Pos + 1];
  if (code != kPatternCoder && code != kPackBits && code != kNoCompression) {
    return Error{p.Pos, "unknown compression \"M\" " + Hex(code)};
  }
  p.Current.Compression = code;
  p.AddCommand(std::string(command.Name), command.Length);
  return std::nullopt;
}

Outcome ReadD(ParseState& p, const CommandDescriptor& command) {
  const int d = p.S[p.Pos + 1];
  if (d != 0 && d != 2) return Error{p.Pos, "unknown \"D\" value " + Hex(d)};
  p.Current.DValue = d;
  p.AddCommand(std::string(command.Name), command.Length);
  return std::nullopt;
}

Outcome ReadMedia(ParseState& p, const CommandDescriptor& command) {
  if (p.S[p.Pos + 1] != 0x05 || p.S[p.Pos + 2] > 4) {
    return Error{p.Pos, "unknown media command \"N\" " + Hex(p.S[p.Pos + 1]) + " " + Hex(p.S[p.Pos + 2])};
  }
  p.Current.Media = p.S[p.Pos + 2];
  p.AddCommand(std::string(command.Name), command.Length);
  return std::nullopt;
}

// "Y" and "X": recorded as they are.
Outcome ReadAsIs(ParseState& p, const CommandDescriptor& command) {
  p.AddCommand(std::string(command.Name), command.Length);
  return std::nullopt;
}

Outcome ReadPaper(ParseState& p, const CommandDescriptor& command) {
  const int paper = p.S[p.Pos + 1];
  const bool longForm = paper == 0xFF && p.Left() >= 4 && p.S[p.Pos + 2] == 0xE8 && p.S[p.Pos + 3] == 0x02;
  p.Current.Paper = paper;
  p.Current.PaperLong = longForm;
  p.OpenPage->PageSettings.Paper = paper;
  p.OpenPage->PageSettings.PaperLong = longForm;
  p.AddCommand(std::string(command.Name), longForm ? command.MaxLength : command.Length);
  return std::nullopt;
}

// 46 6E 00 right after the paper command is "Fn"; anywhere else 46 is a feed.
bool IsEnvelope(const ParseState& p) {
  const bool afterPaper = p.OpenPage && !p.OpenPage->Commands.empty() && p.OpenPage->Commands.back().Name == "s";
  return afterPaper && p.Left() >= 3 && p.S[p.Pos + 1] == 0x6E && p.S[p.Pos + 2] == 0x00;
}

Outcome ReadEnvelope(ParseState& p, const CommandDescriptor& command) {
  p.Current.Envelope = true;
  p.OpenPage->PageSettings.Envelope = true;
  p.AddCommand(std::string(command.Name), command.Length);
  return std::nullopt;
}

Outcome ReadFeed(ParseState& p, const CommandDescriptor& command) {
  const long amount = p.S[p.Pos + 1] | (p.S[p.Pos + 2] << 8);
  p.PageFeed += amount;
  if (p.PageFeed > kMaxPageFeedUnits) {
    return Error{p.Pos, "feeds reach " + std::to_string(p.PageFeed) + "/400 inch on this page, beyond the " +
                            std::to_string(kMaxPageInches) + "-inch page limit"};
  }
  p.FeedSincePass += amount;
  p.LastFeedOffset = p.Pos;
  p.OpenPage->Stats.Feeds += 1;
  p.OpenPage->Stats.TotalFeed += amount;
  p.AddCommand(std::string(command.Name), command.Length);
  return std::nullopt;
}

Outcome ReadBlankRow(ParseState& p, const CommandDescriptor&) {
  if (p.Current.InkMode < 0) return Error{p.Pos, "row record before any ink-mode command \"I\""};
  if (auto error = p.JoinPass()) return error;
  auto next = p.NextPlaneRow();
  if (auto* error = std::get_if<Error>(&next)) return *error;
  PlaneRow& row = std::get<PlaneRow>(next);
  row.WireBytes = 1;
  StreamStats& stats = p.OpenPage->Stats;
  stats.Records += 1;
  stats.BlankRecords += 1;
  p.OpenPass->Bytes += 1;
  if (auto error = p.Hold(row, row.Offset)) return error;
  p.OpenPass->Records.push_back(std::move(row));
  p.Pos += 1;
  return std::nullopt;
}

// The data of a "G" record as decoded by the coder in force.
struct RowData {
  std::size_t WireBytes = 0;            // data bytes on the wire
  std::vector<std::uint8_t> Bytes;      // decoded
  std::vector<std::size_t> Boundaries;  // decoded length after every code (none for raw data)
};

// The length word and the data of the "G" record at Pos, decoded; marks the row raw when it is.
std::variant<RowData, Error> ReadRowData(const ParseState& p, PlaneRow& row) {
  const std::size_t pos = p.Pos;
  if (p.Current.Compression < 0) return Error{pos, "row record before any compression command \"M\""};
  const unsigned length = p.S[pos + 1] | (p.S[pos + 2] << 8);
  const bool compressionOn = p.Current.Compression != kNoCompression;
  row.Raw = !compressionOn || (length & 0x8000) != 0;
  RowData data;
  data.WireBytes = compressionOn ? (length & 0x7FFF) : length;
  if (data.WireBytes == 0) return Error{pos, "row record with no data"};
  if (row.Raw && data.WireBytes > 2 * static_cast<std::size_t>(kMaxRowBytes)) {
    return Error{pos, "raw row of " + Num(data.WireBytes) + " bytes is beyond the " + Num(2 * kMaxRowBytes) +
                          "-byte record limit"};
  }
  if (p.Left() - 3 < data.WireBytes) {
    return Error{pos, "row record of " + Num(data.WireBytes) + " data bytes runs past the end of the stream (" +
                          Num(p.Left() - 3) + " bytes left)"};
  }
  const auto wire = p.S.subspan(pos + 3, data.WireBytes);
  if (row.Raw) {
    data.Bytes.assign(wire.begin(), wire.end());
    return data;
  }
  auto decoded = p.Current.Compression == kPatternCoder ? DecodePattern(wire, 2 * kMaxRowBytes, &data.Boundaries)
                                                        : DecodePackBits(wire, 2 * kMaxRowBytes, &data.Boundaries);
  if (auto* error = std::get_if<Error>(&decoded)) {
    return Error{pos + 3 + error->Offset, error->Message + " (row record at offset " + Num(pos) + ")"};
  }
  data.Bytes = std::move(std::get<std::vector<std::uint8_t>>(decoded));
  return data;
}

// The bits per dot of a record that decodes to `data`: the depth the "I" code in force names when the
// page's row length fits it, else the other depth (the row is flagged); an error when neither fits. A
// two-bit record splits where its codes reach half the total.
std::variant<int, Error> RowDepth(const ParseState& p, const RowData& data, int inkMode, PlaneRow& row) {
  const std::size_t total = data.Bytes.size();
  const bool twoFits =
      total % 2 == 0 && (row.Raw || std::binary_search(data.Boundaries.begin(), data.Boundaries.end(), total / 2));
  const int wanted = InkBits(inkMode);
  const std::size_t rowBytes = static_cast<std::size_t>(p.OpenPage->RowBytes);
  auto fits = [&](int bits) {
    if (bits == 2 && !twoFits) return false;
    return rowBytes == 0 || total == rowBytes * static_cast<std::size_t>(bits);
  };
  int bits = 0;
  if (fits(wanted)) {
    bits = wanted;
  } else if (fits(3 - wanted)) {
    bits = 3 - wanted;
    row.DepthMismatch = true;
  } else {
    return Error{p.Pos, "row record decodes to " + Num(total) + " bytes; this page's rows are " + Num(rowBytes) +
                            " bytes per bit plane" + (wanted == 2 ? " and two-bit records hold two" : "")};
  }
  if (total / bits > static_cast<std::size_t>(kMaxRowBytes)) {
    return Error{p.Pos,
                 "row of " + Num(total / bits) + " bytes is beyond the " + Num(kMaxRowBytes) + "-byte row limit"};
  }
  return bits;
}

// "G", a 16-bit length, the data: decoded, its depth told, and its bit planes added to the pass.
Outcome ReadRow(ParseState& p, const CommandDescriptor&) {
  if (p.Current.InkMode < 0) return Error{p.Pos, "row record before any ink-mode command \"I\""};
  if (auto error = p.JoinPass()) return error;
  auto next = p.NextPlaneRow();
  if (auto* error = std::get_if<Error>(&next)) return *error;
  PlaneRow& row = std::get<PlaneRow>(next);
  Pass& pass = *p.OpenPass;
  auto read = ReadRowData(p, row);
  if (auto* error = std::get_if<Error>(&read)) return *error;
  RowData& data = std::get<RowData>(read);
  auto depth = RowDepth(p, data, pass.InkMode, row);
  if (auto* error = std::get_if<Error>(&depth)) return *error;
  const int bits = std::get<int>(depth);

  const std::size_t total = data.Bytes.size();
  if (p.OpenPage->RowBytes == 0) p.OpenPage->RowBytes = static_cast<int>(total / bits);
  row.BitsPerDot = bits;
  row.Blank = false;
  row.WireBytes = 3 + data.WireBytes;
  if (bits == 2) {
    row.Second.assign(data.Bytes.begin() + static_cast<std::ptrdiff_t>(total / 2), data.Bytes.end());
    data.Bytes.resize(total / 2);
  }
  row.First = std::move(data.Bytes);

  StreamStats& stats = p.OpenPage->Stats;
  stats.Records += 1;
  (row.Raw ? stats.RawRecords : stats.CompressedRecords) += 1;
  stats.CompressedSize += data.WireBytes;
  stats.UncompressedSize += total;
  if (row.DepthMismatch) stats.DepthMismatches += 1;
  pass.Bytes += row.WireBytes;
  if (auto error = p.Hold(row, row.Offset)) return error;
  pass.Records.push_back(std::move(row));
  p.Pos += 3 + data.WireBytes;
  return std::nullopt;
}

Outcome ReadFormFeed(ParseState& p, const CommandDescriptor&) {
  if (p.OpenPage) return p.ClosePage();
  // A form feed with nothing before it is a page with nothing on it.
  if (auto error = p.OpenPageHere()) return error;
  return p.ClosePage();
}

// ---------------------------------------------------------------------------------------------------
// The table. Rows that share a byte are tried in order: the first whose second byte and Applies hold.
// ---------------------------------------------------------------------------------------------------
constexpr CommandDescriptor kCommands[] = {
    {0x00, 0, 5, 5, "AbortTail", "abort tail", "00 00 0C 1B 40", Place::JobEnd,
     "the last five bytes of the stream, outside a page; what the job end writes after a failed write", IsAbortTail,
     ReadAbortTail},
    {0x00, 0, 1, 0, "Padding", "padding", "00 ...", Place::Anywhere,
     "a run of zero bytes is one command (a filler and the padding after it merge)", nullptr, ReadPadding},
    {kEscape, 0x7C, 5, 5, "EnterRaster", "enter raster language", "1B 7C 01 00 03", Place::JobHeader,
     "exactly these bytes; starts the settings block that the next page takes along", nullptr, ReadEnterRaster},
    {kEscape, 0x40, 2, 2, "Reset", "reset", "1B 40", Place::JobHeader,
     "ends the settings block; the stream's last command when the job ended", nullptr, ReadReset},
    {'R', 0, 3, 3, "R", "resolution", "52 x y", Place::JobHeader,
     "x y: 01 00 150 dpi, 01 01 300 dpi, 02 02 600 dpi, 03 03 1200 dpi (high resolution)", nullptr, ReadResolution},
    {kInk, 0, 2, 2, "I", "ink mode", "49 m", Place::Anywhere,
     "m: 10 colour, 00 black, 31 colour with two-bit dots, 30 black with two-bit dots; ends the pass", nullptr,
     ReadInkMode},
    {'M', 0, 2, 2, "M", "compression", "4D c", Place::JobHeader, "c: 05 pattern coder, 02 PackBits, 00 none", nullptr,
     ReadCompression},
    {'D', 0, 2, 2, "D", "", "44 d", Place::JobHeader, "d: 00 or 02", nullptr, ReadD},
    {'N', 0, 3, 3, "N", "media", "4E 05 m", Place::JobHeader, "m: 00 to 04", nullptr, ReadMedia},
    {'Y', 0, 3, 3, "Y", "", "59 00 00", Place::Page, "recorded as it stands", nullptr, ReadAsIs},
    {'X', 0, 3, 3, "X", "", "58 00 00", Place::Page, "recorded as it stands", nullptr, ReadAsIs},
    {'s', 0, 2, 4, "s", "paper", "73 p, or 73 FF E8 02", Place::Page,
     "p: any; 73 FF followed by E8 02 is the long form (no command begins with E8)", nullptr, ReadPaper},
    {kFeed, 0, 3, 3, "Fn", "envelope", "46 6E 00", Place::Page,
     "only right after the paper command; anywhere else these bytes are a feed", IsEnvelope, ReadEnvelope},
    {kFeed, 0, 3, 3, "F", "feed", "46 n n", Place::Page,
     "n n: 1/400 inch, low byte first; a page's feeds add up to at most 24 inches", nullptr, ReadFeed},
    {kRecord, 0, 3, 0, "G", "row record", "47 l l data", Place::Pass,
     "l l: the data's length, low byte first; bit 15 marks a raw row while \"M\" is 05 or 02; the data decodes to "
     "the page's row length, or twice it for two-bit dots",
     nullptr, ReadRow},
    {kBlank, 0, 1, 1, "Z", "blank row", "5A", Place::Pass, "a plane row without dots", nullptr, ReadBlankRow},
    {kFormFeed, 0, 1, 1, "FormFeed", "form feed", "0C", Place::PageEnd,
     "closes the open page; outside a page it is a page with nothing on it", nullptr, ReadFormFeed},
};

std::string_view PlaceText(Place where) {
  switch (where) {
    case Place::Anywhere: return "anywhere";
    case Place::JobHeader: return "outside a page";
    case Place::Page: return "on a page (opens one)";
    case Place::Pass: return "in a pass (opens a page)";
    case Place::PageEnd: return "ends a page";
    case Place::JobEnd: return "ends the job";
  }
  return "";
}

std::string LengthText(const CommandDescriptor& command) {
  if (command.MaxLength == command.Length) return Num(command.Length);
  if (command.MaxLength == 0) return Num(command.Length) + " or more";
  return Num(command.Length) + " or " + Num(command.MaxLength);
}

}  // namespace

std::span<const CommandDescriptor> CommandTable() { return kCommands; }

const CommandDescriptor* FindCommand(std::string_view name) {
  for (const CommandDescriptor& command : kCommands)
    if (command.Name == name) return &command;
  return nullptr;
}

std::string CommandNoun(const CommandDescriptor& command) {
  std::string noun;
  if (command.Name.size() > 2) return noun.append(command.Title);  // named commands: their title
  if (!command.Title.empty()) noun.append(command.Title).append(" ");
  noun.append("\"").append(command.Name).append("\"");
  if (command.Title.empty()) noun.append(" command");
  return noun;
}

std::string CommandTableMarkdown() {
  std::string table =
      "| Command | Bytes | Length | Where | Read as |\n"
      "|---|---|---|---|---|\n";
  for (const CommandDescriptor& command : kCommands) {
    table.append("| `").append(command.Name).append("`");
    if (command.Name.size() <= 2 && !command.Title.empty()) table.append(" ").append(command.Title);
    table.append(" | ").append(command.Form).append(" | ").append(LengthText(command));
    table.append(" | ").append(PlaceText(command.Where)).append(" | ").append(command.Rule).append(" |\n");
  }
  return table;
}

std::variant<Job, Error> ParseJob(std::span<const std::uint8_t> stream, const DecodeOptions& options) {
  try {
    ParseState parser{stream, options, {}, {}, {}, {}};
    if (auto error = parser.Run()) return *error;
    return std::move(parser.Result);
  } catch (const std::bad_alloc&) {
    return Error{0, "out of memory while parsing the job"};
  } catch (...) {
    return Error{0, "internal failure while parsing the job"};
  }
}

}  // namespace inkweave::decode
