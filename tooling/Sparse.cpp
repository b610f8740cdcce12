#include "Sparse.h"

#include <algorithm>
#include <cctype>
#include <exception>

#include "Names.h"
#include "RecordOrder.h"

namespace archspec {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }

bool SameIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return std::tolower(static_cast<unsigned char>(x)) ==
           std::tolower(static_cast<unsigned char>(y));
  });
}

// The next blank-separated word of `text`, taken off its front.
std::string_view NextWord(std::string_view& text) {
  text = TrimBlanks(text);
  size_t end = 0;
  while (end < text.size() && !IsBlank(text[end])) ++end;
  const std::string_view word = text.substr(0, end);
  text.remove_prefix(end);
  return word;
}

bool IsNameStart(char c) { return std::isalpha(static_cast<unsigned char>(c)) || c == '_'; }

class Reader {
 public:
  Reader(const Layout& layout, const NameResolver& names, const ReportLimits& limits)
      : layout_(layout), names_(names), limits_(limits) {
    result_.values.assign(layout.leaves().size(), 0);
    result_.assigned.assign(layout.leaves().size(), false);
    first_line_.assign(layout.leaves().size(), 0);
  }

  void ReadHeader(std::string_view text) { result_.header = ReadListingHeader(text); }

  void ReadLine(size_t line, std::string_view text) {
    const size_t hash = text.find('#');
    if (hash != std::string_view::npos) text = text.substr(0, hash);
    text = TrimBlanks(text);
    if (text.empty()) return;

    const size_t equals = text.find('=');
    if (equals == std::string_view::npos) {
      return Fail(line, "expected 'path = value', found '" + EchoText(text) + "'");
    }
    const std::string_view path = TrimBlanks(text.substr(0, equals));
    const std::string_view value_text = TrimBlanks(text.substr(equals + 1));
    if (path.empty()) return Fail(line, "missing the path before '='");
    if (value_text.empty()) {
      return Fail(line, "missing the value after '=' for " + EchoText(path));
    }
    for (char c : value_text) {
      if (IsBlank(c) || c == '=') {
        return Fail(line, "unexpected text after the value of " + EchoText(path) + ": '" +
                              EchoText(value_text) + "'");
      }
    }

    const std::optional<size_t> leaf_index = layout_.Find(path);
    if (!leaf_index.has_value()) return Fail(line, UnknownPath(path));
    const Leaf& leaf = layout_.leaves()[*leaf_index];

    const LeafValue read =
        ReadLeafValue(value_text, layout_, *leaf_index, names_, [this] { return TakeHint(); });
    if (!read.value.has_value()) return Fail(line, read.error);
    const uint64_t value = *read.value;

    if (first_line_[*leaf_index] != 0) {
      return Fail(line, "duplicate assignment to " + leaf.path + " (first assigned on line " +
                            std::to_string(first_line_[*leaf_index]) + ")");
    }
    first_line_[*leaf_index] = line;
    result_.values[*leaf_index] = value;
    result_.assigned[*leaf_index] = true;
  }

  bool GaveUp() const { return gave_up_; }

  SparseResult Finish() {
    if (!result_.ok()) {
      result_.values.assign(layout_.leaves().size(), 0);
      result_.assigned.assign(layout_.leaves().size(), false);
    }
    return std::move(result_);
  }

  void Fail(size_t line, std::string message) {
    if (gave_up_) return;
    if (result_.errors.size() >= limits_.max_errors) {
      result_.errors.push_back({line, 0, "too many errors; stopping here"});
      gave_up_ = true;
      return;
    }
    result_.errors.push_back({line, 0, std::move(message)});
  }

 private:
  // Whether one more "did you mean" search fits the budget of this listing.
  bool TakeHint() {
    if (hints_ >= limits_.max_hints) return false;
    ++hints_;
    return true;
  }

  std::string UnknownPath(std::string_view path) { return layout_.NotALeaf(path, TakeHint()); }

  const Layout& layout_;
  const NameResolver& names_;
  ReportLimits limits_;
  size_t hints_ = 0;
  SparseResult result_;
  std::vector<size_t> first_line_;  // per leaf: the line that assigned it, 0 if none yet
  bool gave_up_ = false;
};

}  // namespace

std::string_view TrimBlanks(std::string_view s) {
  while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsBlank(s.back())) s.remove_suffix(1);
  return s;
}

