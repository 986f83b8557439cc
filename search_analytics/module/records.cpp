// The result records: a data class for each description.
#include "analytics/questions.h"
#include "facade/statement.h"
#include "module/steps.h"
#include "names/names.h"

namespace search_analytics {

namespace {

// The default of a pair of sets: two new empty ones.
Ref pair_of_sets(const Call&) {
    const Ref first = new_frozenset();
    const Ref second = new_frozenset();
    return tuple_of(first, second);
}

const FunctionDescription kPairOfSets = {"<lambda>", {}, {}, {}, pair_of_sets};

bool is_factory(Default kind) {
    return kind == Default::kList || kind == Default::kDict || kind == Default::kPairOfSets;
}

Ref default_object(ModuleState& state, const char* record, Default kind) {
    switch (kind) {
        case Default::kEmptyText:
            return Ref::share(state.names().empty);
        case Default::kZero:
            return new_int(0);
        case Default::kZeroReal:
            return new_float(0.0);
        case Default::kFalse:
            return new_bool(false);
        case Default::kNone:
            return Ref::none();
        case Default::kList:
            return Ref::share(type_of(new_list()));
        case Default::kDict:
            return Ref::share(type_of(new_dict()));
        case Default::kPairOfSets:
            return make_method(state, kPairOfSets, record);
    }
    raise(PyExc_SystemError, "unknown kind of default");
}

// The data class machinery looks text annotations up in the table of loaded modules. A module
// that is executed without standing there stands there while its records are made.
class StandsAmongLoadedModules {
   public:
    explicit StandsAmongLoadedModules(const ModuleState& state)
        : modules_(attribute(load_global(state, state.names()._sys), state.names().modules)),
          name_(load_global(state, state.names().dunder_name)),
          module_(Ref::share(state.module)) {
        if (call_method(modules_, state.names().get, name_).is_none()) {
            assign_item(modules_, name_, module_);
            added_ = true;
        }
    }
    StandsAmongLoadedModules(const StandsAmongLoadedModules&) = delete;
    StandsAmongLoadedModules& operator=(const StandsAmongLoadedModules&) = delete;
    ~StandsAmongLoadedModules() {
        if (added_ && !thread_is_ending()) {
            without_unwinding([&] {
                const SetAside error;
                try {
                    delete_item(modules_, name_);
                } catch (const ErrorSet&) {
                    forget_error();
                }
            });
        }
    }

   private:
    Ref modules_;
    Ref name_;
    Ref module_;
    bool added_ = false;
};

}  // namespace

void bind_records(ModuleState& state) {
    const StandsAmongLoadedModules standing(state);
    for (const RecordDescription* record : kRecords) {
        std::vector<Field> fields;
        for (const FieldDescription& field : record->fields) {
            if (field.name != nullptr) {
                fields.push_back({field.name, field.annotation,
                                  default_object(state, record->name, field.default_value),
                                  is_factory(field.default_value)});
            }
        }
        const Ref made = make_data_class(state, record->name, record->documentation, fields);
        const Ref name = interned_str(record->name);
        bind_global(state, name, made);
    }
}

}  // namespace search_analytics
