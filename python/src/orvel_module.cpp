// The compiled part of the Python package: domains and nodes over the C
// interface, and the batch of queries that runs on threads without the GIL.
// Everything that needs pandas lives in the pure-Python package around it.

#include <orvel.h>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace py = pybind11;

namespace {

// A failure of the library, carried to Python as orvel.Error.
struct LibraryError : std::runtime_error {
  ov_error_t code;
  std::string context;
  long line = -1;
  std::vector<std::string> messages;
  std::string node, state;
  LibraryError(ov_error_t c, std::string what)
      : std::runtime_error((what.empty() ? "" : what + ": ") + ov_error_name(c) + ": " + ov_error_description(c)),
        code(c), context(std::move(what)) {}
};

PyObject *error_type = nullptr;

[[noreturn]] void fail(ov_error_t code, std::string what) { throw LibraryError(code, std::move(what)); }

void check(ov_status_t status, const std::string &what) {
  if (status != ov_error_none) fail(static_cast<ov_error_t>(status), what);
}

// The code a failing query left in the error slot; usage when it left none.
ov_error_t last_code() {
  ov_error_t code = ov_error_code();
  return code == ov_error_none ? ov_error_usage : code;
}

// Owns one domain; nodes and domain objects of Python share it, so that the
// domain lives as long as anything that can reach into it.
struct Handle {
  ov_domain_t domain = nullptr;
  explicit Handle(ov_domain_t d) : domain(d) {}
  Handle(const Handle &) = delete;
  Handle &operator=(const Handle &) = delete;
  ~Handle() {
    if (domain != nullptr) ov_domain_delete(domain);
  }
};
using HandlePtr = std::shared_ptr<Handle>;

struct Node {
  HandlePtr owner;
  ov_node_t node;
};

struct Domain {
  HandlePtr h;
  Domain() : h(std::make_shared<Handle>(ov_new_domain())) {
    if (h->domain == nullptr) fail(last_code(), "creating a domain");
  }
  explicit Domain(ov_domain_t d) : h(std::make_shared<Handle>(d)) {}
  ov_domain_t d() const { return h->domain; }
};

std::string text(ov_string_t s) { return s == nullptr ? std::string() : std::string(s); }

ov_node_t find_node(const Domain &dom, const std::string &name) {
  ov_node_t n = ov_domain_get_node_by_name(dom.d(), name.c_str());
  if (n == nullptr) {
    LibraryError e(ov_error_usage, "no node named '" + name + "'");
    e.node = name;
    throw e;
  }
  return n;
}

ov_node_t resolve(const Domain &dom, const py::handle &key) {
  if (py::isinstance<Node>(key)) {
    const Node &n = key.cast<const Node &>();
    if (n.owner != dom.h) fail(ov_error_usage, "node of another domain");
    return n.node;
  }
  return find_node(dom, key.cast<std::string>());
}

std::vector<ov_node_t> node_list(ov_domain_t d) {
  std::vector<ov_node_t> nodes;
  for (ov_node_t n = ov_domain_get_first_node(d); n != nullptr; n = ov_node_get_next(n)) nodes.push_back(n);
  return nodes;
}

template <typename T> std::vector<T> null_terminated(T *list) {
  std::vector<T> out;
  for (T *p = list; p != nullptr && *p != nullptr; ++p) out.push_back(*p);
  return out;
}

std::vector<std::string> state_labels(ov_node_t n) {
  std::vector<std::string> labels;
  const ov_count_t count = ov_node_get_number_of_states(n);
  for (ov_count_t i = 0; i < count; ++i) labels.push_back(text(ov_node_get_state_label(n, i)));
  return labels;
}

ov_index_t state_index(ov_node_t n, const py::handle &state) {
  const ov_count_t count = ov_node_get_number_of_states(n);
  if (py::isinstance<py::str>(state)) {
    const std::string label = state.cast<std::string>();
    ov_index_t i = ov_node_get_state_index_from_label(n, label.c_str());
    if (i < 0) {
      LibraryError e(ov_error_usage, "node '" + text(ov_node_get_name(n)) + "' has no state '" + label + "'");
      e.node = text(ov_node_get_name(n));
      e.state = label;
      throw e;
    }
    return i;
  }
  const auto i = state.cast<ov_index_t>();
  if (i < 0 || i >= count) {
    LibraryError e(ov_error_usage, "node '" + text(ov_node_get_name(n)) + "' has no state #" + std::to_string(i));
    e.node = text(ov_node_get_name(n));
    e.state = "#" + std::to_string(i);
    throw e;
  }
  return i;
}

// Enters one item of evidence: a label or state index selects a state, a
// sequence of numbers is a likelihood (one number per state).
void enter(ov_node_t n, const py::handle &value) {
  const std::string name = text(ov_node_get_name(n));
  if (ov_node_get_kind(n) == ov_kind_continuous) {
    if (!py::isinstance<py::float_>(value) && !py::isinstance<py::int_>(value) && !py::hasattr(value, "__float__"))
      fail(ov_error_usage, "evidence on '" + name + "' is not a number");
    check(ov_node_enter_value(n, value.cast<double>()), "evidence on '" + name + "'");
    return;
  }
  if (py::isinstance<py::str>(value) || py::isinstance<py::int_>(value) ||
      (py::hasattr(value, "__index__") && !py::isinstance<py::array>(value))) {
    check(ov_node_select_state(n, state_index(n, value)), "evidence on '" + name + "'");
    return;
  }
  auto weights = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(value);
  if (!weights || weights.ndim() != 1) fail(ov_error_usage, "evidence on '" + name + "' is not a state or likelihood");
  if (weights.shape(0) != ov_node_get_number_of_states(n))
    fail(ov_error_usage, "likelihood of '" + name + "' needs one number per state");
  for (py::ssize_t i = 0; i < weights.shape(0); ++i)
    check(ov_node_enter_finding(n, i, static_cast<ov_number_t>(weights.at(i))), "evidence on '" + name + "'");
}

py::array_t<double> beliefs_of(ov_node_t n) {
  const ov_count_t count = ov_node_get_number_of_states(n);
  py::array_t<double> out(count);
  auto w = out.mutable_unchecked<1>();
  for (ov_count_t i = 0; i < count; ++i) {
    const ov_number_t b = ov_node_get_belief(n, i);
    if (b < 0) fail(last_code(), "beliefs of '" + text(ov_node_get_name(n)) + "'");
    w(i) = b;
  }
  return out;
}

// A table's cells as an array with one axis per table node, in the table's
// node order (the last node varies fastest).
py::array_t<double> table_array(ov_table_t t) {
  std::vector<py::ssize_t> shape;
  for (ov_node_t n : null_terminated(ov_table_get_nodes(t))) shape.push_back(ov_node_get_number_of_states(n));
  py::array_t<double> out(shape);
  const ov_number_t *data = ov_table_get_data(t);
  const ov_count_t size = ov_table_get_size(t);
  double *w = out.mutable_data();
  for (ov_count_t i = 0; i < size; ++i) w[i] = data[i];
  return out;
}

ov_equilibrium_t equilibrium_of(const std::string &name) {
  if (name == "sum") return ov_equilibrium_sum;
  if (name == "max") return ov_equilibrium_max;
  fail(ov_error_usage, "equilibrium must be 'sum' or 'max', not '" + name + "'");
}

ov_triangulation_method_t method_of(std::string name) {
  std::replace(name.begin(), name.end(), '_', '-');
  if (name == "clique-size") return ov_tm_clique_size;
  if (name == "clique-weight") return ov_tm_clique_weight;
  if (name == "fill-in-size") return ov_tm_fill_in_size;
  if (name == "fill-in-weight") return ov_tm_fill_in_weight;
  if (name == "total-weight") return ov_tm_total_weight;
  fail(ov_error_usage, "unknown triangulation method '" + name + "'");
}

std::string category_name(ov_category_t c) {
  switch (c) {
  case ov_category_chance: return "chance";
  case ov_category_decision: return "decision";
  case ov_category_utility: return "utility";
  case ov_category_instance: return "instance";
  default: return "error";
  }
}

// Parse messages are collected with their lines and carried by the error.
struct Messages {
  std::vector<std::pair<uint32_t, std::string>> items;
  static void collect(uint32_t location, ov_string_t message, void *data) {
    static_cast<Messages *>(data)->items.emplace_back(location, text(message));
  }
};

Domain load(const std::string &path, const std::string &format) {
  Messages messages;
  ov_domain_t d = nullptr;
  if (format == "net")
    d = ov_net_parse_domain(path.c_str(), Messages::collect, &messages);
  else if (format == "kb")
    d = ov_load_domain(path.c_str());
  else if (format == "bif")
    d = ov_bif_parse_domain(path.c_str(), Messages::collect, &messages);
  else if (format == "xmlbif")
    d = ov_xmlbif_parse_domain(path.c_str(), Messages::collect, &messages);
  else if (format == "uai")
    d = ov_uai_parse_domain(path.c_str(), Messages::collect, &messages);
  else
    fail(ov_error_usage, "unknown format '" + format + "'");
  if (d == nullptr) {
    LibraryError e(last_code(), messages.items.empty() ? path : messages.items.front().second);
    if (!messages.items.empty()) e.line = messages.items.front().first;
    for (const auto &m : messages.items) e.messages.push_back(m.second);
    throw e;
  }
  return Domain(d);
}

void save(const Domain &dom, const std::string &path, const std::string &format) {
  ov_status_t s;
  if (format == "net")
    s = ov_domain_save_as_net(dom.d(), path.c_str());
  else if (format == "kb")
    s = ov_domain_save_as_kb(dom.d(), path.c_str(), nullptr);
  else if (format == "bif")
    s = ov_domain_save_as_bif(dom.d(), path.c_str());
  else if (format == "xmlbif")
    s = ov_domain_save_as_xmlbif(dom.d(), path.c_str());
  else if (format == "uai")
    s = ov_domain_save_as_uai(dom.d(), path.c_str());
  else
    fail(ov_error_usage, "unknown format '" + format + "'");
  check(s, "saving " + path);
}

// State indices of the cells of columns of Python objects, one column per
// named node: a label, a state index (an integer or integral float), or None
// or NaN for no state (-1). Labels are compared as UTF-8 bytes.
py::array_t<int32_t> encode(const Domain &dom, const std::vector<std::string> &names, const py::list &columns) {
  if (columns.size() != names.size()) fail(ov_error_usage, "one column per node");
  const py::ssize_t rows = names.empty() ? 0 : py::len(columns[0]);
  py::array_t<int32_t> out({rows, static_cast<py::ssize_t>(names.size())});
  auto w = out.mutable_unchecked<2>();
  for (size_t j = 0; j < names.size(); ++j) {
    ov_node_t n = find_node(dom, names[j]);
    const std::vector<std::string> labels = state_labels(n);
    const auto count = static_cast<long long>(labels.size());
    py::sequence column = columns[j];
    if (py::len(column) != static_cast<size_t>(rows)) fail(ov_error_usage, "columns of different lengths");
    auto bad = [&](const std::string &state) {
      LibraryError e(ov_error_usage, "node '" + names[j] + "' has no state '" + state + "'");
      e.node = names[j];
      e.state = state;
      throw e;
    };
    for (py::ssize_t r = 0; r < rows; ++r) {
      PyObject *cell = PySequence_Fast_GET_ITEM(column.ptr(), r);
      int32_t state = -1;
      if (PyUnicode_Check(cell)) {
        Py_ssize_t size = 0;
        const char *utf8 = PyUnicode_AsUTF8AndSize(cell, &size);
        if (utf8 == nullptr) throw py::error_already_set();
        const std::string_view label(utf8, static_cast<size_t>(size));
        auto at = std::find(labels.begin(), labels.end(), label);
        if (at == labels.end()) bad(std::string(label));
        state = static_cast<int32_t>(at - labels.begin());
      } else if (cell != Py_None) {
        const double value = py::handle(cell).cast<double>();
        if (std::isnan(value)) {
          w(r, j) = -1;
          continue;
        }
        if (value < 0 || value >= static_cast<double>(count) || value != std::floor(value))
          bad("#" + py::str(py::handle(cell)).cast<std::string>());
        state = static_cast<int32_t>(value);
      }
      w(r, j) = state;
    }
  }
  return out;
}

// One query per row of `codes` (rows x evidence nodes, a state index or -1
// for none), answered on `threads` clones of the compiled domain: each
// thread takes a contiguous block of rows. A row whose evidence is
// impossible gets NaN beliefs.
py::list batch(const Domain &dom, const std::vector<std::string> &evidence_nodes,
               py::array_t<int32_t, py::array::c_style | py::array::forcecast> codes,
               const std::vector<std::string> &out_nodes, int threads, const std::string &equilibrium) {
  if (ov_domain_is_compiled(dom.d()) != 1) fail(ov_error_not_compiled, "beliefs_batch");
  if (codes.ndim() != 2 || codes.shape(1) != static_cast<py::ssize_t>(evidence_nodes.size()))
    fail(ov_error_usage, "evidence codes do not match the evidence nodes");
  const ov_equilibrium_t eq = equilibrium_of(equilibrium);
  const py::ssize_t rows = codes.shape(0);
  const size_t k = evidence_nodes.size();
  for (const auto &name : evidence_nodes) find_node(dom, name);
  std::vector<ov_count_t> widths;
  py::list results;
  std::vector<double *> outputs;
  for (const auto &name : out_nodes) {
    const ov_count_t w = ov_node_get_number_of_states(find_node(dom, name));
    widths.push_back(w);
    py::array_t<double> a({rows, static_cast<py::ssize_t>(w)});
    outputs.push_back(a.mutable_data());
    results.append(a);
  }
  const int32_t *code = codes.data();
  const size_t count = static_cast<size_t>(std::clamp<py::ssize_t>(threads, 1, std::max<py::ssize_t>(rows, 1)));
  std::vector<ov_domain_t> clones(count, nullptr);
  std::vector<ov_error_t> errors(count, ov_error_none);
  // The clones are taken with the GIL held, one after the other, so that no
  // other Python thread uses the source meanwhile.
  for (size_t t = 0; t < count; ++t) {
    clones[t] = ov_domain_clone(dom.d());
    if (clones[t] == nullptr) errors[t] = last_code();
  }
  {
    py::gil_scoped_release release;
    auto work = [&](size_t t) {
      ov_domain_t c = clones[t];
      if (c == nullptr) return;
      std::vector<ov_node_t> in, out;
      for (const auto &name : evidence_nodes) in.push_back(ov_domain_get_node_by_name(c, name.c_str()));
      for (const auto &name : out_nodes) out.push_back(ov_domain_get_node_by_name(c, name.c_str()));
      const py::ssize_t begin = rows * static_cast<py::ssize_t>(t) / static_cast<py::ssize_t>(count);
      const py::ssize_t end = rows * static_cast<py::ssize_t>(t + 1) / static_cast<py::ssize_t>(count);
      for (py::ssize_t r = begin; r < end; ++r) {
        ov_status_t s = ov_domain_retract_findings(c);
        for (size_t j = 0; j < k && s == ov_error_none; ++j) {
          const int32_t state = code[static_cast<size_t>(r) * k + j];
          if (state >= 0) s = ov_node_select_state(in[j], state);
        }
        if (s == ov_error_none) s = ov_domain_propagate(c, eq, ov_mode_normal);
        const bool ok = s == ov_error_none;
        if (!ok && s != ov_error_inconsistency_or_underflow) {
          errors[t] = static_cast<ov_error_t>(s);
          return;
        }
        for (size_t o = 0; o < out.size(); ++o) {
          double *row = outputs[o] + static_cast<size_t>(r) * static_cast<size_t>(widths[o]);
          for (ov_count_t i = 0; i < widths[o]; ++i)
            row[i] = ok ? static_cast<double>(ov_node_get_belief(out[o], i)) : std::numeric_limits<double>::quiet_NaN();
        }
      }
    };
    std::vector<std::thread> pool;
    for (size_t t = 1; t < count; ++t) pool.emplace_back(work, t);
    work(0);
    for (auto &th : pool) th.join();
    for (ov_domain_t c : clones)
      if (c != nullptr) ov_domain_delete(c);
  }
  for (ov_error_t e : errors)
    if (e != ov_error_none) fail(e, "beliefs_batch");
  return results;
}

// The E-step of EM over rows of evidence (as in batch): for each discrete
// chance node, the sum over the rows of the posterior of its family (parents
// first, the node last), and the sum of the rows' log-probabilities. A row
// with impossible evidence fails with inconsistency_or_underflow.
py::tuple expected_counts(const Domain &dom, const std::vector<std::string> &evidence_nodes,
                          py::array_t<int32_t, py::array::c_style | py::array::forcecast> codes) {
  if (ov_domain_is_compiled(dom.d()) != 1) fail(ov_error_not_compiled, "expected counts");
  if (codes.ndim() != 2 || codes.shape(1) != static_cast<py::ssize_t>(evidence_nodes.size()))
    fail(ov_error_usage, "evidence codes do not match the evidence nodes");
  std::vector<ov_node_t> in;
  for (const auto &name : evidence_nodes) in.push_back(find_node(dom, name));
  std::vector<std::vector<ov_node_t>> families;
  std::vector<std::vector<double>> sums;
  py::list names;
  for (ov_node_t n : node_list(dom.d())) {
    if (ov_node_get_category(n) != ov_category_chance || ov_node_get_kind(n) != ov_kind_discrete) continue;
    std::vector<ov_node_t> family = null_terminated(ov_node_get_parents(n));
    family.push_back(n);
    family.push_back(nullptr);
    families.push_back(std::move(family));
    names.append(text(ov_node_get_name(n)));
  }
  sums.resize(families.size());
  auto c = codes.unchecked<2>();
  double log_likelihood = 0;
  for (py::ssize_t r = 0; r < codes.shape(0); ++r) {
    check(ov_domain_retract_findings(dom.d()), "retract");
    for (size_t j = 0; j < in.size(); ++j)
      if (c(r, j) >= 0) check(ov_node_select_state(in[j], c(r, j)), "evidence");
    check(ov_domain_propagate(dom.d(), ov_equilibrium_sum, ov_mode_normal), "row " + std::to_string(r));
    log_likelihood += ov_domain_get_log_normalization_constant(dom.d());
    for (size_t f = 0; f < families.size(); ++f) {
      ov_table_t t = ov_domain_get_marginal(dom.d(), families[f].data());
      if (t == nullptr) fail(last_code(), "marginal");
      ov_status_t s = ov_table_reorder_nodes(t, families[f].data());
      if (s == ov_error_none) {
        const ov_number_t *data = ov_table_get_data(t);
        const auto size = static_cast<size_t>(ov_table_get_size(t));
        sums[f].resize(size, 0.0);
        for (size_t i = 0; i < size; ++i) sums[f][i] += data[i];
      }
      ov_table_delete(t);
      check(s, "marginal");
    }
  }
  py::dict counts;
  for (size_t f = 0; f < families.size(); ++f) {
    std::vector<py::ssize_t> shape;
    for (size_t i = 0; i + 1 < families[f].size(); ++i) shape.push_back(ov_node_get_number_of_states(families[f][i]));
    py::array_t<double> a(shape);
    std::fill(a.mutable_data(), a.mutable_data() + a.size(), 0.0);
    std::copy(sums[f].begin(), sums[f].end(), a.mutable_data());
    counts[names[f]] = a;
  }
  return py::make_tuple(counts, log_likelihood);
}

// Stores cases from a matrix of state indices (rows x nodes, -1 missing),
// replacing the domain's cases.
void set_cases(const Domain &dom, const std::vector<std::string> &names,
               py::array_t<int32_t, py::array::c_style | py::array::forcecast> codes,
               py::array_t<double, py::array::c_style | py::array::forcecast> counts) {
  if (codes.ndim() != 2 || codes.shape(1) != static_cast<py::ssize_t>(names.size()))
    fail(ov_error_usage, "case codes do not match the nodes");
  std::vector<ov_node_t> nodes;
  for (const auto &name : names) nodes.push_back(find_node(dom, name));
  const py::ssize_t rows = codes.shape(0);
  check(ov_domain_set_number_of_cases(dom.d(), 0), "cases");
  check(ov_domain_set_number_of_cases(dom.d(), rows), "cases");
  auto c = codes.unchecked<2>();
  for (py::ssize_t r = 0; r < rows; ++r) {
    for (size_t j = 0; j < nodes.size(); ++j)
      if (c(r, j) >= 0) check(ov_node_set_case_state(nodes[j], r, c(r, j)), "case of " + names[j]);
    if (counts.size() == rows)
      check(ov_domain_set_case_count(dom.d(), r, static_cast<ov_number_t>(counts.at(r))), "count");
  }
}

// Draws n configurations from the domain (given the propagated evidence when
// compiled): a matrix of state indices, one column per discrete node of
// `names`.
py::array_t<int32_t> simulate(const Domain &dom, py::ssize_t n, const std::vector<std::string> &names) {
  std::vector<ov_node_t> nodes;
  for (const auto &name : names) nodes.push_back(find_node(dom, name));
  py::array_t<int32_t> out({n, static_cast<py::ssize_t>(nodes.size())});
  auto w = out.mutable_unchecked<2>();
  for (py::ssize_t r = 0; r < n; ++r) {
    check(ov_domain_simulate(dom.d()), "simulate");
    for (size_t j = 0; j < nodes.size(); ++j) w(r, j) = static_cast<int32_t>(ov_node_get_sampled_state(nodes[j]));
  }
  return out;
}

double checked_double(double value, bool failed, const std::string &what) {
  if (failed) fail(last_code(), what);
  return value;
}

} // namespace

