"""The package around the module: a namespace, or one with an `__init__` of its own."""

from __future__ import annotations

import os
from textwrap import dedent

import kestrune.search_analytics as search_analytics
import pytest
from support.children import run_child

SIBLINGS = {
    "agent_onboarding": """
        from types import SimpleNamespace
        _config = {"era": {"signal_pools": [{"name": "main", "is_correlation_threshold": 0.5}]}}
        _auth_manager = SimpleNamespace(get_token=lambda: "token")
    """,
    "auth": """
        class AuthError(Exception):
            pass
    """,
    "search_templates": "_active_handles = []",
    "search_tracking": """
        class SearchTracker:
            def __init__(self, path):
                self.path = path
            def get_evaluation_history(self, **filters):
                return []
    """,
}
RUNTIME = """
    from types import SimpleNamespace
    tracker = SimpleNamespace(get_available_eras=lambda: ["from the runtime"])
    def get_runtime():
        return SimpleNamespace(search_tracker=tracker)
"""
EXTENDING = "from pkgutil import extend_path\n__path__ = extend_path(__path__, __name__)\n"

# What the package's own `__init__` says; None is a namespace package without one.
PACKAGES = {
    "namespace": None,
    "extending": EXTENDING,
    "loading its siblings": EXTENDING + "from kestrune import auth, search_templates\n",
    "loading the module": EXTENDING + "import kestrune.search_analytics\n",
}


@pytest.fixture
def folder(tmp_path):
    """A folder that holds the rest of the package."""
    package = tmp_path / "kestrune"
    package.mkdir()
    for name, source in SIBLINGS.items():
        (package / f"{name}.py").write_text(dedent(source))
    return package


def run_client(folder, source, check=True):
    """Run `source` where the package in `folder` comes before the installed module."""
    module = os.path.dirname(os.path.dirname(search_analytics.__spec__.origin))
    return run_child(
        f"import sys\nsys.path[:0] = [{str(folder.parent)!r}, {module!r}]\n" + dedent(source),
        check=check,
    )


@pytest.mark.parametrize("init", PACKAGES.values(), ids=PACKAGES)
def test_the_module_finds_its_real_siblings(folder, init):
    if init is not None:
        (folder / "__init__.py").write_text(init)
    (folder / "_runtime.py").write_text(dedent(RUNTIME))
    run_client(
        folder,
        """
        import kestrune.search_analytics as search_analytics
        assert search_analytics.get_available_eras() == ["from the runtime"]
        assert "kestrune._runtime" in sys.modules
        assert search_analytics._singleton._pool_configs[0].name == "main"
        """,
    )


@pytest.mark.parametrize("init", PACKAGES.values(), ids=PACKAGES)
def test_a_package_without_runtime_falls_back_to_the_directory(folder, init):
    if init is not None:
        (folder / "__init__.py").write_text(init)
    run_client(
        folder,
        """
        import kestrune.agent_onboarding
        import kestrune.search_analytics as search_analytics
        kestrune.agent_onboarding._config["data_dir"] = "/"
        assert search_analytics.get_search_stats().rows == []
        assert search_analytics._singleton._tracker.path == "/"
        """,
    )


def test_a_runtime_that_the_package_makes_up_on_demand(folder):
    """`from kestrune import _runtime` asks the package before it looks for a submodule."""
    (folder / "__init__.py").write_text(
        EXTENDING
        + dedent(RUNTIME)
        + "def __getattr__(name):\n"
        + "    if name != '_runtime':\n        raise AttributeError(name)\n"
        + "    return SimpleNamespace(get_runtime=get_runtime)\n"
    )
    run_client(
        folder,
        """
        import kestrune.search_analytics as search_analytics
        assert search_analytics.get_available_eras() == ["from the runtime"]
        assert "kestrune._runtime" not in sys.modules
        """,
    )


@pytest.mark.parametrize("name", ["agent_onboarding", "auth"])
def test_a_missing_sibling_is_an_import_error_at_the_first_call(folder, name):
    (folder / f"{name}.py").unlink()
    run_client(
        folder,
        f"""
        import kestrune.search_analytics as search_analytics
        try:
            search_analytics.get_available_aggregations()
        except ModuleNotFoundError as error:
            assert error.name == "kestrune.{name}", error.name
            assert str(error) == "No module named 'kestrune.{name}'", error
        else:
            raise SystemExit("it was not missed")
        """,
    )


def test_an_error_inside_a_sibling_passes_unchanged(folder):
    (folder / "agent_onboarding.py").write_text("raise ZeroDivisionError('mine')\n")
    run_client(
        folder,
        """
        import kestrune.search_analytics as search_analytics
        for _ in range(2):
            try:
                search_analytics.get_available_aggregations()
            except ZeroDivisionError as error:
                assert str(error) == "mine"
            else:
                raise SystemExit("it came through")
        """,
    )


def test_importing_a_sibling_that_imports_the_module(folder):
    """A circle: the onboarding module imports the module that imports it at call time."""
    (folder / "agent_onboarding.py").write_text(
        "import kestrune.search_analytics as analytics\n" + dedent(SIBLINGS["agent_onboarding"])
    )
    (folder / "_runtime.py").write_text(dedent(RUNTIME))
    run_client(
        folder,
        """
        import kestrune.agent_onboarding as onboarding
        assert onboarding.analytics.get_available_eras() == ["from the runtime"]
        """,
    )
