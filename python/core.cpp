// archspec._core: the library and its tooling layer, for the Python package `archspec`.
//
// Everything a caller hands in is checked here, through the tooling layer's own checks, before it
// reaches the library: a bad name, path, value, bit text or listing raises a Python exception and
// never meets a fatal check of the library. The Python-facing shapes (navigation by attribute,
// mappings of answers) are in archspec/__init__.py.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "AccessorsJson.h"
#include "Configuration.h"
#include "ConfigurationJson.h"
#include "Datasheet.h"
#include "DatasheetJson.h"
#include "Delta.h"
#include "Diagnostic.h"
#include "Layout.h"
#include "Names.h"
#include "Nearest.h"
#include "PathForm.h"
#include "Port.h"
#include "RecordOrder.h"
#include "RuntimeRegisters.h"
#include "Sparse.h"
#include "Tile.h"
#include "Writes.h"
#include "compiler/arch_spec/ArchVersion.h"
#include "compiler/arch_spec/gen/GenerationTable.h"

namespace py = pybind11;

namespace archspec {
namespace {

using zu::spec::ArchVersion;
using zu::spec::GenerationRow;

// An accessor that the generation does not answer: archspec.NotAnswered, a LookupError.
struct NotAnswered : std::runtime_error {
  using std::runtime_error::runtime_error;
};

py::object ToPython(const nlohmann::json& value) {
  switch (value.type()) {
    case nlohmann::json::value_t::null:
      return py::none();
    case nlohmann::json::value_t::boolean:
      return py::bool_(value.get<bool>());
    case nlohmann::json::value_t::number_unsigned:
      return py::int_(value.get<uint64_t>());
    case nlohmann::json::value_t::number_integer:
      return py::int_(value.get<int64_t>());
    case nlohmann::json::value_t::number_float:
      return py::float_(value.get<double>());
    case nlohmann::json::value_t::string:
      return py::str(value.get<std::string>());
    case nlohmann::json::value_t::array: {
      py::list out;
      for (const nlohmann::json& element : value) out.append(ToPython(element));
      return out;
    }
    case nlohmann::json::value_t::object: {
      py::dict out;
      for (const auto& [key, element] : value.items()) out[py::str(key)] = ToPython(element);
      return out;
    }
    default:
      return py::none();
  }
}

// One generation: its row of the table of generations and its own answering objects, so that any
// number of generations are read side by side.
class Generation {
 public:
  explicit Generation(const GenerationRow& row) : row_(row), answers_(row) {}

  const GenerationRow& row() const { return row_; }
  archspec::Answers answers() const { return answers_.answers(); }
  std::string Label() const { return GenerationLabel(row_.version); }

  // The accessors of one kind ("constants", "features", "constraints") that this generation
  // answers, in interface order.
  std::vector<std::string> Names(const std::string& family) const {
    std::vector<std::string> names;
    for (const Accessor& accessor : AllAccessors()) {
      if (Family(accessor) == family && IsAnswered(accessor, row_.version)) {
        names.push_back(accessor.name);
      }
    }
    return names;
  }

  bool Answered(const std::string& family, const std::string& name) const {
    const Accessor* accessor = FindAccessor(name);
    return accessor != nullptr && Family(*accessor) == family &&
           IsAnswered(*accessor, row_.version);
  }

  py::object Value(const std::string& family, const std::string& name) const {
    const Accessor* accessor = FindAccessor(name);
    if (accessor == nullptr || Family(*accessor) != family) {
      std::string message = "no " + Singular(family) + " named " + EchoText(name);
      if (name.size() <= 256) {
        NearestName nearest(name);
        for (const Accessor& a : AllAccessors()) {
          if (Family(a) == family) nearest.Offer(a.name);
        }
        if (!nearest.Best().empty()) message += "; did you mean " + nearest.Best() + "?";
      }
      throw py::key_error(message);
    }
    if (!IsAnswered(*accessor, row_.version)) {
      throw NotAnswered(name + " is not answered by " + Label());
    }
    return ToPython(ReadAccessor(*accessor, answers()));
  }

