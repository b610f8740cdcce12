#include "ConfigurationJson.h"

#include <utility>

#include "PathForm.h"
#include "RecordOrder.h"
#include "RuntimeRegisters.h"

namespace archspec {

using nlohmann::json;

json ConfigurationHead(const Configuration& configuration) {
  return json{{"arch", configuration.version().to_product_name_string()},
              {"tile", configuration.tile().name},
              {"record", configuration.layout().record()},
              {"bits", configuration.layout().bits()}};
}

namespace {

// A typed leaf's "type", and for each (key, value) the value's name under that key where it has
// one.
void AddNames(json& row, const Naming& names, size_t leaf,
              std::initializer_list<std::pair<const char*, uint64_t>> values) {
  const Enumeration* type = names.TypeOf(leaf);
  if (type == nullptr) return;
  row["type"] = type->name();
  for (const auto& [key, value] : values) {
    const std::string_view name = names.ShownName(leaf, value);
    if (!name.empty()) row[key] = name;
  }
}

json LeafHead(const Leaf& leaf) {
  return json{{"path", leaf.path}, {"offset", leaf.offset}, {"width", leaf.width}};
}

}  // namespace

json RuntimeToJson(const Leaf& leaf) {
  json out = json::array();
  for (const RuntimeRegisterRow* row : {leaf.runtime_lo, leaf.runtime_hi}) {
    if (row == nullptr) continue;
    const auto [first, last] = WordBits(leaf, row->word);
    json entry{{"register", row->number},
               {"name", row->name},
               {"word", WordKey(row->word)},
               {"bits", {first, last}},
               {"link", row->stated ? "stated" : "inferred"}};
    if (row->inferred) entry["inferred_number"] = true;
    out.push_back(std::move(entry));
  }
  return out;
}

json LeafToJson(const Configuration& configuration, size_t leaf, bool codes) {
  json row = LeafHead(configuration.layout().leaves()[leaf]);
  const uint64_t value = configuration.value(leaf);
  row["value"] = Hex(value);
  if (!codes) AddNames(row, configuration.naming(), leaf, {{"name", value}});
  return row;
}

json ConfigurationToJson(const Configuration& configuration, bool all, bool codes) {
  json leaves = json::array();
  const std::vector<uint64_t>& values = configuration.values();
  for (size_t i : RecordOrder(configuration.layout())) {
    if (i < values.size() && (values[i] != 0 || all)) {
      leaves.push_back(LeafToJson(configuration, i, codes));
    }
  }
  json out = ConfigurationHead(configuration);
  out["leaves"] = std::move(leaves);
  return out;
}

json LayoutToJson(const Configuration& configuration) {
  const Layout& layout = configuration.layout();
  const Naming& naming = configuration.naming();
  json leaves = json::array();
  for (size_t i = 0; i < layout.leaves().size(); ++i) {
    const Leaf& leaf = layout.leaves()[i];
    const auto [parent, name] = SplitLast(leaf.path);
    json row = LeafHead(leaf);
    row["name"] = name;
    row["parent"] = parent;
    row["reg_lo"] = leaf.reg_lo;
    if (leaf.reg_hi.has_value()) row["reg_hi"] = *leaf.reg_hi;
    row["registers"] = Registers(leaf);
    if (leaf.runtime()) row["runtime"] = RuntimeToJson(leaf);
    if (const Enumeration* type = naming.TypeOf(i)) row["type"] = type->name();
    leaves.push_back(std::move(row));
  }
  json branches = json::array();
  for (const BranchRow& branch : OrderedBranches(layout)) {
    const auto [parent, name] = SplitLast(*branch.path);
    json row{{"path", *branch.path},
             {"name", name},
             {"offset", branch.offset},
             {"bits", branch.bits},
             {"registers", RegisterSpan(branch.branch->reg_lo, branch.branch->reg_hi)}};
    if (!branch.path->empty()) row["parent"] = parent;
    if (branch.branch->array) row["elements"] = branch.branch->elements;
    branches.push_back(std::move(row));
  }
  json out = ConfigurationHead(configuration);
  out["leaves"] = std::move(leaves);
  out["branches"] = std::move(branches);
  return out;
}

json ComparisonToJson(const Configuration& a, const Configuration& b,
                      const std::vector<LeafChange>& changes, std::string_view a_name,
                      std::string_view b_name, bool codes) {
  json differences = json::array();
  for (const LeafChange& change : changes) {
    const Leaf& leaf = a.layout().leaves()[change.leaf];
    json row = LeafHead(leaf);
    row["registers"] = Registers(leaf);
    // The run-time registers that write it, or null: the change needs the configuration loaded.
    row["runtime"] = leaf.runtime() ? RuntimeToJson(leaf) : json(nullptr);
    row["a"] = Hex(change.from);
    row["b"] = Hex(change.to);
    if (!codes) {
      AddNames(row, a.naming(), change.leaf, {{"a_name", change.from}, {"b_name", change.to}});
    }
    differences.push_back(std::move(row));
  }
  json out = ConfigurationHead(a);
  out["a"] = a_name;
  out["b"] = b_name;
  out["leaf_count"] = b.layout().leaves().size();
  out["differing"] = changes.size();
  out["differences"] = std::move(differences);
  return out;
}

json WritesToJson(const Configuration& from, const Configuration& to, const RegisterWrites& writes,
                  const WriteOptions& options) {
  json rows = json::array();
  for (const RegisterWrite& write : writes.writes) {
    json row{{"id", write.patch.id},    {"register", write.patch.reg},
             {"name", write.reg->name}, {"value", write.patch.value},
             {"path", write.reg->path}, {"word", WordKey(write.reg->word)}};
    if (write.reg->inferred) row["inferred_number"] = true;
    rows.push_back(std::move(row));
  }
  json load = json::array();
  for (size_t leaf : writes.load) {
    load.push_back({{"path", from.layout().leaves()[leaf].path},
                    {"a", Hex(from.value(leaf))},
                    {"b", Hex(to.value(leaf))}});
  }
  json out = ConfigurationHead(from);
  out["id"] = options.id;
  out["base"] = options.base ? json(*options.base) : json(nullptr);
  out["reachable"] = writes.reachable();
  out["writes"] = std::move(rows);
  out["load"] = std::move(load);
  return out;
}

json FindingsToJson(const Configuration& configuration, const std::vector<Finding>& findings,
                    const std::vector<size_t>& inferred, std::string_view file) {
  json rows = json::array();
  for (const Finding& finding : findings) {
    json nearest = json::array();
    for (const EnumName& name : finding.nearest) {
      nearest.push_back({{"name", name.name}, {"code", Hex(name.code)}});
    }
    json row = LeafHead(configuration.layout().leaves()[finding.leaf]);
    row["value"] = Hex(finding.value);
    row["type"] = finding.type->name();
    row["nearest"] = std::move(nearest);
    rows.push_back(std::move(row));
  }
  json out = ConfigurationHead(configuration);
  json notes = json::array();
  for (size_t leaf : inferred) notes.push_back(LeafToJson(configuration, leaf, false));
  out["file"] = file;
  out["findings"] = std::move(rows);
  out["inferred"] = std::move(notes);
  return out;
}

// ---------------------------------------------------------------------------------------------
// Reading.

namespace {

// The JSON written by other commands: refused with what it is.
const char* OtherDocument(std::string_view key) {
  if (key == "differences") return "a comparison of two configurations";
  if (key == "branches") return "a tile's layout";
  if (key == "findings") return "the findings of a check";
  return nullptr;
}

// A scalar of the JSON as the shape below takes it: a string, a whole number (its text as written,
// and its value where it is one of 0 to 2^64 - 1), or another number or literal.
struct Scalar {
  enum Kind { kString, kWhole, kOther } kind = kOther;
  std::string_view text;
  std::optional<uint64_t> whole;
};

// The shape of a configuration's JSON: a top object with "arch", "tile", "record", "bits" and
// "leaves", an array of leaf objects; members of other names are passed over, and JSON of
// another command's is told by its keys.
class Shape {
 public:
  explicit Shape(JsonConfiguration& out) : out_(out) {}

