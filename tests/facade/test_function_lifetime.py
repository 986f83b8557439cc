"""Functions are freed with what they hold, also those that nobody gets to see as a rule."""

from __future__ import annotations

from support.children import run_child


def test_what_a_freed_function_held_is_freed():
    run_child(
        """
        import gc, weakref
        import kestrune.search_analytics as search_analytics
        from support.parts import engine_over, using

        class Note:
            def __del__(self):
                gc.collect()

        class Score(float):
            def __neg__(self):
                return Score(-float(self))
            __hash__ = float.__hash__
            def __eq__(self, other):
                if not references:
                    kind = type(search_analytics.get_search_stats)
                    lambdas = [
                        each
                        for each in gc.get_objects()
                        if type(each) is kind and each.__name__ == "<lambda>"
                        and each.__code__.co_varnames == ("row",)
                    ]
                    (key,) = lambdas
                    key.note = Note()
                    references.extend([weakref.ref(key.note), weakref.ref(key)])
                return float(self) == float(other)

        def read(window, name):
            value = object.__getattribute__(window, name)
            return Score(value) if name == "composite_score" else value

        references = []
        search_analytics.WindowStats.__getattribute__ = read
        gc.disable()
        engine_over([using("f"), using("g")]).get_search_stats(min_sample_size=0)
        assert [reference() for reference in references] == [None, None], references
        """
    )
