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
#include "BitText.h"
#include "Delta.h"
#include "Diagnostic.h"
#include "Layout.h"
#include "Names.h"
#include "Nearest.h"
#include "PathForm.h"
#include "Sparse.h"
#include "Tile.h"
#include "TreeText.h"
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

// "mk41, mk42, mk43 and mk44": the product names a generation may be asked by.
std::string ProductNames() {
  std::vector<std::string> names;
  for (const GenerationRow& row : zu::spec::GenerationTable()) {
    if (row.has_answers() && *row.product_name != '\0') names.emplace_back(row.product_name);
  }
  std::string out;
  for (size_t i = 0; i < names.size(); ++i) {
    if (i > 0) out += i + 1 == names.size() ? " and " : ", ";
    out += names[i];
  }
  return out;
}

// The library's refusal of a generation's name, in Python's terms: the library speaks of the
// tool's --arch. The name is shown as complaints echo input (a NUL, a control byte).
std::string GenerationRefusal(const std::string& name) {
  if (name.empty()) {
    return "Can't determine target architecture version: the name is empty; the generations "
           "are " +
           ProductNames();
  }
  if (name == "native") {
    return "Architecture autodetection is not supported: name the generation, one of " +
           ProductNames();
  }
  return "Invalid architecture version: \"" + EchoText(name) + "\"; the generations are " +
         ProductNames();
}

