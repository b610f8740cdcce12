"""What the Python tests share: the size of mk43's PCU and the places of the leaves they name,
which follow from the tables and which tests/facts.json holds (the build target refresh_fixtures
rewrites it)."""

import json
import pathlib

import pytest

FACTS = pathlib.Path(__file__).resolve().parents[1] / "facts.json"


@pytest.fixture(scope="session")
def mk43_pcu():
    """{bits, bytes, leaf_count, leaves: {path: {offset, width}}} of mk43's PCU."""
    return json.loads(FACTS.read_text())["mk43 pcu"]
