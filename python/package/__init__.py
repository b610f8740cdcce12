"""archspec: the architecture description library of the compiler, from Python.

For every chip generation, the answers of the compiler's architecture library (parameters,
opcodes, crossbar enumerants, register indices, feature flags, constraints) and bit-exact
configurations of every tile (PCU, PMU, switch, AGCU)::

    import archspec
    g = archspec.generation("mk43")
    g.constants.pcu_num_stages                       # a parameter
    t = g.tile("pcu")                                # a configuration, every field 0
    t.simd_structIn[0][4].stage_opcode = g.constants.stage_opcode_alu_op_max
    t["simd_structIn[0][4].stage_opcode"] = "stage_opcode_alu_op_max"   # by path and name
    data = t.to_bytes()                              # the packed configuration
    archspec.generation("mk44").tile_from_bytes("agcu", blob).nonzero()

Generations and tiles do not interfere: any number of them live side by side. Bad input raises
(ValueError, KeyError, IndexError, TypeError, AttributeError, NotAnswered) and never ends the
interpreter. Tiles, generations and their answers pickle and copy; records and arrays inside a
tile are views of it, with a path, an offset and a width.
"""

import collections
import copy

from . import _core
from ._core import NotAnswered

__all__ = ["Answers", "Finding", "Generation", "GenerationInfo", "Leaf", "Node", "NotAnswered",
           "PortEntry", "PortReport", "PortReview", "RuntimeRegister", "Tile", "Where", "Write",
           "Writes", "__version__", "generation", "generations", "tiles"]

__version__ = _core.version

GenerationInfo = collections.namedtuple(
    "GenerationInfo", "version product code_name records selectable has_answers")
GenerationInfo.__doc__ = """A named chip generation: version ("3" for 3.0.0), product name (what
--arch accepts; None where it cannot be selected), code name, records namespace (None where it has
no tile records), whether it is selectable, and whether it has answers."""

Leaf = collections.namedtuple("Leaf", "path offset width reg_lo reg_hi runtime_lo runtime_hi",
                              defaults=(None, None))
Leaf.__doc__ = """One leaf of a tile: its dotted path, its first (most significant) bit, its width,
the configuration register words it is patched through (reg_hi only for leaves above 32 bits),
and the numbers of the run-time registers that write it while its unit runs (of its low word, or
the whole leaf, and of its high word; None where none does)."""

RuntimeRegister = collections.namedtuple("RuntimeRegister", "name register word stated inferred")
RuntimeRegister.__doc__ = """A register of a unit that can be written while it runs, as it writes a
leaf: its name (the accessor of its enumerant), its number inside the unit, the word of the leaf it
writes ("whole", or "low" and "high" for a leaf above 32 bits), whether the link to the leaf is
stated by the description of the registers (else inferred from name and role), and whether its
number is inferred in the constants tables."""

Write = collections.namedtuple("Write", "name register value path word")
Write.__doc__ = """One register write: the register's name and number (with the base added, for a
low word), the 32-bit value written, and the leaf and word it writes."""

Writes = collections.namedtuple("Writes", "writes load")
Writes.__doc__ = """What turns one configuration into another while the unit runs: [Write] in the
library's order (bit order, a wide leaf's low word first), and the paths of the changed leaves that
no run-time register writes: those need the configuration loaded whole. `load` is empty when every
change is reachable."""

Finding = collections.namedtuple("Finding", "path offset width value type nearest")
Finding.__doc__ = """A leaf whose value is no code of its enumeration type, as Tile.check() finds it:
its path, first bit and width, its value, its type ("stage_opcode_t"), and [(name, code)] of the
names whose codes lie nearest the value."""

Where = collections.namedtuple("Where", "path offset width value_bit register register_bit")
Where.__doc__ = """A bit of a tile: the leaf that holds it (path, offset, width), which bit of the
leaf's value it is, and which bit of which register word."""


def _word(value, what):
    """A 32-bit unsigned number for `what`, or TypeError / ValueError."""
    if not isinstance(value, int) or isinstance(value, bool):
        raise TypeError(f"{what} is an int, not {type(value).__name__}")
    if not 0 <= value <= 0xFFFFFFFF:
        raise ValueError(f"{what} {value} does not fit 32 bits")
    return value


