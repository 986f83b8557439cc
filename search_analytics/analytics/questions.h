// The questions: each is a method of the engine and a function of the module. It is described by a
// table at the end of the file of its name, and so are the records that it answers with. A new
// question is added here.
#pragma once

#include "facade/function.h"
#include "facade/record_description.h"

namespace search_analytics {

extern const FunctionDescription kGetSearchStats;
extern const FunctionDescription kGetSuggestions;
extern const FunctionDescription kGetAvailableEras;
extern const FunctionDescription kGetAvailableNamedUniverses;
extern const FunctionDescription kGetAvailableAggregations;
extern const FunctionDescription kGetSearchPatterns;
extern const FunctionDescription kGetSearchVelocity;
extern const FunctionDescription kGetYieldAnalysis;
extern const FunctionDescription kGetCorrelationPatterns;

// In the order in which the module binds them.
inline constexpr const FunctionDescription* kQuestions[] = {
    &kGetSearchStats,           &kGetSuggestions,
    &kGetAvailableEras,         &kGetAvailableNamedUniverses,
    &kGetAvailableAggregations, &kGetSearchPatterns,
    &kGetSearchVelocity,        &kGetYieldAnalysis,
    &kGetCorrelationPatterns,
};

extern const RecordDescription kWindowStats;
extern const RecordDescription kStatsRow;
extern const RecordDescription kSearchStatsResult;
extern const RecordDescription kSuggestionsResult;
extern const RecordDescription kDepthBucket;
extern const RecordDescription kFamilyYield;
extern const RecordDescription kSearchPatternsResult;
extern const RecordDescription kVelocityWindow;
extern const RecordDescription kSearchVelocityResult;
extern const RecordDescription kYieldAnalysisResult;
extern const RecordDescription kFunctionPairPattern;
extern const RecordDescription kCorrelationPatternsResult;

// In the order in which the module binds them: the parts of an answer before the answer.
inline constexpr const RecordDescription* kRecords[] = {
    &kWindowStats,          &kStatsRow,
    &kSearchStatsResult,    &kSuggestionsResult,
    &kDepthBucket,          &kFamilyYield,
    &kSearchPatternsResult, &kVelocityWindow,
    &kSearchVelocityResult, &kYieldAnalysisResult,
    &kFunctionPairPattern,  &kCorrelationPatternsResult,
};

}  // namespace search_analytics
