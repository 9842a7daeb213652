#include "cli/options.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace inkweave::cli {
namespace {

std::string_view Trim(std::string_view s) {
  while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
  while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
  return s;
}

std::optional<int> ParsePageNumber(std::string_view s) {
  s = Trim(s);
  int value = 0;
  const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
  if (ec != std::errc() || end != s.data() + s.size() || value < 1) return std::nullopt;
  return value;
}

// 'text' (built by appending: GCC 12 at -O3 misreports "'" + std::string as an overlapping copy).
std::string Quoted(std::string_view text) {
  std::string quoted;
  quoted += '\'';
  quoted.append(text);
  quoted += '\'';
  return quoted;
}

}  // namespace

bool PageSelection::Contains(int page) const {
  if (Ranges.empty()) return true;
  return std::any_of(Ranges.begin(), Ranges.end(),
                     [page](const PageRange& r) { return page >= r.First && page <= r.Last; });
}

int PageSelection::Highest() const {
  int highest = 0;
  for (const PageRange& r : Ranges)
    highest = std::max(highest, r.Last == std::numeric_limits<int>::max() ? r.First : r.Last);
  return highest;
}

std::optional<PageSelection> ParsePages(std::string_view text, std::string* error) {
  PageSelection selection;
  const std::string original(text);
  auto fail = [&](const std::string& why) -> std::optional<PageSelection> {
    if (error) *error = "--pages " + original + ": " + why;
    return std::nullopt;
  };
  if (Trim(text).empty()) return fail("no pages named (write e.g. 1-3,7)");
  while (true) {
    const std::size_t comma = text.find(',');
    const std::string_view item = Trim(text.substr(0, comma));
    if (item.empty()) return fail("empty item (write e.g. 1-3,7)");
    const std::size_t dash = item.find('-');
    PageRange range;
    if (dash == std::string_view::npos) {
      const auto page = ParsePageNumber(item);
      if (!page) return fail(Quoted(item) + " is not a page number (pages count from 1)");
      range.First = range.Last = *page;
    } else {
      const auto first = ParsePageNumber(item.substr(0, dash));
      const std::string_view rest = Trim(item.substr(dash + 1));
      const auto last = rest.empty() ? std::optional<int>(std::numeric_limits<int>::max()) : ParsePageNumber(rest);
      if (!first || !last) return fail(Quoted(item) + " is not a page range (write e.g. 2-5 or 3-)");
      if (*last < *first) return fail(Quoted(item) + " runs backwards");
      range.First = *first;
      range.Last = *last;
    }
    selection.Ranges.push_back(range);
    if (comma == std::string_view::npos) break;
    text.remove_prefix(comma + 1);
  }
  return selection;
}

std::optional<Scale> ParseScale(std::string_view text, std::string* error) {
  const std::string original(text);
  text = Trim(text);
  if (text == "fit") return Scale{};
  if (!text.empty() && text.back() == '%') text.remove_suffix(1);
  double value = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size() || !std::isfinite(value) || value < 1 ||
      value > 1000) {
    if (error) *error = "--scale " + original + ": expected 'fit' or a percentage from 1% to 1000%";
    return std::nullopt;
  }
  return Scale{value};
}

namespace {

// Optimal string alignment distance (edits: insert, delete, replace, swap two neighbours), ASCII case
// folded.
std::size_t EditDistance(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) d[i][0] = i;
  for (std::size_t j = 0; j <= b.size(); ++j) d[0][j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i)
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t cost = lower(a[i - 1]) == lower(b[j - 1]) ? 0 : 1;
      d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + cost});
      if (i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) && lower(a[i - 2]) == lower(b[j - 1]))
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
    }
  return d[a.size()][b.size()];
}

}  // namespace

std::string ClosestName(std::string_view typed, const std::vector<std::string>& names) {
  // Up to one edit in four letters: "prnt" → "print", "--papr" → "--paper"; nothing for a short name
  // ("a3" is not a misspelt "a4").
  std::string best;
  std::size_t bestDistance = typed.size() / 4 + 1;
  for (const std::string& name : names) {
    const std::size_t distance = EditDistance(typed, name);
    if (distance < bestDistance) {
      best = name;
      bestDistance = distance;
    }
  }
  return best;
}

std::string UnknownChoice(std::string_view what, std::string_view typed, const std::vector<std::string>& names) {
  std::string message = "unknown " + std::string(what) + " " + Quoted(typed);
  if (const std::string close = ClosestName(typed, names); !close.empty())
    message += "; did you mean " + Quoted(close) + "?";
  message += " (";
  for (std::size_t i = 0; i < names.size(); ++i) message += (i ? ", " : "") + names[i];
  return message + ")";
}

Placement PlacePage(double documentWidth, double documentHeight, std::int64_t areaWidth, std::int64_t areaHeight,
                    const Scale& scale) {
  Placement p;
  if (documentWidth <= 0 || documentHeight <= 0) return p;
  p.Factor = scale.Percent ? *scale.Percent / 100.0
                           : std::min(static_cast<double>(areaWidth) / documentWidth,
                                      static_cast<double>(areaHeight) / documentHeight);
  // The side that fits exactly must come out exactly, not one dot short or over.
  p.Width = std::max<std::int64_t>(1, std::llround(documentWidth * p.Factor));
  p.Height = std::max<std::int64_t>(1, std::llround(documentHeight * p.Factor));
  if (!scale.Percent) {
    p.Width = std::min(p.Width, areaWidth);
    p.Height = std::min(p.Height, areaHeight);
  }
  // Centred; a page larger than the area is cropped about its centre (negative offsets).
  p.Left = (areaWidth - p.Width) / 2;
  p.Top = (areaHeight - p.Height) / 2;
  return p;
}

}  // namespace inkweave::cli