def _runtime_numbers(entries):
    """(low or whole, high) register numbers of a layout row's "runtime" entries."""
    low = next((e["register"] for e in entries if e["word"] != "high"), None)
    high = next((e["register"] for e in entries if e["word"] == "high"), None)
    return low, high


def generations():
    """Every named generation, in version order, as GenerationInfo."""
    return [GenerationInfo(version, product or None, code, records or None, selectable, answers)
            for version, product, code, records, selectable, answers in _core.generations()]


def tiles():
    """The tile names: "pcu", "pmu", "switch", "agcu"."""
    return list(_core.tile_names())


_generations = {}


def read(data, generation=None, tile=None, form=None, force=False):
    """A configuration read from any form that archspec writes: `data` is a str (the text of '0'
    and '1', a sparse listing, JSON) or bytes (the packed form, or any of the others encoded as
    UTF-8). The form is told from the data unless `form` ("bits", "bytes", "listing", "json")
    says it; the generation (a Generation or a product name) and the tile are those given, or
    where one is None, those that a listing's header or the JSON's "arch" and "tile" name. An
    input that names another generation or tile is refused unless `force`. Raises ValueError
    saying what is wrong and where."""
    if isinstance(generation, str):
        generation = globals()["generation"](generation)
    if generation is not None and not isinstance(generation, Generation):
        raise TypeError(f"a Generation or a product name is needed, not {type(generation).__name__}")
    if isinstance(data, (bytes, bytearray, memoryview)):
        data = bytes(data)
    elif isinstance(data, str):
        data = _text(data, "input").encode("utf-8", "surrogateescape")
    else:
        raise TypeError(f"str or bytes are needed, not {type(data).__name__}")
    core = _core.Tile.read(None if generation is None else generation._core,
                           None if tile is None else _name(tile, "tile"), data,
                           None if form is None else _name(form, "form"), bool(force))
    if generation is None:
        generation = globals()["generation"](core.generation.product)
    return Tile(generation, core)


def generation(name):
    """The generation of product name `name` ("mk43", any case). Raises ValueError with the
    library's own words for a name it does not know."""
    if not isinstance(name, str):
        raise TypeError(f"a generation is named by its product name, a str, not "
                        f"{type(name).__name__}")
    core = _core.Generation.find(_name(name, "generation name"))
    found = _generations.get(core.product)
    if found is None:
        found = _generations[core.product] = Generation(core)
    return found


PortEntry = collections.namedtuple("PortEntry", "path reason value text")
PortEntry.__doc__ = """A leaf of a ported configuration that did not move exactly, or moved with a
note: its path, the reason ("no-field", "beyond-array", "shape", "too-wide", "unanswered",
"unnamed"; "inferred" for a note), its value in the source, and the reason in words."""

PortReview = collections.namedtuple("PortReview", "path name")
PortReview.__doc__ = """A typed leaf new on the target, at 0, whose 0 names a code (`name`) in a
record the ported program uses: the program runs that operation there."""

PortReport = collections.namedtuple("PortReport", "lost notes review")
PortReport.__doc__ = """What a port says: [PortEntry] of the leaves that did not move exactly (empty
when everything did), [PortEntry] of those that moved by a code either generation infers, and
[PortReview] of the target's new leaves to look at."""


