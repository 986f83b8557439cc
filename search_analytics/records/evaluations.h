// Walking a long list of evaluations, each read in one of two ways.
//
// A field owns both ways of reading one thing of a record. It can be peeked at: borrowed, without
// running any code, where its place is known and its value is of an exact type; or asked for, as
// Python does it, whatever that runs. A question is one generic lambda over fields, which is
// compiled for both: it is given a Peeked record when every field could be peeked at, else an Asked
// one, and hands it to its fields in the order in which Python reads them.
#pragma once

#include <concepts>
#include <tuple>
#include <type_traits>

#include "python/iteration.h"
#include "records/read_ahead.h"
#include "records/walk_counts.h"

namespace search_analytics {

// A record all of whose fields have been peeked at. Borrowed: it may be gone once code runs.
struct Peeked {
    PyObject* record;
};

// A record to be asked. Owned by the walk meanwhile.
struct Asked {
    PyObject* record;
};

// What a walk knows of its fields as a whole: the shapes for which all of them know their places,
// so that the class of a record is compared once and not for each attribute.
template <typename... Fields>
class FieldsOfWalk {
   public:
    explicit FieldsOfWalk(Fields&... fields) : fields_(fields...) {}

    ReadAhead read_ahead() const {
        ReadAhead ahead;
        std::apply([&](auto&... field) { (field.read_ahead(ahead), ...); }, fields_);
        return ahead;
    }

    // Whether the fields may peek at the record at once: they know its shape, and no code has run
    // since they were told so.
    bool are_ready_for(PyObject* record) {
        return !is_stale_ && (shape().fits(record) || turn_to(record));
    }

    // Makes the fields ready for the record, if they know its shape. May run code.
    bool make_ready_for(PyObject* record) {
        if (!shape().fits(record) && !turn_to(record)) {
            return false;
        }
        std::apply([](auto&... field) { (refresh(field), ...); }, fields_);
        is_stale_ = false;
        return shape().fits(record);
    }

    // To be called when code has run: it may have changed whatever the fields know but shapes.
    void note_code() { is_stale_ = true; }

    // The shape that the fields have turned to, or one that fits no record.
    const Shape& shape() const { return shapes_[current_]; }

    // Lets every field peek at the record; false where one of them cannot. REQUIRES: the fields are
    // ready for it.
    bool peek(PyObject* record) {
        assert(shape().fits(record));
        return with_view(record, [&](const View& view) {
            return std::apply([&](auto&... field) { return (field.peek(view) && ...); }, fields_);
        });
    }

    // What `visit` says of what a record holds. REQUIRES: the record is of the fields' shape.
    template <typename Visit>
    bool with_view(PyObject* record, Visit&& visit) const {
        assert(shape().fits(record));
        const View view = {record, shape().array(record)};
        return view.values != nullptr ? visit(view) : without_array(record, visit);
    }

    // Takes over the shape of a record that nobody has asked, where asking would run no code.
    void learn_by_peeking(PyObject* record) {
        std::apply([&](auto&... field) { (field.learn_by_peeking(record), ...); }, fields_);
        learn_from(record);
        is_stale_ = false;
    }

    // Takes over the shape of a record that was asked, if now all fields know their places in it.
    void learn_from(PyObject* record) {
        if (!turn_fields_to(record)) {
            current_ = kNone;
        } else if (!turn_to_known(record)) {
            shapes_[next_] = Shape(record);
            current_ = next_;
            next_ = (next_ + 1) % kMostShapes;
        }
    }

   private:
    template <typename Visit>
    [[gnu::noinline]] bool without_array(PyObject* record, Visit& visit) const {
        const Holding held(shape(), record);
        return visit(held.view());
    }

    // The place of no shape: one that fits no record.
    static constexpr std::size_t kNone = kMostShapes;

    // Turns to one of the known shapes that fits the record, if all fields know it still.
    bool turn_to(PyObject* record) {
        if (turn_to_known(record) && turn_fields_to(record)) {
            return true;
        }
        current_ = kNone;
        return false;
    }

    bool turn_to_known(PyObject* record) {
        for (std::size_t i = 0; i < kMostShapes; ++i) {
            if (shapes_[i].fits(record)) {
                current_ = i;
                return true;
            }
        }
        return false;
    }

    bool turn_fields_to(PyObject* record) {
        return std::apply([&](auto&... field) { return (field.turn_to(record) && ...); }, fields_);
    }

    template <typename Field>
    static void refresh(Field& field) {
        if constexpr (requires { field.refresh(); }) {
            field.refresh();
        }
    }

