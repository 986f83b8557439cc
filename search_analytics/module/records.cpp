// The result records: one data class per kind of answer.
#include "module/records.h"

#include <span>

#include "host/containers.h"
#include "host/statement.h"

namespace search_analytics {

using namespace host;

namespace {

// The default group key: a pair of two new empty sets.
Ref empty_group_key(const Call&) {
    const Ref functions = Ref::steal(PyFrozenSet_New(nullptr));
    const Ref features = Ref::steal(PyFrozenSet_New(nullptr));
    return tuple_of(functions, features);
}

const FunctionDescription kEmptyGroupKey = {"<lambda>", {}, {}, {}, empty_group_key};

enum class Default { kEmptyText, kZero, kZeroReal, kFalse, kNone, kList, kDict, kGroupKey };

struct FieldDescription {
    const char* name;
    const char* annotation;
    Default default_value;
};

constexpr FieldDescription kWindowStats[] = {
    {"window", "str", Default::kEmptyText},           {"sharpe", "float", Default::kZeroReal},
    {"returns", "float", Default::kZeroReal},         {"turnover", "float", Default::kZeroReal},
    {"drawdown", "float", Default::kZeroReal},        {"correlation", "float", Default::kZeroReal},
    {"yield_rate", "float", Default::kZeroReal},      {"submittable_yield", "dict", Default::kDict},
    {"composite_score", "float", Default::kZeroReal}, {"evaluation_count", "int", Default::kZero},
};

constexpr FieldDescription kStatsRow[] = {
    {"group_key", "Tuple[FrozenSet[str], FrozenSet[str]]", Default::kGroupKey},
    {"windows", "List[WindowStats]", Default::kList},
    {"evaluation_count", "int", Default::kZero},
};

constexpr FieldDescription kSearchStatsResult[] = {
    {"rows", "List[StatsRow]", Default::kList},
    {"aggregate_by", "Optional[object]", Default::kNone},
    {"eval_pool", "Optional[object]", Default::kNone},
    {"filters_applied", "dict", Default::kDict},
    {"total_evaluations", "int", Default::kZero},
    {"total_groups", "int", Default::kZero},
    {"groups_shown", "int", Default::kZero},
};

constexpr FieldDescription kSuggestionsResult[] = {
    {"focus", "List[StatsRow]", Default::kList},
    {"avoid", "List[StatsRow]", Default::kList},
    {"aggregate_by", "Optional[object]", Default::kNone},
    {"scoring_formula", "str", Default::kEmptyText},
};

constexpr FieldDescription kDepthBucket[] = {
    {"depth", "int", Default::kZero},
    {"total", "int", Default::kZero},
    {"passed", "int", Default::kZero},
    {"yield_rate", "float", Default::kZeroReal},
};

constexpr FieldDescription kFamilyYield[] = {
    {"function_family", "str", Default::kEmptyText},
    {"total", "int", Default::kZero},
    {"passed", "int", Default::kZero},
    {"yield_rate", "float", Default::kZeroReal},
};

constexpr FieldDescription kSearchPatternsResult[] = {
    {"depth_distribution", "List[DepthBucket]", Default::kList},
    {"family_yield_rates", "List[FamilyYield]", Default::kList},
    {"total_evaluations", "int", Default::kZero},
    {"total_passed", "int", Default::kZero},
};

constexpr FieldDescription kVelocityWindow[] = {
    {"window_minutes", "int", Default::kZero},
    {"evaluations_per_hour", "float", Default::kZeroReal},
    {"passes_per_hour", "float", Default::kZeroReal},
    {"total_evaluations", "int", Default::kZero},
    {"total_passed", "int", Default::kZero},
};

constexpr FieldDescription kSearchVelocityResult[] = {
    {"windows", "List[VelocityWindow]", Default::kList},
    {"trend", "str", Default::kEmptyText},
};

constexpr FieldDescription kYieldAnalysisResult[] = {
    {"lifetime_yield_rate", "float", Default::kZeroReal},
    {"recent_yield_rate", "float", Default::kZeroReal},
    {"trend", "str", Default::kEmptyText},
    {"recent_window_minutes", "int", Default::kZero},
    {"total_evaluations", "int", Default::kZero},
    {"total_passed", "int", Default::kZero},
    {"diminishing_returns", "bool", Default::kFalse},
    {"useful_evaluations", "int", Default::kZero},
    {"not_useful_evaluations", "int", Default::kZero},
    {"usefulness_unknown_evaluations", "int", Default::kZero},
    {"tamper_candidate_count", "int", Default::kZero},
    {"usefulness_rationale", "List[dict]", Default::kList},
    {"tamper_candidates", "List[dict]", Default::kList},
};

constexpr FieldDescription kFunctionPairPattern[] = {
    {"function_a", "str", Default::kEmptyText},     {"function_b", "str", Default::kEmptyText},
    {"total_cooccurrences", "int", Default::kZero}, {"passed_cooccurrences", "int", Default::kZero},
    {"lift", "float", Default::kZeroReal},
};

constexpr FieldDescription kCorrelationPatternsResult[] = {
    {"pairs", "List[FunctionPairPattern]", Default::kList},
    {"total_passing_evaluations", "int", Default::kZero},
    {"total_evaluations", "int", Default::kZero},
};

struct RecordDescription {
    const char* name;
    const char* documentation;
    std::span<const FieldDescription> fields;
};

constexpr RecordDescription kRecords[] = {
    {"WindowStats", "Stats for a single time window within a group.", kWindowStats},
    {"StatsRow", "Single row in search stats result.", kStatsRow},
    {"SearchStatsResult", "Result from get_search_stats().", kSearchStatsResult},
    {"SuggestionsResult", "Result from get_suggestions().", kSuggestionsResult},
    {"DepthBucket", "Depth distribution bucket.", kDepthBucket},
    {"FamilyYield", "Yield for a function family.", kFamilyYield},
    {"SearchPatternsResult", "Result from get_search_patterns().", kSearchPatternsResult},
    {"VelocityWindow", "Velocity for a time window.", kVelocityWindow},
    {"SearchVelocityResult", "Result from get_search_velocity().", kSearchVelocityResult},
    {"YieldAnalysisResult", "Result from get_yield_analysis().", kYieldAnalysisResult},
    {"FunctionPairPattern", "Co-occurrence pattern for function pairs.", kFunctionPairPattern},
    {"CorrelationPatternsResult", "Result from get_correlation_patterns().",
     kCorrelationPatternsResult},
};

bool is_factory(Default kind) {
    return kind == Default::kList || kind == Default::kDict || kind == Default::kGroupKey;
}

Ref default_object(ModuleState& state, Default kind) {
    switch (kind) {
        case Default::kEmptyText:
            return Ref::share(state.names.empty);
        case Default::kZero:
            return integer(0);
        case Default::kZeroReal:
            return real(0.0);
        case Default::kFalse:
            return boolean(false);
        case Default::kNone:
            return Ref::none();
        case Default::kList:
            return Ref::share(reinterpret_cast<PyObject*>(&PyList_Type));
        case Default::kDict:
            return Ref::share(reinterpret_cast<PyObject*>(&PyDict_Type));
        case Default::kGroupKey:
            return make_method(state, kEmptyGroupKey, "StatsRow");
    }
    raise(PyExc_SystemError, "unknown kind of default");
}

// The data class machinery looks text annotations up in the table of loaded modules. A module
// that is executed without standing there stands there while its records are made.
class StandsAmongLoadedModules {
   public:
    explicit StandsAmongLoadedModules(const ModuleState& state)
        : modules_(attribute(load_global(state, state.names._sys).get(), state.names.modules)),
          name_(load_global(state, state.names.dunder_name)),
          module_(Ref::share(state.module)) {
        if (call_method(modules_.get(), state.names.get, name_.get()).is_none()) {
            check(PyObject_SetItem(modules_.get(), name_.get(), module_.get()));
            added_ = true;
        }
    }
    StandsAmongLoadedModules(const StandsAmongLoadedModules&) = delete;
    StandsAmongLoadedModules& operator=(const StandsAmongLoadedModules&) = delete;
    ~StandsAmongLoadedModules() {
        if (added_ && !thread_is_ending()) {
            Ref error;
            if (PyErr_Occurred() != nullptr) {
                error = take_error();
            }
            if (PyObject_DelItem(modules_.get(), name_.get()) < 0) {
                forget_error();
            }
            if (!error.empty()) {
                restore_error(std::move(error));
            }
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
    for (const RecordDescription& record : kRecords) {
        std::vector<Field> fields;
        for (const FieldDescription& field : record.fields) {
            fields.push_back({field.name, field.annotation,
                              default_object(state, field.default_value),
                              is_factory(field.default_value)});
        }
        const Ref made = make_data_class(state, record.name, record.documentation, fields);
        const Ref name = Ref::steal(PyUnicode_InternFromString(record.name));
        bind_global(state, name.get(), made.get());
    }
}

}  // namespace search_analytics