class Generation:
    """A chip generation: its answers (constants, features, constraints) and its tiles."""

    __slots__ = ("_core", "_constants", "_features", "_constraints", "_paths")

    def __init__(self, core):
        """Made by archspec.generation(name), which gives one object per generation."""
        if not isinstance(core, _core.Generation):
            raise TypeError(f"archspec.generation(name) makes a Generation, not "
                            f"Generation({type(core).__name__})")
        for name, value in (("_core", core), ("_constants", Answers(core, "constants")),
                            ("_features", Answers(core, "features")),
                            ("_constraints", Answers(core, "constraints")), ("_paths", {})):
            object.__setattr__(self, name, value)

    def __setattr__(self, name, value):
        raise AttributeError(f"{self!r} is read only: {name} cannot be set")

    def __delattr__(self, name):
        raise AttributeError(f"{self!r} is read only: {name} cannot be deleted")

    constants = property(lambda self: self._constants, doc="the parameters, enumerants, containers")
    features = property(lambda self: self._features, doc="the feature flags")
    constraints = property(lambda self: self._constraints, doc="the constraints")

    version = property(lambda self: self._core.version, doc='"3" for 3.0.0')
    product = property(lambda self: self._core.product, doc='the product name, "mk43"')
    code_name = property(lambda self: self._core.code_name, doc='the code name, "ry"')
    records = property(lambda self: self._core.records, doc='the records namespace, "ry"')
    selectable = property(lambda self: self._core.selectable)

    def tile(self, name):
        """A configuration of tile `name` ("pcu", "pmu", "switch", "agcu"), every field 0."""
        return Tile(self, _core.Tile(self._core, _name(name, "tile")))

    def tile_from_bits(self, tile, text):
        """A configuration read from its text form: '0' and '1', most significant first (blanks
        and line ends are layout). Raises ValueError naming the position of a bad character, or
        the expected length."""
        return Tile(self, _core.Tile.from_bits(self._core, _name(tile, "tile"),
                                               _text(text, "bit text")))

    def tile_from_bytes(self, tile, data):
        """A configuration read from its packed form: eight bits a byte, the last one padded with
        zeros. Raises ValueError for the wrong number of bytes or padding that is not 0."""
        if not isinstance(data, (bytes, bytearray, memoryview)):
            raise TypeError(f"bytes are needed, not {type(data).__name__}")
        return Tile(self, _core.Tile.from_bytes(self._core, _name(tile, "tile"), bytes(data)))

    def tile_from_sparse(self, tile, listing, force=False):
        """A configuration read from a sparse listing: `path = value` lines, values in decimal,
        0x hexadecimal, or enumerant names of this generation; leaves not named are 0. Raises
        ValueError with every faulty line, and (naming line 1) for a listing whose header
        (`# archspec mk44 pcu`) names another generation or tile, unless `force` is true."""
        return Tile(self, _core.Tile.from_sparse(self._core, _name(tile, "tile"),
                                                 _text(listing, "listing"), bool(force)))

    def enumerations(self):
        """{type: {name: code}} of every enumeration type this generation answers, names in
        order of their codes; the names are those a listing or a tile takes as values."""
        return self._core.enumerations()

    def enumeration(self, type):
        """The enumeration type `type` ("stage_opcode_t") as this generation answers it, as
        `archspec get --json` gives it: {"name", "kind", "generation", "names": [{"name", "code",
        "inferred"}] by code, "fields": {tile: [{"path", "leaves"}]}} with paths as templates
        ("simd_structIn[][].stage_opcode"). KeyError for a type the generation does not answer,
        saying what the name is where it names a tile or a field."""
        return self._core.enumeration(_name(type, "type"))

    def fields_of(self, type):
        """{tile: [path]}: the leaves of each tile that hold a code of enumeration type `type`
        ("stage_opcode_t"), in bit order. KeyError for a type the generation does not answer."""
        return self._core.fields_of(_name(type, "type"))

    def __repr__(self):
        return f"<archspec generation {self._core.label}>"

    def __reduce__(self):
        return generation, (self.product,)

    def __copy__(self):
        return self

    def __deepcopy__(self, memo):
        return self

    def __eq__(self, other):
        return isinstance(other, Generation) and other._core is self._core

    def __hash__(self):
        return hash(self.product)


