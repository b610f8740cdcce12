#include "Writes.h"

#include <algorithm>
#include <unordered_map>

#include <nlohmann/json.hpp>

#include "Nearest.h"
#include "Sparse.h"

namespace archspec {

using zu::spec::PatchMetadata;

namespace {

constexpr uint64_t kWordMask = 0xffffffffULL;

// The bits of `value` that a register writes: all of a whole leaf, or one word.
uint64_t WordOf(uint64_t value, RegisterWord word) {
  return word == RegisterWord::kHigh ? value >> 32 : value & kWordMask;
}

// The bits a register writes of its leaf.
uint32_t WordWidth(const Leaf& leaf, RegisterWord word) {
  const auto [first, last] = WordBits(leaf, word);
  return last - first + 1;
}

// "register 24 (pcu_rcf_enum_pcu_rcf_reg_ctrchain0_max_ctxt0)".
std::string RegisterLabel(const RuntimeRegisterRow& reg) {
  return "register " + std::to_string(reg.number) + " (" + reg.name + ")";
}

// "CounterChain_structIn[0].counter_max_value[0]", and ", high word" for a word of a wide leaf.
std::string WordLabel(const RuntimeRegisterRow& reg) {
  std::string out = reg.path;
  if (reg.word != RegisterWord::kWhole) out += std::string(", ") + WordName(reg.word);
  return out;
}

}  // namespace

RegisterWrites WritesBetween(const Configuration& from, const Configuration& to,
                             const WriteOptions& options) {
  return WritesBetween(from.layout(), from.values(), to.values(), options);
}

RegisterWrites WritesBetween(const Layout& layout, std::span<const uint64_t> a,
                             std::span<const uint64_t> b, const WriteOptions& options) {
  RegisterWrites out;
  const std::vector<Leaf>& leaves = layout.leaves();
  for (size_t i = 0; i < leaves.size(); ++i) {
    if (a[i] == b[i]) continue;
    const Leaf& leaf = leaves[i];
    bool unreached = false;
    // The words in CollectPatches' order: the low word (or the whole leaf), then the high word.
    const RuntimeRegisterRow* words[2] = {leaf.runtime_lo, leaf.runtime_hi};
    for (int w = 0; w < (leaf.width > 32 ? 2 : 1); ++w) {
      const RegisterWord word = leaf.width <= 32
                                    ? RegisterWord::kWhole
                                    : (w == 0 ? RegisterWord::kLow : RegisterWord::kHigh);
      if (WordOf(a[i], word) == WordOf(b[i], word)) continue;
      const RuntimeRegisterRow* reg = words[w];
      if (reg == nullptr) {
        unreached = true;
        continue;
      }
      PatchMetadata patch;
      patch.id = options.id;
      patch.reg = reg->number + (w == 0 && options.base ? *options.base : 0);
      patch.value = static_cast<uint32_t>(WordOf(b[i], word));
      out.writes.push_back({patch, i, reg});
    }
    if (unreached) out.load.push_back(i);
  }
  return out;
}

std::string WritesText(const Configuration& from, const RegisterWrites& writes,
                       const WriteOptions& options) {
  std::string out = "# " + from.HeaderLine() + "\n";
  for (const RegisterWrite& write : writes.writes) {
    out += write.reg->name;
    out += " = " + Hex(write.patch.value) + "  # register " + std::to_string(write.patch.reg);
    if (options.id != 0) out += ", id " + std::to_string(options.id);
    out += ": " + WordLabel(*write.reg);
    if (write.reg->inferred) out += " (its number is inferred, not stated)";
    out += "\n";
  }
  return out + WritesLoadText(from, writes);
}

std::string WritesLoadText(const Configuration& from, const RegisterWrites& writes) {
  if (writes.load.empty()) return "";
  std::string out =
      "# needs the configuration loaded: no run-time register writes these changed leaves\n";
  for (size_t leaf : writes.load) out += "#   " + from.layout().leaves()[leaf].path + "\n";
  return out;
}

std::string WritesBinary(const RegisterWrites& writes) {
  std::string out;
  out.reserve(writes.writes.size() * 12);
  for (const RegisterWrite& write : writes.writes) {
    for (uint32_t word : {write.patch.id, write.patch.reg, write.patch.value}) {
      for (int byte = 0; byte < 4; ++byte) out += static_cast<char>((word >> (8 * byte)) & 0xff);
    }
  }
  return out;
}

namespace {

// The run-time registers of the target's tile and generation, by name.
class RegisterNames {
 public:
  explicit RegisterNames(const Configuration& target)
      : rows_(RuntimeRegistersOf(target.version(), target.tile())) {
    for (const RuntimeRegisterRow* row : rows_) by_name_.emplace(row->name, row);
  }
  const RuntimeRegisterRow* Find(std::string_view name) const {
    const auto found = by_name_.find(name);
    return found == by_name_.end() ? nullptr : found->second;
  }
  std::string Nearest(std::string_view name) const {
    NearestName nearest(name);
    for (const RuntimeRegisterRow* row : rows_) nearest.Offer(row->name);
    return nearest.Best();
  }

