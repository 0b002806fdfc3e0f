// Calls refused for a bad argument or a wrong state, across every family of
// the interface. Each row sets up a small domain (or a small collection of
// classes), makes one call that must fail, and checks the failure value, the
// recorded error and that the NET text and the compiled state are byte for
// byte what they were before the call.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <list>
#include <string>
#include <vector>

#include "orvel.h"

namespace {

// A chain A -> B -> C with A -> C; kCg adds a continuous Y under A.
const char *const kAbc = R"(net {}
node A { states = ("a0" "a1"); }
node B { states = ("b0" "b1" "b2"); }
node C { states = ("c0" "c1"); }
potential (A) { data = (0.4 0.6); }
potential (B | A) { data = ((0.2 0.3 0.5) (0.1 0.1 0.8)); }
potential (C | A B) { data = (((0.5 0.5) (0.9 0.1) (0.3 0.7)) ((0.6 0.4) (0.2 0.8) (0.1 0.9))); }
)";
const std::string cg_text =
    std::string(kAbc) + "continuous node Y {}\npotential (Y | A) { data = (normal (0, 1) normal (1, 2)); }\n";
const char *const kCg = cg_text.c_str();

// An influence diagram: a chance node, a decision and a utility.
const char *const kId = R"(net {}
node A { states = ("a0" "a1"); }
decision D { states = ("d0" "d1"); }
utility U {}
potential (A) { data = (0.5 0.5); }
potential (D) {}
potential (U | A D) { data = ((1 2) (3 4)); }
)";

// B and C joined by an undirected link, both children of A.
const char *const kChain = R"(net {}
node A { states = ("a0" "a1"); }
node B { states = ("b0" "b1"); }
node C { states = ("c0" "c1"); }
potential (A) { data = (0.5 0.5); }
potential (B C | A) { data = (((1 2) (3 4)) ((5 6) (7 8))); }
)";

const char *const kEmpty = "net {}\n";

// The set-up of a row: the domain parsed from its text, a stranger node in
// another domain, and, for class rows (no text), a collection of classes:
// Part with input `in`, output `out` and a hidden node; Whole with nodes `x`
// and `xc` (continuous) and an instance `inst` of Part bound to `x`; Decider
// with a decision; and a class Alien of another collection.
struct World {
  ov_domain_t d = nullptr, other = ov_new_domain();
  ov_node_t stranger = ov_domain_new_node(other, ov_category_chance, ov_kind_discrete);
  ov_class_collection_t cc = nullptr, cc2 = nullptr, spare = ov_new_class_collection();
  ov_class_t part = nullptr, whole = nullptr, decider = nullptr, alien = nullptr;
  ov_node_t in = nullptr, out = nullptr, hidden = nullptr, x = nullptr, xc = nullptr, inst = nullptr, clone = nullptr;
  std::vector<ov_expression_t> expressions;
  int w = 0, h = 0;
  std::FILE *read_only = std::fopen("/dev/null", "r");

  explicit World(const char *net) {
    if (net != nullptr) {
      d = ov_net_parse_from_string(net, nullptr);
      EXPECT_NE(d, nullptr) << net;
      return;
    }
    cc = ov_new_class_collection();
    part = named_class(cc, "Part");
    whole = named_class(cc, "Whole");
    decider = named_class(cc, "Decider");
    ov_node_add_to_inputs(in = node(part, "in"));
    ov_node_add_to_outputs(out = node(part, "out"));
    hidden = node(part, "hidden");
    x = node(whole, "x");
    xc = node(whole, "xc", ov_category_chance, ov_kind_continuous);
    inst = ov_class_new_instance(whole, part);
    ov_node_set_name(inst, "inst");
    ov_node_set_input(inst, in, x);
    clone = ov_node_get_output(inst, out);
    node(decider, "dec", ov_category_decision);
    cc2 = ov_new_class_collection();
    alien = named_class(cc2, "Alien");
    EXPECT_NE(clone, nullptr);
  }
  ~World() {
    for (ov_expression_t e : expressions) ov_expression_delete(e);
    if (cc2 != nullptr) ov_cc_delete(cc2);
    ov_cc_delete(spare);
    if (cc != nullptr) ov_cc_delete(cc);
    if (d != nullptr) ov_domain_delete(d);
    ov_domain_delete(other);
    std::fclose(read_only);
  }