class Answers:
    """The constants, features or constraints of a generation, by name.

    Attribute access (`g.constants.pcu_num_stages`) and item access (`g.constants["..."]`) give
    the value; an enumerant answers its code as an int. Iteration gives (name, value) of the
    accessors the generation answers; `in` and len() count those. An accessor of another name
    raises AttributeError or KeyError with the nearest name; one that the generation does not
    answer raises NotAnswered."""

    __slots__ = ("_core", "_family", "_names")

    def __init__(self, core, family):
        """Made by a Generation: g.constants, g.features, g.constraints."""
        if not isinstance(core, _core.Generation):
            raise TypeError(f"answers belong to a generation: use archspec.generation(name)."
                            f"constants, not Answers({type(core).__name__}, ...)")
        if family not in ("constants", "features", "constraints"):
            raise ValueError(f"the answers are constants, features or constraints, not "
                             f"{family!r}")
        object.__setattr__(self, "_core", core)
        object.__setattr__(self, "_family", family)
        object.__setattr__(self, "_names", None)

    def __getattr__(self, name):
        if name.startswith("_"):
            raise AttributeError(name)
        try:
            return self._core.value(self._family, name)
        except KeyError as e:
            raise AttributeError(e.args[0]) from None

    def __setattr__(self, name, value):
        raise AttributeError(f"the {self._family} of a generation are read only: {name} cannot "
                             f"be set")

    def __delattr__(self, name):
        raise AttributeError(f"the {self._family} of a generation are read only")

    def __getitem__(self, name):
        return self._core.value(self._family, _name(name, "accessor"))

    def __contains__(self, name):
        return _valid(name) and self._core.answers(self._family, name)

    def __reduce__(self):
        return getattr, (generation(self._core.product), self._family)

    def __copy__(self):
        return self

    def __deepcopy__(self, memo):
        return self

    def is_inferred(self, name):
        """Whether this generation's code of the enumerant `name` is inferred from the tables'
        spans rather than stated: a change of it between generations is no known change of the
        hardware."""
        return self._core.inferred(_name(name, "accessor"))

    def describe(self, name):
        """The accessor `name` as `archspec get --json` gives it: {"name", "kind", "type",
        "answered", "value"} and, for a parameter, its "group" heading and the "quantity" and
        "unit" its name's ending gives it (None where the rule gives none), with a "derived"
        figure where there is one (the clock frequency of cycle_time). An accessor the generation
        does not answer is described too, with "answered" false."""
        return self._core.describe(self._family, _name(name, "accessor"))

    def names(self):
        """The names of the accessors this generation answers, in interface order."""
        if self._names is None:
            object.__setattr__(self, "_names", tuple(self._core.names(self._family)))
        return self._names

    def items(self):
        """(name, value) of every accessor this generation answers."""
        return [(name, self._core.value(self._family, name)) for name in self.names()]

    def __iter__(self):
        return iter(self.items())

    def __len__(self):
        return len(self.names())

    def __dir__(self):
        return list(self.names())

    def __repr__(self):
        return f"<archspec {self._family} of {self._core.label}: {len(self)} answered>"


