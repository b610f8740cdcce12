#include "ConfigurationJson.h"

#include <iterator>
#include <utility>

#include "PathForm.h"

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
  for (size_t i = 0; i < values.size(); ++i) {
    if (values[i] != 0 || all) leaves.push_back(LeafToJson(configuration, i, codes));
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
    json row = LeafHead(a.layout().leaves()[change.leaf]);
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

// Walks the text for the JSON parser and counts the line ends it has passed, so that what the
// parser reports stands on its line. The parser reads a token and no further before it reports
// a string, so a leaf's "path" is placed exactly.
class LineCounter {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  LineCounter(const char* at, size_t* line) : at_(at), line_(line) {}
  reference operator*() const { return *at_; }
  LineCounter& operator++() {
    if (*at_ == '\n') ++*line_;
    ++at_;
    return *this;
  }
  LineCounter operator++(int) {
    LineCounter before = *this;
    ++*this;
    return before;
  }
  bool operator==(const LineCounter& other) const { return at_ == other.at_; }
  bool operator!=(const LineCounter& other) const { return at_ != other.at_; }

 private:
  const char* at_;
  size_t* line_;
};

// The JSON written by other commands: refused with what it is.
const char* OtherDocument(std::string_view key) {
  if (key == "differences") return "a comparison of two configurations";
  if (key == "branches") return "a tile's layout";
  if (key == "findings") return "the findings of a check";
  return nullptr;
}

class Reader {
 public:
  Reader(std::string_view text, JsonConfiguration& out) : text_(text), out_(out) {}

  void Read() {
    const LineCounter begin(text_.data(), &line_);
    const LineCounter end(text_.data() + text_.size(), &line_);
    json::sax_parse(begin, end, this);
    if (other_ != nullptr) {
      out_.errors = {
          {0, 0, std::string("this is the JSON of ") + other_ + ", not of a configuration"}};
      return;
    }
    if (!out_.errors.empty()) return;
    if (!saw_leaves_) {
      Fail(
          "the JSON of a configuration has \"arch\", \"tile\" and \"leaves\"; \"leaves\" is "
          "missing");
    } else if (arch_.has_value() != tile_.has_value()) {
      Fail(std::string("\"") + (arch_.has_value() ? "tile" : "arch") + "\" is missing beside \"" +
           (arch_.has_value() ? "arch" : "tile") + "\"");
    } else if (arch_.has_value()) {
      out_.names = ListingHeader{*arch_, *tile_};
    }
  }

  // The parser's events.
  bool null() { return Scalar(json(nullptr)); }
  bool boolean(bool value) { return Scalar(json(value)); }
  bool number_integer(json::number_integer_t value) { return Scalar(json(value)); }
  bool number_unsigned(json::number_unsigned_t value) { return Scalar(json(value)); }
  bool number_float(json::number_float_t value, const std::string&) { return Scalar(json(value)); }
  bool string(std::string& value) { return Scalar(json(std::move(value))); }
  bool binary(json::binary_t&) { return Scalar(json(nullptr)); }

  bool start_object(size_t) {
    ++depth_;
    if (skip_ != 0) return true;
    if (depth_ == 1) return true;
    if (depth_ == 3 && in_leaves_) {
      leaf_ = JsonLeaf{};
      leaf_.line = line_;
      has_path_ = has_value_ = false;
      return true;
    }
    if (depth_ == 3 || depth_ == 4) return Fail("expected a string or a number in a leaf");
    if (depth_ == 2 && in_leaves_) return true;
    skip_ = depth_;
    return true;
  }
  bool end_object() {
    if (skip_ != 0) return Leave();
    if (depth_ == 3 && in_leaves_) {
      if (!has_path_) {
        Fail("a leaf without \"path\"", leaf_.line);
      } else if (!has_value_) {
        Fail("the leaf " + EchoText(leaf_.path) + " has no \"value\"", leaf_.line);
      } else {
        out_.leaves.push_back(std::move(leaf_));
      }
    }
    --depth_;
    return true;
  }
  bool start_array(size_t) {
    ++depth_;
    if (skip_ != 0) return true;
    if (depth_ == 1) return Fail("expected the JSON object of a configuration, found an array");
    if (depth_ == 2 && key_ == "leaves") {
      in_leaves_ = saw_leaves_ = true;
      return true;
    }
    if (depth_ >= 3 && in_leaves_) return Fail("expected a string or a number in a leaf");
    skip_ = depth_;
    return true;
  }
  bool end_array() {
    if (skip_ != 0) return Leave();
    if (depth_ == 2) in_leaves_ = false;
    --depth_;
    return true;
  }
  bool key(std::string& name) {
    if (skip_ != 0) return true;
    if (depth_ == 1) {
      if (other_ == nullptr) other_ = OtherDocument(name);
      key_ = std::move(name);
      if (key_ == "arch") out_.names_line = line_;
    } else if (depth_ == 3) {
      leaf_key_ = std::move(name);
    }
    return true;
  }
  bool parse_error(size_t position, const std::string&, const nlohmann::detail::exception& e) {
    // "[json.exception.parse_error.101] parse error at line 3, column 5: syntax error ...": the
    // place is said by the complaint's own line and column.
    std::string message = e.what();
    if (const size_t colon = message.find(": "); colon != std::string::npos) {
      message.erase(0, colon + 2);
    }
    size_t line = 1;
    size_t column = 1;
    for (size_t i = 0; i + 1 < position && i < text_.size(); ++i) {
      if (text_[i] == '\n') {
        ++line;
        column = 1;
      } else {
        ++column;
      }
    }
    out_.errors.push_back({line, column, "not valid JSON: " + message});
    return false;
  }

 private:
  bool Leave() {
    if (depth_ == skip_) skip_ = 0;
    --depth_;
    return true;
  }

  bool Fail(std::string message, size_t line = 0) {
    if (out_.errors.empty())
      out_.errors.push_back({line == 0 ? line_ : line, 0, std::move(message)});
    // Read on, so that JSON of another kind is still told by its keys.
    return true;
  }

  bool Scalar(json value) {
    if (skip_ != 0) return true;
    if (depth_ == 0) return Fail("expected the JSON object of a configuration");
    if (depth_ == 1) return Top(std::move(value));
    if (depth_ == 2 && in_leaves_) return Fail("expected an object for each leaf");
    if (depth_ == 3 && in_leaves_) return LeafMember(std::move(value));
    return true;
  }

  bool Top(json value) {
    if (key_ == "arch" || key_ == "tile" || key_ == "record") {
      if (!value.is_string()) return Fail("\"" + key_ + "\" must be a string");
      std::string text = value.get<std::string>();
      if (key_ == "arch") arch_ = std::move(text);
      if (key_ == "tile") tile_ = std::move(text);
      if (key_ == "record") out_.record = std::move(text);
    } else if (key_ == "bits") {
      if (!value.is_number_unsigned()) return Fail("\"bits\" must be a whole number");
      out_.bits = value.get<uint64_t>();
    } else if (key_ == "leaves") {
      return Fail("\"leaves\" must be an array of leaves");
    }
    return true;
  }

  bool LeafMember(json value) {
    if (leaf_key_ == "path") {
      if (!value.is_string()) return Fail("a leaf's \"path\" must be a string", leaf_.line);
      leaf_.path = value.get<std::string>();
      has_path_ = true;
    } else if (leaf_key_ == "value") {
      if (value.is_string()) {
        leaf_.value = value.get<std::string>();
      } else if (value.is_number_integer()) {
        leaf_.value = value.dump();
      } else {
        return Fail("the value of " + EchoText(leaf_.path) +
                        " must be a string of 0x hexadecimal or a whole number",
                    leaf_.line);
      }
      has_value_ = true;
    } else if (leaf_key_ == "name") {
      if (!value.is_string()) return Fail("a leaf's \"name\" must be a string", leaf_.line);
      leaf_.name = value.get<std::string>();
    } else if (leaf_key_ == "offset" || leaf_key_ == "width") {
      if (!value.is_number_unsigned()) {
        return Fail("a leaf's \"" + leaf_key_ + "\" must be a whole number", leaf_.line);
      }
      (leaf_key_ == "offset" ? leaf_.offset : leaf_.width) = value.get<uint64_t>();
    } else if (leaf_key_ != "type") {
      return Fail("a leaf of a configuration has no \"" + EchoText(leaf_key_) + "\"", leaf_.line);
    }
    return true;
  }

  std::string_view text_;
  JsonConfiguration& out_;
  size_t line_ = 1;
  int depth_ = 0;
  int skip_ = 0;  // the depth of an object or array that is passed over, or 0
  bool in_leaves_ = false;
  bool saw_leaves_ = false;
  std::string key_;
  std::string leaf_key_;
  JsonLeaf leaf_;
  bool has_path_ = false;
  bool has_value_ = false;
  std::optional<std::string> arch_;
  std::optional<std::string> tile_;
  const char* other_ = nullptr;
};

}  // namespace

JsonConfiguration ReadJsonConfiguration(std::string_view text) {
  JsonConfiguration out;
  Reader reader(SkipByteOrderMark(text), out);
  reader.Read();
  return out;
}

}  // namespace archspec
