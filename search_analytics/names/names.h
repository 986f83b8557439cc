// Interned names: every attribute, key, keyword and module member that the analysis looks up.
#pragma once

#include "python/interned.h"

// NAME(x) is the text "x" under the field `x`; TEXT(field, text) where the two must differ.
#define SEARCH_ANALYTICS_NAMES(NAME, TEXT)                     \
    /* What the interpreter's own protocols call things */     \
    TEXT(dunder_file, "__file__")                              \
    TEXT(dunder_name, "__name__")                              \
    NAME(find)                                                 \
    NAME(get)                                                  \
    NAME(getattr)                                              \
    NAME(key)                                                  \
    NAME(lower)                                                \
    NAME(strict)                                               \
    NAME(value)                                                \
    NAME(_value_)                                              \
    NAME(values)                                               \
    /* Imports of the module body, and what is used of them */ \
    NAME(Enum)                                                 \
    NAME(FrozenSet)                                            \
    NAME(List)                                                 \
    NAME(Optional)                                             \
    NAME(SimpleNamespace)                                      \
    NAME(Tuple)                                                \
    NAME(_os)                                                  \
    NAME(_sys)                                                 \
    NAME(dataclass)                                            \
    NAME(expanduser)                                           \
    NAME(field)                                                \
    NAME(isdir)                                                \
    NAME(isfile)                                               \
    NAME(isfinite)                                             \
    NAME(math)                                                 \
    NAME(modules)                                              \
    NAME(path)                                                 \
    NAME(time)                                                 \
    /* Vocabulary */                                           \
    NAME(AggregateBy)                                          \
    NAME(EvalPool)                                             \
    NAME(TimeWindow)                                           \
    NAME(ALL)                                                  \
    NAME(ERA)                                                  \
    NAME(LAST_24H)                                             \
    NAME(LAST_WEEK)                                            \
    NAME(LIFETIME)                                             \
    NAME(NONE)                                                 \
    NAME(PASSED)                                               \
    NAME(SUBMITTED)                                            \
    TEXT(auth_required_message, "_AUTH_REQUIRED_MESSAGE")      \
    TEXT(history_limit, "_DEFAULT_ANALYTICS_HISTORY_LIMIT")    \
    TEXT(feature_key_map, "_FEAT_KEY_MAP")                     \
    TEXT(function_key_map, "_FUNC_KEY_MAP")                    \
    /* Result records and their fields */                      \
    NAME(CorrelationPatternsResult)                            \
    NAME(DepthBucket)                                          \
    NAME(FamilyYield)                                          \
    NAME(FunctionPairPattern)                                  \
    NAME(SearchPatternsResult)                                 \
    NAME(SearchStatsResult)                                    \
    NAME(SearchVelocityResult)                                 \
    NAME(StatsRow)                                             \
    NAME(SuggestionsResult)                                    \
    NAME(VelocityWindow)                                       \
    NAME(WindowStats)                                          \
    NAME(YieldAnalysisResult)                                  \
    NAME(avoid)                                                \
    NAME(composite_score)                                      \
    NAME(depth)                                                \
    NAME(depth_distribution)                                   \
    NAME(diminishing_returns)                                  \
    NAME(evaluation_count)                                     \
    NAME(evaluations_per_hour)                                 \
    NAME(family_yield_rates)                                   \
    NAME(filters_applied)                                      \
    NAME(focus)                                                \
    NAME(function_a)                                           \
    NAME(function_b)                                           \
    NAME(group_key)                                            \
    NAME(groups_shown)                                         \
    NAME(lifetime_yield_rate)                                  \
    NAME(lift)                                                 \
    NAME(not_useful_evaluations)                               \
    NAME(pairs)                                                \
    NAME(passed)                                               \
    NAME(passed_cooccurrences)                                 \
    NAME(passes_per_hour)                                      \
    NAME(recent_yield_rate)                                    \
    NAME(rows)                                                 \
    NAME(scoring_formula)                                      \
    NAME(submittable_yield)                                    \
    NAME(tamper_candidate_count)                               \
    NAME(tamper_candidates)                                    \
    NAME(total)                                                \
    NAME(total_cooccurrences)                                  \
    NAME(total_evaluations)                                    \
    NAME(total_groups)                                         \
    NAME(total_passed)                                         \
    NAME(total_passing_evaluations)                            \
    NAME(trend)                                                \
    NAME(useful_evaluations)                                   \
    NAME(usefulness_rationale)                                 \
    NAME(usefulness_unknown_evaluations)                       \
    NAME(window)                                               \
    NAME(window_minutes)                                       \
    NAME(yield_rate)                                           \
    /* Module functions and engine methods */                  \
    NAME(SearchAnalytics)                                      \
    NAME(_active_search_handle)                                \
    NAME(_alias_source_file)                                   \
    NAME(_auth_from_onboarding_or_search)                      \
    NAME(_build_group_key)                                     \
    NAME(_candidate_era_configs)                               \
    NAME(_extract_raw_pools)                                   \
    NAME(_feature_items)                                       \
    NAME(_fetch_evaluations)                                   \
    NAME(_function_items)                                      \
    NAME(_get_attr_or_item)                                    \
    NAME(_get_or_init)                                         \
    NAME(_iter_pool_configs)                                   \
    NAME(_normalize_pool_config)                               \
    NAME(_pnl_mi_tamper_delta)                                 \
    NAME(_require_registered_or_logged_in)                     \
    NAME(_resolve_pool_configs)                                \
    NAME(_resolve_tracker_and_pools)                           \
    NAME(_runtime_from_onboarding)                             \
    NAME(_singleton)                                           \
    NAME(_submission_status_table_and_signal_column)           \
    NAME(_tracker_from_config)                                 \
    NAME(_tracker_table_exists)                                \
    NAME(_unwrap_era_config)                                   \
    NAME(_usage_items)                                         \
    NAME(_usage_value)                                         \
    NAME(_validate_eval_type)                                  \
    NAME(get_available_eras)                                   \
    NAME(get_available_named_universes)                        \
    NAME(get_search_stats)                                     \
    /* Parameters */                                           \
    NAME(active_handle)                                        \
    NAME(agent_value)                                          \
    NAME(aggregate_by)                                         \
    NAME(conn)                                                 \
    NAME(ev)                                                   \
    NAME(eval_pool)                                            \
    NAME(eval_type)                                            \
    NAME(evals)                                                \
    NAME(feature_family)                                       \
    NAME(feature_subfamily)                                    \
    NAME(function_family)                                      \
    NAME(function_subfamily)                                   \
    NAME(index)                                                \
    NAME(item)                                                 \
    NAME(metadata_attr)                                        \
    NAME(metaparameters)                                       \
    NAME(min_sample_size)                                      \
    NAME(name_key)                                             \
    NAME(named_universe)                                       \
    NAME(names_attr)                                           \
    NAME(now)                                                  \
    NAME(onboarding_config)                                    \
    NAME(onboarding_mod)                                       \
    NAME(pnl_column)                                           \
    NAME(pool)                                                 \
    NAME(pool_configs)                                         \
    NAME(raw_pools)                                            \
    NAME(recent_window_minutes)                                \
    NAME(record)                                               \
    NAME(row)                                                  \
    NAME(runtime)                                              \
    NAME(search_tracker)                                       \
    NAME(self)                                                 \
    NAME(server_value)                                         \
    NAME(signal_pool_id)                                       \
    NAME(sort_ascending)                                       \
    NAME(stat_name)                                            \
    NAME(strategy_pool_id)                                     \
    NAME(strategy_signal_pool)                                 \
    NAME(table_name)                                           \
    NAME(time_windows)                                         \
    NAME(top_n)                                                \
    NAME(tw)                                                   \
    NAME(windows)                                              \
    TEXT(default_value, "default")                             \
    /* The rest of the package */                              \
    NAME(AuthError)                                            \
    NAME(SearchTracker)                                        \
    NAME(_active_handles)                                      \
    NAME(_auth)                                                \
    NAME(_auth_manager)                                        \
    NAME(_config)                                              \
    NAME(_era_config)                                          \
    NAME(_runtime)                                             \
    NAME(_stopped)                                             \
    NAME(_tracker)                                             \
    NAME(current_era_config)                                   \
    NAME(data_dir)                                             \
    NAME(ensure_runtime_bootstrapped)                          \
    NAME(era)                                                  \
    NAME(era_config)                                           \
    NAME(get_runtime)                                          \
    NAME(get_token)                                            \
    NAME(is_correlation_threshold)                             \
    NAME(name)                                                 \
    NAME(os_correlation_threshold)                             \
    NAME(search_mod)                                           \
    NAME(signal_pools)                                         \
    NAME(synced_era_config)                                    \
    NAME(to_dict)                                              \
    TEXT(search_templates_module, "kestrune.search_templates") \
    /* Tracker, evaluation records and their items */          \
    NAME(_conn)                                                \
    NAME(_pool_configs)                                        \
    NAME(agent_is_pnl_mi)                                      \
    NAME(agent_server_is_pnl_mi_delta)                         \
    NAME(correlation)                                          \
    NAME(dialect)                                              \
    NAME(drawdown)                                             \
    NAME(era_id)                                               \
    NAME(eval_id)                                              \
    NAME(execute)                                              \
    NAME(failure_detail)                                       \
    NAME(failure_reason)                                       \
    NAME(feature)                                              \
    NAME(feature_metadata)                                     \
    NAME(feature_name)                                         \
    NAME(features)                                             \
    NAME(fetchone)                                             \
    NAME(function)                                             \
    NAME(function_metadata)                                    \
    NAME(function_name)                                        \
    NAME(functions)                                            \
    NAME(get_evaluation_history)                               \
    NAME(is_correlation)                                       \
    NAME(is_pnl_mi)                                            \
    NAME(limit)                                                \
    NAME(passed_only)                                          \
    NAME(passed_thresholds)                                    \
    NAME(per_column_stats)                                     \
    NAME(rejection_reason)                                     \
    NAME(returns)                                              \
    NAME(sharpe)                                               \
    NAME(signal_submission_status)                             \
    NAME(strategy_submission_status)                           \
    NAME(not_useful)                                           \
    NAME(useful)                                               \
    NAME(signal)                                               \
    NAME(status)                                               \
    NAME(strategy)                                             \
    NAME(submitted)                                            \
    NAME(tamper_reasons)                                       \
    NAME(timestamp)                                            \
    NAME(tree_depth)                                           \
    NAME(turnover)                                             \
    NAME(useful_flag)                                          \
    TEXT(empty, "")                                            \
    NAME(postgres)                                             \
    TEXT(postgres_probe, "SELECT to_regclass(?)")              \
    TEXT(sqlite_probe, "SELECT 1 FROM sqlite_master WHERE type='table' AND name=?")

namespace search_analytics {

SEARCH_ANALYTICS_INTERNED(Names, SEARCH_ANALYTICS_NAMES)

}  // namespace search_analytics
