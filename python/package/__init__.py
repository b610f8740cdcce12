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
(ValueError, KeyError, IndexError, TypeError, NotAnswered) and never ends the interpreter.
"""

import collections

from . import _core
from ._core import NotAnswered

__all__ = ["Answers", "Generation", "GenerationInfo", "Leaf", "Node", "NotAnswered", "Tile",
           "Where", "generation", "generations", "tiles"]

GenerationInfo = collections.namedtuple(
    "GenerationInfo", "version product code_name records selectable has_answers")
GenerationInfo.__doc__ = """A named chip generation: version ("3" for 3.0.0), product name (what
--arch accepts; None where it cannot be selected), code name, records namespace (None where it has
no tile records), whether it is selectable, and whether it has answers."""

Leaf = collections.namedtuple("Leaf", "path offset width reg_lo reg_hi")
Leaf.__doc__ = """One leaf of a tile: its dotted path, its first (most significant) bit, its width,
and the register words it is patched through (reg_hi only for leaves above 32 bits)."""

Where = collections.namedtuple("Where", "path offset width value_bit register register_bit")
Where.__doc__ = """A bit of a tile: the leaf that holds it (path, offset, width), which bit of the
leaf's value it is, and which bit of which register word."""


def generations():
    """Every named generation, in version order, as GenerationInfo."""
    return [GenerationInfo(version, product or None, code, records or None, selectable, answers)
            for version, product, code, records, selectable, answers in _core.generations()]


def tiles():
    """The tile names: "pcu", "pmu", "switch", "agcu"."""
    return list(_core.tile_names())


_generations = {}


def generation(name):
    """The generation of product name `name` ("mk43", any case). Raises ValueError with the
    library's own words for a name it does not know."""
    if not isinstance(name, str):
        raise TypeError(f"a generation is named by its product name, a str, not "
                        f"{type(name).__name__}")
    core = _core.Generation.find(name)
    found = _generations.get(core.product)
    if found is None:
        found = _generations[core.product] = Generation(core)
    return found


class Generation:
    """A chip generation: its answers (constants, features, constraints) and its tiles."""

    __slots__ = ("_core", "constants", "features", "constraints", "_paths")

    def __init__(self, core):
        self._core = core
        self.constants = Answers(core, "constants")
        self.features = Answers(core, "features")
        self.constraints = Answers(core, "constraints")
        self._paths = {}

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

    def tile_from_sparse(self, tile, listing):
        """A configuration read from a sparse listing: `path = value` lines, values in decimal,
        0x hexadecimal, or enumerant names of this generation; leaves not named are 0. Raises
        ValueError with every faulty line."""
        return Tile(self, _core.Tile.from_sparse(self._core, _name(tile, "tile"),
                                                 _text(listing, "listing")))

    def __repr__(self):
        return f"<archspec generation {self._core.label}>"

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
        self._core = core
        self._family = family
        self._names = None

    def __getattr__(self, name):
        if name.startswith("__"):
            raise AttributeError(name)
        try:
            return self._core.value(self._family, name)
        except KeyError as e:
            raise AttributeError(e.args[0]) from None

    def __getitem__(self, name):
        return self._core.value(self._family, _name(name, "accessor"))

    def __contains__(self, name):
        return isinstance(name, str) and self._core.answers(self._family, name)

    def names(self):
        """The names of the accessors this generation answers, in interface order."""
        if self._names is None:
            self._names = tuple(self._core.names(self._family))
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
    (`t["simd_structIn[0][4].stage_opcode"]`); a leaf reads as an int and takes an int or the
    name of an enumerant of the generation."""

    __slots__ = ("_generation", "_core")

    def __init__(self, generation, core):
        self._generation = generation
        self._core = core

    generation = property(lambda self: self._generation, doc="the Generation")
    tile = property(lambda self: self._core.tile, doc='"pcu", "pmu", "switch" or "agcu"')
    record = property(lambda self: self._core.record, doc='the record, "pcu_config_struct"')
    bits = property(lambda self: self._core.bits, doc="the number of bits of the configuration")

    def __getitem__(self, path):
        return self._core.get(_name(path, "path"))

    def __setitem__(self, path, value):
        self._core.set(_name(path, "path"), value)

    def __getattr__(self, name):
        if name.startswith("__"):
            raise AttributeError(name)
        return Node(self, "")._member(name)

    def __setattr__(self, name, value):
        if name in Tile.__slots__:
            object.__setattr__(self, name, value)
        else:
            Node(self, "")._assign(name, value)

    def __dir__(self):
        return list(Node(self, "").__dir__())

    def to_bits(self):
        """The text form: '0' and '1', most significant first."""
        return self._core.to_bits()

    def to_bytes(self):
        """The packed form: eight bits a byte, the last one padded with zeros."""
        return self._core.to_bytes()

    def to_sparse(self):
        """The sparse listing: a header naming the generation and tile, then `path = 0x...` for
        every leaf that is not 0, in bit order."""
        return self._core.to_sparse()

    def to_tree(self):
        """The library's printed form of the record."""
        return self._core.to_tree()

    def layout(self):
        """Every leaf in bit order, as Leaf(path, offset, width, reg_lo, reg_hi)."""
        return [Leaf(*row) for row in self._core.layout()]

    def where(self, bit):
        """The leaf holding bit `bit` of the configuration, as Where; IndexError outside it."""
        if not isinstance(bit, int) or isinstance(bit, bool):
            raise TypeError(f"a bit position is an int, not {type(bit).__name__}")
        return Where(*self._core.where(bit))

    def nonzero(self):
        """{path: value} of the leaves that are not 0, in bit order."""
        return self._core.values(self._paths(), True)

    def to_dict(self):
        """{path: value} of every leaf, in bit order."""
        return self._core.values(self._paths(), False)

    def diff(self, other):
        """[(path, mine, theirs)] of the leaves whose values differ from `other`'s, which must be
        the same tile of the same generation."""
        if not isinstance(other, Tile):
            raise TypeError(f"a Tile is needed, not {type(other).__name__}")
        return self._core.diff(other._core)

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

    def __repr__(self):
        return f"<archspec {self._core.describe()}: {len(self.nonzero())} leaves not 0>"


