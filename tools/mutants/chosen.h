// Comes before every source of a build with mutants: which of them is alive in this process.
#pragma once

#include <cstdlib>

inline const int chosen_mutant = [] {
    const char* number = std::getenv("SEARCH_ANALYTICS_MUTANT");
    return number != nullptr ? std::atoi(number) : 0;
}();

inline bool mutant(int number) { return number == chosen_mutant; }