  // The accessor's entry as `archspec get --json` gives it: value, kind, type and, for a
  // parameter, its group, quantity and unit; refused as Value refuses an unknown name.
  py::object Describe(const std::string& family, const std::string& name) const {
    const Accessor* accessor = FindAccessor(name);
    if (accessor == nullptr || Family(*accessor) != family) Value(family, name);
    return ToPython(AccessorEntry(*accessor, row_.version, answers()));
  }

  // Whether the generation's code of the enumerant `name` is inferred rather than stated.
  bool Inferred(const std::string& name) const {
    const Accessor* accessor = FindAccessor(name);
    return accessor != nullptr && IsInferred(*accessor, row_.version);
  }

  // The code of an enumerant that a field is given by name.
  uint64_t Code(const std::string& name) const {
    const NamedValue named = ResolveEnumerantOf(name, row_.version, answers());
    if (named.value.has_value()) return *named.value;
    if (FindAccessor(name) != nullptr && FindAccessor(name)->kind == AccessorKind::kEnum) {
      throw NotAnswered(named.error);
    }
    throw py::key_error(named.error);
  }

 private:
  static std::string Family(const Accessor& accessor) {
    switch (accessor.kind) {
      case AccessorKind::kFeature:
        return "features";
      case AccessorKind::kConstraint:
        return "constraints";
      default:
        return "constants";
    }
  }
  static std::string Singular(const std::string& family) {
    return family == "constants" ? "constant" : family.substr(0, family.size() - 1);
  }

  const GenerationRow& row_;
  OwnedAnswers answers_;
};

std::shared_ptr<Generation> GenerationNamed(const std::string& name) {
  static std::map<const GenerationRow*, std::shared_ptr<Generation>> made;
  std::string error;
  const ArchVersion version = ArchVersion::expect_parse(name, error);
  if (version.major == 0) throw py::value_error(UnknownGeneration(name));
  const GenerationRow* row = zu::spec::ServingGeneration(version);
  if (row == nullptr || !row->has_answers()) {
    throw py::value_error(GenerationLabel(version) + " has no answers");
  }
  std::shared_ptr<Generation>& generation = made[row];
  if (generation == nullptr) generation = std::make_shared<Generation>(*row);
  return generation;
}

const TileType& FindTile(const std::string& name) {
  const TileType* tile = FindTileType(name);
  if (tile == nullptr) {
    throw py::value_error("unknown tile '" + EchoText(name) + "'; the tiles are " + TileNames());
  }
  return *tile;
}

// Every complaint about an input, one a line, each naming its place as the tool does
// ("listing:3: error: ..."), with Python's words where the tooling leaves room for a face's.
std::string Messages(std::string_view input, const std::vector<Diagnostic>& errors) {
  std::string out;
  for (Diagnostic error : errors) {
    if (!out.empty()) out += "\n";
    if (error.hint == Hint::kForce) error.message += "; force=True reads it anyway";
    if (error.hint == Hint::kPackedBytes)
      error.message += " (packed bytes are read by tile_from_bytes)";
    out += FormatDiagnostic(input, error);
  }
  return out;
}

// The generation a tile is made for: a Generation, never None.
std::shared_ptr<Generation> Checked(std::shared_ptr<Generation> generation) {
  if (generation == nullptr) {
    throw py::type_error("a tile needs a Generation, not None: use archspec.generation(name)");
  }
  return generation;
}

// An int as a complaint shows it: its digits, or for one too long to write out (Python refuses
// to write more than a few thousand digits), its size.
std::string IntText(const py::int_& value) {
  const size_t bits = py::int_(value.attr("bit_length")()).cast<size_t>();
  const bool negative = value < py::int_(0);
  if (bits <= 256) return py::str(py::object(value)).cast<std::string>();
  return std::string(negative ? "-" : "") + "2**" + std::to_string(bits - 1) + "...";
}

// One configuration of a tile, with the Generation whose answers it was made with.
class Tile {
 public:
  Tile(std::shared_ptr<Generation> generation, const TileType& tile)
      : generation_(Checked(std::move(generation))), config_(Zero(*generation_, tile)) {}
  Tile(std::shared_ptr<Generation> generation, Configuration config)
      : generation_(Checked(std::move(generation))), config_(std::move(config)) {}