  void StartObject(size_t line) {
    ++depth_;
    if (skip_ != 0 || depth_ == 1 || (depth_ == 2 && in_leaves_)) return;
    if (depth_ == 3 && in_leaves_) {
      leaf_ = JsonLeaf{};
      leaf_.line = line;
      has_path_ = has_value_ = false;
      return;
    }
    if (depth_ >= 3 && in_leaves_) return Fail(line, "expected a string or a number in a leaf");
    skip_ = depth_;
  }
  void EndObject(size_t line) {
    if (skip_ != 0) return Leave();
    if (depth_ == 3 && in_leaves_) {
      if (!has_path_) {
        Fail(leaf_.line, "a leaf without \"path\"");
      } else if (!has_value_) {
        Fail(leaf_.line, "the leaf " + EchoText(leaf_.path) + " has no \"value\"");
      } else {
        out_.leaves.push_back(std::move(leaf_));
      }
    }
    (void)line;
    --depth_;
  }
  void StartArray(size_t line) {
    ++depth_;
    if (skip_ != 0) return;
    if (depth_ == 1)
      return Fail(line, "expected the JSON object of a configuration, found an array");
    if (depth_ == 2 && key_ == "leaves") {
      in_leaves_ = saw_leaves_ = true;
      return;
    }
    if (depth_ >= 3 && in_leaves_) return Fail(line, "expected a string or a number in a leaf");
    skip_ = depth_;
  }
  void EndArray() {
    if (skip_ != 0) return Leave();
    if (depth_ == 2) in_leaves_ = false;
    --depth_;
  }
  void Key(std::string_view name, size_t line) {
    if (skip_ != 0) return;
    if (depth_ == 1) {
      if (other_ == nullptr) other_ = OtherDocument(name);
      key_.assign(name);
      if (key_ == "arch") out_.names_line = line;
    } else if (depth_ == 3) {
      leaf_key_ = LeafKeyOf(name);
      if (leaf_key_ == LeafKey::kOther) other_key_.assign(name);
    }
  }
  void Value(const Scalar& value, size_t line) {
    if (skip_ != 0) return;
    if (depth_ == 0) return Fail(line, "expected the JSON object of a configuration");
    if (depth_ == 1) return Top(value, line);
    if (depth_ == 2 && in_leaves_) return Fail(line, "expected an object for each leaf");
    if (depth_ == 3 && in_leaves_) return LeafMember(value);
  }

