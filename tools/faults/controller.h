// Which call fails: asked by every wrapper before it hands a call on.
#pragma once

namespace faults {

// Whether the call that has come into a wrapper is the one that was chosen to fail. `frame` is the
// wrapper's own frame: from there the chain of callers is walked.
bool is_chosen(const void* frame);

// Sets the error with which chosen calls fail.
void set_error();

// Lets the next step of any loop give others their turn, where each is to do so.
void make_turn_due();

}  // namespace faults