  // A configuration read from `data` in the form `form` ("bits", "bytes", "listing", "json", or
  // None to tell it from the data), of the generation and tile given or, where one is None, those
  // that the input names; an input that names another generation or tile is refused unless
  // `force`. `what` names the input in complaints.
  static Tile Read(std::shared_ptr<Generation> generation, const std::optional<std::string>& tile,
                   const std::string& data, const std::optional<std::string>& form, bool force,
                   const std::string& what) {
    ReadRequest request;
    request.force = force;
    if (generation != nullptr) request.generation = generation->row().product_name;
    if (tile.has_value()) request.tile = FindTile(*tile).name;
    if (form.has_value()) {
      for (Form f : {Form::kBits, Form::kBytes, Form::kListing, Form::kJson}) {
        if (*form == FormName(f)) request.form = f;
      }
      if (!request.form.has_value()) {
        throw py::value_error("unknown form '" + EchoText(*form) +
                              "'; the forms are bits, bytes, listing and json");
      }
    }
    ReadResult read = Configuration::Read(data, request);
    if (!read.ok()) {
      const Diagnostic& first = read.errors.front();
      if (first.hint == Hint::kNoGeneration) {
        throw py::value_error(what + " names no generation: give one, archspec.generation(name)");
      }
      if (first.hint == Hint::kNoTile) {
        throw py::value_error(what + " names no tile: give one, " + TileNames("or"));
      }
      throw py::value_error(read.fault == Fault::kUsage ? first.message
                                                        : Messages(what, read.errors));
    }
    if (generation == nullptr) {
      generation = GenerationNamed(read.configuration->version().to_product_name_string());
    }
    return Tile(std::move(generation), std::move(*read.configuration));
  }

  const Configuration& config() const { return config_; }
  const Layout& layout() const { return config_.layout(); }
  const Naming& naming() const { return config_.naming(); }
  const Generation& generation() const { return *generation_; }
  std::shared_ptr<Generation> generation_ptr() const { return generation_; }
  const TileType& tile() const { return config_.tile(); }

  // The leaf of `path`, or a KeyError that says what the path names instead.
  size_t LeafOf(const std::string& path) const {
    if (const std::optional<size_t> leaf = config_.Find(path)) return *leaf;
    throw py::key_error(layout().NotALeaf(path, true));
  }

  uint64_t Get(const std::string& path) const { return config_.value(LeafOf(path)); }

  // Stores a value given as an int or as the name of an enumerant of the generation.
  void Set(const std::string& path, const py::handle& value) {
    const size_t leaf = LeafOf(path);
    const Leaf& where = layout().leaves()[leaf];
    if (py::isinstance<py::str>(value)) {
      const std::string name = value.cast<std::string>();
      if (name.empty()) {
        throw py::key_error("no enumerant named '' (an empty name) for " + path);
      }
      generation_->Code(name);  // KeyError or NotAnswered for a name it does not answer
      // The listing's own complaint, which names the path and the value.
      if (const std::optional<std::string> error = config_.Set(path, name)) {
        throw py::value_error(*error);
      }
      return;
    }
    if (!py::isinstance<py::int_>(value) || py::isinstance<py::bool_>(value)) {
      throw py::type_error("the value of " + path + " must be an int or an enumerant name, not " +
                           py::str(py::type::of(value).attr("__name__")).cast<std::string>());
    }
    const py::int_ integer = py::reinterpret_borrow<py::int_>(value);
    if (integer < py::int_(0)) throw py::value_error(ValueNegative(IntText(integer), where));
    if (py::int_(integer.attr("bit_length")()).cast<uint64_t>() > where.width) {
      throw py::value_error(ValueTooWide(IntText(integer), where));
    }
    config_.SetValue(leaf, integer.cast<uint64_t>());
  }