PYBIND11_MODULE(_orvel, m) {
  m.doc() = "Compiled core of the orvel package; use the orvel package rather than this module.";

  error_type = PyErr_NewExceptionWithDoc(
      "orvel.Error",
      "A failure reported by the library.\n\n"
      "Attributes: code (the library's error name, e.g. 'usage' or 'parse'), description (its text),\n"
      "line (the line of the first parse message, or None), messages (all parse messages),\n"
      "node and state (the node and state named by the failing call, or None).",
      PyExc_RuntimeError, nullptr);
  m.add_object("Error", py::handle(error_type));
  py::register_exception_translator([](std::exception_ptr p) {
    try {
      if (p) std::rethrow_exception(p);
    } catch (const LibraryError &e) {
      py::object error = py::reinterpret_borrow<py::object>(error_type)(e.what());
      error.attr("code") = ov_error_name(e.code);
      error.attr("description") = ov_error_description(e.code);
      error.attr("line") = e.line >= 0 ? py::object(py::int_(e.line)) : py::none();
      error.attr("messages") = e.messages;
      error.attr("node") = e.node.empty() ? py::none() : py::object(py::str(e.node));
      error.attr("state") = e.state.empty() ? py::none() : py::object(py::str(e.state));
      PyErr_SetObject(error_type, error.ptr());
    }
  });

  py::class_<Node>(m, "Node",
                   "A node of a domain. It keeps its domain alive; get one with domain.node(name) or domain[name].")
      .def_property(
          "name", [](const Node &n) { return text(ov_node_get_name(n.node)); },
          [](const Node &n, const std::string &name) { check(ov_node_set_name(n.node, name.c_str()), name); },
          "The node's name.")
      .def_property(
          "label", [](const Node &n) { return text(ov_node_get_label(n.node)); },
          [](const Node &n, const std::string &label) { check(ov_node_set_label(n.node, label.c_str()), label); },
          "The node's label (free text).")
      .def_property_readonly(
          "category", [](const Node &n) { return category_name(ov_node_get_category(n.node)); },
          "'chance', 'decision' or 'utility'.")
      .def_property(
          "states", [](const Node &n) { return state_labels(n.node); },
          [](const Node &n, const std::vector<std::string> &labels) {
            const std::string name = text(ov_node_get_name(n.node));
            check(ov_node_set_number_of_states(n.node, static_cast<ov_count_t>(labels.size())), "states of " + name);
            for (size_t i = 0; i < labels.size(); ++i)
              check(ov_node_set_state_label(n.node, static_cast<ov_index_t>(i), labels[i].c_str()), labels[i]);
          },
          "The state labels; setting them sets the number of states too.")
      .def_property_readonly(
          "number_of_states", [](const Node &n) { return ov_node_get_number_of_states(n.node); },
          "The number of states.")
      .def_property_readonly(
          "parents",
          [](const Node &n) {
            std::vector<Node> out;
            for (ov_node_t p : null_terminated(ov_node_get_parents(n.node))) out.push_back(Node{n.owner, p});
            return out;
          },
          "The parents, in table order.")
      .def(
          "add_parent", [](const Node &n, const Node &p) { check(ov_node_add_parent(n.node, p.node), "add_parent"); },
          py::arg("parent"), "Adds an edge from `parent` to this node.")
      .def(
          "remove_parent",
          [](const Node &n, const Node &p) { check(ov_node_remove_parent(n.node, p.node), "remove_parent"); },
          py::arg("parent"), "Removes the edge from `parent`.")
      .def_property(
          "table",
          [](const Node &n) {
            ov_table_t t = ov_node_get_table(n.node);
            if (t == nullptr) fail(last_code(), "table of " + text(ov_node_get_name(n.node)));
            return table_array(t);
          },
          [](const Node &n, py::array_t<double, py::array::c_style | py::array::forcecast> values) {
            ov_table_t t = ov_node_get_table(n.node);
            if (t == nullptr) fail(last_code(), "table of " + text(ov_node_get_name(n.node)));
            if (values.size() != ov_table_get_size(t))
              fail(ov_error_usage, "table of '" + text(ov_node_get_name(n.node)) + "' needs " +
                                       std::to_string(ov_table_get_size(t)) + " numbers");
            ov_number_t *data = ov_table_get_data(t);
            const double *v = values.data();
            for (py::ssize_t i = 0; i < values.size(); ++i) data[i] = static_cast<ov_number_t>(v[i]);
            check(ov_node_touch_table(n.node), "table");
          },
          "The node's table as an array with one axis per parent (first parent first) and the node's own\n"
          "states last. Assign an array of the same size to set it.")
      .def_property_readonly(
          "kind",
          [](const Node &n) { return ov_node_get_kind(n.node) == ov_kind_continuous ? "continuous" : "discrete"; },
          "'discrete' or 'continuous'.")
      .def_property_readonly(
          "mean",
          [](const Node &n) {
            const double m = ov_node_get_mean(n.node);
            return checked_double(m, m == -1.0 && ov_error_code() != ov_error_none, "mean");
          },
          "The mean of a continuous chance node after propagation (of its mixture of Gaussians).")
      .def_property_readonly(
          "variance",
          [](const Node &n) {
            const double v = ov_node_get_variance(n.node);
            return checked_double(v, v < 0, "variance");
          },
          "The variance of a continuous chance node after propagation (0 for an observed node).")
      .def(
          "beliefs", [](const Node &n) { return beliefs_of(n.node); },
          "The beliefs of a discrete chance node after propagation (numpy array, one per state).")
      .def(
          "expected_utilities",
          [](const Node &n) {
            const ov_count_t count = ov_node_get_number_of_states(n.node);
            py::array_t<double> out(count);
            for (ov_count_t i = 0; i < count; ++i) {
              const ov_number_t u = ov_node_get_expected_utility(n.node, i);
              if (u == -1.0f && ov_error_code() != ov_error_none) fail(last_code(), "expected utilities");
              out.mutable_at(i) = u;
            }
            return out;
          },
          "The expected utility of each option of a decision node after propagation.")
      .def(
          "policy",
          [](const Node &n, bool utilities) {
            ov_table_t t = utilities ? ov_node_get_policy_utilities(n.node) : ov_node_get_policy(n.node);
            if (t == nullptr) fail(last_code(), "policy of '" + text(ov_node_get_name(n.node)) + "'");
            std::vector<std::string> past;
            for (ov_node_t m : null_terminated(ov_table_get_nodes(t))) past.push_back(text(ov_node_get_name(m)));
            py::array_t<double> values = table_array(t);
            ov_table_delete(t);
            return py::make_tuple(past, values);
          },
          py::arg("utilities") = false,
          "The optimal policy of a decision node after propagation: (names, array) with one axis per node\n"
          "of the past the choice depends on, then the decision's options; 1 at the option chosen, or with\n"
          "utilities=True the expected utility of each option.")
      .def_property_readonly(
          "entropy",
          [](const Node &n) {
            const double e = ov_node_get_entropy(n.node);
            return checked_double(e, e < 0, "entropy");
          },
          "The entropy of the node's beliefs.")
      .def(
          "select_state", [](const Node &n, py::handle s) { enter(n.node, s); }, py::arg("state"),
          "Enters evidence that the node is in `state` (a label or index), or for a continuous node that\n"
          "it has the value `state`.")
      .def(
          "enter_likelihood", [](const Node &n, py::handle v) { enter(n.node, v); }, py::arg("likelihood"),
          "Enters a likelihood: one non-negative number per state.")
      .def(
          "retract", [](const Node &n) { check(ov_node_retract_findings(n.node), "retract"); },
          "Retracts the node's findings.")
      .def(
          "__eq__", [](const Node &a, const Node &b) { return a.node == b.node; }, py::is_operator())
      .def("__hash__", [](const Node &n) { return std::hash<const void *>()(n.node); })
      .def("__repr__", [](const Node &n) { return "<orvel.Node " + text(ov_node_get_name(n.node)) + ">"; });

  py::class_<Domain>(m, "Domain", "Core of orvel.Domain (see there).")
      .def(py::init<>())
      .def("_adopt", [](Domain &self, Domain &other) { self.h = other.h; })
      .def("_clone",
           [](const Domain &self) {
             ov_domain_t c = ov_domain_clone(self.d());
             if (c == nullptr) fail(last_code(), "clone");
             return Domain(c);
           })
      .def(
          "node",
          [](const Domain &self, const std::string &name) {
            return Node{self.h, find_node(self, name)};
          },
          py::arg("name"), "The node of that name; orvel.Error naming it when there is none.")
      .def("__getitem__",
           [](const Domain &self, const std::string &name) {
             return Node{self.h, find_node(self, name)};
           })
      .def("__contains__",
           [](const Domain &self, const std::string &name) {
             return ov_domain_get_node_by_name(self.d(), name.c_str()) != nullptr;
           })
      .def("__len__", [](const Domain &self) { return node_list(self.d()).size(); })
      .def_property_readonly(
          "nodes",
          [](const Domain &self) {
            std::vector<Node> out;
            for (ov_node_t n : node_list(self.d())) out.push_back(Node{self.h, n});
            return out;
          },
          "All nodes, in the domain's order.")
      .def(
          "_new_node",
          [](const Domain &self, const std::string &category) {
            ov_category_t c = category == "chance"     ? ov_category_chance
                              : category == "decision" ? ov_category_decision
                              : category == "utility"  ? ov_category_utility
                                                       : ov_category_error;
            if (c == ov_category_error) fail(ov_error_usage, "unknown category '" + category + "'");
            ov_node_t n = ov_domain_new_node(self.d(), c, ov_kind_discrete);
            if (n == nullptr) fail(last_code(), "new node");
            return Node{self.h, n};
          },
          py::arg("category"))
      .def(
          "_compile",
          [](const Domain &self, py::object method, bool save_to_memory) {
            if (!method.is_none())
              check(ov_domain_triangulate(self.d(), method_of(method.cast<std::string>())), "triangulate");
            check(ov_domain_compile(self.d()), "compile");
            if (save_to_memory) check(ov_domain_save_to_memory(self.d()), "save_to_memory");
          },
          py::arg("method"), py::arg("save_to_memory"))
      .def(
          "approximate",
          [](const Domain &self, double epsilon) {
            const double removed = ov_domain_approximate(self.d(), epsilon);
            return checked_double(removed, removed < 0, "approximate");
          },
          py::arg("epsilon"),
          "Zeroes, clique by clique, the least probable cells of the compiled tables whose mass is at most\n"
          "`epsilon` of the clique, and returns the mass d of the joint distribution removed. With c the\n"
          "probability of the evidence reported afterwards, every belief is within d / ((1 - d) c) of the\n"
          "exact one.")
      .def(
          "compress",
          [](const Domain &self) {
            const double cells = ov_domain_compress(self.d());
            return checked_double(cells, cells < 0, "compress");
          },
          "Drops the clique cells that are zero (deterministic tables, approximation, the evidence propagated\n"
          "now) and returns the clique and separator cells left; later propagations stay exact on what\n"
          "remains, and evidence against what was dropped is inconsistent.")
      .def_property_readonly(
          "is_compressed", [](const Domain &self) { return ov_domain_is_compressed(self.d()) == 1; },
          "True once compressed.")
      .def_property_readonly(
          "is_compiled", [](const Domain &self) { return ov_domain_is_compiled(self.d()) == 1; }, "True once compiled.")
      .def(
          "uncompile", [](const Domain &self) { check(ov_domain_uncompile(self.d()), "uncompile"); },
          "Drops the junction forest; findings stay.")
      .def(
          "retract_findings", [](const Domain &self) { check(ov_domain_retract_findings(self.d()), "retract"); },
          "Retracts every finding.")
      .def(
          "set_evidence",
          [](const Domain &self, const py::dict &evidence) {
            check(ov_domain_retract_findings(self.d()), "retract");
            for (auto item : evidence) {
              if (item.second.is_none()) continue;
              enter(resolve(self, item.first), item.second);
            }
          },
          py::arg("evidence"),
          "Replaces the findings by `evidence`, a dict from node (name or Node) to a state label, a state index,\n"
          "or a likelihood (list or numpy array, one number per state). None means no evidence.")
      .def(
          "propagate",
          [](const Domain &self, const std::string &equilibrium) {
            check(ov_domain_propagate(self.d(), equilibrium_of(equilibrium), ov_mode_normal), "propagate");
          },
          py::arg("equilibrium") = "sum",
          "Propagates the findings: equilibrium 'sum' (beliefs) or 'max' (the most probable configuration\n"
          "gets belief 1 in each node).")
      .def(
          "beliefs", [](const Domain &self, py::handle node) { return beliefs_of(resolve(self, node)); },
          py::arg("node"), "The beliefs of a node as a numpy array.")
      .def(
          "marginal",
          [](const Domain &self, const std::vector<std::string> &names) {
            std::vector<ov_node_t> nodes;
            for (const auto &name : names) nodes.push_back(find_node(self, name));
            nodes.push_back(nullptr);
            ov_table_t t = ov_domain_get_marginal(self.d(), nodes.data());
            if (t == nullptr) fail(last_code(), "marginal");
            ov_status_t s = ov_table_reorder_nodes(t, nodes.data());
            py::array_t<double> out;
            if (s == ov_error_none) out = table_array(t);
            ov_table_delete(t);
            check(s, "marginal");
            return out;
          },
          py::arg("nodes"),
          "The joint beliefs of the named nodes: an array with one axis per node, in the given order.")
      .def_property_readonly(
          "probability_of_evidence",
          [](const Domain &self) {
            const double p = ov_domain_get_normalization_constant(self.d());
            return checked_double(p, p < 0, "probability of evidence");
          },
          "The probability of the propagated evidence (sum propagation).")
      .def_property_readonly(
          "log_probability_of_evidence",
          [](const Domain &self) {
            ov_double_t lp = ov_domain_get_log_normalization_constant(self.d());
            return checked_double(lp, lp > 0, "log probability of evidence");
          },
          "The natural logarithm of the probability of the propagated evidence.")
      .def_property_readonly(
          "conflict",
          [](const Domain &self) {
            const double c = ov_domain_get_conflict(self.d());
            return checked_double(c, c < 0, "conflict");
          },
          "The conflict measure of the propagated evidence.")
      .def_property_readonly(
          "expected_utility",
          [](const Domain &self) {
            const double u = ov_domain_get_expected_utility(self.d());
            return checked_double(u, u == -1.0 && ov_error_code() != ov_error_none, "expected utility");
          },
          "The maximum expected utility of an influence diagram after propagation.")
      .def_property(
          "limited_memory", [](const Domain &self) { return ov_domain_get_limited_memory(self.d()) == 1; },
          [](const Domain &self, bool limited) {
            check(ov_domain_set_limited_memory(self.d(), limited ? 1 : 0), "limited memory");
          },
          "Whether the decisions know only their parents (solved by single policy updating); a change\n"
          "uncompiles the domain.")
      .def(
          "seed", [](const Domain &self, uint32_t s) { check(ov_domain_seed_random(self.d(), s), "seed"); },
          py::arg("seed"), "Seeds the domain's random number generator (simulation).")
      .def("_simulate", &simulate)
      .def("_set_cases", &set_cases)
      .def("_learn_tables",
           [](const Domain &self, py::object iterations, py::object tolerance) {
             if (!iterations.is_none())
               check(ov_domain_set_max_number_of_em_iterations(self.d(), iterations.cast<uint32_t>()), "iterations");
             if (!tolerance.is_none())
               check(ov_domain_set_log_likelihood_tolerance(self.d(), tolerance.cast<double>()), "tolerance");
             for (ov_node_t n : node_list(self.d()))
               if (ov_node_get_category(n) == ov_category_chance && ov_node_get_experience_table(n) == nullptr)
                 fail(last_code(), "experience table");
             check(ov_domain_learn_tables(self.d()), "learn_tables");
           })
      .def("_learn_structure",
           [](const Domain &self, py::object significance) {
             if (!significance.is_none())
               check(ov_domain_set_significance_level(self.d(), significance.cast<double>()), "significance");
             check(ov_domain_learn_structure(self.d()), "learn_structure");
           })
      .def_property_readonly(
          "log_likelihood",
          [](const Domain &self) {
            const double l = ov_domain_get_log_likelihood(self.d());
            return checked_double(l, l > 0, "log likelihood");
          },
          "The log-likelihood of the domain's cases under its tables.")
      .def_property_readonly(
          "aic",
          [](const Domain &self) {
            const double l = ov_domain_get_AIC(self.d());
            return checked_double(l, l > 0, "AIC");
          },
          "AIC of the cases: the log-likelihood minus the number of free parameters.")
      .def_property_readonly(
          "bic",
          [](const Domain &self) {
            const double l = ov_domain_get_BIC(self.d());
            return checked_double(l, l > 0, "BIC");
          },
          "BIC of the cases: the log-likelihood minus P ln(N) / 2.")
      .def("_save", &save)
      .def("_save_dot",
           [](const Domain &self, const std::string &path, int form) {
             check(ov_domain_save_as_dot(self.d(), path.c_str(), static_cast<ov_dot_form_t>(form)), "dot");
           })
      .def("_batch", &batch)
      .def("_expected_counts", &expected_counts)
      .def("_encode", [](const Domain &self, const std::vector<std::string> &names, const py::list &columns) {
        py::list cols;
        for (auto column : columns) {
          PyObject *seq = PySequence_Fast(column.ptr(), "a column must be a sequence");
          if (seq == nullptr) throw py::error_already_set();
          cols.append(py::reinterpret_steal<py::object>(seq));
        }
        return encode(self, names, cols);
      });

  m.def("_load", &load, py::arg("path"), py::arg("format"));
  m.def(
      "error_name", [](int code) { return text(ov_error_name(static_cast<ov_error_t>(code))); }, py::arg("code"),
      "The library's name of an error code.");
}
