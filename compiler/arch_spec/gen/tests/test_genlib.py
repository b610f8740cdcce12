"""The shared part of the generators: the list of generations, and the maintainer's recipes run on
a copy of the project's tables."""

import contextlib
import io
import os
import re
import shutil
import sys
import tempfile
import unittest

GEN = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, GEN)

import gen_constants  # noqa: E402
import gen_field_types  # noqa: E402
import gen_generations  # noqa: E402
import gen_records  # noqa: E402
import genlib  # noqa: E402

TABLES = os.path.join(GEN, "tables")
HEADER = "# version  product  code  records  answers  selectable\n"


class Generations(unittest.TestCase):
    def load(self, rows):
        with tempfile.TemporaryDirectory() as tmp:
            with open(os.path.join(tmp, genlib.GENERATIONS_TABLE), "w") as f:
                f.write(HEADER + rows)
            errors = genlib.Errors()
            generations = genlib.load_generations(tmp, errors)
            return generations, [str(e).split(": error: ")[1] for e in errors]

    def test_what_serves_each_generation_follows_from_the_rows(self):
        generations, errors = self.load("2.0.0 a1 ko ko own yes\n2.1.0 a2 uko ko ko yes\n"
                                        "3.0.0 - vi - - no\n")
        self.assertEqual(errors, [])
        self.assertEqual(generations.columns, ("ko",))
        self.assertEqual([g.prefix for g in generations.with_answers], ["Ko", "Uko"])
        self.assertEqual(generations.namespaces, {"ko": (2, [0, 1])})
        self.assertEqual(generations.by_code("uko").version_name, "v2_1_0")

    def test_refusals(self):
        for rows, fault in (
                ("2.0.0 a1 ko ko own yes\n2.0.0 a2 ry ry own yes\n", "expected rising versions"),
                ("2.0.0 a1 ko ko own yes\n3.0.0 a1 ry ry own yes\n", "product name a1 twice"),
                ("2.0.0 - ko ko own yes\n", "selectable, expected a product name"),
                ("2.0.0 a1 ko ko ry yes\n", "expected a generation with its own column"),
                ("2.0.0 a1 ko ko own yes\n3.0.0 a3 ry ko own yes\n", "one major per records"),
                ("2.0.0 a1 ko ko own\n", "found 5 cells"),
                ("2.x.0 a1 ko ko own yes\n", "expected major.minor.patch")):
            with self.subTest(rows=rows):
                _, errors = self.load(rows)
                self.assertEqual(len(errors), 1, errors)
                self.assertIn(fault, errors[0])


class RewriteWord(unittest.TestCase):
    """--fix's rewriting of one word: the words after it keep their columns where the blanks
    allow, and never touch."""

    def test_columns(self):
        for raw, word, parts, expected in (
                ("record r  ko=6/2      ry=7/2", 2, {0: 10}, "record r  ko=10/2     ry=7/2"),
                ("record r  ko=10/2     ry=7/2", 2, {0: 6}, "record r  ko=6/2      ry=7/2"),
                ("record r  ko=6/2 ry=7/2", 2, {0: 1000, 1: 11}, "record r  ko=1000/11 ry=7/2"),
                ("record r  ko=6/2  ry=7/2", 3, {2: 9}, "record r  ko=6/2  ry=7/2/9"),
                ("enum x_t 8    # kept", 2, {0: 12}, "enum x_t 12   # kept"),
                ("enum x_t 8 mux", 2, {0: 1234}, "enum x_t 1234 mux"),
                ('group  answered=5  "a # b"  c=1', 1, {0: 50}, 'group  answered=50 "a # b"  c=1')):
            with self.subTest(raw=raw):
                self.assertEqual(genlib.rewrite_word(raw, word, parts), expected)