  // What a path that is not a leaf names: (is an array, elements, members, offset, width, first
  // leaf, last leaf), or None.
  py::object BranchOf(const std::string& path) const {
    const Branch* branch = layout().FindBranch(path);
    if (branch == nullptr) return py::none();
    const Leaf& first = layout().leaves()[branch->first_leaf];
    const Leaf& last = layout().leaves()[branch->last_leaf];
    return py::make_tuple(branch->array, branch->elements, branch->members, first.offset,
                          last.offset + last.width - first.offset, branch->first_leaf,
                          branch->last_leaf);
  }

  // A leaf's (offset, width), or a KeyError.
  py::tuple Span(const std::string& path) const {
    const Leaf& leaf = layout().leaves()[LeafOf(path)];
    return py::make_tuple(leaf.offset, leaf.width);
  }

  std::string ToBits() const { return config_.ToBits(); }
  py::bytes ToBytes() const {
    const std::vector<uint8_t> bytes = config_.ToBytes();
    return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  }

  // The enumeration type of the leaf at `path`, or None.
  py::object TypeOf(const std::string& path) const {
    if (const Branch* branch = layout().FindBranch(path)) {
      throw py::key_error(path + " is " + (branch->array ? "an array" : "a record") +
                          ", not a leaf: only a leaf holds a code of a type");
    }
    const Enumeration* type = naming().TypeOf(LeafOf(path));
    return type == nullptr ? py::none() : py::object(py::str(std::string(type->name())));
  }

  // (path, offset, width, value, type, [(name, code)]) of every typed leaf whose value is no
  // code of its type, as `archspec check` lists them.
  py::list Check() const {
    py::list out;
    for (const Finding& finding : config_.Check()) {
      const Leaf& leaf = layout().leaves()[finding.leaf];
      py::list nearest;
      for (const EnumName& name : finding.nearest) {
        nearest.append(py::make_tuple(std::string(name.name), name.code));
      }
      out.append(py::make_tuple(leaf.path, leaf.offset, leaf.width, finding.value,
                                std::string(finding.type->name()), nearest));
    }
    return out;
  }

  // (path, value, name) of every leaf that holds a code the tables infer rather than state.
  py::list InferredCodes() const {
    py::list out;
    for (size_t leaf : config_.InferredCodes()) {
      out.append(py::make_tuple(layout().leaves()[leaf].path, config_.value(leaf),
                                std::string(naming().ShownName(leaf, config_.value(leaf)))));
    }
    return out;
  }

  py::tuple Paths() const {
    const std::vector<Leaf>& leaves = layout().leaves();
    py::tuple paths(leaves.size());
    for (size_t i = 0; i < leaves.size(); ++i) paths[i] = py::str(leaves[i].path);
    return paths;
  }

  // The layout as `archspec layout --json` gives it.
  py::object LayoutJson() const { return ToPython(LayoutToJson(config_)); }

  // The leaf that holds `bit`, which bit of its value that is, and which register word.
  py::tuple Where(const py::int_& position) const {
    const bool inside = position >= py::int_(0) && position < py::int_(layout().bits());
    const std::optional<BitPlace> place =
        inside ? config_.Place(position.cast<uint64_t>()) : std::nullopt;
    if (!place.has_value()) throw py::index_error(config_.Outside(IntText(position)));
    const Leaf& leaf = layout().leaves()[place->leaf];
    return py::make_tuple(leaf.path, leaf.offset, leaf.width, place->value_bit, place->reg,
                          place->register_bit);
  }

  // {path: value} in bit order, of every leaf or of those not 0; `paths` is Paths(), which the
  // package keeps, so that no path is made into a Python string again.
  // With `names`, a typed leaf's value is the name of its code where it has one.
  py::dict Values(const py::tuple& paths, bool nonzero_only, bool names) const {
    py::dict out;
    const std::vector<uint64_t>& values = config_.values();
    for (size_t i : RecordOrder(layout())) {
      if (nonzero_only && values[i] == 0) continue;
      const std::string_view name = names ? naming().ShownName(i, values[i]) : "";
      if (name.empty()) {
        out[paths[i]] = py::int_(values[i]);
      } else {
        out[paths[i]] = py::str(name.data(), name.size());
      }
    }
    return out;
  }