    std::tuple<Fields&...> fields_;
    std::array<Shape, kMostShapes + 1> shapes_;
    std::size_t current_ = kNone;
    std::size_t next_ = 0;
    bool is_stale_ = true;
};

// How many records a walk reads between two times that it notes its work: noting it costs more than
// the least that is read of a record.
inline constexpr std::size_t kRecordsBetweenTurns = 16;

inline bool is_time_for_turns(Py_ssize_t records_done) {
    return static_cast<std::size_t>(records_done) % kRecordsBetweenTurns == 0;
}

// for ev in evals: count(ev). A record is peeked at where `may_peek` allows it and every field can;
// `count` must read what it wants of a Peeked record before it runs any code, and returns true
// where it may have run some (by making a container, say, which may start the collector); one that
// never does returns nothing. One that takes Asked records only has each of them asked. Follows a
// list that changes under it as the `for` statement does.
template <std::predicate MayPeek, typename Count, typename... Fields>
void for_each_evaluation(Arg evals, MayPeek&& may_peek, Count&& count, Fields&... fields) {
    FieldsOfWalk<Fields...> known(fields...);
    const auto has_peeked = [&]([[maybe_unused]] PyObject* record) {
        if constexpr (std::is_invocable_v<Count&, Peeked>) {
            if (may_peek() && known.peek(record)) {
                walk_counts.add_peeked();
                if constexpr (std::is_same_v<std::invoke_result_t<Count&, Peeked>, bool>) {
                    if (count(Peeked{record})) {
                        known.note_code();
                    }
                } else {
                    count(Peeked{record});
                }
                return true;
            }
        }
        return false;
    };
    const auto ask = [&](PyObject* record) {
        walk_counts.add_asked();
        note_work(kWorkOfStep);
        count(Asked{record});
        known.learn_from(record);
        known.note_code();
    };
    const auto visit_after_code = [&](PyObject* record) {
        if (!known.make_ready_for(record) || !has_peeked(record)) {
            ask(record);
        }
    };
    if (!compat::kHasLock || !is_exact_list(evals)) {
        for_each(evals, [&](PyObject* record) {
            known.note_code();
            visit_after_code(record);
        });
        return;
    }
    const Ref list = evals.share();
    const ReadAhead ahead = known.read_ahead();
    for (Py_ssize_t i = 0; i < list_size(list); ++i) {
        ahead.prefetch_from(list.get(), i, known.shape());
        PyObject* record = items_in_place(list.get())[i];
        if (!known.are_ready_for(record)) {
            visit_after_code(Ref::share(record).get());
        } else if (!has_peeked(record)) {
            ask(Ref::share(record).get());
        }
        if (is_time_for_turns(i + 1) && take_turns_after(kRecordsBetweenTurns * kWorkOfRecord)) {
            known.note_code();
        }
    }
}

// The same where nothing but the fields decides whether they are peeked at.
template <typename Count, typename... Fields>
void for_each_evaluation(Arg evals, Count&& count, Fields&... fields) {
    for_each_evaluation(evals, [] { return true; }, count, fields...);
}

// for ev in evals: count(ev) -- without ever asking one, so that nothing can tell in which order
// records are read. Only the first field is peeked at for each; `count` is given what the record
// holds and peeks at the others where it needs them, and returns false where it cannot. Returns
// false where a record would have to be asked. REQUIRES: `evals` is an exact list.
template <typename Count, typename First, typename... Others>
bool peek_each_evaluation(Arg evals, Count&& count, First& first, Others&... others) {
    assert(is_exact_list(evals));
    if (!compat::kHasLock) {
        return list_size(evals) == 0;
    }
    const Ref list = evals.share();
    FieldsOfWalk<First, Others...> known(first, others...);
    ReadAhead ahead;
    first.read_ahead(ahead);
    for (Py_ssize_t i = 0; i < list_size(list); ++i) {
        ahead.prefetch_from(list.get(), i, known.shape());
        PyObject* record = items_in_place(list.get())[i];
        if (!known.are_ready_for(record)) {
            known.learn_by_peeking(Ref::share(record).get());
            if (list_size(list) <= i || items_in_place(list.get())[i] != record ||
                !known.are_ready_for(record)) {
                return false;
            }
        }
        if (!known.with_view(record,
                             [&](const View& view) { return first.peek(view) && count(view); })) {
            return false;
        }
        walk_counts.add_peeked();
        if (is_time_for_turns(i + 1)) {
            take_turns_after(kRecordsBetweenTurns * kWorkOfRecord);
        }
    }
    return true;
}

}  // namespace search_analytics