class Tile:
    """A configuration of one tile of one generation: a value for every leaf.

    Navigate by attribute and index (`t.simd_structIn[0][4].stage_opcode`) or by dotted path
    (`t["simd_structIn[0][4].stage_opcode"]`, `t["simd_structIn[0][4]"]` for a record); a leaf
    reads as an int and takes an int or the name of an enumerant of the generation.

    The tile is a mapping of its record's members, as every record inside it is: iteration and
    keys() give the member names, items() (name, value) with a Node for a record or an array,
    `name in t` asks for a member (or a dotted path). A member whose name is an attribute of the
    tile (`bits`, `path`, ...) is reached by item: t["bits"]. Tiles compare by value, copy, deep
    copy and pickle (as their generation, tile and bytes)."""

    __slots__ = ("_generation", "_core")

    def __init__(self, generation, core):
        """Made by a Generation: g.tile(name), g.tile_from_bits(...), and the like."""
        if not isinstance(generation, Generation) or not isinstance(core, _core.Tile):
            raise TypeError("a Tile is made by a Generation: archspec.generation(name)."
                            "tile(tile), not Tile(...)")
        if core.generation is not generation._core:
            raise ValueError(f"a {core.describe()} is not a tile of {generation!r}")
        object.__setattr__(self, "_generation", generation)
        object.__setattr__(self, "_core", core)

    generation = property(lambda self: self._generation, doc="the Generation")
    tile = property(lambda self: self._core.tile, doc='"pcu", "pmu", "switch" or "agcu"')
    record = property(lambda self: self._core.record, doc='the record, "pcu_config_struct"')
    bits = property(lambda self: self._core.bits, doc="the number of bits of the configuration")
    path = property(lambda self: "", doc='the path of the tile\'s record: ""')
    offset = property(lambda self: 0, doc="the first bit of the tile's record: 0")
    width = property(lambda self: self._core.bits, doc="the bits of the tile's record")

    def __getitem__(self, path):
        return self._root()._at(_name(path, "path"))

    def __setitem__(self, path, value):
        self._root()._set_path(_name(path, "path"), value)

    def __getattr__(self, name):
        if name.startswith("_"):
            raise AttributeError(name)
        root = self._root()
        try:
            return root.__getattr__(name)
        except AttributeError as e:
            if not str(e.args[0]).startswith("unknown path"):
                raise
            # Not a method of a Tile either: say both, with the nearest member if there is one.
            hint = e.args[0].partition("; ")[2]
            raise AttributeError(f"a Tile has no attribute {name!r}, and {root._where()} no "
                                 f"member named so" + (f"; {hint}" if hint else "")) from None

    def __setattr__(self, name, value):
        _set_attribute(self._root(), Tile, name, value)

    def __delattr__(self, name):
        raise AttributeError(f"the fields of a tile are set, not deleted: {name}")

    def __dir__(self):
        return list(object.__dir__(self)) + self._root().keys()

    def __iter__(self):
        return iter(self._root())

    def __len__(self):
        return len(self._root())

    def __contains__(self, name):
        return name in self._root()

    def keys(self):
        """The names of the members of the tile's record, in bit order."""
        return self._root().keys()

    def items(self):
        """(name, value) of each member of the tile's record: an int for a leaf, a Node for a
        record or an array."""
        return self._root().items()

    def values(self):
        """The value of each member of the tile's record: an int, or a Node."""
        return self._root().values()

    def _root(self):
        return Node(self, "")

    def to_bits(self):
        """The text form: '0' and '1', most significant first."""
        return self._core.to_bits()

    def to_bytes(self):
        """The packed form: eight bits a byte, the last one padded with zeros."""
        return self._core.to_bytes()

    def to_sparse(self, codes=False):
        """The sparse listing, as `archspec decode --format sparse` writes it: a header naming the
        generation and tile, then `path = value` for every leaf that is not 0, in the record's
        order (that of to_tree(): arrays from index 0). A leaf that holds a code of an enumeration
        type shows the code's name (with a comment for inferred codes, shared codes and codes of
        no name), and one at 0 whose 0 has a name is listed where its record has another leaf
        set; others, and all with `codes`, 0x hexadecimal (and no leaf at 0)."""
        return self._core.to_sparse(bool(codes))

    def to_tree(self, codes=False, nonzero=False):
        """The library's printed form of the record, each code of a name followed by the name
        in parentheses (not with `codes`); with `nonzero`, only the non-zero leaves and the
        records and arrays that hold them."""
        return self._core.to_tree(bool(codes), bool(nonzero))

    def to_json(self, codes=False, all=False):
        """The JSON of the configuration as `archspec decode --format json` writes it: the
        non-zero leaves (every leaf with `all`), values as 0x strings, codes named unless
        `codes`. archspec.read() reads it back."""
        return self._core.to_json(bool(codes), bool(all))

    def type_of(self, path):
        """The enumeration type ("stage_opcode_t") whose code the leaf at `path` holds, or None
        for a leaf that holds a number. KeyError for a path of no leaf."""
        return self._core.type_of(_name(path, "path"))

    def inferred_codes(self):
        """[(path, value, name)] of the leaves whose value is a code that the tables infer on
        this generation rather than state, as `archspec check` notes them: a program that relies
        on such a code relies on an inference."""
        return self._core.inferred_codes()

    def check(self):
        """[Finding] of every leaf that holds a code of an enumeration type and whose value is
        not 0 and no code of the type on this generation, in the record's order, as `archspec check`
        finds them. An empty list: every such leaf holds a name."""
        return [Finding(*row) for row in self._core.check()]

    def layout(self):
        """Every leaf in bit order, as Leaf(path, offset, width, reg_lo, reg_hi)."""
        return [Leaf(row["path"], row["offset"], row["width"], row["reg_lo"], row.get("reg_hi"),
                     *_runtime_numbers(row.get("runtime", ())))
                for row in self._core.layout_json()["leaves"]]

    def where(self, bit):
        """The leaf holding bit `bit` of the configuration, as Where; IndexError outside it, and
        TypeError for what is not an int."""
        if not isinstance(bit, int) or isinstance(bit, bool):
            raise TypeError(f"a bit position is an int, not {type(bit).__name__}")
        return Where(*self._core.where(bit))

    def nonzero(self, names=False):
        """{path: value} of the leaves that are not 0, in the record's order (that of to_tree():
        arrays from index 0); with `names`, a leaf that
        holds a code of an enumeration type gives the code's name where it has one."""
        return self._core.values(self._paths(), True, bool(names))

    def to_dict(self, names=False):
        """{path: value} of every leaf, in the record's order; `names` as for nonzero()."""
        return self._core.values(self._paths(), False, bool(names))

    def diff(self, other):
        """[(path, mine, theirs)] of the leaves whose values differ from `other`'s, in the record's
        order; `other` must be the same tile. Of another generation, the paths compare by meaning
        (a code by its name, as port() moves it), and the side that lacks a path gives None. What
        the change costs a running unit: writes_to()."""
        if not isinstance(other, Tile):
            raise TypeError(f"a Tile is needed, not {type(other).__name__}")
        return self._core.diff(other._core)

    def writes_to(self, other, id=0, base=None):
        """The register writes that turn this configuration into `other`'s (the same tile of the
        same generation) while the unit runs, as Writes; `id` goes into every write, as the
        library's patches carry it, and `base` is added to the register of every low word."""
        if not isinstance(other, Tile):
            raise TypeError(f"a Tile is needed, not {type(other).__name__}")
        writes, load = self._core.writes_to(other._core, _word(id, "id"),
                                            None if base is None else _word(base, "base"))
        return Writes([Write(*w) for w in writes], load)

    def apply(self, writes, base=None, force=False):
        """Applies register writes in place: Writes, a list of Write or of (register, value)
        pairs, or what `archspec writes` gives (its text or JSON as str, its binary form as
        bytes). With `base`, the registers of low words carry it, as writes_to(base=) gives them;
        where a low word's number with the base is also a high word's, only a write that names
        its register (Write, the text, the JSON) is read, and a bare number is refused.
        ValueError, with nothing changed, for a register the tile does not have on its generation
        (or whose field is not known), a value wider than the bits its register writes, or two
        writes to one register that disagree."""
        if isinstance(writes, Writes):
            writes = writes.writes
        if not isinstance(writes, (str, bytes)):
            writes = [(w.register, w.value, w.name) if isinstance(w, Write) else tuple(w)
                      for w in writes]
        self._core.apply(writes, None if base is None else _word(base, "base"), bool(force))

    def runtime_register(self, path):
        """[RuntimeRegister] that write the leaf at `path` while its unit runs, its low word
        first; empty where none does (a change of it needs the configuration loaded).
        KeyError for a path that names no leaf."""
        return [RuntimeRegister(*row) for row in self._core.runtime_register(path)]

    def port(self, to):
        """This configuration moved to the generation `to` (a Generation or a product name) by
        meaning, as `archspec port` moves it: (Tile, PortReport). A code moves by its name, a typed
        0 of a record in use by its name, other values by number, paths by field name and index;
        what did not move exactly is in the report, and the Tile holds what did. Raises only for
        bad input (an unknown generation). diff() compares the two by path and meaning."""
        if isinstance(to, str):
            to = generation(to)
        if not isinstance(to, Generation):
            raise TypeError(f"a Generation or a product name is needed, not {type(to).__name__}")
        core, lost, notes, review = self._core.port(to._core)
        return Tile(to, core), PortReport([PortEntry(*row) for row in lost],
                                          [PortEntry(*row) for row in notes],
                                          [PortReview(*row) for row in review])

    def _paths(self):
        paths = self._generation._paths.get(self.tile)
        if paths is None:
            paths = self._generation._paths[self.tile] = self._core.paths()
        return paths

    def __eq__(self, other):
        return isinstance(other, Tile) and self._core.equals(other._core)

    def __ne__(self, other):
        return not self == other

    __hash__ = None  # configurations change

    def __copy__(self):
        return Tile(self._generation, self._core.copy())

    def __deepcopy__(self, memo):
        return self.__copy__()

    def __reduce__(self):
        return _restore_tile, (self._generation.product, self.tile, self.to_bytes())

    def __repr__(self):
        return f"<archspec {self._core.describe()}: {len(self.nonzero())} leaves not 0>"