  // (writes, load): the register writes that turn this configuration into `other`'s while the
  // unit runs, as (name, register, value, path, word) tuples in the library's order, and the
  // paths of the changed leaves that no run-time register writes.
  py::tuple WritesTo(const Tile& other, uint32_t id, std::optional<uint32_t> base) const {
    if (const std::optional<std::string> error = config_.CanCompare(other.config_)) {
      throw py::value_error(*error);
    }
    const RegisterWrites writes = WritesBetween(config_, other.config_, {id, base});
    py::list out, load;
    for (const RegisterWrite& write : writes.writes) {
      out.append(py::make_tuple(write.reg->name, write.patch.reg, write.patch.value,
                                write.reg->path, WordKey(write.reg->word)));
    }
    for (size_t leaf : writes.load) load.append(layout().leaves()[leaf].path);
    return py::make_tuple(out, load);
  }

  // Applies writes given as (register, value) pairs or (register, value, name) triples (whose
  // name tells a low word with a base from a high word of the same number), or read from `data`
  // (text, JSON or the binary form); a refusal raises ValueError with every complaint, and
  // changes nothing.
  void Apply(const py::object& writes, std::optional<uint32_t> base, bool force) {
    std::vector<ReadWrite> list;
    std::string what = "writes";
    if (py::isinstance<py::bytes>(writes) || py::isinstance<py::str>(writes)) {
      const std::string data = writes.cast<std::string>();
      WritesInput read = ReadWrites(data, config_, py::isinstance<py::bytes>(writes), force);
      if (!read.errors.empty()) throw py::value_error(Messages(what, read.errors));
      list = std::move(read.writes);
    } else {
      size_t index = 0;
      for (const py::handle item : writes) {
        const auto entry = item.cast<py::tuple>();
        ReadWrite write;
        write.patch.reg = entry[0].cast<uint32_t>();
        write.patch.value = entry[1].cast<uint32_t>();
        if (entry.size() > 2) write.name = entry[2].cast<std::string>();
        write.place = "writes[" + std::to_string(index++) + "]";
        list.push_back(std::move(write));
      }
    }
    Configuration changed = config_;
    const std::vector<Diagnostic> errors = ApplyWrites(changed, list, base);
    if (!errors.empty()) throw py::value_error(Messages(what, errors));
    config_ = std::move(changed);
  }

  // [(name, register, word, stated, inferred)] of the run-time registers that write the leaf at
  // `path`, its low word first; empty where none does.
  py::list RuntimeRegister(const std::string& path) const {
    const Leaf& leaf = layout().leaves()[LeafOf(path)];
    py::list out;
    for (const RuntimeRegisterRow* row : {leaf.runtime_lo, leaf.runtime_hi}) {
      if (row == nullptr) continue;
      out.append(
          py::make_tuple(row->name, row->number, WordKey(row->word), row->stated, row->inferred));
    }
    return out;
  }

  py::list Diff(const Tile& other) const {
    py::list out;
    if (const std::optional<std::string> error = config_.CanCompare(other.config_)) {
      if (tile().name != other.tile().name) throw py::value_error(*error);
      // Another generation's: by path and meaning, None for the side that lacks the path.
      for (const CrossChange& change : CompareAcross(config_, other.config_)) {
        const std::string& path =
            change.b ? other.layout().leaves()[*change.b].path : layout().leaves()[*change.a].path;
        const auto value = [](std::optional<size_t> leaf, uint64_t v) -> py::object {
          return leaf ? py::object(py::int_(v)) : py::object(py::none());
        };
        out.append(
            py::make_tuple(path, value(change.a, change.a_value), value(change.b, change.b_value)));
      }
      return out;
    }
    for (const LeafChange& change : config_.Compare(other.config_)) {
      out.append(py::make_tuple(layout().leaves()[change.leaf].path, change.from, change.to));
    }
    return out;
  }

