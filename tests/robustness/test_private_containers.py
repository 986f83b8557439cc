"""What an operation keeps in dictionaries and lists of its own, changed by what it calls.

Python code reaches these through the collector. Whatever it does to them, the operation gives an
answer or an error, and no crash.
"""

from __future__ import annotations

import pytest
from support.children import run_child

FINDING = """
    import gc, sys
    import kestrune.search_analytics as search_analytics
    from support.operations import WALKS, ending, walk
    from support.parts import engine_over, using

    gc.collect()
    gc.freeze()  # what is found from now on is new
    busy, changed = [], []

    class Name:
        '''A name that changes the dictionaries in which it is a key, once they hold two of it.'''
        def __init__(self, text):
            self.text = text
        def __hash__(self):
            change_found()
            return hash(self.text)
        def __eq__(self, other):
            return self.text == getattr(other, "text", other)
        def __lt__(self, other):
            change_found()
            return self.text < other.text

    def holds_names(value):
        return isinstance(value, Name) or (
            isinstance(value, (tuple, frozenset)) and any(map(holds_names, value))
        )

    def change_found():
        if busy:
            return
        busy.append(1)
        for found in gc.get_objects():
            if wanted(found):
                changed.append(type(found))
                change(found)
        busy.clear()

    def run(name):
        changed.clear()
        engine = engine_over(
            [
                using(Name(f"f{i % 3}"), Name("g"), Name(f"h{i}"), tree_depth=Name(str(i % 2)))
                for i in range(9)
            ]
        )
        answer = ending(lambda: walk(engine, name))
        assert changed, "nothing was found to change"
        return answer
"""

QUESTIONS = ["get_search_patterns", "get_search_stats", "get_correlation_patterns"]

VALUES = """
    [
        99, -1, 10**30, sys.maxsize, -sys.maxsize - 1, None, "1", 1.0, (), ("a", "b"),
        (-1, -2), (10**30, 10**30), (sys.maxsize, sys.maxsize),
    ]
"""


@pytest.mark.parametrize("name", QUESTIONS)
def test_values_of_a_private_dictionary_are_replaced(name):
    run_child(
        FINDING
        + """
    def wanted(found):
        return type(found) is dict and any(map(holds_names, list(found)))

    for value in VALUES:
        def change(found):
            found.update([(key, value) for key in list(found)])

        answer = run(sys.argv[1])
        is_count = sys.argv[1] == "get_search_patterns" and value == 99
        assert answer is RuntimeError or is_count, (value, answer)
    """.replace("VALUES", VALUES.strip()),
        name,
    )


@pytest.mark.parametrize("name", QUESTIONS)
def test_keys_of_a_private_dictionary_are_changed(name):
    run_child(
        FINDING
        + """
    def wanted(found):
        return type(found) is dict and any(map(holds_names, list(found)))

    for change in [
        lambda found: found.clear(),
        lambda found: found.update({object(): 0, 7: 1, None: (1, 2), (1, 2): (1, 1), (): 3}),
        lambda found: found.update({object(): object(), ("a", "b"): "c"}),
        lambda found: [found.pop(key) for key in list(found)[:1]],
    ]:
        run(sys.argv[1])
    """,
        name,
    )


@pytest.mark.parametrize("name", QUESTIONS)
def test_a_private_list_of_entries_is_changed(name):
    """In the middle of making the records of the answer, by the class of one of them."""
    run_child(
        FINDING
        + """
    records = {
        "get_search_patterns": "FamilyYield",
        "get_search_stats": "StatsRow",
        "get_correlation_patterns": "FunctionPairPattern",
    }

    def wanted(found):
        return (
            type(found) is list and found
            and all(isinstance(entry, tuple) and len(entry) == 2 for entry in found)
            and any(map(holds_names, found))
        )

    search = change_found
    change_found = lambda: None

    def changing(*args, **kwargs):
        search()
        return plain(*args, **kwargs)

    plain = getattr(search_analytics, records[sys.argv[1]])
    setattr(search_analytics, records[sys.argv[1]], changing)

    def replace(found, item):
        found[:] = [item] * len(found)

    for change in [
        lambda found: replace(found, 7),
        lambda found: replace(found, ()),
        lambda found: found.extend([None, (1, 2), "ab"]),
        lambda found: found.clear(),
    ]:
        run(sys.argv[1])
    """,
        name,
    )


def test_what_the_module_keeps_for_itself_is_changed():
    """The dictionaries behind the module that the collector shows, but for its namespace."""
    run_child(
        FINDING
        + """
    engine = engine_over([using("f", "g")])

    def ask_all():
        for name in WALKS:
            walk(engine, name)
        ending(search_analytics._get_or_init)

    for change in [
        lambda found: found.update(dict.fromkeys(list(found), 7)),
        lambda found: found.update(dict.fromkeys(list(found), {})),
        lambda found: found.clear(),
    ]:
        ask_all()
        for found in gc.get_referents(search_analytics):
            if type(found) is dict and found is not vars(search_analytics):
                if "open" not in found:  # what is built in is nobody's own
                    changed.append(type(found))
                    change(found)
        ask_all()
    assert changed
    """
    )
