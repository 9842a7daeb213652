// Job stream parser: bytes to a structured Job.
//
// The stream is read command by command. Outside a page: zero padding, the escape commands (enter raster
// language, reset), the mode settings "R", "I", "M", "D", "N". A page opens at its first page command
// ("Y", "X", "s", "F", a row record or a blank marker) and takes along the settings block that began with
// the last enter-raster command before it; it closes at the form feed 0C. Inside a page: feeds "F",
// ink-mode changes "I", the paper group ("Y", "X", "s", and "Fn" right after the paper command), zero
// padding, and passes. A pass is the unbroken run of row records ("G") and blank markers ("Z") after a
// feed or any other command; in colour every head row is four records (planes 3, 2, 0, 1), in
// monochrome one (plane 3).
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

struct Parser {
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

  std::size_t Left() const { return S.size() - Pos; }

  std::optional<Error> Need(std::size_t bytes, const char* what) const {
    if (Left() >= bytes) return std::nullopt;
    return Error{Pos,
                 std::string(what) + " is cut off: it needs " + Num(bytes) + " bytes, the stream holds " + Num(Left())};
  }

  void AddCommand(std::string name, std::size_t length) {
    Command command{std::move(name), {}, Pos, length};
    // One-letter commands carry parameters; the named ones are fixed byte strings.
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

  // Commands that only the job header may hold.
  std::optional<Error> OutsidePageOnly(const char* what) const {
    if (!OpenPage) return std::nullopt;
    return Error{Pos, std::string(what) + " inside the page that began at offset " + Num(OpenPage->Offset) +
                          " (no form feed before it)"};
  }

  std::optional<Error> ParseRecord() {
    if (!OpenPage) {
      if (auto error = OpenPageHere()) return error;
    }
    if (Current.InkMode < 0) return Error{Pos, "row record before any ink-mode command \"I\""};
    if (!OpenPass) {
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
    }
    Pass& pass = *OpenPass;
    const std::size_t planes = pass.Color ? 4 : 1;
    PlaneRow row;
    row.Offset = Pos;
    row.HeadRow = static_cast<int>(pass.Records.size() / planes);
    row.Plane = pass.Color ? kColorPlaneOrder[pass.Records.size() % 4] : 3;
    if (row.HeadRow >= kHeadRows) {
      return Error{Pos, "pass from offset " + Num(pass.Offset) + " holds more than " + Num(kHeadRows) + " head rows"};
    }
    StreamStats& stats = OpenPage->Stats;
    if (S[Pos] == kBlank) {
      row.WireBytes = 1;
      stats.Records += 1;
      stats.BlankRecords += 1;
      pass.Bytes += 1;
      pass.Records.push_back(std::move(row));
      Pos += 1;
      return std::nullopt;
    }

    // "G", a 16-bit length, the data.
    if (Current.Compression < 0) return Error{Pos, "row record before any compression command \"M\""};
    if (auto error = Need(3, "row record header")) return error;
    const unsigned length = S[Pos + 1] | (S[Pos + 2] << 8);
    const bool compressionOn = Current.Compression != kNoCompression;
    row.Raw = !compressionOn || (length & 0x8000) != 0;
    const std::size_t dataBytes = compressionOn ? (length & 0x7FFF) : length;
    if (dataBytes == 0) return Error{Pos, "row record with no data"};
    if (row.Raw && dataBytes > 2 * static_cast<std::size_t>(kMaxRowBytes)) {
      return Error{
          Pos, "raw row of " + Num(dataBytes) + " bytes is beyond the " + Num(2 * kMaxRowBytes) + "-byte record limit"};
    }
    if (Left() - 3 < dataBytes) {
      return Error{Pos, "row record of " + Num(dataBytes) + " data bytes runs past the end of the stream (" +
                            Num(Left() - 3) + " bytes left)"};
    }
    const auto data = S.subspan(Pos + 3, dataBytes);
    std::vector<std::uint8_t> decoded;
    std::vector<std::size_t> boundaries;
    if (row.Raw) {
      decoded.assign(data.begin(), data.end());
    } else {
      auto result = Current.Compression == kPatternCoder ? DecodePattern(data, 2 * kMaxRowBytes, &boundaries)
                                                         : DecodePackBits(data, 2 * kMaxRowBytes, &boundaries);
      if (auto* error = std::get_if<Error>(&result)) {
        return Error{Pos + 3 + error->Offset, error->Message + " (row record at offset " + Num(Pos) + ")"};
      }
      decoded = std::move(std::get<std::vector<std::uint8_t>>(result));
    }

    // Depth: the "I" code in force, checked against the page's row length.
    const std::size_t total = decoded.size();
    const bool twoFits =
        total % 2 == 0 && (row.Raw || std::binary_search(boundaries.begin(), boundaries.end(), total / 2));
    const int wanted = InkBits(pass.InkMode);
    const std::size_t rowBytes = static_cast<std::size_t>(OpenPage->RowBytes);
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
      return Error{Pos, "row record decodes to " + Num(total) + " bytes; this page's rows are " + Num(rowBytes) +
                            " bytes per bit plane" + (wanted == 2 ? " and two-bit records hold two" : "")};
    }
    if (total / bits > static_cast<std::size_t>(kMaxRowBytes)) {
      return Error{Pos,
                   "row of " + Num(total / bits) + " bytes is beyond the " + Num(kMaxRowBytes) + "-byte row limit"};
    }
    if (rowBytes == 0) OpenPage->RowBytes = static_cast<int>(total / bits);
    row.BitsPerDot = bits;
    row.Blank = false;
    row.WireBytes = 3 + dataBytes;
    if (bits == 2) {
      row.Second.assign(decoded.begin() + static_cast<std::ptrdiff_t>(total / 2), decoded.end());
      decoded.resize(total / 2);
    }
    row.First = std::move(decoded);

    stats.Records += 1;
    (row.Raw ? stats.RawRecords : stats.CompressedRecords) += 1;
    stats.CompressedSize += dataBytes;
    stats.UncompressedSize += total;
    if (row.DepthMismatch) stats.DepthMismatches += 1;
    pass.Bytes += row.WireBytes;
    pass.Records.push_back(std::move(row));
    Pos += 3 + dataBytes;
    return std::nullopt;
  }