  // The configuration moved to `generation` by meaning (Port.h): (tile, lost, notes, review),
  // each entry of lost and notes (path, reason, value, text), each of review (path, name).
  py::tuple PortTo(std::shared_ptr<Generation> generation) const {
    generation = Checked(std::move(generation));
    std::optional<PortResult> port = Port(config_, generation->row().version);
    if (!port.has_value()) throw py::value_error(generation->Label() + " has no tile records");
    const auto entries = [](const std::vector<PortEntry>& list) {
      py::list out;
      for (const PortEntry& entry : list) {
        out.append(
            py::make_tuple(entry.path, PortReasonName(entry.reason), entry.value, entry.text));
      }
      return out;
    };
    py::list review;
    for (const PortReview& row : port->report.review) {
      review.append(py::make_tuple(port->configuration.layout().leaves()[row.leaf].path,
                                   std::string(row.name)));
    }
    return py::make_tuple(Tile(std::move(generation), std::move(port->configuration)),
                          entries(port->report.lost), entries(port->report.notes), review);
  }

  bool Equals(const Tile& other) const {
    return other.generation_ == generation_ && other.config_ == config_;
  }

  std::string Describe() const { return std::string(tile().name) + " of " + generation_->Label(); }

 private:
  static Configuration Zero(const Generation& generation, const TileType& tile) {
    std::optional<Configuration> config = Configuration::Zero(generation.row().version, tile);
    if (!config.has_value()) throw py::value_error(generation.Label() + " has no tile records");
    return std::move(*config);
  }

  std::shared_ptr<Generation> generation_;
  Configuration config_;
};

}  // namespace
}  // namespace archspec