class Node:
    """A record or array inside a tile, reached by attribute or index: `t.simd_structIn[0]`."""

    __slots__ = ("_tile", "_path", "_branch")

    def __init__(self, tile, path, branch=None):
        object.__setattr__(self, "_tile", tile)
        object.__setattr__(self, "_path", path)
        object.__setattr__(self, "_branch", branch or tile._core.branch(path))

    def _join(self, member):
        if isinstance(member, int):
            return f"{self._path}[{member}]"
        return f"{self._path}.{member}" if self._path else member

    def _resolve(self, key):
        """The path of a member or element, checked: a leaf's path or a branch's."""
        if isinstance(key, bool) or not isinstance(key, (int, str)):
            raise TypeError(f"{self._where()} is reached by a member name or an index, not "
                            f"{type(key).__name__}")
        array, elements, _ = self._branch
        if isinstance(key, int):
            if not array:
                raise TypeError(f"{self._where()} is a record: reach its members by name")
            if key < 0:
                key += elements
            if not 0 <= key < elements:
                raise IndexError(f"index {key} out of range for {self._where()}, which has "
                                 f"{elements} elements")
        elif array:
            raise TypeError(f"{self._where()} is an array of {elements} elements: reach them "
                            f"by index")
        return self._join(key)

    def _member(self, key):
        path = self._resolve(key)
        branch = self._tile._core.branch(path)
        if branch is not None:
            return Node(self._tile, path, branch)
        try:
            return self._tile._core.get(path)
        except KeyError as e:
            raise AttributeError(e.args[0]) from None

    def _assign(self, key, value):
        path = self._resolve(key)
        if self._tile._core.branch(path) is not None:
            raise TypeError(f"{path} is a record or array, not a leaf: assign to its leaves")
        self._tile._core.set(path, value)

    def _where(self):
        return self._path or self._tile.record

    def __getattr__(self, name):
        if name.startswith("__"):
            raise AttributeError(name)
        return self._member(name)

    def __setattr__(self, name, value):
        self._assign(name, value)

    def __getitem__(self, key):
        return self._member(key)

    def __setitem__(self, key, value):
        self._assign(key, value)

    def __len__(self):
        array, elements, members = self._branch
        return elements if array else len(members)

    def __iter__(self):
        array, elements, members = self._branch
        for key in range(elements) if array else members:
            yield self._member(key)

    def __dir__(self):
        array, _, members = self._branch
        return [] if array else list(members)

    def __repr__(self):
        array, elements, members = self._branch
        what = f"array of {elements}" if array else f"record of {len(members)} members"
        return f"<archspec {self._where()}: {what}>"


def _name(value, what):
    if not isinstance(value, str):
        raise TypeError(f"a {what} is a str, not {type(value).__name__}")
    return value


def _text(value, what):
    if isinstance(value, (bytes, bytearray)):
        try:
            return bytes(value).decode("utf-8")
        except UnicodeDecodeError as e:
            raise ValueError(f"the {what} is not UTF-8 text: byte {e.start}") from None
    return _name(value, what)
