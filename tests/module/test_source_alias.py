"""`__file__` names the adjacent source text when there is one, and stays as it is otherwise."""

from __future__ import annotations

import os
import sys
from types import SimpleNamespace

import kestrune.search_analytics as search_analytics
import pytest

TAGGED = "search_analytics.cpython-311-x86_64-linux-gnu.so"


@pytest.fixture
def aliased(monkeypatch, tmp_path):
    """Run the step with `__file__` at `tmp_path / name`; return what `__file__` is afterwards."""

    def run(name):
        path = str(tmp_path / name) if isinstance(name, str) and name else name
        monkeypatch.setattr(search_analytics, "__file__", path)
        assert search_analytics._alias_source_file() is None
        return search_analytics.__file__

    return run


@pytest.fixture
def source_text(tmp_path):
    """A source text with the stem of the extension, in its folder."""
    path = tmp_path / "search_analytics.cpp"
    path.write_text("// text\n")
    return str(path)


def test_names_the_adjacent_source_text(aliased, source_text):
    assert aliased(TAGGED) == source_text


def test_keeps_the_path_without_an_adjacent_source_text(aliased, tmp_path):
    assert aliased(TAGGED) == str(tmp_path / TAGGED)


def test_keeps_the_path_when_the_adjacent_name_is_a_folder(aliased, tmp_path):
    (tmp_path / "search_analytics.cpp").mkdir()
    assert aliased(TAGGED) == str(tmp_path / TAGGED)


def test_keeps_a_path_that_already_names_source_text(aliased, source_text):
    assert aliased("search_analytics.cpp") == source_text


def test_keeps_a_path_with_the_suffix_anywhere_in_it(aliased, tmp_path):
    folder = tmp_path / "old.cpp.d"
    folder.mkdir()
    (folder / "search_analytics.cpp").write_text("// text\n")
    assert aliased(f"old.cpp.d/{TAGGED}") == str(folder / TAGGED)


def test_keeps_a_path_without_a_platform_tag(aliased, source_text, tmp_path):
    assert aliased("search_analytics.so") == str(tmp_path / "search_analytics.so")


def test_cuts_at_the_first_platform_tag(monkeypatch, aliased, tmp_path):
    asked = []
    monkeypatch.setattr(
        search_analytics,
        "_os",
        SimpleNamespace(path=SimpleNamespace(isfile=lambda path: asked.append(path) or True)),
    )
    assert aliased("a.cpython-1/b.cpython-2.so") == str(tmp_path / "a.cpp")
    assert asked == [str(tmp_path / "a.cpp")]


@pytest.mark.parametrize("nothing", [None, ""], ids=["None", "empty"])
def test_does_nothing_for_an_empty_path(aliased, nothing):
    assert aliased(nothing) == nothing


def test_does_nothing_without_a_path(monkeypatch):
    monkeypatch.delattr(search_analytics, "__file__", raising=False)
    assert search_analytics._alias_source_file() is None
    assert not hasattr(search_analytics, "__file__")


def test_a_path_of_bytes_fails_as_the_substring_test_does(monkeypatch):
    with pytest.raises(TypeError) as expected:
        ".cpp" in b"x"  # noqa: B015
    monkeypatch.setattr(search_analytics, "__file__", b"x.cpython-1.so")
    with pytest.raises(TypeError) as caught:
        search_analytics._alias_source_file()
    assert str(caught.value) == str(expected.value)


def test_the_loaded_module_of_that_name_is_told_as_well(monkeypatch, aliased, source_text):
    standing_in = SimpleNamespace()
    monkeypatch.setitem(sys.modules, search_analytics.__name__, standing_in)
    assert aliased(TAGGED) == source_text
    assert standing_in.__file__ == source_text


@pytest.mark.parametrize("loaded", ["absent", "None"])
def test_a_module_that_is_not_loaded_still_gets_its_path(monkeypatch, aliased, source_text, loaded):
    if loaded == "absent":
        monkeypatch.delitem(sys.modules, search_analytics.__name__)
    else:
        monkeypatch.setitem(sys.modules, search_analytics.__name__, None)
    assert aliased(TAGGED) == source_text


def test_the_step_has_a_documentation_of_its_own():
    assert "source" in search_analytics._alias_source_file.__doc__


def test_importing_runs_the_step(tmp_path):
    """A copy of the extension beside a source text reports the text as its file."""
    from support.children import run_child

    extension = search_analytics.__spec__.origin
    name = os.path.basename(extension)
    assert ".cpython-" in name
    (tmp_path / "search_analytics.cpp").write_text("// text\n")
    os.symlink(extension, tmp_path / name)
    run_child(
        """
        import importlib.util, sys
        folder, name = sys.argv[1:]
        spec = importlib.util.spec_from_file_location(
            "kestrune.search_analytics", folder + "/" + name)
        module = importlib.util.module_from_spec(spec)
        spec.loader.exec_module(module)
        assert module.__file__ == folder + "/search_analytics.cpp", module.__file__
        assert spec.origin == folder + "/" + name
        """,
        str(tmp_path),
        name,
    )


def test_the_installed_module_keeps_its_own_path():
    """No source text lies beside the installed extension."""
    folder = os.path.dirname(search_analytics.__spec__.origin)
    if os.path.isfile(os.path.join(folder, "search_analytics.cpp")):
        assert search_analytics.__file__ == os.path.join(folder, "search_analytics.cpp")
    else:
        assert search_analytics.__file__ == search_analytics.__spec__.origin


def test_a_path_of_a_text_subclass_is_asked_in_its_own_way(monkeypatch, source_text):
    asked = []

    class Path(str):
        def __contains__(self, part):
            asked.append(("in", part))
            return False

        def find(self, part):
            asked.append(("find", part))
            return 3

        def __getitem__(self, piece):
            asked.append(("cut", piece))
            return source_text.removesuffix(".cpp")

    monkeypatch.setattr(search_analytics, "__file__", Path("anything"))
    search_analytics._alias_source_file()
    assert search_analytics.__file__ == source_text
    assert asked == [("in", ".cpp"), ("find", ".cpython-"), ("cut", slice(None, 3, None))]


def test_a_path_without_a_platform_tag_is_not_cut(aliased, tmp_path):
    (tmp_path / "module.s.cpp").write_text("// text\n")
    assert aliased("module.so") == str(tmp_path / "module.so")
