// Making result records.
#include "facade/record_maker.h"

#include <algorithm>
#include <iterator>

#include "python/turns.h"

namespace search_analytics {

namespace {

PyTypeObject* as_type(const Ref& record_class) {
    return reinterpret_cast<PyTypeObject*>(record_class.get());
}

// Whether making an instance comes down to setting its fields: the class that the module made, as
// it was made, and nothing in the way of setting and reading a field.
bool is_original_record_class(const ModuleState& state, PyObject* class_name, Arg record) {
    if (!is_original(state, class_name) || !PyType_Check(record.get())) {
        return false;
    }
    const auto* type = reinterpret_cast<PyTypeObject*>(record.get());
    return type->tp_new == PyBaseObject_Type.tp_new &&
           type->tp_setattro == PyObject_GenericSetAttr &&
           type->tp_getattro == PyObject_GenericGetAttr && is_record_class_as_made(state, record);
}

// Whether a record is given every field of its class, in the order of the class.
[[maybe_unused]] bool are_all_fields(Arg annotations,
                                     std::initializer_list<RecordMaker::Field> fields) {
    const Ref names = new_list();
    for (const RecordMaker::Field& field : fields) {
        append(names, field.name);
    }
    return equal(list_of(annotations), names);
}

}  // namespace

// Whether the class is still the one that was found original, and as it was then.
bool RecordMaker::knows_class() const {
    return is_original_ && class_version_ != 0 &&
           class_version_ == compat::class_version(as_type(class_)) &&
           code_of_function(constructor_) == constructor_code_.get();
}

// Notes the class that was found original, as it is now.
void RecordMaker::learn_class() {
    class_version_ = 0;
    mould_.clear();
    auto constructor = dict_entry(members_of_class(class_), state_.words.dunder_init);
    if (!constructor) {
        return;
    }
    constructor_ = std::move(*constructor);
    if (PyObject* code = code_of_function(constructor_)) {
        constructor_code_ = Ref::share(code);
        class_version_ = compat::class_version(as_type(class_));
    }
}

void RecordMaker::prepare() {
    take_turns_after(kWorkOfRecord);
    const std::uint64_t version = compat::dict_version(state_.globals());
    if (version != 0 && version == globals_version_ && knows_class()) {
        return;
    }
    Ref now = load_global(state_, class_name_);
    const bool is_same = !class_.empty() && now.get() == class_.get();
    class_ = std::move(now);
    globals_version_ = version;
    if (is_same && knows_class()) {
        return;
    }
    is_original_ = is_original_record_class(state_, class_name_, class_);
    if (is_original_) {
        learn_class();
        no_arguments_ =
            no_arguments_.empty() ? Ref::steal(PyTuple_New(0)) : std::move(no_arguments_);
    }
}

bool RecordMaker::is_still_original() {
    is_original_ =
        is_original_ && (knows_class() || is_original_record_class(state_, class_name_, class_));
    return is_original_;
}

Ref RecordMaker::make_prepared(std::initializer_list<Field> fields) {
    assert(!class_.empty());
    if (!is_still_original()) {
        Keywords arguments(fields.size());
        for (const Field& field : fields) {
            arguments.add(field.name, field.value.object().copy());
        }
        return arguments.call(class_);
    }
    PyTypeObject* type = as_type(class_);
    assert(are_all_fields(attribute(class_, state_.words.dunder_annotations), fields));
    // object.__new__ prepares the compact form of an instance's attributes, which a bare
    // allocation does not.
    Ref record = Ref::steal(type->tp_new(type, no_arguments_.get(), nullptr));
    const Field* next = fields.begin();
    if (mould_.is_empty() ||
        !mould_.fill(record.get(), [&] { return (next++)->value.object().copy(); })) {
        for (const Field& field : fields) {
            set_attribute(record, field.name, field.value.object());
        }
        take_form(record, fields);
    }
    return record;
}

// Notes where a record of the class has its fields, if the class is known again when it comes.
void RecordMaker::take_form(const Ref& record, std::initializer_list<Field> fields) {
    if (class_version_ != 0) {
        std::vector<PyObject*> names;
        std::ranges::transform(fields, std::back_inserter(names), &Field::name);
        mould_.take(record.get(), names);
    }
}

}  // namespace search_analytics
