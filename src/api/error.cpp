// The error table, the thread's error slot and the public error calls.
#include "api/error.h"

namespace orvel {
namespace {

// One row per error code, index equal to code. The texts are part of the
// interface and are kept character for character.
constexpr ErrorRecord error_table[error_count] = {
    {0, "none", "The most recent call to a Orvel API function was successful (or no function has been called)."},
    {1, "usage",
     "An API function was called with an invalid argument (e.g., a NULL object was passed to a function that "
     "expects a non-NULL argument)."},
    {2, "io",
     "A fatal error occurred during an input or output operation.  This could be a failure to open a specified "
     "file, a failure to create a file due to wrong permissions, a failure during a write operation due to the "
     "disk running full, etc."},
    {3, "no_memory", "Orvel ran out of memory while carrying out some operation."},
    {4, "cg_influence_diagrams_not_supported", "Influence diagrams with CG nodes are not supported."},
    {5, "twice", "An attempt has been made to assign a name that is already in use to a node or a class."},
    {6, "invalid_name", "Names used for classes, nodes, and attributes must have the same form as a C identifier."},
    {7, "cyclic_network", "A cycle has been detected in the network of the domain"},
    {8, "size_too_large", "The true size is too large to represent within type `size_t'."},
    {9, "fast_retraction", "Logical relations in the distribution has caused a fast-retraction propagation to fail"},
    {10, "rounding", "Possibly significant floating-point rounding error detected."},
    {11, "invalid_password", "The supplied password does not match the password stored in the Orvel KB file."},
    {12, "bad_file",
     "An attempt to load a domain failed due to a bad file.  The file was probably not a knowledge base file.  "
     "Knowledge base files have a header with a magic number, i.e., a two-byte code that identifies the file as a "
     "knowledge base file.  This error code will be given if the magic number was incorrect or not present."},
    {13, "bad_version",
     "Orvel Knowledge Base files have a header that includes a version number identifying the version of the "
     "Orvel API used to create the file.  This error code is given if an attempt is made to a knowledge base "
     "incompatible with the current version of the Orvel API.  To recover from this error, the domain must be "
     "recompiled with the current version of the Orvel system."},
    {14, "format",
     "Some data item had a bad format.  This could happen while reading a domain if the knowledge base file has "
     "been corrupted or otherwise has an invalid format."},
    {15, "not_compiled", "The operation requires a compiled domain."},
    {16, "invalid_probability_potential",
     "A negative value or a zero-sum distribution has been found in a probability potential."},
    {17, "zero_sum", "A zero sum was found in a conditional probability potential."},
    {18, "negative_probability",
     "A negative probability was found in a conditional probability or a chain graph potential."},
    {19, "chain_graph", "Chain graph: Zero probability found in parent potential."},
    {20, "enumeration",
     "The specified elimination sequence is invalid.  Possible causes: it contains a utility node, a node appears "
     "twice, the nodes are `out-of-order', or the sequence is incomplete."},
    {21, "decision_order",
     "The set of decisions in an influence diagram must be linearly ordered (i.e., there must exist a path "
     "containing all decisions)."},
    {22, "no_equilibrium", "The junction tree potentials are inconsistent."},
    {23, "inconsistency_or_underflow",
     "Propagation of inconsistent evidence has been attempted, or underflow has occurred"},
    {24, "overflow", "Overflow occurred during propagation"},
    {25, "low_density",
     "The density of the evidence presented is too low to represent as a positive floating-point number"},
    {26, "zero_variance", "Zero variance detected during a conditioning operation."},
    {27, "cg_evidence_incorporated",
     "This operation is not supported when the junction tree potentials have CG evidence incorporated."},
    {28, "normalization", "Normalization with a zero normalization constant has been attempted."},
    {29, "compressed", "The operation is not supported on compressed domains."},
    {30, "table_too_large", "The compressed version of some non-clique table is too large"},
    {31, "case_state_too_large", "A case state index larger than 32767 has been specified."},
    {32, "no_value", "No value has been specified (or the specified value has become invalid)."},
    {33, "parse",
     "An error occurred during parsing.  If a parse error handling function was specified, it will have been "
     "called with a description of the error and its location in the source."},
    {34, "locale", "The Orvel API could not establish the C locale!"},
    {35, "invalid_expression", "The supplied expression is invalid (e.g., wrong type)."},
    {36, "syntax", "A syntax error has been detected while parsing an expression."},
    {37, "division_by_zero", "Division by zero has been attempted."},
    {38, "inappropriate_arguments",
     "Illegal arguments have been given to a standard mathematical or probability/density function."},
    {39, "computation_failed", "The probability/density function could not be computed."},
    {40, "insufficient_state_range",
     "The state range of the node is insufficient for the chosen standard distribution."},
    {41, "invalid_state_values", "The state values of a numeric node do not form an increasing sequence."},
    {42, "cyclic_instance_hierarchy", "Cyclic hierarchies of class instances are not allowed."},
    {43, "illegal_binding",
     "An actual input node is incompatible with the formal input node, or there are multiple occurrences of the "
     "same parent."},
    {44, "invalid_license", "The license data is invalid (or could not be found)"},
    {45, "expired_license", "The time limited evaluation license has expired"},
    {46, "demo", "The limits of this software have been exceeded (too many states or too many cases)."},
    {47, "error",
     "This is an \"impossible\" error.  It should never occur.  It might be caused by an error in the Orvel "
     "API."},
};

// The current error of this thread: a pointer into the constant table, null
// until the thread records or reads its first error. Holding a pointer into
// constant data means a thread's end leaks nothing.
thread_local const ErrorRecord *error_slot = nullptr;

} // namespace

unsigned set_error(unsigned code) noexcept {
  error_slot = &error_table[code];
  return code;
}

} // namespace orvel

using orvel::error_count;

extern "C" {

ov_error_t ov_error_code(void) {
  if (orvel::error_slot == nullptr) orvel::error_slot = &orvel::error_table[0];
  return static_cast<ov_error_t>(orvel::error_slot->code);
}

ov_string_t ov_error_name(ov_error_t code) {
  int value = static_cast<int>(code);
  if (value < 0 || value >= error_count) return "no_such_error";
  return orvel::error_table[value].name;
}

ov_string_t ov_error_description(ov_error_t code) {
  int value = static_cast<int>(code);
  if (value < 0 || value >= error_count) return "No such error.";
  return orvel::error_table[value].description;
}

} // extern "C"
