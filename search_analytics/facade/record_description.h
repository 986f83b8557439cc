// The description of a result record: its fields, listed beside the code that fills them.
#pragma once

namespace search_analytics {

// What a field holds that nobody filled; of mutable kinds, a new one in every record.
enum class Default { kEmptyText, kZero, kZeroReal, kFalse, kNone, kList, kDict, kPairOfSets };

// A field as the body of a data class would declare it.
struct FieldDescription {
    const char* name = nullptr;
    const char* annotation = nullptr;
    Default default_value = Default::kNone;
};

// A data class as its table describes it: up to 16 fields, in their order; the rest have no name.
struct RecordDescription {
    const char* name;
    const char* documentation;
    FieldDescription fields[16];
};

}  // namespace search_analytics