  static ov_class_t named_class(ov_class_collection_t collection, const char *name) {
    ov_class_t c = ov_cc_new_class(collection);
    ov_class_set_name(c, name);
    return c;
  }
  static ov_node_t node(ov_class_t c, const char *name, ov_category_t category = ov_category_chance,
                        ov_kind_t kind = ov_kind_discrete) {
    ov_node_t n = ov_class_new_node(c, category, kind);
    ov_node_set_name(n, name);
    if (kind == ov_kind_discrete && category != ov_category_utility) ov_node_set_number_of_states(n, 2);
    return n;
  }
  // A class that could stand in for Part, with two new outputs, the last
  // continuous.
  ov_class_t next_class() {
    ov_class_t next = named_class(cc, "Next");
    ov_node_add_to_inputs(node(next, "in"));
    ov_node_add_to_outputs(node(next, "out"));
    ov_node_add_to_outputs(node(next, "first_new"));
    ov_node_add_to_outputs(node(next, "level", ov_category_chance, ov_kind_continuous));
    return next;
  }
  ov_node_t n(const char *name) { return ov_domain_get_node_by_name(d, name); }
  ov_class_t plain() { return reinterpret_cast<ov_class_t>(d); } // a domain outside any collection
  // Null-terminated node and operand lists that live as long as the row.
  ov_node_t *list(std::initializer_list<ov_node_t> nodes) { return terminated(lists, nodes); }
  ov_expression_t *operands(std::initializer_list<ov_expression_t> es) { return terminated(operand_lists, es); }
  template <class T> static T *terminated(std::list<std::vector<T>> &store, std::initializer_list<T> items) {
    store.emplace_back(items).push_back(nullptr);
    return store.back().data();
  }
  ov_expression_t keep(ov_expression_t e) { return expressions.emplace_back(e); }
  // A model with its slots made (a refused call must not be the one to make them).
  void model(const char *name, std::initializer_list<ov_node_t> nodes) {
    ov_model_t m = ov_node_new_model(n(name), list(nodes));
    ASSERT_EQ(ov_model_set_expression(m, 0, nullptr), ov_error_none);
  }
  void set_data(const char *name, std::initializer_list<float> numbers) {
    ov_number_t *data = ov_table_get_data(ov_node_get_table(n(name)));
    for (float v : numbers) *data++ = v;
  }

  // The whole text of a stream, which it closes.
  static std::string read(std::FILE *file) {
    std::string text;
    std::rewind(file);
    for (int c; (c = std::fgetc(file)) != EOF;) text += static_cast<char>(c);
    std::fclose(file);
    return text;
  }
  // What a refusal must leave alone.
  std::string state() {
    std::string text;
    if (d != nullptr) {
      std::FILE *file = std::tmpfile();
      ov_domain_write_net(d, file);
      text += read(file);
      text += "compiled " + std::to_string(ov_domain_is_compiled(d)) + " triangulated " +
              std::to_string(ov_domain_is_triangulated(d));
      for (ov_node_t node = ov_domain_get_first_node(d); node != nullptr; node = ov_node_get_next(node))
        text += " " + std::to_string(ov_node_evidence_is_entered(node));
    }
    if (cc != nullptr) {
      const std::string path = ::testing::TempDir() + "refusal_classes.net";
      EXPECT_EQ(ov_cc_save_as_net(cc, path.c_str()), ov_error_none);
      text += read(std::fopen(path.c_str(), "r"));
    }
    return text;
  }

private:
  std::list<std::vector<ov_node_t>> lists;
  std::list<std::vector<ov_expression_t>> operand_lists;
};

struct Row {
  const char *what;
  const char *net; // null: the classes
  ov_error_t code;
  std::function<void(World &)> prepare;
  std::function<bool(World &)> refused; // makes the call; true if it returned its failure value
};

#define REFUSE(what, net, code, failure, call)                                                                         \
  Row {                                                                                                                \
    what, net, code, nullptr, []([[maybe_unused]] World &w) { return fails(call, failure, code); }                     \
  }
#define USAGE(what, net, call) REFUSE(what, net, usage, failed, call)
#define USAGE_AFTER(what, net, prepare, call) REFUSE_AFTER(what, net, prepare, usage, failed, call)
#define REFUSE_AFTER(what, net, prepare, code, failure, call)                                                          \
  Row {                                                                                                                \
    what, net, code, [](World &w) { prepare; }, [](World &w) { return fails(call, failure, code); }                    \
  }

void compile(World &w) { ASSERT_EQ(ov_domain_compile(w.d), ov_error_none); }

// A refused status call returns its error code, a refused pointer call null.
struct Failed {
} const failed;
bool fails(ov_status_t status, Failed, ov_error_t code) { return status == code; }
template <class T> bool fails(T *result, Failed, ov_error_t) { return result == nullptr; }
template <class T, class F> bool fails(T result, F failure, ov_error_t) { return result == failure; }

const ov_error_t usage = ov_error_usage;