std::shared_ptr<Generation> GenerationNamed(const std::string& name) {
  static std::map<const GenerationRow*, std::shared_ptr<Generation>> made;
  std::string error;
  const ArchVersion version = ArchVersion::expect_parse(name, error);
  if (version.major == 0) throw py::value_error(GenerationRefusal(name));
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

// The record of a tile of a generation, made once per process and shared by every Tile of it:
// a tile's values are its own, the record only carries them through Parse and Build.
TileRecord& SharedRecord(const Generation& generation, const TileType& tile) {
  static std::map<std::pair<const GenerationRow*, const TileType*>, std::unique_ptr<TileRecord>>
      records;
  std::unique_ptr<TileRecord>& record = records[{&generation.row(), &tile}];
  if (record == nullptr) {
    record = TileRecord::Create(generation.row().version, tile);
    if (record == nullptr) {
      throw py::value_error(generation.Label() + " has no tile records");
    }
  }
  return *record;
}

// Every complaint about an input, one a line, each naming its place as the tool does
// ("listing:3: error: ..."), in Python's terms where the tool's speak of its options.
std::string Messages(std::string_view input, const std::vector<Diagnostic>& errors) {
  static constexpr std::string_view kToolHint = "(a file of packed bytes needs --bytes)";
  std::string out;
  for (const Diagnostic& error : errors) {
    if (!out.empty()) out += "\n";
    std::string line = FormatDiagnostic(input, error);
    if (const size_t at = line.find(kToolHint); at != std::string::npos) {
      line.replace(at, kToolHint.size(), "(packed bytes are read by tile_from_bytes)");
    }
    out += line;
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

// One configuration of a tile: a value per leaf of its layout, in bit order.
class Tile {
 public:
  Tile(std::shared_ptr<Generation> generation, const TileType& tile)
      : generation_(Checked(std::move(generation))),
        tile_(tile),
        record_(&SharedRecord(*generation_, tile)),
        values_(record_->layout().leaves().size(), 0) {}

  static Tile FromBits(std::shared_ptr<Generation> generation, const std::string& tile_name,
                       const std::string& text) {
    return FromBitString(std::move(generation), tile_name, "bit text", text, &ReadBitText);
  }

  static Tile FromBytes(std::shared_ptr<Generation> generation, const std::string& tile_name,
                        const py::bytes& data) {
    return FromBitString(std::move(generation), tile_name, "bytes", std::string(data),
                         &ReadBitBytes);
  }

  // A listing read for this tile, refused as the tool refuses it when its header names another
  // generation or tile, unless `force`.
  static Tile FromSparse(std::shared_ptr<Generation> generation, const std::string& tile_name,
                         const std::string& listing, bool force) {
    Tile tile(std::move(generation), FindTile(tile_name));
    const Generation& g = *tile.generation_;
    // Names are read as the tool reads them: a name of another type than its leaf's is refused.
    SparseResult read = ReadSparse(listing, tile.layout(), tile.naming().Resolver());
    if (!force) {
      if (std::optional<Diagnostic> wrong =
              CheckListingHeader(read.header, g.row().product_name, tile.tile_.name)) {
        wrong->message += "; force=True reads it anyway";
        throw py::value_error(Messages("listing", {*wrong}));
      }
    }
    if (!read.ok()) throw py::value_error(Messages("listing", read.errors));
    tile.values_ = std::move(read.values);
    return tile;
  }

  const Layout& layout() const { return record_->layout(); }
  // The tile's leaves seen through their field types, on its generation.
  const Naming& naming() const { return *Naming::Of(*record_); }
  const Generation& generation() const { return *generation_; }
  std::shared_ptr<Generation> generation_ptr() const { return generation_; }
  const TileType& tile() const { return tile_; }

  // The leaf of `path`, or a KeyError that says what the path names instead.
  size_t LeafOf(const std::string& path) const {
    if (const std::optional<size_t> leaf = layout().Find(path)) return *leaf;
    throw py::key_error(layout().NotALeaf(path, true));
  }

  uint64_t Get(const std::string& path) const { return values_[LeafOf(path)]; }

  // Stores a value given as an int or as the name of an enumerant of the generation.
  void Set(const std::string& path, const py::handle& value) {
    const size_t leaf = LeafOf(path);
    const Leaf& where = layout().leaves()[leaf];
    uint64_t number;
    if (py::isinstance<py::str>(value)) {
      const std::string name = value.cast<std::string>();
      number = generation_->Code(name);  // KeyError or NotAnswered for a name it does not answer
      const NamedValue typed = naming().Resolve(leaf, name);
      if (!typed.value.has_value()) {
        throw py::value_error(path + " = " + EchoText(name) + ": " + typed.error);
      }
    } else if (py::isinstance<py::int_>(value)) {
      const py::int_ integer = py::reinterpret_borrow<py::int_>(value);
      if (integer < py::int_(0)) {
        throw py::value_error(ValueNegative(py::str(value).cast<std::string>(), where));
      }
      if (py::int_(integer.attr("bit_length")()).cast<uint64_t>() > where.width) {
        throw py::value_error(ValueTooWide(EchoText(py::str(value).cast<std::string>()), where));
      }
      number = integer.cast<uint64_t>();
    } else {
      throw py::type_error("the value of " + path + " must be an int or an enumerant name, not " +
                           py::str(py::type::of(value).attr("__name__")).cast<std::string>());
    }
    if (number > MaxValue(where.width)) {
      throw py::value_error(ValueTooWide(std::to_string(number), where));
    }
    values_[leaf] = number;
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

  std::string ToBits() { return record_->WriteBits(values_); }
  py::bytes ToBytes() {
    const std::vector<uint8_t> bytes = record_->WriteBytes(values_);
    return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  }
  // The listing as `archspec decode --format sparse` writes it: codes by name unless `codes`.
  std::string ToSparse(bool codes) const {
    return WriteSparse(layout(), values_, {record_->ListingHeaderLine()}, false,
                       codes ? nullptr : &naming());
  }
  // The printed tree, cut down to the non-zero leaves and what holds them with `nonzero`, as
  // `archspec decode --nonzero` prints it.
  std::string ToTree(bool codes, bool nonzero) {
    std::string tree = record_->WriteTree(values_);
    if (!codes) tree = naming().NameTree(tree, values_);
    return nonzero ? NonzeroTree(tree) : tree;
  }

  // The enumeration type of the leaf at `path`, or None.
  py::object TypeOf(const std::string& path) const {
    const Enumeration* type = naming().TypeOf(LeafOf(path));
    return type == nullptr ? py::none() : py::object(py::str(std::string(type->name())));
  }

  // (path, offset, width, value, type, [(name, code)]) of every typed leaf whose value is no
  // code of its type, as `archspec check` lists them.
  py::list Check() const {
    py::list out;
    for (const Finding& finding : naming().Check(values_)) {
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

  py::tuple Paths() const {
    const std::vector<Leaf>& leaves = layout().leaves();
    py::tuple paths(leaves.size());
    for (size_t i = 0; i < leaves.size(); ++i) paths[i] = py::str(leaves[i].path);
    return paths;
  }

  py::list LayoutRows() const {
    py::list rows;
    for (const Leaf& leaf : layout().leaves()) {
      rows.append(py::make_tuple(leaf.path, leaf.offset, leaf.width, leaf.reg_lo,
                                 leaf.reg_hi.has_value() ? py::cast(*leaf.reg_hi) : py::none()));
    }
    return rows;
  }

  // The leaf that holds `bit`, which bit of its value that is, and which register word.
  py::tuple Where(const py::int_& position) const {
    if (position < py::int_(0) || position >= py::int_(layout().bits())) {
      throw py::index_error("bit " + EchoText(py::str(py::object(position)).cast<std::string>()) +
                            " lies outside " + record_->Describe() + ", which has bits 0 to " +
                            std::to_string(layout().bits() - 1));
    }
    const BitPlace place = *layout().PlaceOfBit(position.cast<uint32_t>());
    const Leaf& leaf = layout().leaves()[place.leaf];
    return py::make_tuple(leaf.path, leaf.offset, leaf.width, place.value_bit, place.reg,
                          place.register_bit);
  }

  // {path: value} in bit order, of every leaf or of those not 0; `paths` is Paths(), which the
  // package keeps, so that no path is made into a Python string again.
  // With `names`, a typed leaf's value is the name of its code where it has one.
  py::dict Values(const py::tuple& paths, bool nonzero_only, bool names) const {
    py::dict out;
    for (size_t i = 0; i < values_.size(); ++i) {
      if (nonzero_only && values_[i] == 0) continue;
      const std::string_view name = names ? naming().ShownName(i, values_[i]) : "";
      if (name.empty()) {
        out[paths[i]] = py::int_(values_[i]);
      } else {
        out[paths[i]] = py::str(name.data(), name.size());
      }
    }
    return out;
  }

  py::list Diff(const Tile& other) const {
    if (&other.layout() != &layout() || other.generation_ != generation_) {
      throw py::value_error("cannot compare " + Describe() + " with " + other.Describe());
    }
    py::list out;
    for (const LeafChange& change : CompareConfigurations(values_, other.values_)) {
      out.append(py::make_tuple(layout().leaves()[change.leaf].path, change.from, change.to));
    }
    return out;
  }

  bool Equals(const Tile& other) const {
    return other.generation_ == generation_ && &other.tile_ == &tile_ && other.values_ == values_;
  }

  std::string Describe() const { return std::string(tile_.name) + " of " + generation_->Label(); }
  const std::vector<uint64_t>& values() const { return values_; }

 private:
  // A tile read from one of the two forms of a bit string, checked by the tooling layer's reader
  // of that form (`read`), which names the position of what is wrong.
  static Tile FromBitString(std::shared_ptr<Generation> generation, const std::string& tile_name,
                            std::string_view form, std::string_view input,
                            BitsResult (*read)(std::string_view, size_t, std::string_view)) {
    Tile tile(std::move(generation), FindTile(tile_name));
    const BitsResult bits = read(input, tile.layout().bits(), tile.record_->Describe());
    if (!bits.ok()) throw py::value_error(Messages(form, bits.errors));
    tile.values_ = tile.record_->ReadBits(bits.bits);
    return tile;
  }

  std::shared_ptr<Generation> generation_;
  const TileType& tile_;
  TileRecord* record_;
  std::vector<uint64_t> values_;
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
             if (Enumerations::Of(g.row().version)->Find(type) == nullptr) {
               throw py::key_error(g.Label() + " answers no enumeration type named " +
                                   EchoText(type));
             }
             py::dict out;
             for (const TileType& tile : TileTypes()) {
               const TileRecord& record = SharedRecord(g, tile);
               const Naming& naming = *Naming::Of(record);
               py::list paths;
               for (size_t i = 0; i < record.layout().leaves().size(); ++i) {
                 const Enumeration* of = naming.TypeOf(i);
                 if (of != nullptr && of->name() == type) {
                   paths.append(record.layout().leaves()[i].path);
                 }
               }
               out[py::str(tile.name)] = paths;
             }
             return out;
           })
      .def("code", &Generation::Code);

  py::class_<Tile>(m, "Tile")
      .def(py::init([](std::shared_ptr<Generation> generation, const std::string& tile) {
        return Tile(std::move(generation), FindTile(tile));
      }))
      .def_static("from_bits", &Tile::FromBits)
      .def_static("from_bytes", &Tile::FromBytes)
      .def_static("from_sparse", &Tile::FromSparse, py::arg("generation"), py::arg("tile"),
                  py::arg("listing"), py::arg("force") = false)
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
      .def("to_sparse", &Tile::ToSparse, py::arg("codes") = false)
      .def("to_tree", &Tile::ToTree, py::arg("codes") = false, py::arg("nonzero") = false)
      .def("type_of", &Tile::TypeOf)
      .def("check", &Tile::Check)
      .def("paths", &Tile::Paths)
      .def("layout", &Tile::LayoutRows)
      .def("where", &Tile::Where)
      .def("values", &Tile::Values)
      .def("diff", &Tile::Diff)
      .def("equals", &Tile::Equals)
      .def("copy", [](const Tile& t) { return Tile(t); })
      .def("describe", &Tile::Describe);
}
