// Which call fails: knows the calls that have come by, and the one or two that were chosen.
//
// A call is known by the return addresses from the interpreter's function (or operator new) up to
// the first frame that is neither a helper of python/ nor the C++ library's: the call site in our
// code, and the way from there.
#include "controller.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <vector>

#include "python/python.h"
#include "python/turns.h"

// Where the library's code begins and ends, by the linker's own names.
extern "C" {
extern const char __ehdr_start[] __attribute__((visibility("hidden")));
extern const char etext[] __attribute__((visibility("hidden")));
}

namespace faults {

namespace {

constexpr std::size_t kMostFrames = 24;

// Return addresses as offsets into the library, innermost first; 0 where the chain has ended.
using Chain = std::array<std::uint32_t, kMostFrames>;

// What a compiler keeps of frames where it is told to: the caller's frame and the way back there.
struct Frame {
    const Frame* caller;
    const char* return_address;
};

struct Range {
    std::uint32_t begin;
    std::uint32_t end;
};

struct Choice {
    Chain chain = {};
    std::uint32_t remaining = 0;  // how often it still comes by until it fails; 0: not chosen
};

bool is_watching = false;
bool is_busy = false;
bool takes_every_turn = false;
std::vector<Range> helpers;
std::map<Chain, std::uint32_t> met;
std::array<Choice, 2> choices;
std::size_t fired = 0;
PyObject* error_type = nullptr;

// Whether a call is a helper's. It stands before its return address, which may be another
// function's where it is the last that a function does.
bool is_helper(std::uint32_t return_address) {
    const std::uint32_t call = return_address - 1;
    const auto after = std::upper_bound(
        helpers.begin(), helpers.end(), call,
        [](std::uint32_t place, const Range& range) { return place < range.begin; });
    return after != helpers.begin() && call < std::prev(after)->end;
}

Chain chain_from(const Frame* frame) {
    Chain chain = {};
    std::size_t length = 0;
    for (; length < chain.size(); frame = frame->caller) {
        const char* address = frame->return_address;
        if (address < __ehdr_start || address >= etext) {
            break;
        }
        const auto place = static_cast<std::uint32_t>(address - __ehdr_start);
        // A helper that calls itself is one.
        if (length == 0 || chain.at(length - 1) != place) {
            chain.at(length++) = place;
        }
        if (!is_helper(place)) {
            break;
        }
    }
    return chain;
}

bool note(const Chain& chain) {
    ++met[chain];
    if (fired >= choices.size()) {
        return false;
    }
    Choice& choice = choices.at(fired);
    if (choice.remaining == 0 || choice.chain != chain || --choice.remaining != 0) {
        return false;
    }
    ++fired;
    met.clear();
    return true;
}

}  // namespace

bool is_chosen(const void* frame) {
    if (!is_watching || is_busy) {
        return false;
    }
    is_busy = true;
    const bool chosen = note(chain_from(static_cast<const Frame*>(frame)));
    is_busy = false;
    return chosen;
}

void set_error() {
    is_busy = true;
    PyErr_SetNone(error_type);
    is_busy = false;
}

void make_turn_due() {
    const bool is_due = is_watching && takes_every_turn;
    search_analytics::work_since_look = is_due ? search_analytics::kWorkBetweenLooks : 0;
}

}  // namespace faults

// What the driver calls. Offsets are counted from the beginning of the library.
extern "C" {

// Tells the functions that are helpers: pairs of first offset and the one behind the last.
[[gnu::visibility("default")]] void faults_set_helpers(const std::uint32_t* places,
                                                       std::size_t count) {
    faults::is_busy = true;
    faults::helpers.clear();
    for (std::size_t i = 0; i + 1 < count; i += 2) {
        faults::helpers.push_back({places[i], places[i + 1]});
    }
    faults::is_busy = false;
}

// Chooses the call that fails, at its `occurrence`th time from 1 on, and then (`number` 1) the one
// that fails after it.
[[gnu::visibility("default")]] void faults_choose(std::size_t number, const std::uint32_t* chain,
                                                  std::uint32_t occurrence) {
    faults::Choice& choice = faults::choices.at(number);
    std::copy_n(chain, faults::kMostFrames, choice.chain.begin());
    choice.remaining = occurrence;
}

// Begins to watch. With `every_turn`, each step of a loop gives others their turn.
[[gnu::visibility("default")]] void faults_start(PyObject* error_type, int every_turn) {
    faults::met.clear();
    faults::fired = 0;
    faults::error_type = error_type;
    faults::takes_every_turn = every_turn != 0;
    faults::is_watching = true;
    faults::make_turn_due();
}

// Ends watching and forgets the choices. Returns how many of the chosen calls failed.
[[gnu::visibility("default")]] std::size_t faults_stop() {
    faults::is_watching = false;
    faults::make_turn_due();
    faults::choices = {};
    return faults::fired;
}

// How many different calls came by since the start, or since the last one that failed.
[[gnu::visibility("default")]] std::size_t faults_met() { return faults::met.size(); }

// Writes those, each as its chain and how often it came.
[[gnu::visibility("default")]] void faults_read(std::uint32_t* out) {
    for (const auto& [chain, count] : faults::met) {
        out = std::copy(chain.begin(), chain.end(), out);
        *out++ = count;
    }
}
}
