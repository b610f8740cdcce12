"""The generated stubs tell the truth: every answer they declare has the declared type in every
generation that answers it, every answer a generation gives is declared, and every tile class of a
generation declares its record's members as the tile has them, leaf, array or record, down to the
last record."""

import ast
import keyword
import pathlib
import sys

import pytest

import archspec

STUB = pathlib.Path(archspec.__file__).with_name("__init__.pyi")


@pytest.fixture(scope="module")
def stub():
    """{class: {member: annotation}}, {class: the names of its methods and properties}, and
    [(product, generation class)] of the stub."""
    classes, methods, products = {}, {}, []
    for node in ast.parse(STUB.read_text()).body:
        if isinstance(node, ast.ClassDef):
            classes[node.name] = {n.target.id: n.annotation for n in node.body
                                  if isinstance(n, ast.AnnAssign)}
            methods[node.name] = {n.name for n in node.body if isinstance(n, ast.FunctionDef)}
        elif isinstance(node, ast.FunctionDef) and node.name == "generation":
            literal = node.args.args[0].annotation
            if isinstance(literal, ast.Subscript):  # Literal["mk43", "MK43"]
                products.append((literal.slice.elts[0].value, node.returns.id))
    return classes, methods, products


def unwrap(annotation):
    """The type inside Final[...]."""
    if isinstance(annotation, ast.Subscript) and ast.unparse(annotation.value) == "Final":
        return annotation.slice
    return annotation


def conforms(value, annotation, classes):
    """Whether `value` is of the stub's type `annotation` (int is no bool, a TypedDict has its
    keys)."""
    text = ast.unparse(annotation)
    if text in ("int", "float", "bool", "str"):
        return type(value).__name__ == text
    if isinstance(annotation, ast.Subscript):
        outer = ast.unparse(annotation.value)
        if outer == "Optional":
            return value is None or conforms(value, annotation.slice, classes)
        if outer == "list":
            return isinstance(value, list) and all(conforms(v, annotation.slice, classes)
                                                   for v in value)
    if text in classes:  # an aggregate, answered as a dictionary
        keys = classes[text]
        return (isinstance(value, dict) and set(value) == set(keys)
                and all(conforms(value[k], keys[k], classes) for k in keys))
    raise AssertionError(f"the stub declares a type this test does not know: {text}")


@pytest.mark.parametrize("family", ["constants", "features", "constraints"])
def test_every_answer_has_its_declared_type(stub, family):
    classes, _, _ = stub
    declared = classes[f"_{family.capitalize()}"]
    for info in archspec.generations():
        if not info.has_answers or info.product is None:
            continue
        answers = getattr(archspec.generation(info.product), family)
        assert set(answers.names()) <= set(declared), f"{info.product}: answers not declared"
        wrong = [(name, value, ast.unparse(unwrap(declared[name])))
                 for name, value in answers
                 if not conforms(value, unwrap(declared[name]), classes)]
        assert wrong == [], f"{info.product} {family}: (name, value, declared type)"


def check_member(value, annotation, stub, path):
    """The member at `path` is what its annotation says: a leaf, an array of it, or a record."""
    classes, methods, _ = stub
    text = ast.unparse(annotation)
    if text in ("_Leaf", "int"):
        assert type(value) is int, path
    elif text.startswith("_Array["):
        assert isinstance(value, archspec.Node) and value.keys() == list(range(len(value))), path
        for index in {0, len(value) - 1}:
            check_member(value[index], annotation.slice, stub, f"{path}[{index}]")
    else:
        assert isinstance(value, archspec.Node), path
        check_record(value, text, methods["Node"] | methods["_Record"], stub, path)


def check_record(node, name, reserved, stub, path):
    """The record's class declares each member that attribute syntax reaches, and no other: the
    others share a name with an attribute of the class (`offset`), start with '_' or are
    keywords."""
    classes, _, _ = stub
    members = classes[name]
    undeclared = {m for m in node.keys() if m not in members}
    assert {m for m in undeclared
            if not (m in reserved or m.startswith("_") or keyword.iskeyword(m))} == set(), path
    assert set(members) <= set(node.keys()), path
    for member, annotation in members.items():
        check_member(getattr(node, member), unwrap(annotation), stub, f"{path}.{member}")


def test_every_tile_class_declares_its_tile(stub):
    _, methods, products = stub
    assert {p for p, _ in products} == {g.product for g in archspec.generations()
                                         if g.product and g.has_answers}
    for product, generation_class in products:
        g = archspec.generation(product)
        for tile in archspec.tiles():
            tile_class = f"{generation_class[:-len('Generation')]}{tile.capitalize()}Tile"
            check_record(g.tile(tile), tile_class, methods["Tile"], stub, f"{product} {tile}")


def test_a_type_without_a_python_type_is_refused_naming_its_row():
    sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "python"))
    import gen_stubs

    assert gen_stubs.python_type("const std::vector<std::vector<uint8_t>>&", {}, "x") == \
        "list[list[int]]"
    with pytest.raises(gen_stubs.StubError,
                       match=r"^features.tbl:7: found C\+\+ type 'std::map<int, int>', expected"):
        gen_stubs.python_type("zu::optional<std::map<int, int>>", {}, "features.tbl:7")