class Node:
    """A record or an array inside a tile, reached by attribute, index or path:
    `t.simd_structIn[0]`, `t["simd_structIn[0][2]"]`. A node is a view of its tile: what is set
    through it is set in the tile.

    A record is a mapping of its members: iteration and keys() give their names, items() and
    values() their values (an int for a leaf, a Node below), `name in node` asks for a member or a
    dotted path below. An array is a sequence of its elements. Every node has its `path`, its
    `offset` (first bit in the tile) and its `width` in bits; a member named like one of these
    (a PMU record's `offset`) is reached by item: node["offset"]. to_dict() gives {path: value}
    of every leaf below."""

    __slots__ = ("_tile", "_path", "_branch")

    def __init__(self, tile, path, branch=None):
        if not isinstance(tile, Tile):
            raise TypeError(f"a Node is part of a Tile, not of {type(tile).__name__}")
        path = _name(path, "path")
        if branch is None:
            branch = tile._core.branch(path)
            if branch is None:
                tile._core.get(path)  # KeyError for a path of nothing
                raise ValueError(f"{path} is a leaf, not a record or an array")
        object.__setattr__(self, "_tile", tile)
        object.__setattr__(self, "_path", path)
        object.__setattr__(self, "_branch", branch)

    path = property(lambda self: self._path, doc='the dotted path from the tile, "" for its record')
    offset = property(lambda self: self._branch[3], doc="its first bit in the tile's bits")
    width = property(lambda self: self._branch[4], doc="the bits of all its leaves")

    def _join(self, member):
        return _core.join_path(self._path, member)

    def _resolve(self, key):
        """The path of a member or element, checked: a leaf's path or a branch's."""
        if isinstance(key, bool) or not isinstance(key, (int, str)):
            raise TypeError(f"{self._where()} is reached by a member name or an index, not "
                            f"{type(key).__name__}")
        array, elements, *_ = self._branch
        if isinstance(key, int):
            if not array:
                raise TypeError(f"{self._where()} is a record: reach its members by name")
            index = key + elements if key < 0 else key
            if not 0 <= index < elements:
                raise IndexError(f"index {_int_text(key)} out of range for {self._where()}, "
                                 f"which has {elements} elements")
            return self._join(index)
        _name(key, "member name")
        if array:
            raise TypeError(f"{self._where()} is an array of {elements} elements: reach them "
                            f"by index")
        return self._join(key)

    def _at(self, path):
        """The leaf's value or the Node at a whole path."""
        branch = self._tile._core.branch(path)
        if branch is not None:
            return Node(self._tile, path, branch)
        return self._tile._core.get(path)

    def _set_path(self, path, value):
        if self._tile._core.branch(path) is not None:
            raise TypeError(f"{path} is a record or array, not a leaf: assign to its leaves")
        if isinstance(value, str):
            _name(value, "enumerant name")
        self._tile._core.set(path, value)

    def _member(self, key):
        return self._at(self._resolve(key))

    def _assign(self, key, value):
        self._set_path(self._resolve(key), value)

    def _where(self):
        return self._path or self._tile.record

    def __getattr__(self, name):
        if name.startswith("_"):
            raise AttributeError(name)
        try:
            return self._member(name)
        except (KeyError, TypeError) as e:
            raise AttributeError(e.args[0]) from None

    def __setattr__(self, name, value):
        _set_attribute(self, type(self), name, value)

    def __delattr__(self, name):
        raise AttributeError(f"the fields of a tile are set, not deleted: {name}")

    def __getitem__(self, key):
        return self._member(key)

    def __setitem__(self, key, value):
        self._assign(key, value)

    def __len__(self):
        array, elements, members, *_ = self._branch
        return elements if array else len(members)

    def __iter__(self):
        array, elements, members, *_ = self._branch
        if array:
            return (self._member(i) for i in range(elements))
        return iter(members)

    def __contains__(self, item):
        array, _, members, *_ = self._branch
        if array:
            return any(item == value for value in self)
        if not _valid(item):
            return False
        if item in members:
            return True
        try:
            self._at(self._join(item))
        except KeyError:
            return False
        return True

    def keys(self):
        """A record's member names, or an array's indices, in bit order."""
        array, elements, members, *_ = self._branch
        return list(range(elements)) if array else list(members)

    def items(self):
        """(member name or index, value) in bit order; a value is an int or a Node."""
        return [(key, self._member(key)) for key in self.keys()]

    def values(self):
        """The value of each member or element in bit order: an int or a Node."""
        return [self._member(key) for key in self.keys()]

    def to_dict(self, names=False):
        """{path: value} of every leaf below, in bit order; `names` as for Tile.nonzero()."""
        first, last = self._branch[5:7]
        everything = self._tile.to_dict(names)
        return {path: everything[path] for path in self._tile._paths()[first:last + 1]}

    def __dir__(self):
        array, _, members, *_ = self._branch
        return list(object.__dir__(self)) + ([] if array else list(members))

    def __copy__(self):
        return Node(self._tile, self._path, self._branch)

    def __deepcopy__(self, memo):
        return Node(copy.deepcopy(self._tile, memo), self._path, self._branch)

    def __reduce__(self):
        return Node, (self._tile, self._path)

    def __repr__(self):
        array, elements, members, *_ = self._branch
        what = f"array of {elements}" if array else f"record of {len(members)} members"
        return f"<archspec {self._where()}: {what}, {self.width} bits from bit {self.offset}>"