  // What the document was, once read whole.
  void Finish() {
    if (other_ != nullptr) {
      out_.errors = {
          {0, 0, std::string("this is the JSON of ") + other_ + ", not of a configuration"}};
      return;
    }
    if (!out_.errors.empty()) return;
    if (!saw_leaves_) {
      Fail(0,
           "the JSON of a configuration has \"arch\", \"tile\" and \"leaves\"; \"leaves\" is "
           "missing");
    } else if (arch_.has_value() != tile_.has_value()) {
      Fail(0, std::string("\"") + (arch_.has_value() ? "tile" : "arch") +
                  "\" is missing beside \"" + (arch_.has_value() ? "arch" : "tile") + "\"");
    } else if (arch_.has_value()) {
      out_.names = ListingHeader{*arch_, *tile_};
    }
  }

 private:
  void Leave() {
    if (depth_ == skip_) skip_ = 0;
    --depth_;
  }

  // The first fault of shape is kept; the reading goes on, so that JSON of another kind is still
  // told by its keys.
  void Fail(size_t line, std::string message) {
    if (out_.errors.empty()) out_.errors.push_back({line, 0, std::move(message)});
  }

  void Top(const Scalar& value, size_t line) {
    if (key_ == "arch" || key_ == "tile" || key_ == "record") {
      if (value.kind != Scalar::kString) return Fail(line, "\"" + key_ + "\" must be a string");
      std::optional<std::string>& field = key_ == "arch"   ? arch_
                                          : key_ == "tile" ? tile_
                                                           : out_.record;
      field = std::string(value.text);
    } else if (key_ == "bits") {
      if (!value.whole.has_value()) return Fail(line, "\"bits\" must be a whole number");
      out_.bits = value.whole;
    } else if (key_ == "leaves") {
      Fail(line, "\"leaves\" must be an array of leaves");
    }
  }