std::optional<uint64_t> ParseNumber(std::string_view text, bool& overflow) {
  overflow = false;
  unsigned base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  if (text.empty()) return std::nullopt;
  uint64_t value = 0;
  for (char c : text) {
    unsigned digit;
    if (c >= '0' && c <= '9') {
      digit = static_cast<unsigned>(c - '0');
    } else if (base == 16 && c >= 'a' && c <= 'f') {
      digit = static_cast<unsigned>(c - 'a' + 10);
    } else if (base == 16 && c >= 'A' && c <= 'F') {
      digit = static_cast<unsigned>(c - 'A' + 10);
    } else {
      return std::nullopt;
    }
    if (value > (~uint64_t{0} - digit) / base) overflow = true;
    value = value * base + digit;
  }
  if (overflow) return std::nullopt;
  return value;
}

SparseResult ReadSparse(std::string_view text, const Layout& layout, const NameResolver& names,
                        size_t max_errors) noexcept {
  ReportLimits limits;
  limits.max_errors = max_errors;
  return ReadSparse(text, layout, names, limits);
}

LeafValue ReadLeafValue(std::string_view text, const Layout& layout, size_t leaf_index,
                        const NameResolver& names, const std::function<bool()>& take_hint) {
  const Leaf& leaf = layout.leaves()[leaf_index];
  // The value as a complaint shows it: as written, and what it stands for when it is a name.
  // Made only for a complaint, as most values have none.
  const bool named_value = IsNameStart(text.front());
  uint64_t value = 0;
  const auto shown = [&] {
    std::string out = EchoText(text);
    if (named_value) out += " = " + std::to_string(value);
    return out;
  };
  const auto fail = [](std::string message) { return LeafValue{std::nullopt, std::move(message)}; };
  if (named_value) {
    if (!names) {
      return fail("no enumerant names are known here, found " + EchoText(text) + " for " +
                  leaf.path);
    }
    NamedValue named = names(text, leaf_index);
    if (!named.value.has_value()) {
      std::string message = leaf.path + " = " + EchoText(text) + ": " + named.error;
      if (named.nearest && take_hint && take_hint()) {
        const std::string nearest = named.nearest();
        if (!nearest.empty()) message += "; did you mean " + nearest + "?";
      }
      return fail(std::move(message));
    }
    value = *named.value;
  } else if (text.front() == '-') {
    return fail(ValueNegative(shown(), leaf));
  } else {
    bool overflow = false;
    const std::optional<uint64_t> number = ParseNumber(text, overflow);
    if (overflow) return fail(ValueTooWide(shown(), leaf));
    if (!number.has_value()) {
      return fail("value " + shown() + " of " + leaf.path +
                  " is neither a number (decimal or 0x hexadecimal) nor an enumerant name");
    }
    value = *number;
  }
  if (value > MaxValue(leaf.width)) return fail(ValueTooWide(shown(), leaf));
  return LeafValue{value, {}};
}

SparseResult ReadSparse(std::string_view text, const Layout& layout, const NameResolver& names,
                        const ReportLimits& limits) noexcept {
  size_t line = 0;
  try {
    Reader reader(layout, names, limits);
    text = SkipByteOrderMark(text);
    reader.ReadHeader(text);
    while (!reader.GaveUp()) {
      ++line;
      const size_t end = text.find('\n');
      reader.ReadLine(line, text.substr(0, end));
      if (end == std::string_view::npos) break;
      text.remove_prefix(end + 1);
    }
    return reader.Finish();
  } catch (const std::exception& e) {
    SparseResult failed;
    failed.errors.push_back({line, 0, std::string("cannot read the listing: ") + e.what()});
    return failed;
  } catch (...) {
    SparseResult failed;
    failed.errors.push_back({line, 0, "cannot read the listing"});
    return failed;
  }
}

std::string ValueTooWide(std::string_view shown, const Leaf& leaf) {
  return "value " + std::string(shown) + " does not fit in " + std::to_string(leaf.width) +
         " bits of " + leaf.path;
}

std::string ValueNegative(std::string_view shown, const Leaf& leaf) {
  return "value " + std::string(shown) + " of " + leaf.path +
         " is negative; fields hold unsigned numbers";
}

std::string Hex(uint64_t value) {
  static constexpr char kDigits[] = "0123456789abcdef";
  char buffer[16];
  size_t n = 0;
  do {
    buffer[n++] = kDigits[value & 15];
    value >>= 4;
  } while (value != 0);
  std::string out = "0x";
  while (n > 0) out += buffer[--n];
  return out;
}