def _set_attribute(node, owner, name, value):
    """Sets member `name` of a record through attribute syntax; the attributes of the class
    (`bits`, `path`, the methods) are read only, and a member of another name is an
    AttributeError."""
    if name.startswith("_") or hasattr(owner, name):
        raise AttributeError(f"{name} of {owner.__name__.lower()} {node._where()} is read only"
                             f"{'' if name.startswith('_') else f'; a member named {name} is set by item'}")
    try:
        node._assign(name, value)
    except (KeyError, TypeError) as e:
        raise AttributeError(e.args[0]) from None


def _restore_tile(product, tile, data):
    """A pickled tile: its generation, tile name and bytes."""
    return generation(product).tile_from_bytes(tile, data)


def _int_text(value):
    """An int as a complaint shows it: its digits, or for one too long to write out, its size."""
    if value.bit_length() <= 256:
        return str(value)
    return f"{'-' if value < 0 else ''}2**{abs(value).bit_length() - 1}..."


def _valid(text):
    """Whether `text` is a str that can be a name: valid Unicode."""
    if not isinstance(text, str):
        return False
    try:
        text.encode("utf-8")
    except UnicodeEncodeError:
        return False
    return True


def _name(value, what):
    if not isinstance(value, str):
        raise TypeError(f"a {what} is a str, not {type(value).__name__}")
    if not _valid(value):
        shown = ascii(value)
        if len(shown) > 200:
            shown = f"{shown[:200]}... ({len(value)} characters)"
        raise ValueError(f"the {what} {shown} is not valid Unicode text (it holds a lone "
                         f"surrogate)")
    return value


def _text(value, what):
    if isinstance(value, (bytes, bytearray)):
        try:
            return bytes(value).decode("utf-8")
        except UnicodeDecodeError as e:
            raise ValueError(f"the {what} is not UTF-8 text: byte {e.start}") from None
    return _name(value, what)