  std::optional<Error> ParseFeed() {
    if (!OpenPage) {
      if (auto error = OpenPageHere()) return error;
    }
    const bool afterPaper = !OpenPage->Commands.empty() && OpenPage->Commands.back().Name == "s";
    if (afterPaper && Left() >= 3 && S[Pos + 1] == 0x6E && S[Pos + 2] == 0x00) {
      Current.Envelope = true;
      OpenPage->PageSettings.Envelope = true;
      AddCommand("Fn", 3);
      return std::nullopt;
    }
    if (auto error = Need(3, "feed \"F\"")) return error;
    const long amount = S[Pos + 1] | (S[Pos + 2] << 8);
    PageFeed += amount;
    if (PageFeed > kMaxPageFeedUnits) {
      return Error{Pos, "feeds reach " + std::to_string(PageFeed) + "/400 inch on this page, beyond the " +
                            std::to_string(kMaxPageInches) + "-inch page limit"};
    }
    FeedSincePass += amount;
    LastFeedOffset = Pos;
    OpenPage->Stats.Feeds += 1;
    OpenPage->Stats.TotalFeed += amount;
    AddCommand("F", 3);
    return std::nullopt;
  }

  std::optional<Error> ParseCommand() {
    const std::uint8_t byte = S[Pos];
    if (byte != kRecord && byte != kBlank) {
      if (auto error = ClosePass()) return error;
    }
    switch (byte) {
      case 0x00: {
        std::size_t end = Pos;
        while (end < S.size() && S[end] == 0) ++end;
        AddCommand("Padding", end - Pos);
        return std::nullopt;
      }
      case kEscape: {
        if (auto error = Need(2, "escape sequence")) return error;
        if (S[Pos + 1] == 0x40) {
          if (auto error = OutsidePageOnly("reset 1B 40")) return error;
          SettingsStart = kNone;
          AddCommand("Reset", 2);
          return std::nullopt;
        }
        if (S[Pos + 1] == kEnterRaster[1]) {
          if (auto error = Need(5, "enter-raster-language command")) return error;
          if (!std::equal(kEnterRaster.begin(), kEnterRaster.end(), S.begin() + static_cast<std::ptrdiff_t>(Pos))) {
            return Error{Pos, "unknown escape sequence 1B 7C " + Hex(S[Pos + 2]) + " " + Hex(S[Pos + 3]) + " " +
                                  Hex(S[Pos + 4])};
          }
          if (auto error = OutsidePageOnly("enter-raster-language command")) return error;
          SettingsStart = Result.Commands.size();
          AddCommand("EnterRaster", 5);
          return std::nullopt;
        }
        return Error{Pos, "unknown escape sequence 1B " + Hex(S[Pos + 1])};
      }
      case 'R': {
        if (auto error = Need(3, "resolution \"R\"")) return error;
        if (auto error = OutsidePageOnly("resolution \"R\"")) return error;
        const int x = S[Pos + 1];
        const int y = S[Pos + 2];
        int dpi = 0;
        if (x == 1 && y == 0) dpi = 150;
        if (x == 1 && y == 1) dpi = 300;
        if (x == 2 && y == 2) dpi = 600;
        if (x == 3 && y == 3) dpi = 1200;
        if (dpi == 0) return Error{Pos, "unknown resolution \"R\" " + Hex(x) + " " + Hex(y)};
        Current.ResolutionX = x;
        Current.ResolutionY = y;
        Current.Dpi = dpi;
        AddCommand("R", 3);
        return std::nullopt;
      }
      case kInk: {
        if (auto error = Need(2, "ink mode \"I\"")) return error;
        const int code = S[Pos + 1];
        if (code != 0x10 && code != 0x00 && code != 0x31 && code != 0x30) {
          return Error{Pos, "unknown ink mode \"I\" " + Hex(code)};
        }
        Current.InkMode = code;
        AddCommand("I", 2);
        return std::nullopt;
      }
      case 'M': {
        if (auto error = Need(2, "compression \"M\"")) return error;
        if (auto error = OutsidePageOnly("compression \"M\"")) return error;
        const int code = S[Pos + 1];
        if (code != kPatternCoder && code != kPackBits && code != kNoCompression) {
          return Error{Pos, "unknown compression \"M\" " + Hex(code)};
        }
        Current.Compression = code;
        AddCommand("M", 2);
        return std::nullopt;
      }
      case 'D': {
        if (auto error = Need(2, "\"D\" command")) return error;
        if (auto error = OutsidePageOnly("\"D\" command")) return error;
        if (S[Pos + 1] != 0 && S[Pos + 1] != 2) return Error{Pos, "unknown \"D\" value " + Hex(S[Pos + 1])};
        Current.DValue = S[Pos + 1];
        AddCommand("D", 2);
        return std::nullopt;
      }
      case 'N': {
        if (auto error = Need(3, "media \"N\"")) return error;
        if (auto error = OutsidePageOnly("media \"N\"")) return error;
        if (S[Pos + 1] != 0x05 || S[Pos + 2] > 4) {
          return Error{Pos, "unknown media command \"N\" " + Hex(S[Pos + 1]) + " " + Hex(S[Pos + 2])};
        }
        Current.Media = S[Pos + 2];
        AddCommand("N", 3);
        return std::nullopt;
      }
      case 'Y':
      case 'X': {
        if (auto error = Need(3, byte == 'Y' ? "\"Y\" command" : "\"X\" command")) return error;
        if (!OpenPage) {
          if (auto error = OpenPageHere()) return error;
        }
        AddCommand(std::string(1, static_cast<char>(byte)), 3);
        return std::nullopt;
      }
      case 's': {
        if (auto error = Need(2, "paper \"s\"")) return error;
        if (!OpenPage) {
          if (auto error = OpenPageHere()) return error;
        }
        const int paper = S[Pos + 1];
        const bool longForm = paper == 0xFF && Left() >= 4 && S[Pos + 2] == 0xE8 && S[Pos + 3] == 0x02;
        Current.Paper = paper;
        Current.PaperLong = longForm;
        OpenPage->PageSettings.Paper = paper;
        OpenPage->PageSettings.PaperLong = longForm;
        AddCommand("s", longForm ? 4 : 2);
        return std::nullopt;
      }
      case kFeed: return ParseFeed();
      case kRecord:
      case kBlank: return ParseRecord();
      case kFormFeed: {
        if (OpenPage) return ClosePage();
        // The abort tail 00 00 0C 1B 40 at the very end of the job.
        const bool tail = Left() == 3 && S[Pos + 1] == kEscape && S[Pos + 2] == 0x40 && !Result.Commands.empty() &&
                          Result.Commands.back().Name == "Padding" && Result.Commands.back().Length >= 2;
        if (tail) {
          Command& padding = Result.Commands.back();
          padding.Length -= 2;
          padding.Params.resize(padding.Length);
          if (padding.Length == 0) Result.Commands.pop_back();
          Pos -= 2;
          AddCommand("AbortTail", 5);
          Result.Aborted = true;
          return std::nullopt;
        }
        // A form feed with nothing before it is a page with nothing on it.
        if (auto error = OpenPageHere()) return error;
        return ClosePage();
      }
      default: return Error{Pos, "unknown command byte " + Hex(byte)};
    }
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

}  // namespace

std::variant<Job, Error> ParseJob(std::span<const std::uint8_t> stream, const DecodeOptions& options) {
  try {
    Parser parser{stream, options, {}, {}, {}, {}};
    if (auto error = parser.Run()) return *error;
    return std::move(parser.Result);
  } catch (const std::bad_alloc&) {
    return Error{0, "out of memory while parsing the job"};
  } catch (...) {
    return Error{0, "internal failure while parsing the job"};
  }
}

}  // namespace inkweave::decode