std::string ListingHeaderText(std::string_view generation, std::string_view tile) {
  std::string out = "archspec ";
  out.append(generation).append(" ").append(tile);
  return out;
}

std::optional<ListingHeader> ReadListingHeader(std::string_view text) {
  text = SkipByteOrderMark(text);
  std::string_view line = text.substr(0, text.find('\n'));
  line = TrimBlanks(line);
  if (line.empty() || line.front() != '#') return std::nullopt;
  line.remove_prefix(1);
  if (NextWord(line) != "archspec") return std::nullopt;
  ListingHeader header;
  header.generation = NextWord(line);
  header.tile = NextWord(line);
  if (header.tile.empty() || !TrimBlanks(line).empty()) return std::nullopt;
  return header;
}

std::optional<Diagnostic> CheckListingHeader(const std::optional<ListingHeader>& header,
                                             std::string_view generation, std::string_view tile) {
  if (!header.has_value()) return std::nullopt;
  if (SameIgnoringCase(header->generation, generation) && SameIgnoringCase(header->tile, tile)) {
    return std::nullopt;
  }
  return Diagnostic{1, 0,
                    "the listing is for " + EchoText(header->generation) + " " +
                        EchoText(header->tile) + " (its header says so), not for " +
                        std::string(generation) + " " + std::string(tile)};
}

std::vector<bool> NamedZeros(const Layout& layout, const std::vector<uint64_t>& values,
                             const Naming& names) {
  const size_t count = std::min(layout.leaves().size(), values.size());
  std::vector<bool> shown(count, false);
  // One walk of the printed tree: each open record gathers the candidates that it names as
  // members (a typed leaf at 0 whose 0 has a name, a packed array's elements included) and
  // whether a leaf below it is set; a record that ends with one set shows its candidates, and
  // tells the record around it that a leaf below it is set.
  struct Open {
    bool set = false;
    size_t first_candidate = 0;  // its candidates are candidates[first_candidate...]
  };
  std::vector<Open> open;
  std::vector<size_t> candidates;
  for (const TreeLine& line : layout.tree()) {
    switch (line.kind) {
      case TreeLine::Kind::kRecord:
        open.push_back({false, candidates.size()});
        break;
      case TreeLine::Kind::kRecordEnd: {
        const Open done = open.back();
        open.pop_back();
        if (done.set) {
          for (size_t k = done.first_candidate; k < candidates.size(); ++k) {
            shown[candidates[k]] = true;
          }
          if (!open.empty()) open.back().set = true;
        }
        candidates.resize(done.first_candidate);
        break;
      }
      case TreeLine::Kind::kLeaf:
        if (line.leaf >= count || open.empty()) break;
        if (values[line.leaf] != 0) {
          open.back().set = true;
        } else if (!names.NamesOf(line.leaf, 0).empty()) {
          candidates.push_back(line.leaf);
        }
        break;
      case TreeLine::Kind::kArray:
      case TreeLine::Kind::kArrayEnd:
        break;
    }
  }
  return shown;
}

std::string WriteSparse(const Layout& layout, const std::vector<uint64_t>& values,
                        const std::vector<std::string>& header, bool all, const Naming* names,
                        ListingOrder order) {
  std::string out;
  for (const std::string& line : header) out += "# " + line + "\n";
  const size_t count = std::min(layout.leaves().size(), values.size());
  const std::vector<bool> named_zeros =
      names != nullptr && !all ? NamedZeros(layout, values, *names) : std::vector<bool>();
  const auto write = [&](size_t i) {
    if (i >= count) return;
    if (values[i] != 0 || all || (!named_zeros.empty() && named_zeros[i])) {
      AppendListingLine(out, layout, i, values[i], names);
    }
  };
  if (order == ListingOrder::kBit) {
    for (size_t i = 0; i < count; ++i) write(i);
  } else {
    for (size_t i : RecordOrder(layout)) write(i);
  }
  return out;
}

void AppendListingLine(std::string& out, const Layout& layout, size_t leaf, uint64_t value,
                       const Naming* names) {
  out += layout.leaves()[leaf].path;
  out += " = ";
  if (names == nullptr) {
    out += Hex(value);
  } else {
    names->AppendValue(out, leaf, value);
  }
  out += "\n";
}

}  // namespace archspec