const std::vector<Row> &rows() {
  // clang-format off
  static const std::vector<Row> all = {
      // Domain settings.
      USAGE("grain size 0", kCg, ov_domain_set_grain_size(w.d, 0)),
      USAGE("concurrency level 0", kCg, ov_domain_set_concurrency_level(w.d, 0)),
      USAGE("significance level 0", kCg, ov_domain_set_significance_level(w.d, 0.0)),
      USAGE("significance level 1", kCg, ov_domain_set_significance_level(w.d, 1.0)),
      USAGE("significance level NaN", kCg, ov_domain_set_significance_level(w.d, std::nan(""))),
      USAGE("negative tolerance", kCg, ov_domain_set_log_likelihood_tolerance(w.d, -1e-9)),
      USAGE("NaN tolerance", kCg, ov_domain_set_log_likelihood_tolerance(w.d, std::nan(""))),
      USAGE("node size into one pointer", kCg, ov_domain_get_node_size(w.d, &w.w, &w.w)),
      USAGE("node size without height", kCg, ov_domain_get_node_size(w.d, &w.w, nullptr)),
      REFUSE("normal deviate, negative variance", kCg, usage, -1.0, ov_domain_get_normal_deviate(w.d, 0, -1)),
      REFUSE("normal deviate, NaN variance", kCg, usage, -1.0, ov_domain_get_normal_deviate(w.d, 0, std::nan(""))),
      // Node creation.
      USAGE("instance node in a domain", kCg, ov_domain_new_node(w.d, ov_category_instance, ov_kind_discrete)),
      USAGE("category out of range", kCg, ov_domain_new_node(w.d, static_cast<ov_category_t>(5), ov_kind_discrete)),
      USAGE("kind error", kCg, ov_domain_new_node(w.d, ov_category_chance, ov_kind_error)),
      USAGE("negative kind", kCg, ov_domain_new_node(w.d, ov_category_chance, static_cast<ov_kind_t>(-1))),
      REFUSE("continuous node beside a decision", kId, ov_error_cg_influence_diagrams_not_supported, failed,
          ov_domain_new_node(w.d, ov_category_chance, ov_kind_continuous)),
      REFUSE("continuous utility", kEmpty, ov_error_cg_influence_diagrams_not_supported, failed,
          ov_domain_new_node(w.d, ov_category_utility, ov_kind_continuous)),
      REFUSE("decision in a CG network", kCg, ov_error_cg_influence_diagrams_not_supported, failed,
          ov_domain_new_node(w.d, ov_category_decision, ov_kind_discrete)),
      REFUSE("utility in a CG network", kCg, ov_error_cg_influence_diagrams_not_supported, failed,
          ov_domain_new_node(w.d, ov_category_utility, ov_kind_discrete)),
      // Node properties.
      USAGE("boolean with three states", kCg, ov_node_set_subtype(w.n("B"), ov_subtype_boolean)),
      USAGE("subtype out of range", kCg, ov_node_set_subtype(w.n("A"), static_cast<ov_subtype_t>(29))),
      USAGE("subtype error", kCg, ov_node_set_subtype(w.n("A"), ov_subtype_error)),
      USAGE("subtype of a utility", kId, ov_node_set_subtype(w.n("U"), ov_subtype_number)),
      USAGE("null label", kCg, ov_node_set_label(w.n("A"), nullptr)),
      USAGE("position into one pointer", kCg, ov_node_get_position(w.n("A"), &w.w, &w.w)),
      USAGE("position without x", kCg, ov_node_get_position(w.n("A"), nullptr, &w.h)),
      REFUSE("name with a space", kCg, ov_error_invalid_name, failed, ov_node_set_name(w.n("A"), "a b")),
      REFUSE("name with a leading digit", kCg, ov_error_invalid_name, failed, ov_node_set_name(w.n("A"), "1a")),
      REFUSE("empty name", kCg, ov_error_invalid_name, failed, ov_node_set_name(w.n("A"), "")),
      USAGE("null name", kCg, ov_node_set_name(w.n("A"), nullptr)),
      REFUSE("name of another node", kCg, ov_error_twice, failed, ov_node_set_name(w.n("A"), "B")),
      USAGE("state label past the end", kCg, ov_node_get_state_label(w.n("A"), 2)),
      USAGE("negative state label", kCg, ov_node_get_state_label(w.n("A"), -1)),
      USAGE("set label past the end", kCg, ov_node_set_state_label(w.n("A"), 2, "x")),
      USAGE("set negative label", kCg, ov_node_set_state_label(w.n("A"), -5, "x")),
      USAGE("set null label", kCg, ov_node_set_state_label(w.n("A"), 0, nullptr)),
      USAGE("label of a continuous node", kCg, ov_node_set_state_label(w.n("Y"), 0, "x")),
      REFUSE("look up a null label", kCg, usage, -1, ov_node_get_state_index_from_label(w.n("A"), nullptr)),
      USAGE("value of a label node", kCg, ov_node_set_state_value(w.n("A"), 0, 1.0)),
      USAGE_AFTER("value past the top bound", kCg, ov_node_set_subtype(w.n("A"), ov_subtype_interval),
          ov_node_set_state_value(w.n("A"), 3, 1.0)),
      USAGE_AFTER("negative value index", kCg, ov_node_set_subtype(w.n("A"), ov_subtype_interval),
          ov_node_set_state_value(w.n("A"), -1, 1.0)),
      REFUSE_AFTER("read past the top bound", kCg, ov_node_set_subtype(w.n("A"), ov_subtype_interval), usage, -1.0,
          ov_node_get_state_value(w.n("A"), 4)),
      REFUSE_AFTER("lookup in equal bounds", kCg,
          (ov_node_set_subtype(w.n("A"), ov_subtype_interval), ov_node_set_state_value(w.n("A"), 1, 5.0), ov_node_set_state_value(w.n("A"), 2, 5.0)),
          usage, -1, ov_node_get_state_index_from_value(w.n("A"), 5.0)),
      REFUSE_AFTER("lookup without values", kCg, ov_node_set_subtype(w.n("A"), ov_subtype_interval), usage, -1,
          ov_node_get_state_index_from_value(w.n("A"), 0.0)),
      REFUSE("states of a continuous node", kCg, usage, -1, ov_node_get_number_of_states(w.n("Y"))),
      REFUSE("junction tree before compiling", kCg, ov_error_not_compiled, failed, ov_node_get_junction_tree(w.n("A"))),
      USAGE("home class of a domain node", kCg, ov_node_get_home_class(w.n("A"))),
      USAGE("master of a plain node", kCg, ov_node_get_master(w.n("A"))),
      USAGE("source of a plain node", kCg, ov_node_get_source(w.n("A"))),
      // Attributes.
      REFUSE("attribute key with a leading digit", kCg, ov_error_invalid_name, failed, ov_node_set_attribute(w.n("A"), "1abc", "v")),
      REFUSE("removing a bad key", kCg, ov_error_invalid_name, failed, ov_node_set_attribute(w.n("A"), "a-b", nullptr)),
      USAGE("null attribute key", kCg, ov_node_set_attribute(w.n("A"), nullptr, "v")),
      REFUSE("domain attribute key", kCg, ov_error_invalid_name, failed, ov_domain_set_attribute(w.d, "9", "v")),
      USAGE("get a null key", kCg, ov_node_get_attribute(w.n("A"), nullptr)),
      // Links.
      REFUSE("link that closes a cycle", kCg, ov_error_cyclic_network, failed, ov_node_add_parent(w.n("A"), w.n("C"))),
      REFUSE("link to itself", kCg, ov_error_cyclic_network, failed, ov_node_add_parent(w.n("A"), w.n("A"))),
      USAGE("link twice", kCg, ov_node_add_parent(w.n("B"), w.n("A"))),
      USAGE("continuous parent of a discrete node", kCg, ov_node_add_parent(w.n("B"), w.n("Y"))),
      USAGE("parent from another domain", kCg, ov_node_add_parent(w.n("A"), w.stranger)),
      USAGE("utility as a parent", kId, ov_node_add_parent(w.n("A"), w.n("U"))),
      USAGE("remove a non-parent", kCg, ov_node_remove_parent(w.n("A"), w.n("B"))),
      USAGE("switch to another state count", kCg, ov_node_switch_parent(w.n("C"), w.n("A"), w.n("B"))),
      USAGE("switch to a parent it has", kCg, ov_node_switch_parent(w.n("C"), w.n("A"), w.n("A"))),
      USAGE("switch a non-parent", kCg, ov_node_switch_parent(w.n("B"), w.n("C"), w.n("A"))),
      USAGE_AFTER("switch to other labels", kCg,
          (ov_node_set_name(ov_domain_new_node(w.d, ov_category_chance, ov_kind_discrete), "E"), ov_node_set_number_of_states(w.n("E"), 2), ov_node_set_state_label(w.n("E"), 0, "e0")),
          ov_node_switch_parent(w.n("C"), w.n("A"), w.n("E"))),
      REFUSE_AFTER("switch into a cycle", kCg, (ov_node_set_state_label(w.n("C"), 0, "a0"), ov_node_set_state_label(w.n("C"), 1, "a1")),
          ov_error_cyclic_network, failed, ov_node_switch_parent(w.n("B"), w.n("A"), w.n("C"))),
      USAGE("switch to a decision", kId, ov_node_switch_parent(w.n("U"), w.n("A"), w.n("D"))),
      USAGE("reverse unlinked nodes", kCg, ov_node_reverse_edge(w.n("B"), w.n("Y"))),
      USAGE("reverse a node with itself", kCg, ov_node_reverse_edge(w.n("A"), w.n("A"))),
      USAGE("reverse across kinds", kCg, ov_node_reverse_edge(w.n("A"), w.n("Y"))),
      REFUSE("reverse with another path", kCg, ov_error_cyclic_network, failed, ov_node_reverse_edge(w.n("A"), w.n("C"))),
      USAGE("reverse into a utility", kId, ov_node_reverse_edge(w.n("A"), w.n("U"))),
      REFUSE_AFTER("reverse a negative table", kCg, w.set_data("B", {0.5f, -0.25f, 0.75f}), ov_error_negative_probability, failed,
          ov_node_reverse_edge(w.n("A"), w.n("B"))),
      REFUSE_AFTER("reverse a zero column", kCg, w.set_data("B", {0, 0, 0}), ov_error_zero_sum, failed,
          ov_node_reverse_edge(w.n("A"), w.n("B"))),
      REFUSE_AFTER("reverse under a zero prior", kCg, w.set_data("A", {0, 0}), ov_error_zero_sum, failed,
          ov_node_reverse_edge(w.n("B"), w.n("A"))),
      USAGE("no states", kCg, ov_node_set_number_of_states(w.n("A"), 0)),
      USAGE("negative states", kCg, ov_node_set_number_of_states(w.n("A"), -3)),
      USAGE_AFTER("boolean to three states", kCg, ov_node_set_subtype(w.n("A"), ov_subtype_boolean),
          ov_node_set_number_of_states(w.n("A"), 3)),
      USAGE("states of a utility", kId, ov_node_set_number_of_states(w.n("U"), 3)),
      USAGE("state count of a continuous node", kCg, ov_node_set_number_of_states(w.n("Y"), 2)),
      REFUSE("constraint with itself", kCg, usage, ov_constraint_error, ov_node_get_edge_constraint(w.n("A"), w.n("A"))),
      REFUSE("constraint with a stranger", kCg, usage, ov_constraint_error, ov_node_get_edge_constraint(w.n("A"), w.stranger)),
      USAGE("constraint out of range", kCg, ov_node_set_edge_constraint(w.n("A"), w.n("B"), static_cast<ov_edge_constraint_t>(99))),
      USAGE("constraint error value", kCg, ov_node_set_edge_constraint(w.n("A"), w.n("B"), ov_constraint_error)),
      USAGE("set constraint with itself", kCg, ov_node_set_edge_constraint(w.n("A"), w.n("A"), ov_constraint_edge_required)),
      USAGE("set constraint with a stranger", kCg, ov_node_set_edge_constraint(w.n("A"), w.stranger, ov_constraint_edge_required)),
      USAGE("d-connection from nothing", kCg, ov_domain_get_d_connected_nodes(w.d, w.list({}), w.list({}), w.list({}))),
      USAGE("d-connection, a source twice", kCg,
          ov_domain_get_d_connected_nodes(w.d, w.list({w.n("A"), w.n("A")}), w.list({}), w.list({}))),
      USAGE("d-separation, foreign evidence", kCg,
          ov_domain_get_d_separated_nodes(w.d, w.list({w.n("A")}), w.list({w.stranger}), w.list({}))),
      USAGE("d-connection, null soft list", kCg, ov_domain_get_d_connected_nodes(w.d, w.list({w.n("A")}), w.list({}), nullptr)),
      USAGE("d-connection, utility evidence", kId,
          ov_domain_get_d_connected_nodes(w.d, w.list({w.n("A")}), w.list({w.n("U")}), w.list({}))),
      USAGE("d-connection, utility soft evidence", kId,
          ov_domain_get_d_connected_nodes(w.d, w.list({w.n("A")}), w.list({}), w.list({w.n("U")}))),
      USAGE("d-connection, null source", kCg, ov_domain_get_d_connected_nodes(w.d, nullptr, w.list({}), w.list({}))),
      // Tables.
      USAGE("reorder that moves the child", kCg,
          ov_table_reorder_nodes(ov_node_get_table(w.n("C")), w.list({w.n("C"), w.n("A"), w.n("B")}))),
      USAGE("reorder with a node missing", kCg, ov_table_reorder_nodes(ov_node_get_table(w.n("C")), w.list({w.n("B"), w.n("C")}))),
      USAGE("reorder with a node twice", kCg, ov_table_reorder_nodes(ov_node_get_table(w.n("C")), w.list({w.n("B"), w.n("B"), w.n("C")}))),
      USAGE("reorder with a stranger", kCg, ov_table_reorder_nodes(ov_node_get_table(w.n("C")), w.list({w.stranger, w.n("A"), w.n("C")}))),
      USAGE("negative variance", kCg, ov_node_set_gamma(w.n("Y"), -0.1, 1)),
      USAGE("NaN variance", kCg, ov_node_set_gamma(w.n("Y"), std::nan(""), 0)),
      USAGE("mean past the configurations", kCg, ov_node_set_alpha(w.n("Y"), 9.0, 2)),
      USAGE("negative configuration", kCg, ov_node_set_alpha(w.n("Y"), 9.0, -1)),
      USAGE("coefficient of a discrete parent", kCg, ov_node_set_beta(w.n("Y"), 9.0, w.n("A"), 0)),
      USAGE("coefficient of the node itself", kCg, ov_node_set_beta(w.n("Y"), 9.0, w.n("Y"), 0)),
      USAGE("mean of a discrete node", kCg, ov_node_set_alpha(w.n("A"), 1.0, 0)),
      // Compilation.
      USAGE("compile an empty domain", kEmpty, ov_domain_compile(w.d)),
      USAGE_AFTER("compile once the last chance node went", kEmpty,
          ov_node_delete(ov_domain_new_node(w.d, ov_category_chance, ov_kind_discrete)), ov_domain_compile(w.d)),
      USAGE_AFTER("compile a domain of utilities", kEmpty, ov_domain_new_node(w.d, ov_category_utility, ov_kind_discrete),
          ov_domain_compile(w.d)),
      USAGE("triangulation method out of range", kAbc, ov_domain_triangulate(w.d, static_cast<ov_triangulation_method_t>(14))),
      USAGE("triangulation method above the range", kAbc, ov_domain_triangulate(w.d, static_cast<ov_triangulation_method_t>(20))),
      USAGE("no elimination order", kAbc, ov_domain_triangulate_with_order(w.d, nullptr)),
      REFUSE("order with nodes missing", kAbc, ov_error_enumeration, failed, ov_domain_triangulate_with_order(w.d, w.list({w.n("A")}))),
      REFUSE("order with a node twice", kAbc, ov_error_enumeration, failed,
          ov_domain_triangulate_with_order(w.d, w.list({w.n("A"), w.n("A"), w.n("B"), w.n("C")}))),
      USAGE("order with a stranger", kAbc, ov_domain_triangulate_with_order(w.d, w.list({w.stranger, w.n("A"), w.n("B"), w.n("C")}))),
      USAGE_AFTER("triangulate twice", kAbc, compile(w), ov_domain_triangulate_with_order(w.d, w.list({w.n("C"), w.n("B"), w.n("A")}))),
      // Evidence, propagation, results.
      USAGE("negative finding", kCg, ov_node_enter_finding(w.n("A"), 1, -1.0f)),
      USAGE("select a state past the end", kCg, ov_node_select_state(w.n("A"), 2)),
      REFUSE("evidence count before compiling", kCg, ov_error_not_compiled, -1, ov_node_evidence_to_propagate(w.n("A"))),
      REFUSE("belief before compiling", kCg, ov_error_not_compiled, -1.0f, ov_node_get_belief(w.n("A"), 0)),
      REFUSE("log constant before compiling", kCg, ov_error_not_compiled, 1.0, ov_domain_get_log_normalization_constant(w.d)),
      REFUSE("propagate before compiling", kCg, ov_error_not_compiled, failed,
          ov_domain_propagate(w.d, ov_equilibrium_sum, ov_mode_normal)),
      REFUSE_AFTER("belief of a state past the end", kAbc, compile(w), usage, -1.0f, ov_node_get_belief(w.n("A"), 2)),
      USAGE_AFTER("equilibrium out of range", kAbc, compile(w),
          ov_domain_propagate(w.d, static_cast<ov_equilibrium_t>(10), ov_mode_normal)),
      // Simulation.
      REFUSE("sampled state before simulating", kCg, usage, -1, ov_node_get_sampled_state(w.n("A"))),
      REFUSE("random selection before compiling", kCg, ov_error_not_compiled, -1.0, ov_domain_get_probability_of_random_selection(w.d)),
      USAGE_AFTER("simulate with a likelihood", kCg, ov_node_enter_finding(w.n("A"), 1, 0.5f), ov_domain_simulate(w.d)),
      USAGE_AFTER("simulate before propagating", kAbc, (compile(w), ov_node_select_state(w.n("A"), 1)), ov_domain_simulate(w.d)),
      USAGE_AFTER("simulate at max equilibrium", kAbc, (compile(w), ov_domain_propagate(w.d, ov_equilibrium_max, ov_mode_normal)),
          ov_domain_simulate(w.d)),
      // Expressions and models.
      USAGE("composite of a leaf operator", kCg,
          ov_make_composite_expression(ov_op_number, w.operands({w.keep(ov_number_make_expression(1))}))),
      USAGE("operator out of range", kCg,
          ov_make_composite_expression(static_cast<ov_operator_t>(59), w.operands({w.keep(ov_number_make_expression(1))}))),
      USAGE("composite without operands", kCg, ov_make_composite_expression(ov_op_exp, nullptr)),
      USAGE("parse without a domain", kCg, ov_string_to_expression("1", nullptr, nullptr)),
      USAGE("parse no text", kCg, ov_string_to_expression(nullptr, w.d, nullptr)),
      USAGE("parse without a model", kCg, ov_string_parse_expression("1", nullptr, nullptr, nullptr)),
      USAGE("model of a decision", kId, ov_node_new_model(w.n("D"), nullptr)),
      USAGE("model of a continuous node", kCg, ov_node_new_model(w.n("Y"), nullptr)),
      USAGE("model over a node twice", kCg, ov_node_new_model(w.n("C"), w.list({w.n("A"), w.n("A")}))),
      USAGE("model over a non-parent", kCg, ov_node_new_model(w.n("B"), w.list({w.n("C")}))),
      USAGE("model over a stranger", kCg, ov_node_new_model(w.n("B"), w.list({w.stranger}))),
      USAGE_AFTER("expression slot past the end", kCg, w.model("B", {w.n("A")}),
          ov_model_set_expression(ov_node_get_model(w.n("B")), 2, nullptr)),
      USAGE_AFTER("expression slot negative", kCg, w.model("B", {w.n("A")}),
          ov_model_set_expression(ov_node_get_model(w.n("B")), -1, nullptr)),
      USAGE_AFTER("no samples per interval", kCg, ov_node_new_model(w.n("B"), nullptr),
          ov_model_set_number_of_samples_per_interval(ov_node_get_model(w.n("B")), 0)),
      REFUSE_AFTER("utility model of a label", kId, w.model("U", {}), ov_error_invalid_expression, failed,
          ov_model_set_expression(ov_node_get_model(w.n("U")), 0, w.keep(ov_label_make_expression("x")))),
      REFUSE_AFTER("expression over a node outside the model", kCg, w.model("B", {w.n("A")}), ov_error_invalid_expression, failed,
          ov_model_set_expression(ov_node_get_model(w.n("B")), 0, w.keep(ov_node_make_expression(w.n("C"))))),
      // NET files.
      REFUSE("save into a missing directory", kCg, ov_error_io, failed, ov_domain_save_as_net(w.d, "/nonexistent-dir/x.net")),
      REFUSE("write to a read-only stream", kCg, ov_error_io, failed, ov_domain_write_net(w.d, w.read_only)),
      REFUSE("save classes into a missing directory", nullptr, ov_error_io, failed, ov_cc_save_as_net(w.cc, "/nonexistent-dir/c.net")),
      REFUSE("save a class into a missing directory", nullptr, ov_error_io, failed, ov_class_save_as_net(w.part, "/nonexistent-dir/c.net")),
      // Classes and instances.
      REFUSE("instance of itself", nullptr, ov_error_cyclic_instance_hierarchy, failed, ov_class_new_instance(w.part, w.part)),
      REFUSE("instance of a user", nullptr, ov_error_cyclic_instance_hierarchy, failed, ov_class_new_instance(w.part, w.whole)),
      USAGE("instance across collections", nullptr, ov_class_new_instance(w.whole, w.alien)),
      USAGE("instance of no class", nullptr, ov_class_new_instance(w.whole, nullptr)),
      REFUSE_AFTER("continuous output into a decider", nullptr,
          ov_node_add_to_outputs(w.node(w.part, "level", ov_category_chance, ov_kind_continuous)),
          ov_error_cg_influence_diagrams_not_supported, failed, ov_class_new_instance(w.decider, w.part)),
      REFUSE_AFTER("new continuous output with a decider instance", nullptr,
          (ov_class_new_instance(w.decider, w.part), w.node(w.part, "level", ov_category_chance, ov_kind_continuous)),
          ov_error_cg_influence_diagrams_not_supported, failed, ov_node_add_to_outputs(ov_class_get_node_by_name(w.part, "level"))),
      REFUSE_AFTER("substitute a class whose new output cannot be cloned", nullptr,
          (ov_class_new_instance(w.decider, w.part), w.next_class()), ov_error_cg_influence_diagrams_not_supported, failed,
          ov_node_substitute_class(ov_class_get_instances(w.part)[1], ov_cc_get_class_by_name(w.cc, "Next"))),
      USAGE("instance node in a class", nullptr, ov_class_new_node(w.part, ov_category_instance, ov_kind_discrete)),
      USAGE("bind across kinds", nullptr, ov_node_set_input(w.inst, w.in, w.xc)),
      USAGE_AFTER("bind across categories", nullptr, w.node(w.whole, "wd", ov_category_decision),
          ov_node_set_input(w.inst, w.in, ov_class_get_node_by_name(w.whole, "wd"))),
      USAGE("bind a hidden node", nullptr, ov_node_set_input(w.inst, w.hidden, w.x)),
      USAGE("bind a node of another class", nullptr, ov_node_set_input(w.inst, w.in, w.out)),
      USAGE("bind on a non-instance", nullptr, ov_node_set_input(w.x, w.in, w.x)),
      USAGE("bind an instance", nullptr, ov_node_set_input(w.inst, w.in, w.inst)),
      USAGE("bind nothing", nullptr, ov_node_set_input(w.inst, w.in, nullptr)),
      USAGE("read a hidden binding", nullptr, ov_node_get_input(w.inst, w.hidden)),
      USAGE("unbind a hidden node", nullptr, ov_node_unset_input(w.inst, w.hidden)),
      USAGE("output that is no output", nullptr, ov_node_get_output(w.inst, w.in)),
      USAGE("output of a non-instance", nullptr, ov_node_get_output(w.x, w.out)),
      USAGE("class of a non-instance", nullptr, ov_node_get_instance_class(w.x)),
      USAGE("substitute no class", nullptr, ov_node_substitute_class(w.inst, nullptr)),
      USAGE("substitute on a non-instance", nullptr, ov_node_substitute_class(w.x, w.part)),
      REFUSE("substitute the container", nullptr, ov_error_cyclic_instance_hierarchy, failed, ov_node_substitute_class(w.inst, w.whole)),
      USAGE("substitute a class of another collection", nullptr, ov_node_substitute_class(w.inst, w.alien)),
      USAGE("substitute a class without the input", nullptr, ov_node_substitute_class(w.inst, w.decider)),
      USAGE_AFTER("substitute a class with other output labels", nullptr,
          (ov_node_add_to_inputs(w.node(w.decider, "in")), ov_node_add_to_outputs(w.node(w.decider, "out")), ov_node_set_state_label(ov_class_get_node_by_name(w.decider, "out"), 1, "high")),
          ov_node_substitute_class(w.inst, w.decider)),
      USAGE_AFTER("utility input", nullptr, w.node(w.whole, "u", ov_category_utility),
          ov_node_add_to_inputs(ov_class_get_node_by_name(w.whole, "u"))),
      USAGE("instance as an input", nullptr, ov_node_add_to_inputs(w.inst)),
      USAGE("instance as an output", nullptr, ov_node_add_to_outputs(w.inst)),
      USAGE("clone as an input", nullptr, ov_node_add_to_inputs(w.clone)),
      USAGE("input as an output", nullptr, ov_node_add_to_outputs(w.in)),
      USAGE("output as an input", nullptr, ov_node_add_to_inputs(w.out)),
      USAGE("remove a non-input", nullptr, ov_node_remove_from_inputs(w.out)),
      USAGE("remove a non-output", nullptr, ov_node_remove_from_outputs(w.in)),
      USAGE_AFTER("input with a parent", nullptr, ov_node_add_parent(w.hidden, w.out), ov_node_add_to_inputs(w.hidden)),
      USAGE("parent of an input", nullptr, ov_node_add_parent(w.in, w.out)),
      USAGE("parent of a clone", nullptr, ov_node_add_parent(w.clone, w.x)),
      USAGE("parent of an instance", nullptr, ov_node_add_parent(w.inst, w.x)),
      USAGE("states of a clone", nullptr, ov_node_set_number_of_states(w.clone, 3)),
      USAGE("label of a clone", nullptr, ov_node_set_state_label(w.clone, 0, "x")),
      USAGE("subtype of a clone", nullptr, ov_node_set_subtype(w.clone, ov_subtype_number)),
      USAGE("table of a clone", nullptr, ov_node_get_table(w.clone)),
      USAGE("delete a clone", nullptr, ov_node_delete(w.clone)),
      USAGE("delete a node of a chain component", kChain, ov_node_delete(w.n("B"))),
      USAGE("reverse into a chain component", kChain, ov_node_reverse_edge(w.n("A"), w.n("B"))),
      USAGE("a chain graph as a class", kChain, ov_cc_add_domain(w.spare, w.d)),
      USAGE("delete a used class", nullptr, ov_class_delete(w.part)),
      REFUSE("class name with a space", nullptr, ov_error_invalid_name, failed, ov_class_set_name(w.part, "a b")),
      REFUSE("class name of another", nullptr, ov_error_twice, failed, ov_class_set_name(w.part, "Whole")),
      USAGE("null class name", nullptr, ov_class_set_name(w.part, nullptr)),
      REFUSE("class attribute key", nullptr, ov_error_invalid_name, failed, ov_class_set_attribute(w.part, "3rd", "3")),
      USAGE("class node size into one pointer", nullptr, ov_class_get_node_size(w.part, &w.w, &w.w)),
      USAGE("class added twice", nullptr, ov_cc_add_domain(w.cc, reinterpret_cast<ov_domain_t>(w.part))),
      USAGE("class into another collection", nullptr, ov_cc_add_domain(w.cc2, reinterpret_cast<ov_domain_t>(w.part))),
      USAGE("class by no name", nullptr, ov_cc_get_class_by_name(w.cc, nullptr)),
      USAGE("collection of a plain domain", kCg, ov_class_get_class_collection(w.plain())),
      USAGE("inputs of a plain domain", kCg, ov_class_get_inputs(w.plain())),
      USAGE("class name of a plain domain", kCg, ov_class_get_name(w.plain())),
      USAGE("set the class name of a plain domain", kCg, ov_class_set_name(w.plain(), "A")),
      USAGE("delete a plain domain as a class", kCg, ov_class_delete(w.plain())),
      USAGE("node of a plain domain as an input", kCg, ov_node_add_to_inputs(w.n("A"))),
      USAGE("node of a plain domain as an output", kCg, ov_node_add_to_outputs(w.n("A"))),
      USAGE("node of a plain domain out of the inputs", kCg, ov_node_remove_from_inputs(w.n("A"))),
  };
  // clang-format on
  return all;
}

#undef REFUSE
#undef REFUSE_AFTER
#undef USAGE
#undef USAGE_AFTER

TEST(Refusals, ReturnTheirFailureRecordTheirCodeAndChangeNothing) {
  ASSERT_GT(rows().size(), 150u);
  for (const Row &row : rows()) {
    World w(row.net);
    if (row.prepare) row.prepare(w);
    const std::string before = w.state();
    ov_domain_get_first_node(w.d != nullptr ? w.d : w.other); // a success clears the error slot
    ASSERT_EQ(ov_error_code(), ov_error_none) << row.what;
    EXPECT_TRUE(row.refused(w)) << row.what << ": not the failure value";
    EXPECT_EQ(ov_error_code(), row.code) << row.what;
    EXPECT_EQ(w.state(), before) << row.what;
  }
}

} // namespace