PYBIND11_MODULE(_core, m) {
  using namespace archspec;
  m.doc() = "The architecture library and its tooling layer; use the package archspec.";
  m.attr("version") = ARCHSPEC_VERSION;
  py::register_exception<NotAnswered>(m, "NotAnswered", PyExc_LookupError);

  m.def("generations", [] {
    py::list rows;
    for (const GenerationRow& row : zu::spec::GenerationTable()) {
      rows.append(py::make_tuple(row.version.to_string(), row.product_name, row.code_name,
                                 row.records, row.selectable, row.has_answers()));
    }
    return rows;
  });
  m.def(
      "join_path", [](std::string_view path, size_t index) { return JoinPath(path, index); },
      "The path of element `index` of the array at `path`.");
  m.def(
      "join_path",
      [](std::string_view path, std::string_view step) { return JoinPath(path, step); },
      "The path of the member (or \"[i]\" element) `step` of the branch at `path`.");
  m.def("tile_names", [] {
    std::vector<std::string> names;
    for (const TileType& tile : TileTypes()) names.push_back(tile.name);
    return names;
  });

  py::class_<Generation, std::shared_ptr<Generation>>(m, "Generation")
      .def_static("find", &GenerationNamed)
      .def_property_readonly("version",
                             [](const Generation& g) { return g.row().version.to_string(); })
      .def_property_readonly("product", [](const Generation& g) { return g.row().product_name; })
      .def_property_readonly("code_name", [](const Generation& g) { return g.row().code_name; })
      .def_property_readonly("records", [](const Generation& g) { return g.row().records; })
      .def_property_readonly("selectable", [](const Generation& g) { return g.row().selectable; })
      .def_property_readonly("label", &Generation::Label)
      .def("names", &Generation::Names)
      .def("answers", &Generation::Answered)
      .def("value", &Generation::Value)
      .def("enumerations",
           [](const Generation& g) {
             // {type: {name: code}} of every enumeration the generation answers.
             py::dict out;
             for (const Enumeration& type : Enumerations::Of(g.row().version)->all()) {
               py::dict names;
               for (const EnumName& name : type.names()) {
                 names[py::str(std::string(name.name))] = py::int_(name.code);
               }
               out[py::str(std::string(type.name()))] = names;
             }
             return out;
           })
      .def("fields_of",
           [](Generation& g, const std::string& type) {
             // {tile: [path]} of the leaves of each tile that take `type`.
             py::dict out;
             for (const auto& [tile, paths] : FieldsOfType(g.row().version, type)) {
               out[py::str(tile->name)] = paths;
             }
             if (out.empty()) {
               throw py::key_error(g.Label() + " answers no enumeration type named " +
                                   EchoText(type));
             }
             return out;
           })
      .def("code", &Generation::Code)
      .def("inferred", &Generation::Inferred)
      .def("describe", &Generation::Describe)
      .def("enumeration", [](const Generation& g, const std::string& type) {
        // The type as `archspec get --json TYPE` gives it.
        const std::optional<EnumerationAnswer> answer = AnswerEnumeration(g.row().version, type);
        if (!answer.has_value()) {
          std::string what = WhatNameIs(g.row().version, type);
          throw py::key_error(what.empty() ? g.Label() + " answers no enumeration type named " +
                                                 EchoText(type)
                                           : what);
        }
        return ToPython(EnumerationJson(g.row().version, *answer));
      });

  py::class_<Tile>(m, "Tile")
      .def(py::init([](std::shared_ptr<Generation> generation, const std::string& tile) {
        return Tile(std::move(generation), FindTile(tile));
      }))
      .def_static("read", &Tile::Read, py::arg("generation"), py::arg("tile"), py::arg("data"),
                  py::arg("form") = py::none(), py::arg("force") = false, py::arg("what") = "input")
      .def_static(
          "from_bits",
          [](std::shared_ptr<Generation> g, const std::string& tile, const std::string& text) {
            return Tile::Read(Checked(std::move(g)), tile, text, "bits", false, "bit text");
          })
      .def_static(
          "from_bytes",
          [](std::shared_ptr<Generation> g, const std::string& tile, const py::bytes& data) {
            return Tile::Read(Checked(std::move(g)), tile, data, "bytes", false, "bytes");
          })
      .def_static(
          "from_sparse",
          [](std::shared_ptr<Generation> g, const std::string& tile, const std::string& listing,
             bool force) {
            return Tile::Read(Checked(std::move(g)), tile, listing, "listing", force, "listing");
          },
          py::arg("generation"), py::arg("tile"), py::arg("listing"), py::arg("force") = false)
      .def_property_readonly("generation", &Tile::generation_ptr)
      .def_property_readonly("tile", [](const Tile& t) { return t.tile().name; })
      .def_property_readonly("record", [](const Tile& t) { return t.layout().record(); })
      .def_property_readonly("bits", [](const Tile& t) { return t.layout().bits(); })
      .def_property_readonly("leaves", [](const Tile& t) { return t.layout().leaves().size(); })
      .def("get", &Tile::Get)
      .def("set", &Tile::Set)
      .def("branch", &Tile::BranchOf)
      .def("span", &Tile::Span)
      .def("to_bits", &Tile::ToBits)
      .def("to_bytes", &Tile::ToBytes)
      .def(
          "to_sparse",
          [](const Tile& t, bool codes, bool all) { return t.config().ToListing(all, codes); },
          py::arg("codes") = false, py::arg("all") = false)
      .def(
          "to_tree",
          [](const Tile& t, bool codes, bool nonzero) { return t.config().ToTree(codes, nonzero); },
          py::arg("codes") = false, py::arg("nonzero") = false)
      .def(
          "to_json",
          [](const Tile& t, bool codes, bool all) { return t.config().ToJson(all, codes); },
          py::arg("codes") = false, py::arg("all") = false)
      .def("type_of", &Tile::TypeOf)
      .def("check", &Tile::Check)
      .def("inferred_codes", &Tile::InferredCodes)
      .def("paths", &Tile::Paths)
      .def("layout_json", &Tile::LayoutJson)
      .def("where", &Tile::Where)
      .def("values", &Tile::Values)
      .def("diff", &Tile::Diff)
      .def("port", &Tile::PortTo)
      .def("writes_to", &Tile::WritesTo)
      .def("apply", &Tile::Apply)
      .def("runtime_register", &Tile::RuntimeRegister)
      .def("equals", &Tile::Equals)
      .def("copy", [](const Tile& t) { return Tile(t); })
      .def("describe", &Tile::Describe);
}
