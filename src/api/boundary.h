// The C boundary: no C++ exception may reach a caller of the library. Each
// exported function runs its work through one of these wrappers, which turn
// an allocation failure into no_memory and anything unexpected into error.
#pragma once

#include <new>

#include "api/error.h"

namespace orvel {

// Runs `body`, returning its result, or `failure` after recording the
// error of an escaping exception.
template <class R, class F> R guarded(R failure, F &&body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc &) {
    set_error(ov_error_no_memory);
  } catch (...) {
    set_error(ov_error_error);
  }
  return failure;
}

// The same for a status function: the failure value is the recorded code.
template <class F> ov_status_t guarded_status(F &&body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc &) {
    return static_cast<ov_status_t>(set_error(ov_error_no_memory));
  } catch (...) {
    return static_cast<ov_status_t>(set_error(ov_error_error));
  }
}

// The argument check of every exported function: records usage when `bad`
// holds and none otherwise, and returns `bad`.
inline bool check_usage(bool bad) noexcept { return set_error(bad ? 1u : 0u) != 0; }

// The check of the state an object is in, after its arguments passed: a
// subsystem says what stands in the way (none when nothing does). Records a
// code other than none and returns whether there was one.
inline bool refuse(ov_error_t code) noexcept { return code != ov_error_none && set_error(code) != 0; }

// The equilibria and evidence modes a caller may ask for.
inline bool valid_equilibrium(ov_equilibrium_t equilibrium) noexcept {
  return equilibrium == ov_equilibrium_sum || equilibrium == ov_equilibrium_max;
}
inline bool valid_evidence_mode(ov_evidence_mode_t mode) noexcept {
  return mode == ov_mode_normal || mode == ov_mode_fast_retraction;
}

} // namespace orvel