class Recipes(unittest.TestCase):
    """The recipes of docs/maintainers.md, on a copy of the tables."""

    def setUp(self):
        self.dir = tempfile.TemporaryDirectory()
        self.addCleanup(self.dir.cleanup)
        self.tables = os.path.join(self.dir.name, "tables")
        shutil.copytree(TABLES, self.tables)
        self.out = os.path.join(self.dir.name, "out")

    def edit(self, table, old, new):
        path = os.path.join(self.tables, table)
        with open(path) as f:
            text = f.read()
        self.assertIn(old, text)
        with open(path, "w") as f:
            f.write(text.replace(old, new, 1))

    def run_generator(self, module, *options):
        printed, complained = io.StringIO(), io.StringIO()
        with contextlib.redirect_stdout(printed), contextlib.redirect_stderr(complained):
            status = module.main(["--tables", self.tables, "--out", self.out, *options])
        return status, complained.getvalue()

    def changed_lines(self):
        """{table: [(original line, line in the copy)]} for the lines the copy changed, tables of
        as many lines only."""
        changed = {}
        for folder, _, names in os.walk(TABLES):
            for name in names:
                table = os.path.relpath(os.path.join(folder, name), TABLES)
                with open(os.path.join(TABLES, table)) as f, \
                        open(os.path.join(self.tables, table)) as g:
                    old, new = f.read().splitlines(), g.read().splitlines()
                self.assertEqual(len(old), len(new), table)
                pairs = [(a, b) for a, b in zip(old, new) if a != b]
                if pairs:
                    changed[table] = pairs
        return changed

    def generated(self, name):
        with open(os.path.join(self.out, genlib.OUT_SUBDIR, name)) as f:
            return f.read()

    def declared(self, table, record, ns):
        """The record's heading in the copy (its line number and text), and what it declares for
        `ns`: [bits, fields] or [bits, fields, ids]."""
        with open(os.path.join(self.tables, table)) as f:
            for number, line in enumerate(f, start=1):
                if line.split()[:2] == ["record", record]:
                    cell = next(w for w in line.split() if w.startswith(ns + "="))
                    return number, line, [int(n) for n in cell.split("=")[1].split("/")]
        self.fail(f"no record {record} in {table}")

    def test_add_a_field(self):
        table = "records/pcu_datapath.rec"
        line, heading, (bits, fields) = self.declared(table, "PCU_tail_struct", "rye")
        tile_line, _, (tile_bits, tile_fields, tile_ids) = self.declared(
            table, "pcu_config_struct", "rye")
        self.edit(table, heading, heading + "  tail_mode                   -         -         3\n")
        # One run names every declared total that must follow: the record's and the tile's (which
        # holds 4 tails), each with the number the rows give.
        status, complained = self.run_generator(gen_records)
        self.assertEqual(status, 1)
        where = f"pcu_datapath.rec:{line}: error: record PCU_tail_struct, generation rye: "
        tile = f"pcu_datapath.rec:{tile_line}: error: record pcu_config_struct, generation rye: "
        self.assertEqual([line.split(os.sep)[-1] for line in complained.splitlines()], [
            f"{where}found {bits + 3} bits in the fields, expected {bits} as declared",
            f"{where}found {fields + 1} fields, expected {fields} as declared",
            f"{tile}found {tile_bits + 12} bits in the fields, expected {tile_bits} as declared",
            f"{tile}found {tile_ids + 4} unique ids, expected {tile_ids} as declared"])
        # --fix writes those numbers and nothing else; then the generator accepts the tables.
        self.assertEqual(self.run_generator(gen_records, "--fix"), (0, ""))
        self.assertFalse(os.path.exists(self.out))
        self.assertEqual(self.declared(table, "PCU_tail_struct", "rye")[2], [bits + 3, fields + 1])
        self.assertEqual(self.declared(table, "pcu_config_struct", "rye")[2],
                         [tile_bits + 12, tile_fields, tile_ids + 4])
        self.assertEqual(self.run_generator(gen_records), (0, ""))

    def test_one_run_names_every_level_and_fix_follows(self):
        # A leaf of ry that grows by one bit, four records deep in the address unit's tile.
        self.edit("records/agcu_top.rec", "  CB_init_count_value         12       14       14",
                  "  CB_init_count_value         12       15       14")
        status, complained = self.run_generator(gen_records)
        self.assertEqual(status, 1)
        named = re.findall(r"record (\w+), generation (\w+): found (\d+) (bits|unique)",
                           complained)
        # Six CB records in a retain record, eight of those in the ECF, two ECFs in the tile.
        self.assertEqual(named, [
            ("AGU_ECF_VAG_CB_struct", "ry", "15", "bits"),
            ("AGU_ECF_VAG_RETAIN_struct", "ry", "310", "bits"),
            ("AGU_ECF_struct", "ry", "5000", "bits"),
            ("AGU_CSF_ECF_Config_struct", "ry", "16748", "bits"),
            ("AGCU_Config_struct", "ry", "33840", "bits")])
        self.assertEqual(self.run_generator(gen_records, "--fix"), (0, ""))
        self.assertEqual(self.run_generator(gen_records), (0, ""))
        changed = self.changed_lines()["records/agcu_top.rec"]
        self.assertEqual(len(changed), 6)  # the row and five headings
        for old, new in changed:
            self.assertEqual(re.sub(r"\d+", "N", old), re.sub(r"\d+", "N", new))
            # Each word after a total keeps its column.
            self.assertEqual([m.start() for m in re.finditer(r"\S+", new)],
                             [m.start() for m in re.finditer(r"\S+", old)], new)

    def test_fix_restores_every_kind_of_total(self):
        # Wrong totals of each kind that the tables declare, wider and narrower than the right
        # ones: --fix gives back the project's tables byte for byte, columns included.
        for table, old, new in (
                ("records/agcu_top.rec", "ry=16700/3  rye=23012/3", "ry=6700/30  rye=23012/3"),
                ("records/pcu_datapath.rec", "rye=8866/23/2958", "rye=88660/23/958"),
                ("records/agu.rec", "AGU_Alu_struct  ko=83/9 ", "AGU_Alu_struct  ko=8/9  "),
                ("constants/enums_pcu.tbl", "enum hdr_src_t 8 mux", "enum hdr_src_t 9 mux"),
                ("constants/features.tbl", "rows=114  bool=102 ", "rows=14   bool=1020"),
                ("constants/constraints.tbl", "pure=3", "pure=30"),
                ("constants/containers.tbl", "none=3", "none=333"),
                ("constants/params.tbl", "group  answered=42  Chip", "group  answered=4   Chip"),
                ("constants/params.tbl", "KoConstants   overrides=3681  ",
                 "KoConstants   overrides=36810 "),
                ("constants/params.tbl", "total=702  parameters=87  ",
                 "total=72   parameters=8   "),
                ("constants/params.tbl", "uint64_t=3  int=1  bool", "uint64_t=3  int=10 bool")):
            self.edit(table, old, new)
        for module in (gen_records, gen_constants):
            status, complained = self.run_generator(module)
            self.assertEqual(status, 1)
            self.assertTrue(all(" as declared" in line for line in complained.splitlines()),
                            complained)
            self.assertEqual(self.run_generator(module, "--fix"), (0, ""))
        self.assertEqual(self.changed_lines(), {})

    def add_generation(self, after, row, name):
        """Adds the generation `row` to the table behind the row `after`, with an empty block of
        parameters and a constants class of its own, `name` being its code name."""
        self.edit(genlib.GENERATIONS_TABLE, after, after + row)
        self.edit("constants/params.tbl", "\nuko\n", f"\n{name}\n\nuko\n")
        self.edit("constants/params.tbl", "class       UkoConstants",
                  f"class       {genlib.class_prefix(name)}Constants  overrides=0  parameters=0"
                  "  enumerants=0\nclass       UkoConstants")

    def test_add_a_generation_that_answers_as_another(self):
        self.add_generation("2.1.0      mk42     uko   ko       ko       yes\n",
                            "2.2.0      mk45     uko2  ko       ko       yes\n", "uko2")
        for module in (gen_generations, gen_records, gen_constants):
            self.assertEqual(self.run_generator(module), (0, ""), module.__name__)
        self.assertIn("class Uko2Constants : public KoConstants {",
                      self.generated("ArchGenerations.h"))
        self.assertIn('{2, 2, 0}, "mk45", "uko2", "ko", "ko", true,',
                      self.generated("GenerationTable.cpp"))
        self.assertIn("static constexpr int kMinors[] = {0, 1, 2};", self.generated("KoConfig.h"))
        self.assertIn("static const ArchVersion v2_2_0;", self.generated("ArchVersionNames.inc"))

    def namespace_part(self, ns):
        """The records of one namespace in its generated header, its generation's name made
        neutral, so that two namespaces' records compare."""
        text = self.generated(f"{ns[:1].upper()}{ns[1:]}Config.h")
        body = text.split(f"namespace zu::spec::{ns} {{\n", 1)[1].split("\n}  // namespace", 1)[0]
        return body.replace(f"{ns[:1].upper()}{ns[1:]}Generation>", "Generation>")

    def field_types_of(self, ns):
        """The typed leaves of one namespace in FieldTypes.cpp: (tile, template, type) lines."""
        text = self.generated("FieldTypes.cpp")
        return re.findall(rf'^    {{"{ns}", (.*)\n(.*)$', text, re.M)

    def declare_for(self, table, record, ns, like):
        """Gives namespace `ns` a block declaration of `record` of its own, a copy of `like`'s: a
        total in the heading and a cell in each row that has a cell per namespace. Returns the
        declared numbers."""
        path = os.path.join(self.tables, table)
        with open(path) as f:
            lines = f.read().splitlines(keepends=True)
        start = next(i for i, line in enumerate(lines) if line.split()[:2] == ["record", record])
        decls = [word.split("=") for word in lines[start].split()[2:]]
        column = [name for name, _ in decls].index(like)
        lines[start] = f"{lines[start].rstrip()}  {ns}={decls[column][1]}\n"
        for i in range(start + 1, len(lines)):
            if not lines[i].startswith(" "):
                break
            cells = lines[i].split()[1:]
            if len(cells) == len(decls):
                lines[i] = f"{lines[i].rstrip()}  {cells[column]}\n"
        with open(path, "w") as f:
            f.writelines(lines)
        return [int(n) for n in decls[column][1].split("/")]

    def test_add_a_generation_with_records_of_its_own(self):
        # A new major that answers as ry, and whose records namespace starts as a copy of ry's.
        self.add_generation("6.0.0      -        oz    -        -        no\n",
                            "7.0.0      mk45     ry2   ry2      ry       yes\n", "ry2")
        self.edit("records/tiles.rec", "\ntile pcu", "\nnamespace ry2 like ry\n\ntile pcu")
        generators = (gen_generations, gen_records, gen_constants, gen_field_types)
        for module in generators:
            self.assertEqual(self.run_generator(module), (0, ""), module.__name__)
        self.assertIn('{7, 0, 0}, "mk45", "ry2", "ry2", "ry", true,',
                      self.generated("GenerationTable.cpp"))
        self.assertIn("static constexpr int kMajor = 7;", self.generated("Ry2Config.h"))
        self.assertEqual(self.namespace_part("ry2"), self.namespace_part("ry"))
        self.assertIn('{"ry2", "pcu_config_struct", ', self.generated("RecordCatalog.cpp"))
        # The field types of ry's records hold for the copies, those given as ry=TYPE included.
        self.assertEqual(self.field_types_of("ry2"), self.field_types_of("ry"))
        self.assertTrue(any("UDCIncXbarMuxsel" in t[0] for t in self.field_types_of("ry2")))
        # ry's classes, but for the rows they cite, which the edits below move.
        ry_records = re.sub(r"\.rec:\d+", ".rec", self.generated("RyConfig.h"))

        # A field of ry2's own in the middle of a nested record, declared for ry2 in its block: one
        # run names its totals and those of the tile that holds it, which still copies ry's block.
        interface, fields = self.declare_for("records/pcu_datapath.rec", "PCU_interface_struct",
                                             "ry2", "ry")
        self.edit("records/pcu_datapath.rec", "  CtlOutXbar_sel                  18x7\n",
                  "  CtlOutXbar_sel                  18x7\n"
                  "  drain_hold_cycles               -         -         -         4\n")
        status, complained = self.run_generator(gen_records)
        self.assertEqual(status, 1)
        self.assertIn(f"record PCU_interface_struct, generation ry2: found {interface + 4} bits in "
                      f"the fields, expected {interface} as declared\n", complained)
        pcu_line, _, (pcu, pcu_fields, ids) = self.declared("records/pcu_datapath.rec",
                                                            "pcu_config_struct", "ry")
        self.assertIn(f"pcu_datapath.rec:{pcu_line}: error: record pcu_config_struct, generation "
                      f"ry2: found {pcu + 4} bits in the fields, expected {pcu} as declared (a "
                      "copy of ry's block: declare it for ry2 in its heading)\n", complained)
        self.assertNotIn("generation ry:", complained)
        # --fix leaves a copy's totals, which are ry's, and says so.
        self.assertEqual(self.run_generator(gen_records, "--fix")[0], 1)
        self.assertEqual(self.declared("records/pcu_datapath.rec", "pcu_config_struct", "ry")[2],
                         [pcu, pcu_fields, ids])
        # Declared for ry2, the tile's totals are its own, and --fix corrects them with the rest.
        self.declare_for("records/pcu_datapath.rec", "pcu_config_struct", "ry2", "ry")
        self.assertEqual(self.run_generator(gen_records, "--fix"), (0, ""))
        self.assertEqual(self.declared("records/pcu_datapath.rec", "pcu_config_struct", "ry2")[2],
                         [pcu + 4, pcu_fields, ids + 1])
        for module in generators:
            self.assertEqual(self.run_generator(module), (0, ""), module.__name__)
        self.assertIn(f"static constexpr size_t kSizeInBits = {pcu + 4};",
                      self.generated("Ry2Config.h"))
        self.assertEqual(re.sub(r"\.rec:\d+", ".rec", self.generated("RyConfig.h")), ry_records)

    def test_namespace_likeness_refusals(self):
        for line, fault in (
                ("namespace ry like rye", "found rye after ry in the generations"),
                ("namespace ry2 like ry", "found records namespace 'ry2', expected one of ko"),
                ("namespace ry like", "expected 'namespace NS like OTHER'"),
                ("namespace rye like ry\nnamespace rye like ko", "found a second likeness")):
            with self.subTest(line=line):
                shutil.copy(os.path.join(TABLES, "records/tiles.rec"),
                            os.path.join(self.tables, "records/tiles.rec"))
                self.edit("records/tiles.rec", "\ntile pcu", f"\n{line}\n\ntile pcu")
                status, complained = self.run_generator(gen_records)
                self.assertEqual(status, 1)
                self.assertIn(fault, complained)


if __name__ == "__main__":
    unittest.main()