  // The members of a leaf, told apart once per key.
  enum class LeafKey { kPath, kValue, kName, kOffset, kWidth, kType, kOther };
  static LeafKey LeafKeyOf(std::string_view name) {
    if (name == "path") return LeafKey::kPath;
    if (name == "value") return LeafKey::kValue;
    if (name == "name") return LeafKey::kName;
    if (name == "offset") return LeafKey::kOffset;
    if (name == "width") return LeafKey::kWidth;
    if (name == "type") return LeafKey::kType;
    return LeafKey::kOther;
  }

  void LeafMember(const Scalar& value) {
    const size_t line = leaf_.line;
    if (leaf_key_ == LeafKey::kPath) {
      if (value.kind != Scalar::kString) return Fail(line, "a leaf's \"path\" must be a string");
      leaf_.path.assign(value.text);
      has_path_ = true;
    } else if (leaf_key_ == LeafKey::kValue) {
      if (value.kind == Scalar::kOther) {
        return Fail(line, "the value of " + EchoText(leaf_.path) +
                              " must be a string of 0x hexadecimal or a whole number");
      }
      leaf_.value.assign(value.text);
      has_value_ = true;
    } else if (leaf_key_ == LeafKey::kName) {
      if (value.kind != Scalar::kString) return Fail(line, "a leaf's \"name\" must be a string");
      leaf_.name = std::string(value.text);
    } else if (leaf_key_ == LeafKey::kOffset || leaf_key_ == LeafKey::kWidth) {
      const bool offset = leaf_key_ == LeafKey::kOffset;
      if (!value.whole.has_value()) {
        return Fail(line, std::string("a leaf's \"") + (offset ? "offset" : "width") +
                              "\" must be a whole number");
      }
      (offset ? leaf_.offset : leaf_.width) = value.whole;
    } else if (leaf_key_ == LeafKey::kOther) {
      Fail(line, "a leaf of a configuration has no \"" + EchoText(other_key_) + "\"");
    }
  }

  JsonConfiguration& out_;
  int depth_ = 0;
  int skip_ = 0;  // the depth of an object or array that is passed over, or 0
  bool in_leaves_ = false;
  bool saw_leaves_ = false;
  std::string key_;
  LeafKey leaf_key_ = LeafKey::kOther;
  std::string other_key_;  // a leaf's member of no known name
  JsonLeaf leaf_;
  bool has_path_ = false;
  bool has_value_ = false;
  std::optional<std::string> arch_;
  std::optional<std::string> tile_;
  const char* other_ = nullptr;
};

// A strict reader of JSON's grammar in one pass over the text, line by line, that hands what it
// reads to the shape: the configurations of the largest tiles are read in about the time of
// their listings. Nesting deeper than any document of the tool's is refused.
class Scanner {
 public:
  Scanner(std::string_view text, Shape& shape, JsonConfiguration& out)
      : text_(text), shape_(shape), out_(out) {}

  void Read() {
    if (!Value(0)) return;
    Blanks();
    if (at_ < text_.size()) Fail("unexpected text after the JSON object");
  }

 private:
  static constexpr int kMostDepth = 64;

  bool Fail(std::string message) {
    out_.errors = {{line_, at_ - line_start_ + 1, "not valid JSON: " + std::move(message)}};
    return false;
  }

  void Blanks() {
    while (at_ < text_.size()) {
      const char c = text_[at_];
      if (c == '\n') {
        ++line_;
        line_start_ = at_ + 1;
      } else if (c != ' ' && c != '\t' && c != '\r') {
        return;
      }
      ++at_;
    }
  }

  bool Expect(char c, const char* what) {
    Blanks();
    if (at_ < text_.size() && text_[at_] == c) {
      ++at_;
      return true;
    }
    return Fail(std::string("expected ") + what);
  }