 private:
  std::vector<const RuntimeRegisterRow*> rows_;
  std::unordered_map<std::string_view, const RuntimeRegisterRow*> by_name_;
};

// A register's value: a number of at most 32 bits.
std::optional<uint32_t> WordValue(std::string_view text, std::string& error) {
  bool overflow = false;
  const std::optional<uint64_t> value = ParseNumber(text, overflow);
  if (!value) {
    error = "found " + EchoText(text) + ", expected a value (decimal or 0x hexadecimal)";
  } else if (*value > kWordMask) {
    error = "value " + EchoText(text) + " does not fit a register's 32 bits";
  } else {
    return static_cast<uint32_t>(*value);
  }
  return std::nullopt;
}

void ReadText(std::string_view data, const Configuration& target, bool force, WritesInput& out) {
  data = SkipByteOrderMark(data);
  if (!force) {
    if (std::optional<Diagnostic> wrong =
            CheckListingHeader(ReadListingHeader(data), target.version().to_product_name_string(),
                               target.tile().name)) {
      wrong->message += " (a list of writes)";
      out.errors.push_back(*wrong);
      return;
    }
  }
  const RegisterNames names(target);
  size_t line = 0;
  while (!data.empty()) {
    ++line;
    const size_t end = std::min(data.find('\n'), data.size());
    std::string_view text = data.substr(0, end);
    data.remove_prefix(std::min(end + 1, data.size()));
    text = TrimBlanks(text.substr(0, std::min(text.find('#'), text.size())));
    if (text.empty()) continue;
    const size_t eq = text.find('=');
    const auto fail = [&](std::string message) {
      out.errors.push_back({line, 0, std::move(message), Hint::kNone});
    };
    if (eq == std::string_view::npos) {
      fail("found " + EchoText(text) + ", expected 'REGISTER = VALUE'");
      continue;
    }
    const std::string_view left = TrimBlanks(text.substr(0, eq));
    ReadWrite write;
    write.line = line;
    std::string error;
    const std::optional<uint32_t> value = WordValue(TrimBlanks(text.substr(eq + 1)), error);
    if (!value) {
      fail(std::move(error));
      continue;
    }
    write.patch.value = *value;
    bool overflow = false;
    if (const std::optional<uint64_t> number = ParseNumber(left, overflow)) {
      if (*number > kWordMask) {
        fail("register " + EchoText(left) + " does not fit 32 bits");
        continue;
      }
      write.patch.reg = static_cast<uint32_t>(*number);
    } else if (const RuntimeRegisterRow* row = names.Find(left)) {
      write.patch.reg = row->number;
      write.name = row->name;
      write.by_name = true;
    } else {
      std::string message = "found " + EchoText(left) + ", expected a register number or the " +
                            "name of a run-time register of the " + target.tile().name + " on " +
                            GenerationLabel(target.version());
      if (const std::string nearest = names.Nearest(left); !nearest.empty())
        message += "; did you mean " + nearest + "?";
      fail(std::move(message));
      continue;
    }
    out.writes.push_back(std::move(write));
  }
}

void ReadBinary(std::string_view data, WritesInput& out) {
  if (data.size() % 12 != 0) {
    out.errors.push_back({0, 0,
                          std::to_string(data.size()) +
                              " bytes are no whole number of 12-byte writes (id, register, value)",
                          Hint::kNone});
    return;
  }
  const auto word = [&data](size_t at) {
    uint32_t value = 0;
    for (int byte = 3; byte >= 0; --byte)
      value = (value << 8) | static_cast<unsigned char>(data[at + static_cast<size_t>(byte)]);
    return value;
  };
  for (size_t at = 0; at < data.size(); at += 12) {
    ReadWrite write;
    write.patch.id = word(at);
    write.patch.reg = word(at + 4);
    write.patch.value = word(at + 8);
    write.place = "write " + std::to_string(at / 12 + 1) + " (bytes " + std::to_string(at) +
                  " to " + std::to_string(at + 11) + ")";
    out.writes.push_back(write);
  }
}

void ReadJson(std::string_view data, const Configuration& target, bool force, WritesInput& out) {
  const auto fail = [&out](std::string message) {
    out.errors.push_back({0, 0, std::move(message), Hint::kNone});
  };
  const nlohmann::json json = nlohmann::json::parse(data.begin(), data.end(), nullptr, false);
  if (json.is_discarded() || !json.is_object() || !json.contains("writes") ||
      !json["writes"].is_array()) {
    fail("found no JSON object with \"writes\", expected the JSON of a list of writes");
    return;
  }
  if (!force) {
    const std::string arch = json.value("arch", ""), tile = json.value("tile", "");
    const std::optional<Diagnostic> wrong = CheckListingHeader(
        ListingHeader{arch, tile}, target.version().to_product_name_string(), target.tile().name);
    if (!arch.empty() && !tile.empty() && wrong) {
      fail("the writes are for " + arch + " " + tile + " (their JSON says so), not for " +
           target.version().to_product_name_string() + " " + target.tile().name);
      return;
    }
  }
  const RegisterNames names(target);
  size_t index = 0;
  for (const nlohmann::json& item : json["writes"]) {
    ++index;
    const auto number = [&item](const char* key) -> std::optional<uint32_t> {
      if (!item.contains(key) || !item[key].is_number_unsigned()) return std::nullopt;
      const uint64_t value = item[key].get<uint64_t>();
      if (value > kWordMask) return std::nullopt;
      return static_cast<uint32_t>(value);
    };
    ReadWrite write;
    write.place = "writes[" + std::to_string(index - 1) + "]";
    const std::optional<uint32_t> reg = number("register"), value = number("value");
    if (!item.is_object() || !reg || !value) {
      fail(write.place + ": expected an object with \"register\" and \"value\", numbers of " +
           "at most 32 bits");
      continue;
    }
    write.patch.reg = *reg;
    write.patch.value = *value;
    write.patch.id = number("id").value_or(0);
    if (item.contains("name") && item["name"].is_string()) write.name = item["name"];
    out.writes.push_back(std::move(write));
  }
}

}  // namespace

WritesInput ReadWrites(std::string_view data, const Configuration& target, bool binary,
                       bool force) {
  WritesInput out;
  if (binary || UnprintableBytes(data) > 0) {
    out.form = WritesForm::kBinary;
    ReadBinary(data, out);
  } else if (TrimBlanks(SkipByteOrderMark(data)).substr(0, 1) == "{") {
    out.form = WritesForm::kJson;
    ReadJson(data, target, force, out);
  } else {
    ReadText(data, target, force, out);
  }
  return out;
}

std::vector<Diagnostic> ApplyWrites(Configuration& configuration,
                                    const std::vector<ReadWrite>& writes,
                                    std::optional<uint32_t> base) {
  std::vector<Diagnostic> errors;
  const Layout& layout = configuration.layout();
  const std::string unit =
      std::string(configuration.tile().name) + " on " + GenerationLabel(configuration.version());
  struct Done {
    uint32_t value;
    const ReadWrite* write;
  };
  std::unordered_map<const RuntimeRegisterRow*, Done> done;
  struct Change {
    size_t leaf;
    const RuntimeRegisterRow* reg;
    uint64_t value;
  };
  std::vector<Change> changes;
  for (const ReadWrite& write : writes) {
    const auto fail = [&](std::string message) {
      if (!write.place.empty()) message = write.place + ": " + message;
      errors.push_back({write.line, 0, std::move(message), Hint::kNone});
    };
    // A low word's number carries the base; a high word's does not.
    std::optional<std::pair<size_t, const RuntimeRegisterRow*>> low, high;
    if (!base || write.by_name) {
      low = layout.FindRuntimeRegister(write.patch.reg);
    } else {
      if (write.patch.reg >= *base) low = layout.FindRuntimeRegister(write.patch.reg - *base);
      if (low && low->second->word == RegisterWord::kHigh) low.reset();
      high = layout.FindRuntimeRegister(write.patch.reg);
      if (high && high->second->word != RegisterWord::kHigh) high.reset();
    }
    // A name given beside the number tells the two readings apart.
    if (low && high && !write.name.empty()) {
      if (write.name == high->second->name) {
        low.reset();
      } else if (write.name == low->second->name) {
        high.reset();
      }
    }
    if (low && high) {
      fail("register " + std::to_string(write.patch.reg) + " is both " +
           RegisterLabel(*low->second) + " with base " + std::to_string(*base) + " and " +
           RegisterLabel(*high->second) + ", whose number takes no base");
      continue;
    }
    const auto found = low ? low : high;
    if (!found) {
      const uint32_t number = write.patch.reg - (base && write.patch.reg >= *base ? *base : 0);
      // Every register of the tile, linked or not, for the complaint alone.
      const std::vector<const RuntimeRegisterRow*> answered =
          RuntimeRegistersOf(configuration.version(), configuration.tile());
      const auto row = std::find_if(answered.begin(), answered.end(),
                                    [number](const auto* r) { return r->number == number; });
      if (row != answered.end() && (*row)->linked() && base) {
        fail(RegisterLabel(**row) + " writes " + WordLabel(**row) +
             ", whose register takes the base " + std::to_string(*base) + ": expected register " +
             std::to_string(number + *base));
      } else if (row != answered.end()) {
        fail(RegisterLabel(**row) + " writes no field that the tooling knows: " +
             std::string(RuntimeRegisterNoteOf(**row)));
      } else {
        fail("register " + std::to_string(write.patch.reg) +
             (base ? " (base " + std::to_string(*base) + ")" : std::string()) +
             " is no run-time register of the " + unit);
      }
      continue;
    }
    const auto [leaf, reg] = *found;
    if (!write.name.empty() && write.name != reg->name) {
      fail("register " + std::to_string(write.patch.reg) + " is " + reg->name + ", not " +
           EchoText(write.name));
      continue;
    }
    const uint32_t width = WordWidth(layout.leaves()[leaf], reg->word);
    if (write.patch.value > MaxValue(width)) {
      fail("value " + Hex(write.patch.value) + " of " + RegisterLabel(*reg) + " does not fit the " +
           std::to_string(width) + " bits it writes of " + WordLabel(*reg));
      continue;
    }
    const auto [earlier, fresh] = done.emplace(reg, Done{write.patch.value, &write});
    if (!fresh) {
      if (earlier->second.value != write.patch.value) {
        const ReadWrite& first = *earlier->second.write;
        fail(RegisterLabel(*reg) + " is written " + Hex(write.patch.value) + " here and " +
             Hex(earlier->second.value) + " at " +
             (first.place.empty() ? "line " + std::to_string(first.line) : first.place));
      }
      continue;
    }
    changes.push_back({leaf, reg, write.patch.value});
  }
  if (!errors.empty()) return errors;
  for (const auto& [leaf, reg, value] : changes) {
    uint64_t now = configuration.value(leaf);
    switch (reg->word) {
      case RegisterWord::kWhole:
        now = value;
        break;
      case RegisterWord::kLow:
        now = (now & ~kWordMask) | value;
        break;
      case RegisterWord::kHigh:
        now = (now & kWordMask) | (value << 32);
        break;
    }
    configuration.SetValue(leaf, now);
  }
  return errors;
}

}  // namespace archspec