  bool Value(int depth) {
    Blanks();
    if (at_ >= text_.size()) return Fail("the text ends where a value was expected");
    if (depth > kMostDepth) return Fail("nested deeper than a configuration's JSON is");
    const size_t line = line_;
    switch (text_[at_]) {
      case '{':
        ++at_;
        shape_.StartObject(line);
        Blanks();
        if (at_ < text_.size() && text_[at_] == '}') {
          ++at_;
          shape_.EndObject(line_);
          return true;
        }
        for (;;) {
          Blanks();
          if (at_ >= text_.size() || text_[at_] != '"') return Fail("expected a string as a key");
          std::string_view key;
          if (!String(key)) return false;
          shape_.Key(key, line_);
          if (!Expect(':', "':' after a key") || !Value(depth + 1)) return false;
          Blanks();
          if (at_ < text_.size() && text_[at_] == ',') {
            ++at_;
            continue;
          }
          if (!Expect('}', "',' or '}' in an object")) return false;
          shape_.EndObject(line_);
          return true;
        }
      case '[':
        ++at_;
        shape_.StartArray(line);
        Blanks();
        if (at_ < text_.size() && text_[at_] == ']') {
          ++at_;
          shape_.EndArray();
          return true;
        }
        for (;;) {
          if (!Value(depth + 1)) return false;
          Blanks();
          if (at_ < text_.size() && text_[at_] == ',') {
            ++at_;
            continue;
          }
          if (!Expect(']', "',' or ']' in an array")) return false;
          shape_.EndArray();
          return true;
        }
      case '"': {
        Scalar scalar{Scalar::kString, {}, std::nullopt};
        if (!String(scalar.text)) return false;
        shape_.Value(scalar, line);
        return true;
      }
      default:
        return Literal(line);
    }
  }

  // A string, its escapes read; `out` views the text where it has none, else a buffer.
  bool String(std::string_view& out) {
    const size_t start = ++at_;
    while (at_ < text_.size()) {
      const auto c = static_cast<unsigned char>(text_[at_]);
      if (c == '"') {
        out = text_.substr(start, at_ - start);
        ++at_;
        return true;
      }
      if (c == '\\') return Escaped(start, out);
      if (c < 0x20) return Fail("a control character in a string");
      ++at_;
    }
    return Fail("the text ends inside a string");
  }

  bool Escaped(size_t start, std::string_view& out) {
    buffer_.assign(text_.substr(start, at_ - start));
    while (at_ < text_.size()) {
      const auto c = static_cast<unsigned char>(text_[at_]);
      if (c == '"') {
        ++at_;
        out = buffer_;
        return true;
      }
      if (c < 0x20) return Fail("a control character in a string");
      if (c != '\\') {
        buffer_ += static_cast<char>(c);
        ++at_;
        continue;
      }
      if (++at_ >= text_.size()) break;
      const char e = text_[at_++];
      switch (e) {
        case '"':
        case '\\':
        case '/':
          buffer_ += e;
          break;
        case 'b':
          buffer_ += '\b';
          break;
        case 'f':
          buffer_ += '\f';
          break;
        case 'n':
          buffer_ += '\n';
          break;
        case 'r':
          buffer_ += '\r';
          break;
        case 't':
          buffer_ += '\t';
          break;
        case 'u': {
          uint32_t code = 0;
          if (!Hex4(code)) return false;
          if (code >= 0xd800 && code <= 0xdbff) {
            uint32_t low = 0;
            if (text_.substr(at_, 2) != "\\u") return Fail("a lone surrogate in a string");
            at_ += 2;
            if (!Hex4(low) || low < 0xdc00 || low > 0xdfff) {
              return Fail("a lone surrogate in a string");
            }
            code = 0x10000 + ((code - 0xd800) << 10) + (low - 0xdc00);
          } else if (code >= 0xdc00 && code <= 0xdfff) {
            return Fail("a lone surrogate in a string");
          }
          AppendUtf8(code);
          break;
        }
        default:
          --at_;
          return Fail("an unknown escape in a string");
      }
    }
    return Fail("the text ends inside a string");
  }

  bool Hex4(uint32_t& code) {
    for (int k = 0; k < 4; ++k, ++at_) {
      const char c = at_ < text_.size() ? text_[at_] : '\0';
      uint32_t digit;
      if (c >= '0' && c <= '9') {
        digit = static_cast<uint32_t>(c - '0');
      } else if (c >= 'a' && c <= 'f') {
        digit = static_cast<uint32_t>(c - 'a' + 10);
      } else if (c >= 'A' && c <= 'F') {
        digit = static_cast<uint32_t>(c - 'A' + 10);
      } else {
        return Fail("\\u takes four hexadecimal digits");
      }
      code = code << 4 | digit;
    }
    return true;
  }

  void AppendUtf8(uint32_t code) {
    if (code < 0x80) {
      buffer_ += static_cast<char>(code);
    } else if (code < 0x800) {
      buffer_ += static_cast<char>(0xc0 | code >> 6);
      buffer_ += static_cast<char>(0x80 | (code & 0x3f));
    } else if (code < 0x10000) {
      buffer_ += static_cast<char>(0xe0 | code >> 12);
      buffer_ += static_cast<char>(0x80 | (code >> 6 & 0x3f));
      buffer_ += static_cast<char>(0x80 | (code & 0x3f));
    } else {
      buffer_ += static_cast<char>(0xf0 | code >> 18);
      buffer_ += static_cast<char>(0x80 | (code >> 12 & 0x3f));
      buffer_ += static_cast<char>(0x80 | (code >> 6 & 0x3f));
      buffer_ += static_cast<char>(0x80 | (code & 0x3f));
    }
  }

  // A number, true, false or null.
  bool Literal(size_t line) {
    const size_t start = at_;
    for (const std::string_view word : {"true", "false", "null"}) {
      if (text_.substr(at_, word.size()) == word) {
        at_ += word.size();
        shape_.Value(Scalar{Scalar::kOther, word, std::nullopt}, line);
        return true;
      }
    }
    const auto digits = [&] {
      const size_t from = at_;
      while (at_ < text_.size() && text_[at_] >= '0' && text_[at_] <= '9') ++at_;
      return at_ - from;
    };
    const bool negative = at_ < text_.size() && text_[at_] == '-';
    if (negative) ++at_;
    const size_t integer_start = at_;
    const size_t integer_digits = digits();
    if (integer_digits == 0) {
      at_ = start;
      return Fail("expected a value");
    }
    if (integer_digits > 1 && text_[integer_start] == '0') {
      return Fail("a number with a leading zero");
    }
    bool whole = true;
    if (at_ < text_.size() && text_[at_] == '.') {
      ++at_;
      whole = false;
      if (digits() == 0) return Fail("expected digits after '.'");
    }
    if (at_ < text_.size() && (text_[at_] == 'e' || text_[at_] == 'E')) {
      ++at_;
      whole = false;
      if (at_ < text_.size() && (text_[at_] == '+' || text_[at_] == '-')) ++at_;
      if (digits() == 0) return Fail("expected digits in an exponent");
    }
    Scalar scalar{whole ? Scalar::kWhole : Scalar::kOther, text_.substr(start, at_ - start),
                  std::nullopt};
    if (whole && !negative) {
      uint64_t value = 0;
      bool fits = true;
      for (size_t k = integer_start; k < at_; ++k) {
        const auto digit = static_cast<uint64_t>(text_[k] - '0');
        if (value > (~uint64_t{0} - digit) / 10) fits = false;
        value = value * 10 + digit;
      }
      if (fits) scalar.whole = value;
    }
    shape_.Value(scalar, line);
    return true;
  }

  std::string_view text_;
  Shape& shape_;
  JsonConfiguration& out_;
  size_t at_ = 0;
  size_t line_ = 1;
  size_t line_start_ = 0;
  std::string buffer_;
};

}  // namespace

JsonConfiguration ReadJsonConfiguration(std::string_view text) {
  JsonConfiguration out;
  Shape shape(out);
  Scanner scanner(SkipByteOrderMark(text), shape, out);
  scanner.Read();
  // A fault of syntax is the one complaint; a fault of shape is said once the keys are known.
  if (out.errors.empty() || out.errors.front().message.rfind("not valid JSON", 0) != 0) {
    shape.Finish();
  }
  return out;
}

}  // namespace archspec
